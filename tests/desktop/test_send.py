"""The sender that the file managers' entries run: it hands files to the helper, starts the helper when none runs,
and says what went wrong. Runs within tests/desktop/session; CADORA_BUILD names the build folder.

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

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from desktop import has_owner, read_property  # noqa: E402
from road import BUS_NAME, Helper, Outbox, end, session_folder, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
NOBODY = "http://127.0.0.1:9"
TIMEOUT = 60  # seconds
EXIT_REFUSED = 1
EXIT_UNAVAILABLE = 69


def shown_notifications():
    """How many the notification server shows or has shown."""
    name, interface = "org.freedesktop.Notifications", "org.dunstproject.cmd0"
    return sum(
        read_property(name, "/org/freedesktop/Notifications", interface, f"{key}Length")
        for key in ("displayed", "waiting", "history")
    )


class SendTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.helper = Helper(BUILD, NOBODY, session_folder() / "logs")
        cls.addClassCleanup(cls.helper.stop)
        cls.outbox = Outbox()
        # As it is installed: the helper beside its sender, in a folder whose name wants quoting.
        cls.bin = session_folder() / "cadora helper" / "bin"
        cls.bin.mkdir(parents=True)
        shutil.copy(cls.helper.program, cls.bin / "cadora-helper")
        for name in ("cadora-send", "cadora-alert", "cadora-export"):
            shutil.copy(BUILD / "bin" / name, cls.bin)

    def setUp(self):
        shutil.rmtree(self.outbox.folder, ignore_errors=True)
        folder = tempfile.TemporaryDirectory(dir=session_folder())
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.addCleanup(self.end_helper)

    def end_helper(self):
        def is_free():
            # Of several that were started, the next may take the name.
            if pid := self.helper.owner_pid():
                os.kill(pid, signal.SIGKILL)
            return pid is None

        wait_for(is_free, "the helper's name to be free")

    def start_helper(self):
        self.helper.start()
        self.addCleanup(end, self.helper.process)

    def file(self, name):
        path = os.fsencode(self.folder) + b"/" + os.fsencode(name)
        pathlib.Path(os.fsdecode(path)).write_bytes(b"sound")
        return path

    def send(self, *arguments, sender=None, display=None, **environment):
        """Runs the sender; it has no display unless one is given."""
        variables = {name: value for name, value in os.environ.items() if name != "DISPLAY"}
        variables.update({"DISPLAY": display} if display else {}, **environment)
        process = subprocess.run(
            [sender or self.bin / "cadora-send", *arguments],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=variables,
            cwd=self.folder,
            timeout=TIMEOUT,
            check=False,
        )
        self.assertEqual(process.stdout, b"")
        return process.returncode, process.stderr.decode()

    def wait_for_staged(self, names):
        wait_for(
            lambda: sorted(item["sourceFilename"] for item in self.outbox.items()) == sorted(names),
            f"{names} in the outbox",
            TIMEOUT,
        )

    def test_all_files_reach_the_running_helper_in_one_message(self):
        self.start_helper()
        monitor = subprocess.Popen(
            ["dbus-monitor", "--session", f"interface={BUS_NAME}.Services"], stdout=subprocess.PIPE, text=True
        )
        self.addCleanup(monitor.stdout.close)
        self.addCleanup(end, monitor)
        # It has begun to listen once it says that it has got, and lost, a name.
        wait_for(lambda: "NameLost" in monitor.stdout.readline(), "the monitor to listen", TIMEOUT)
        uri = "file://" + os.fsdecode(self.file("b & \"c\" é.aiff")).replace(" ", "%20")
        self.file("-rel'ative.mp3")
        self.assertEqual(self.send(self.file("a b.wav"), uri, "./-rel'ative.mp3"), (0, ""))
        self.wait_for_staged(["a b.wav", "b & \"c\" é.aiff", "-rel'ative.mp3"])
        # A second one, so that the first is known to be complete.
        self.assertEqual(self.send(self.file("last.wav")), (0, ""))
        messages = []
        while not messages or "last.wav" not in messages[-1]:
            line = monitor.stdout.readline()
            if "member=sendToCadora" in line:
                messages.append("")
            elif messages:
                messages[-1] += line
        self.assertEqual(len(messages), 2)
        self.assertEqual(messages[0].count("file://"), 3)

    def test_bytes_that_are_no_text_arrive(self):
        self.start_helper()
        self.assertEqual(self.send(self.file(b"caf\xe9.wav")), (0, ""))
        self.wait_for_staged(["caf\ufffd.wav"])

    def test_the_files_that_nautilus_names_are_sent(self):
        self.start_helper()
        uris = [pathlib.Path(os.fsdecode(self.file(name))).as_uri() for name in ("a b.wav", "é.wav")]
        self.assertEqual(self.send(NAUTILUS_SCRIPT_SELECTED_URIS="\n".join(uris) + "\n"), (0, ""))
        self.wait_for_staged(["a b.wav", "é.wav"])

    def test_it_starts_the_helper_beside_it_which_outlives_it(self):
        self.assertEqual(self.send(self.file("a.wav")), (0, ""))
        self.wait_for_staged(["a.wav"])
        pid = self.helper.owner_pid()
        self.assertEqual(os.readlink(f"/proc/{pid}/exe"), str(self.bin / "cadora-helper"))
        self.assertEqual(os.getsid(pid), pid)

    def test_many_senders_at_once_start_one_helper_and_lose_nothing(self):
        names = [f"{number}.wav" for number in range(5)]
        senders = [subprocess.Popen([self.bin / "cadora-send", self.file(name)]) for name in names]
        self.assertEqual([sender.wait(TIMEOUT) for sender in senders], [0] * len(names))
        self.wait_for_staged(names)

    def service(self, program):
        services = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "dbus-1/services"
        services.mkdir(parents=True, exist_ok=True)
        entry = services / f"{BUS_NAME}.service"
        entry.write_text(f"[D-BUS Service]\nName={BUS_NAME}\nExec={program}\n")
        self.addCleanup(self.helper.call_bus, "ReloadConfig", None)
        self.addCleanup(entry.unlink)
        self.helper.call_bus("ReloadConfig", None)

    def test_it_has_the_bus_start_the_helper_where_the_bus_can(self):
        self.service(self.helper.program)
        self.assertEqual(self.send(self.file("a.wav")), (0, ""))
        self.wait_for_staged(["a.wav"])
        self.assertEqual(os.readlink(f"/proc/{self.helper.owner_pid()}/exe"), str(self.helper.program))

    def test_a_service_whose_program_is_gone_does_not_stop_it(self):
        self.service("/nonexistent/cadora-helper")
        self.assertEqual(self.send(self.file("a.wav")), (0, ""))
        self.wait_for_staged(["a.wav"])

    def test_without_a_helper_it_says_so(self):
        alone = self.folder / "cadora-send"
        shutil.copy(self.bin / "cadora-send", alone)
        status, said = self.send(self.file("a.wav"), sender=alone)
        self.assertEqual(status, EXIT_UNAVAILABLE)
        self.assertEqual(
            said,
            "cadora-send: Cadora Helper could not be started: "
            f"{self.folder}/cadora-helper: No such file or directory\n",
        )

    def test_a_helper_that_fails_to_start_is_an_error(self):
        alone = self.folder / "cadora-send"
        shutil.copy(self.bin / "cadora-send", alone)
        (self.folder / "cadora-helper").symlink_to("/bin/false")
        status, said = self.send(self.file("a.wav"), sender=alone)
        self.assertEqual(status, EXIT_UNAVAILABLE)
        self.assertEqual(said, "cadora-send: Cadora Helper could not be started: it ended again at once\n")

    def test_without_a_session_bus_it_says_so(self):
        status, said = self.send(self.file("a.wav"), DBUS_SESSION_BUS_ADDRESS="unix:path=/nonexistent/bus")
        self.assertEqual(status, EXIT_UNAVAILABLE)
        self.assertIn("cadora-send: Cadora Helper can’t be reached without a session bus: ", said)

    def test_a_refused_request_is_told_on_the_standard_error(self):
        self.start_helper()
        for arguments in ([], ["https://cadora.example/song.wav"]):
            self.assertEqual(
                self.send(*arguments), (EXIT_REFUSED, "cadora-send: No file to send to Cadora.\n")
            )
        self.assertEqual(self.outbox.items(), [])

    def test_it_says_how_it_is_used_and_sends_nothing(self):
        done = subprocess.run([self.bin / "cadora-send", "--help"], capture_output=True, text=True, timeout=TIMEOUT, check=True)
        self.assertTrue(done.stdout.startswith("usage: cadora-send FILE-OR-URI..."))
        self.assertFalse(has_owner(BUS_NAME))

    def test_where_the_promised_display_is_gone_a_refusal_comes_as_a_notification(self):
        self.start_helper()
        before = shown_notifications()
        for variables in ({"display": ":987"}, {"WAYLAND_DISPLAY": "gone"}):
            self.assertEqual(self.send(**variables), (EXIT_REFUSED, "cadora-send: No file to send to Cadora.\n"))
        wait_for(lambda: shown_notifications() == before + 2, "the notifications", TIMEOUT)

    def test_a_helper_whose_promised_display_is_gone_says_so_once(self):
        before = shown_notifications()
        self.assertEqual(self.send(self.file("a.wav"), display=":987"), (0, ""))
        self.wait_for_staged(["a.wav"])
        wait_for(lambda: shown_notifications() > before, "the notification", TIMEOUT)

    def test_a_file_that_could_not_be_copied_is_told_by_its_name(self):
        self.start_helper()
        missing = self.folder / "gone.wav"
        said = "“gone.wav” couldn’t be copied: No such file or directory"
        self.assertEqual(
            self.send(self.file("a.wav"), missing, "file:///100%.wav"),
            (EXIT_REFUSED, f"cadora-send: “100%.wav” has an address that is not well-formed\n{said}\n"),
        )
        self.wait_for_staged(["a.wav"])
        self.assertIn(f"[Cadora Helper] stage failed: {said}", self.helper.log_lines())
        self.assertEqual(self.send(self.file("b.wav")), (0, ""))

    def find(self, role, name, process):
        """What a screen reader finds in the dialogs of the program that the process started."""

        def below(item, depth=0):
            try:
                if item.get_role_name() == role and item.get_name() == name:
                    return item
                children = [item.get_child_at_index(i) for i in range(item.get_child_count())] if depth < 10 else []
            except GLib.Error:
                return None  # it went away meanwhile
            return next(filter(None, (below(child, depth + 1) for child in children if child)), None)

        def parent(pid):
            try:
                return int(pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[1])
            except OSError:
                return None

        desktop = Atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            application = desktop.get_child_at_index(index)
            if application and parent(application.get_process_id()) == process.pid:
                return below(application)
        return None

    def test_a_refused_request_is_told_in_a_dialog_that_a_screen_reader_reads(self):
        self.start_helper()
        process = subprocess.Popen([self.bin / "cadora-send"], stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(end, process)
        wait_for(lambda: self.find("label", "No file to send to Cadora.", process), "the dialog's text", TIMEOUT)
        self.assertTrue(self.find("alert", "Cadora Helper", process))
        button = self.find("push button", "OK", process)
        self.assertIsNone(process.poll())
        Atspi.Action.do_action(button, 0)
        self.assertEqual(process.wait(TIMEOUT), EXIT_REFUSED)
        self.assertEqual(process.stderr.read(), "cadora-send: No file to send to Cadora.\n")


if __name__ == "__main__":
    unittest.main(verbosity=2)
