#!/usr/bin/env python3
# What the host's log does when several hosts log at once, when a host is killed in the middle of
# a long line, when someone else planted the log folder or file, when a FIFO stands in for
# today's file, and how much memory and log space the design lets grow. Runs the real host of a
# build under the tests' fake user library, with a temporary home, and prints the figures that
# docs/reliability.md gives. Root is needed for the planted files of another user.
# Usage: bench/logFaults.py BUILD_DIR   (a build with tests, for the fake user library)
import atexit, hashlib, os, random, re, shutil, signal, socket, struct, subprocess, sys, tempfile
import threading, time
from pathlib import Path

OTHER_USER = 65534
LOGS = "Library/Application Support/velmarch-agent/logs/messagehost"
# A whole line: a stamp, a tag, and for a traced frame its declared size and that many bytes.
LINE = re.compile(rb"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \| [^|]{1,8} \| (.*)\Z", re.S)
TRACE = re.compile(rb"(?:\xe2\x86\x93|\xe2\x86\x91)(\d+)B, (.*)\Z", re.S)


class Home:
    """A temporary home for the fake user, its log folder and its agent socket's name."""

    def __init__(self, build):
        self.root = Path(tempfile.mkdtemp(prefix="quorvel-logfaults-"))
        atexit.register(shutil.rmtree, self.root, True)
        self.path = self.root / "home"
        self.path.mkdir()
        entry = self.root / "user"
        entry.write_text(str(self.path))
        library = next(Path(build).resolve().rglob("libquorvelFakeUser.*"))
        preload = "DYLD_INSERT_LIBRARIES" if sys.platform == "darwin" else "LD_PRELOAD"
        self.env = dict(os.environ, QUORVEL_FAKE_USER_FILE=str(entry), **{preload: str(library)})
        # Never a host as the real user: the fake entry must answer first.
        answer = subprocess.run([sys.executable, "-c", "import os, pwd; "
                                 "print(pwd.getpwuid(os.getuid()).pw_dir, end='')"],
                                env=self.env, capture_output=True, text=True).stdout
        if answer != str(self.path):
            sys.exit(f"The fake user library ({library}) does not answer; no host is started.")
        self.host = str(Path(build).resolve() / "bin/QuorvelNativeMessageHost")
        self.logs = self.path / LOGS
        self.socket = "/tmp/quorvel" + hashlib.sha1(str(self.path).encode()).hexdigest()

    def today(self):
        return self.logs / time.strftime("messagehost_%Y_%m_%d.log")

    def start(self):
        return subprocess.Popen([self.host], stdin=subprocess.PIPE, env=self.env, cwd=self.root)

    def lines(self):
        """Every line of every log file, without its end."""
        data = b"".join(p.read_bytes() for p in sorted(self.logs.glob("*.log")) if p.is_file())
        return data.split(b"\n")[:-1]


class Agent:
    """A listening agent that reads every frame, or accepts and never reads."""

    def __init__(self, path, reads=True):
        if os.path.exists(path):
            os.unlink(path)
        self.server = socket.socket(socket.AF_UNIX)
        self.server.bind(path)
        self.server.listen(16)
        self.path, self.reads, self.held = path, reads, []
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection, _ = self.server.accept()
            except OSError:
                return
            if self.reads:
                threading.Thread(target=lambda: all(iter(lambda: connection.recv(1 << 20), b"")),
                                 daemon=True).start()
            else:
                self.held.append(connection)

    def close(self):
        self.server.close()
        os.unlink(self.path)


def feed(host, payload, count):
    """Writes the frames; stops quietly when the host is gone."""
    try:
        for _ in range(count):
            host.stdin.write(struct.pack("=I", len(payload)) + payload)
            host.stdin.flush()
    except (BrokenPipeError, ValueError):
        pass


def malformed(lines):
    """Lines that are not one whole line: cut, glued to another, or empty."""
    bad = 0
    for line in lines:
        whole = LINE.match(line)
        trace = whole and TRACE.match(whole.group(1))
        bad += not whole or bool(trace and int(trace.group(1)) != len(trace.group(2)))
    return bad


def exit_seconds(host):
    """Closes the host's input and times its exit."""
    begun = time.monotonic()
    host.stdin.close()
    host.wait(timeout=60)
    return time.monotonic() - begun


def concurrent_hosts(build, runs=3, hosts=3, frames=100):
    """Hosts of one user logging 2,000-byte messages at once."""
    for run in range(runs):
        home = Home(build)
        agent = Agent(home.socket)
        started = [home.start() for _ in range(hosts)]
        feeders = [threading.Thread(target=feed, args=(h, bytes([65 + n]) * 2000, frames))
                   for n, h in enumerate(started)]
        for thread in feeders:
            thread.start()
        for thread in feeders:
            thread.join()
        for host in started:
            exit_seconds(host)
        agent.close()
        lines = home.lines()
        print(f"concurrent run {run + 1}: {hosts} hosts x {frames} frames of 2000 B: "
              f"{len(lines)} lines, {malformed(lines)} malformed")


def killed_hosts(build, runs=10):
    """A host killed (SIGKILL) while it logs 4 MiB lines, then the next host's first lines."""
    home = Home(build)
    agent = Agent(home.socket)
    for run in range(runs):
        host = home.start()
        threading.Thread(target=feed, args=(host, b"k" * (4 << 20), 20), daemon=True).start()
        time.sleep(random.uniform(0.3, 1.5))
        host.send_signal(signal.SIGKILL)
        host.wait()
    last = home.start()
    feed(last, b"after", 1)
    exit_seconds(last)
    agent.close()
    lines = home.lines()
    cut = [line for line in lines if malformed([line])]
    glued = [line for line in cut if len(re.findall(rb"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d \| ", line)) > 1]
    print(f"killed: {runs} hosts killed while logging 4 MiB lines, then one more host: "
          f"{len(lines)} lines, {len(cut)} cut short, {len(glued)} glued to the next; "
          f"the last host's lines whole: {malformed(lines[-4:]) == 0}")


def planted(build):
    """Log folder and file planted by another user, or linked elsewhere: what they receive."""
    if os.geteuid() != 0:
        print("planted: skipped, needs root to plant files of another user")
        return
    cases = {}
    # Another user made the folder first, open to all, and today's file in it.
    home = Home(build)
    home.logs.mkdir(parents=True)
    os.chmod(home.logs, 0o777)
    home.today().write_bytes(b"planted\n")
    os.chmod(home.today(), 0o666)
    for path in (home.logs, home.today()):
        os.chown(path, OTHER_USER, OTHER_USER)
    cases["folder and file of another user"] = (home, home.today())
    # This user's folder, today's file of another user.
    home = Home(build)
    home.logs.mkdir(parents=True, mode=0o700)
    home.today().write_bytes(b"planted\n")
    os.chmod(home.today(), 0o666)
    os.chown(home.today(), OTHER_USER, OTHER_USER)
    cases["file of another user"] = (home, home.today())
    # The folder, or today's file, a link to another user's.
    for what in ("folder", "file"):
        home = Home(build)
        other = home.root / "other"
        other.mkdir(mode=0o777)
        target = other / home.today().name
        target.write_bytes(b"planted\n")
        home.logs.parent.mkdir(parents=True)
        if what == "folder":
            home.logs.symlink_to(other)
        else:
            home.logs.mkdir(mode=0o700)
            home.today().symlink_to(target)
        cases[f"{what} a link to another user's"] = (home, target)
    for name, (home, target) in cases.items():
        agent = Agent(home.socket)
        host = home.start()
        feed(host, b'{"secret":1}', 5)
        exit_seconds(host)
        agent.close()
        print(f"planted, {name}: {target.stat().st_size - len(b'planted') - 1} bytes received")


def fifo_exit(build, runs=5):
    """A FIFO in place of today's file: the exit time after the input closes."""
    times = []
    for _ in range(runs):
        home = Home(build)
        home.logs.mkdir(parents=True, mode=0o700)
        os.mkfifo(home.today(), 0o600)
        agent = Agent(home.socket)
        host = home.start()
        feed(host, b"through a fifo", 3)
        time.sleep(random.uniform(0, 4))
        times.append(exit_seconds(host))
        agent.close()
    print(f"fifo: exit {min(times):.2f} to {max(times):.2f} s after the input closed, {runs} runs")


def rss_kib(pid):
    return int(subprocess.run(["ps", "-o", "rss=", "-p", str(pid)], capture_output=True,
                              text=True).stdout or 0)


def memory_while_agent_never_reads(build, seconds=60, size=100000):
    """Peak memory while the agent accepts and never reads, frames of `size` bytes."""
    home = Home(build)
    agent = Agent(home.socket, reads=False)
    host = home.start()
    threading.Thread(target=feed, args=(host, b"m" * size, 100000), daemon=True).start()
    begun, samples = time.monotonic(), []
    while time.monotonic() - begun < seconds:
        time.sleep(10)
        samples.append((time.monotonic() - begun, rss_kib(host.pid) / 1024))
    host.kill()
    host.wait()
    agent.close()
    print("memory, agent never reads, frames of %d B: " % size +
          ", ".join(f"{mib:.0f} MiB at {t:.0f} s" for t, mib in samples))


def log_rate(build, seconds=20, size=1 << 20):
    """Log bytes per second while the host forwards frames of `size` bytes without pause."""
    home = Home(build)
    agent = Agent(home.socket)
    host = home.start()
    threading.Thread(target=feed, args=(host, b"r" * size, 100000), daemon=True).start()
    time.sleep(seconds)
    written = sum(p.stat().st_size for p in home.logs.glob("*.log"))
    host.kill()
    host.wait()
    agent.close()
    print(f"log rate, frames of {size} B: {written / seconds / 2**20:.1f} MiB/s, "
          f"{written / seconds * 86400 / 2**40:.2f} TiB a day")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: bench/logFaults.py BUILD_DIR")
    for case in (concurrent_hosts, killed_hosts, planted, fifo_exit,
                 memory_while_agent_never_reads, log_rate):
        case(sys.argv[1])
