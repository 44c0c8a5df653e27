#!/usr/bin/env python3
"""Pixel durability: no acknowledged pixel is ever lost, whatever moment an rkv process dies.

    scripts/pixel-durability.py --rkv build/tools/rkv/rkv [--pixels 3000] [--kills 24] [--seed N]

A loopback HTTP server (answering 204) records every request path. The script adds pixels with
unique URLs through `rkv pixels add` in batches and runs `rkv pixels flush` rounds, killing rkv
processes with SIGKILL at random moments (while loading, adding, sending or saving), alone or
while a second rkv command runs on the same data folder. A killed add is retried, as a caller
would. After a last clean flush, every pixel of an add that exited with 0 must have reached the
server or still be pending: zero lost. A pixel may reach the server twice after a kill.

Two commands that run at once and both finish (two adds, an add during a flush) must both keep
their pixels; the tool's data-folder lock is what makes them take turns.

Exit status 0 when nothing was lost, 1 otherwise (each lost URL is named).
"""

import argparse
import http.server
import json
import os
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time


class Recorder(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"  # keep-alive, as the library's session reuses connections
    received = {}  # path -> times
    lock = threading.Lock()

    def do_GET(self):
        with Recorder.lock:
            Recorder.received[self.path] = Recorder.received.get(self.path, 0) + 1
        self.send_response(204)
        self.send_header("Content-Length", "0")
        self.end_headers()

    def log_message(self, *args):
        pass


class QuietServer(http.server.ThreadingHTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        # A killed rkv resets its connections: expected here.
        if not isinstance(sys.exc_info()[1], ConnectionError):
            super().handle_error(request, client_address)


class Harness:
    def __init__(self, rkv, data_dir, rng):
        self.rkv = rkv
        self.data_dir = data_dir
        self.rng = rng
        self.env = dict(os.environ)
        for name in ("http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy",
                     "ALL_PROXY"):
            self.env.pop(name, None)
        self.env["no_proxy"] = self.env["NO_PROXY"] = "127.0.0.1,localhost"
        self.acknowledged = set()
        self.durations = {"add": 0.05, "flush": 0.2}  # running estimates, seconds
        self.kills = {"add": 0, "flush": 0}
        self.kill_fractions = []
        self.save_kills = 0
        self.runs = 0

    def start(self, kind, args, stdin_text=None):
        command = [self.rkv, "--data-dir", self.data_dir, "pixels"] + args
        process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, env=self.env)
        # A batch is a few kilobytes: it fits in the pipe, so writing never blocks.
        try:
            process.stdin.write((stdin_text or "").encode())
            process.stdin.close()
        except (BrokenPipeError, OSError):
            pass
        process.stdin = None
        return {"kind": kind, "process": process, "started": time.monotonic()}

    def wal_state(self):
        try:
            info = os.stat(os.path.join(self.data_dir, "defaults.sqlite-wal"))
            return (info.st_size, info.st_mtime_ns)
        except FileNotFoundError:
            return None

    def finish(self, run, kill_after=None):
        """Waits for the run and answers its exit status. `kill_after`: None lets it finish; a
        number of seconds kills it then; "save" kills it as soon as the store's write-ahead log
        changes, that is in the middle of writing the list back."""
        process = run["process"]
        if kill_after == "save":
            before = self.wal_state()
            while process.poll() is None:
                now = self.wal_state()
                if now is not None and now != before and now[0] > 0:
                    process.send_signal(signal.SIGKILL)
                    break
        elif kill_after is not None:
            try:
                process.wait(timeout=kill_after)
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGKILL)
        out, err = process.communicate()
        self.runs += 1
        elapsed = time.monotonic() - run["started"]
        kind = run["kind"]
        if process.returncode == -signal.SIGKILL:
            self.kills[kind] += 1
            if kill_after == "save":
                self.save_kills += 1
            else:
                self.kill_fractions.append(kill_after / max(self.durations[kind], 1e-3))
        elif process.returncode == 0:
            self.durations[kind] = 0.7 * self.durations[kind] + 0.3 * elapsed
        run["out"], run["err"] = out.decode(errors="replace"), err.decode(errors="replace")
        return process.returncode

    def add(self, urls, kill_after=None):
        run = self.start("add", ["add", "-"], "\n".join(urls) + "\n")
        status = self.finish(run, kill_after)
        if status == 0:
            self.acknowledged.update(urls)
        elif status != -signal.SIGKILL:
            raise SystemExit("rkv pixels add failed with %d: %s" % (status, run["err"]))
        return status

    def flush(self, kill_after=None):
        run = self.start("flush", ["flush", "--json"])
        status = self.finish(run, kill_after)
        if status not in (0, -signal.SIGKILL):
            raise SystemExit("rkv pixels flush failed with %d: %s" % (status, run["err"]))
        return status, (json.loads(run["out"]) if status == 0 else None)

    def kill_moment(self, kind):
        # One time in three, while the list is written back; else anywhere from the start to a
        # little past the usual end: while the process loads the list, works, or saves it.
        if self.rng.random() < 1 / 3:
            return "save"
        return self.rng.uniform(0.0, 1.2 * self.durations[kind])

    def pending(self):
        out = subprocess.run([self.rkv, "--data-dir", self.data_dir, "pixels", "list", "--json"],
                             check=True, capture_output=True, env=self.env).stdout
        return [pixel["url"] for pixel in json.loads(out)["pixels"]]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--rkv", required=True, help="the rkv tool")
    parser.add_argument("--pixels", type=int, default=3000)
    parser.add_argument("--batch", type=int, default=50)
    parser.add_argument("--kills", type=int, default=40, help="SIGKILLs to land, at least")
    parser.add_argument("--seed", type=int, default=None)
    options = parser.parse_args()
    seed = options.seed if options.seed is not None else random.randrange(1 << 30)
    rng = random.Random(seed)
    print("pixel durability: seed %d" % seed, flush=True)

    server = QuietServer(("127.0.0.1", 0), Recorder)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    base = "http://127.0.0.1:%d" % server.server_address[1]

    with tempfile.TemporaryDirectory(prefix="rkv-durability-") as data_dir:
        harness = Harness(options.rkv, data_dir, rng)
        urls = ["%s/p/%d" % (base, n) for n in range(options.pixels)]
        batches = [urls[i:i + options.batch] for i in range(0, len(urls), options.batch)]
        concurrent_checks = 0
        started = time.monotonic()

        def total_kills():
            return harness.kills["add"] + harness.kills["flush"]

        # First, two commands at once, neither killed: two adds, then an add during a flush
        # (of pixels already there, so that it lasts). Both must finish and keep their pixels;
        # "waiting" on stderr shows that one did wait for the other's lock.
        waits = 0
        for pair in ("add+add", "flush+add"):
            if pair == "flush+add":
                if harness.add(batches.pop(0)) != 0:
                    raise SystemExit("an add failed")
                first_batch = []
                first = harness.start("flush", ["flush", "--json"])
            else:
                first_batch = batches.pop(0)
                first = harness.start("add", ["add", "-"], "\n".join(first_batch) + "\n")
            time.sleep(0.005)
            second_batch = batches.pop(0)
            second = harness.start("add", ["add", "-"], "\n".join(second_batch) + "\n")
            for run in (first, second):
                if harness.finish(run) != 0:
                    raise SystemExit("rkv pixels %s failed: %s" % (run["kind"], run["err"]))
                waits += "waiting for another rkv command" in run["err"]
            expected = set(first_batch) | set(second_batch)
            harness.acknowledged.update(expected)
            with Recorder.lock:
                reached = {base + path for path in Recorder.received}
            missing = expected - reached - set(harness.pending())
            if missing:
                raise SystemExit("%s: %d pixels lost, e.g. %s" % (pair, len(missing), min(missing)))
            concurrent_checks += 1
        print("pixel durability: two adds at once and an add during a flush kept every pixel "
              "(%d of the 4 commands waited for the lock)" % waits, flush=True)

        # Random work until every batch is acknowledged and enough kills landed, both kinds.
        steps = 0
        while (batches or total_kills() < options.kills or min(harness.kills.values()) < 5
               or harness.save_kills < 5):
            steps += 1
            if steps > 2000:
                raise SystemExit("no progress after 2000 steps")
            choice = rng.random()
            if batches and choice < 0.45:
                # An add, killed one time in two.
                kill = harness.kill_moment("add") if rng.random() < 0.5 else None
                if harness.add(batches[0], kill) == 0:
                    batches.pop(0)
            elif choice < 0.75:
                kill = harness.kill_moment("flush") if rng.random() < 0.5 else None
                harness.flush(kill)
            elif batches:
                # Two commands at once on one data folder, one of them maybe killed.
                second_is_flush = len(batches) < 2 or rng.random() < 0.5
                first = harness.start("add", ["add", "-"], "\n".join(batches[0]) + "\n")
                time.sleep(rng.uniform(0.0, 0.02))
                if second_is_flush:
                    second = harness.start("flush", ["flush", "--json"])
                else:
                    second = harness.start("add", ["add", "-"], "\n".join(batches[1]) + "\n")
                victim = rng.choice([None, first, second])
                statuses = []
                for run, batch in ((first, batches[0]),
                                   (second, None if second_is_flush else batches[1])):
                    kill = harness.kill_moment(run["kind"]) if run is victim else None
                    status = harness.finish(run, kill)
                    statuses.append(status)
                    if status not in (0, -signal.SIGKILL):
                        raise SystemExit("rkv pixels %s failed with %d: %s"
                                         % (run["kind"], status, run["err"]))
                    if status == 0 and batch is not None:
                        harness.acknowledged.update(batch)
                if victim is None:
                    concurrent_checks += 1
                done = [b for b, s in ((batches[0], statuses[0]),
                                       (None if second_is_flush else batches[1], statuses[1]))
                        if b is not None and s == 0]
                batches = [b for b in batches if b not in done]
            else:
                kill = harness.kill_moment("flush")
                harness.flush(kill)

        before_final = harness.pending()
        status, report = harness.flush()
        if status != 0:
            raise SystemExit("the final flush failed")
        left = set(harness.pending())
        elapsed = time.monotonic() - started
        corrupt = [name for name in os.listdir(data_dir) if ".corrupt-" in name]

    server.shutdown()
    with Recorder.lock:
        received = dict(Recorder.received)
    reached = {base + path for path in received}
    lost = sorted(harness.acknowledged - reached - left, key=lambda url: int(url.rsplit("/", 1)[1]))
    twice = sum(1 for times in received.values() if times > 1)
    fractions = sorted(harness.kill_fractions)
    print("pixel durability: %d runs in %.1f s; %d SIGKILLs (%d adds, %d flushes): %d while the "
          "list was being written, the others at %.2f..%.2f of a usual run; %d concurrent pairs "
          "finished both"
          % (harness.runs, elapsed, total_kills(), harness.kills["add"], harness.kills["flush"],
             harness.save_kills, fractions[0] if fractions else 0,
             fractions[-1] if fractions else 0, concurrent_checks))
    print("pixel durability: %d acknowledged, %d reached the server (%d more than once), %d "
          "pending before the last flush, %d sent by it, %d left, %d lost"
          % (len(harness.acknowledged), len(reached), twice, len(before_final),
             len(report["sent"]), len(left), len(lost)))
    if corrupt:
        print("pixel durability: store files set aside as unreadable: %s" % corrupt)
    for url in lost[:50]:
        print("LOST %s" % url)
    ok = not lost and not corrupt and len(harness.acknowledged) == options.pixels
    if len(harness.acknowledged) != options.pixels:
        print("pixel durability: only %d of %d pixels were acknowledged"
              % (len(harness.acknowledged), options.pixels))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
