"""What the kernel tells of a process, for the benchmarks."""

import pathlib
import time

SETTLED = 2  # seconds without a wake-up, after which a process rests
SETTLE_TIMEOUT = 120  # seconds


def switches(pid):
    """The context switches of each thread so far, by its name and id."""
    counts = {}
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        try:
            fields = dict(line.split(":", 1) for line in (task / "status").read_text().splitlines())
        except FileNotFoundError:
            continue
        name = f"{fields['Name'].strip()} ({task.name})"
        counts[name] = int(fields["voluntary_ctxt_switches"]) + int(fields["nonvoluntary_ctxt_switches"])
    return counts


def memory(pid):
    """Resident MiB, and the part that the process has to itself."""
    rollup = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    size = {line.split(":")[0]: int(line.split()[1]) / 1024 for line in rollup if line.endswith("kB")}
    return size["Rss"], size["Private_Clean"] + size["Private_Dirty"]


def settle(pid):
    """True once the process rests; one that never does is counted as it is."""
    deadline = time.monotonic() + SETTLE_TIMEOUT
    last, since = switches(pid), time.monotonic()
    while time.monotonic() < deadline:
        time.sleep(0.1)
        now = switches(pid)
        if now != last:
            last, since = now, time.monotonic()
        elif time.monotonic() - since >= SETTLED:
            return True
    return False
