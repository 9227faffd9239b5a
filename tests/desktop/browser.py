"""The user's web browser on a desktop of the session's own, for whole-program tests and for ./run."""

import json
import os
import pathlib
import signal
import subprocess

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

from road import Failure, wait_for  # noqa: E402

TIMEOUT = 60  # seconds: Chromium's first start on a slow machine
SCHEME = "x-scheme-handler/cadora"
DEEPEST = 40


def set_default(kind, desktop_entry):
    subprocess.run(["gio", "mime", kind, desktop_entry], check=True, stdout=subprocess.DEVNULL)


def applications_folder():
    folder = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "applications"
    folder.mkdir(parents=True, exist_ok=True)
    return folder


def install_entry(name, text):
    """Makes a program known to the desktop."""
    (applications_folder() / name).write_text(text)
    subprocess.run(["update-desktop-database", applications_folder()], check=True)


def is_shown(node):
    """Pages in the background are not."""
    return node.get_state_set().contains(Atspi.StateType.SHOWING)


class Browser:
    """Chromium as the session's default browser, with a profile of its own, in which the user has once allowed the
    site to open the helper's links."""

    def __init__(self, site, folder):
        self.folder = folder
        self.closed = 0
        profile = folder / "profile"
        (profile / "Default").mkdir(parents=True)
        allowed = {"protocol_handler": {"allowed_origin_protocol_pairs": {site: {"cadora": True}}}}
        (profile / "Default/Preferences").write_text(json.dumps(allowed))
        self.log = folder / "browser.log"
        self.starts = folder / "starts"
        launcher = folder / "browser"
        launcher.write_text(
            "#!/bin/sh\n"
            f"echo \"$$ $*\" >>'{self.starts}'\n"
            # Chromium looks here for whether anybody reads the screen.
            "export ACCESSIBILITY_ENABLED=1\n"
            f"exec chromium --user-data-dir='{profile}' --password-store=basic --no-first-run"
            " --no-default-browser-check --disable-background-networking --disable-sync --disable-component-update"
            " --disable-default-apps --disable-gpu"
            " --window-position=20,60 --window-size=740,660 --force-renderer-accessibility"
            f"{' --no-sandbox --test-type' if os.geteuid() == 0 else ''} \"$@\" >>'{self.log}' 2>&1\n"
        )
        launcher.chmod(0o755)
        install_entry(
            "browser.desktop",
            "[Desktop Entry]\nType=Application\nName=Browser\n"
            f"Exec={launcher} %U\nMimeType=x-scheme-handler/http;x-scheme-handler/https;text/html;\n",
        )
        for kind in ("x-scheme-handler/http", "x-scheme-handler/https", "text/html"):
            set_default(kind, "browser.desktop")

    def _starts(self):
        """Pairs of a process and the address that it was given."""
        lines = self.starts.read_text().splitlines() if self.starts.exists() else []
        return [(int(process), address) for process, address in (line.split(" ", 1) for line in lines)]

    def opened(self):
        """The addresses that it was started with, one start after the other."""
        return [address for _, address in self._starts()]

    def close(self):
        """Ends it. It opens a link once without a click of the mouse in between, so that the next visit needs a new
        one where only a script presses buttons."""
        starts = self._starts()
        for process, _ in starts[self.closed :]:
            if self._runs(process):
                os.kill(process, signal.SIGTERM)
                wait_for(lambda: not self._runs(process), "the browser's end", TIMEOUT)
        self.closed = len(starts)

    def _runs(self, process):
        folder = pathlib.Path(f"/proc/{process}")
        try:
            arguments = (folder / "cmdline").read_bytes()
            if not arguments:
                # One that has ended has none any more, but neither has, for a moment, a script that becomes a program.
                return "State:\tZ" not in (folder / "status").read_text()
            # Another program of that number has others.
            return os.fsencode(self.folder) in arguments
        except OSError:
            return False

    def wait_for(self, name):
        """The button of the page, once it is there."""

        def find():
            starts = self._starts()[self.closed :]
            if starts and not any(self._runs(process) for process, _ in starts):
                raise Failure("the browser ended")
            return self._find(name)

        try:
            return wait_for(find, f"“{name}” in the browser", TIMEOUT)
        except Failure as failure:
            said = self.log.read_text(errors="replace")[-2000:] if self.log.exists() else "no browser started"
            raise Failure(f"{failure}\n{said}") from None

    def press(self, name):
        self.wait_for(name).do_action(0)

    def _find(self, name):
        desktop = Atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            try:
                application = desktop.get_child_at_index(index)
                if application is not None and "chromium" in application.get_name().lower():
                    for node in self._walk(application, 0):
                        if node.get_role() == Atspi.Role.PUSH_BUTTON and node.get_name() == name and is_shown(node):
                            return node
            except GLib.Error:
                continue
        return None

    def _walk(self, node, depth):
        yield node
        if depth == DEEPEST:
            return
        for index in range(node.get_child_count()):
            child = node.get_child_at_index(index)
            if child is not None:
                yield from self._walk(child, depth + 1)
