"""How the helper starts, stays the only one of its session, takes what later starts hand on, and ends. Runs within
tests/desktop/session; CADORA_BUILD names the build folder.

Nobody is signed in, so that what is sent is staged and goes nowhere.
"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from road import BUS_NAME, GLib, Helper, Outbox, end, session_folder, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
NOBODY = "http://127.0.0.1:9"
TIMEOUT = 60  # seconds
EXIT_UNAVAILABLE = 69


class StartTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.helper = Helper(BUILD, NOBODY, session_folder() / "logs")
        cls.addClassCleanup(cls.helper.stop)
        cls.outbox = Outbox()

    def setUp(self):
        shutil.rmtree(self.outbox.folder, ignore_errors=True)
        self.helper.log.unlink(missing_ok=True)
        folder = tempfile.TemporaryDirectory(dir=session_folder())
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.started = []
        self.addCleanup(self.end_all)

    def end_all(self):
        for process in self.started:
            end(process)
        # One that the bus started is not ours to wait for.
        if pid := self.helper.owner_pid():
            os.kill(pid, signal.SIGKILL)
        wait_for(lambda: self.helper.owner_pid() is None, "the helper's name to be free")

    def file(self, name, content=b"sound"):
        path = os.fsencode(self.folder) + b"/" + (name if isinstance(name, bytes) else name.encode())
        with open(path, "wb") as file:
            file.write(content)
        return path

    def start(self, *arguments, **options):
        with open(self.helper.log, "ab") as log:
            defaults = {"stdin": subprocess.DEVNULL, "stdout": subprocess.DEVNULL, "stderr": log, "cwd": self.folder}
            process = subprocess.Popen([self.helper.program, *arguments], **{**defaults, **options})
        self.started.append(process)
        return process

    def start_first(self, *arguments, **options):
        process = self.start(*arguments, **options)
        wait_for(lambda: self.helper.owner_pid() == process.pid, "the helper's name on the bus")
        return process

    def start_later(self, *arguments, **options):
        """Runs to its end; returns its exit status and what it said."""
        process = subprocess.run(
            [self.helper.program, *arguments],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=TIMEOUT,
            check=False,
            **{"cwd": self.folder, **options},
        )
        return process.returncode, process.stdout + process.stderr

    def wait_for_staged(self, names):
        """The names of the staged files, in any order."""
        expected = sorted(names)
        wait_for(
            lambda: sorted(item["sourceFilename"] for item in self.outbox.items()) == expected,
            f"{expected} in the outbox",
            TIMEOUT,
        )

    # The first start.

    def test_files_given_to_the_first_start_are_sent(self):
        self.file("a b.wav")
        self.start_first("a b.wav", self.file("c.wav"))
        self.wait_for_staged(["a b.wav", "c.wav"])

    def test_a_link_that_nobody_waits_for_leaves_the_helper_running_and_no_secret_in_its_log(self):
        helper = self.start_first("cadora://auth?token=secret")
        self.assertEqual(self.start_later(self.file("a.wav"))[0], 0)
        self.wait_for_staged(["a.wav"])
        self.assertIsNone(helper.poll())
        log = self.helper.log.read_text()
        self.assertIn("[Cadora Helper] ", log)
        self.assertNotIn("secret", log)

    def test_it_runs_without_a_display(self):
        environment = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        self.start_first(self.file("a.wav"), env=environment)
        self.wait_for_staged(["a.wav"])

    def test_it_runs_without_standard_descriptors(self):
        helper = self.start_first("/nonexistent/a.wav", preexec_fn=lambda: os.closerange(0, 3))
        self.assertEqual(self.helper.send([self.file("a.wav")]), "")
        self.wait_for_staged(["a.wav"])
        self.assertIsNone(helper.poll())
        if os.geteuid() == 0:  # a process that can't be traced shows its descriptors to nobody else
            self.assertEqual(
                [os.readlink(f"/proc/{helper.pid}/fd/{number}") for number in range(3)], ["/dev/null"] * 3
            )

    def test_it_outlives_the_reader_of_its_log(self):
        reader, writer = os.pipe()
        helper = self.start_first(stderr=writer)
        os.close(writer)
        os.close(reader)
        self.assertEqual(self.helper.send(["/nonexistent/a.wav", self.file("b.wav")]), "")
        self.wait_for_staged(["b.wav"])
        self.assertIsNone(helper.poll())

    def test_without_a_session_bus_it_says_so_and_ends(self):
        for address in ("unix:path=/nonexistent/bus", "nonsense"):
            with self.subTest(address):
                environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": address}
                status, said = self.start_later(env=environment)
                self.assertEqual(status, EXIT_UNAVAILABLE)
                self.assertIn("no session bus", said)

    def test_it_ends_with_its_session_bus(self):
        reader, writer = os.pipe()
        bus = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", f"--print-address={writer}"],
            pass_fds=(writer,),
            stderr=subprocess.DEVNULL,
        )
        self.started.append(bus)
        os.close(writer)
        with os.fdopen(reader) as line:
            address = line.readline().strip()
        environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": address}
        helper = self.start(env=environment)
        subprocess.run(["gdbus", "wait", "--address", address, "--timeout", str(TIMEOUT), BUS_NAME], check=True)
        end(bus)
        self.assertEqual(helper.wait(TIMEOUT), EXIT_UNAVAILABLE)
        self.assertIn("[Cadora Helper] the session bus is gone", self.helper.log.read_text())

    # Later starts.

    def test_a_later_start_hands_its_files_on_and_ends(self):
        helper = self.start_first()
        odd = b"caf\xe9 \"q\" 100% #1?.wav"
        self.file(odd)
        self.file("-style")
        self.assertEqual(self.start_later(odd, "./-style", self.file("with\nbreak.wav")), (0, ""))
        self.wait_for_staged(["caf\ufffd \"q\" 100% #1?.wav", "-style", "with\nbreak.wav"])
        self.assertIsNone(helper.poll())

    def test_a_later_start_takes_uris_as_file_managers_write_them(self):
        self.start_first()
        path = self.file("a b.wav").decode()
        self.assertEqual(self.start_later(f"file://{path.replace(' ', '%20')}")[0], 0)
        self.assertEqual(self.start_later(f"file://localhost{path.replace(' ', '%20')}")[0], 0)
        self.assertEqual(self.start_later(f"file:{path}")[0], 0)
        self.wait_for_staged(["a b.wav"] * 3)

    def test_a_later_start_without_files_is_no_error(self):
        helper = self.start_first()
        self.assertEqual(self.start_later(), (0, ""))
        self.assertIsNone(helper.poll())

    def test_a_later_start_tells_what_the_helper_refuses(self):
        self.start_first()
        status, said = self.start_later("https://cadora.example/song.wav")
        self.assertEqual(status, 1)
        self.assertEqual(said, "[Cadora Helper] No file to send to Cadora.\n")

    def test_a_later_start_needs_neither_a_display_nor_a_folder(self):
        self.start_first()
        path = self.file("a.wav")
        gone = self.folder / "gone"
        gone.mkdir()
        script = 'cd "$1" && rmdir "$1" && unset DISPLAY && exec "$2" "$3"'
        result = subprocess.run(["sh", "-c", script, "sh", gone, self.helper.program, path], timeout=TIMEOUT, check=False)
        self.assertEqual(result.returncode, 0)
        self.wait_for_staged(["a.wav"])

    def test_of_many_starts_at_once_one_stays_and_no_file_is_lost(self):
        names = [f"{number}.wav" for number in range(8)]
        processes = [self.start(self.file(name)) for name in names]
        self.wait_for_staged(names)
        wait_for(lambda: sum(p.poll() is None for p in processes) == 1, "one of them to stay", TIMEOUT)
        self.assertEqual([p.returncode for p in processes if p.returncode is not None], [0] * 7)
        self.assertEqual([p.pid for p in processes if p.poll() is None], [self.helper.owner_pid()])

    def test_after_a_crash_the_next_start_is_the_first_again(self):
        for number in range(3):
            helper = self.start_first()
            helper.kill()
            helper.wait()
            wait_for(lambda: self.helper.owner_pid() is None, "the helper's name to be free")
            self.assertEqual(self.outbox.items(), [])
            self.assertEqual(helper.returncode, -signal.SIGKILL, number)

    # A request that finds no helper.

    def test_a_request_starts_the_helper_and_is_served(self):
        services = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "dbus-1/services"
        services.mkdir(parents=True, exist_ok=True)
        entry = services / f"{BUS_NAME}.service"
        entry.write_text(f"[D-BUS Service]\nName={BUS_NAME}\nExec={self.helper.program}\n")
        self.addCleanup(self.helper.call_bus, "ReloadConfig", None)
        self.addCleanup(entry.unlink)
        self.helper.call_bus("ReloadConfig", None)
        path = self.file("a.wav")
        for number in range(1, 6):
            self.assertEqual(self.helper.send([path]), "")
            self.wait_for_staged(["a.wav"] * number)
            self.end_all()

    # The desktop's other programs.

    def keyring_pid(self):
        name = GLib.Variant("(s)", ("org.freedesktop.secrets",))
        return self.helper.call_bus("GetConnectionUnixProcessID", name).unpack()[0]

    def test_a_keyring_that_hangs_neither_keeps_the_helper_from_starting_nor_from_serving(self):
        keyring = self.keyring_pid()
        os.kill(keyring, signal.SIGSTOP)
        self.addCleanup(os.kill, keyring, signal.SIGCONT)
        self.start_first()
        self.assertEqual(self.helper.send([self.file("a.wav"), self.file("b.wav")]), "")
        self.wait_for_staged(["a.wav", "b.wav"])
        wait_for(lambda: self.outbox.states() == ["deferredAuth"] * 2, "the items to wait for a sign-in", TIMEOUT)

    def test_it_leaves_nothing_running_when_it_is_asked_to_end(self):
        helper = self.start_first(self.file("a.wav"))
        self.wait_for_staged(["a.wav"])
        helper.terminate()
        self.assertEqual(helper.wait(TIMEOUT), -signal.SIGTERM)


if __name__ == "__main__":
    unittest.main(verbosity=2)
