"""Replay throughput: captures a second of `tavo-hdr replay --jobs N` and of
tavo_hdr.fleet on a Dask LocalCluster, and how long indexing 100,000 dump
names takes.

    PYTHONPATH=build/host/python /usr/bin/python3 bench/replay_throughput.py build/host/tools/tavo-hdr [DIR]

The captures are one bracket of the synthetic scene's kind (random frames
fuse as slowly), dumped under many names as hard links, with the library's
output beside each: every capture reads its 3 x 1.5 bytes a pixel (from the
page cache after the first run), fuses them, writes its result and compares
it with the dumped output. Results are removed between runs.
"""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import distributed
import numpy as np

import tavo_hdr
import tavo_hdr.fleet


def dump_captures(folder, count, width, height):
    """`count` captures of one bracket under names a second apart; their paths."""
    os.makedirs(folder, exist_ok=True)
    rng = np.random.default_rng(1)
    normal = rng.integers(16, 240, width * height * 3 // 2, dtype=np.uint8)
    frames = [np.clip(normal * gain, 0, 255).astype(np.uint8) for gain in (0.25, 1.0, 4.0)]
    first = os.path.join(folder, "first")
    files = [f"{first}_{k}.yuv" for k in range(3)] + [f"{first}_hdr.yuv"]
    for path, frame in zip(files, frames + [tavo_hdr.fuse(frames, width, height)]):
        tavo_hdr.write_raw(path, frame)
    prefixes = []
    for i in range(count):
        prefix = os.path.join(folder, f"IMG_{width}x{height}YUV420_PLANAR_20240101_{i // 3600:02d}{i // 60 % 60:02d}{i % 60:02d}")
        for source, suffix in zip(files, ("_0.yuv", "_1.yuv", "_2.yuv", "_hdr.yuv")):
            os.link(source, prefix + suffix)
        prefixes.append(prefix)
    for path in files:
        os.unlink(path)
    return prefixes


def timed(run):
    start = time.perf_counter()
    run()
    return time.perf_counter() - start


def main():
    tool = sys.argv[1]
    work = tempfile.mkdtemp(prefix="tavo_replay_bench_", dir=sys.argv[2] if len(sys.argv) > 2 else None)
    try:
        for count, width, height in ((200, 1920, 1080), (20, 4000, 3000)):
            folder = os.path.join(work, f"{width}x{height}")
            prefixes = dump_captures(folder, count, width, height)
            out = os.path.join(work, "out")
            subprocess.run([tool, "replay", folder, "--jobs", "2", "--quiet", "--out-dir", out],
                           check=True, capture_output=True)  # the page cache warmed
            for jobs in (1, 2):
                shutil.rmtree(out)
                seconds = timed(lambda: subprocess.run([tool, "replay", folder, "--jobs", str(jobs), "--quiet",
                                                        "--out-dir", out], check=True, capture_output=True))
                print(f"{width}x{height}, {count} captures, --jobs {jobs}: {count / seconds:6.2f} captures/s")
            shutil.rmtree(out)
            with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                          dashboard_address=None) as cluster, distributed.Client(cluster) as client:
                seconds = timed(lambda: list(tavo_hdr.fleet.replay_all(prefixes, client, out)))
            print(f"{width}x{height}, {count} captures, Dask LocalCluster (2 workers): {count / seconds:6.2f} captures/s")
            shutil.rmtree(folder)
            shutil.rmtree(out)

        # 25,000 captures of 64x48 with their outputs: 100,000 names. The
        # first capture's line comes once the folder is indexed.
        folder = os.path.join(work, "names")
        dump_captures(folder, 25000, 64, 48)
        start = time.perf_counter()
        replay = subprocess.Popen([tool, "replay", folder, "--jobs", "1", "--quiet", "--out-dir",
                                   os.path.join(work, "out")], stdout=subprocess.PIPE,
                                  stderr=subprocess.DEVNULL, text=True)
        replay.stdout.readline()
        seconds = time.perf_counter() - start
        replay.send_signal(signal.SIGINT)  # it stops after the capture, its temporary files gone
        replay.communicate()
        print(f"100,000 dump names indexed, first capture replayed: {seconds:.2f} s")
    finally:
        shutil.rmtree(work)


if __name__ == "__main__":
    main()
