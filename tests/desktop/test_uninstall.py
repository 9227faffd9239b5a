"""From installing to uninstalling, as a user does it: the program in a folder of the user's, from a package for all
users, and from where it was built. Runs within tests/desktop/session.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from desktop import Panel, Screen, StatusItem, has_owner, pid_of, save_picture  # noqa: E402
from road import (  # noqa: E402
    BUS_NAME,
    CREDENTIALS,
    Failure,
    Outbox,
    Secret,
    Service,
    end,
    session_folder,
    sign_in,
    wait_for,
)

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
HOME = pathlib.Path(os.environ["HOME"])
DATA = pathlib.Path(os.environ["XDG_DATA_HOME"])
TRASH = DATA / "Trash"
FOLDER = HOME / ".local/lib/cadora-helper"
TIMEOUT = 120  # seconds
ACCOUNTS = ("cadoraToken", "cadoraUserId", "appleUserId", "appleEmail")


def run(*command):
    result = subprocess.run(
        command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=TIMEOUT, check=False
    )
    if result.returncode != 0:
        raise AssertionError(f"{command}: {result.stdout}{result.stderr}")
    return result.stdout


def secrets():
    found = (Secret.password_lookup_sync(CREDENTIALS, {"service": BUS_NAME, "account": name}, None) for name in ACCOUNTS)
    return [secret for secret in found if secret is not None]


def store_every_secret():
    for name in ACCOUNTS:
        attributes = {"service": BUS_NAME, "account": name}
        Secret.password_store_sync(CREDENTIALS, attributes, Secret.COLLECTION_DEFAULT, name, "value", None)


def traces():
    """What of the home folder has the program's name or holds it, outside the Trash and the desktop's own journal of
    what was moved there."""
    found = []
    for path in HOME.rglob("*"):
        if TRASH in path.parents or path.parent == DATA / "gvfs-metadata":
            continue
        named = "cadora" in path.name.lower()
        if named or (path.is_file() and b"cadora" in path.read_bytes().lower()):
            found.append(str(path.relative_to(HOME)))
    return sorted(found)


class UninstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.panel = Panel()
        cls.panel.start()
        cls.addClassCleanup(cls.panel.stop)
        cls.service = Service(BUILD, session_folder() / "service")
        cls.addClassCleanup(cls.service.stop)
        cls.song = session_folder() / "song.wav"
        run(BUILD / "bin/make-music", "--seconds", "2", cls.song)

    def setUp(self):
        wait_for(lambda: not traces(), "a home without a trace of the helper", TIMEOUT)
        self.addCleanup(shutil.rmtree, TRASH, ignore_errors=True)
        self.outbox = Outbox()

    def link(self, program):
        """Puts the helper for the stand-in there, as an upgrade would: a running one keeps its own file."""
        new = session_folder() / "cadora-helper-linked"
        run(BUILD / "link-helper", self.service.origin, self.service.origin, new)
        shutil.move(new, program)

    def start(self, program):
        log = session_folder() / "logs/helper.log"
        with open(log, "ab") as output:
            helper = subprocess.Popen([program], stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        self.addCleanup(end, helper)
        wait_for(lambda: has_owner(BUS_NAME) and pid_of(BUS_NAME) == helper.pid, "the helper's name", TIMEOUT)
        return helper

    def uninstall(self, pid):
        StatusItem.wait(pid).choose("Settings", "Uninstall Cadora Helper…")
        screen = Screen(pid)
        screen.wait_for_name("Uninstall Cadora Helper?")
        screen.press("Uninstall")
        wait_for(lambda: not has_owner(BUS_NAME), "the helper's end", TIMEOUT)

    def assertNoTraceIsLeft(self):
        self.assertEqual(secrets(), [])
        self.assertFalse((DATA / "Cadora").exists())
        try:
            # The panel's settings are written a moment after they were changed.
            wait_for(lambda: not traces(), "the last trace to go", TIMEOUT)
        except Failure:
            self.assertEqual(traces(), [])

    def test_an_installation_works_is_brought_up_to_date_and_leaves_no_trace(self):
        said = run(ROOT / "install", "--build", BUILD)
        self.assertIn("\nIt has started\n", said)
        first = pid_of(BUS_NAME)
        StatusItem.wait(first)

        self.link(FOLDER / "bin/cadora-helper")
        said = run(ROOT / "install", "--build", BUILD)
        self.assertIn("\nIt is running; the new version takes over when it is next started\n", said)
        self.assertEqual(pid_of(BUS_NAME), first)
        self.link(FOLDER / "bin/cadora-helper")
        StatusItem.wait(first).choose("Quit Cadora Helper")
        wait_for(lambda: not has_owner(BUS_NAME), "the helper's end", TIMEOUT)

        # What a file manager's entry starts, which has the bus start the helper.
        sign_in()
        run(FOLDER / "bin/cadora-send", self.song)
        wait_for(lambda: self.service.posts() and not self.outbox.items(), "the post", TIMEOUT)
        second = pid_of(BUS_NAME)
        self.assertNotEqual(second, first)

        store_every_secret()
        self.service.spoil(path="/api/posts/presign", status=500)
        self.addCleanup(self.service.mend)
        run(FOLDER / "bin/cadora-send", self.song)
        wait_for(lambda: self.outbox.states() == ["failed"], "the failure", TIMEOUT)
        run(ROOT / "install", "--build", BUILD)
        save_picture("before uninstalling")
        self.uninstall(second)
        self.assertNoTraceIsLeft()
        self.assertTrue((TRASH / "files/cadora-helper/bin/cadora-helper").exists())
        self.assertEqual([path.name for path in (TRASH / "files").iterdir()], ["cadora-helper"])
        wait_for(lambda: not (HOME / ".local/lib").exists(), "the folder of programs to go")

    def test_a_package_for_all_users_stays_and_nothing_else_does(self):
        # Nothing can be moved to the Trash from there, as from where only root can write.
        tree = pathlib.Path(tempfile.mkdtemp(dir="/dev/shm"))
        self.addCleanup(shutil.rmtree, tree)
        for component in ("programs", "system"):
            run("cmake", "--install", BUILD, "--component", component, "--prefix", tree / "usr")
        programs = tree / "usr/lib/cadora-helper/bin"
        self.link(programs / "cadora-helper")
        installed = sorted(tree.rglob("*"))

        helper = self.start(programs / "cadora-helper")
        run(programs / "cadora-send", self.song)
        wait_for(lambda: self.outbox.states() == ["deferredAuth"], "the item that waits", TIMEOUT)
        store_every_secret()
        self.uninstall(helper.pid)
        self.assertEqual(helper.wait(TIMEOUT), 0)
        self.assertNoTraceIsLeft()
        self.assertEqual(sorted(tree.rglob("*")), installed)
        self.assertFalse(TRASH.exists())

    def test_where_it_was_built_only_the_program_goes(self):
        # As a clone may be called, too.
        folder = session_folder() / "cadora-helper"
        (folder / "bin").mkdir(parents=True)
        (folder / "bin/other").touch()
        program = folder / "bin/helper"
        self.link(program)
        # It isn't registered, so that nobody is asked to forget it.
        self.addCleanup(run, BUILD / "bin/cadora-register", "-u", folder)
        helper = self.start(program)
        self.uninstall(helper.pid)
        self.assertEqual(helper.wait(TIMEOUT), 0)
        self.assertEqual([path.name for path in (folder / "bin").iterdir()], ["other"])
        self.assertEqual([path.name for path in (TRASH / "files").iterdir()], ["helper"])


if __name__ == "__main__":
    unittest.main(verbosity=2)
