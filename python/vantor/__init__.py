"""Denoise camera frames held in numpy arrays with libvantor.

    import vantor
    clean = vantor.denoise(frame, "nv21", "capture")            # returns a new array

    with vantor.Denoiser(1920, 1080, "nv21", "preview") as d:   # one handle for a stream
        for frame in frames:
            clean = d.process(frame)

Frames are uint8 arrays, tightly packed as FFmpeg and most tools write them: NV21 and NM21 as
(height * 3 // 2, width) (the Y rows, then the V/U rows), YUYV and YUY2 as (height, 2 * width)
or (height, width, 2). The library works on a copy; the input array is never modified.

The shared library is the file named by the VANTOR_LIBRARY environment variable when it is
set, else the installed libvantor.so.0 (or libvantor.so) found by the system's loader. Its own
log stays off unless VANTOR_LOG is set (E for errors, I for everything).
"""

from ._denoiser import FORMATS, SCENARIOS, TRIES, Denoiser, FrameError, FrameWarning, denoise

__all__ = ["Denoiser", "denoise", "FrameError", "FrameWarning", "FORMATS", "SCENARIOS", "TRIES"]
__version__ = "0.1.0"
