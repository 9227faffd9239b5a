import os

from gi.repository import Gio, GObject, Nautilus

SENDER = "@sender:python@"
TYPES = "@types:python@".split(";")


class SendToCadora(GObject.GObject, Nautilus.MenuProvider):
    def get_file_items(self, *arguments):
        files = arguments[-1]
        if not files or not os.access(SENDER, os.X_OK):
            return []
        if not all(file.get_mime_type() in TYPES for file in files):
            return []
        uris = [file.get_uri() for file in files]
        item = Nautilus.MenuItem(name="SendToCadora", label="Send to Cadora", icon="cadora-helper")
        item.connect("activate", lambda _: Gio.Subprocess.new([SENDER, *uris], Gio.SubprocessFlags.NONE))
        return [item]
