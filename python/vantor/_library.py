"""Finding libvantor and declaring the C functions the package calls."""

from __future__ import annotations

import ctypes
import os
import threading
from typing import List, Optional

# The soname of the installed library, then the development link name (a build tree, or a
# library installed before it had a soname).
LIBRARY_NAMES = ("libvantor.so.0", "libvantor.so")
LIBRARY_VARIABLE = "VANTOR_LIBRARY"

# Bits of vantor_frame_status (vantor_ext.h).
FRAME_OK = 0
_STAGES = ("deinterleave", "box filter", "yuv", "interleave")
_LATE_SHIFT = 0
_REFUSED_SHIFT = 4
FRAME_NOT_RUN = 0x100

_lib: Optional[ctypes.CDLL] = None
_lib_lock = threading.Lock()


def _open() -> ctypes.CDLL:
    path = os.environ.get(LIBRARY_VARIABLE)
    if path:
        try:
            return ctypes.CDLL(path)
        except OSError as e:
            raise OSError("cannot load %s=%s: %s" % (LIBRARY_VARIABLE, path, e)) from e
    errors = []
    for name in LIBRARY_NAMES:
        try:
            return ctypes.CDLL(name)
        except OSError as e:
            errors.append(str(e))
    raise OSError("libvantor not found by the system loader (%s); install the library or set %s "
                  "to a built libvantor.so" % ("; ".join(errors), LIBRARY_VARIABLE))


def library() -> ctypes.CDLL:
    """The loaded library, opened on first use: the file named by VANTOR_LIBRARY when that is
    set, else libvantor.so.0, else libvantor.so, through the system's loader.

    Raises OSError when it cannot be loaded or lacks a function this package needs.
    """
    global _lib
    with _lib_lock:
        if _lib is None:
            # The library logs to stderr; keep it quiet unless the user asked for its log.
            os.environ.setdefault("VANTOR_LOG", "silent")
            lib = _open()
            i32, ptr, size = ctypes.c_int32, ctypes.c_void_p, ctypes.c_size_t
            signatures = {
                "vantor_init": ([i32, i32, i32], ptr),
                "vantor_run": ([ptr, size, size, i32, i32, i32], ctypes.POINTER(i32)),
                "vantor_deinit": ([ptr], i32),
                "vantor_wait_ready": ([ptr, i32], i32),
                "vantor_frame_status": ([ptr], i32),
            }
            for name, (args, result) in signatures.items():
                try:
                    function = getattr(lib, name)
                except AttributeError:
                    raise OSError("%s has no %s: it is older than this package"
                                  % (lib._name, name)) from None
                function.argtypes, function.restype = args, result
            _lib = lib
        return _lib


def failed_stages(status: int) -> List[str]:
    """What a non-zero frame status says, one phrase per bit, e.g. ["box filter timed out"]."""
    parts = []
    for i, stage in enumerate(_STAGES):
        if status & (1 << (_LATE_SHIFT + i)):
            parts.append(stage + " timed out")
        if status & (1 << (_REFUSED_SHIFT + i)):
            parts.append(stage + " refused")
    if status & FRAME_NOT_RUN:
        parts.append("frame not run")
    if not parts:
        parts.append("status 0x%x" % status)
    return parts
