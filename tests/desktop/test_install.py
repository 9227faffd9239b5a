"""Installing, registering and taking it all back, and the Debian package. Runs within tests/desktop/session;
CADORA_BUILD names the build folder, which is installed as it is.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from road import BUS_NAME, GLib, end, session_folder, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
TIMEOUT = 120  # seconds
EXIT_USAGE = 64
SCHEME = "x-scheme-handler/cadora"
AUDIO_TYPES = (
    "audio/x-wav",
    "audio/wav",
    "audio/vnd.wave",
    "audio/x-aiff",
    "audio/aiff",
    "audio/x-aifc",
    "audio/mpeg",
    "audio/mp4",
    "audio/x-m4a",
    "audio/aac",
    "audio/x-caf",
    "audio/basic",
    "audio/flac",
    "audio/x-flac",
)
ENTRY = f"{BUS_NAME}.desktop"
PROGRAMS = ["cadora-alert", "cadora-export", "cadora-helper", "cadora-register", "cadora-send"]

DEFAULT_OPENER = """\
import sys
from gi.repository import Gio
opener = Gio.AppInfo.get_default_for_type(sys.argv[1], False)
print(opener.get_id() if opener else "")
"""


def contents(folder):
    """Everything below the folder: the files with what is in them and their permissions."""
    result = {}
    for path in sorted(folder.rglob("*")):
        result[str(path)] = (path.stat().st_mode, None if path.is_dir() else path.read_bytes())
    return result


class FreshHome(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(dir=session_folder())
        self.addCleanup(folder.cleanup)
        self.home = pathlib.Path(folder.name) / "home"
        self.home.mkdir()
        self.data = self.home / ".local/share"
        self.config = self.home / ".config"

    def environment(self, **changes):
        kept = {n: v for n, v in os.environ.items() if not re.match(r"XDG_(CONFIG|DATA|CACHE|STATE)_HOME$", n)}
        return {**kept, "HOME": str(self.home), **changes}

    def run_program(self, *command, **changes):
        process = subprocess.run(
            command,
            env=self.environment(**changes),
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=TIMEOUT,
            check=False,
        )
        return process.returncode, process.stdout + process.stderr

    def succeed(self, *command, **changes):
        status, said = self.run_program(*command, **changes)
        self.assertEqual(status, 0, said)
        return said

    def write(self, path, text):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


class Players:
    """Who opens which type, on a desktop whose system has no other applications than the test's."""

    def __init__(self, test):
        self.test = test
        self.system = test.home.parent / "system"

    def install(self, applications):
        """A player, behind the helper by its name, as the ones for all users are behind the user's own."""
        entry = "[Desktop Entry]\nType=Application\nName=Player\nExec=true %U\n"
        self.test.write(applications / "player.desktop", f"{entry}MimeType={';'.join(AUDIO_TYPES)};\n")
        self.test.succeed("update-desktop-database", applications)

    def of_types(self):
        return {name: self._opener(name) for name in AUDIO_TYPES}

    def of_scheme(self):
        return self._opener(SCHEME)

    def _opener(self, name):
        places = {"XDG_DATA_DIRS": str(self.system), "XDG_CURRENT_DESKTOP": ""}
        by_gio = self.test.succeed("/usr/bin/python3", "-c", DEFAULT_OPENER, name, **places).strip()
        by_xdg = self.test.succeed("xdg-mime", "query", "default", name, **places).strip()
        self.test.assertEqual(by_gio, by_xdg, name)
        return by_gio


class RegisterTest(FreshHome):
    @classmethod
    def setUpClass(cls):
        cls.installed = session_folder() / "installed"
        for component in ("programs", "user"):
            subprocess.run(
                ["cmake", "--install", BUILD, "--component", component, "--prefix", cls.installed],
                check=True,
                stdout=subprocess.DEVNULL,
            )

    def setUp(self):
        super().setUp()
        # What wants quoting, and once more in every format.
        self.folder = self.home.parent / "it's a \"folder\" of $HOME" / "cadora-helper"
        shutil.copytree(self.installed / "lib/cadora-helper", self.folder)

    def register(self):
        self.assertEqual(self.succeed(self.folder / "bin/cadora-register", "-r", self.folder), "")

    def unregister(self):
        self.assertEqual(self.succeed(self.folder / "bin/cadora-register", "-u", self.folder), "")

    def test_taking_it_back_leaves_a_fresh_home_as_it_was(self):
        before = contents(self.home)
        folder = contents(self.folder)
        self.register()
        self.register()
        self.assertTrue((self.data / "applications" / ENTRY).exists())
        self.unregister()
        self.assertEqual(contents(self.home), before)
        self.assertEqual(contents(self.folder), folder)

    def test_taking_it_back_leaves_a_home_in_use_as_it_was(self):
        self.write(self.data / "applications/other.desktop", "[Desktop Entry]\nType=Application\nName=O\nExec=o\n"
                   "MimeType=audio/x-wav;\n")
        self.write(self.data / "dbus-1/services/org.example.Other.service", "[D-BUS Service]\n")
        self.write(self.data / "icons/hicolor/16x16/apps/other.svg", "<svg/>")
        shutil.copy(ROOT / "packaging/desktop/cadora-helper.xml", self.home / "other.xml")
        other = (self.home / "other.xml").read_text().replace("x-caf", "x-other").replace("caf", "other")
        self.write(self.data / "mime/packages/other.xml", other)
        self.write(self.config / "mimeapps.list", "[Default Applications]\naudio/x-wav=other.desktop;\n")
        self.succeed("update-mime-database", self.data / "mime")
        self.succeed("update-desktop-database", self.data / "applications")
        before = contents(self.home)
        self.register()
        self.assertIn(ENTRY, (self.data / "applications/mimeinfo.cache").read_text())
        self.unregister()
        self.assertEqual(contents(self.home), before)

    def test_what_came_meanwhile_keeps_the_caches_that_it_needs(self):
        self.register()
        self.write(self.data / "applications/other.desktop", "[Desktop Entry]\nType=Application\nName=O\nExec=o\n"
                   "MimeType=audio/x-wav;\n")
        self.succeed("update-desktop-database", self.data / "applications")
        self.unregister()
        self.assertEqual(
            sorted(path.name for path in self.home.rglob("*") if path.is_file()), ["mimeinfo.cache", "other.desktop"]
        )
        self.assertNotIn("cadora", (self.data / "applications/mimeinfo.cache").read_text())

    def test_an_installation_whose_record_is_lost_is_taken_back_all_the_same(self):
        self.register()
        (self.folder / "share/registration/record").unlink()
        self.unregister()
        left = [path for path in self.home.rglob("*") if path.is_file() and b"cadora" in path.read_bytes()]
        self.assertEqual(left, [])

    def test_settings_and_associations_go_and_those_of_others_stay(self):
        self.register()
        self.write(self.config / BUS_NAME / "defaults.json", "{}")
        self.write(
            self.config / "mimeapps.list",
            "# mine\n[Added Associations]\n"
            f"audio/x-wav={ENTRY};other.desktop;\naudio/flac=other.desktop;{ENTRY};\naudio/mpeg={ENTRY};\n\n"
            f"[Default Applications]\nx-scheme-handler/cadora={ENTRY}\n",
        )
        self.write(self.data / "applications/mimeapps.list", f"[Default Applications]\nx-scheme-handler/cadora={ENTRY}\n")
        self.unregister()
        self.assertEqual(
            (self.config / "mimeapps.list").read_text(),
            "# mine\n[Added Associations]\naudio/x-wav=other.desktop;\naudio/flac=other.desktop;\n\n",
        )
        self.assertEqual([path.name for path in self.home.rglob("*") if path.is_file()], ["mimeapps.list"])

    def test_the_entries_are_valid_and_name_the_program(self):
        self.register()
        self.assertEqual(self.succeed("desktop-file-validate", self.data / "applications" / ENTRY), "")
        self.succeed("appstreamcli", "validate", "--no-net", self.data / "metainfo" / f"{BUS_NAME}.metainfo.xml")
        self.succeed("xmllint", "--noout", self.data / "mime/packages/cadora-helper.xml")
        info = GLib.KeyFile()
        info.load_from_file(str(self.data / "applications" / ENTRY), GLib.KeyFileFlags.NONE)
        program = str(self.folder / "bin/cadora-helper")
        self.assertEqual(info.get_string("Desktop Entry", "TryExec"), program)
        self.assertEqual(info.get_string("Desktop Entry", "DBusActivatable"), "false")
        # GIO finds the program behind the quoting.
        said = self.succeed("gio", "mime", SCHEME, XDG_DATA_DIRS="/usr/share")
        self.assertIn(ENTRY, said)

    def test_a_player_stays_what_opens_every_type(self):
        players = Players(self)
        players.install(self.home.parent / "system/applications")
        before = players.of_types()
        self.assertEqual(set(before.values()), {"player.desktop"})
        self.register()
        self.assertEqual(players.of_types(), before)
        self.assertEqual(players.of_scheme(), ENTRY)

    def test_no_type_without_a_player_is_opened_by_it(self):
        self.register()
        self.assertEqual(set(Players(self).of_types().values()), {""})

    def test_an_upgrade_gives_back_the_types_that_an_earlier_version_claimed(self):
        players = Players(self)
        players.install(self.home.parent / "system/applications")
        template = self.folder / "share/registration" / ENTRY
        present = template.read_text()
        claimed = ";".join(AUDIO_TYPES)
        template.write_text(re.sub(r"(?m)^MimeType=.*$", f"MimeType={claimed};{SCHEME};", present))
        self.register()
        # What file managers note once somebody has opened a file with it.
        self.write(
            self.config / "mimeapps.list",
            f"[Default Applications]\n{SCHEME}={ENTRY}\naudio/flac={ENTRY}\n\n"
            f"[Added Associations]\naudio/x-wav={ENTRY};player.desktop;\n",
        )
        self.assertEqual(set(players.of_types().values()), {ENTRY})
        template.write_text(present)
        self.register()
        self.assertEqual(set(players.of_types().values()), {"player.desktop"})
        self.assertEqual(
            (self.config / "mimeapps.list").read_text(),
            f"[Default Applications]\n{SCHEME}={ENTRY}\n\n[Added Associations]\naudio/x-wav=player.desktop;\n",
        )

    def test_the_desktop_finds_every_promised_type(self):
        self.register()
        self.write(self.home / "a.caf", "caff")
        self.write(self.home / "no suffix", "caff\0\1\0\0")
        for name in ("a.caf", "no suffix"):
            self.assertIn("audio/x-caf", self.succeed("gio", "info", "-a", "standard::content-type", self.home / name))

    def test_the_bus_starts_the_program_whatever_its_place(self):
        self.register()
        marker = self.home / "started"
        helper = self.folder / "bin/cadora-helper"
        helper.unlink()
        helper.write_text(f"#!/bin/sh\ntouch '{marker}'\n")
        helper.chmod(0o755)
        bus = subprocess.Popen(
            ["dbus-daemon", "--session", "--nofork", "--print-address=1"],
            # It takes the home folder from the user database.
            env=self.environment(XDG_DATA_HOME=str(self.data)),
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            text=True,
        )
        self.addCleanup(bus.stdout.close)
        self.addCleanup(end, bus)
        address = bus.stdout.readline().strip()
        ping = subprocess.Popen(
            ["gdbus", "call", "--address", address, "--dest", BUS_NAME, "--object-path", "/"]
            + ["--method", "org.freedesktop.DBus.Peer.Ping"],
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
        self.addCleanup(end, ping)
        wait_for(marker.exists, "the program to be started", TIMEOUT)

    def test_a_start_at_login_that_the_user_arranged_goes_and_those_of_others_stay(self):
        self.register()
        self.write(self.config / "autostart/mine.desktop", (self.data / "applications" / ENTRY).read_text())
        self.write(self.config / "autostart/other.desktop", "[Desktop Entry]\nType=Application\nName=O\nExec=o\n")
        self.unregister()
        self.assertEqual([path.name for path in self.home.rglob("*") if path.is_file()], ["other.desktop"])

    def test_a_folder_behind_a_link_is_the_same_folder(self):
        link = self.home.parent / "link"
        link.symlink_to(self.folder)
        before = contents(self.home)
        self.succeed(link / "bin/cadora-register", "-r", link)
        self.unregister()
        self.assertEqual(contents(self.home), before)

    def test_entries_that_a_version_no_longer_has_go(self):
        before = contents(self.home)
        extra = self.folder / "share/icons/hicolor/96x96/apps/cadora-helper.png"
        self.write(extra, "picture")
        self.register()
        icon = self.data / "icons/hicolor/96x96/apps/cadora-helper.png"
        self.assertTrue(icon.exists())
        extra.unlink()
        self.register()
        self.assertFalse(icon.exists())
        self.unregister()
        self.assertEqual(contents(self.home), before)

    def test_another_installation_keeps_its_entries_and_settings(self):
        other = self.home.parent / "other"
        # A place whose name ends in the other's.
        self.folder = pathlib.Path(f"{self.home.parent}/deep{other}")
        for folder in (self.folder, other):
            shutil.copytree(self.installed / "lib/cadora-helper", folder)
        self.register()
        self.write(self.config / BUS_NAME / "defaults.json", "{}")
        registered = contents(self.home)
        self.succeed(other / "bin/cadora-register", "-u", other)
        self.assertEqual(contents(self.home), registered)

    def test_an_installation_for_all_users_gives_up_the_users_settings(self):
        self.write(self.config / BUS_NAME / "defaults.json", "{}")
        self.write(self.config / "mimeapps.list", f"[Default Applications]\nx-scheme-handler/cadora={ENTRY}\n")
        shutil.rmtree(self.folder / "share")
        self.unregister()
        self.assertEqual(list(self.config.iterdir()), [])

    def test_it_says_how_it_is_used(self):
        for arguments in ([], ["-r"], ["-r", ""], ["-x", "/"], ["-u", "/", "/"]):
            status, said = self.run_program(self.folder / "bin/cadora-register", *arguments)
            self.assertEqual(status, EXIT_USAGE)
            self.assertIn("usage: cadora-register", said)

    def test_a_folder_that_holds_no_installation_is_refused_and_nothing_is_written(self):
        before = contents(self.home)
        status, said = self.run_program(self.folder / "bin/cadora-register", "-r", self.home)
        self.assertEqual(status, 1)
        self.assertIn("cadora-register: ", said)
        self.assertEqual(contents(self.home), before)

    def test_a_folder_whose_name_no_entry_can_hold_is_refused_and_nothing_is_written(self):
        for name in ("100%", "line\nbreak"):
            folder = self.home.parent / name
            shutil.copytree(self.installed / "lib/cadora-helper", folder)
            status, said = self.run_program(folder / "bin/cadora-register", "-r", folder)
            self.assertEqual(status, 1)
            self.assertIn("can’t be named in the desktop’s entries", said)
        self.assertEqual(list(self.home.iterdir()), [])


class InstallTest(FreshHome):
    def install(self, *arguments, **changes):
        return self.run_program(ROOT / "install", *arguments, **changes)

    def test_a_fresh_home_gets_one_folder_and_its_entries(self):
        status, said = self.install("--build", BUILD)
        self.assertEqual(status, 0, said)
        folder = self.home / ".local/lib/cadora-helper"
        self.assertIn(f"Cadora Helper is installed in {folder}\n", said)
        self.assertEqual(sorted(path.name for path in folder.iterdir()), ["bin", "share"])
        self.assertEqual(sorted(path.name for path in (folder / "bin").iterdir()), PROGRAMS)
        self.assertIn("libqt6core6", [path.name for path in (folder / "share/licences").iterdir()])
        self.assertTrue((self.data / "applications" / ENTRY).exists())
        self.assertEqual([path.name for path in folder.parent.iterdir()], ["cadora-helper"])
        self.succeed(folder / "bin/cadora-register", "-u", folder)
        shutil.rmtree(folder)
        self.assertEqual([path for path in self.home.rglob("*") if path.is_file()], [])

    def test_a_second_run_brings_it_up_to_date_while_it_runs(self):
        self.assertEqual(self.install("--build", BUILD)[0], 0)
        folder = self.home / ".local/lib/cadora-helper"
        (folder / "share/stale").write_text("of an earlier version")
        program = folder / "bin/cadora-helper"
        inode = program.stat().st_ino
        helper = subprocess.Popen([program], env=self.environment(), stderr=subprocess.DEVNULL)
        self.addCleanup(end, helper)
        self.succeed("gdbus", "wait", "--session", "--timeout", str(TIMEOUT), BUS_NAME)
        status, said = self.install("--build", BUILD)
        self.assertEqual(status, 0, said)
        self.assertIn(f"Cadora Helper is up to date in {folder}\n", said)
        self.assertIn("It is running; the new version takes over when it is next started\n", said)
        self.assertNotEqual(program.stat().st_ino, inode)
        self.assertIsNone(helper.poll())
        self.assertFalse((folder / "share/stale").exists())
        self.succeed(folder / "bin/cadora-register", "-u", folder)
        self.assertFalse((self.data / "applications" / ENTRY).exists())

    def test_only_origins_that_keep_a_token_safe_are_taken(self):
        for origin in (
            "http://cadora.example",
            "https://cadora.example/",
            "https://cadora.example/path",
            "https://user@cadora.example",
            "https://Cadora.example",
            "https://",
            "https://cadora.example:port",
            "https://cadora.example\nx",
            "https://a\"b",
            "http://127.0.0.1.example",
            "ftp://cadora.example",
            "",
        ):
            for option in ("--api-origin", "--site-origin"):
                with self.subTest(origin=origin):
                    status, said = self.install(option, origin)
                    self.assertEqual(status, EXIT_USAGE, said)
        # Those that are taken get as far as the next objection, which is that the build has its origins already.
        for origin in (
            "https://cadora.example",
            "https://api.cadora.example:8443",
            "https://10.0.0.1",
            "https://[2001:db8::1]:443",
            "http://127.0.0.1:8080",
            "http://localhost",
            "http://[::1]:80",
        ):
            with self.subTest(origin=origin):
                status, said = self.install("--api-origin", origin, "--build", BUILD)
                self.assertEqual((status, said), (1, "install: what is built already has its origins\n"))
        self.assertEqual(list(self.home.iterdir()), [])

    def test_it_says_how_it_is_used(self):
        for arguments in (["--help"], ["--api-origin"], ["--build"], ["folder"]):
            status, said = self.install(*arguments)
            self.assertEqual(status, EXIT_USAGE)
            self.assertIn("./install [--api-origin URL] [--site-origin URL]", said)


class PackageTest(FreshHome):
    def test_the_debian_package_holds_the_programs_and_valid_entries_for_all_users(self):
        # As ./install --deb does, but for the place, which runs at the same time must not share.
        self.succeed("cpack", "-G", "DEB", "--config", BUILD / "CPackConfig.cmake", "-B", self.home / "package")
        (package,) = (self.home / "package").glob("*.deb")
        tree = self.home / "tree"
        self.succeed("dpkg-deb", "--extract", package, tree)
        self.assertEqual(sorted(path.name for path in (tree / "usr/lib/cadora-helper/bin").iterdir()), PROGRAMS)
        entry = tree / "usr/share/applications" / ENTRY
        self.assertIn("\nExec=/usr/lib/cadora-helper/bin/cadora-helper %U\n", entry.read_text())
        self.assertEqual(self.succeed("desktop-file-validate", entry), "")
        self.succeed("appstreamcli", "validate-tree", "--no-net", tree)
        # GIO passes over an entry whose program isn't there.
        entry.write_text(entry.read_text().replace("/usr/lib", str(tree / "usr/lib")))
        players = Players(self)
        players.system = tree / "usr/share"
        players.install(players.system / "applications")
        self.assertEqual(set(players.of_types().values()), {"player.desktop"})
        self.assertEqual(players.of_scheme(), ENTRY)
        service = tree / f"usr/share/dbus-1/services/{BUS_NAME}.service"
        self.assertIn("\nExec=/usr/lib/cadora-helper/bin/cadora-helper --service\n", service.read_text())
        self.assertTrue((tree / "usr/share/icons/hicolor/symbolic/apps/cadora-helper-symbolic.svg").exists())
        self.assertIn("usage: cadora-send FILE-OR-URI...", self.succeed(tree / "usr/bin/cadora-send", "--help"))
        for names in self.succeed("dpkg-deb", "--field", package, "Recommends").split(","):
            for name in names.split("|"):
                self.assertNotEqual(self.succeed("apt-cache", "showpkg", name.strip()), "", name)
        depends = self.succeed("dpkg-deb", "--field", package, "Depends")
        for library in ("libqt6core6", "libavformat59", "libcurl4"):
            self.assertIn(library, depends)
        self.assertEqual(self.succeed("lintian", "--allow-root", "--fail-on", "error,warning", package), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
