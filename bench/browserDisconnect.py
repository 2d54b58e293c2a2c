#!/usr/bin/env python3
# What a user loses at a disconnect, with real browsers: the test extension posts N messages
# (5, 20, 50) and disconnects, at once or as soon as the first has reached the agent, five runs
# each. Prints, as the table in docs/reliability.md, how many reached the agent whole in each
# run. The browser sessions are the browser test's own (tests/browser/browserTest.py).
# Usage: bench/browserDisconnect.py BUILD_DIR
import collections, contextlib, itertools, json, sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "tests/browser"))
from browserTest import (BROWSERS, expect, host_pids, missing_tools, open_session, serialised,
                         wait_for)


# Prints how many messages reached the agent in each of five runs per count of messages posted,
# browser, and moment of the disconnect: at once, or once the first message reached the agent.
# Chromium may start the host late, or not at all, when the port is gone first, so messages
# carry their run's tag and are counted once every run has ended.
def disconnect_table(build_dir):
    counts, moments, runs = (5, 20, 50), (True, False), range(5)
    reached = collections.Counter()
    for browser in BROWSERS:
        with contextlib.ExitStack() as stack:
            session = open_session(browser, build_dir, stack)
            for count, at_once, run in itertools.product(counts, moments, runs):
                tag = f"{browser} {count} {at_once} {run}"
                messages = [{"run": tag, "message": index} for index in range(count)]
                session.commands.put({"connect": True, "post": messages, "disconnect": at_once})
                if not at_once:
                    wait_for(lambda: serialised(messages[0]) in session.frames,
                             "the first message at the agent")
                    session.commands.put({"disconnect": True})
                expect(session, "disconnected")
                wait_for(lambda: not host_pids(session.host), "the host to end")
            reached.update(json.loads(frame)["run"] for frame in session.frames)
    print("| Posted | Chromium, at once | Chromium, after the first | Firefox, at once "
          "| Firefox, after the first |\n|---|---|---|---|---|")
    for count in counts:
        cells = [", ".join(str(reached[f"{browser} {count} {at_once} {run}"]) for run in runs)
                 for browser, at_once in itertools.product(BROWSERS, moments)]
        print(f"| {count} | {' | '.join(cells)} |")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: bench/browserDisconnect.py BUILD_DIR")
    if missing := missing_tools(BROWSERS):
        sys.exit("Not installed (see scripts/prerequisites.sh): " + ", ".join(missing))
    disconnect_table(sys.argv[1])
