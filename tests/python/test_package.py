"""The installed vantor package: every format against the tool, one Denoiser shared by threads,
argument refusals, and frames whose stage waits time out.

run_installed.sh installs the package and runs this; CTest sets VANTOR_TOOL, VANTOR_LIBRARY and
VANTOR_STALL_SHIM (a preload that makes the library's first stage waits time out).
"""

import os
import re
import subprocess
import sys
import tempfile
import threading
import unittest

import numpy as np

import vantor


def setUpModule():
    installed = os.path.realpath(os.environ["VANTOR_INSTALLED_AT"])
    package = os.path.realpath(os.path.dirname(vantor.__file__))
    if os.path.dirname(package) != installed:
        raise RuntimeError("vantor imported from %s, not the installed %s" % (package, installed))
    if not os.path.exists(os.path.join(package, "py.typed")):
        raise RuntimeError("py.typed is not installed")


def make_frames(width, height, fmt, count):
    """Smooth colour blotches with fine noise, a different pattern per frame."""
    shape = (height * 3 // 2, width) if fmt in ("nv21", "nm21") else (height, 2 * width)
    y, x = np.mgrid[0:shape[0], 0:shape[1]]
    rng = np.random.default_rng(7)
    return [np.clip(128 + 50 * np.sin(x / (9.0 + i)) * np.cos(y / (13.0 + i))
                    + rng.normal(0, 4, x.shape), 0, 255).astype(np.uint8) for i in range(count)]


class PackageTests(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory(prefix="vantor_py_")
        self.addCleanup(self.dir.cleanup)

    def path(self, name):
        return os.path.join(self.dir.name, name)

    def test_formats_equal_the_tool(self):
        for fmt, (w, h) in (("nv21", (256, 136)), ("nm21", (240, 144)), ("yuyv", (256, 112)),
                            ("yuy2", (240, 98)), ("nv21", (16, 2)), ("yuyv", (16, 1))):
            frame = make_frames(w, h, fmt, 1)[0]
            frame.tofile(self.path("in.raw"))
            for scenario in ("capture", "preview"):
                with self.subTest(fmt=fmt, size=(w, h), scenario=scenario):
                    r = subprocess.run([os.environ["VANTOR_TOOL"], "denoise", "in.raw", "out.raw",
                                        "-s", "%dx%d" % (w, h), "--format", fmt, "--scenario",
                                        scenario, "-q"], cwd=self.dir.name, stderr=subprocess.PIPE)
                    self.assertEqual(r.returncode, 0, r.stderr.decode())
                    with open(self.path("out.raw"), "rb") as f:
                        expected = f.read()
                    copy = frame.copy()
                    given = frame if fmt in ("nv21", "nm21") else frame.reshape(h, w, 2)
                    out = vantor.denoise(given, fmt.upper(), scenario)
                    np.testing.assert_array_equal(frame, copy)  # the input is left as it was
                    self.assertEqual(out.shape, given.shape)
                    self.assertEqual(out.tobytes(), expected)

    def test_threads_share_one_denoiser(self):
        frames = make_frames(256, 144, "nv21", 20)
        results = {}
        with vantor.Denoiser(256, 144, "nv21", "preview") as d:
            expected = [d.process(f) for f in frames]

            def work(t):
                order = list(range(5 * t, 20)) + list(range(5 * t))
                results[t] = [(i, d.process(frames[i])) for i in order]

            threads = [threading.Thread(target=work, args=(t,)) for t in range(4)]
            for t in threads:
                t.start()
            for t in threads:
                t.join()
        self.assertEqual(sorted(results), [0, 1, 2, 3])
        for t, outputs in results.items():
            for i, out in outputs:
                np.testing.assert_array_equal(out, expected[i], "thread %d, frame %d" % (t, i))

    def test_refusals(self):
        good = np.zeros((216, 256), np.uint8)
        closed = vantor.Denoiser(256, 144)
        closed.close()
        cases = [
            (lambda: vantor.Denoiser("1920", 1080), "width must be an integer, not str '1920'"),
            (lambda: vantor.Denoiser(1920, 1080.0), "height must be an integer, not float"),
            (lambda: vantor.Denoiser(True, 1080), "width must be an integer, not bool"),
            (lambda: vantor.Denoiser(1920, 1080, 21), "unknown format 21"),
            (lambda: vantor.Denoiser(1920, 1080, "nv21", None), "unknown scenario None"),
            (lambda: vantor.Denoiser(65536, 32768), "65536x32768 is too large"),
            (lambda: vantor.Denoiser(256, 0), "too small"),
            (lambda: vantor.denoise(good, "nv12"), "unknown format 'nv12'"),
            (lambda: vantor.denoise(good, "nv21", "night"), "unknown scenario 'night'"),
            (lambda: vantor.denoise(np.zeros((216, 250), np.uint8)), "not a multiple of 16"),
            (lambda: vantor.denoise(np.zeros((216, 256), np.float32)), "uint8"),
            (lambda: vantor.denoise(np.zeros((217, 256), np.uint8)), "height * 3 // 2"),
            (lambda: vantor.denoise(np.zeros((3, 0), np.uint8)), "too small"),
            (lambda: vantor.denoise(np.zeros((145, 500), np.uint8), "yuyv"), "not a multiple"),
            (lambda: vantor.Denoiser(256, 144).process(np.zeros((150, 256), np.uint8)),
             "frame of 256x100 given to a Denoiser for 256x144"),
            (lambda: closed.process(good), "closed"),
        ]
        for fn, message in cases:
            with self.subTest(message=message):
                with self.assertRaisesRegex(ValueError, re.escape(message)):
                    fn()

    @unittest.skipUnless(os.environ.get("VANTOR_STALL_SHIM"), "the stall preload is not built")
    def test_timed_out_stage_waits(self):
        frame = make_frames(256, 144, "nm21", 1)[0]
        np.save(self.path("in.npy"), frame)
        expected = vantor.denoise(frame, "nm21")
        child = ("import sys, numpy as np, vantor\n"
                 "try:\n"
                 "    np.save(sys.argv[2], vantor.denoise(np.load(sys.argv[1]), 'nm21'))\n"
                 "except vantor.FrameError as e:\n"
                 "    sys.exit('FrameError: %s' % e)\n")
        preload = " ".join(filter(None, [os.environ.get("LD_PRELOAD"),
                                         os.environ["VANTOR_STALL_SHIM"]]))
        for stalled, code, messages in (
                ("1", 0, [r"frame 1 failed \(\w[\w ]* timed out.*\); running it again, try 2 of 4"]),
                ("all", 1, [r"FrameError: frame 1 failed in all 4 tries \(.*timed out"] +
                 ["try %d of 4" % i for i in (2, 3, 4)])):
            with self.subTest(stalled=stalled):
                env = dict(os.environ, LD_PRELOAD=preload, VANTOR_STALL_WAITS=stalled,
                           OPENBLAS_NUM_THREADS="1")
                r = subprocess.run([sys.executable, "-c", child, "in.npy", "out.npy"],
                                   cwd=self.dir.name, env=env, stderr=subprocess.PIPE, timeout=120)
                err = r.stderr.decode()
                self.assertEqual(r.returncode, code, err)
                for m in messages:
                    self.assertRegex(err, m)
                self.assertEqual(err.count("FrameWarning"), 1 if stalled == "1" else 3, err)
                if code == 0:
                    np.testing.assert_array_equal(np.load(self.path("out.npy")), expected)


if __name__ == "__main__":
    unittest.main()
