#!/usr/bin/env python3
"""kel run, convert, mix and info as a user has them. Arguments: the command that runs the program, word by word."""
import array
import math
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import wave

SMALL = bool(os.environ.get("KEL_TEST_SMALL"))  # under an emulator
ALSA, THEME = "/usr/share/sounds/alsa/", "/usr/share/sounds/freedesktop/stereo/"
PROGRAM = []


def kel(*words, status=0):
    """Runs the program; its standard output, or what it complains of."""
    done = subprocess.run([*PROGRAM, *map(str, words)], capture_output=True, text=True, timeout=240)
    assert done.returncode == status, f"{words}: {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout if status == 0 else done.stderr


def info(path):
    return dict(line.split("=", 1) for line in kel("info", path).splitlines())


def write_wav(path, samples, rate=48000, channels=1):
    with wave.open(path, "wb") as file:
        file.setnchannels(channels)
        file.setsampwidth(2)
        file.setframerate(rate)
        file.writeframes(array.array("h", samples).tobytes())
    return path


def read_wav(path):
    with wave.open(path, "rb") as file:
        return array.array("h", file.readframes(file.getnframes())).tolist()


def tone(frequency, seconds, rate=48000, amplitude=8000):
    return [round(amplitude * math.sin(2 * math.pi * frequency * i / rate)) for i in range(int(seconds * rate))]


def level(samples, frequency, rate=48000):
    """Amplitude of one frequency."""
    angle = 2 * math.pi * frequency / rate
    cosine = sum(s * math.cos(angle * i) for i, s in enumerate(samples))
    sine = sum(s * math.sin(angle * i) for i, s in enumerate(samples))
    return 2 * math.hypot(cosine, sine) / len(samples)


def write_y4m(path, lumas, width=64, height=48, rate=25):
    """Grey pictures; each luma is a number, or a function of x and y."""
    with open(path, "wb") as file:
        file.write(b"YUV4MPEG2 W%d H%d F%d:1 Ip A1:1 C420jpeg\n" % (width, height, rate))
        for luma in lumas:
            plane = bytes([luma]) * (width * height) if isinstance(luma, int) else \
                bytes(luma(x, y) for y in range(height) for x in range(width))
            file.write(b"FRAME\n" + plane + b"\x80" * (width * height // 2))
    return path


def read_y4m(path):
    """Width, height, and the luma planes."""
    with open(path, "rb") as file:
        words = file.readline().split()
        width, height = (int(word[1:]) for word in words[1:3])
        planes = []
        while file.readline():
            planes.append(file.read(width * height * 3 // 2)[:width * height])
        return width, height, planes


class MediaCommands(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)

    def test_convert(self):
        stereo = [s for v in tone(440, 0.5) for s in (v, -v // 2)]
        write_wav("s.wav", stereo, channels=2)
        kel("convert", "s.wav", "same.wav")
        self.assertEqual(read_wav("same.wav"), stereo)
        kel("convert", "s.wav", "wide.wav", "--type", "S24.8LE")
        kel("convert", "wide.wav", "back.wav", "--channels", 2)
        self.assertEqual(read_wav("back.wav"), stereo)
        kel("convert", "s.wav", "mono.wav", "--channels", 1, "--rate", 44100)
        mono = read_wav("mono.wav")
        self.assertAlmostEqual(len(mono), 22050, delta=2)
        self.assertAlmostEqual(level(mono, 440, 44100), 2000, delta=40)
        kel("convert", "s.wav", "bytes.wav", "--type", "U8")
        with wave.open("bytes.wav", "rb") as file:
            self.assertEqual((file.getsampwidth(), file.getnframes()), (1, 24000))

    def test_mix(self):
        a, b = tone(440, 0.5), tone(3000, 0.3, amplitude=5000)
        write_wav("a.wav", a)
        write_wav("b.wav", b)
        kel("mix", "a.wav", "b.wav", "-o", "m.wav")
        longest = b + [0] * (len(a) - len(b))
        self.assertEqual(read_wav("m.wav"), [x + y for x, y in zip(a, longest)])
        kel("mix", "a.wav", "b.wav", "-o", "m.wav", "-y", "--input-gain", "1=0.5", "--input-gain", "2=0", "--gain", 2)
        for mixed, plain in zip(read_wav("m.wav"), a):
            self.assertLessEqual(abs(mixed - plain), 1)
        kel("mix", "a.wav", "b.wav", "-o", "m.wav", "-y", "--input-delay", "2=0.25")
        late = [0] * 12000 + b
        self.assertEqual(read_wav("m.wav"), [x + y for x, y in zip(a + [0] * (len(late) - len(a)), late)])
        kel("mix", "a.wav", "b.wav", "-o", "low.wav", "--audio-filter", "lowpass=freq:440", "--from", 0.1, "--to", "0:00.3")
        low = read_wav("low.wav")
        self.assertEqual(len(low), 9600)
        self.assertAlmostEqual(level(low, 440), 8000 / math.sqrt(2), delta=150)  # 3 dB less at the corner
        self.assertLess(level(low, 3000), 5000 / 30)

    def test_real_recordings(self):
        kel("mix", ALSA + "Front_Center.wav", THEME + "complete.oga", "-o", "m.flac")
        mixed = info("m.flac")
        self.assertEqual((mixed["audio.rate"], mixed["audio.channels"]), ("48000", "1"))
        longest = max(float(info(path)["duration"]) for path in (ALSA + "Front_Center.wav", THEME + "complete.oga"))
        self.assertAlmostEqual(float(mixed["duration"]), longest, delta=0.05)

    def test_bad_input(self):
        write_wav("a.wav", tone(440, 0.2))
        write_y4m("v.y4m", [50] * 3)
        open("empty.mp4", "w").close()
        with open("garbage.mp4", "wb") as file:
            file.write(bytes(i * i % 251 for i in range(20000)))
        with open("a.wav", "rb") as whole, open("cut.wav", "wb") as cut:
            cut.write(whole.read()[:9000])
        with open("bad.glsl", "w") as file:
            file.write("/*\nFilter: bad\n*/\nvoid bad() { gl_FragColor = 7; }\n")
        os.symlink("/dev/full", "full.wav.part")
        rows = [  # words, what is said, status
            ("run nothing.mp4 -o o.mp4", "nothing.mp4: No such file", 1),
            ("run empty.mp4 -o o.mp4", "empty.mp4: Invalid data", 1),
            ("run garbage.mp4 -o o.mp4", "garbage.mp4: ", 1),
            ("run cut.wav -o o.wav", "damaged", 1),
            ("run . -o o.wav", "Is a directory", 1),
            ("run a.wav -o missing/o.wav", "there is no folder", 1),
            ("run a.wav -o o.strange", "no kind of media file", 1),
            ("run a.wav -o full.wav", "No space left", 1),
            ("run a.wav -o a.wav -y", "it is an input, too", 1),
            ("run a.wav -o v.y4m", "exists already", 1),
            ("run v.y4m -o o.wav", "--no-video", 1),
            ("run a.wav -o o.wav --filter sepia", "no video in it", 1),
            ("run a.wav -o o.wav --from 9", "nothing to write", 1),
            ("run a.wav -o o.wav --from 2 --to 1", "--to lies before --from", 2),
            ("run a.wav -o o.wav --audio-filter reverb", "no audio filter is named reverb", 2),
            ("run a.wav -o o.wav --audio-filter lowpass", "needs its freq", 2),
            ("run a.wav -o o.wav --audio-filter lowpass=freq:24000", "freq lies between", 2),
            ("run a.wav -o o.wav --input-gain 2=1", "the first input being 1", 2),
            ("run a.wav -o o.wav --gain loud", "'loud' is not a number", 2),
            ("run a.wav -o o.wav --channels 6", "one or two channels", 2),
            ("convert a.wav o.wav --type F32", "not a sample type", 2),
            ("run v.y4m -o o.y4m --size 0x0", "not a size", 2),
            ("run v.y4m -o o.y4m --size 99999x2", "not a size", 2),
            ("run v.y4m -o o.y4m --filter dream", "no video filter is named dream", 1),
            ("run v.y4m -o o.y4m --filter sepia=depth:1", "it has: amount", 2),
            ("run v.y4m -o o.y4m --filter picture_in_picture", "second picture", 1),
            ("run v.y4m -o o.y4m --text a --font a.wav", "cannot be used as a font", 1),
            ("run v.y4m -o o.y4m --text a --color pinkish", "not a colour", 2),
            ("info empty.mp4", "empty.mp4", 1),
            ("run", "required", 2),
        ] + ([] if SMALL else [("run v.y4m -o o.y4m --filter ./bad.glsl", "do not compile", 1)])
        before = set(os.listdir())
        for words, said, status in rows:
            with self.subTest(words):
                complaint = kel(*words.split(), status=status)
                self.assertIn(said, complaint)
                self.assertLessEqual(complaint.count("\n"), 2)
                # The sink takes the link away with its unfinished file.
                self.assertLessEqual(set(os.listdir()), before)
        kel("run", "cut.wav", "-o", "rest.wav", "--accept-damage")
        self.assertGreater(len(read_wav("rest.wav")), 4000)

    @unittest.skipIf(SMALL, "too slow under an emulator")
    def test_pictures(self):
        def slope(n):
            return lambda x, y: 30 + 2 * x + n
        write_y4m("v.y4m", [slope(n) for n in range(30)])
        kel("run", "v.y4m", "-o", "same.y4m")
        self.assertEqual(read_y4m("same.y4m"), read_y4m("v.y4m"))
        kel("run", "v.y4m", "-o", "part.y4m", "--from", 0.2, "--to", 0.4)
        self.assertEqual(read_y4m("part.y4m")[2], read_y4m("v.y4m")[2][5:10])

        # A filter that changes nothing, and black beside the picture, which is fitted into the size.
        kel("run", "v.y4m", "-o", "wide.y4m", "--size", "128x48", "--filter", "fade=amount:0")
        width, height, planes = read_y4m("wide.y4m")
        self.assertEqual((width, height, len(planes)), (128, 48, 30))
        for x, wanted in [(5, 16), (120, 16)] + [(32 + x, 30 + 2 * x + 9) for x in (4, 30, 60)]:
            self.assertAlmostEqual(planes[9][24 * 128 + x], wanted, delta=4)
        kel("run", "v.y4m", "-o", "dark.y4m", "--filter", "fade=amount:0.5,color:0/0/0")
        dark = read_y4m("dark.y4m")[2][9][24 * 64 + 30]
        self.assertAlmostEqual(dark - 16, (30 + 60 + 9 - 16) / 2, delta=4)

        # Text: bright where it is meant to be, nothing elsewhere; the number of the picture changes it.
        kel("run", "v.y4m", "-o", "text.y4m", "--text", "{frame}", "--box", "8,4,48,20")
        planes = read_y4m("text.y4m")[2]
        self.assertGreater(max(planes[8][:24 * 64]), 220)
        self.assertLess(max(planes[8][26 * 64:]), 180)
        bright = [sum(v > 200 for v in plane[:24 * 64]) for plane in planes]
        self.assertGreater(bright[8], bright[1])

    @unittest.skipIf(SMALL, "too slow under an emulator")
    def test_sound_and_pictures_stay_together(self):
        rate, seconds = 44100, 6
        flashes = [235 if n % 50 == 25 else 16 for n in range(25 * seconds)]  # at 1, 3 and 5 seconds
        click = [v for t in range(seconds) for v in (tone(1000, 0.02, rate, 20000) if t % 2 else [0] * 882) +
                 [0] * (rate - 882)]
        write_y4m("flash.y4m", flashes)
        write_wav("click.wav", click, rate)
        kel("run", "flash.y4m", "click.wav", "-o", "clip.mkv", "--audio-codec", "pcm_s16le")
        kel("run", "clip.mkv", "-o", "road.mkv", "--audio-codec", "pcm_s16le", "--rate", 48000, "--filter", "sepia=amount:0",
            "--size", "96x48", "--from", 0.4)
        kel("run", "road.mkv", "-o", "road.y4m", "--no-audio")
        kel("run", "road.mkv", "-o", "road.wav", "--no-video")
        planes, samples = read_y4m("road.y4m")[2], read_wav("road.wav")
        seen = [n / 25 for n, plane in enumerate(planes) if plane[24 * 96 + 48] > 150]
        loud = [i / 48000 for i, v in enumerate(samples) if abs(v) > 3000]
        heard = [t for t, before in zip(loud, [-1] + loud) if t - before > 0.5]
        self.assertEqual(len(seen), 3)
        for flash, sound in zip(seen, heard, strict=True):
            self.assertAlmostEqual(flash, sound, delta=0.005)
        self.assertAlmostEqual(float(info("road.mkv")["duration"]), 5.6, delta=0.05)

    def test_slides(self):
        for name, grey in (("a.png", "#404040"), ("b.png", "#c0c0c0")):
            kel("text", ".", "-o", name, "--size", "64x48", "--background", grey)
        kel("slides", "a.png", "b.png", "-o", "s.y4m", "--seconds", 1, "--size", "64x48", "--frame-rate", 10)
        corners = [plane[0] for plane in read_y4m("s.y4m")[2]]
        self.assertEqual(corners, [71] * 10 + [108, 144] + [181] * 8)  # the one, a fade, the other

    @unittest.skipIf(SMALL, "too slow under an emulator")
    def test_interrupt(self):
        write_y4m("v.y4m", [lambda x, y: x * y % 256] * 20 + [128] * 3000, 320, 240)
        running = subprocess.Popen([*PROGRAM, "run", "v.y4m", "-o", "o.mp4", "--video-options", "preset=slower"],
                                   stderr=subprocess.PIPE, text=True)
        while not os.path.exists("o.mp4.part"):
            time.sleep(0.05)
            self.assertIsNone(running.poll())
        running.send_signal(signal.SIGINT)
        said = running.communicate(timeout=120)[1]
        self.assertEqual(running.returncode, 130, said)
        self.assertIn("interrupted", said)
        self.assertFalse(os.path.exists("o.mp4.part"))
        self.assertLess(0, float(info("o.mp4")["duration"]))
        self.assertLess(float(info("o.mp4")["duration"]), 119)

    def test_stats_and_progress(self):
        write_wav("a.wav", tone(440, 3, 8000), 8000)
        told = kel("run", "a.wav", "-o", "o.wav", "--rate", 48000, "--stats")
        for word in ("mixed blocks:", "queue of sound:", "copied:", "drift of the sound:", "time:"):
            self.assertIn(word, told)
        self.assertEqual(kel("run", "a.wav", "-o", "o.wav", "-y", "-q"), "")


if __name__ == "__main__":
    PROGRAM = sys.argv[1:]
    unittest.main(argv=sys.argv[:1], verbosity=2)
