"""Denoise camera frames held in numpy arrays with libvantor.

    import vantor
    clean = vantor.denoise(frame, "nv21", "capture")       # returns a new array

    with vantor.Denoiser(1920, 1080, "nv21", "preview") as d:   # one handle for a stream
        for frame in frames:
            clean = d.process(frame)

Frames are uint8 arrays, tightly packed as FFmpeg and most tools write them:
NV21 and NM21 as (height * 3 // 2, width) (the Y rows, then the V/U rows), YUYV and YUY2 as
(height, 2 * width) or (height, width, 2). The input array is never modified.

The shared library is found through the VANTOR_LIBRARY environment variable, else in the
repository's build directories, else by the system's loader. Its own log stays off unless
VANTOR_LOG is set (E for errors, I for everything).
"""

import ctypes
import os

import numpy as np

__all__ = ["denoise", "Denoiser", "FORMATS", "SCENARIOS"]

FORMATS = {
    "nv21": 0x3132564E,
    "nm21": 0x31324D4E,
    "yuyv": 0x56595559,
    "yuyv422": 0x56595559,
    "yuy2": 0x32595559,
}
SCENARIOS = {"capture": 0, "preview": 1}

# The library takes every width that is a multiple of 16 from 16 up and every height from 1 up.
MIN_WIDTH = 16
MIN_HEIGHT = 1
_READY_TIMEOUT_MS = 5000

_lib = None


def _find_library():
    path = os.environ.get("VANTOR_LIBRARY")
    if path:
        return path
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    for build in ("host", "tool-host"):
        candidate = os.path.join(root, "build", build, "libvantor.so")
        if os.path.exists(candidate):
            return candidate
    return "libvantor.so"


def _library():
    global _lib
    if _lib is None:
        os.environ.setdefault("VANTOR_LOG", "silent")
        lib = ctypes.CDLL(_find_library())
        lib.vantor_init.argtypes = [ctypes.c_int32, ctypes.c_int32, ctypes.c_int32]
        lib.vantor_init.restype = ctypes.c_void_p
        lib.vantor_run.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_size_t,
                                   ctypes.c_int32, ctypes.c_int32, ctypes.c_int32]
        lib.vantor_run.restype = ctypes.POINTER(ctypes.c_int32)
        lib.vantor_deinit.argtypes = [ctypes.c_void_p]
        lib.vantor_deinit.restype = ctypes.c_int32
        lib.vantor_wait_ready.argtypes = [ctypes.c_void_p, ctypes.c_int32]
        lib.vantor_wait_ready.restype = ctypes.c_int32
        _lib = lib
    return _lib


def _format_key(fmt):
    key = str(fmt).lower()
    if key not in FORMATS:
        raise ValueError("unknown format %r: use nv21, nm21, yuyv, yuy2 or yuyv422" % (fmt,))
    return "yuyv" if key == "yuyv422" else key


def _scenario_value(scenario):
    key = str(scenario).lower()
    if key not in SCENARIOS:
        raise ValueError("unknown scenario %r: use capture or preview" % (scenario,))
    return SCENARIOS[key]


def _is_420(key):
    return key in ("nv21", "nm21")


def _check_geometry(key, width, height):
    if width % 16:
        raise ValueError("width %d is not a multiple of 16: the library accepts widths that are "
                         "multiples of 16" % width)
    if width < MIN_WIDTH or height < MIN_HEIGHT:
        raise ValueError("frame %dx%d is too small: the library needs at least %dx%d"
                         % (width, height, MIN_WIDTH, MIN_HEIGHT))
    if _is_420(key) and height % 2:
        raise ValueError("height %d is odd: %s needs an even height" % (height, key.upper()))


def _size_of(frame, key):
    """Width and height of a packed frame array."""
    if frame.dtype != np.uint8:
        raise ValueError("frames are uint8 arrays, not %s" % frame.dtype)
    if _is_420(key):
        if frame.ndim != 2 or frame.shape[0] % 3:
            raise ValueError("%s frames are arrays of (height * 3 // 2, width), not %s"
                             % (key.upper(), frame.shape))
        return frame.shape[1], frame.shape[0] * 2 // 3
    if frame.ndim == 3 and frame.shape[2] == 2:
        return frame.shape[1], frame.shape[0]
    if frame.ndim != 2 or frame.shape[1] % 2:
        raise ValueError("%s frames are arrays of (height, 2 * width) or (height, width, 2), "
                         "not %s" % (key.upper(), frame.shape))
    return frame.shape[1] // 2, frame.shape[0]


class Denoiser:
    """One library handle for a stream of frames of one size, format and scenario."""

    def __init__(self, width, height, format="nv21", scenario="capture"):
        self.format = _format_key(format)
        self.scenario = _scenario_value(scenario)
        _check_geometry(self.format, width, height)
        self.width, self.height = width, height
        self._lib = _library()
        self._handle = self._lib.vantor_init(width, height, self.scenario)
        if not self._handle:
            raise RuntimeError("the library refused frames of %dx%d" % (width, height))
        if self._lib.vantor_wait_ready(self._handle, _READY_TIMEOUT_MS) != 0:
            self.close()
            raise RuntimeError("the library's worker threads did not start")
        self._allocate()

    def _allocate(self):
        w, h = self.width, self.height
        h16 = (h + 15) // 16 * 16
        if _is_420(self.format):
            # The Y plane has room for the rows the library adds up to a multiple of 16; for
            # NV21 the V/U plane follows it, and the library moves it up to row `height` at the
            # end of the frame, so that the result is packed NV21 at the start of the block.
            if self.format == "nv21":
                self._block = np.zeros(w * h16 * 3 // 2, np.uint8)
                self._y = self._block[: w * h16]
                self._vu = self._block[w * h16:]
            else:
                self._y = np.zeros(w * h16, np.uint8)
                self._vu = np.zeros(w * h16 // 2, np.uint8)
        else:
            self._block = np.zeros(2 * w * h, np.uint8)

    def process(self, frame):
        """Denoises one packed frame; returns a new array of the same shape."""
        if self._handle is None:
            raise ValueError("the Denoiser is closed")
        frame = np.asarray(frame)
        key = self.format
        if _size_of(frame, key) != (self.width, self.height):
            raise ValueError("frame of %dx%d given to a Denoiser for %dx%d"
                             % (_size_of(frame, key) + (self.width, self.height)))
        w, h = self.width, self.height
        flat = np.ascontiguousarray(frame).reshape(-1)
        if _is_420(key):
            self._y[: w * h] = flat[: w * h]
            self._vu[: w * h // 2] = flat[w * h:]
            first, second = self._y.ctypes.data, self._vu.ctypes.data
        else:
            self._block[:] = flat
            first, second = self._block.ctypes.data, 0
        self._lib.vantor_run(self._handle, first, second, w, h, FORMATS[key])
        if key == "nv21":
            out = self._block[: w * h * 3 // 2].copy()
        elif key == "nm21":
            out = np.concatenate([self._y[: w * h], self._vu[: w * h // 2]])
        else:
            out = self._block.copy()
        return out.reshape(frame.shape)

    def close(self):
        if getattr(self, "_handle", None):
            self._lib.vantor_deinit(self._handle)
        self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()
        return False

    def __del__(self):
        self.close()


def denoise(frame, format="nv21", scenario="capture"):
    """Denoises one packed frame through a handle of its own; returns a new array."""
    key = _format_key(format)
    frame = np.asarray(frame)
    width, height = _size_of(frame, key)
    with Denoiser(width, height, key, scenario) as d:
        return d.process(frame)
