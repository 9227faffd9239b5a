"""The pieces of the road of one file, for scripts that run within a private desktop session
(tests/desktop/session): the stand-in of the service, the helper built for it, its outbox and its credentials.
"""

import json
import os
import pathlib
import signal
import subprocess
import time
import urllib.request

import gi

gi.require_version("Secret", "1")
from gi.repository import Gio, GLib, Secret  # noqa: E402

BUS_NAME = "com.norvelant.cadora.mac"
OBJECT_PATH = "/com/norvelant/cadora/mac"
SERVICES_INTERFACE = "com.norvelant.cadora.mac.Services"
TOKEN = "local-token"
USER_ID = "1001"
START_TIMEOUT = 30  # seconds
STOP_TIMEOUT = 10  # seconds


class Failure(Exception):
    """What went wrong, in words for whoever runs the script."""


def session_folder():
    return pathlib.Path(os.environ["CADORA_SESSION"])


def wait_for(condition, what, timeout=START_TIMEOUT):
    """Returns the condition's first true value."""
    deadline = time.monotonic() + timeout
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Failure(f"{what}: nothing after {timeout} s")
        time.sleep(0.02)


def end(process):
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(STOP_TIMEOUT)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


class Service:
    """The stand-in of the service, on a port that was free."""

    def __init__(self, build, folder):
        folder.mkdir(parents=True, exist_ok=True)
        self.log = folder / "requests.log"
        self.process = subprocess.Popen(
            [
                build / "bin/cadora-service",
                *("--data", folder / "data"),
                *("--token", TOKEN, "--user-id", USER_ID),
                *("--log", self.log),
                "--exit-with-parent",
            ],
            stdout=subprocess.PIPE,
            stderr=open(folder / "service.log", "ab"),
            text=True,
        )
        line = self.process.stdout.readline().split()
        if line[:1] != ["listening"]:
            raise Failure("the stand-in of the service did not start")
        self.origin = line[1]

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(
            self.origin + path, data, {"Content-Type": "application/json"} if data else {}, method=method
        )
        with urllib.request.urlopen(request, timeout=START_TIMEOUT) as answer:
            text = answer.read()
        return json.loads(text) if text else None

    def posts(self):
        return self.call("GET", "/api/posts")["posts"]

    def spoil(self, **fault):
        self.call("POST", "/faults", fault)

    def mend(self):
        self.call("DELETE", "/faults")

    def requests(self):
        return self.call("GET", "/log")["requests"]

    def audio(self, post, path):
        """Saves the audio of a post."""
        with urllib.request.urlopen(post["audio_url"], timeout=START_TIMEOUT) as answer:
            path.write_bytes(answer.read())
        return path

    def stop(self):
        end(self.process)
        self.process.stdout.close()


class Helper:
    """The helper, linked for one origin, started and stopped as often as need be."""

    def __init__(self, build, origin, folder):
        folder.mkdir(parents=True, exist_ok=True)
        # Beside the worker that it looks for.
        self.program = build / "bin" / f"cadora-helper-{os.getpid()}"
        self.log = folder / "helper.log"
        self.process = None
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        linked = subprocess.run(
            [build / "link-helper", origin, origin, self.program], capture_output=True, text=True
        )
        if linked.returncode != 0:
            raise Failure(f"the helper could not be built for {origin}:\n{linked.stdout}{linked.stderr}")

    def start(self, *arguments, **options):
        log = open(self.log, "ab")
        self.process = subprocess.Popen(
            [self.program, *arguments], stdin=subprocess.DEVNULL, stdout=log, stderr=log, **options
        )
        log.close()

        def ready():
            if self.process.poll() is not None:
                raise Failure(f"the helper ended with status {self.process.returncode}")
            return self.owner_pid() == self.process.pid

        wait_for(ready, "the helper's name on the bus")

    def owner_pid(self):
        try:
            return self.call_bus("GetConnectionUnixProcessID", GLib.Variant("(s)", (BUS_NAME,))).unpack()[0]
        except GLib.Error:
            return None

    def call_bus(self, method, arguments):
        bus = "org.freedesktop.DBus"
        return self.bus.call_sync(
            bus, "/org/freedesktop/DBus", bus, method, arguments, None, Gio.DBusCallFlags.NONE, -1, None
        )

    def send(self, files):
        """Sends the files in one request; returns the error that the desktop would show."""
        return self.call_services([Gio.File.new_for_path(os.fsencode(file)).get_uri() for file in files])

    def ask_main_thread(self, timeout):
        """Returns once the main thread has refused a request without files."""
        self.call_services([], timeout * 1000)

    def call_services(self, uris, timeout=-1):
        return self.bus.call_sync(
            BUS_NAME,
            OBJECT_PATH,
            SERVICES_INTERFACE,
            "sendToCadora",
            GLib.Variant("(ass)", (uris, "")),
            GLib.VariantType("(s)"),
            Gio.DBusCallFlags.NONE,
            timeout,
            None,
        ).unpack()[0]

    def log_lines(self):
        return self.log.read_text(errors="replace").splitlines() if self.log.exists() else []

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        wait_for(lambda: self.owner_pid() is None, "the helper's name to be free")

    def stop(self):
        if self.process is not None:
            end(self.process)
        self.program.unlink(missing_ok=True)


class Outbox:
    folder = property(lambda self: pathlib.Path(os.environ["XDG_DATA_HOME"]) / "Cadora/Outbox")

    def items(self):
        try:
            return json.loads((self.folder / "outbox.json").read_text())
        except FileNotFoundError:
            return []

    def states(self):
        return [item["state"] for item in self.items()]


CREDENTIALS = Secret.Schema.new(
    "com.norvelant.cadora.mac",
    Secret.SchemaFlags.DONT_MATCH_NAME,
    {"service": Secret.SchemaAttributeType.STRING, "account": Secret.SchemaAttributeType.STRING},
)


def sign_in(email=None):
    """Puts the stand-in's credentials into the session's keyring."""
    values = {"cadoraToken": TOKEN, "cadoraUserId": USER_ID, "appleEmail": email}
    for account, value in values.items():
        if value is None:
            continue
        attributes = {"service": BUS_NAME, "account": account}
        label = f"Cadora Helper ({account})"
        if not Secret.password_store_sync(CREDENTIALS, attributes, Secret.COLLECTION_DEFAULT, label, value, None):
            raise Failure("the session's keyring did not take the credentials")


def forget_account():
    """Takes every credential out of the session's keyring."""
    Secret.password_clear_sync(CREDENTIALS, {"service": BUS_NAME}, None)
