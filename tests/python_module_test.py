"""The Python module tavo_hdr against the tool tavo-hdr (TAVO_HDR_TOOL) and the
library's own log; run by ctest with PYTHONPATH at the build tree."""

import os
import subprocess
import tempfile
import unittest

import numpy as np

import tavo_hdr


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
            for what, given in (("1-D", [f.ravel() for f in frames]), ("2-D", frames), ("stacked", np.stack(frames))):
                with self.subTest(layout=layout, frames=what):
                    out = tavo_hdr.fuse(given, width, height, layout)
                    self.assertEqual(out.shape, given[0].shape)
                    self.assertTrue(np.array_equal(out.ravel(), expected))

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
        os.environ["TAVO_HDR_LOG"] = "quiet"  # the module's own log file takes its place during a capture
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
                tavo_hdr.set_stop_flag(stop)
                try:
                    with self.assertRaisesRegex(error, message):
                        tavo_hdr.fuse(bracket(64, 48, 1), 64, 48)
                finally:
                    tavo_hdr.set_stop_flag(0)
                    for key in env:
                        del os.environ[key]
                self.assertEqual(os.environ["TAVO_HDR_LOG"], "quiet")

    def test_raw_files_and_dumps(self):
        frames = bracket(64, 48, 2)
        base = self.path("IMG_64x48YVU420_SEMIPLANAR_20240101_120000")
        for k, frame in enumerate(frames):
            tavo_hdr.write_raw(f"{base}_{k}.yuv", frame)
        read, width, height, layout = tavo_hdr.read_capture(base)
        self.assertEqual((width, height, layout), (64, 48, "YVU420_SEMIPLANAR"))
        self.assertTrue(all(np.array_equal(got, frame) for got, frame in zip(read, frames)))
        refusals = [
            ("an input", lambda: tavo_hdr.write_raw(f"{base}_0.yuv", frames[2]), OSError),
            ("not a dump name", lambda: tavo_hdr.read_dump(self.path("new.yuv")), ValueError),
        ]
        for what, call, error in refusals:
            with self.subTest(what), self.assertRaises(error):
                call()
        self.assertTrue(np.array_equal(np.fromfile(f"{base}_0.yuv", np.uint8), frames[0].ravel()))


if __name__ == "__main__":
    unittest.main()
