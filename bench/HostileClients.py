#!/usr/bin/env python3
"""Hostile local clients against a real `tidewick app --headless`.

While 2,000 idle connections sit on the hook and control sockets, half on each
(reconnecting whenever the application closes one), and 8 connections keep
sending 16 MiB lines (to the hook socket dense payloads with the right secret and
long strings with a wrong one; to the control socket lines that never end), the
real `tidewick-hook` sends 100 events one after the other, 50 ms apart.
Reports the longest of those round trips (the hook command's whole run), how
many of the events the application recorded, and the application's peak
resident memory (VmHWM). Runs twice: with the descriptor limits this machine
gives, and with both limits at 1,024, where the application cannot raise its
soft limit and must make room itself.

Usage: bench/HostileClients.py [bin directory, default build/release/bin]
"""

import json
import os
import resource
import shutil
import socket
import subprocess
import sys
import tempfile
import threading
import time

IDLE = 2000
FLOODERS = 8
EVENTS = 100
LINE_BYTES = 16 * 1024 * 1024


def raise_own_limit():
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))


def vm_field(pid, name):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith(name + ":"):
                return int(line.split()[1])  # kB
    return 0


def connect(path):
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    client.connect(path)
    return client


class Idle(threading.Thread):
    """Keeps IDLE connections open that never send a byte, spread over `paths`."""

    def __init__(self, paths, stop):
        super().__init__(daemon=True)
        self.paths, self.stop, self.sockets, self.reconnects = paths, stop, [], 0
        self.opened = 0

    def fill(self):
        while len(self.sockets) < IDLE:
            try:
                self.sockets.append(connect(self.paths[self.opened % len(self.paths)]))
                self.opened += 1
            except OSError:
                time.sleep(0.01)

    def run(self):
        while not self.stop.is_set():
            alive = []
            for s in self.sockets:
                s.setblocking(False)
                try:
                    closed = s.recv(1) == b""
                except BlockingIOError:
                    closed = False
                except OSError:
                    closed = True
                if closed:
                    s.close()
                    self.reconnects += 1
                else:
                    alive.append(s)
            self.sockets = alive
            self.fill()
            self.stop.wait(0.2)
        for s in self.sockets:
            s.close()


class Flooder(threading.Thread):
    """Sends 16 MiB lines, one connection after another, as fast as the application takes
    them; counts the lines sent whole and every byte it got into the socket."""

    CHUNK = 1024 * 1024

    def __init__(self, path, line, stop):
        super().__init__(daemon=True)
        self.path, self.line, self.stop = path, memoryview(line), stop
        self.sent, self.bytes = 0, 0

    def run(self):
        while not self.stop.is_set():
            try:
                with connect(self.path) as s:
                    s.settimeout(1)
                    at = 0
                    while at < len(self.line) and not self.stop.is_set():
                        try:
                            done = s.send(self.line[at:at + self.CHUNK])
                        except socket.timeout:
                            continue
                        at += done
                        self.bytes += done
                    if at == len(self.line):
                        self.sent += 1
                        s.recv(1)
            except OSError:
                time.sleep(0.005)


def flood_lines(secret, hook, control):
    """(socket path, line) of each flooder."""
    def head(secret):
        text = json.dumps({"v": 1, "secret": secret, "agent": "claude", "event": "PreToolUse"})
        return text[:-1] + ',"payload":'

    # Millions of tiny values with the right secret: decoding them would take tens of
    # times the line's size.
    start = head(secret) + '{"a":['
    dense = (start + ",".join(["0"] * ((LINE_BYTES - len(start) - 4) // 2)) + "]}}\n").encode()
    # One long string with a wrong secret.
    start = head("0" * len(secret)) + '{"content":"'
    stranger = (start + "x" * (LINE_BYTES - len(start) - 4) + '"}}\n').encode()
    # A line that never ends.
    endless = b"[" * LINE_BYTES
    return [(hook, dense)] * 4 + [(hook, stranger)] * 2 + [(control, endless)] * 2


def run(bin_dir, hard_limit):
    home = tempfile.mkdtemp(prefix="tidewick-hostile-")
    env = {"TIDEWICK_HOME": home, "HOME": home, "PATH": "/usr/bin:/bin"}
    limit = (lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (hard_limit, hard_limit))) \
        if hard_limit else None
    log = open(os.path.join(home, "app.log"), "w")
    app = subprocess.Popen([os.path.join(bin_dir, "tidewick"), "app", "--headless"], env=env,
                           stdout=log, stderr=subprocess.STDOUT, preexec_fn=limit)
    stop = threading.Event()
    threads = []
    try:
        sock = control = None
        for _ in range(200):
            with open(os.path.join(home, "app.log")) as text:
                line = text.read()
            if "Hook socket: " in line:
                sock = line.split("Hook socket: ")[1].split(";")[0]
                control = line.split("control socket: ")[1].split(". Stop")[0]
                break
            time.sleep(0.05)
        if not sock:
            raise SystemExit("tidewick app did not start")
        secret = open(os.path.join(home, "Library/Application Support/Tidewick/secret")).read()

        idle = Idle([sock, control], stop)
        idle.fill()
        flooders = [Flooder(path, line, stop)
                    for path, line in flood_lines(secret.strip(), sock, control)]
        threads = [idle] + flooders
        for t in threads:
            t.start()
        time.sleep(1)  # the flood under way

        trips = []
        for i in range(EVENTS):
            payload = json.dumps({"hook_event_name": "UserPromptSubmit", "session_id": "legit",
                                  "cwd": home, "prompt": f"event {i}"})
            start = time.monotonic()
            subprocess.run([os.path.join(bin_dir, "tidewick-hook"), "--agent", "claude",
                            "--event", "UserPromptSubmit"], input=payload.encode(), env=env,
                           stdout=subprocess.DEVNULL, check=True)
            trips.append(time.monotonic() - start)
            time.sleep(0.05)  # spread over several seconds of flooding
        rss_now = vm_field(app.pid, "VmRSS")
        stop.set()
        for t in threads:
            t.join(timeout=5)
        time.sleep(0.5)
        activity = os.path.join(home, "Library/Application Support/Tidewick/activity.jsonl")
        recorded = sum(1 for l in open(activity) if '"userPrompt"' in l)
        peak = vm_field(app.pid, "VmHWM")
        sent = sum(f.sent for f in flooders)
        flooded = sum(f.bytes for f in flooders) / (1024 * 1024)
        limits = f"hard limit {hard_limit}" if hard_limit else "this machine's limits"
        print(f"{limits}: {IDLE} idle hook and control connections ({idle.reconnects} closed "
              f"by the application and reopened), {FLOODERS} flooders sent {flooded:.0f} MiB "
              f"({sent} lines of 16 MiB whole)")
        print(f"  legitimate round trips: max {max(trips) * 1000:.0f} ms, "
              f"median {sorted(trips)[len(trips) // 2] * 1000:.0f} ms; "
              f"{recorded} of {EVENTS} events recorded")
        print(f"  application resident memory: peak {peak / 1024:.0f} MiB "
              f"(at the end of the run {rss_now / 1024:.0f} MiB)")
    finally:
        stop.set()
        app.terminate()
        try:
            app.wait(timeout=20)
        except subprocess.TimeoutExpired:
            app.kill()
        shutil.rmtree(home, ignore_errors=True)


def main():
    bin_dir = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/release/bin")
    raise_own_limit()
    run(bin_dir, None)
    run(bin_dir, 1024)


if __name__ == "__main__":
    main()
