"""The Python module tavo_hdr against the tool tavo-hdr (TAVO_HDR_TOOL) and the
library's own log; run by ctest with PYTHONPATH at the build tree."""

import json
import mmap
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import warnings

import distributed
import numpy as np

import tavo_hdr
import tavo_hdr.fleet


# The cluster's event loop of Debian's Dask warns of its own API's age.
warnings.filterwarnings("ignore", category=DeprecationWarning, module="tornado")


def bracket(width, height, seed):
    """Dark, normal and bright 2-D frames of one random scene."""
    normal = np.random.default_rng(seed).integers(16, 240, (height * 3 // 2, width), dtype=np.uint8)
    frames = [normal.copy() for _ in range(3)]
    for frame, gain in zip(frames, (0.25, 1.0, 4.0)):
        frame[:height] = np.clip(normal[:height] * gain, 0, 255).astype(np.uint8)
    return frames


class TavoHdrTest(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory()
        self.addCleanup(self.dir.cleanup)
        self.path = lambda name: os.path.join(self.dir.name, name)

    def test_fuse_gives_the_tools_bytes(self):
        tool = os.environ.get("TAVO_HDR_TOOL") or self.skipTest("tavo-hdr was not built")
        # Width and height differ so that a swap of the two shows.
        for width, height, layout in ((64, 48, "YUV420_PLANAR"), (40, 72, "YVU420_SEMIPLANAR")):
            frames = bracket(width, height, width)
            names = [self.path(f"{layout}_{k}.yuv") for k in range(3)]
            for k, name in enumerate(names):
                tavo_hdr.write_raw(name, frames[k])
            subprocess.run([tool, "fuse", *names, "-o", self.path("tool.yuv"), "--size", f"{width}x{height}",
                            "--layout", layout], check=True, capture_output=True)
            expected = np.fromfile(self.path("tool.yuv"), dtype=np.uint8)
            files = [open(name, "rb") for name in names]
            self.addCleanup(lambda: [f.close() for f in files])
            maps = [mmap.mmap(f.fileno(), 0, access=mmap.ACCESS_READ) for f in files]
            for what, given in (("1-D", [f.ravel() for f in frames]), ("2-D", frames), ("stacked", np.stack(frames)),
                                ("bytes", [f.tobytes() for f in frames]), ("bytearray", [bytearray(f) for f in frames]),
                                ("memoryview", [memoryview(f) for f in frames]), ("mmap", maps)):
                with self.subTest(layout=layout, frames=what):
                    out = tavo_hdr.fuse(given, width, height, layout)
                    self.assertEqual(out.shape, getattr(given[0], "shape", expected.shape))
                    self.assertTrue(np.array_equal(out.ravel(), expected))
            del out, given  # the arrays over the maps go before the maps
            for m in maps:
                m.close()

    def test_colour_conversion_follows_the_layout(self):
        rgb = np.zeros((2, 4, 3), np.uint8)
        rgb[:, :2] = (255, 0, 0)  # red, then blue: one chroma sample each
        rgb[:, 2:] = (0, 0, 255)
        for layout, chroma in (("YUV420_PLANAR", [85, 255, 255, 107]), ("YVU420_SEMIPLANAR", [255, 85, 107, 255])):
            with self.subTest(layout):
                yuv = tavo_hdr.rgb_to_yuv(rgb, layout)
                self.assertEqual(yuv.ravel().tolist(), [77, 77, 29, 29] * 2 + chroma)
                back = tavo_hdr.yuv_to_rgb(yuv, 4, 2, layout)
                self.assertTrue(np.array_equal(tavo_hdr.rgb_to_yuv(back, layout), yuv))

    def test_bad_arguments_raise(self):
        f = np.zeros(64 * 48 * 3 // 2, np.uint8)
        cases = [
            ("width not a multiple of 8", ([f, f, f], 60, 48), ValueError),
            ("odd height", ([f, f, f], 64, 47), ValueError),
            ("wrong size", ([f, f, f[:-1]], 64, 48), ValueError),
            ("not contiguous", ([f, f, np.zeros((72, 128), np.uint8)[:, ::2]], 64, 48), ValueError),
            ("not uint8", ([f, f, f.astype(np.int16)], 64, 48), TypeError),
            ("a buffer of int16", ([f, f, memoryview(f.astype(np.int16))], 64, 48), TypeError),
            ("not a buffer", ([f, f, "frame"], 64, 48), TypeError),
            ("two frames", ([f, f], 64, 48), TypeError),
            ("unknown layout", ([f, f, f], 64, 48, "NV12"), ValueError),
        ]
        for what, args, error in cases:
            with self.subTest(what), self.assertRaises(error):
                tavo_hdr.fuse(*args)

    def test_library_failures_raise_with_the_log(self):
        with open(self.path("hdr.prop"), "w") as p:
            p.write("saveinput=yes\n")
        missing = self.path("missing/dir")
        os.environ["TAVO_HDR_LOG"] = "quiet"  # the module's own log takes its place while the pool starts
        self.addCleanup(os.environ.pop, "TAVO_HDR_LOG", None)
        cases = [
            # A dump directory that does not exist fails the capture; the log names it.
            ({"TAVO_HDR_PROPERTIES": self.path("hdr.prop"), "TAVO_HDR_DUMP_DIR": missing}, 0, tavo_hdr.FusionError,
             missing),
            ({}, 1, tavo_hdr.Stopped, "stop flag"),
        ]
        for env, stop, error, message in cases:
            with self.subTest(error.__name__):
                os.environ.update(env)
                tavo_hdr.restart()  # the library reads its environment as the pool starts
                tavo_hdr.set_stop_flag(stop)
                try:
                    with self.assertRaisesRegex(error, message):
                        tavo_hdr.fuse(bracket(64, 48, 1), 64, 48)
                finally:
                    tavo_hdr.set_stop_flag(0)
                    for key in env:
                        del os.environ[key]
                    tavo_hdr.restart()
                self.assertEqual(os.environ["TAVO_HDR_LOG"], "quiet")

    def test_hosts_that_fork_or_interrupt(self):
        """Each case runs in a fresh interpreter: a hang there ends it at the
        time-out, a crash shows in its exit status, and what it leaves in its
        TMPDIR (nothing) is seen. (Threads that change the environment during
        captures: capture_test.cc.)"""
        setup = "import multiprocessing, os, signal, sys, threading, time, numpy as np, tavo_hdr\n" \
                "frames = [np.random.default_rng(k).integers(0, 256, 64 * 72, np.uint8) for k in range(3)]\n" \
                "def fuse(_=None):\n" \
                "    return tavo_hdr.fuse(frames, 64, 48).tobytes()\n"
        cases = {
            # Children forked after the parent fused (its pool running) fuse the same bytes; a child
            # of os.fork ends normally, through the module's exit handler.
            "fork": "expected = fuse()\n"
                    "with multiprocessing.get_context('fork').Pool(4) as pool:\n"
                    "    assert pool.map(fuse, range(4)) == [expected] * 4\n"
                    "pid = os.fork()\n"
                    "if pid == 0:\n"
                    "    sys.exit(0 if fuse() == expected else 3)\n"
                    "assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 0\n",
            # Ctrl-C during a long capture stops it at its next stage, through the stop flag, and
            # the next capture runs.
            "interrupt": "big = [np.full(4000 * 4500, 60 * (k + 1), np.uint8) for k in range(3)]\n"
                         "def ctrl_c():\n"
                         "    while not any(t.name == 'tavo_hdr capture' for t in threading.enumerate()):\n"
                         "        time.sleep(0.001)\n"
                         "    time.sleep(0.01)\n"
                         "    os.kill(os.getpid(), signal.SIGINT)\n"
                         "threading.Thread(target=ctrl_c).start()\n"
                         "try:\n"
                         "    tavo_hdr.fuse(big, 4000, 3000)\n"
                         "    sys.exit('not interrupted')\n"
                         "except KeyboardInterrupt:\n"
                         "    assert any('stop flag' in line for line in tavo_hdr.last_log()), tavo_hdr.last_log()\n"
                         "fuse()\n",
        }
        for what, body in cases.items():
            with self.subTest(what), tempfile.TemporaryDirectory() as tmp:
                env = dict(os.environ, TMPDIR=tmp)
                run = subprocess.run([sys.executable, "-c", setup + body], env=env, capture_output=True,
                                     text=True, timeout=120)
                self.assertEqual(run.returncode, 0, run.stderr)
                self.assertEqual(os.listdir(tmp), [])

    def test_raw_files_and_dumps(self):
        frames = bracket(64, 48, 2)
        # A directory whose name is not UTF-8, as os.listdir gives it: str with surrogate escapes.
        folder = self.path(os.fsdecode(b"caf\xe9"))
        os.mkdir(folder)
        for given in (str, os.fsencode, pathlib.Path):
            base = given(os.path.join(folder, "IMG_64x48YVU420_SEMIPLANAR_20240101_120000"))
            with self.subTest(type(base).__name__):
                name = os.fspath(base)
                for k, frame in enumerate(frames):
                    suffix = "_%d.yuv" % k
                    tavo_hdr.write_raw(name + (suffix if isinstance(name, str) else os.fsencode(suffix)), frame)
                read, width, height, layout = tavo_hdr.read_capture(base)
                self.assertEqual((width, height, layout), (64, 48, "YVU420_SEMIPLANAR"))
                self.assertTrue(all(np.array_equal(got, frame) for got, frame in zip(read, frames)))
                self.assertIsNone(tavo_hdr.dumped_output(base))
        precious = self.path("precious.txt")
        with open(precious, "w") as f:
            f.write("keep")
        loop = self.path("IMG_64x48YUV420_PLANAR_20240101_120000")
        for k in range(3):
            os.symlink(f"{loop}_{k}.yuv", f"{loop}_{k}.yuv")
        refusals = [
            ("NUL in a path", lambda: tavo_hdr.write_raw(precious + "\0.yuv", frames[2]), ValueError, None),
            ("missing file", lambda: tavo_hdr.read_raw(self.path("missing.yuv"), 64, 48), FileNotFoundError,
             self.path("missing.yuv")),
            ("frames that are symlink loops", lambda: tavo_hdr.read_capture(loop), OSError, f"{loop}_0.yuv"),
            ("a directory", lambda: tavo_hdr.write_raw(folder, frames[0]), IsADirectoryError, folder),
            ("not a dump name", lambda: tavo_hdr.read_dump(self.path("new.yuv")), ValueError, None),
            ("a 10-digit height", lambda: tavo_hdr.read_capture(self.path("IMG_64x4800000000YUV420_PLANAR_20240101_120000")),
             ValueError, None),
        ]
        for what, call, error, filename in refusals:
            with self.subTest(what), self.assertRaises(error) as raised:
                call()
            if filename is not None:
                self.assertEqual(raised.exception.filename, filename)
        with open(precious) as f:
            self.assertEqual(f.read(), "keep")
    def test_replay_compare_and_the_fleet_give_the_tools_records(self):
        tool = os.environ.get("TAVO_HDR_TOOL") or self.skipTest("tavo-hdr was not built")
        dumps = self.path("dumps")
        os.mkdir(dumps)
        for i, fate in enumerate(("identical", "different", "no_output")):
            layout = tavo_hdr.LAYOUTS[i % 2]
            base = os.path.join(dumps, f"IMG_64x48{layout}_20240101_12000{i}")
            frames = bracket(64, 48, i)
            for k, frame in enumerate(frames):
                tavo_hdr.write_raw(f"{base}_{k}.yuv", frame)
            phone = tavo_hdr.fuse(frames, 64, 48, layout)
            phone[7, 9] ^= 0x20 if fate == "different" else 0
            if fate != "no_output":
                tavo_hdr.write_raw(f"{base}_hdr.yuv", phone)
        subprocess.run([tool, "replay", dumps, "--out-dir", self.path("tool"), "--report", self.path("tool.jsonl")],
                       capture_output=True)
        with open(self.path("tool.jsonl")) as f:
            expected = [json.loads(line) for line in f][:-1]

        def same(record, reference, out_dir):
            """The record but for the time, with the files of `out_dir`."""
            self.assertEqual(os.path.dirname(record["result_file"]), out_dir)
            for name in ("result_file", "difference_picture"):
                if record[name] is not None:
                    with open(record[name], "rb") as a, open(reference[name], "rb") as b:
                        self.assertEqual(a.read(), b.read())
            drop = ("ms", "result_file", "difference_picture")
            self.assertEqual({k: v for k, v in record.items() if k not in drop},
                             {k: v for k, v in reference.items() if k not in drop})

        for reference in expected:
            with self.subTest(reference["status"]):
                same(tavo_hdr.replay(reference["path"], self.path("python")), reference, self.path("python"))
        different = expected[1]
        ours = tavo_hdr.read_raw(different["result_file"], 64, 48)
        phone = tavo_hdr.read_raw(different["dumped_output"], 64, 48)
        figures = tavo_hdr.compare(ours, phone, 64, 48, different["layout"])
        self.assertEqual(figures, {k: different[k] for k in ("bytes_differing", "first_difference", "planes")})

        # Two worker processes of one thread each, on disjoint cores.
        with distributed.LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                                      dashboard_address=None) as cluster, distributed.Client(cluster) as client:
            records = list(tavo_hdr.fleet.replay_all([r["path"] for r in expected], client, self.path("fleet")))
            bindings = client.run(lambda: open(os.environ["TAVO_HDR_PROPERTIES"]).readline())
        self.assertEqual(len(set(bindings.values())), 2, bindings)
        order = [r["path"] for r in expected]
        records.sort(key=lambda r: order.index(r["path"]))
        for record, reference in zip(records, expected):
            same(record, reference, self.path("fleet"))
        self.assertEqual(len(records), len(expected))


if __name__ == "__main__":
    unittest.main()
