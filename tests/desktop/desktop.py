"""What tests of the whole program do on a desktop: a panel with a tray, the menu as the panel reads it, and windows by
the names that screen readers read."""

import collections
import os
import pathlib
import signal
import subprocess

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402

from road import end, session_folder, wait_for  # noqa: E402

WINDOWS = (Atspi.Role.FRAME, Atspi.Role.WINDOW, Atspi.Role.DIALOG, Atspi.Role.ALERT)
NAMED = (
    Atspi.Role.CHECK_BOX,
    Atspi.Role.IMAGE,
    Atspi.Role.LABEL,
    Atspi.Role.NOTIFICATION,
    Atspi.Role.PUSH_BUTTON,
    Atspi.Role.PUSH_BUTTON_MENU,
    Atspi.Role.RADIO_BUTTON,
)
SETTINGS = "org.xfce.Xfconf"
WATCHER = "org.kde.StatusNotifierWatcher"
PANEL_SETTINGS = """\
<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="{dark}"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="size" type="uint" value="32"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
"""


class Tray:
    """What the display shows of a tray along its upper edge, with one item in it."""

    def wait_for_icon(self):
        """The middle of the icon."""
        drawn, _, _ = wait_for(self._find_icon, "the icon in the panel")
        return (drawn[0] + drawn[-1]) // 2, 16

    def colors(self):
        """The colour of the panel, and those of the icon."""
        _, ground, colors = wait_for(self._find_icon, "the icon in the panel")
        return ground, colors

    def _find_icon(self):
        width, rows = pixels("-crop", "1280x28+0+2")
        counts = collections.Counter(color for row in rows for color in row)
        ground = counts.most_common(1)[0][0]
        drawn = [x for x in range(width) if any(row[x] != ground for row in rows)]
        return (drawn, ground, set(counts) - {ground}) if drawn and drawn[-1] - drawn[0] > 12 else None


class OlderTray(Tray):
    """One that embeds windows of X11 and speaks no D-Bus."""

    def start(self):
        options = {"edge": "top", "align": "left", "widthtype": "percent", "width": "100", "height": "32"}
        arguments = [word for name, value in options.items() for word in (f"--{name}", value)]
        with open(session_folder() / "logs/trayer.log", "ab") as log:
            self.process = subprocess.Popen(["trayer", *arguments], stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def stop(self):
        end(self.process)


class Panel(Tray):
    """A panel with a tray of the current kind."""

    def __init__(self, dark=False):
        # What the keeper of the settings has read once it doesn't read again.
        if has_owner(SETTINGS):
            os.kill(pid_of(SETTINGS), signal.SIGTERM)
            wait_for(lambda: not has_owner(SETTINGS), "the end of the panel's settings")
        folder = pathlib.Path(os.environ["XDG_CONFIG_HOME"]) / "xfce4/xfconf/xfce-perchannel-xml"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "xfce4-panel.xml").write_text(PANEL_SETTINGS.format(dark="true" if dark else "false"))
        self.process = None

    def start(self):
        with open(session_folder() / "logs/xfce4-panel.log", "ab") as log:
            self.process = subprocess.Popen(
                ["xfce4-panel", "--sm-client-disable"], stdin=subprocess.DEVNULL, stdout=log, stderr=log
            )
        wait_for(lambda: has_owner(WATCHER), "the panel")

    def stop(self):
        if self.process is not None:
            end(self.process)
            wait_for(lambda: not has_owner(WATCHER), "the panel's end")


def bus():
    return Gio.bus_get_sync(Gio.BusType.SESSION)


def call(name, path, interface, method, arguments=None):
    answer = bus().call_sync(name, path, interface, method, arguments, None, Gio.DBusCallFlags.NONE, 10_000, None)
    return answer.unpack()


def read_property(name, path, interface, key):
    return call(name, path, "org.freedesktop.DBus.Properties", "Get", GLib.Variant("(ss)", (interface, key)))[0]


def has_owner(name):
    daemon = "org.freedesktop.DBus"
    return call(daemon, "/org/freedesktop/DBus", daemon, "NameHasOwner", GLib.Variant("(s)", (name,)))[0]


def pid_of(name):
    daemon = "org.freedesktop.DBus"
    arguments = GLib.Variant("(s)", (name,))
    return call(daemon, "/org/freedesktop/DBus", daemon, "GetConnectionUnixProcessID", arguments)[0]


class StatusItem:
    """The program's item as the panel knows it."""

    INTERFACE = "org.kde.StatusNotifierItem"
    MENU = "com.canonical.dbusmenu"

    def __init__(self, name, path):
        self.name = name
        self.path = path

    @classmethod
    def find(cls, pid):
        """The item that this process has registered; None while there is none."""
        try:
            items = read_property(WATCHER, "/StatusNotifierWatcher", WATCHER, "RegisteredStatusNotifierItems")
            for item in items:
                name, slash, path = item.partition("/")
                if pid_of(name) == pid:
                    return cls(name, slash + path)
        except GLib.Error:
            pass
        return None

    @classmethod
    def wait(cls, pid):
        return wait_for(lambda: cls.find(pid), "the status item in the panel")

    def property(self, key):
        return read_property(self.name, self.path, self.INTERFACE, key)

    def layout(self):
        menu = self.property("Menu")
        call(self.name, menu, self.MENU, "AboutToShow", GLib.Variant("(i)", (0,)))
        arguments = GLib.Variant("(iias)", (0, -1, []))
        return call(self.name, menu, self.MENU, "GetLayout", arguments)[1]

    def lines(self):
        """One line for each item, those of a submenu indented, with what the panel shows beside the title."""
        return list(self._lines(self.layout(), ""))

    def _lines(self, node, indent):
        for child in node[2]:
            properties = child[1]
            if not properties.get("visible", True):
                continue
            if properties.get("type") == "separator":
                yield indent + "---"
                continue
            line = indent + title(properties)
            if not properties.get("enabled", True):
                line += " (disabled)"
            if properties.get("toggle-type"):
                line += " (checked)" if properties.get("toggle-state") == 1 else " (unchecked)"
            if properties.get("shortcut"):
                line += " " + "+".join(properties["shortcut"][0])
            yield line
            yield from self._lines(child, indent + "    ")

    def choose(self, *path):
        """Chooses the item of these titles, from the outermost menu inwards."""
        node = self.layout()
        for name in path:
            node = next(child for child in node[2] if title(child[1]) == name)
        arguments = GLib.Variant("(isvu)", (node[0], "clicked", GLib.Variant("s", ""), 0))
        call(self.name, self.property("Menu"), self.MENU, "Event", arguments)


def title(properties):
    """A label as the panel draws it: one underscore marks a shortcut, two are one."""
    return properties.get("label", "").replace("__", "\0").replace("_", "").replace("\0", "_")


Node = collections.namedtuple("Node", "accessible role name states")


class Screen:
    """A program's windows by what a screen reader finds there."""

    def __init__(self, pid):
        self.pid = pid

    def nodes(self, window=None):
        """Everything that is shown, in order, in the window of that title or in all."""
        return wait_for(lambda: self._snapshot(window), "the screen to be read")[0]

    def _snapshot(self, window):
        """None when something went away meanwhile."""
        try:
            desktop = Atspi.get_desktop(0)
            desktop.clear_cache()
            found = []
            # Under a GTK desktop's theme a program is there twice, once without windows.
            for index in range(desktop.get_child_count()):
                application = desktop.get_child_at_index(index)
                if application and application.get_process_id() == self.pid:
                    found += self._walk(application, window)
        except GLib.Error:
            return None
        return (found,)

    def _walk(self, node, window):
        states = node.get_state_set()
        if node.get_role() != Atspi.Role.APPLICATION and not states.contains(Atspi.StateType.SHOWING):
            return
        found = Node(node, node.get_role(), node.get_name(), states)
        if found.role in WINDOWS and found.name == window:
            window = None
        if window is None:
            yield found
        for index in range(node.get_child_count()):
            child = node.get_child_at_index(index)
            if child is not None:
                yield from self._walk(child, window)

    def windows(self):
        return [node.name for node in self.nodes() if node.role in WINDOWS]

    def names(self, window=None):
        """What is read aloud, in order."""
        return [node.name for node in self.nodes(window) if node.role in NAMED and node.name]

    def wait_for_name(self, name):
        wait_for(lambda: name in self.names(), f"“{name}” on the screen")

    def wait_for_no_name(self, name):
        wait_for(lambda: name not in self.names(), f"“{name}” to leave the screen")

    def wait_for_control(self, name):
        def find():
            found = [node for node in self.nodes() if node.role in NAMED and node.name == name]
            return found[-1] if found else None

        return wait_for(find, f"“{name}” on the screen")

    def press(self, name):
        self.wait_for_control(name).accessible.do_action(0)

    def is_default(self, name):
        """Whether Return presses it."""
        return self.wait_for_control(name).states.contains(Atspi.StateType.IS_DEFAULT)

    def focused(self):
        """The name of what has the keyboard; None where nothing has."""
        names = [node.name for node in self.nodes() if node.states.contains(Atspi.StateType.FOCUSED)]
        return names[-1] if names else None

    def wait_for_focus(self, name):
        wait_for(lambda: self.focused() == name, f"the keyboard at “{name}”")


def current_name(node):
    """Of something found before."""
    node.accessible.clear_cache()
    return node.accessible.get_name()


def click(point, button=1):
    x, y = point
    run_xdotool("mousemove", str(x), str(y), "click", str(button))


def press_keys(*keys):
    """On the keyboard, in that order."""
    run_xdotool("key", *keys)


def run_xdotool(*arguments, check=True):
    command = ["xdotool", *arguments]
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=check, timeout=30)
    return done.stdout


def visible_windows():
    """Everything that the display shows, menus included, of which screen readers learn by events alone."""
    return set(run_xdotool("search", "--onlyvisible", "--name", "", check=False).split())


def rectangle(window):
    """Left, top, width and height; nothing of one that has gone."""
    lines = run_xdotool("getwindowgeometry", "--shell", window, check=False).split()
    values = dict(line.split("=") for line in lines)
    return tuple(int(values.get(key, 0)) for key in ("X", "Y", "WIDTH", "HEIGHT"))


def visible_titles(pattern):
    """The windows that the display shows now under such a title."""
    return run_xdotool("search", "--onlyvisible", "--name", pattern, check=False).split()


def window_of_title(pattern):
    (window,) = visible_titles(pattern)
    return window


def active_window():
    return run_xdotool("getactivewindow", check=False).strip()


def wait_for_menu(windows_before):
    """The rectangle of the menu that opened. What is lower is a tool tip."""

    def find():
        opened = [rectangle(window) for window in visible_windows() - windows_before]
        return max((found for found in opened if found[3] > 100), key=lambda found: found[2], default=None)

    return wait_for(find, "the menu on the screen")


def screen_picture(*options):
    command = ["import", "-silent", "-window", "root", "-depth", "8", *options, "ppm:-"]
    return subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout


def pixels(*options):
    """The width of the picture, and for each row the colours of its pixels."""
    _, size, _, data = screen_picture(*options).split(b"\n", 3)
    width = int(size.split()[0])
    colors = [data[i : i + 3] for i in range(0, len(data), 3)]
    return width, [colors[i : i + width] for i in range(0, len(colors), width)]


def contrast(one, other):
    """Of two colours, as those who read with difficulty need it: from 1 to 21."""

    def luminance(color):
        channels = [value / 255 for value in color]
        linear = [c / 12.92 if c <= 0.04045 else ((c + 0.055) / 1.055) ** 2.4 for c in channels]
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

    darker, lighter = sorted((luminance(one), luminance(other)))
    return (lighter + 0.05) / (darker + 0.05)


def save_picture(name):
    """Of the whole screen once it is still, for a person to look at, where the environment names a folder."""
    folder = os.environ.get("CADORA_PICTURES")
    if not folder:
        return
    pathlib.Path(folder).mkdir(parents=True, exist_ok=True)
    seen = [b"", screen_picture()]

    def still():
        seen.append(screen_picture())
        return len(set(seen[-3:])) == 1

    wait_for(still, "the screen to be still")
    subprocess.run(["convert", "ppm:-", pathlib.Path(folder) / f"{name}.png"], input=seen[-1], check=True)
