#!/usr/bin/env python3
"""Real browsers as the host's clients: a headless browser runs the test extension against the
host installed in a temporary prefix and registered by scripts/install-manifests.sh in a
temporary home folder. The host runs as a fake user (nss_wrapper) whose home is that folder, and
forwards to a recording agent on that user's agent socket.

Usage: browserTest.py chromium|firefox BUILD_DIR NSS_WRAPPER   the test (ctest runs it)
       browserTest.py disconnect-table BUILD_DIR NSS_WRAPPER   what reaches the agent when the
                                                               extension disconnects at once
"""
import base64
import collections
import contextlib
import hashlib
import http.server
import json
import os
import queue
import re
import shlex
import shutil
import signal
import socketserver
import struct
import subprocess
import sys
import tempfile
import threading
import time
import zipfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
SCRIPTS = HERE.parent.parent / "scripts"
HOST = "QuorvelNativeMessageHost"
SANITIZER_OPTIONS = ("LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS")  # as ctest sets them
BROWSERS = {"chromium": ["chromium"], "firefox": ["firefox-esr", "firefox"]}  # executable names
SKIP = 77
DEADLINE = 60  # seconds; generous, as CI machines are busy
STOP_LINE = b"Quorvel native message host is stopped."
FORWARDED = b"Packet is forwarded successfully."
UPDATE_LINE = b"Updates are available, terminate messagehost."
MESSAGES = [
    {"text": "plain ASCII", "number": 1},
    "unicode: żółć ☃ 日本語 🦊",
    "line\nbreaks\r\nand\ttabs",
    "x" * (1024 * 1024 - 2),  # 1 MiB once serialised
] + [{"burst": index} for index in range(20)]


def serialised(message):
    """The bytes a browser sends for a message: its JSON text, compact, in UTF-8."""
    return json.dumps(message, ensure_ascii=False, separators=(",", ":")).encode()


def wait_for(condition, what, seconds=DEADLINE):
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"timed out waiting for {what}")
        time.sleep(0.05)
    return result


def run_quietly(command, **options):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, **options)


class InBackground:
    """A server that serves on a thread of its own from its construction until it is closed."""

    daemon_threads = True

    def serve_in_background(self):
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def server_close(self):
        self.shutdown()
        super().server_close()


class Agent(InBackground, socketserver.ThreadingUnixStreamServer):
    """Listens on the agent socket and records the payload of every frame, in order."""

    def __init__(self, path):
        self.frames = []
        super().__init__(path, AgentConnection)
        self.serve_in_background()

    def server_close(self):
        super().server_close()
        os.unlink(self.server_address)


class AgentConnection(socketserver.StreamRequestHandler):
    def handle(self):
        while len(header := self.rfile.read(4)) == 4:
            self.server.frames.append(self.rfile.read(struct.unpack("=I", header)[0]))


class Extension(InBackground, http.server.ThreadingHTTPServer):
    """Hands the extension its commands and takes its events, on the loopback address only."""

    def __init__(self):
        self.commands, self.events = queue.Queue(), queue.Queue()
        super().__init__(("127.0.0.1", 0), ExtensionRequest)
        self.serve_in_background()

    def expect(self, event):
        """Waits for the event; returns when it happened, in seconds since the epoch."""
        while (report := self.events.get(timeout=DEADLINE))["event"] != event:
            print(f"extension: {report['event']}")
        return report["at"] / 1000


class ExtensionRequest(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        try:
            command = self.server.commands.get(timeout=1)
        except queue.Empty:
            command = {}
        self.answer(json.dumps(command, ensure_ascii=False).encode())

    def do_POST(self):
        self.server.events.put(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
        self.answer(b"")

    def answer(self, body):
        with contextlib.suppress(ConnectionError):  # the browser has been stopped
            self.send_response(200)
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body)

    def log_message(self, *_):
        pass


def host_pids(executable):
    pids = []
    for entry in Path("/proc").iterdir():
        with contextlib.suppress(OSError):
            if entry.name.isdigit() and os.readlink(entry / "exe") == str(executable):
                pids.append(int(entry.name))
    return pids


class HostRun:
    """The one running host, watched with strace from outside: the browser stays its parent and
    its signals reach the host itself, while strace records how and when it ended."""

    def __init__(self, executable):
        (self.pid,) = wait_for(lambda: host_pids(executable), "the browser to start the host")
        proc = Path(f"/proc/{self.pid}")
        self.arguments = [a.decode() for a in (proc / "cmdline").read_bytes().split(b"\0")[1:-1]]
        self.folder = os.readlink(proc / "cwd")
        self.trace = subprocess.Popen(["strace", "-ttt", "-e", "trace=none", "-p", str(self.pid)],
                                      stderr=subprocess.PIPE, text=True)

    def end(self):
        """Waits for the host to end; returns how ("exited with 0", "killed by SIGKILL", ...)
        and when."""
        _, trace = self.trace.communicate(timeout=DEADLINE)
        ends = re.findall(r"^(\d+\.\d+) \+\+\+ (.+) \+\+\+$", trace, re.MULTILINE)
        assert ends, f"strace saw no end of the host: {trace}"
        return ends[-1][1], float(ends[-1][0])


def log_entries(home):
    """The message part of every log line, after "YYYY/MM/DD HH:MM:SS | SOURCE | "."""
    folder = home / "Library/Application Support/velmarch-agent/logs/messagehost"
    lines = b"".join(path.read_bytes() for path in sorted(folder.glob("*.log"))).splitlines()
    return [line.split(b" | ", 2)[2] for line in lines]


def registration(browser, manifest):
    """The arguments of install-manifests.sh that allow the test extension: for Chromium, the id
    that the public key in its manifest fixes."""
    if browser == "firefox":
        return ["--firefox-extension-id", manifest["browser_specific_settings"]["gecko"]["id"]]
    digest = hashlib.sha256(base64.b64decode(manifest["key"])).hexdigest()[:32]
    letters = str.maketrans("0123456789abcdef", "abcdefghijklmnop")
    return ["--chrome-extension-id", digest.translate(letters)]


class Session:
    """One headless browser with the test extension, the installed host and a recording agent;
    everything it starts or writes is gone when the stack closes."""

    def __init__(self, browser, build_dir, nss_wrapper, stack):
        self.name = browser
        self.work = Path(stack.enter_context(
            tempfile.TemporaryDirectory(prefix="quorvel-browser-")))
        self.home = self.work / "home"
        run_quietly(["cmake", "--install", build_dir, "--prefix", self.work / "prefix"])
        self.folder = self.work / "prefix/bin"
        self.host = self.folder / HOST
        self.extension = stack.enter_context(Extension())
        manifest = (HERE / browser / "manifest.json").read_text()
        url = f"http://127.0.0.1:{self.extension.server_address[1]}"
        files = {"manifest.json": manifest,
                 "background.js": (HERE / "background.js").read_text().replace("DRIVER_URL", url)}
        ids = registration(browser, json.loads(manifest))
        options = self.chromium(files) if browser == "chromium" else self.firefox(files, ids[1])
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("XDG_")} | {"HOME": str(self.home)}
        run_quietly([SCRIPTS / "install-manifests.sh", "install",
                     "--executable", self.write_wrapper(nss_wrapper), *ids], env=environment)
        socket = "/tmp/quorvel" + hashlib.sha1(bytes(self.home)).hexdigest()
        self.agent = stack.enter_context(Agent(socket))
        with open(self.work / "browser.log", "wb") as output:
            self.browser = subprocess.Popen(
                [next(filter(shutil.which, BROWSERS[browser])), "--headless", *options,
                 "about:blank"], env=environment, stdout=output, stderr=output,
                start_new_session=True)
        stack.callback(self.stop_browser)

    def chromium(self, files):
        """Loads the extension from a folder; the default user data folder under the home folder
        is where install-manifests.sh wrote the manifest. As root, Chromium needs no sandbox."""
        folder = self.work / "extension"
        folder.mkdir()
        for name, text in files.items():
            (folder / name).write_text(text)
        user_data = self.home / ".config/chromium"
        user_data.mkdir(parents=True)
        return ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                "--disable-background-networking", "--disable-component-update", "--disable-sync",
                f"--user-data-dir={user_data}", f"--load-extension={folder}"]

    def firefox(self, files, extension_id):
        """The release builds load an unsigned extension from the profile's extensions folder
        once signatures are not required and extensions found there are not held back."""
        profile = self.home / ".mozilla/firefox/test"
        (profile / "extensions").mkdir(parents=True)
        with zipfile.ZipFile(profile / "extensions" / f"{extension_id}.xpi", "w") as package:
            for name, text in files.items():
                package.writestr(name, text)
        (profile / "user.js").write_text('user_pref("xpinstall.signatures.required", false);\n'
                                         'user_pref("extensions.autoDisableScopes", 0);\n')
        return ["--no-remote", "--profile", str(profile)]

    def write_wrapper(self, nss_wrapper):
        """The executable the manifest names: beside the host, so that the browser starts it in
        the host's folder; it makes the fake user and then becomes the host."""
        user, group = os.getuid(), os.getgid()
        (self.work / "passwd").write_text(f"quorveltest:x:{user}:{group}::{self.home}:/bin/sh\n")
        (self.work / "group").write_text(f"quorveltest:x:{group}:\n")
        variables = {name: os.environ.get(name, "") for name in SANITIZER_OPTIONS} | {
            # AddressSanitizer refuses to start when another library is preloaded ahead of it.
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0",
            "LD_PRELOAD": nss_wrapper,
            "NSS_WRAPPER_PASSWD": self.work / "passwd",
            "NSS_WRAPPER_GROUP": self.work / "group"}
        wrapper = self.folder / "hostAsTestUser"
        wrapper.write_text("#!/bin/sh\n" + "".join(f"export {name}={shlex.quote(str(value))}\n"
                                                   for name, value in variables.items())
                           + f'exec {shlex.quote(str(self.host))} "$@"\n')
        wrapper.chmod(0o755)
        return wrapper

    def stop_browser(self):
        os.killpg(self.browser.pid, signal.SIGKILL)
        self.browser.wait()
        for pid in host_pids(self.host):
            os.kill(pid, signal.SIGKILL)

    def run_host(self, command):
        """Gives the extension a command that starts the host; returns the run."""
        self.extension.commands.put({"connect": True} | command)
        run = HostRun(self.host)
        print(f"{self.name} started the host with arguments {run.arguments} in {run.folder}")
        return run

    def tags(self):
        """How many messages of each run reached the agent."""
        return collections.Counter(json.loads(frame)["run"] for frame in self.agent.frames)



def forward_and_disconnect(session):
    """Every message reaches the agent byte for byte and in order, and is logged in full, with
    the stop line after it, although the browser kills the host after the disconnect."""
    expected = [serialised(message) for message in MESSAGES]
    run = session.run_host({"post": MESSAGES})
    assert run.folder == str(session.folder), "the host does not run in its own folder"
    wait_for(lambda: len(session.agent.frames) >= len(expected), "every message to reach the agent")
    assert session.agent.frames == expected, "the agent received other bytes than the browser sent"
    session.extension.commands.put({"disconnect": True})
    disconnected = session.extension.expect("disconnected")
    how, when = run.end()
    print(f"host {how}, {when - disconnected:.2f} s after the extension disconnected")
    entries = log_entries(session.home)
    for payload in expected:
        for arrow in ("↓", "↑"):
            entry = f"{arrow}{len(payload)}B, ".encode() + payload
            assert entries.count(entry) == 1, f"not one {arrow} entry for {payload[:40]}"
    assert entries.count(FORWARDED) == len(expected), "not one forwarded entry per message"
    last_forwarded = len(entries) - entries[::-1].index(FORWARDED)
    assert STOP_LINE in entries[last_forwarded:], "no stop line after the last message"


def stop_for_update(session):
    """An update marker stops a host whose port is open, with status 0; the extension sees its
    port close."""
    run = session.run_host({})
    marker = session.folder / f"{HOST}_update"
    created = time.time()
    marker.touch()
    try:
        session.extension.expect("closed")
        how, when = run.end()
    finally:
        marker.unlink()
    print(f"host {how}, {when - created:.2f} s after the update marker was created")
    assert how == "exited with 0", f"the host {how} after the update marker"
    assert UPDATE_LINE in log_entries(session.home), "no update line in the log"


def disconnect_run(session, tag, count, at_once):
    """Posts count messages tagged with the run, and disconnects at once or once the first of
    them reached the agent. Chromium may start the host late, or not at all, when the port is
    gone first, so what reached the agent is counted by tag once every run has ended."""
    messages = [{"run": tag, "message": index} for index in range(count)]
    session.extension.commands.put({"connect": True, "post": messages, "disconnect": at_once})
    if not at_once:
        wait_for(lambda: tag in session.tags(), "the first message at the agent")
        session.extension.commands.put({"disconnect": True})
    session.extension.expect("disconnected")
    wait_for(lambda: not host_pids(session.host), "the host to end")


def missing_tool(mode):
    for browser in BROWSERS if mode == "disconnect-table" else [mode]:
        if not any(map(shutil.which, BROWSERS[browser])):
            return f"{browser} is not installed (.ci/run installs it)"
    if not shutil.which("strace"):
        return "strace, which records how the host ends, is not installed (.ci/run installs it)"
    return None


def disconnect_table(build_dir, nss_wrapper, runs=5):
    """Prints, for each count of messages, browser and moment of the disconnect, how many
    messages reached the agent in each run."""
    rows = {count: [f"| {count} "] for count in (5, 20, 50)}
    for browser in BROWSERS:
        with contextlib.ExitStack() as stack:
            session = Session(browser, build_dir, nss_wrapper, stack)
            cells = [(count, at_once, [f"{count} {at_once} {run}" for run in range(runs)])
                     for count in rows for at_once in (True, False)]
            for count, at_once, tags in cells:
                for tag in tags:
                    disconnect_run(session, tag, count, at_once)
            wait_for(lambda: not host_pids(session.host), "every host to end")
            reached = session.tags()
            for count, _, tags in cells:
                rows[count].append("| " + ", ".join(str(reached[tag]) for tag in tags) + " ")
    print("| Posted | Chromium, at once | Chromium, after the first | Firefox, at once "
          "| Firefox, after the first |\n|---|---|---|---|---|")
    print("\n".join("".join(row) + "|" for row in rows.values()))


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in [*BROWSERS, "disconnect-table"]:
        sys.exit(__doc__)
    mode, build_dir, nss_wrapper = sys.argv[1:]
    if not Path(nss_wrapper).is_file():
        print("SKIPPED: nss_wrapper, which gives the host a fake user, is not installed")
        return SKIP
    if reason := missing_tool(mode):
        print(f"SKIPPED: {reason}")
        return SKIP
    if mode == "disconnect-table":
        disconnect_table(build_dir, nss_wrapper)
        return 0
    started = time.monotonic()
    with contextlib.ExitStack() as stack:
        session = Session(mode, build_dir, nss_wrapper, stack)
        try:
            forward_and_disconnect(session)
            stop_for_update(session)
        except BaseException:
            # The browser's output holds the host's standard error, sanitizer reports included.
            output = (session.work / "browser.log").read_text(errors="replace")
            print(output[-3000:], file=sys.stderr)
            raise
    print(f"All {mode} checks passed in {time.monotonic() - started:.1f} s.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
