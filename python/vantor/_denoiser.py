"""Denoiser and denoise: frames in numpy arrays through a libvantor handle."""

from __future__ import annotations

import numbers
import threading
import warnings
from typing import Any, Dict, List, Tuple

import numpy as np
import numpy.typing as npt

from ._library import FRAME_OK, failed_stages, library

__all__ = ["Denoiser", "denoise", "FrameError", "FrameWarning", "FORMATS", "SCENARIOS"]

FORMATS: Dict[str, int] = {
    "nv21": 0x3132564E,
    "nm21": 0x31324D4E,
    "yuyv": 0x56595559,
    "yuyv422": 0x56595559,
    "yuy2": 0x32595559,
}
SCENARIOS: Dict[str, int] = {"capture": 0, "preview": 1}

# The library takes every width that is a multiple of 16 from 16 up, every height from 1 up,
# and a width times the height rounded up to 16 below 2^31 bytes.
MIN_WIDTH = 16
MIN_HEIGHT = 1
MAX_PLANE_BYTES = 2**31 - 1

# How many times a frame is run before it is given up, and how long the workers of a failed
# frame may take to finish (each stage waits 1000 ms at most, so this is ample).
TRIES = 4
_READY_TIMEOUT_MS = 5000
_SETTLE_MS = 1000
_SETTLE_CALLS = 30

# Planes of Denoisers whose workers never finished: a late worker may still write into them,
# so they are never freed.
_abandoned: List[Any] = []


class FrameError(RuntimeError):
    """A frame that the library did not finish correctly in any of its tries.

    Attributes: ``frame`` (the 1-based number of the frame on its Denoiser), ``status`` (the
    library's frame status bits of the last try) and ``stages`` (what went wrong, one phrase
    per stage, e.g. ``"box filter timed out"``). No result exists for the frame; the input
    array is unchanged.
    """

    def __init__(self, frame: int, status: int, message: str) -> None:
        self.frame = frame
        self.status = status
        self.stages = failed_stages(status)
        super().__init__("frame %d %s (%s)" % (frame, message, ", ".join(self.stages)))


class FrameWarning(RuntimeWarning):
    """A frame failed and is run again from the saved input (one warning per retry)."""


def _integer(name: str, value: Any) -> int:
    if isinstance(value, bool) or not isinstance(value, numbers.Integral):
        raise ValueError("%s must be an integer, not %s %r" % (name, type(value).__name__, value))
    return int(value)


def _format_key(fmt: Any) -> str:
    key = fmt.lower() if isinstance(fmt, str) else None
    if key not in FORMATS:
        raise ValueError("unknown format %r: use nv21, nm21, yuyv, yuy2 or yuyv422" % (fmt,))
    return "yuyv" if key == "yuyv422" else key


def _scenario_value(scenario: Any) -> int:
    key = scenario.lower() if isinstance(scenario, str) else None
    if key not in SCENARIOS:
        raise ValueError("unknown scenario %r: use capture or preview" % (scenario,))
    return SCENARIOS[key]


def _is_420(key: str) -> bool:
    return key in ("nv21", "nm21")


def _check_geometry(key: str, width: int, height: int) -> None:
    if width % 16:
        raise ValueError("width %d is not a multiple of 16: the library accepts widths that are "
                         "multiples of 16" % width)
    if width < MIN_WIDTH or height < MIN_HEIGHT:
        raise ValueError("frame %dx%d is too small: the library needs at least %dx%d"
                         % (width, height, MIN_WIDTH, MIN_HEIGHT))
    if _is_420(key) and height % 2:
        raise ValueError("height %d is odd: %s needs an even height" % (height, key.upper()))
    if width * ((height + 15) // 16 * 16) > MAX_PLANE_BYTES:
        raise ValueError("frame %dx%d is too large: width times the height rounded up to 16 "
                         "must stay below 2^31" % (width, height))


def _size_of(frame: np.ndarray, key: str) -> Tuple[int, int]:
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
    """One library handle for a stream of frames of one size, format and scenario.

    ``width`` and ``height`` are ints (width a multiple of 16, height even for NV21 and NM21),
    ``format`` one of FORMATS (case ignored), ``scenario`` "capture" or "preview". Bad
    arguments raise ValueError before the library is called; a handle the library refuses
    raises RuntimeError; a library that cannot be loaded raises OSError.

    A Denoiser may be shared between threads: a lock held for each whole frame runs their
    frames one after the other (for frames in parallel, use one Denoiser per thread). Close it
    with ``close()`` or a ``with`` block; it owns fifteen worker threads until then.
    """

    def __init__(self, width: int, height: int, format: str = "nv21",
                 scenario: str = "capture") -> None:
        self._handle = None
        self._lock = threading.Lock()
        width = _integer("width", width)
        height = _integer("height", height)
        self.format: str = _format_key(format)
        self.scenario: int = _scenario_value(scenario)
        _check_geometry(self.format, width, height)
        self.width, self.height = width, height
        self._frames = 0
        self._broken = False
        self._lib = library()
        self._allocate()
        self._handle = self._lib.vantor_init(width, height, self.scenario)
        if not self._handle:
            raise RuntimeError("the library refused frames of %dx%d" % (width, height))
        if self._lib.vantor_wait_ready(self._handle, _READY_TIMEOUT_MS) != 0:
            self.close()
            raise RuntimeError("the library's worker threads did not start")

    def _allocate(self) -> None:
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

    def _load(self, frame: np.ndarray) -> Tuple[int, int]:
        """Copies the input (never written, so it also serves a retry) into the planes; returns
        the two plane addresses."""
        if _is_420(self.format):
            luma = self.width * self.height
            self._y[:luma] = frame[:luma]
            self._vu[: luma // 2] = frame[luma:]
            return self._y.ctypes.data, self._vu.ctypes.data
        self._block[:] = frame
        return self._block.ctypes.data, 0

    def _result(self) -> npt.NDArray[np.uint8]:
        luma = self.width * self.height
        if self.format == "nv21":
            return self._block[: luma * 3 // 2].copy()
        if self.format == "nm21":
            return np.concatenate([self._y[:luma], self._vu[: luma // 2]])
        return self._block.copy()

    def _settle(self, number: int, status: int) -> None:
        """Waits until no worker of the failed frame touches the planes any more."""
        for _ in range(_SETTLE_CALLS):
            if self._lib.vantor_wait_ready(self._handle, _SETTLE_MS) == 0:
                return
        self._broken = True
        _abandoned.append((getattr(self, "_block", None), getattr(self, "_y", None),
                           getattr(self, "_vu", None)))
        raise FrameError(number, status, "failed and its workers did not finish within %d s; "
                         "the Denoiser takes no more frames" % (_SETTLE_MS * _SETTLE_CALLS // 1000))

    def process(self, frame: npt.ArrayLike) -> npt.NDArray[np.uint8]:
        """Denoises one packed frame and returns the result as a new uint8 array of its shape.

        ``frame`` is a uint8 array of this Denoiser's size and format: NV21 and NM21 as
        (height * 3 // 2, width), the Y rows then the V/U rows; YUYV and YUY2 as
        (height, 2 * width) or (height, width, 2). The library works on a copy: the input
        array is never written, whatever happens.

        A frame that the library reports as failed (a stage that timed out or refused) is run
        again from the input, up to TRIES runs in all, with a FrameWarning naming the
        frame for each retry; if every run fails, FrameError is raised. Bad frames raise
        ValueError, a closed Denoiser ValueError; after a FrameError whose workers never
        finished, the Denoiser raises RuntimeError.
        """
        return self._process(np.asarray(frame), 3)

    def _process(self, array: np.ndarray, stacklevel: int) -> npt.NDArray[np.uint8]:
        # stacklevel makes the warnings point at the caller's line.
        size = _size_of(array, self.format)
        if size != (self.width, self.height):
            raise ValueError("frame of %dx%d given to a Denoiser for %dx%d"
                             % (size + (self.width, self.height)))
        with self._lock:
            if self._handle is None:
                raise ValueError("the Denoiser is closed")
            if self._broken:
                raise RuntimeError("the Denoiser takes no more frames: the workers of a failed "
                                   "frame never finished")
            self._frames += 1
            number = self._frames
            frame = np.ascontiguousarray(array, np.uint8).reshape(-1)
            for attempt in range(1, TRIES + 1):
                first, second = self._load(frame)
                self._lib.vantor_run(self._handle, first, second, self.width, self.height,
                                     FORMATS[self.format])
                status = self._lib.vantor_frame_status(self._handle)
                if status == FRAME_OK:
                    return self._result().reshape(array.shape)
                self._settle(number, status)
                if attempt < TRIES:
                    warnings.warn("vantor: frame %d failed (%s); running it again, try %d of %d"
                                  % (number, ", ".join(failed_stages(status)), attempt + 1,
                                     TRIES), FrameWarning, stacklevel=stacklevel)
            raise FrameError(number, status, "failed in all %d tries" % TRIES)

    def close(self) -> None:
        """Ends the handle and its worker threads (after a frame in flight). Idempotent."""
        lock = getattr(self, "_lock", None)
        if lock is None:
            return
        with lock:
            if self._handle:
                self._lib.vantor_deinit(self._handle)
            self._handle = None

    def __enter__(self) -> "Denoiser":
        return self

    def __exit__(self, *exc: Any) -> bool:
        self.close()
        return False

    def __del__(self) -> None:
        self.close()


def denoise(frame: npt.ArrayLike, format: str = "nv21",
            scenario: str = "capture") -> npt.NDArray[np.uint8]:
    """Denoises one packed frame through a handle of its own; returns a new array.

    Shapes, errors and retries as for Denoiser.process; the size is taken from the array.
    For a stream, a Denoiser saves starting fifteen threads per frame.
    """
    key = _format_key(format)
    array = np.asarray(frame)
    width, height = _size_of(array, key)
    with Denoiser(width, height, key, scenario) as d:
        return d._process(array, 3)
