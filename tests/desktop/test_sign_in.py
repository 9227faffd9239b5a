"""Signing in through the site's page with a real browser, as a user does. Runs within tests/desktop/session;
CADORA_BUILD names the build folder."""

import os
import pathlib
import signal
import subprocess
import sys
import unittest

from gi.repository import GLib

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools"))

from browser import SCHEME, Browser, applications_folder, install_entry, set_default  # noqa: E402
from desktop import Panel, Screen, StatusItem, call, press_keys, run_xdotool, save_picture  # noqa: E402
from road import (  # noqa: E402
    BUS_NAME,
    CREDENTIALS,
    TOKEN,
    USER_ID,
    Helper,
    Secret,
    Service,
    end,
    forget_account,
    session_folder,
    wait_for,
)

BUILD = pathlib.Path(os.environ["CADORA_BUILD"])
ENTRY = f"{BUS_NAME}.desktop"
EMAIL = "musician@example.com"
OPENING = "Opening Apple sign-in…"
BUTTON = "Sign in with Apple"
WAITING = "The sign-in page opens in your browser. Go on there: this window closes by itself once you have signed in."
FAILED = "Sign-in didn't complete. Please try again."
PLANTED = "planted-token"
SECRETS = "org.freedesktop.secrets"
KEYRING_PROMPT = "Unlock Login Keyring"
LOGIN_KEYRING = "/org/freedesktop/secrets/collection/login"
TIMEOUT = 60  # seconds


def stored(account):
    return Secret.password_lookup_sync(CREDENTIALS, {"service": BUS_NAME, "account": account}, None)


def command_lines():
    """Those of the processes of this session."""
    lines = []
    for folder in pathlib.Path("/proc").iterdir():
        try:
            environment = (folder / "environ").read_bytes()
            if folder.name.isdigit() and os.fsencode(session_folder()) in environment:
                lines.append((folder / "cmdline").read_bytes())
        except OSError:
            continue
    return lines


def active_window():
    return run_xdotool("getactivewindow", "getwindowname", check=False).strip()


def handler():
    return subprocess.run(["gio", "mime", SCHEME], capture_output=True, text=True, check=True).stdout


class SignInTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = session_folder()
        cls.service = Service(BUILD, folder / "service")
        cls.addClassCleanup(cls.service.stop)
        cls.helper = Helper(BUILD, cls.service.origin, folder / "logs")
        cls.addClassCleanup(cls.helper.stop)
        cls.browser = Browser(cls.service.origin, folder / "browser")

    def setUp(self):
        forget_account()
        self.addCleanup(self.browser.close)
        self.addCleanup(self.end_helper)

    def end_helper(self):
        def is_free():
            if pid := self.helper.owner_pid():
                os.kill(pid, signal.SIGKILL)
            return pid is None

        wait_for(is_free, "the helper's name to be free")

    def start(self):
        """The helper with its welcome window."""
        self.helper.log.unlink(missing_ok=True)
        self.helper.start()
        self.addCleanup(end, self.helper.process)
        self.screen = Screen(self.helper.process.pid)
        self.screen.wait_for_name(BUTTON)

    def begin(self):
        self.start()
        self.screen.press(BUTTON)
        self.screen.wait_for_name(WAITING)

    def end_by(self, choice, text):
        self.browser.press(choice)
        self.screen.wait_for_name(text)
        self.screen.wait_for_no_name(WAITING)

    def hand_over(self, url):
        subprocess.run(["xdg-open", url], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def wait_for_log(self, line):
        wait_for(lambda: line in self.helper.log_lines(), f"the log line {line!r}")

    def test_with_an_account(self):
        (applications_folder() / ENTRY).unlink(missing_ok=True)
        self.begin()
        self.assertIn(OPENING, self.screen.names())
        save_picture("sign-in-waiting")
        self.assertIn(ENTRY, handler())
        self.end_by("Continue with an account", f"Signed in as {EMAIL} ✓")
        save_picture("sign-in-done")
        self.assertEqual([stored("cadoraToken"), stored("cadoraUserId"), stored("appleEmail")], [TOKEN, USER_ID, EMAIL])
        wait_for(lambda: self.screen.windows() == [], "the window to close")
        self.assertEqual(self.helper.log_lines(), [])
        # Neither what was written nor what runs shows the token, but the browser's own things.
        wait_for(lambda: not any(b"token=" in line for line in command_lines()), "the hand-over to be over", TIMEOUT)
        for path in session_folder().rglob("*"):
            if path.is_file() and not path.is_relative_to(self.browser.log.parent):
                if not path.is_relative_to(session_folder() / "service"):
                    self.assertNotIn(TOKEN.encode(), path.read_bytes(), path)

    def test_with_an_account_that_hides_its_email(self):
        self.begin()
        self.end_by("Continue with an account that hides its e-mail", "Signed in as your account ✓")
        self.assertEqual([stored("cadoraToken"), stored("cadoraUserId"), stored("appleEmail")], [TOKEN, USER_ID, None])

    def test_without_an_account(self):
        self.begin()
        site = self.service.origin.removeprefix("http://")
        self.end_by(
            "Continue without an account",
            "No Cadora account found for that Apple ID. Create your account in the Cadora app first — get it at "
            f"{site} — then sign in here.",
        )
        save_picture("sign-in-no-account")
        self.assertIsNone(stored("cadoraToken"))
        self.assertEqual(self.helper.log_lines(), [])

    def test_that_the_user_does_not_allow_and_then_does(self):
        self.begin()
        self.end_by("Don’t allow", FAILED)
        save_picture("sign-in-denied")
        self.assertIsNone(stored("cadoraToken"))
        self.assertEqual(self.helper.log_lines(), ["[Cadora Helper] welcome sign-in failed: badResponse"])
        self.browser.close()
        self.screen.press(BUTTON)
        self.end_by("Continue with an account", f"Signed in as {EMAIL} ✓")

    def test_from_the_menu(self):
        panel = Panel()
        panel.start()
        self.addCleanup(panel.stop)
        self.start()
        item = StatusItem.wait(self.helper.process.pid)
        item.choose("Sign in to Cadora…")
        self.screen.wait_for_name(WAITING)
        save_picture("sign-in-from-menu")
        self.browser.press("Continue with an account")
        wait_for(lambda: f"Signed in: {EMAIL} (disabled)" in item.lines(), "the menu to show it", TIMEOUT)
        wait_for(lambda: "Sign in to Cadora" not in self.screen.windows(), "the window to close")

    def test_that_succeeds_leaves_no_other_open_to_a_planted_callback(self):
        panel = Panel()
        panel.start()
        self.addCleanup(panel.stop)
        self.begin()
        item = StatusItem.wait(self.helper.process.pid)
        item.choose("Sign in to Cadora…")
        wait_for(lambda: self.screen.names().count(WAITING) == 2, "both sign-ins to wait", TIMEOUT)
        self.browser.press("Continue with an account")
        wait_for(lambda: f"Signed in: {EMAIL} (disabled)" in item.lines(), "the menu to show it", TIMEOUT)
        self.screen.wait_for_no_name(WAITING)
        self.assertIn("[Cadora Helper] welcome sign-in failed: The sign-in was cancelled.", self.helper.log_lines())
        self.hand_over(f"cadora://callback?token={PLANTED}&user_id=666&email=evil%40x")
        self.wait_for_log("[Cadora Helper] dropped a URL that nobody waits for: cadora://callback")
        self.assertEqual([stored("cadoraToken"), stored("cadoraUserId"), stored("appleEmail")], [TOKEN, USER_ID, EMAIL])

    def test_that_is_cancelled_drops_a_later_callback(self):
        self.begin()
        self.screen.press("Cancel")
        self.screen.wait_for_name(FAILED)
        self.screen.wait_for_no_name(WAITING)
        self.browser.press("Continue with an account")
        self.wait_for_log("[Cadora Helper] dropped a URL that nobody waits for: cadora://callback")
        self.assertIsNone(stored("cadoraToken"))

    def test_completes_when_its_window_was_closed(self):
        self.begin()
        run_xdotool("search", "--onlyvisible", "--name", "^Cadora Helper$", "windowactivate")
        wait_for(lambda: active_window() == "Cadora Helper", "the window to be in front")
        press_keys("Escape")
        self.screen.wait_for_no_name(BUTTON)
        self.assertIn(WAITING, self.screen.names())
        self.browser.press("Continue with an account")
        self.screen.wait_for_no_name(WAITING)
        wait_for(lambda: stored("cadoraToken") == TOKEN, "the account in the keyring")

    def test_a_callback_that_nobody_waits_for_is_dropped(self):
        self.start()
        install_entry(ENTRY, self.own_entry())
        set_default(SCHEME, ENTRY)
        self.hand_over(f"cadora://callback?token={PLANTED}&user_id=1")
        self.wait_for_log("[Cadora Helper] dropped a URL that nobody waits for: cadora://callback")
        self.assertNotIn(PLANTED, self.helper.log.read_text())
        self.assertIsNone(stored("cadoraToken"))

    def own_entry(self):
        return f"[Desktop Entry]\nType=Application\nName=Cadora Helper\nExec={self.helper.program} %U\n"

    def test_a_callback_starts_a_helper_that_does_not_run_and_its_token_leaves_the_process_list(self):
        install_entry(ENTRY, self.own_entry())
        set_default(SCHEME, ENTRY)
        with subprocess.Popen(
            ["gio", "open", f"cadora://callback?token={PLANTED}&user_id=1"],
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        ):
            pid = wait_for(self.helper.owner_pid, "the helper to start")
        self.assertEqual(os.readlink(f"/proc/{pid}/exe"), str(self.helper.program))
        wait_for(lambda: not any(PLANTED.encode() in line for line in command_lines()), "the token to be gone", TIMEOUT)
        Screen(pid).wait_for_name(BUTTON)
        self.assertIsNone(stored("cadoraToken"))

    def test_a_second_start_that_waits_for_the_first_shows_no_token_in_the_process_list(self):
        self.start()
        self.helper.process.send_signal(signal.SIGSTOP)
        self.addCleanup(self.helper.process.send_signal, signal.SIGCONT)
        second = subprocess.Popen([self.helper.program, f"cadora://callback?token={PLANTED}&user_id=1"])
        self.addCleanup(end, second)
        command_line = pathlib.Path(f"/proc/{second.pid}/cmdline")
        wait_for(lambda: PLANTED.encode() not in command_line.read_bytes(), "the token to be gone")
        self.assertIsNone(second.poll())
        self.helper.process.send_signal(signal.SIGCONT)
        self.assertEqual(second.wait(TIMEOUT), 0)
        self.wait_for_log("[Cadora Helper] dropped a URL that nobody waits for: cadora://callback")

    def test_another_program_that_has_the_scheme_is_told_and_replaced_when_the_user_says_so(self):
        taken = session_folder() / "taken"
        install_entry(
            "other.desktop",
            f"[Desktop Entry]\nType=Application\nName=Other Program\nExec=touch {taken}\nMimeType={SCHEME};\n",
        )
        self.addCleanup((applications_folder() / "other.desktop").unlink)
        set_default(SCHEME, "other.desktop")
        opened = len(self.browser.opened())
        self.start()
        wait_for(lambda: active_window() == "Cadora Helper", "the window to have the keyboard")
        self.screen.press(BUTTON)
        said = (
            "Another program, “Other Program”, receives Cadora’s sign-in links on this desktop. The sign-in would end "
            "there and not come back to Cadora Helper."
        )
        self.screen.wait_for_name(said)
        save_picture("sign-in-other-program")
        self.assertEqual(active_window(), "Cadora Helper")
        self.assertEqual(len(self.browser.opened()), opened)
        self.screen.press("Use Cadora Helper")
        self.end_by("Continue with an account", f"Signed in as {EMAIL} ✓")
        self.assertIn(f"Default application for “{SCHEME}”: {ENTRY}", handler())
        self.assertFalse(taken.exists())

    def call_keyring(self, method, *arguments, interface="org.freedesktop.Secret.Service"):
        return call(SECRETS, "/org/freedesktop/secrets", interface, method, GLib.Variant(*arguments))

    def unlock(self):
        """Without a question."""
        session = self.call_keyring("OpenSession", "(sv)", ("plain", GLib.Variant("s", "")))[1]
        secret = (session, b"", os.environb[b"CADORA_KEYRING_PASSWORD"], "text/plain")
        self.call_keyring(
            "UnlockWithMasterPassword",
            "(o(oayays))",
            (LOGIN_KEYRING, secret),
            interface="org.gnome.keyring.InternalUnsupportedGuiltRiddenInterface",
        )

    def test_a_locked_keyring_is_asked_for_before_the_browser_opens(self):
        opened = len(self.browser.opened())
        self.addCleanup(self.unlock)
        self.call_keyring("Lock", "(ao)", ([LOGIN_KEYRING],))
        self.start()
        self.screen.press(BUTTON)
        self.wait_for_prompt()
        save_picture("sign-in-keyring-prompt")
        press_keys("Escape")
        self.screen.wait_for_name(
            "Your sign-in is kept in this desktop’s keyring, which could not be opened: it stayed locked."
        )
        save_picture("sign-in-keyring-locked")
        self.assertEqual(len(self.browser.opened()), opened)
        self.screen.press("Try Again")
        self.wait_for_prompt()
        run_xdotool("type", os.environ["CADORA_KEYRING_PASSWORD"])
        press_keys("Return")
        self.screen.wait_for_name(WAITING)
        self.end_by("Continue with an account", f"Signed in as {EMAIL} ✓")
        self.assertEqual(stored("cadoraToken"), TOKEN)

    def test_a_sign_in_that_is_cancelled_leaves_the_keyrings_question_and_the_next_goes_on_with_its_answer(self):
        self.addCleanup(self.unlock)
        self.call_keyring("Lock", "(ao)", ([LOGIN_KEYRING],))
        self.start()
        self.screen.press(BUTTON)
        self.wait_for_prompt()
        self.screen.press("Cancel")
        self.screen.wait_for_name(FAILED)
        self.screen.press(BUTTON)
        self.screen.wait_for_name("Preparing the sign-in…")
        run_xdotool("type", os.environ["CADORA_KEYRING_PASSWORD"])
        press_keys("Return")
        self.screen.wait_for_name(WAITING)
        # It comes by itself, and has to be there to be closed.
        self.browser.wait_for("Don’t allow")

    def wait_for_prompt(self):
        wait_for(lambda: active_window() == KEYRING_PROMPT, "the keyring's question", TIMEOUT)


if __name__ == "__main__":
    unittest.main(verbosity=2)
