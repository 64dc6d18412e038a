"""The vantor tool used as a person would: FFmpeg pipes, files, pictures, bad input.

Needs VANTOR_TOOL (the built tool) and VANTOR_LIBRARY (the built shared library); CTest sets
both.
"""

import os
import pty
import re
import shutil
import stat
import struct
import subprocess
import tempfile
import unittest
import zlib

import numpy as np

TOOL = os.environ.get("VANTOR_TOOL", "vantor")
STALL_SHIM = os.environ.get("VANTOR_STALL_SHIM")


def run(args, stdin=None, input_bytes=None, cwd=None, stderr=subprocess.PIPE, env=None):
    return subprocess.run([TOOL] + args, input=input_bytes, stdin=stdin, stdout=subprocess.PIPE,
                          stderr=stderr, cwd=cwd, env=env, timeout=120)


def ffmpeg(args, input_bytes=None):
    r = subprocess.run(["ffmpeg", "-v", "error", "-nostdin", "-y"] + args, input=input_bytes,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    if r.returncode != 0:
        raise RuntimeError("ffmpeg failed: " + r.stderr.decode())
    return r.stdout


def test_source(width, height, frames, pix_fmt):
    """Frames of FFmpeg's test pattern with broad colour blotches laid over the chroma."""
    graph = ("testsrc2=size={w}x{h}:rate=25,format=yuv444p,"
             "geq=lum='lum(X,Y)':cb='cb(X,Y)+6*sin(X/23+N)*cos(Y/31)':"
             "cr='cr(X,Y)+6*cos(X/29)*sin(Y/19+N)'").format(w=width, h=height)
    return ffmpeg(["-f", "lavfi", "-i", graph, "-frames:v", str(frames), "-pix_fmt", pix_fmt,
                   "-f", "rawvideo", "-"])


def decode_png(path):
    """Width, height and pixels of a PNG, decoded by FFmpeg (rgb24 or rgba)."""
    probe = subprocess.run(["ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                            "stream=width,height,pix_fmt", "-of", "csv=p=0", path],
                           stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=True)
    w, h, fmt = probe.stdout.decode().strip().split(",")
    w, h = int(w), int(h)
    channels = 4 if "a" in fmt.replace("gray", "") and fmt != "gray" else 3
    pix = "rgba" if channels == 4 else "rgb24"
    data = ffmpeg(["-i", path, "-f", "rawvideo", "-pix_fmt", pix, "-"])
    return w, h, np.frombuffer(data, np.uint8).reshape(h, w, channels)


def planes(data, width, height, fmt):
    """Y, U and V (frames first) of packed frames of a layout: nv21, nv12, yuy2, i420, i422."""
    w, h = width, height
    if fmt in ("nv21", "nv12"):
        a = np.frombuffer(data, np.uint8).reshape(-1, h * 3 // 2, w)
        c = a[:, h:].reshape(-1, h // 2, w // 2, 2)
        return (a[:, :h],) + ((c[..., 1], c[..., 0]) if fmt == "nv21" else (c[..., 0], c[..., 1]))
    if fmt == "yuy2":
        a = np.frombuffer(data, np.uint8).reshape(-1, h, 2 * w)
        return a[..., 0::2], a[..., 1::4], a[..., 3::4]
    ch = h // 2 if fmt == "i420" else h
    a = np.frombuffer(data, np.uint8).reshape(-1, w * h + w * ch)
    return (a[:, :w * h].reshape(-1, h, w), a[:, w * h:w * h + w * ch // 2].reshape(-1, ch, w // 2),
            a[:, w * h + w * ch // 2:].reshape(-1, ch, w // 2))


def pack(y, u, v, fmt):
    """The reverse of planes()."""
    n = len(y)
    if fmt in ("nv21", "nv12"):
        c = np.stack((v, u) if fmt == "nv21" else (u, v), -1).reshape(n, -1)
        return np.concatenate([y.reshape(n, -1), c], 1).tobytes()
    if fmt == "yuy2":
        a = np.empty(y.shape[:2] + (2 * y.shape[2],), np.uint8)
        a[..., 0::2], a[..., 1::4], a[..., 3::4] = y, u, v
        return a.tobytes()
    return np.concatenate([p.reshape(n, -1) for p in (y, u, v)], 1).tobytes()


class ToolTestCase(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="vantor_cli_")
        self.addCleanup(shutil.rmtree, self.dir)

    def path(self, name):
        return os.path.join(self.dir, name)

    def write(self, name, data):
        with open(self.path(name), "wb") as f:
            f.write(data)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as f:
            return f.read()


class BadInputTests(ToolTestCase):
    """Every refusal is one line on stderr, a non-zero exit and no output file."""

    def check_refusal(self, args, code, message, input_bytes=None):
        before = sorted(os.listdir(self.dir))
        r = run(args, input_bytes=input_bytes, cwd=self.dir)
        err = r.stderr.decode()
        self.assertEqual(r.returncode, code, err)
        self.assertEqual(err.count("\n"), 1, "not one line: %r" % err)
        self.assertTrue(err.startswith("vantor: "), err)
        self.assertIn(message, err)
        self.assertEqual(sorted(os.listdir(self.dir)), before, "output left behind")

    def test_refusals(self):
        frame = 256 * 144 * 3 // 2
        self.write("short.nv21", bytes(frame * 2 + 1000))
        self.write("empty.nv21", b"")
        self.write("ok.nv21", bytes(frame))
        self.write("ok.yuyv", bytes(256 * 144 * 2))
        self.write("text.txt", b"not a picture at all")
        self.write("broken.png", b"\x89PNG\r\n\x1a\n" + bytes(40))
        self.write("broken.jpg", b"\xff\xd8\xff\xe0\x00\x00\x01\x02\x03\x04")
        jpeg = ffmpeg(["-f", "lavfi", "-i", "testsrc2=size=64x48", "-frames:v", "1", "-f", "mjpeg",
                       "-"])
        self.write("cut.jpg", jpeg[:len(jpeg) // 2])
        # Tiny files whose headers claim 60000x60000: refused before a pixel is decoded.
        sof = jpeg.index(b"\xff\xc0") + 5
        self.write("huge.jpg", jpeg[:sof] + struct.pack(">HH", 60000, 60000) + jpeg[sof + 4:])
        ihdr = b"IHDR" + struct.pack(">IIBBBBB", 60000, 60000, 8, 2, 0, 0, 0)
        self.write("huge.png", b"\x89PNG\r\n\x1a\n\0\0\0\x0d" + ihdr +
                   struct.pack(">I", zlib.crc32(ihdr)) + b"\0\0\0\0IEND\xaeB`\x82")
        for name, tags in (("tff.y4m", "It C420jpeg"), ("c444.y4m", "Ip C444")):
            self.write(name, b"YUV4MPEG2 W256 H144 F25:1 %s\nFRAME\n" % tags.encode() +
                       bytes(256 * 144 * 3))
        os.mkdir(self.path("adir"))
        cases = [
            (["denoise", "short.nv21", "out.nv21", "-s", "256x144"], 1,
             "short.nv21 has 111592 bytes, not a whole number of frames: expected a multiple "
             "of 55296 bytes (one 256x144 NV21 frame)"),
            (["denoise", "empty.nv21", "out.nv21", "-s", "256x144"], 1,
             "empty.nv21 is empty: expected a multiple of 55296 bytes"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "250x144"], 2,
             "width 250 is not a multiple of 16: the library accepts widths that are multiples "
             "of 16 (nearest: 240 or 256)"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "10x144"], 2, "(nearest: 16)"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "16400x16"], 2,
             "frame 16400x16 is too large: the tool accepts at most 16384 pixels a side"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "99999999x16"], 2,
             "bad frame size '99999999x16'"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "256x145", "--format", "nv21"], 2,
             "height 145 is odd: NV21 carries chroma for pairs of rows and needs an even height"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "256x144", "-pix_fmt", "rgb24"], 2,
             "unknown format 'rgb24': use nv21, nm21, yuyv, yuy2, nv12, i420, i422 or FFmpeg's"),
            (["denoise", "tff.y4m", "out.y4m"], 1,
             "tff.y4m: YUV4MPEG2 interlaced (It): the library takes progressive frames (Ip)"),
            (["denoise", "c444.y4m", "out.y4m"], 1,
             "c444.y4m: YUV4MPEG2 chroma C444 is not supported: the tool takes 8-bit 4:2:0"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "256x144", "--scenario", "night"], 2,
             "unknown scenario 'night': use capture or preview"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "big"], 2,
             "bad frame size 'big': give it as WIDTHxHEIGHT"),
            (["denoise", "ok.nv21", "out.nv21", "--format", "nv21"], 2,
             "raw frames need their size: add -s WIDTHxHEIGHT"),
            (["denoise", "missing.nv21", "out.nv21", "-s", "256x144"], 1,
             "cannot read missing.nv21: No such file or directory"),
            (["denoise", "adir", "out.nv21", "-s", "256x144"], 1,
             "cannot read adir: it is a directory"),
            (["denoise", "ok.nv21", "nodir/out.nv21", "-s", "256x144"], 1,
             "cannot write nodir/out.nv21: No such file or directory"),
            (["denoise", "ok.nv21", "adir", "-s", "256x144"], 1,
             "cannot write adir: it is a directory"),
            (["denoise", "text.txt", "out.png"], 2,
             "text.txt is not a PNG or JPEG picture; for raw frames give -s WIDTHxHEIGHT"),
            (["denoise", "broken.png", "out.png"], 1, "broken.png: not a readable PNG file"),
            (["denoise", "broken.jpg", "out.png"], 1, "broken.jpg: not a readable JPEG file"),
            (["denoise", "cut.jpg", "out.png"], 1,
             "cut.jpg: not a readable JPEG file (Premature end of JPEG file)"),
            (["denoise", "huge.jpg", "out.png"], 1,
             "huge.jpg: picture of 60000x60000 is too large: the tool takes at most 16384"),
            (["compare", "huge.png", "huge.png", "--out", "c.png"], 1,
             "huge.png: picture of 60000x60000 is too large"),
            (["denoise", "text.txt", "out.gif"], 2,
             "cannot tell which picture format to write to out.gif: name it .png, .jpg or .jpeg"),
            (["denoise", "ok.nv21"], 2, "denoise needs an input and an output"),
            (["denoise", "ok.nv21", "out.nv21", "-s", "256x144", "--frobnicate"], 2,
             "unknown option --frobnicate for 'vantor denoise'"),
            (["compare", "ok.nv21", "ok.yuyv", "--out", "c.png", "-s", "256x144"], 1,
             "ok.yuyv has 73728 bytes, not a whole number of frames"),
            (["compare", "ok.nv21", "ok.nv21", "--out", "c.png", "-s", "256x144",
              "--frame", "1"], 1, "ok.nv21 has only 1 frames"),
            (["compare", "ok.nv21", "ok.nv21"], 2, "compare needs two inputs and an output"),
            (["demo", "--out", "ok.nv21"], 1, "cannot write to ok.nv21: not a directory"),
            (["bench", "--sizes", "250x144"], 2, "width 250 is not a multiple of 16"),
            (["transmogrify"], 2, "unknown command 'transmogrify'"),
        ]
        for args, code, message in cases:
            with self.subTest(args=" ".join(args)):
                self.check_refusal(args, code, message)

    def test_help_and_version(self):
        for command in ("denoise", "compare", "demo", "bench"):
            r = run([command, "--help"])
            self.assertEqual((r.returncode, r.stderr), (0, b""), command)
            self.assertEqual(re.findall(r"^  vantor (\w+)", r.stdout.decode(), re.M), [command])
        r = run(["--version"])
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertRegex(r.stdout.decode(),
                         r"^vantor \d+\.\d+\.\d+\nlibvantor \d+\.\d+\.\d+, loaded from /\S+\n$")

    def test_stream_cut_inside_a_frame(self):
        frame = 256 * 144 * 3 // 2
        self.check_refusal(["denoise", "-", "out.nv21", "-s", "256x144"], 1,
                           "standard input ends inside frame 2: got 20000 of the 55296 bytes "
                           "of a 256x144 NV21 frame", input_bytes=bytes(frame + 20000))
        self.check_refusal(["denoise", "-", "out.nv21", "-s", "256x144"], 1,
                           "standard input is empty", input_bytes=b"")
        self.check_refusal(["denoise", "-", "out.png"], 1, "standard input is empty",
                           input_bytes=b"")

    def test_interrupted_run_leaves_no_file(self):
        # A stream that never ends, stopped by SIGTERM mid-way: the temporary file goes too.
        feeder = subprocess.Popen(["sh", "-c", "exec cat /dev/zero"], stdout=subprocess.PIPE)
        self.addCleanup(feeder.wait)
        self.addCleanup(feeder.kill)
        p = subprocess.Popen([TOOL, "denoise", "-", "out.nv21", "-s", "256x144"],
                             stdin=feeder.stdout, stderr=subprocess.PIPE, cwd=self.dir)
        feeder.stdout.close()
        deadline = 100
        while deadline and not [n for n in os.listdir(self.dir) if n.startswith(".out.nv21")]:
            subprocess.run(["sleep", "0.05"])
            deadline -= 1
        self.assertTrue(deadline, "the temporary output never appeared")
        p.terminate()
        p.wait(timeout=30)
        p.stderr.close()
        self.assertEqual(os.listdir(self.dir), [])


class PipeTests(ToolTestCase):
    """FFmpeg in, vantor denoise - -, FFmpeg out. That the tool's frames equal the library's own
    is shown by the Python package's test, which runs both."""

    def test_ffmpeg_yuv4mpegpipe(self):
        # The README's pipe: FFmpeg decodes to YUV4MPEG2, vantor denoises, FFmpeg encodes.
        clip, out = self.path("clip.mp4"), self.path("out.mp4")
        ffmpeg(["-f", "lavfi", "-i", "testsrc2=size=320x240:rate=25", "-frames:v", "10",
                "-pix_fmt", "yuv420p", "-c:v", "libx264", clip])
        ff_in = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-i", clip, "-f",
                                  "yuv4mpegpipe", "-"], stdout=subprocess.PIPE)
        tool = subprocess.Popen([TOOL, "denoise", "-", "-"], stdin=ff_in.stdout,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        ff_out = subprocess.Popen(["ffmpeg", "-v", "error", "-nostdin", "-f", "yuv4mpegpipe",
                                   "-i", "-", "-y", out], stdin=tool.stdout)
        ff_in.stdout.close()
        tool.stdout.close()
        tool_err = tool.stderr.read().decode()
        codes = [p.wait(timeout=60) for p in (ff_in, tool, ff_out)]
        self.assertEqual(codes, [0, 0, 0], tool_err)
        self.assertRegex(tool_err, r"^vantor: 10 320x240 YUV4MPEG2 4:2:0 frames \(25 fps\), "
                                   r"capture: [0-9.]+ ms per frame")
        probe = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0",
                                "-show_entries", "stream=width,height,nb_read_frames", "-of",
                                "csv=p=0", out], stdout=subprocess.PIPE, check=True)
        self.assertEqual(probe.stdout.decode().strip(), "320,240,10")


class FormatTests(ToolTestCase):
    def test_round_trips(self):
        # Each layout made from NV21 (or YUY2) frames, denoised, turned back: the same bytes as
        # the tool gives for the NV21 (YUY2) frames themselves.
        w, h, size = 256, 144, ["-s", "256x144"]
        base = {"nv21": test_source(w, h, 2, "nv21"), "yuy2": test_source(w, h, 2, "yuyv422")}
        denoised = {}
        for fmt, data in base.items():
            self.write("base." + fmt, data)
            self.assertEqual(run(["denoise", "base." + fmt, "out." + fmt, "-q", "--format", fmt] +
                                 size, cwd=self.dir).returncode, 0)
            denoised[fmt] = self.read("out." + fmt)
            self.assertNotEqual(denoised[fmt], data)
        cases = [  # layout, made from, tool arguments, y4m header and FRAME line (or None)
            ("nv12", "nv21", size + ["--format", "nv12", "-", "-"], None),
            ("i420", "nv21", size + ["-pix_fmt", "yuv420p", "in", "out"], None),
            ("i420", "nv21", ["in.y4m", "out.y4m"],
             (b"YUV4MPEG2 W256 H144 F30000:1001 Ip A1:1 C420jpeg XYSCSS=420JPEG", b"FRAME Ip XA=1")),
            ("i420", "nv21", ["-", "-"], (b"YUV4MPEG2 W256 H144 F25:1", b"FRAME")),
            ("i422", "yuy2", ["in.y4m", "out.y4m"], (b"YUV4MPEG2 W256 H144 F25:1 I? C422", b"FRAME")),
        ]
        for fmt, made_from, args, y4m in cases:
            with self.subTest(fmt=fmt, args=args, y4m=y4m):
                data = pack(*planes(base[made_from], w, h, made_from), fmt)
                if y4m:
                    frame = len(data) // 2
                    data = y4m[0] + b"\n" + b"".join(y4m[1] + b"\n" + data[i:i + frame]
                                                     for i in (0, frame))
                stdin = data if args[-2] == "-" else None
                if not stdin:
                    self.write(args[-2], data)
                r = run(["denoise", "-q"] + args, input_bytes=stdin, cwd=self.dir)
                self.assertEqual(r.returncode, 0, r.stderr.decode())
                out = r.stdout if args[-1] == "-" else self.read(args[-1])
                if y4m:
                    header = y4m[0] + b"\n"
                    self.assertTrue(out.startswith(header), out[:100])
                    body = out[len(header):]
                    frame = (len(body) - 12) // 2
                    self.assertEqual(body[:6] + body[6 + frame:12 + frame], b"FRAME\nFRAME\n")
                    out = body[6:6 + frame] + body[12 + frame:]
                self.assertEqual(pack(*planes(out, w, h, fmt), made_from), denoised[made_from])

    def test_batch_goes_on_after_a_failed_file(self):
        self.write("good.nv21", test_source(256, 144, 1, "nv21"))
        self.write("bad.nv21", bytes(1000))
        self.assertEqual(run(["denoise", "good.nv21", "one.nv21", "-s", "256x144"],
                             cwd=self.dir).returncode, 0)
        r = run(["denoise", "bad.nv21", "good.nv21", "-s", "256x144", "-o", "out"], cwd=self.dir)
        err = r.stderr.decode()
        self.assertEqual(r.returncode, 1, err)
        self.assertIn("vantor: bad.nv21 failed: bad.nv21 has 1000 bytes, not a whole number", err)
        self.assertIn("vantor: good.nv21 -> out/good.nv21: 1 256x144 NV21 frame, capture:", err)
        self.assertTrue(err.endswith("vantor: 1 of 2 files denoised into out, 1 failed\n"), err)
        self.assertEqual(os.listdir(self.path("out")), ["good.nv21"])
        self.assertEqual(self.read("out/good.nv21"), self.read("one.nv21"))


class ProgressTests(ToolTestCase):
    def test_progress_bar_only_on_a_terminal(self):
        data = test_source(256, 144, 3, "nv21")
        self.write("in.nv21", data)
        master, slave = pty.openpty()
        p = subprocess.run([TOOL, "denoise", "in.nv21", "out.nv21", "-s", "256x144"],
                           stderr=slave, cwd=self.dir, timeout=60)
        os.close(slave)
        # One read returns only what one write put there; read until the terminal is drained.
        chunks = []
        while True:
            try:
                chunk = os.read(master, 65536)
            except OSError:  # EIO: the other side is closed and everything was read
                break
            if not chunk:
                break
            chunks.append(chunk)
        shown = b"".join(chunks).decode()
        os.close(master)
        self.assertEqual(p.returncode, 0)
        self.assertIn("\r[" + "#" * 30 + "] 3/3 frames", shown)
        self.assertIn("vantor: 3 256x144 NV21 frames", shown)
        piped = run(["denoise", "in.nv21", "out.nv21", "-s", "256x144"], cwd=self.dir)
        self.assertNotIn(b"\r", piped.stderr)


class PictureTests(ToolTestCase):
    def test_png_and_jpeg_in_and_out(self):
        # Odd sizes: the tool extends and crops. Grey comes back as RGB, alpha as it was, 16 bits
        # as 8 with a warning.
        for name, size, extra, out in (
                ("odd.png", "301x203", [], "out.png"), ("photo.jpg", "200x90", [], "out.jpg"),
                ("alpha.png", "250x120", ["-pix_fmt", "rgba"], "out.png"),
                ("grey.png", "64x48", ["-pix_fmt", "gray"], "out.jpeg"),
                ("deep.png", "320x180", ["-pix_fmt", "rgb48be"], "out.png")):
            with self.subTest(name=name):
                w, h = map(int, size.split("x"))
                graph = "testsrc2=size=%dx%d,format=%s,crop=%d:%d:0:0" % (
                    w + 1, h + 1, "rgba" if name == "alpha.png" else "rgb24", w, h)
                if name == "alpha.png":
                    graph += ",geq=r='r(X,Y)':g='g(X,Y)':b='b(X,Y)':a='X'"
                ffmpeg(["-f", "lavfi", "-i", graph, "-frames:v", "1"] + extra +
                       [self.path(name)])
                r = run(["denoise", name, out, "--scenario", "preview"] +
                        (["--quality", "95"] if out != "out.png" else []), cwd=self.dir)
                self.assertEqual(r.returncode, 0, r.stderr.decode())
                self.assertIn("1 %s picture, preview" % size, r.stderr.decode())
                self.assertEqual("16-bit PNG" in r.stderr.decode(), name == "deep.png")
                self.assertTrue(self.read(out).startswith(
                    b"\x89PNG" if out == "out.png" else b"\xff\xd8\xff"))
                w, h, before = decode_png(self.path(name))
                ow, oh, after = decode_png(self.path(out))
                self.assertEqual((ow, oh), (w, h))
                self.assertEqual(after.shape, before.shape if name not in ("grey.png", "deep.png")
                                 else (h, w, 3))
                if before.shape[2] == 4:
                    np.testing.assert_array_equal(after[..., 3], before[..., 3])
                diff = np.abs(after[..., :3].astype(int) - before[..., :3])
                # Colours stay close (a conversion round trip and a mild chroma change) but the
                # picture did go through the filter.
                self.assertLess(diff.mean(), 6)
                self.assertGreater(np.count_nonzero(diff), 0)

    def test_exif_orientation(self):
        # Stored 64x32 with red in its top left corner and Exif orientation 6: upright it is
        # 32x64 with the red corner at the top right.
        ffmpeg(["-f", "lavfi", "-i", "color=gray:size=64x32,drawbox=0:0:16:16:red:t=fill",
                "-frames:v", "1", self.path("flat.jpg")])
        tiff = b"MM\0*" + struct.pack(">IHHHIHHI", 8, 1, 0x0112, 3, 1, 6, 0, 0)
        app1 = b"\xff\xe1" + struct.pack(">H", 8 + len(tiff)) + b"Exif\0\0" + tiff
        jpeg = self.read("flat.jpg")
        self.write("turned.jpg", jpeg[:2] + app1 + jpeg[2:])
        r = run(["denoise", "turned.jpg", "out.png"], cwd=self.dir)
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertIn("turned.jpg: turned 90 degrees clockwise, as its Exif orientation 6 asks",
                      r.stderr.decode())
        w, h, pixels = decode_png(self.path("out.png"))
        self.assertEqual((w, h), (32, 64))
        red = (pixels[..., 0].astype(int) - pixels[..., 2]) > 100
        self.assertTrue(red[2:14, 18:30].all() and not red[:, :14].any() and not red[18:].any())

    def test_picture_from_stdin_to_stdout(self):
        png = ffmpeg(["-f", "lavfi", "-i", "testsrc2=size=256x144", "-frames:v", "1", "-c:v",
                      "png", "-f", "image2pipe", "-"])
        r = run(["denoise", "-", "-", "--quiet"], input_bytes=png)
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertTrue(r.stdout.startswith(b"\x89PNG\r\n\x1a\n"))
        self.write("out.png", r.stdout)
        self.assertEqual(decode_png(self.path("out.png"))[:2], (256, 144))


class CompareTests(ToolTestCase):
    def test_raw_and_picture_comparisons(self):
        # One 16x16 block's chroma changed: the heat map colours that block and nothing else.
        data = test_source(256, 144, 1, "nv21")
        changed = np.frombuffer(data, np.uint8).reshape(216, 256).copy()
        changed[144 + 16:144 + 24, 64:80] ^= 4
        self.write("in.nv21", data)
        self.write("out.nv21", changed.tobytes())
        r = run(["compare", "in.nv21", "out.nv21", "--out", "cmp.png", "-s", "256x144"],
                cwd=self.dir)
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertIn("max 8, 0.7% of samples changed", r.stdout.decode())
        w, h, pixels = decode_png(self.path("cmp.png"))
        self.assertEqual((w, h), (3 * 256 + 16, 144))
        heat = pixels[:, 2 * (256 + 8):, :].astype(int)
        coloured = np.argwhere(heat.max(axis=2) != heat.min(axis=2))
        self.assertEqual((coloured.min(axis=0).tolist(), coloured.max(axis=0).tolist()),
                         ([32, 64], [47, 79]))

        # The same picture on both sides: a heat map of grey only, and no change reported. With
        # --out - the picture alone goes to standard output, the figures to standard error.
        ffmpeg(["-f", "lavfi", "-i", "testsrc2=size=202x100,format=rgb24,crop=201:99:0:0",
                "-frames:v", "1",
                self.path("p.png")])
        r = run(["compare", "p.png", "p.png", "--out", "-"], cwd=self.dir)
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertIn("mean 0.00, 99th percentile 0, max 0, 0.0% of samples changed",
                      r.stderr.decode())
        self.assertTrue(r.stdout.endswith(b"IEND\xaeB`\x82"), r.stdout[-40:])
        w, h, pixels = decode_png(self.write("same.png", r.stdout))
        self.assertEqual((w, h), (3 * 201 + 16, 99))
        heat = pixels[:, 2 * (201 + 8):, :]
        self.assertTrue((heat.max(axis=2) == heat.min(axis=2)).all())


class DemoTests(ToolTestCase):
    def test_demo_writes_pictures_and_table(self):
        r = run(["demo", "--out", self.path("demo"), "-s", "448x256"])
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        out = r.stdout.decode()
        names = ["clean", "before", "after_capture", "after_preview", "blotches_x6",
                 "compare_capture", "compare_preview"]
        self.assertEqual(sorted(os.listdir(self.path("demo"))),
                         sorted(n + ".png" for n in names))
        for n in names:
            w, h, pixels = decode_png(self.path("demo/%s.png" % n))
            if n.startswith("compare"):  # two panels wide, two rows with their labels
                self.assertEqual(w, 2 * 448 + 24)
                self.assertGreater(h, 2 * 256)
            elif n != "blotches_x6":
                self.assertEqual((w, h), (448, 256))
            self.assertGreater(pixels.std(), 10, n)
        # Three crops side by side on the dark ground, under their labels: chroma spread six
        # times (a colour difference of about 30 codes; 5 unamplified), and changed by capture.
        px = decode_png(self.path("demo/blotches_x6.png"))[2].astype(int)
        body = px[-18:-8]
        columns = np.flatnonzero((body != 32).any(axis=(0, 2)))
        runs = np.split(columns, np.flatnonzero(np.diff(columns) > 1) + 1)
        self.assertEqual(len(runs), 3)
        crops = [px[-8 - 30:-8, r[0]:r[-1] + 1] for r in runs]
        self.assertGreater(np.std(crops[0][..., 2] - crops[0][..., 1]), 15)
        self.assertFalse(np.array_equal(crops[0], crops[1]))
        self.assertTrue((px[:int(len(px) * 0.3)] >= 230).any(), "no label")
        rows = {}
        for line in out.splitlines():
            m = re.match(r"(.+?)\s{2,}((?:[0-9.]+\s*){2,3})$", line)
            if m:
                rows[m.group(1).strip()] = [float(v) for v in m.group(2).split()]
        noise = rows["chroma noise in flat patches, U std dev"]
        self.assertLess(noise[1], noise[0], "capture did not reduce the chroma noise")


class BenchTests(ToolTestCase):
    def test_bench_table(self):
        r = run(["bench", "--sizes", "256x144", "--formats", "nv21,yuy2", "--seconds", "0.02"])
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        rows = [l.split() for l in r.stdout.decode().splitlines()
                if l.startswith(("NV21", "YUY2"))]
        self.assertEqual([(x[0], x[1], x[2]) for x in rows],
                         [("NV21", "256x144", "same"), ("NV21", "256x144", "rotate8"),
                          ("YUY2", "256x144", "same"), ("YUY2", "256x144", "rotate8")])
        for x in rows:
            self.assertTrue(all(float(v) > 0 for v in x[3:7]), x)


class OutputTests(ToolTestCase):
    """What reaches an output: special files written in place, never a failed frame."""

    def denoise(self, out, env=None):
        return run(["denoise", "in.nv21", out, "-s", "256x144", "-q"], cwd=self.dir, env=env)

    def test_special_outputs(self):
        self.write("in.nv21", test_source(256, 144, 2, "nv21"))
        self.assertEqual(self.denoise("plain.nv21").returncode, 0)
        expected = self.read("plain.nv21")
        # A FIFO's reader gets the frames (a file renamed over the FIFO would leave it waiting).
        os.mkfifo(self.path("fifo"))
        reader = subprocess.Popen(["cat", self.path("fifo")], stdout=subprocess.PIPE)
        self.addCleanup(reader.wait)
        self.addCleanup(reader.kill)
        self.assertEqual(self.denoise("fifo").returncode, 0)
        self.assertEqual(reader.communicate(timeout=60)[0], expected)
        self.assertTrue(stat.S_ISFIFO(os.stat(self.path("fifo")).st_mode))
        self.assertEqual(self.denoise("/dev/stdout").stdout, expected)
        # A link stays a link to the file that gets the frames, and that file keeps its mode.
        self.write("target.nv21", b"old")
        os.chmod(self.path("target.nv21"), 0o600)
        os.symlink("target.nv21", self.path("link.nv21"))
        self.assertEqual(self.denoise("link.nv21").returncode, 0)
        self.assertTrue(os.path.islink(self.path("link.nv21")))
        self.assertEqual(self.read("target.nv21"), expected)
        self.assertEqual(os.stat(self.path("target.nv21")).st_mode & 0o777, 0o600)
        self.assertEqual(sorted(os.listdir(self.dir)),
                         ["fifo", "in.nv21", "link.nv21", "plain.nv21", "target.nv21"])

    @unittest.skipUnless(os.geteuid() == 0, "making a device node needs root")
    def test_device_node_stays(self):
        self.write("in.nv21", test_source(256, 144, 1, "nv21"))
        os.mknod(self.path("n"), 0o666 | stat.S_IFCHR, os.makedev(1, 3))  # the null device
        r = self.denoise("n")
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertTrue(stat.S_ISCHR(os.stat(self.path("n")).st_mode))

    @unittest.skipUnless(STALL_SHIM, "VANTOR_STALL_SHIM (the preload that stalls waits) not set")
    def test_failed_frame_is_run_again_or_stops_the_run(self):
        self.write("in.nv21", test_source(256, 144, 2, "nv21"))
        self.assertEqual(self.denoise("plain.nv21").returncode, 0)
        # After the sanitizer runtime when there is one: it must be loaded first.
        env = dict(os.environ, LD_PRELOAD=(os.environ.get("LD_PRELOAD", "") + " " + STALL_SHIM))
        r = self.denoise("once.nv21", dict(env, VANTOR_STALL_WAITS="1"))
        self.assertEqual(r.returncode, 0, r.stderr.decode())
        self.assertRegex(r.stderr.decode(), r"frame 1: deinterleave stage late.*, retrying "
                         r"\(try 2 of 3\)\n$")
        self.assertEqual(self.read("once.nv21"), self.read("plain.nv21"))
        r = self.denoise("never.nv21", dict(env, VANTOR_STALL_WAITS="all"))
        self.assertEqual(r.returncode, 1)
        self.assertIn("vantor: frame 1 failed 3 times (", r.stderr.decode())
        self.assertEqual(sorted(os.listdir(self.dir)), ["in.nv21", "once.nv21", "plain.nv21"])


if __name__ == "__main__":
    unittest.main()
