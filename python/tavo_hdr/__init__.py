"""Fusing, reading, writing and showing HDR captures with numpy.

A frame is a uint8 array of width*height*3/2 bytes, luma then chroma, either
1-D or shaped (height*3//2, width); the layout names how the chroma lies:
"YUV420_PLANAR" (U plane, then V plane) or "YVU420_SEMIPLANAR" (V,U pairs).

    frames, w, h, layout = tavo_hdr.read_capture("dumps/IMG_4000x3000YUV420_PLANAR_20180823_090812")
    hdr = tavo_hdr.fuse(frames, w, h, layout)
    rgb = tavo_hdr.yuv_to_rgb(hdr, w, h, layout)      # (h, w, 3), e.g. for plt.imshow

Captures run one at a time, on a thread of their own while the caller waits:
Ctrl-C stops a running capture at its next stage (through the library's stop
flag) and raises KeyboardInterrupt then. The library reads its environment
(TAVO_HDR_PROPERTIES, TAVO_HDR_DUMP_DIR, the instruction-set switches) when
its worker pool starts, at the first fuse(); restart() has the next fuse()
read it again. A forked child (multiprocessing, os.fork) fuses as its parent
does.
"""

import atexit
import os
import re
import tempfile
import threading
import time

import numpy as np

from . import _native

__version__ = _native.__version__

__all__ = [
    "LAYOUTS", "FusionError", "Stopped", "fuse", "restart", "set_stop_flag", "last_log",
    "read_raw", "write_raw", "read_dump", "read_capture", "dumped_output", "replay", "compare",
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


class _Log:
    """Where the library's log lines go: a file that lives in memory only (a
    memfd the library appends to as /proc/self/fd/N), so that nothing is left
    behind however the process ends; a temporary file removed at exit where
    there is no such file."""

    def __init__(self):
        self.path = None
        try:
            self.fd = os.memfd_create("tavo_hdr_log", os.MFD_CLOEXEC)
            if os.path.exists(f"/proc/self/fd/{self.fd}"):
                self.name = f"/proc/self/fd/{self.fd}"
                return
            os.close(self.fd)
        except (AttributeError, OSError):
            pass
        self.fd, self.path = tempfile.mkstemp(prefix="tavo_hdr_log_")
        self.name = self.path

    def take(self):
        """The lines written since the last call."""
        size = os.fstat(self.fd).st_size
        text = os.pread(self.fd, size, 0) if size else b""
        os.ftruncate(self.fd, 0)
        return text.decode("utf-8", "replace").splitlines()

    def close(self):
        os.close(self.fd)
        if self.path is not None:
            os.unlink(self.path)


_lock = threading.Lock()  # one capture at a time, and one owner of the pool's start and stop
_log = None               # a _Log while the pool runs
_stop_flag = 0            # the value set_stop_flag() last set
_last_log = []


def _start_pool():
    """Starts the library's pool with its log sent to a new _Log: the library
    reads TAVO_HDR_LOG, like the rest of its environment, as the pool starts.
    The variable is put back at once. False when the pool did not start."""
    global _log
    _log = _Log()
    previous = os.environ.get("TAVO_HDR_LOG")
    os.environ["TAVO_HDR_LOG"] = _log.name
    try:
        return _native.pool_init() == 0
    finally:
        if previous is None:
            os.environ.pop("TAVO_HDR_LOG", None)
        else:
            os.environ["TAVO_HDR_LOG"] = previous


def _drop_log():
    global _log
    _log.close()
    _log = None


def _stop_pool():
    """Stops the pool, if it runs; its last lines are dropped with its _Log."""
    if _log is not None:
        _native.pool_destroy()
        _drop_log()


def _at_exit():
    with _lock:
        _stop_pool()


def _after_fork_in_child():
    # The parent's lock may have been held by a thread that is not here, and
    # its log file is the parent's: the child starts the pool anew (the
    # library has already let go of the parent's workers).
    global _lock, _log
    _lock = threading.Lock()
    if _log is not None:
        os.close(_log.fd)  # the parent's, and its to remove
        _log = None
        _native.pool_destroy()


atexit.register(_at_exit)
os.register_at_fork(after_in_child=_after_fork_in_child)


def _wait_interruptibly(call):
    """call() on a thread of its own while this one waits. Ctrl-C (a
    KeyboardInterrupt while waiting) raises the stop flag, so that the capture
    ends at its next stage, waits for that and puts the flag back. Returns
    (call's result, the KeyboardInterrupt or None) or raises what call raised."""
    outcome = []
    done = threading.Event()  # waited for rather than the thread: an interrupted join() loses track of it

    def body():
        try:
            outcome.append((True, call()))
        except BaseException as error:  # handed to the waiting thread
            outcome.append((False, error))
        finally:
            done.set()

    threading.Thread(target=body, name="tavo_hdr capture", daemon=True).start()
    interrupt = None
    while True:
        try:
            while not done.wait(0.05):
                pass
            break
        except KeyboardInterrupt as error:
            if interrupt is None:
                interrupt = error
                _native.set_stop_flag(1)
    if interrupt is not None:
        _native.set_stop_flag(_stop_flag)
    ok, value = outcome[0]
    if not ok:
        raise value
    return value, interrupt


def _capture(frames, out, width, height, layout):
    """Starts the pool on first use and runs one capture; (result, log lines),
    result None when the pool did not start."""
    if _log is None and not _start_pool():
        lines = _log.take()
        _drop_log()
        return None, lines
    result = _native.hdr_function(*frames, out, width, height, layout)
    return result, _log.take()


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


def _as_array(a, what):
    """A numpy array, or a uint8 array over any C-contiguous buffer of bytes
    (bytes, bytearray, memoryview, mmap), sharing its memory."""
    if not isinstance(a, np.ndarray):
        try:
            view = memoryview(a)
        except TypeError:
            raise TypeError(f"{what} must be a numpy array or a buffer of bytes, not {type(a).__name__}") from None
        if view.format not in ("B", "c") or view.itemsize != 1:
            raise TypeError(f"{what} must hold bytes, not items of format {view.format!r}")
        if not view.c_contiguous:
            raise ValueError(f"{what} is not C-contiguous")
        return np.frombuffer(view, np.uint8).reshape(view.shape)
    if a.dtype != np.uint8:
        raise TypeError(f"{what} must be of dtype uint8, not {a.dtype}")
    if not a.flags.c_contiguous:
        raise ValueError(f"{what} is not C-contiguous (np.ascontiguousarray makes it so)")
    return a


def _check_frame(frame, width, height, what):
    frame = _as_array(frame, what)
    shapes = ((width * height * 3 // 2,), (height * 3 // 2, width))
    if frame.shape not in shapes:
        raise ValueError(f"{what} has shape {frame.shape}; a {width}x{height} frame is "
                         f"{shapes[0]} or {shapes[1]}")
    return frame


def _check_layout(layout):
    if layout not in LAYOUTS:
        raise ValueError(f"unknown layout {layout!r}: {LAYOUTS[0]} or {LAYOUTS[1]}")


def fuse(frames, width, height, layout="YUV420_PLANAR"):
    """Fuses (dark, normal, bright), a sequence or an array stacking the three,
    each a uint8 array or any C-contiguous buffer of bytes (bytes, bytearray,
    memoryview, mmap),
    into a new frame of the first frame's shape: exactly the bytes HDR_Function
    writes. Raises FusionError when the library fails (its log lines in the
    message) and Stopped when the stop flag is set."""
    width, height = _check_size(width, height, 8)
    _check_layout(layout)
    if isinstance(frames, (str, bytes)) or len(frames) != 3:
        raise TypeError("frames must be a sequence of three frames: dark, normal, bright")
    frames = [_check_frame(frame, width, height, what)
              for frame, what in zip(frames, ("the dark frame", "the normal frame", "the bright frame"))]
    out = np.empty_like(frames[0])
    result, _, _ = _fuse_into(*frames, out, width, height, layout)
    if result == 1:
        raise Stopped("the capture was stopped by the stop flag; set_stop_flag(0) re-arms it")
    if result != 0:
        raise FusionError(f"the library could not fuse the {width}x{height} {layout} frames "
                          f"(result {result}); its log:\n" + "\n".join(_last_log), _last_log)
    return out


def _fuse_into(dark, normal, bright, out, width, height, layout):
    """HDR_Function into `out`, the frames checked: the package's one capture
    (its pool, its lock, Ctrl-C), for fuse() and for the replay code, which
    calls it back. Returns (result, milliseconds, the log's text); raises
    KeyboardInterrupt when interrupted, FusionError when the pool did not
    start."""
    global _last_log
    with _lock:
        start = time.perf_counter()
        (result, _last_log), interrupt = _wait_interruptibly(
            lambda: _capture((dark, normal, bright), out, width, height, layout))
        ms = (time.perf_counter() - start) * 1000
    if interrupt is not None:
        raise interrupt  # last_log() shows where the capture stopped
    if result is None:
        raise FusionError("the library's worker pool did not start; its log:\n" + "\n".join(_last_log), _last_log)
    return result, ms, "".join(line + "\n" for line in _last_log)


def set_stop_flag(flag):
    """1 stops a running capture (and every later one) at its next stage end; 0 re-arms."""
    global _stop_flag
    _stop_flag = int(flag)
    _native.set_stop_flag(_stop_flag)


def restart():
    """Stops the library's worker pool; the next fuse() starts it again and
    the library reads its environment anew (TAVO_HDR_PROPERTIES,
    TAVO_HDR_DUMP_DIR, the instruction-set switches)."""
    with _lock:
        _stop_pool()


def last_log():
    """The library's log lines of the last fuse() call, e.g. the stage times."""
    return list(_last_log)


def _path(path):
    """A path as the bytes the system takes: str (names that are not UTF-8
    come as surrogate escapes, as os.listdir gives them), bytes or a PathLike."""
    path = os.fsencode(os.fspath(path))
    if b"\0" in path:
        raise ValueError(f"path holds a NUL byte: {os.fsdecode(path)!r}")
    return path


def read_raw(path, width, height):
    """A raw frame of exactly width*height*3/2 bytes, shaped (height*3//2, width).
    Only regular files are read; a file that cannot be read raises OSError
    (FileNotFoundError, PermissionError, ...) with its path."""
    width, height = _check_size(width, height, 2)
    return _native.read_raw(_path(path), width, height)


def write_raw(path, array):
    """Writes the array's bytes to path through a temporary file renamed into
    place, so that no reader ever sees a partial file. Raises OSError, with
    the path, rather than replace a non-regular file or a file with several
    hard links, and when the file cannot be written."""
    array = _as_array(array, "the array")
    _native.write_raw(_path(path), array)


def _dump_size(name, width, height, size):
    """The size a dump's name gives, checked; a refusal quotes it as written."""
    size = os.fsdecode(size)
    if size != f"{width}x{height}":  # a number too long for the library's sizes
        raise ValueError(f"{name!r}: the size {size} is over the library's limit of {_native.MAX_PIXELS} pixels")
    try:
        return _check_size(width, height, 2)
    except ValueError as error:
        raise ValueError(f"{name!r}: {error}") from None


_DUMP_SUFFIX = re.compile(r"_(?:[012]|hdr|replay(?:\.\d+)?)\.yuv$")


def read_dump(path):
    """A frame the library dumped (…_0.yuv, _1.yuv, _2.yuv, _hdr.yuv) or the tool
    replayed (…_replay.yuv): (array, width, height, layout), size and layout
    from the name IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>_<k>.yuv."""
    path = _path(path)
    name = os.fsdecode(os.path.basename(path))
    parsed = _native.parse_dump_name(_path(_DUMP_SUFFIX.sub("", name))) if _DUMP_SUFFIX.search(name) else None
    if parsed is None:
        raise ValueError(f"{name!r} is not a dump name (IMG_<W>x<H><layout>_<yyyymmdd>_<hhmmss>_<k>.yuv)")
    width, height, layout, size = parsed
    width, height = _dump_size(name, width, height, size)
    return read_raw(path, width, height), width, height, os.fsdecode(layout)


def read_capture(prefix):
    """The three dumped inputs of a capture, named as tavo-hdr replay takes it
    (the base name with its directory, with or without _0.yuv):
    ([dark, normal, bright], width, height, layout)."""
    prefix = _path(prefix)
    captures = _native.collect_captures(prefix)
    if len(captures) != 1:
        raise ValueError(f"{os.fsdecode(prefix)!r} names {len(captures)} captures, not one")
    base, width, height, layout, size = captures[0]
    width, height = _dump_size(os.fsdecode(base), width, height, size)
    frames = [read_raw(base + b"_%d.yuv" % k, width, height) for k in range(3)]
    return frames, width, height, os.fsdecode(layout)


def dumped_output(prefix):
    """Path of the output the library dumped for a capture, found as replay
    finds it (its time stamp may be later than the inputs'); None when none."""
    path = _native.dumped_output(_path(prefix))
    return None if path is None else os.fsdecode(path)


def replay(capture, out_dir=None):
    """Replays one dumped capture as tavo-hdr replay does, with the tool's own
    code: its frames fused, the result written to <base>_replay.yuv beside
    them (or in out_dir), compared with the output the phone dumped, and a
    difference picture written when they differ. Returns the capture's record
    of tavo-hdr replay --report (README): "status" ("identical", "different",
    "other_size", "no_output", "failed"), "result", "ms", "bytes_differing",
    "planes" {"Y", "U", "V": samples, differing, largest, squared_error, psnr},
    the files, and "reason" of a failure. A capture that cannot be replayed is
    a record too; a name that is not a capture's is a ValueError."""
    return _native.replay(_path(capture), None if out_dir is None else _path(out_dir), _fuse_into)


def compare(a, b, width, height, layout="YUV420_PLANAR"):
    """How frame b differs from frame a, as tavo-hdr replay compares a result
    with a dumped output: "bytes_differing", "first_difference" (None when
    equal) and "planes" {"Y", "U", "V": samples, differing, largest,
    squared_error, psnr (None for equal planes)}."""
    width, height = _check_size(width, height, 2)
    _check_layout(layout)
    a = _check_frame(a, width, height, "the first frame")
    b = _check_frame(b, width, height, "the second frame")
    return _native.compare(a, b, width, height, layout)


def yuv_to_rgb(frame, width, height, layout="YUV420_PLANAR"):
    """Full-range BT.601, as tavo-hdr converts: a (height, width, 3) uint8 RGB image."""
    width, height = _check_size(width, height, 2)
    _check_layout(layout)
    frame = _check_frame(frame, width, height, "the frame")
    return _native.yuv_to_rgb(frame, width, height, layout)


def rgb_to_yuv(rgb, layout="YUV420_PLANAR"):
    """Full-range BT.601, as tavo-hdr converts: a (height, width, 3) uint8 RGB
    image (width and height even) to a frame shaped (height*3//2, width)."""
    rgb = _as_array(rgb, "the image")
    _check_layout(layout)
    if rgb.ndim != 3 or rgb.shape[2] != 3:
        raise ValueError(f"the image has shape {rgb.shape}, not (height, width, 3)")
    width, height = _check_size(rgb.shape[1], rgb.shape[0], 2)
    return _native.rgb_to_yuv(rgb, width, height, layout)
