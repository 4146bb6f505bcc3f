#!/usr/bin/env python3
"""A scan of a realistic list on a paced line, against its wire floor.

rvpoll polls rvsim, which takes each request and sends each reply at the
line's baud rate after a turnaround, optionally in pieces as a USB adapter
hands them over. The list is a panel's: 50 runs of 10 registers spread
over D (about 50 frames) and 256 bits of M, with distinct values in every
register, as process data has.

The floor of one scan is what the line itself costs: the sum over its
frames of (request + reply bytes) x bits per character / baud + the
controller's turnaround + 3.5 characters of silence (1.75 ms above 19200
baud). rvpoll's own frames and replies, read off its -v trace, give the
bytes; its JSON gives each scan's time.

  bench/paced_scan.py --build DIR [--bauds 9600,115200] [--scans N]
                      [--turnaround-ms T] [--pieces BYTES,MS] [--json FILE]

With --equal-values it compares instead, side by side in one run, a
controller whose D0-D1023 all hold 0 (unused registers do) with one whose
registers all differ: frames of the first scan, frames and time of each
later scan.
"""

import argparse
import json
import os
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time

BITS = 11  # 8E1


def variables():
    regs = ["D%d-D%d" % (100 * k, 100 * k + 9) for k in range(50)]
    return regs + ["M0-M255"]


def presets():
    # Every register its own value: blocks of equal replies are rare in
    # process data, and a repeated reply costs a second asking.
    return "".join("D%d=%d\n" % (100 * k + i, 100 * k + i + 1) for k in range(50)
                   for i in range(10))


def gap_ms(baud):
    return 1.75 if baud > 19200 else 3.5 * BITS * 1000.0 / baud


def measure(build, baud, scans, turnaround, pieces, names=None, values=None):
    link = "/tmp/rv-paced-%d" % os.getpid()
    data = tempfile.NamedTemporaryFile("w", suffix=".rv", delete=False)
    data.write(presets() if values is None else values)
    data.close()
    sim_args = [os.path.join(build, "sim/rvsim"), "--link", link, "--data", data.name,
                "--baud", str(baud), "--turnaround-ms", str(turnaround), "--quiet"]
    if pieces:
        sim_args += ["--pieces", pieces]
    sim = subprocess.Popen(sim_args, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    for _ in range(250):
        if os.path.exists(link):
            break
        time.sleep(0.02)
    poll = subprocess.run(
        [os.path.join(build, "host/rvpoll"), "--lib",
         os.path.join(build, "libQuorvel_RV_Series.so.1"), "--port", link, "--baud", str(baud),
         "--json", "-v", "--scans", str(scans), "--interval-ms", "0"] + (names or variables()),
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=600)
    sim.send_signal(signal.SIGTERM)
    sim.wait()
    os.unlink(data.name)
    lines = [json.loads(l) for l in poll.stdout.splitlines()]
    if poll.returncode != 0 or len(lines) != scans:
        sys.exit("paced_scan: rvpoll failed (%d):\n%s" % (poll.returncode, poll.stderr[-2000:]))
    frames = sent = received = 0
    for line in poll.stderr.splitlines():
        if re.search(r" ms \[", line):
            frames += 1
            sent += line.count("[")
        elif re.search(r" ms <", line):
            received += line.count("<")
    per_scan = frames / scans
    floor = ((sent + received) / scans * BITS * 1000.0 / baud +
             per_scan * (turnaround + gap_ms(baud)))
    # The first scan also opens the line; the rest are alike.
    measured = statistics.median(l["scan_ms"] for l in lines[1:] or lines)
    return {"baud": baud, "frames": per_scan, "bytes": (sent + received) / scans,
            "floor_ms": floor, "scan_ms": measured, "ratio": measured / floor,
            "pause_per_frame_ms": (measured - floor) / per_scan, "pieces": pieces or "",
            "frames_total": frames}


def equal_values(build, baud, scans, turnaround):
    """D0-D1023 all 0 against all different: the first scan's frames, then
    each later scan's frames and time."""
    rows = []
    for kind, values in (("all 0", "D0-D1023=0\n"),
                         ("all different", "".join("D%d=%d\n" % (i, i + 1) for i in range(1024)))):
        one = measure(build, baud, 1, turnaround, "", ["D0-D1023"], values)
        many = measure(build, baud, scans, turnaround, "", ["D0-D1023"], values)
        rows.append({"baud": baud, "values": kind, "first_scan_frames": one["frames_total"],
                     "later_scan_frames": (many["frames_total"] - one["frames_total"]) /
                     (scans - 1), "later_scan_ms": many["scan_ms"]})
    return rows


def scan_cost(build, baud, stations):
    """One setting of a commissioning scan on a line where nobody answers:
    its time against what the line must take (each request's wire time, the
    timeout fitted to the baud rate, the gap)."""
    master, slave = os.openpty()
    start = time.monotonic()
    run = subprocess.run(
        [os.path.join(build, "host/rvpoll"), "--lib",
         os.path.join(build, "libQuorvel_RV_Series.so.1"), os.ttyname(slave), "--scan",
         "--scan-bauds", str(baud), "--scan-parities", "even", "--scan-stations",
         "1-%d" % stations, "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
        text=True, timeout=600)
    seconds = time.monotonic() - start
    os.close(master)
    os.close(slave)
    if run.returncode != 1:
        sys.exit("paced_scan: the scan of an empty line did not end in 1:\n" + run.stderr)
    request_ms = 8 * BITS * 1000.0 / baud
    timeout_ms = -(-(15 * BITS * 1000) // baud) + 50  # rvpoll's fitted timeout
    floor = stations * (request_ms + timeout_ms + gap_ms(baud)) / 1000.0
    return {"baud": baud, "stations": stations, "seconds": seconds, "floor_s": floor,
            "default_scan_s": 3 * seconds}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", required=True)
    parser.add_argument("--bauds", default="9600,115200")
    parser.add_argument("--scans", type=int, default=5)
    parser.add_argument("--turnaround-ms", type=int, default=5)
    parser.add_argument("--pieces", default="")
    parser.add_argument("--json")
    parser.add_argument("--scan-stations", type=int, default=0,
                        help="instead: time one setting of a scan of this many stations")
    parser.add_argument("--equal-values", action="store_true",
                        help="instead: D0-D1023 all 0 against all different")
    args = parser.parse_args()
    if args.equal_values:
        results = []
        print("baud    values          first scan frames  later scan frames  later scan ms")
        for b in args.bauds.split(","):
            for r in equal_values(args.build, int(b), max(args.scans, 2), args.turnaround_ms):
                results.append(r)
                print("%-7d %-15s %17d %18.1f %14.1f" % (r["baud"], r["values"],
                                                         r["first_scan_frames"],
                                                         r["later_scan_frames"],
                                                         r["later_scan_ms"]), flush=True)
        if args.json:
            with open(args.json, "w") as f:
                json.dump(results, f, indent=1)
        return
    if args.scan_stations:
        results = [scan_cost(args.build, int(b), args.scan_stations) for b in args.bauds.split(",")]
        print("baud    stations  one setting s  its floor s  default scan (3 parities) s")
        for r in results:
            print("%-7d %8d %14.1f %12.1f %14.0f" % (r["baud"], r["stations"], r["seconds"],
                                                  r["floor_s"], r["default_scan_s"]))
        if args.json:
            with open(args.json, "w") as f:
                json.dump(results, f, indent=1)
        return
    results = []
    print("baud    frames  bytes   floor ms  scan ms  ratio  above floor per frame ms%s" %
          ("  (pieces %s)" % args.pieces if args.pieces else ""))
    for baud in [int(b) for b in args.bauds.split(",")]:
        r = measure(args.build, baud, args.scans, args.turnaround_ms, args.pieces)
        results.append(r)
        print("%-7d %6.1f %6.0f %10.1f %8.1f %6.3f %10.2f" %
              (baud, r["frames"], r["bytes"], r["floor_ms"], r["scan_ms"], r["ratio"],
               r["pause_per_frame_ms"]), flush=True)
    if args.json:
        with open(args.json, "w") as f:
            json.dump(results, f, indent=1)


if __name__ == "__main__":
    main()
