"""The helper on stock GNOME, which has no place for a status item: GNOME Shell in a window of the private desktop, and the
helper as its Wayland client. Runs within tests/desktop/session; CADORA_BUILD names the build folder.
"""

import os
import pathlib
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / "tools"), str(ROOT / "tests/desktop")]

from desktop import Screen, save_picture  # noqa: E402
from road import Gio, GLib, Helper, end, session_folder, sign_in, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
NOBODY = "http://127.0.0.1:9"
TIMEOUT = 120  # seconds
MENU_WINDOW = "Cadora Helper Menu"
SHELL = "org.gnome.Shell"
LOG_IN_MANAGER = ["/usr/bin/python3", "-m", "dbusmock", "--system", "--template", "logind"]


class Gnome:
    def __init__(self, folder):
        self.folder = folder
        self.processes = []

    def start(self):
        # The shell wants a log-in manager on a system bus: one of its own.
        system = self.run("system-bus", ["dbus-daemon", "--session", "--nofork", "--print-address=1"], stdout=subprocess.PIPE)
        os.environ["DBUS_SYSTEM_BUS_ADDRESS"] = system.stdout.readline().decode().strip()
        self.run("logind", LOG_IN_MANAGER)
        address = os.environ["DBUS_SYSTEM_BUS_ADDRESS"]
        done = subprocess.run(["gdbus", "wait", "--address", address, "--timeout", "60", "org.freedesktop.login1"], check=False)
        assert done.returncode == 0, "there is no log-in manager"
        environment = {**os.environ, "MUTTER_DEBUG_DUMMY_MODE_SPECS": "1280x800", "XDG_CURRENT_DESKTOP": "GNOME"}
        command = ["gnome-shell", "--nested", "--wayland", "--wayland-display", "cadora-gnome", "--unsafe-mode"]
        self.run("gnome-shell", command, env=environment)
        wait_for(lambda: self.evaluate("Main.layoutManager._startingUp") == "false", "GNOME Shell", TIMEOUT)
        self.evaluate("Main.overview.hide()")

    def run(self, name, command, **options):
        with open(self.folder / f"{name}.log", "ab") as log:
            process = subprocess.Popen(
                command, **{"stdin": subprocess.DEVNULL, "stdout": log, "stderr": log, **options}
            )
        self.processes.append(process)
        return process

    def evaluate(self, script):
        """What the shell says of the script, as JSON; None while there is no shell."""
        try:
            bus = Gio.bus_get_sync(Gio.BusType.SESSION)
            arguments = GLib.Variant("(s)", (script,))
            flags = Gio.DBusCallFlags.NO_AUTO_START
            return bus.call_sync(SHELL, "/org/gnome/Shell", SHELL, "Eval", arguments, None, flags, 10_000, None).unpack()[1]
        except GLib.Error:
            return None

    def focused_title(self):
        return self.evaluate("global.display.focus_window ? global.display.focus_window.title : ''")

    def stop(self):
        for process in reversed(self.processes):
            end(process)
        for process in self.processes:
            if process.stdout:
                process.stdout.close()


class GnomeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.gnome = Gnome(session_folder() / "logs")
        cls.addClassCleanup(cls.gnome.stop)
        cls.gnome.start()
        cls.helper = Helper(BUILD, NOBODY, session_folder() / "logs")
        cls.addClassCleanup(cls.helper.stop)

    def setUp(self):
        self.addCleanup(lambda: end(self.helper.process) if self.helper.process else None)

    def start(self, *arguments):
        environment = {n: v for n, v in os.environ.items() if n != "DISPLAY"}
        environment.update({"WAYLAND_DISPLAY": "cadora-gnome", "XDG_SESSION_TYPE": "wayland", "XDG_CURRENT_DESKTOP": "GNOME"})
        self.environment = environment
        self.helper.start(*arguments, env=environment)
        self.screen = Screen(self.helper.process.pid)

    def open_again(self):
        command = [self.helper.program]
        subprocess.run(command, stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True, env=self.environment)

    def wait_for_focus(self, title):
        wait_for(lambda: self.gnome.focused_title() == f'"{title}"', f"“{title}” in front", TIMEOUT)

    def test_the_welcome_window_is_in_front(self):
        self.start()
        self.screen.wait_for_name("Sign in with Apple")
        self.wait_for_focus("Cadora Helper")
        save_picture("gnome-welcome")

    def test_whoever_is_signed_in_finds_the_menu_as_a_window(self):
        sign_in(email="musician@example.org")
        self.start()
        self.screen.wait_for_name("Signed in: musician@example.org")
        self.wait_for_focus(MENU_WINDOW)
        save_picture("gnome-menu-window")
        self.screen.press("Quit Cadora Helper")
        self.assertEqual(self.helper.process.wait(TIMEOUT), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
