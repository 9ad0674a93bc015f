#!/usr/bin/env python3
"""Throughput of zirk-probe against a peer (ffmpeg) and the floor (cat).

For each file, in one session, runs alternately and several times each:
  ours     zirk-probe FILE --samples --quiet      (open, read every sample of every track, discard)
  peer     ffmpeg -v error -i FILE -map 0 -c copy -f null -
  cat      cat FILE > /dev/null                   (reading the bytes once)
  open     zirk-probe FILE                        (open and list tracks only)
and prints medians of wall time and peak RSS, with the ratios ours/peer,
ours/cat and open/ours. Every run is measured by /usr/bin/time.
"""
import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

WMVA_ON = ["--prop", "media.tamelordecode.supportwmva=1"]
HERE = os.path.dirname(os.path.abspath(__file__))


def measure(cmd, stdout_path=os.devnull):
    """Runs cmd under /usr/bin/time; returns (wall seconds, peak RSS KiB).

    Wall time is taken around the whole run with a monotonic clock (to the
    millisecond; /usr/bin/time itself only resolves 10 ms) and includes the
    few hundred microseconds /usr/bin/time adds, the same for every command.
    """
    with tempfile.NamedTemporaryFile(mode="r", suffix=".time") as t, open(stdout_path, "w") as out:
        full = ["/usr/bin/time", "-f", "%e %M", "-o", t.name] + cmd
        start = time.perf_counter()
        rc = subprocess.run(full, stdout=out, stderr=subprocess.PIPE).returncode
        wall = time.perf_counter() - start
        if rc != 0:
            sys.exit("command failed (%d): %s" % (rc, " ".join(cmd)))
        rss = t.read().split()[-1]
        return wall, int(rss)


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("files", nargs="+")
    ap.add_argument("--probe", default=os.path.join(HERE, "..", "build-release", "tools", "zirk-probe"))
    ap.add_argument("--runs", type=int, default=5, help="runs of each command per file (default 5)")
    ap.add_argument("--probe-args", default="", help="extra zirk-probe arguments, e.g. '--cache off'")
    args = ap.parse_args()

    rows = []
    for f in args.files:
        # ASF's Windows Media streams are read with the property that shows them.
        extra = args.probe_args.split() + (WMVA_ON if f.endswith((".asf", ".wma", ".wmv")) else [])
        cmds = {
            "ours": [args.probe, f, "--samples", "--quiet"] + extra,
            "peer": ["ffmpeg", "-nostdin", "-v", "error", "-i", f, "-map", "0", "-c", "copy", "-f", "null", "-"],
            "cat": ["cat", f],
            "open": [args.probe, f] + extra,
        }
        # One warm-up of each, so that every measured run reads from the page cache.
        for c in cmds.values():
            measure(c)
        samples = {k: [] for k in cmds}
        for _ in range(args.runs):
            for k, c in cmds.items():
                samples[k].append(measure(c))
        med = {k: (statistics.median(w for w, _ in v), statistics.median(r for _, r in v)) for k, v in samples.items()}
        rows.append((os.path.basename(f), os.path.getsize(f), med))

    print("| file | MB | ours s | peer s | cat s | open s | ours/peer | ours/cat | open/ours "
          "| ours RSS MB | peer RSS MB | cat RSS MB |")
    print("|---|---|---|---|---|---|---|---|---|---|---|---|")
    for name, size, m in rows:
        ours, peer, cat, opn = m["ours"][0], m["peer"][0], m["cat"][0], m["open"][0]
        ratio = lambda a, b: ("%.2f" % (a / b)) if b > 0 else "n/a"
        print("| %s | %.0f | %.3f | %.3f | %.3f | %.3f | %s | %s | %s | %.1f | %.1f | %.1f |" % (
            name, size / 1e6, ours, peer, cat, opn, ratio(ours, peer), ratio(ours, cat), ratio(opn, ours),
            m["ours"][1] / 1024, m["peer"][1] / 1024, m["cat"][1] / 1024))
    print("\nmedians of %d runs each, alternating; wall time of each whole run (ms resolution), peak RSS by /usr/bin/time"
          % args.runs)


if __name__ == "__main__":
    main()
