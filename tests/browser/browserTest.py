#!/usr/bin/env python3
# Real browsers as the host's clients: a headless browser runs the test extension against the
# host installed in a temporary prefix and registered by the installed QuorvelHostRegistration in
# a temporary home folder. The host runs as a fake user (the tests' fake user library) whose home
# is that folder, and forwards to a recording agent on that user's agent socket.
# Then it breaks the registration as users meet it (no manifest, the extension's id missing, a
# folder as the executable, and for Chromium an administrator's policy) and checks that the
# browser's error is the one that QuorvelHostRegistration status names, and that its fix works.
# ctest runs it as browserTest.py chromium|firefox BUILD_DIR; bench/browserDisconnect.py
# measures with the same session what reaches the agent when the extension disconnects early.
# How the host ends is seen with strace, on Linux only; on macOS that part is left out.
import base64, contextlib, ctypes, hashlib, http.server, itertools, json, os, queue, re, shlex
import shutil, signal, socket, socketserver, struct, subprocess, sys, tempfile, threading, time
import types
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
HOST_NAME = "com.quorvel.nativemessagehost"
# Where Chromium on Linux reads its administrator's policies; the test changes them only inside
# a mount namespace of its own (private_policies).
POLICY_PARENT = Path("/etc/chromium")
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


class Skipped(Exception):
    pass


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
    # Release builds take an unsigned extension only as a temporary add-on, which start_browser
    # installs through Marionette; it listens on a free port and names it in the profile.
    extension_id = manifest["browser_specific_settings"]["gecko"]["id"]
    profile = home / PROFILES[browser] / "test"
    profile.mkdir(parents=True)
    (profile / "user.js").write_text('user_pref("marionette.port", 0);\n')
    return ["--marionette", "-remote-allow-system-access", "--no-remote", "--profile",
            str(profile)], ["--firefox-extension-id", extension_id]


# The environment that makes a program run as the fake user whose home is the session's, as the
# fake user library reads it. AddressSanitizer refuses to start when another library is
# preloaded ahead of it, unless told not to check.
def fake_user(work, build_dir):
    (work / "user").write_text(str(work / "home"))
    library, variable = FAKE_USER
    return {"QUORVEL_FAKE_USER_FILE": str(work / "user"),
            variable: str(Path(build_dir, "bin", library).resolve()),
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}


# The executable that the manifest names: beside the host, so that the browser starts it in the
# host's folder, it loads the fake user library and then becomes the host. The host inherits the
# browser's environment, and with it the sanitizers' options. The script sets the fake user's
# variables (fake_user) itself: macOS drops DYLD_* variables only when a protected program such
# as /bin/sh starts, so the host it starts keeps them.
def write_wrapper(host, fake_user_variables):
    wrapper = host.with_name("hostAsTestUser")
    wrapper.write_text("#!/bin/sh\n" + "".join(f"export {name}={shlex.quote(value)}\n"
                                               for name, value in fake_user_variables.items())
                       + f'exec {shlex.quote(str(host))} "$@"\n')
    wrapper.chmod(0o755)
    return wrapper


# A client of Firefox's remote protocol, Marionette: each message is its length in decimal, a
# colon and a JSON text; a command is [0, id, name, parameters], its answer [1, id, error, result].
class Marionette:
    def __init__(self, port):
        self.connection = socket.create_connection(("127.0.0.1", port))
        self.replies = self.connection.makefile("rb")
        self.sent = 0
        self.receive()  # the server's greeting
        self.call("WebDriver:NewSession")

    def receive(self):
        length = b""
        while (byte := self.replies.read(1)) != b":":
            assert byte, "Firefox closed the Marionette connection"
            length += byte
        return json.loads(self.replies.read(int(length)))

    def call(self, name, **parameters):
        self.sent += 1
        command = json.dumps([0, self.sent, name, parameters]).encode()
        self.connection.sendall(b"%d:%s" % (len(command), command))
        error, result = self.receive()[2:]
        assert error is None, f"Marionette {name}: {error}"
        return (result or {}).get("value")


# Starts the headless browser in a process group of its own, its output going to the log, that
# the stack stops; returns, for Firefox, its Marionette connection. A Chromium-family browser
# reads DevTools commands on descriptor 3 and answers on 4; over them it loads the unpacked
# extension, whose id must be the expected one. posix_spawn places the pipe's ends there without
# running Python code in the child, which the threads already serving the extension rule out.
# Firefox installs the extension as a temporary add-on when asked over Marionette.
def start_browser(browser, options, extension, expected_id, environment, output, stack):
    command = [next(filter(None, map(shutil.which, BROWSERS[browser]))), "--headless", *options,
               "about:blank"]
    actions = [(os.POSIX_SPAWN_DUP2, output.fileno(), 1), (os.POSIX_SPAWN_DUP2, output.fileno(), 2)]

    def spawn():
        pid = os.posix_spawn(command[0], command, environment, file_actions=actions, setpgroup=0)
        stack.callback(os.waitpid, pid, 0)
        stack.callback(os.killpg, pid, signal.SIGKILL)
    if browser != "chromium":
        spawn()
        port = Path(options[options.index("--profile") + 1], "MarionetteActivePort")
        marionette = Marionette(int(wait_for(lambda: port.exists() and port.read_text(),
                                             "Firefox to listen for Marionette")))
        installed = marionette.call("Addon:Install", path=str(extension), temporary=True)
        assert installed == expected_id, f"extension not installed: {installed}"
        return marionette
    (commands_end, commands), (answers, answers_end) = os.pipe(), os.pipe()
    actions += [(os.POSIX_SPAWN_DUP2, commands_end, 3), (os.POSIX_SPAWN_DUP2, answers_end, 4)]
    spawn()
    os.close(commands_end)
    os.close(answers_end)
    load = {"id": 1, "method": "Extensions.loadUnpacked", "params": {"path": str(extension)}}
    os.write(commands, json.dumps(load).encode() + b"\0")
    with os.fdopen(answers, "rb") as replies:
        reply = devtools_reply(replies, load["id"])
    assert reply.get("result", {}).get("id") == expected_id, f"extension not loaded: {reply}"
    return None  # closing its end of the commands would stop the browser: it stays open


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
    user = fake_user(work, build_dir)
    # A system manifest must name an executable that every user can reach.
    work.chmod(0o755)
    session = types.SimpleNamespace(name=browser, home=home, host=host, ids=ids, started=started,
                                    wrapper=write_wrapper(host, user),
                                    environment=environment | user)
    register(session)
    (session.manifest,) = home.rglob(HOST_NAME + ".json")
    agent = "/tmp/quorvel" + hashlib.sha1(bytes(home)).hexdigest()
    session.frames = serve(stack, socketserver.ThreadingUnixStreamServer(agent, Agent),
                           frames=[]).frames
    stack.callback(os.unlink, agent)
    output = stack.enter_context(open(work / "browser.log", "wb"))
    stack.callback(lambda: [os.kill(pid, signal.SIGKILL) for pid in host_pids(host)])
    stack.push(lambda failed, *_: failed not in (None, Skipped) and print(
        (work / "browser.log").read_text(errors="replace")[-3000:], file=sys.stderr))
    if marionette := start_browser(browser, options, work / "extension", ids[1], environment,
                                   output, stack):
        check_manifest_folder(session, marionette)
    session.commands, session.events = driver.commands, driver.events
    return session


# Firefox on macOS finds the user's folder for manifests through the system (FSFindFolder in
# nsXREDirProvider::GetUserDataDirectoryHome), not $HOME, and whether that follows the fake home
# is not documented: the test asks the running Firefox where it reads, and skips when that is
# outside the temporary home, where the registration tool wrote (the test never writes into a
# real home). On Linux it is $HOME/.mozilla.
def check_manifest_folder(session, marionette):
    marionette.call("Marionette:SetContext", value="chrome")
    folder = Path(marionette.call("WebDriver:ExecuteScript", args=[], script='return Services.'
                                  'dirsvc.get("XREUserNativeManifests", Ci.nsIFile).path'))
    if not folder.resolve().is_relative_to(session.home.resolve()):
        raise Skipped(f"this Firefox reads its user's manifests from {folder}, outside the "
                      "test's temporary home, where the test does not write")
    assert session.manifest.parent.parent.resolve() == folder.resolve(), \
        f"the registration tool wrote {session.manifest}, Firefox reads {folder}"


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


def earlier_hosts_ended(session):
    wait_for(lambda: not host_pids(session.host), "the hosts of earlier connections to end")


# Has the extension connect, which starts the host (once the hosts of earlier connections have
# ended), and prints how the browser started it.
# On Linux, strace watches the host from outside: the browser stays its parent and its signals
# reach the host itself, while strace records how and when it ended. Messages are for after it
# returns: strace's attaching cuts short a write the host is blocked in, which counts as a failed
# send. Returns None on macOS, where how the host ends is not observed.
def start_host(session):
    earlier_hosts_ended(session)
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


# The installed registration tool, run as the session's user.
def registration(session, *arguments, check=True, **environment):
    return subprocess.run([session.host.with_name("QuorvelHostRegistration"), *arguments],
                          env=session.environment | environment, check=check,
                          stdout=subprocess.PIPE, text=True)


def register(session, *options, ids=None, **environment):
    registration(session, "install", "--executable", session.wrapper, *(ids or session.ids),
                 *options, **environment)


# What status says of the session's browser, for the test extension: the only browser in use in
# the session's home.
def verdict(session):
    report = json.loads(registration(session, "status", "--json", *session.ids,
                                     check=False).stdout)
    (found,) = [browser for browser in report["browsers"] if browser["profile"] != "missing"]
    return found


# What a new connection of the extension comes to: "delivered" when its message reaches the
# agent, "started" when, without a message, a host starts (it then disconnects), else the error
# that the browser closed the port with. Without a message the error is the browser's first
# word: Chromium writes a message to a host that could not start, and its failed write may be
# reported ("Error when communicating with the native messaging host.") before the exit.
def connection(session, message=None):
    earlier_hosts_ended(session)
    session.commands.put({"connect": True, "post": [message] if message else []})

    def outcome():
        if message and serialised(message) in session.frames:
            return "delivered"
        if not message and host_pids(session.host):
            return "started"
        with contextlib.suppress(queue.Empty):
            if (report := session.events.get_nowait())["event"] == "closed":
                return str(report["error"])
            print(f"extension: {report['event']}")
    if (result := wait_for(outcome, "the host to start or the port to close")) in \
            ("delivered", "started"):
        session.commands.put({"disconnect": True})
        expect(session, "disconnected")
    return result


# A registration broken as users meet it: the browser hands the extension exactly the error
# that status names, status says the browser does not start the host, and its fix holds fix_word.
def check_refused(session, what, fix_word):
    judged, error = verdict(session), connection(session)
    print(f"{session.name}, {what}: the extension gets {error!r}")
    assert (judged["browserError"], judged["starts"]) == (error, False), \
        f"{what}: status judged {judged}"
    assert fix_word in judged["fix"], f"{what}: status names another fix: {judged['fix']}"


# Once the fix is applied, a message goes through, and status says so.
def check_mended(session, what):
    assert connection(session, {"mended": what}) == "delivered", f"{what}: not mended"
    judged = verdict(session)
    assert (judged["browserError"], judged["starts"]) == (None, True), \
        f"{what}: status judged the mended registration {judged}"


def check_setup(session, what, breaks, fix_word, mend):
    breaks()
    check_refused(session, what, fix_word)
    mend()
    check_mended(session, what)


# Another extension's id, in the form of the session's browser family.
OTHER_IDS = {"chromium": ["--chrome-extension-id", "a" * 32],
             "firefox": ["--firefox-extension-id", "other@quorvel.example"]}


def manifest_setups(session):
    def executable_is_folder():
        manifest = json.loads(session.manifest.read_text())
        session.manifest.write_text(json.dumps(manifest | {"path": str(session.host.parent)}))
    check_setup(session, "no manifest", session.manifest.unlink, "install",
                lambda: register(session))
    check_setup(session, "the manifest allows another extension",
                lambda: register(session, ids=OTHER_IDS[session.name]), session.ids[1],
                lambda: register(session))
    check_setup(session, "the manifest names a folder", executable_is_folder, "install",
                lambda: register(session))


# From here on this process and what it starts see a copy of POLICY_PARENT in its place, in a
# mount namespace of their own (Linux, as root): the policies the test writes reach no other
# program and go with it, even when it is killed. Returns the folder that holds the copy at the
# same path (a MANIFEST_ROOT for the registration tool).
def private_policies(stack):
    libc = ctypes.CDLL(None, use_errno=True)

    def check(result):
        if result != 0:
            raise OSError(ctypes.get_errno(), "cannot make a private mount namespace")
    check(libc.unshare(0x20000))  # CLONE_NEWNS
    check(libc.mount(None, b"/", None, 0x4000 | 0x40000, None))  # MS_REC | MS_PRIVATE
    root = Path(stack.enter_context(tempfile.TemporaryDirectory(prefix="quorvel-root-")))
    shutil.copytree(POLICY_PARENT, root / POLICY_PARENT.relative_to("/"), symlinks=True)
    check(libc.mount(bytes(root / POLICY_PARENT.relative_to("/")), bytes(POLICY_PARENT), None,
                     0x1000, None))  # MS_BIND
    stack.callback(libc.umount2, bytes(POLICY_PARENT), 2)  # MNT_DETACH
    return root


# An administrator's policy, in a browser started with it: one that forbids every host, mended
# by allowing this one, which a browser started anew then follows (one that keeps running may
# lose the extension's connection while it reloads its policies, seen with Chromium 156); and one
# that turns user-level hosts off while only the user's manifest is there, mended by
# registering for all users.
def policy_setups(build_dir, root):
    policy = POLICY_PARENT / "policies/managed/quorvel-test.json"
    policy.parent.mkdir(parents=True, exist_ok=True)
    what, blocked = "a policy forbids every host", {"NativeMessagingBlocklist": ["*"]}
    policy.write_text(json.dumps(blocked))
    with contextlib.ExitStack() as stack:
        check_refused(open_session("chromium", build_dir, stack), what, "NativeMessagingAllowlist")
    policy.write_text(json.dumps(blocked | {"NativeMessagingAllowlist": [HOST_NAME]}))
    with contextlib.ExitStack() as stack:
        check_mended(open_session("chromium", build_dir, stack), what)
    policy.write_text(json.dumps({"NativeMessagingUserLevelHosts": False}))
    with contextlib.ExitStack() as stack:
        session = open_session("chromium", build_dir, stack)
        check_setup(session, "a policy turns user-level hosts off", lambda: None, "--system",
                    lambda: register(session, "--system", MANIFEST_ROOT=str(root)))


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
        policies = browser == "chromium" and not MAC and os.geteuid() == 0 and \
            POLICY_PARENT.is_dir() and private_policies(stack)
        with contextlib.ExitStack() as session_stack:
            try:
                session = open_session(browser, build_dir, session_stack)
            except Skipped as reason:
                print(f"SKIPPED: {reason}.")
                return 77
            forward_and_disconnect(session)
            manifest_setups(session)
            stop_for_update(session)
        if policies:
            policy_setups(build_dir, policies)
        elif browser == "chromium":
            print("Policy setups skipped: they run on Linux as root, where the test gives Chromium"
                  f" a copy of {POLICY_PARENT} of its own.")
    print(f"All {browser} checks passed.")


if __name__ == "__main__":
    sys.exit(main())
