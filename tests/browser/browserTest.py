#!/usr/bin/env python3
# Real browsers as the host's clients: a headless browser runs the test extension against the
# host installed in a temporary prefix and registered by the installed QuorvelHostRegistration in
# a temporary home folder. The host runs as a fake user (the tests' fake user library) whose home
# is that folder, and forwards to a recording agent on that user's agent socket.
# ctest runs it as browserTest.py chromium|firefox BUILD_DIR; bench/browserDisconnect.py
# measures with the same session what reaches the agent when the extension disconnects early.
# How the host ends is seen with strace, on Linux only; on macOS that part is left out.
import base64, contextlib, hashlib, http.server, itertools, json, os, queue, re, shlex
import shutil, signal, socketserver, struct, subprocess, sys, tempfile, threading, time, types
from pathlib import Path

HERE = Path(__file__).resolve().parent
MAC = sys.platform == "darwin"
# Executable names or paths, the first one found is used.
BROWSERS = {"chromium": [f"/Applications/{name}.app/Contents/MacOS/{name}" for name in
                         ("Chromium", "Google Chrome for Testing", "Google Chrome")]
                        if MAC else ["chromium"],
            "firefox": ["/Applications/Firefox.app/Contents/MacOS/firefox"] if MAC else
                       ["firefox-esr", "firefox"]}
# The fake user library in the build's bin folder, and how the host is made to load it.
FAKE_USER = ("libquorvelFakeUser.dylib", "DYLD_INSERT_LIBRARIES") if MAC else \
            ("libquorvelFakeUser.so", "LD_PRELOAD")
# Where a headless browser of each family keeps the profile that the registration tool looks for.
PROFILES = {"chromium": "Library/Application Support/Chromium" if MAC else ".config/chromium",
            "firefox": "Library/Application Support/Firefox" if MAC else ".mozilla/firefox"}
DEADLINE = 60  # seconds; generous, as CI machines are busy
MESSAGES = [{"text": "plain ASCII", "number": 1}, "unicode: żółć ☃ 日本語 🦊",
            "line\nbreaks\r\nand\ttabs", "x" * (1024 * 1024 - 2)  # 1 MiB once serialised
            ] + [{"burst": index} for index in range(20)]


def serialised(message):
    # The bytes a browser sends for a message: its JSON text, compact, in UTF-8.
    return json.dumps(message, ensure_ascii=False, separators=(",", ":")).encode()


def wait_for(condition, what):
    deadline = time.monotonic() + DEADLINE
    while not (result := condition()):
        assert time.monotonic() < deadline, f"timed out waiting for {what}"
        time.sleep(0.05)
    return result


class Agent(socketserver.StreamRequestHandler):
    # Records the payload of every whole frame the host forwards, in order. The host writes a
    # frame's header and payload apart, so a browser that kills it can leave a frame cut short.
    def handle(self):
        while len(header := self.rfile.read(4)) == 4:
            length = struct.unpack("=I", header)[0]
            if len(payload := self.rfile.read(length)) == length:
                self.server.frames.append(payload)


class Extension(http.server.BaseHTTPRequestHandler):
    # A GET takes the extension's next command ({} when none comes within a second, so that it
    # asks again); a POST brings one of its events.
    def do_GET(self):
        with contextlib.suppress(queue.Empty):
            return self.answer(json.dumps(self.server.commands.get(timeout=1)))
        self.answer("{}")

    def do_POST(self):
        self.server.events.put(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
        self.answer("{}")

    def answer(self, body):
        # HTTP/1.0 without headers: the body ends where the connection does.
        with contextlib.suppress(ConnectionError):  # the browser has been stopped
            self.wfile.write(b"HTTP/1.0 200 OK\r\n\r\n" + body.encode())


def serve(stack, server, **shared):
    # Serves on threads of its own until the stack closes; handlers find what is shared on it.
    vars(server).update(shared, daemon_threads=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    stack.callback(server.server_close)
    stack.callback(server.shutdown)
    return server


def host_pids(executable):
    if MAC:  # no /proc: the host is the process whose command line starts with its path
        pattern = f"^{re.escape(str(executable))}( |$)"
        found = subprocess.run(["pgrep", "-f", pattern], stdout=subprocess.PIPE, text=True)
        return [int(pid) for pid in found.stdout.split()]

    def runs_host(process):
        with contextlib.suppress(OSError):  # gone, or not ours to look into
            return os.readlink(process / "exe") == str(executable)
    return [int(process.name) for process in Path("/proc").glob("[0-9]*") if runs_host(process)]


# Writes the test extension, which asks the driver at url for its commands, where the browser
# loads it from; returns the browser's options and the registration tool's arguments that allow
# the extension. A Chromium-family browser is asked to load it over the DevTools pipe
# (start_browser): official Chrome builds ignore --load-extension.
def install_extension(browser, work, url):
    home, extension = work / "home", work / "extension"
    shutil.copytree(HERE / browser, extension)
    background = (HERE / "background.js").read_text().replace("DRIVER_URL", url)
    (extension / "background.js").write_text(background)
    manifest = json.loads((extension / "manifest.json").read_text())
    if browser == "chromium":
        # The extension's id is fixed by the public key in its manifest. The user data folder is
        # the default one, where the registration tool writes; as root, Chromium needs no sandbox.
        digest = hashlib.sha256(base64.b64decode(manifest["key"])).hexdigest()[:32]
        ids = ["--chrome-extension-id", "".join(chr(ord("a") + int(x, 16)) for x in digest)]
        (home / PROFILES[browser]).mkdir(parents=True)
        return ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                "--disable-background-networking", "--disable-component-update",
                "--disable-sync", f"--user-data-dir={home / PROFILES[browser]}",
                "--remote-debugging-pipe", "--enable-unsafe-extension-debugging"], ids
    # Release builds load an unsigned extension that a file in the profile's extensions folder
    # points to, once signatures are not required and such extensions are enabled.
    extension_id = manifest["browser_specific_settings"]["gecko"]["id"]
    profile = home / PROFILES[browser] / "test"
    (profile / "extensions").mkdir(parents=True)
    (profile / "extensions" / extension_id).write_text(str(extension))
    (profile / "user.js").write_text('user_pref("xpinstall.signatures.required", false);\n'
                                     'user_pref("extensions.autoDisableScopes", 0);\n')
    return ["--no-remote", "--profile", str(profile)], ["--firefox-extension-id", extension_id]


# The executable that the manifest names: beside the host, so that the browser starts it in the
# host's folder, it loads the fake user library and then becomes the host. The host inherits the
# browser's environment, and with it the sanitizers' options. The script sets the library's
# variables itself: macOS drops DYLD_* variables only when a protected program such as /bin/sh
# starts, so the host it starts keeps them.
def write_wrapper(work, host, build_dir):
    (work / "user").write_text(str(work / "home"))
    library, variable = FAKE_USER
    fake_user = {"QUORVEL_FAKE_USER_FILE": work / "user", variable: Path(build_dir, "bin", library)}
    wrapper = host.with_name("hostAsTestUser")
    # AddressSanitizer refuses to start when another library is preloaded ahead of it.
    wrapper.write_text('#!/bin/sh\nexport ASAN_OPTIONS="$ASAN_OPTIONS:verify_asan_link_order=0"\n'
                       + "".join(f"export {name}={shlex.quote(str(value))}\n"
                                 for name, value in fake_user.items())
                       + f'exec {shlex.quote(str(host))} "$@"\n')
    wrapper.chmod(0o755)
    return wrapper


# Starts the headless browser in a process group of its own, its output going to the log, and
# returns its process id. A Chromium-family browser reads DevTools commands on descriptor 3 and
# answers on 4; over them it loads the unpacked extension, whose id must be the expected one.
# posix_spawn places the pipe's ends there without running Python code in the child, which the
# threads already serving the extension rule out.
def start_browser(browser, options, extension, expected_id, environment, output):
    command = [next(filter(None, map(shutil.which, BROWSERS[browser]))), "--headless", *options,
               "about:blank"]
    actions = [(os.POSIX_SPAWN_DUP2, output.fileno(), 1), (os.POSIX_SPAWN_DUP2, output.fileno(), 2)]
    if browser != "chromium":
        return os.posix_spawn(command[0], command, environment, file_actions=actions, setpgroup=0)
    (commands_end, commands), (answers, answers_end) = os.pipe(), os.pipe()
    actions += [(os.POSIX_SPAWN_DUP2, commands_end, 3), (os.POSIX_SPAWN_DUP2, answers_end, 4)]
    pid = os.posix_spawn(command[0], command, environment, file_actions=actions, setpgroup=0)
    os.close(commands_end)
    os.close(answers_end)
    load = {"id": 1, "method": "Extensions.loadUnpacked", "params": {"path": str(extension)}}
    os.write(commands, json.dumps(load).encode() + b"\0")
    with os.fdopen(answers, "rb") as replies:
        reply = devtools_reply(replies, load["id"])
    assert reply.get("result", {}).get("id") == expected_id, f"extension not loaded: {reply}"
    return pid  # closing its end of the commands would stop the browser: it stays open


# The browser's reply to the command with the given id; {} when the browser has gone first.
# Each message ends with a NUL byte.
def devtools_reply(replies, command_id):
    message = b""
    while byte := replies.read(1):
        if byte != b"\0":
            message += byte
        elif (reply := json.loads(message)).get("id") == command_id:
            return reply
        else:
            message = b""
    return {}


# One headless browser with the test extension, the installed host and a recording agent.
# Everything it starts or writes is gone when the stack closes; on a failure the browser's
# output, which holds the host's standard error (sanitizer reports included), is printed first.
def open_session(browser, build_dir, stack):
    started = time.time()
    work = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="quorvel-browser-")))
    home, host = work / "home", work / "prefix/bin/QuorvelNativeMessageHost"
    subprocess.run(["cmake", "--install", build_dir, "--prefix", work / "prefix"], check=True,
                   stdout=subprocess.DEVNULL)
    driver = serve(stack, http.server.ThreadingHTTPServer(("127.0.0.1", 0), Extension),
                   commands=queue.Queue(), events=queue.Queue())
    options, ids = install_extension(browser, work, f"http://127.0.0.1:{driver.server_port}")
    # macOS's own look-ups of the home folder take CFFIXED_USER_HOME before the user database.
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("XDG_")} | {"HOME": str(home)} | \
        ({"CFFIXED_USER_HOME": str(home)} if MAC else {})
    subprocess.run([host.with_name("QuorvelHostRegistration"), "install", "--executable",
                    write_wrapper(work, host, build_dir), *ids], env=environment, check=True,
                   stdout=subprocess.DEVNULL)
    agent = "/tmp/quorvel" + hashlib.sha1(bytes(home)).hexdigest()
    frames = serve(stack, socketserver.ThreadingUnixStreamServer(agent, Agent), frames=[]).frames
    stack.callback(os.unlink, agent)
    output = stack.enter_context(open(work / "browser.log", "wb"))
    pid = start_browser(browser, options, work / "extension", ids[1], environment, output)
    stack.callback(lambda: [os.kill(pid, signal.SIGKILL) for pid in host_pids(host)])
    stack.callback(os.waitpid, pid, 0)
    stack.callback(os.killpg, pid, signal.SIGKILL)
    stack.push(lambda failed, *_: failed and print(
        (work / "browser.log").read_text(errors="replace")[-3000:], file=sys.stderr))
    return types.SimpleNamespace(name=browser, home=home, host=host, frames=frames,
                                 commands=driver.commands, events=driver.events, started=started)


def expect(session, event):
    # Waits for the extension's event; returns when it happened, in seconds since the epoch.
    while (report := session.events.get(timeout=DEADLINE))["event"] != event:
        print(f"extension: {report['event']}")
    return report["at"] / 1000


# The host's arguments and working directory, as the browser started it.
def arguments_and_folder(pid):
    if MAC:
        arguments = subprocess.run(["ps", "-o", "args=", "-p", str(pid)], stdout=subprocess.PIPE,
                                   text=True).stdout.split()[1:]
        found = subprocess.run(["lsof", "-a", "-d", "cwd", "-Fn", "-p", str(pid)],
                               stdout=subprocess.PIPE, text=True).stdout.splitlines()
        return arguments, Path(next(line[1:] for line in found if line.startswith("n")))
    # Its exe link turns to the host a moment before its arguments are in place.
    cmdline = wait_for(Path(f"/proc/{pid}/cmdline").read_bytes, "the host's arguments")
    return cmdline.decode().split("\0")[1:-1], Path(os.readlink(f"/proc/{pid}/cwd"))


# Has the extension connect, which starts the host, and prints how the browser started it.
# On Linux, strace watches the host from outside: the browser stays its parent and its signals
# reach the host itself, while strace records how and when it ended. Messages are for after it
# returns: strace's attaching cuts short a write the host is blocked in, which counts as a failed
# send. Returns None on macOS, where how the host ends is not observed.
def start_host(session):
    session.commands.put({"connect": True})
    (pid,) = wait_for(lambda: host_pids(session.host), "the browser to start the host")
    arguments, folder = arguments_and_folder(pid)
    print(f"{session.name} started the host with arguments {arguments} in {folder}")
    assert folder.resolve() == session.host.parent.resolve(), \
        "the host does not run in its own folder"
    if MAC:
        print("How the host ends is not observed on macOS (strace is Linux-only).")
        return None
    trace = subprocess.Popen(["strace", "-ttt", "-e", "trace=none", "-p", str(pid)],
                             stderr=subprocess.PIPE, text=True)
    assert "attached" in trace.stderr.readline(), "strace did not attach to the host"
    return trace


def host_end(session, trace):
    # How the host ended ("exited with 0", "killed by SIGKILL") and when: strace's last line.
    # LeakSanitizer cannot check a traced process, so an AddressSanitizer build can end with 1
    # where it would end with 0 (seen when Firefox closes the host's input). Without a trace,
    # only when it was seen gone.
    if trace is None:
        wait_for(lambda: not host_pids(session.host), "the host to end")
        return "was gone", time.time()
    trace.wait(timeout=DEADLINE)
    when, how = trace.stderr.read().splitlines()[-1].split(" ", 1)
    return how.strip("+ "), float(when)


def log_entries(session):
    # "SOURCE | message" of every log line, whose stamp must be a local time from the session's
    # start to now.
    folder = session.home / "Library/Application Support/velmarch-agent/logs/messagehost"
    lines = b"".join(path.read_bytes() for path in sorted(folder.glob("*.log"))).splitlines()
    now = time.time()
    for line in lines:
        stamped = time.mktime(time.strptime(line[:19].decode(), "%Y/%m/%d %H:%M:%S"))
        assert int(session.started) <= stamped <= now, f"stamped outside the session: {line[:80]}"
    return [line[22:] for line in lines]


# Every message reaches the agent byte for byte and in order, as the browser serialised it
# (compact JSON in UTF-8), and is logged in full, with the stop line after it, although the
# browser kills the host after the disconnect.
def forward_and_disconnect(session):
    expected = [serialised(message) for message in MESSAGES]
    trace = start_host(session)
    # The agent port turns away what comes while it connects: the first message goes alone.
    session.commands.put({"post": MESSAGES[:1]})
    wait_for(lambda: session.frames, "the first message to reach the agent")
    session.commands.put({"post": MESSAGES[1:]})
    wait_for(lambda: len(session.frames) >= len(expected), "every message to reach the agent")
    assert session.frames == expected, "the agent received other bytes than the browser sent"
    session.commands.put({"disconnect": True})
    disconnected = expect(session, "disconnected")
    how, when = host_end(session, trace)
    print(f"host {how}, {when - disconnected:.2f} s after the extension disconnected")
    entries = log_entries(session)
    for payload, logged in itertools.product(expected, ("EXT-PORT | ↓", "AGT-PORT | ↑")):
        assert entries.count(f"{logged}{len(payload)}B, ".encode() + payload) == 1, \
            f"not one {logged} entry for {payload[:40]}"
    forwarded = b"EXT->AGT | Packet is forwarded successfully."
    assert entries.count(forwarded) == len(expected), "not one forwarded entry per message"
    after_last = entries[len(entries) - entries[::-1].index(forwarded):]
    assert b"HOST-APP | Quorvel native message host is stopped." in after_last, "no stop line at the end"


# An update marker stops a host whose port is open, with status 0; the extension sees its port
# close.
def stop_for_update(session):
    trace = start_host(session)
    created = time.time()
    session.host.with_name(session.host.name + "_update").touch()
    expect(session, "closed")
    how, when = host_end(session, trace)
    print(f"host {how}, {when - created:.2f} s after the update marker was created")
    assert trace is None or how == "exited with 0", f"the host {how} after the update marker"
    assert b"HOST-APP | Updates are available, terminate messagehost." in log_entries(session), \
        "no update line in the log"


# The names of what a run needs and this machine lacks: the browsers, and on Linux strace.
def missing_tools(browsers):
    needed = {" or ".join(BROWSERS[browser]): any(map(shutil.which, BROWSERS[browser]))
              for browser in browsers}
    if not MAC:
        needed["strace (records how the host ends)"] = shutil.which("strace")
    return [name for name, found in needed.items() if not found]


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in BROWSERS:
        sys.exit("usage: browserTest.py chromium|firefox BUILD_DIR")
    browser, build_dir = sys.argv[1:]
    if missing := missing_tools([browser]):
        print("SKIPPED: not installed (see scripts/prerequisites.sh):", ", ".join(missing))
        return 77
    with contextlib.ExitStack() as stack:
        session = open_session(browser, build_dir, stack)
        forward_and_disconnect(session)
        stop_for_update(session)
    print(f"All {browser} checks passed.")


if __name__ == "__main__":
    sys.exit(main())
