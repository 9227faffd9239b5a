"""That each file manager's entry is a file its reader takes, and starts the sender whatever the sender's name.

Finds the program that writes the entries in WRITE_ENTRIES.
"""

import ast
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import types
import unittest
import xml.etree.ElementTree

from gi.repository import GLib

SOURCES = pathlib.Path(__file__).resolve().parents[3] / "src/hosts/linux"
NAMES = ["plain", "a b", "mü \"x\" $a `b` \\c 100%U it's <&>@helper:exec@", "🎵;#~*?|"]


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)


def key_file(path):
    result = GLib.KeyFile.new()
    result.load_from_file(str(path), GLib.KeyFileFlags.NONE)
    return result


def command_of(path, group):
    """The words of an Exec key, as whoever starts it sees them."""
    return GLib.shell_parse_argv(key_file(path).get_string(group, "Exec"))[1]


class Entries(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def each_sender(self):
        """Each sender's path with the folder of the data that its entries stand in."""
        for number, name in enumerate(NAMES):
            home = self.folder / f"home{number}"
            program = self.folder / name / "cadora-send"
            program.parent.mkdir()
            program.write_text('#!/bin/sh\nprintf "%s\\n" "$0" "$@" >"$0.started"\n')
            program.chmod(0o755)
            result = run(os.environ["WRITE_ENTRIES"], home, program)
            self.assertEqual((result.returncode, result.stderr), (0, ""))
            yield str(program), home / "data"

    def assert_clean(self, *command):
        result = run(*command)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""), command)

    def test_the_texts_are_clean_before_they_are_filled_in(self):
        entries = SOURCES / "file-managers/entries"
        self.assert_clean("pyflakes3", entries / "nautilus-extension.py")
        self.assert_clean("shellcheck", entries / "nautilus-script.sh")
        self.assert_clean("xmllint", "--noout", entries / "thunar-action.xml")

    def test_thunars_action_is_xml_whose_command_starts_the_sender(self):
        for sender, data in self.each_sender():
            actions = data.parent / "config/Thunar/uca.xml"
            self.assert_clean("xmllint", "--noout", actions)
            action = xml.etree.ElementTree.parse(actions).find("action")
            words = [word.replace("%%", "%") for word in shlex.split(action.findtext("command"))]
            self.assertEqual(words, [sender, "%F"])

    def test_thunars_send_to_entry_is_a_desktop_entry_that_starts_the_sender(self):
        for sender, data in self.each_sender():
            entry = data / "Thunar/sendto/cadora-helper.desktop"
            self.assert_clean("desktop-file-validate", entry)
            self.assertEqual(command_of(entry, "Desktop Entry"), [sender.replace("%", "%%"), "%F"])
            self.assertEqual(key_file(entry).get_string("Desktop Entry", "TryExec"), sender)

    def test_nemos_action_starts_the_sender_and_depends_on_it(self):
        for sender, data in self.each_sender():
            entry = data / "nemo/actions/cadora-helper.nemo_action"
            self.assertEqual(command_of(entry, "Nemo Action"), [sender, "%U"])
            self.assertEqual(key_file(entry).get_string("Nemo Action", "Dependencies"), sender + ";")

    def test_dolphins_service_menu_starts_the_sender(self):
        for sender, data in self.each_sender():
            entry = data / "kio/servicemenus/cadora-helper.desktop"
            action = key_file(entry).get_string("Desktop Entry", "Actions").rstrip(";")
            self.assertEqual(command_of(entry, "Desktop Action " + action), [sender.replace("%", "%%"), "%U"])

    def test_the_file_managers_action_starts_the_sender(self):
        for sender, data in self.each_sender():
            entry = data / "file-manager/actions/cadora-helper.desktop"
            profile = key_file(entry).get_string("Desktop Entry", "Profiles").rstrip(";")
            self.assertEqual(command_of(entry, "X-Action-Profile " + profile), [sender.replace("%", "%%"), "%U"])

    def test_nautilus_script_is_one_that_starts_the_sender(self):
        for sender, data in self.each_sender():
            script = data / "nautilus/scripts/Send to Cadora"
            # A dollar sign within single quotes is one of the name.
            self.assert_clean("shellcheck", "--exclude=SC2016", script)
            self.assert_clean(script)
            self.assertEqual(pathlib.Path(sender + ".started").read_text(), sender + "\n")

    def test_nautilus_extension_is_one_that_starts_the_sender(self):
        for sender, data in self.each_sender():
            extension = data / "nautilus-python/extensions/cadora_helper.py"
            self.assert_clean("pyflakes3", extension)
            constants = {
                statement.targets[0].id: statement.value
                for statement in ast.parse(extension.read_text()).body
                if isinstance(statement, ast.Assign)
            }
            self.assertEqual(ast.literal_eval(constants["SENDER"]), sender)

    def test_the_handler_of_links_is_a_desktop_entry(self):
        text = (SOURCES / "sign-in/link-handler.desktop").read_text()
        entry = self.folder / "handler.desktop"
        for place in ("@helper:exec@", "@helper:keyfile@"):
            self.assertIn(place, text)
            text = text.replace(place, "/usr/bin/true")
        entry.write_text(text)
        self.assert_clean("desktop-file-validate", entry)


class NautilusExtension(unittest.TestCase):
    """The extension in a Nautilus that only pretends to be one."""

    def setUp(self):
        text = (SOURCES / "file-managers/entries/nautilus-extension.py").read_text()
        self.started = []
        self.items = []
        nautilus = types.SimpleNamespace(MenuProvider=type("MenuProvider", (), {}), MenuItem=self.make_item)
        gobject = types.SimpleNamespace(GObject=type("GObject", (), {}))
        # Unlike a child of Python's own, one of GIO's leaves nothing behind when it ends.
        new = lambda command, flags: self.started.append(command)  # noqa: E731
        gio = types.SimpleNamespace(
            Subprocess=types.SimpleNamespace(new=new), SubprocessFlags=types.SimpleNamespace(NONE=0)
        )
        repository = types.SimpleNamespace(Gio=gio, GObject=gobject, Nautilus=nautilus)
        modules = {"gi": types.SimpleNamespace(repository=repository), "gi.repository": repository}
        real = {name: sys.modules.get(name) for name in modules}
        sys.modules.update(modules)
        self.addCleanup(sys.modules.update, real)
        self.names = {}
        text = text.replace("@sender:python@", "/usr/bin/true").replace("@types:python@", "audio/flac;audio/x-wav;")
        exec(compile(text, "nautilus-extension.py", "exec"), self.names)

    def make_item(self, **properties):
        item = types.SimpleNamespace(properties=properties, handlers={})
        item.connect = item.handlers.__setitem__
        return item

    def offered(self, *types_of_files):
        files = [
            types.SimpleNamespace(get_mime_type=lambda name=name: name, get_uri=lambda n=number: f"file:///{n}")
            for number, name in enumerate(types_of_files)
        ]
        return self.names["SendToCadora"]().get_file_items(files)

    def test_recordings_are_offered_and_handed_to_the_sender(self):
        (item,) = self.offered("audio/flac", "audio/x-wav")
        self.assertEqual(item.properties["label"], "Send to Cadora")
        item.handlers["activate"](item)
        self.assertEqual(self.started, [["/usr/bin/true", "file:///0", "file:///1"]])

    def test_nothing_is_offered_for_other_files_or_none(self):
        self.assertEqual(self.offered("audio/flac", "text/plain"), [])
        self.assertEqual(self.offered(), [])

    def test_nothing_is_offered_where_the_sender_is_gone(self):
        self.names["SENDER"] = "/nowhere/cadora-send"
        self.assertEqual(self.offered("audio/flac"), [])


if __name__ == "__main__":
    unittest.main()
