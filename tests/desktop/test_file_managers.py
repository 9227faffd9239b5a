"""Sending from real file managers: their entries are there when they should be, and do what they say. Runs within
tests/desktop/session; CADORA_BUILD names the build folder.

Nobody is signed in, so that what is sent is staged and goes nowhere.
"""

import collections
import json
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from desktop import Screen, press_keys, run_xdotool, save_picture  # noqa: E402
from road import Helper, Outbox, end, session_folder, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
CONFIG = pathlib.Path(os.environ["XDG_CONFIG_HOME"])
DATA = pathlib.Path(os.environ["XDG_DATA_HOME"])
NOBODY = "http://127.0.0.1:9"
TAKES = ["bass & drums.wav", "chorus “é”.wav", "verse take 1.wav"]
ENTRY = "Send to Cadora"
ENTRY_KEY = "com.norvelant.cadora.mac - Send to Cadora - sendToCadora"

# What each of them writes into its status bar when all takes are selected.
MANAGERS = {"thunar": "Selection: 3 files", "nemo": "3 items selected"}


class FileManager:
    def __init__(self, name, folder):
        with open(session_folder() / f"logs/{name}.log", "ab") as log:
            self.process = subprocess.Popen([name, folder], stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.name = name
        self.screen = Screen(self.process.pid)

    def nodes(self, *roles):
        return [node for node in self.screen.nodes() if node.role in roles]

    def status(self):
        roles = (Atspi.Role.STATUS_BAR, Atspi.Role.LABEL)
        return [node.name for node in self.nodes(*roles) if node.name]

    def open_context_menu(self, count):
        """Of all files; returns what it offers. The keys work once the window has the keyboard."""
        wait_for(lambda: any(f"{count} " in text for text in self.status()), "the files in the window")
        wait_for(lambda: self.nodes_with_keyboard(), "the keyboard in the window")
        press_keys("ctrl+a")
        wait_for(lambda: any(MANAGERS[self.name] in text for text in self.status()), "the files to be selected")
        press_keys("shift+F10")
        # What every file has, at the menu's end.
        wait_for(lambda: any("Properties" in name for name in self.offers()), "the context menu")
        return self.offers()

    def nodes_with_keyboard(self):
        return [node for node in self.screen.nodes() if node.states.contains(Atspi.StateType.FOCUSED)]

    def offers(self):
        return [node.name for node in self.nodes(Atspi.Role.MENU_ITEM)]

    def choose(self, name):
        item = wait_for(
            lambda: [node for node in self.nodes(Atspi.Role.MENU_ITEM) if node.name == name], f"“{name}”"
        )
        item[-1].accessible.do_action(0)

    def close(self):
        end(self.process)


class Requests:
    """The requests that reach the helper, as the bus sees them."""

    MEMBERS = ("sendToCadora", "Open")

    def __init__(self):
        rules = [f"type='method_call',member='{member}'" for member in self.MEMBERS]
        self.path = session_folder() / "logs/requests.log"
        with open(self.path, "wb") as log:
            self.process = subprocess.Popen(
                ["dbus-monitor", "--session", "--profile", *rules], stdin=subprocess.DEVNULL, stdout=log
            )
        # The monitor itself is told that it has lost its own name when it has begun.
        wait_for(lambda: "NameLost" in self.path.read_text(), "the monitor of the bus")

    def members(self):
        rows = [line.split("\t") for line in self.path.read_text().splitlines() if line.startswith("mc\t")]
        return [row[-1] for row in rows if row[-1] in self.MEMBERS]

    def stop(self):
        end(self.process)


class FileManagersTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.helper = Helper(BUILD, NOBODY, session_folder() / "logs")
        cls.addClassCleanup(cls.helper.stop)
        cls.outbox = Outbox()
        cls.folder = session_folder() / "a session’s takes"
        cls.folder.mkdir()
        for take in TAKES:
            subprocess.run([BUILD / "bin/make-music", "--seconds", "1", cls.folder / take], check=True)

    def setUp(self):
        self.addCleanup(lambda: end(self.helper.process) if self.helper.process else None)
        shutil.rmtree(self.outbox.folder, ignore_errors=True)
        self.defaults = CONFIG / "com.norvelant.cadora.mac"
        shutil.rmtree(self.defaults, ignore_errors=True)
        for folder in (CONFIG / "Thunar", DATA / "Thunar", DATA / "nemo"):
            shutil.rmtree(folder, ignore_errors=True)

    def start(self):
        self.helper.start()
        # The first request that it answers comes after the launch, in which it writes the entries.
        self.assertEqual(self.helper.send([]), "No file to send to Cadora.")

    def open_folder(self, manager):
        opened = FileManager(manager, self.folder)
        self.addCleanup(opened.close)
        return opened

    def send_from(self, manager):
        self.start()
        requests = Requests()
        self.addCleanup(requests.stop)
        opened = self.open_folder(manager)
        self.assertIn(ENTRY, opened.open_context_menu(len(TAKES)))
        save_picture(f"context-menu-{manager}")
        opened.choose(ENTRY)
        wait_for(lambda: len(self.outbox.items()) >= len(TAKES), "the takes in the outbox")
        self.assertEqual(sorted(item["sourceFilename"] for item in self.outbox.items()), TAKES)
        wait_for(lambda: self.outbox.states() == ["deferredAuth"] * len(TAKES), "the takes to wait for a sign-in")
        self.assertEqual(requests.members(), ["sendToCadora"])
        # What the helper does with them leaves the keyboard where it was.
        self.assertIn(self.folder.name, run_xdotool("getactivewindow", "getwindowname"))

    def test_three_takes_are_sent_from_thunar_in_one_request(self):
        self.send_from("thunar")

    def test_three_takes_are_sent_from_nemo_in_one_request(self):
        self.send_from("nemo")

    def set_switch(self, state):
        """As the user's choice is kept: 0 is off."""
        path = self.defaults / "defaults.json"
        defaults = json.loads(path.read_text())
        entry = find_dictionary(defaults, ENTRY_KEY)
        entry["enabled_context_menu"] = state
        path.write_text(json.dumps(defaults))

    def test_an_entry_that_is_switched_off_is_offered_no_more(self):
        self.start()
        end(self.helper.process)
        self.assertIn(ENTRY, (CONFIG / "Thunar/uca.xml").read_text())
        self.set_switch(0)
        self.start()
        offered = self.open_folder("thunar").open_context_menu(len(TAKES))
        self.assertNotIn(ENTRY, offered)
        self.assertFalse((DATA / "nemo/actions/cadora-helper.nemo_action").exists())

    def test_an_entry_that_the_user_deleted_stays_away(self):
        self.start()
        action = DATA / "nemo/actions/cadora-helper.nemo_action"
        action.unlink()
        end(self.helper.process)
        self.start()
        self.assertFalse(action.exists())
        self.assertNotIn(ENTRY, self.open_folder("nemo").open_context_menu(len(TAKES)))
        # The others have theirs.
        self.assertIn(ENTRY, (CONFIG / "Thunar/uca.xml").read_text())


def find_dictionary(value, key):
    """The first dictionary under that key, however deep."""
    queue = collections.deque([value])
    while queue:
        value = queue.popleft()
        if isinstance(value, dict):
            if isinstance(value.get(key), dict):
                return value[key]
            queue.extend(value.values())
    raise KeyError(key)


if __name__ == "__main__":
    unittest.main(verbosity=2)
