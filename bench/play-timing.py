#!/usr/bin/env python3
"""How close to their offsets rkv play fires the quartiles of a 60 s ad.

Serves a 60-second inline ad and its pixels on a loopback server, runs `rkv play --json` at the
given speeds, and prints for each quartile (start, firstQuartile, midpoint, thirdQuartile,
complete):
  - sim: the simulated time of the JSON minus the quartile's offset (seconds);
  - real: when its pixel reached the server, minus when the impression's did (both fired at
    simulated 0 and sent through the same pixel rounds), minus offset / speed, in real seconds,
    and the same lateness in simulated seconds (real x speed).
A quartile fired early shows a negative lateness.

  bench/play-timing.py --rkv build/tools/rkv/rkv [--speeds 1,20]
"""
import argparse
import http.server
import json
import subprocess
import tempfile
import threading
import time

QUARTILES = [("start", 0), ("firstQuartile", 15), ("midpoint", 30), ("thirdQuartile", 45),
             ("complete", 60)]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rkv", required=True)
    parser.add_argument("--speeds", default="1,20")
    args = parser.parse_args()

    arrivals = {}

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            arrivals.setdefault(self.path.split("?")[0], time.monotonic())
            self.send_response(204)
            self.send_header("Content-Length", "0")
            self.end_headers()

        def log_message(self, *a):
            pass

    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    base = f"http://127.0.0.1:{server.server_address[1]}"

    for speed in [float(s) for s in args.speeds.split(",")]:
        arrivals.clear()
        tracking = "".join(f'<Tracking event="{name}"><![CDATA[{base}/{name}]]></Tracking>'
                           for name, _ in QUARTILES)
        vast = (f'<VAST version="4.0"><Ad id="timing"><InLine><AdSystem>B</AdSystem><AdTitle>T'
                f'</AdTitle><Impression><![CDATA[{base}/impression]]></Impression><Creatives>'
                f'<Creative><Linear><Duration>00:01:00</Duration><TrackingEvents>{tracking}'
                f'</TrackingEvents><MediaFiles><MediaFile delivery="progressive" type="video/mp4" '
                f'width="1280" height="720" bitrate="2000"><![CDATA[{base}/media.mp4]]>'
                f'</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad></VAST>')
        with tempfile.TemporaryDirectory() as folder:
            path = f"{folder}/ad.xml"
            with open(path, "w") as f:
                f.write(vast)
            out = subprocess.run([args.rkv, "--data-dir", folder, "play", "--json", "--speed",
                                  str(speed), path], capture_output=True, text=True, check=True)
        events = {e["event"]: e["t"] for e in json.loads(out.stdout)["events"]}
        zero = arrivals["/impression"]
        print(f"speed {speed:g}:")
        worst_late, worst_early = 0.0, 0.0
        for name, offset in QUARTILES:
            late = arrivals[f"/{name}"] - zero - offset / speed
            worst_late, worst_early = max(worst_late, late), min(worst_early, late)
            print(f"  {name:14} sim {events[name] - offset:+.3f} s   real {late * 1000:+7.1f} ms"
                  f"   ({late * speed:+.3f} simulated s)")
        print(f"  latest {worst_late * speed:+.3f} simulated s, earliest {worst_early * speed:+.3f}")
    server.shutdown()


if __name__ == "__main__":
    main()
