"""The menu in a panel and the windows, driven as the panel and a screen reader do. Runs within
tests/desktop/session; CADORA_BUILD names the build folder.

The service listens and never answers, so that what is being sent stays where it is.
"""

import json
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from desktop import (  # noqa: E402
    OlderTray,
    Panel,
    Screen,
    WATCHER,
    StatusItem,
    active_window,
    click,
    contrast,
    current_name,
    has_owner,
    press_keys,
    rectangle,
    save_picture,
    visible_titles,
    visible_windows,
    wait_for_menu,
    window_of_title,
)
from road import Helper, Outbox, end, forget_account, session_folder, sign_in, wait_for  # noqa: E402

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
TIMEOUT = 60  # seconds

SIGN_IN = "Sign in to Cadora…"
EMPTY = "No uploads (disabled)"
SETTINGS = [
    "Settings",
    "    Visibility: Private",
    "        Private (checked)",
    "        Live (for fans)",
    "    ---",
    "    Show Cadora Helper in top menu (checked)",
    "    ---",
    "    Uninstall Cadora Helper…",
]
SETTINGS_LINES = [
    "Settings",
    "Visibility: Private",
    "Private",
    "Live (for fans)",
    "Show Cadora Helper in top menu",
    "Uninstall Cadora Helper…",
]
MENU_WINDOW = "Cadora Helper Menu"
HOW_TO = [
    "How to use:",
    "Finder: right-click audio → Services → Send to Cadora",
    "Logic Pro: Bounce (⌘B) → Bounce, then right-click",
    "    the bounced file → Services → Send to Cadora",
    "Works with: WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC",
]
END = ["Quit Cadora Helper Control+Q", "---", *(f"{line} (disabled)" for line in HOW_TO)]

HIDDEN = "Cadora Helper icon hidden"
HIDDEN_TEXT = (
    "Cadora Helper keeps running in the background — “Send to Cadora” still works and you’ll still get a "
    "notification on each upload. To show the icon again, open Cadora Helper from your Applications folder."
)
UNINSTALL = "Uninstall Cadora Helper?"
UNINSTALL_TEXT = (
    "This signs you out, removes the “Send to Cadora” menu item, deletes any pending uploads, and moves Cadora "
    "Helper to the Trash. Posts already sent are unaffected."
)
WAITING = "The sign-in page opens in your browser. Go on there: this window closes by itself once you have signed in."
OPENING = "Opening Apple sign-in…"
NO_ACCOUNT = "No Cadora account found"
CALLBACK = "cadora://auth?"


def welcome(site, status=()):
    """What a screen reader reads in the welcome window, the icon and the title above it included."""
    return [
        "Cadora Helper",
        "Welcome to Cadora Helper",
        "Push audio straight to your Cadora feed.",
        "How to send audio",
        "Right-click a file → Services → Send to Cadora",
        "Works with WAV · AIFF · MP3 · M4A · AAC · CAF · AU · FLAC",
        "You need a Cadora account to use this helper. If you don't have an account, please download the Cadora "
        "app first.",
        f"{site} →",
        "Sign in with Apple",
        *status,
        "Cadora Helper runs quietly in your menu bar — look for the ◉ icon at the top of your screen.",
    ]


def outbox_entry(number, name, state):
    return {
        "shortID": f"item{number:04}",
        "sourceFilename": name,
        "state": state,
        "attempts": 0,
        "createdAt": 700000000.5 + number,
        "visibility": "private",
    }


def install_browser(record):
    """A web browser that only writes down what it is to open."""
    program = session_folder() / "browser"
    program.write_text(f'#!/bin/sh\nprintf "%s\\n" "$1" >> "{record}"\n')
    program.chmod(0o755)
    applications = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "applications"
    applications.mkdir(parents=True, exist_ok=True)
    (applications / "test-browser.desktop").write_text(
        f"[Desktop Entry]\nType=Application\nName=Browser\nExec={program} %u\n"
        "MimeType=x-scheme-handler/http;x-scheme-handler/https;\n"
    )
    (pathlib.Path(os.environ["XDG_CONFIG_HOME"]) / "mimeapps.list").write_text(
        "[Default Applications]\nx-scheme-handler/http=test-browser.desktop\n"
    )


class WindowsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        service = socket.create_server(("127.0.0.1", 0))
        cls.addClassCleanup(service.close)
        cls.site = f"127.0.0.1:{service.getsockname()[1]}"
        cls.helper = Helper(BUILD, f"http://{cls.site}", session_folder() / "logs")
        cls.addClassCleanup(cls.helper.stop)
        cls.outbox = Outbox()
        cls.sound = session_folder() / "take.wav"
        subprocess.run([BUILD / "bin/make-music", "--seconds", "1", cls.sound], check=True)
        cls.opened_pages = session_folder() / "opened pages"
        install_browser(cls.opened_pages)

    def setUp(self):
        self.panel = Panel()
        self.addCleanup(self.panel.stop)
        self.addCleanup(lambda: end(self.helper.process) if self.helper.process else None)
        self.defaults = pathlib.Path(os.environ["XDG_CONFIG_HOME"]) / "com.norvelant.cadora.mac/defaults.json"
        self.defaults.unlink(missing_ok=True)
        shutil.rmtree(self.outbox.folder, ignore_errors=True)
        self.opened_pages.unlink(missing_ok=True)
        self.addCleanup(forget_account)

    def start(self, *arguments, **options):
        self.helper.start(*arguments, **options)
        self.pid = self.helper.process.pid
        self.screen = Screen(self.pid)

    def start_in_panel(self):
        self.panel.start()
        self.start()
        return StatusItem.wait(self.pid)

    def open_again(self):
        subprocess.run([self.helper.program], stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)

    def wait_for_lines(self, item, *lines):
        wait_for(lambda: set(lines) <= set(item.lines()), f"{lines} in the menu")

    def wait_for_welcome(self, *status):
        expected = welcome(self.site, status)
        try:
            wait_for(lambda: self.screen.names("Cadora Helper") == expected, "the welcome window")
        finally:
            self.assertEqual(self.screen.names("Cadora Helper"), expected)

    def pages(self):
        """What the browser was to open."""
        return self.opened_pages.read_text().splitlines() if self.opened_pages.exists() else []

    def wait_for_page(self, page):
        wait_for(lambda: page in self.pages(), f"“{page}” in the browser")

    def end_sign_in(self, query):
        """As the browser does once the page is done."""
        self.screen.wait_for_name(WAITING)
        command = [self.helper.program, CALLBACK + query]
        subprocess.run(command, stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)

    def write_outbox(self, entries):
        for entry in entries:
            folder = self.outbox.folder / entry["shortID"]
            folder.mkdir(parents=True)
            shutil.copy(self.sound, folder / "source.wav")
        (self.outbox.folder / "outbox.json").write_text(json.dumps(entries))

    # The menu in the panel.

    def test_the_panel_shows_the_menu_line_by_line(self):
        item = self.start_in_panel()
        self.assertEqual(item.lines(), [SIGN_IN, "---", EMPTY, "---", *SETTINGS, *END])
        self.assertEqual(item.property("Title"), "Cadora Helper")
        self.assertEqual(item.property("ToolTip")[2], "Cadora Helper")
        self.assertEqual(item.property("Status"), "Active")
        self.panel.wait_for_icon()
        save_picture("panel")

    def test_whoever_is_signed_in_is_named_and_can_sign_out(self):
        sign_in(email="musician@example.org")
        item = self.start_in_panel()
        self.assertEqual(
            item.lines(),
            [
                *("Signed in: musician@example.org (disabled)", "---", EMPTY, "---"),
                *(*SETTINGS, "Sign Out", *END),
            ],
        )
        self.assertEqual(self.screen.windows(), [])
        item.choose("Sign Out")
        self.wait_for_lines(item, SIGN_IN)
        self.assertEqual(item.lines(), [SIGN_IN, "---", EMPTY, "---", *SETTINGS, *END])

    def test_whoever_has_no_address_is_signed_in_to_cadora(self):
        sign_in()
        self.assertEqual(self.start_in_panel().lines()[0], "Signed in: Cadora (disabled)")

    def test_every_state_of_the_outbox_has_its_line_in_order(self):
        states = ["staged", "staged", "transcoded", "uploaded", "synced", "failed", "deferredAuth"]
        self.write_outbox(
            [outbox_entry(number, f"take {number}.wav", state) for number, state in enumerate(states)]
        )
        sign_in()
        item = self.start_in_panel()
        lines = [
            *("Signed in: Cadora (disabled)", "---"),
            "take 0.wav — staged (disabled)",
            "take 1.wav — staged (disabled)",
            "take 2.wav — transcoded (disabled)",
            "take 3.wav — uploaded (disabled)",
            "take 4.wav — synced (disabled)",
            "take 5.wav — failed (disabled)",
            "take 6.wav — deferredAuth (disabled)",
            *("Sync Manually", "---", *SETTINGS, "Sign Out", *END),
        ]
        self.assertEqual(item.lines(), lines)
        # The first one is on its way, and waits for an answer.
        wait_for(lambda: self.outbox.states()[0] == "transcoded", "the first file to be transcoded")
        item.choose("Settings", "Visibility: Private", "Private")
        lines[2] = "take 0.wav — transcoded (disabled)"
        wait_for(lambda: item.lines() == lines, "the menu made anew")
        save_picture("panel-uploads")

    def test_nothing_is_offered_to_sync_where_nothing_failed(self):
        self.write_outbox([outbox_entry(1, "take.wav", "synced")])
        self.assertEqual(
            self.start_in_panel().lines(),
            [SIGN_IN, "---", "take.wav — synced (disabled)", "---", *SETTINGS, *END],
        )

    def test_a_file_that_is_sent_appears_under_its_own_name_and_syncs_again_when_asked(self):
        item = self.start_in_panel()
        file = session_folder() / "drum_take_1 & 2 & 3.wav"
        shutil.copy(self.sound, file)
        self.assertEqual(self.helper.send([file]), "")
        self.wait_for_lines(item, "drum_take_1 & 2 & 3.wav — deferredAuth (disabled)", "Sync Manually")
        sign_in()
        item.choose("Sync Manually")
        self.wait_for_lines(item, "drum_take_1 & 2 & 3.wav — staged (disabled)")
        self.assertNotIn("Sync Manually", item.lines())
        wait_for(lambda: self.outbox.states() == ["transcoded"], "the file to be on its way")

    def test_a_choice_in_the_submenu_changes_the_menu_and_lasts(self):
        item = self.start_in_panel()
        item.choose("Settings", "Visibility: Private", "Live (for fans)")
        live = ["    Visibility: Live", "        Private", "        Live (for fans) (checked)"]
        self.wait_for_lines(item, live[2])
        self.assertEqual(item.lines()[5:8], live)
        end(self.helper.process)
        self.start()
        item = StatusItem.wait(self.pid)
        self.assertEqual(item.lines()[5:8], live)
        item.choose("Settings", "Visibility: Live", "Private")
        self.wait_for_lines(item, *SETTINGS[1:4])

    def test_the_panel_may_start_after_the_helper_die_and_return(self):
        self.start()
        self.panel.start()
        self.assertIn(EMPTY, StatusItem.wait(self.pid).lines())
        self.panel.process.kill()
        self.panel.process.wait()
        self.panel.stop()
        self.panel.start()
        self.assertIn(EMPTY, StatusItem.wait(self.pid).lines())

    # By pixels.

    def open_menu(self, button, tray=None):
        point = (tray or self.panel).wait_for_icon()
        before = visible_windows()
        click(point, button)
        return wait_for_menu(before)

    def click_quit(self, menu):
        """Its line lies at two fifths of the menu's height, in whatever font."""
        left, top, width, height = menu
        click((left + width // 4, top + height * 2 // 5))
        self.assertEqual(self.helper.process.wait(TIMEOUT), 0)

    def test_the_right_button_opens_the_menu_of_the_panel(self):
        self.start_in_panel()
        self.wait_for_welcome()
        menu = self.open_menu(button=3)
        save_picture("menu-right-button")
        self.click_quit(menu)

    def test_the_left_button_opens_the_menu_too(self):
        self.start_in_panel()
        self.wait_for_welcome()
        menu = self.open_menu(button=1)
        save_picture("menu-left-button")
        self.click_quit(menu)

    def test_an_older_tray_shows_the_menu_too(self):
        tray = OlderTray()
        self.start()
        self.wait_for_welcome()
        tray.start()
        self.addCleanup(tray.stop)
        for button in (1, 3):
            menu = self.open_menu(button, tray)
            save_picture(f"menu-older-tray-{button}")
            if button == 1:
                press_keys("Escape")
                wait_for(lambda: menu not in map(rectangle, visible_windows()), "the menu's end")
        self.click_quit(menu)

    def require_icon_seen(self, name, dark):
        """A sign has to contrast with its ground by 3 to 1."""
        panel = Panel(dark)
        self.addCleanup(panel.stop)
        panel.start()
        self.start()
        StatusItem.wait(self.pid)
        ground, colors = panel.colors()
        self.assertEqual(contrast(ground, bytes(3)) < 3, dark)
        self.assertGreater(max(contrast(ground, color) for color in colors), 3)
        save_picture(f"panel-{name}-{'dark' if dark else 'light'}")
        end(self.helper.process)
        panel.stop()

    def test_the_icon_is_seen_on_light_panels_and_on_dark_ones(self):
        for dark in (False, True):
            self.require_icon_seen("pixels", dark)
        # With the drawing installed, the panel itself gives it its colour.
        folder = pathlib.Path(os.environ["XDG_DATA_HOME"]) / "icons/hicolor/symbolic/apps"
        folder.mkdir(parents=True)
        self.addCleanup(shutil.rmtree, folder)
        shutil.copy(ROOT / "packaging/icons/cadora-helper-symbolic.svg", folder)
        for dark in (False, True):
            self.require_icon_seen("drawing", dark)

    # Where no panel is.

    def wait_for_menu_window(self, account="Signed in: Cadora"):
        ends = ["Sign Out"] if account != SIGN_IN else []
        lines = [account, "No uploads", *SETTINGS_LINES, *ends, "Quit Cadora Helper", *HOW_TO]
        wait_for(lambda: self.screen.names(MENU_WINDOW) == lines, "the menu's lines")
        return lines

    def test_without_a_panel_the_first_opening_shows_the_menu_in_a_window(self):
        sign_in()
        self.start()
        self.wait_for_menu_window()
        self.assertEqual(self.screen.windows(), [MENU_WINDOW])
        save_picture("menu-window")
        self.screen.press("Sign Out")
        self.wait_for_menu_window(SIGN_IN)
        self.screen.press("Quit Cadora Helper")
        self.assertEqual(self.helper.process.wait(TIMEOUT), 0)

    def test_a_start_by_the_bus_shows_no_window_and_a_later_opening_the_menu(self):
        sign_in()
        self.start("--service")
        self.assertEqual(self.helper.send([]), "No file to send to Cadora.")
        self.assertEqual(self.screen.windows(), [])
        self.open_again()
        self.wait_for_menu_window()

    def test_a_helper_that_began_without_a_display_is_seen_once_it_is_opened_on_a_desktop(self):
        sign_in()
        environment = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        self.start("--service", env=environment)
        first = self.helper.process
        self.assertEqual(self.helper.send([self.sound]), "")
        opened = subprocess.Popen([self.helper.program], stdin=subprocess.DEVNULL)
        self.addCleanup(end, opened)
        self.assertEqual(first.wait(TIMEOUT), 0)
        self.screen = Screen(opened.pid)
        self.screen.wait_for_name("Quit Cadora Helper")
        self.assertEqual([item["sourceFilename"] for item in self.outbox.items()], ["take.wav"])

    def test_opening_without_a_display_leaves_a_helper_without_one_in_place(self):
        environment = {name: value for name, value in os.environ.items() if name not in ("DISPLAY", "WAYLAND_DISPLAY")}
        self.start(env=environment)
        command = [self.helper.program]
        subprocess.run(command, stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True, env=environment)
        self.assertIsNone(self.helper.process.poll())

    def test_the_menu_in_a_window_does_not_cover_the_welcome_window(self):
        self.start()
        self.wait_for_welcome()
        self.assertEqual(self.screen.windows(), ["Cadora Helper"])
        self.open_again()
        self.wait_for_menu_window(SIGN_IN)
        self.screen.wait_for_focus("Sign in with Apple")
        save_picture("menu-window-beside-welcome")
        welcome_window, menu_window = (window_of_title(title) for title in ("^Cadora Helper$", MENU_WINDOW))
        self.assertEqual(active_window(), welcome_window)
        left, _, width, _ = rectangle(welcome_window)
        other, _, other_width, _ = rectangle(menu_window)
        # Enough to be seen and to be clicked on.
        self.assertGreater(other + other_width, left + width + 100)

    def test_the_menu_in_a_window_is_led_by_the_keyboard(self):
        sign_in()
        self.start()
        lines = self.wait_for_menu_window()
        # What it begins at is a command, and what only tells something comes by the keyboard too.
        self.screen.wait_for_focus("Private")
        begin = lines.index("Private")
        for line in lines[begin + 1 :] + lines[:begin]:
            press_keys("Tab")
            self.screen.wait_for_focus(line)
        press_keys("Escape")
        wait_for(lambda: self.screen.windows() == [], "the window to close")
        self.open_again()
        self.screen.wait_for_focus("Private")
        press_keys("ctrl+q")
        self.assertEqual(self.helper.process.wait(TIMEOUT), 0)

    def test_a_choice_in_the_menu_in_a_window_is_stored_and_keeps_the_keyboard(self):
        sign_in()
        self.start()
        self.wait_for_menu_window()
        self.screen.wait_for_focus("Private")
        press_keys("Tab")
        self.screen.wait_for_focus("Live (for fans)")
        press_keys("Return")
        wait_for(lambda: "subscribers" in self.defaults.read_text(), "the choice to be stored")
        self.screen.wait_for_name("Visibility: Live")
        self.screen.wait_for_focus("Live (for fans)")

    def test_with_a_panel_opening_again_shows_no_window_of_the_menu(self):
        self.start_in_panel()
        self.open_again()
        # The panel answers the helper before it answers this, and the helper reads that before this request.
        self.assertIsNotNone(StatusItem.find(self.pid))
        self.assertEqual(self.helper.send([]), "No file to send to Cadora.")
        self.wait_for_welcome()
        self.assertEqual(self.screen.windows(), ["Cadora Helper"])

    def test_a_list_of_items_that_no_panel_shows_is_no_panel(self):
        watcher = subprocess.Popen([ROOT / "tests/desktop/watcher_without_panel"], stdin=subprocess.DEVNULL)
        self.addCleanup(end, watcher)
        wait_for(lambda: has_owner(WATCHER), "the list of items")
        sign_in()
        self.start()
        self.screen.wait_for_name("Quit Cadora Helper")
        self.assertIsNone(StatusItem.find(self.pid))
        watcher.send_signal(signal.SIGUSR1)
        self.assertEqual(StatusItem.wait(self.pid).lines()[0], "Signed in: Cadora (disabled)")
        end(watcher)
        wait_for(lambda: not has_owner(WATCHER), "the end of the list of items")

    # The welcome window.

    def test_the_welcome_window_shows_its_lines_to_a_screen_reader(self):
        self.start()
        self.wait_for_welcome()
        self.assertEqual(self.screen.windows(), ["Cadora Helper"])
        self.screen.wait_for_focus("Sign in with Apple")
        save_picture("welcome")

    def test_the_welcome_window_comes_once_and_again_after_it_was_closed(self):
        self.start_in_panel()
        self.wait_for_welcome()
        self.open_again()
        self.wait_for_welcome()
        self.assertEqual(self.screen.windows(), ["Cadora Helper"])
        self.screen.wait_for_focus("Sign in with Apple")
        press_keys("Escape")
        wait_for(lambda: self.screen.windows() == [], "the window to close")
        self.assertIsNone(self.helper.process.poll())
        self.open_again()
        self.wait_for_welcome()

    def test_the_welcome_window_tells_how_a_sign_in_goes(self):
        item = self.start_in_panel()
        self.wait_for_welcome()
        for query, status in (
            (
                "error=no_account",
                "No Cadora account found for that Apple ID. Create your account in the Cadora app first — get it at "
                f"{self.site} — then sign in here.",
            ),
            ("error=denied", "Sign-in didn't complete. Please try again."),
        ):
            self.screen.press("Sign in with Apple")
            self.wait_for_welcome(OPENING)
            self.end_sign_in(query)
            self.wait_for_welcome(status)
            save_picture(f"welcome-{query.partition('=')[2]}")
        self.assertEqual(item.lines()[0], SIGN_IN)
        self.screen.press("Sign in with Apple")
        self.wait_for_welcome(OPENING)
        status = self.screen.wait_for_control(OPENING)
        self.end_sign_in("token=local-token&user_id=1001&email=musician%40example.org")
        # It stands there for a second only: too short to look at the whole screen.
        wait_for(lambda: current_name(status) == "Signed in as musician@example.org ✓", "the confirmation")
        wait_for(lambda: self.screen.windows() == [], "the window to close")
        self.assertEqual(item.lines()[0], "Signed in: musician@example.org (disabled)")

    def test_the_end_of_a_sign_in_comes_in_front_of_the_browser(self):
        self.start_in_panel()
        self.wait_for_welcome()
        welcome_window = window_of_title("^Cadora Helper$")
        self.screen.press("Sign in with Apple")
        self.screen.wait_for_name(WAITING)
        other = subprocess.Popen([BUILD / "bin/cadora-alert", "The sign-in page"], stdin=subprocess.DEVNULL)
        self.addCleanup(end, other)
        Screen(other.pid).wait_for_name("The sign-in page")
        wait_for(lambda: active_window() != welcome_window, "the other program in front")
        self.end_sign_in("token=local-token&user_id=1001&email=musician%40example.org")
        wait_for(lambda: active_window() == welcome_window, "the welcome window in front")
        wait_for(lambda: self.screen.windows() == [], "the window to close")

    def test_signing_in_from_the_menu_shows_nothing_but_its_sheet(self):
        item = self.start_in_panel()
        self.wait_for_welcome()
        press_keys("Escape")
        wait_for(lambda: self.screen.windows() == [], "the window to close")
        item.choose(SIGN_IN)
        self.screen.wait_for_name(WAITING)
        self.assertEqual(len(visible_titles("Sign in to Cadora")), 1)
        save_picture("sign-in-from-menu")

    def test_the_link_opens_the_site(self):
        self.start()
        self.screen.press(f"{self.site} →")
        self.wait_for_page(f"http://{self.site}")

    # Alerts.

    def test_whoever_has_no_account_is_told_and_led_to_the_site(self):
        item = self.start_in_panel()
        for answer in ("OK", f"Open {self.site}"):
            item.choose(SIGN_IN)
            self.end_sign_in("error=no_account")
            self.screen.wait_for_name(NO_ACCOUNT)
            text = (
                "That Apple ID isn’t linked to a Cadora account yet. Cadora Helper can’t create one — first make "
                f"your account in the Cadora app at {self.site}, then sign in here."
            )
            self.assertLessEqual({NO_ACCOUNT, text, "OK", f"Open {self.site}"}, set(self.screen.names()))
            self.assertTrue(self.screen.is_default(f"Open {self.site}"))
            save_picture("alert-no-account")
            self.assertNotIn(f"http://{self.site}", self.pages())
            self.screen.press(answer)
            wait_for(lambda: self.screen.windows() == ["Cadora Helper"], "the alert's and the sign-in's end")
        self.wait_for_page(f"http://{self.site}")

    def test_hiding_the_icon_says_how_it_comes_back_and_opening_again_brings_it(self):
        self.start_in_panel().choose("Settings", "Show Cadora Helper in top menu")
        self.screen.wait_for_name(HIDDEN)
        self.assertCountEqual(self.screen.names()[-3:], [HIDDEN, HIDDEN_TEXT, "OK"])
        self.assertTrue(self.screen.is_default("OK"))
        save_picture("alert-hidden")
        wait_for(lambda: StatusItem.find(self.pid) is None, "the item's end")
        self.screen.press("OK")
        self.screen.wait_for_no_name(HIDDEN)

        end(self.helper.process)
        self.start()
        self.wait_for_welcome()
        self.assertIsNone(StatusItem.find(self.pid))
        self.open_again()
        item = StatusItem.wait(self.pid)
        # The mark catches up when the menu is made anew.
        self.assertIn("    Show Cadora Helper in top menu", item.lines())
        item.choose("Settings", "Visibility: Private", "Private")
        self.wait_for_lines(item, *SETTINGS)
        self.assertNotIn(HIDDEN, self.screen.names())

    def test_uninstalling_asks_and_cancel_changes_nothing(self):
        sign_in()
        item = self.start_in_panel()
        lines = item.lines()
        item.choose("Settings", "Uninstall Cadora Helper…")
        self.screen.wait_for_name(UNINSTALL)
        self.assertCountEqual(self.screen.names(), [UNINSTALL, UNINSTALL_TEXT, "Uninstall", "Cancel"])
        self.assertTrue(self.screen.is_default("Uninstall"))
        self.assertFalse(self.screen.is_default("Cancel"))
        save_picture("alert-uninstall")
        self.screen.press("Cancel")
        self.screen.wait_for_no_name(UNINSTALL)
        item.choose("Settings", "Uninstall Cadora Helper…")
        self.screen.wait_for_focus("Uninstall")
        press_keys("Escape")
        self.screen.wait_for_no_name(UNINSTALL)
        self.assertEqual(item.lines(), lines)
        self.assertTrue(self.helper.program.exists())

    def test_a_second_alert_waits_for_the_first_and_the_queue_for_none(self):
        item = self.start_in_panel()
        item.choose("Settings", "Uninstall Cadora Helper…")
        self.screen.wait_for_name(UNINSTALL)
        item.choose("Settings", "Show Cadora Helper in top menu")
        wait_for(lambda: StatusItem.find(self.pid) is None, "the item's end")
        self.assertEqual(self.helper.send([self.sound]), "")
        wait_for(lambda: self.outbox.states() == ["deferredAuth"], "the file's turn")
        self.assertIn(UNINSTALL, self.screen.names())
        self.assertNotIn(HIDDEN, self.screen.names())
        self.screen.press("Cancel")
        self.screen.wait_for_name(HIDDEN)
        self.assertNotIn(UNINSTALL, self.screen.names())
        self.screen.press("OK")
        self.screen.wait_for_no_name(HIDDEN)

    # The end.

    def test_quitting_ends_the_helper(self):
        item = self.start_in_panel()
        item.choose("Quit Cadora Helper")
        self.assertEqual(self.helper.process.wait(TIMEOUT), 0)
        wait_for(lambda: StatusItem.find(self.pid) is None, "the item's end")

    def test_quitting_ends_the_helper_also_while_an_alert_is_open(self):
        item = self.start_in_panel()
        item.choose("Settings", "Uninstall Cadora Helper…")
        self.screen.wait_for_name(UNINSTALL)
        item.choose("Quit Cadora Helper")
        self.assertEqual(self.helper.process.wait(TIMEOUT), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
