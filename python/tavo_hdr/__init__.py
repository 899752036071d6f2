"""Fusing, reading, writing and showing HDR captures with numpy.

A frame is a uint8 array of width*height*3/2 bytes, luma then chroma, either
1-D or shaped (height*3//2, width); the layout names how the chroma lies:
"YUV420_PLANAR" (U plane, then V plane) or "YVU420_SEMIPLANAR" (V,U pairs).

    frames, w, h, layout = tavo_hdr.read_capture("dumps/IMG_4000x3000YUV420_PLANAR_20180823_090812")
    hdr = tavo_hdr.fuse(frames, w, h, layout)
    rgb = tavo_hdr.yuv_to_rgb(hdr, w, h, layout)      # (h, w, 3), e.g. for plt.imshow

Captures run one at a time; the GIL is released while one runs.
"""

import atexit
import os
import re
import tempfile
import threading

import numpy as np

from . import _native

__all__ = [
    "LAYOUTS", "FusionError", "Stopped", "fuse", "set_stop_flag", "last_log",
    "read_raw", "write_raw", "read_dump", "read_capture", "dumped_output",
    "yuv_to_rgb", "rgb_to_yuv",
]

LAYOUTS = ("YUV420_PLANAR", "YVU420_SEMIPLANAR")


class FusionError(RuntimeError):
    """The library could not fuse the frames (result -1). `log` holds its lines."""

    def __init__(self, message, log):
        super().__init__(message)
        self.log = log


class Stopped(RuntimeError):
    """The capture stopped because the stop flag is set (result 1)."""


_lock = threading.Lock()  # one capture at a time, and one owner of TAVO_HDR_LOG
_pool_started = False
_last_log = []


def _logged(call):
    """Runs call() with the library's log lines appended to a temporary file
    (the library reads TAVO_HDR_LOG at every line); returns (result, lines).
    The variable's previous value is restored and the file removed."""
    fd, path = tempfile.mkstemp(prefix="tavo_hdr_log_")
    os.close(fd)
    previous = os.environ.get("TAVO_HDR_LOG")
    os.environ["TAVO_HDR_LOG"] = path
    try:
        result = call()
    finally:
        if previous is None:
            os.environ.pop("TAVO_HDR_LOG", None)
        else:
            os.environ["TAVO_HDR_LOG"] = previous
        try:
            with open(path, encoding="utf-8", errors="replace") as f:
                lines = f.read().splitlines()
        finally:
            os.unlink(path)
    return result, lines


def _stop_pool():
    with _lock:
        if _pool_started:
            _logged(_native.pool_destroy)


def _capture(frames, out, width, height, layout):
    """Starts the pool on first use and runs one capture; None when the pool
    did not start. Both run inside one log capture, so that the workers' first
    lines land in it too."""
    global _pool_started
    if not _pool_started:
        if _native.pool_init() != 0:
            return None
        _pool_started = True
        atexit.register(_stop_pool)
    return _native.hdr_function(*frames, out, width, height, layout)


def _check_size(width, height, multiple):
    for name, value in (("width", width), ("height", height)):
        if not isinstance(value, (int, np.integer)) or isinstance(value, bool):
            raise TypeError(f"{name} must be an integer, not {type(value).__name__}")
    width, height = int(width), int(height)
    if width < multiple or width % multiple:
        raise ValueError(f"width {width} must be a multiple of {multiple} and at least {multiple}")
    if height < 2 or height % 2:
        raise ValueError(f"height {height} must be even and at least 2")
    if width * height > _native.MAX_PIXELS:
        raise ValueError(f"{width}x{height} is over the library's limit of {_native.MAX_PIXELS} pixels")
    return width, height


def _check_array(a, what):
    if not isinstance(a, np.ndarray):
        raise TypeError(f"{what} must be a numpy array, not {type(a).__name__}")
    if a.dtype != np.uint8:
        raise TypeError(f"{what} must be of dtype uint8, not {a.dtype}")
    if not a.flags.c_contiguous:
        raise ValueError(f"{what} is not C-contiguous (np.ascontiguousarray makes it so)")


def _check_frame(frame, width, height, what):
    _check_array(frame, what)
    shapes = ((width * height * 3 // 2,), (height * 3 // 2, width))
    if frame.shape not in shapes:
        raise ValueError(f"{what} has shape {frame.shape}; a {width}x{height} frame is "
                         f"{shapes[0]} or {shapes[1]}")


def _check_layout(layout):
    if layout not in LAYOUTS:
        raise ValueError(f"unknown layout {layout!r}: {LAYOUTS[0]} or {LAYOUTS[1]}")


def fuse(frames, width, height, layout="YUV420_PLANAR"):
    """Fuses (dark, normal, bright), a sequence or an array stacking the three,
    into a new frame of the first frame's shape: exactly the bytes HDR_Function
    writes. Raises FusionError when the library fails (its log lines in the
    message) and Stopped when the stop flag is set."""
    width, height = _check_size(width, height, 8)
    _check_layout(layout)
    if isinstance(frames, (str, bytes)) or len(frames) != 3:
        raise TypeError("frames must be a sequence of three frames: dark, normal, bright")
    for frame, what in zip(frames, ("the dark frame", "the normal frame", "the bright frame")):
        _check_frame(frame, width, height, what)
    global _last_log
    out = np.empty_like(frames[0])
    with _lock:
        result, _last_log = _logged(lambda: _capture(frames, out, width, height, layout))
    if result is None:
        raise FusionError("the library's worker pool did not start; its log:\n" + "\n".join(_last_log), _last_log)
    if result == 1:
        raise Stopped("the capture was stopped by the stop flag; set_stop_flag(0) re-arms it")
    if result != 0:
        raise FusionError(f"the library could not fuse the {width}x{height} {layout} frames "
                          f"(result {result}); its log:\n" + "\n".join(_last_log), _last_log)
    return out


def set_stop_flag(flag):
    """1 stops a running capture (and every later one) at its next stage end; 0 re-arms."""
    _native.set_stop_flag(int(flag))


def last_log():
    """The library's log lines of the last fuse() call, e.g. the stage times."""
    return list(_last_log)


def read_raw(path, width, height):
    """A raw frame of exactly width*height*3/2 bytes, shaped (height*3//2, width).
    Only regular files are read."""
    width, height = _check_size(width, height, 2)
    return _native.read_raw(os.fspath(path), width, height)


def write_raw(path, array):
    """Writes the array's bytes to path through a temporary file renamed into
    place. Raises OSError rather than replace a file read through this module,
    a non-regular file or a file with several hard links."""
    _check_array(array, "the array")
    _native.write_raw(os.fspath(path), array)


_DUMP_SUFFIX = re.compile(r"_(?:[012]|hdr|replay(?:\.\d+)?)\.yuv$")


def read_dump(path):
    """A frame the library dumped (…_0.yuv, _1.yuv, _2.yuv, _hdr.yuv) or the tool
    replayed (…_replay.yuv): (array, width, height, layout), size and layout
    from the name IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>_<k>.yuv."""
    path = os.fspath(path)
    name = os.path.basename(path)
    parsed = _native.parse_dump_name(_DUMP_SUFFIX.sub("", name)) if _DUMP_SUFFIX.search(name) else None
    if parsed is None:
        raise ValueError(f"{name} is not a dump name (IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>_<k>.yuv)")
    width, height, layout, _ = parsed
    return read_raw(path, width, height), width, height, layout


def read_capture(prefix):
    """The three dumped inputs of a capture, named as tavo-hdr replay takes it
    (the base name with its directory, with or without _0.yuv):
    ([dark, normal, bright], width, height, layout)."""
    captures = _native.collect_captures([os.fspath(prefix)])
    if len(captures) != 1:
        raise ValueError(f"{prefix} names {len(captures)} captures, not one")
    base, width, height, layout = captures[0]
    frames = [read_raw(f"{base}_{k}.yuv", width, height) for k in range(3)]
    return frames, width, height, layout


def dumped_output(prefix):
    """Path of the output the library dumped for a capture, found as replay
    finds it (its time stamp may be later than the inputs'); None when none."""
    return _native.dumped_output(os.fspath(prefix))


def yuv_to_rgb(frame, width, height, layout="YUV420_PLANAR"):
    """Full-range BT.601, as tavo-hdr converts: a (height, width, 3) uint8 RGB image."""
    width, height = _check_size(width, height, 2)
    _check_layout(layout)
    _check_frame(frame, width, height, "the frame")
    return _native.yuv_to_rgb(frame, width, height, layout)


def rgb_to_yuv(rgb, layout="YUV420_PLANAR"):
    """Full-range BT.601, as tavo-hdr converts: a (height, width, 3) uint8 RGB
    image (width and height even) to a frame shaped (height*3//2, width)."""
    _check_array(rgb, "the image")
    _check_layout(layout)
    if rgb.ndim != 3 or rgb.shape[2] != 3:
        raise ValueError(f"the image has shape {rgb.shape}, not (height, width, 3)")
    width, height = _check_size(rgb.shape[1], rgb.shape[0], 2)
    return _native.rgb_to_yuv(rgb, width, height, layout)
