#!/usr/bin/python3
"""The Python package's speed, side by side in one run.

    /usr/bin/python3 bench/python_speed.py [--frames N] [--logs K] [--package DIR] [BUILD_DIR]

On a generated log of N frames (default 1,000,000) for a generated database
of 2,000 messages of 8 signals (made by tavloms_make_decode_input in
BUILD_DIR/bench, default build/release): Database.decode_log into
DataFrames (aim: 2 million frames per second), Database.decode frame by
frame (aim: 2 us a frame), Debian's python3-canmatrix decoding the same
frames (aim: 100 times slower than decode_log, when it is installed), and
tavloms.dask.decode_logs on a two-worker LocalCluster over K copies of the
log (default 8; 0 leaves it out), which must give what decoding them one by
one gives.
Exits 1 when an aim is missed.
"""

import argparse
import os
import subprocess
import sys
import time


def seconds(work, repeat=3):
    """The best of repeat runs of work(), and its last result."""
    best, result = float("inf"), None
    for _ in range(repeat):
        start = time.perf_counter()
        result = work()
        best = min(best, time.perf_counter() - start)
    return best, result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("build", nargs="?", default="build/release")
    parser.add_argument("--package", help="the folder holding the tavloms package to measure "
                        "(default: BUILD_DIR/python; an installed one: PREFIX/lib/python3/dist-packages)")
    parser.add_argument("--frames", type=int, default=1000000)
    parser.add_argument("--logs", type=int, default=8)
    arguments = parser.parse_args()
    build = arguments.build
    sys.path.insert(0, arguments.package or os.path.join(build, "python"))
    import numpy
    import pandas
    import tavloms
    print("tavloms from", os.path.dirname(tavloms.__file__))

    database = os.path.join(build, "bench", "generated-2000.dbc")
    log = os.path.join(build, "bench", "generated-%d.log" % arguments.frames)
    if not (os.path.exists(database) and os.path.exists(log)):
        subprocess.run([os.path.join(build, "bench", "tavloms_make_decode_input"), database, log,
                        str(arguments.frames)], check=True)
    db = tavloms.load(database)
    failed = False

    def report(what, value, aim, met):
        nonlocal failed
        failed |= not met
        print("%-42s %14s   aim %s%s" % (what, value, aim, "" if met else "   MISSED"))

    read, frames = seconds(lambda: tavloms.read_log(log))
    decoded, tables = seconds(lambda: db.decode_log(frames))
    n = len(frames["time"])
    rows = sum(len(t) for t in tables.values())
    report("read_log", "%.2f M frames/s" % (n / read / 1e6), "-", True)
    report("decode_log (read columns into DataFrames)", "%.2f M frames/s" % (n / decoded / 1e6),
           ">= 2 M", n / decoded >= 2e6)
    whole, _ = seconds(lambda: db.decode_log(log), repeat=1)
    report("decode_log from the log's path", "%.2f M frames/s" % (n / whole / 1e6), "-", True)
    assert rows == n, "every frame is of a known message"

    sample = min(n, 100000)
    calls = [(int(frames["frame_id"][k]), bytes(frames["data"][k][:frames["length"][k]]),
              bool(frames["is_extended"][k])) for k in range(sample)]
    each, _ = seconds(lambda: [db.decode(i, d, is_extended=x) for i, d, x in calls])
    report("decode, frame by frame", "%.2f us/frame" % (each / sample * 1e6), "<= 2 us",
           each / sample <= 2e-6)

    try:
        import canmatrix
        import canmatrix.formats
    except ImportError:
        print("canmatrix: python3-canmatrix is not installed; left out")
    else:
        matrix = canmatrix.formats.loadp_flat(database)
        by_id = {(f.arbitration_id.id, f.arbitration_id.extended): f for f in matrix.frames}
        few = calls[:min(sample, 20000)]
        other, _ = seconds(lambda: [by_id[(i, x)].decode(d) for i, d, x in few], repeat=1)
        per_frame = other / len(few)
        report("canmatrix frame decode", "%.1f us/frame" % (per_frame * 1e6), "-", True)
        report("  decode_log against it", "%.0f times faster" % (per_frame / (decoded / n)),
               ">= 100", per_frame / (decoded / n) >= 100)
        report("  decode against it", "%.1f times faster" % (per_frame / (each / sample)), "-", True)

    if arguments.logs == 0:
        return 1 if failed else 0
    import dask
    from dask.distributed import Client, LocalCluster
    from tavloms.dask import decode_logs
    cluster = LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=":0")
    with cluster, Client(cluster) as client:
        start = time.perf_counter()
        tables = decode_logs([log] * arguments.logs, database, client=client)
        first = next(iter(tables))
        tables[first].compute()  # after every log is decoded on the workers
        decoded_there = time.perf_counter() - start
        (computed,) = dask.compute(tables)
        spent = time.perf_counter() - start
    one = db.decode_log(log)
    same = all(computed[name].equals(pandas.concat([one[name]] * arguments.logs)) for name in one)
    same &= all(len(computed[name]) == 0 for name in computed if name not in one)
    report("decode_logs, 2 workers, %d logs, decoded" % arguments.logs,
           "%.2f M frames/s" % (arguments.logs * n / decoded_there / 1e6), "-", True)
    report("  every table computed to the client", "%.1f s" % spent, "same values", same)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
