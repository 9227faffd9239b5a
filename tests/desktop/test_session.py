"""The private desktop itself: what a command finds in it, and that nothing of it outlives it.

Runs anywhere; each test plays desktops of its own.
"""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

SESSION = pathlib.Path(__file__).resolve().parent / "session"
TIMEOUT = 60  # seconds


def processes_of(folder):
    """The processes that know the folder as their session's."""
    mark = f"CADORA_SESSION={folder}".encode()
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if mark in (entry / "environ").read_bytes().split(b"\0"):
                    found.append((entry / "comm").read_text().strip())
            except OSError:
                continue
    return found


def wait_until(condition, what):
    deadline = time.monotonic() + TIMEOUT
    while not condition():
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {TIMEOUT} s: {what}")
        time.sleep(0.01)


class SessionTest(unittest.TestCase):
    def setUp(self):
        parent = tempfile.TemporaryDirectory(dir="/var/tmp")
        self.addCleanup(parent.cleanup)
        self.folder = pathlib.Path(parent.name) / "session"

    def command(self, *command, options=()):
        return [SESSION, "--directory", self.folder, *options, "--", *command]

    def run_inside(self, *command, **keywords):
        return subprocess.run(
            self.command(*command, **keywords), capture_output=True, text=True, timeout=TIMEOUT, check=False
        )

    def start_inside(self, *command):
        """Starts a session, and returns it once its command has printed its first line."""
        process = subprocess.Popen(self.command(*command), stdout=subprocess.PIPE, text=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.assertEqual(process.stdout.readline(), "ready\n")
        return process

    def assert_nothing_left(self):
        self.assertEqual(processes_of(self.folder), [])

    def test_the_exit_status_is_the_commands(self):
        self.assertEqual(self.run_inside("true").returncode, 0)
        self.folder = self.folder.with_name("second")
        self.assertEqual(self.run_inside("sh", "-c", "exit 7").returncode, 7)
        self.folder = self.folder.with_name("third")
        self.assertEqual(self.run_inside("sh", "-c", "kill -KILL $$").returncode, 128 + signal.SIGKILL)

    def test_a_command_finds_a_desktop_and_nothing_of_the_callers(self):
        script = """
            set -e
            test -S "/tmp/.X11-unix/X${DISPLAY#:}"
            for name in org.freedesktop.secrets org.freedesktop.Notifications; do
                gdbus call --session -d org.freedesktop.DBus -o /org/freedesktop/DBus \
                    -m org.freedesktop.DBus.NameHasOwner "$name"
            done
            gdbus call --session -d org.freedesktop.secrets -o /org/freedesktop/secrets/collection/login \
                -m org.freedesktop.DBus.Properties.Get org.freedesktop.Secret.Collection Locked
            env
        """
        result = self.run_inside("sh", "-c", script)
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = result.stdout.splitlines()
        self.assertEqual(lines[:3], ["(true,)", "(true,)", "(<false>,)"])
        environment = dict(line.split("=", 1) for line in lines[3:] if "=" in line)
        for name in ("HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"):
            self.assertTrue(pathlib.Path(environment[name]).is_relative_to(self.folder), name)
        self.assertNotEqual(environment["DBUS_SESSION_BUS_ADDRESS"], os.environ.get("DBUS_SESSION_BUS_ADDRESS"))
        self.assertNotEqual(environment["DISPLAY"], os.environ.get("DISPLAY"))

    def test_a_bus_alone_comes_without_a_display(self):
        result = self.run_inside(
            "sh", "-c", 'test -z "$DISPLAY" && gdbus call --session -d org.freedesktop.DBus'
            " -o /org/freedesktop/DBus -m org.freedesktop.DBus.GetId", options=("--bus-only",)
        )
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_what_a_command_leaves_behind_ends_with_the_session(self):
        script = """
            setsid sleep 1000 >/dev/null 2>&1 &
            (trap '' TERM; exec >/dev/null 2>&1; touch "$CADORA_SESSION/deaf"; while :; do sleep 1000; done) &
            until test -e "$CADORA_SESSION/deaf"; do :; done
            sleep 1000 >/dev/null 2>&1 &
            kill -STOP $!
        """
        self.assertEqual(self.run_inside("bash", "-c", script).returncode, 0)
        self.assert_nothing_left()

    def test_the_folder_is_left_only_where_one_was_named(self):
        self.run_inside("true")
        self.assertTrue((self.folder / "logs/gnome-keyring-daemon.log").exists())
        result = subprocess.run(
            [SESSION, "sh", "-c", 'echo "$CADORA_SESSION"'], capture_output=True, text=True, timeout=TIMEOUT, check=True
        )
        self.assertFalse(pathlib.Path(result.stdout.strip()).exists())

    def test_a_folder_that_is_in_use_is_refused(self):
        self.folder.mkdir()
        (self.folder / "home").mkdir()
        result = self.run_inside("true")
        self.assertEqual(result.returncode, 70)
        self.assertIn("home", result.stderr)
        self.assert_nothing_left()

    def test_an_interrupted_session_ends_its_command_and_itself(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            self.folder = self.folder.with_name(number.name)
            process = self.start_inside("sh", "-c", "trap 'exit 0' INT TERM; echo ready; while :; do sleep 0.05; done")
            process.send_signal(number)
            if number == signal.SIGINT:
                # A terminal sends it to the command as well.
                for pid in self.children(process.pid, "sh"):
                    os.kill(pid, number)
            self.assertEqual(process.wait(TIMEOUT), 128 + number)
            self.assert_nothing_left()

    def test_the_servers_end_also_when_the_session_is_killed(self):
        process = self.start_inside("sh", "-c", "echo ready; exec sleep 1000")
        process.kill()
        process.wait()
        wait_until(lambda: not processes_of(self.folder), "the end of every process")

    def test_two_at_once_are_strangers(self):
        show = ("sh", "-c", 'echo ready; read line; echo "$DISPLAY $DBUS_SESSION_BUS_ADDRESS"')
        processes = []
        for name in ("one", "two"):
            self.folder = self.folder.with_name(name)
            processes.append(
                subprocess.Popen(self.command(*show), stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            )
        outputs = []
        for process in processes:
            self.assertEqual(process.stdout.readline(), "ready\n")
        for process in processes:
            outputs.append(process.communicate("go\n", TIMEOUT)[0].split())
        self.assertEqual(len(outputs[0]), 2)
        self.assertNotEqual(outputs[0][0], outputs[1][0])
        self.assertNotEqual(outputs[0][1], outputs[1][1])

    @staticmethod
    def children(parent, name):
        tasks = pathlib.Path(f"/proc/{parent}/task/{parent}/children").read_text().split()
        return [int(pid) for pid in tasks if pathlib.Path(f"/proc/{pid}/comm").read_text().strip() == name]


if __name__ == "__main__":
    unittest.main(verbosity=2, argv=[sys.argv[0], *sys.argv[1:]])
