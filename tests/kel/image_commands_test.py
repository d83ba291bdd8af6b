#!/usr/bin/env python3
"""kel text, image, frame and filters as a user has them. Arguments: the command that runs the program, word by word."""
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

import media_commands_test
from media_commands_test import SMALL, kel, write_y4m

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
PHOTO = "/usr/share/backgrounds/mate/nature/FreshFlower.jpg"


def read_png(path):
    """Width, height and rows of (red, green, blue, alpha); 8 bits with alpha, as kel writes them."""
    with open(path, "rb") as file:
        data = file.read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    packed, at = b"", 8
    while at < len(data):
        length, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + length]
        assert struct.pack(">I", zlib.crc32(kind + body)) == data[at + 8 + length:at + 12 + length]
        if kind == b"IHDR":
            width, height, *kinds = struct.unpack(">IIBBBBB", body)
            assert kinds == [8, 6, 0, 0, 0]
        packed += body if kind == b"IDAT" else b""
        at += 12 + length
    flat, rows, above = zlib.decompress(packed), [], bytes(4 * width)
    for y in range(height):
        start = y * (4 * width + 1)
        kind, row = flat[start], bytearray(flat[start + 1:start + 1 + 4 * width])
        for i in range(len(row) if kind else 0):
            left, corner = (row[i - 4], above[i - 4]) if i >= 4 else (0, 0)
            nearest = min((left, above[i], corner), key=lambda v: abs(left + above[i] - corner - v))
            row[i] = row[i] + (0, left, above[i], (left + above[i]) // 2, nearest)[kind] & 255
        above = bytes(row)
        rows.append([tuple(row[i:i + 4]) for i in range(0, len(row), 4)])
    return width, height, rows


def write_bmp(path, rows):
    """Rows of (red, green, blue), bottom up, each filled up to four bytes."""
    width, height = len(rows[0]), len(rows)
    data = b"".join(b"".join(bytes(p[::-1]) for p in row) + bytes(-3 * width % 4) for row in rows[::-1])
    with open(path, "wb") as file:
        file.write(struct.pack("<2sIIIIiiHHIIiiII", b"BM", 54 + len(data), 0, 54, 40, width, height, 1, 24, 0, len(data),
                               2835, 2835, 0, 0) + data)


def ink(rows, background):
    """Left, top, right and bottom of what is not background; right and bottom lie outside."""
    found = [(x, y) for y, row in enumerate(rows) for x, pixel in enumerate(row) if pixel != background]
    xs, ys = zip(*found)
    return min(xs), min(ys), max(xs) + 1, max(ys) + 1


class Pictures(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(self.folder)

    def text(self, *words):
        kel("text", *words, "-o", "t.png", "-y")
        return read_png("t.png")

    def test_text_is_where_it_is_wanted(self):
        clear, black = (0, 0, 0, 0), (0, 0, 0, 255)
        width, height, rows = self.text("Word", "--margin", 5, "--color", "#ff400080")
        self.assertEqual(ink(rows, clear), (5, 5, width - 5, height - 5))
        self.assertEqual({p[:3] for row in rows for p in row if p[3]}, {(255, 64, 0)})
        self.assertEqual(max(p[3] for row in rows for p in row), 0x80)
        on_black = ["--size", "120x60", "--background", "black", "--text-size", 9]
        for words, wanted in [  # left, top, right, bottom; None: not looked at
            (["--align", "right,bottom"], (None, None, 112, 52)),
            (["--align", "left,top", "--margin", 3], (3, 3, None, None)),
            (["--pos", "30,40", "--align", "left,top"], (None, 40, None, None)),
            (["--pos", "30,40"], (None, None, None, 40)),
            (["--box", "10,5,100,20"], (None, 5, None, 25)),
        ]:
            found = ink(self.text("HH", *on_black, *words)[2], black)
            for side, want in zip(found, wanted):
                self.assertIn(side, (want, side) if want is None else (want,), (words, found))
        # What begins left of the picture is cut off, not left out; two lines share the words of each.
        whole, cut = (self.text("HH HH", *on_black, "--pos", at)[2] for at in ("40,40", "10,40"))
        self.assertEqual([row[30:] for row in whole], [row[:90] for row in cut])
        two = self.text("HH\nHH", *on_black, "--align", "left,top")[2]
        one = self.text("HH", *on_black, "--align", "left,top")[2]
        self.assertEqual(two[:27], one[:27])
        self.assertEqual(two[24:52], one[:28])  # 1.2 em of 20 pixels
        self.assertEqual(self.text("[a, b]")[2], self.text("[a, b]", "--font", "DejaVuSans.ttf")[2])
        fitted = ink(self.text("HH\nHH", *on_black, "--box", "10,5,100,50")[2], black)
        self.assertTrue(fitted[0] >= 10 and fitted[2] <= 110 and 45 <= fitted[3] - fitted[1] <= 50, fitted)

    def test_image_keeps_its_pixels(self):
        rows = [[(x * 30, y * 60, (x * y * 20) % 256) for x in range(7)] for y in range(4)]
        write_bmp("i.bmp", rows)
        kel("image", "i.bmp", "-o", "o.png", "--fit", "100x100")
        self.assertEqual(read_png("o.png"), (7, 4, [[p + (255,) for p in row] for row in rows]))
        kel("image", "o.png", "-o", "again.png")
        self.assertEqual(read_png("again.png"), read_png("o.png"))
        kel("image", PHOTO, "-o", "p.png", "--fit", "80x80")
        upright = read_png("p.png")
        self.assertEqual(upright[:2], (80, 60))
        with open(PHOTO, "rb") as file:
            photo = file.read()
        turned = b"Exif\0\0MM\0*" + struct.pack(">IHHHIHHI", 8, 1, 0x112, 3, 1, 6, 0, 0)  # a quarter turn clockwise
        with open("turned.jpg", "wb") as file:
            file.write(photo[:2] + struct.pack(">HH", 0xFFE1, len(turned) + 2) + turned + photo[2:])
        kel("image", "turned.jpg", "-o", "turned.png", "--fit", "80x80")
        width, height, rows = read_png("turned.png")
        self.assertEqual((width, height), (60, 80))
        self.assertLess(max(abs(a - b) for a, b in zip(rows[20][40], upright[2][60 - 1 - 40][20])), 40)

    def test_frames(self):
        write_y4m("v.y4m", [20 + 5 * n for n in range(40)])  # 1.6 seconds

        def grey(n):
            return round((20 + 5 * n - 16) * 255 / 219)
        for at, number in [([], 0), (["--at", 0.4], 10), (["--at", 0.43], 10), (["--at", "0:01"], 25)]:
            kel("frame", "v.y4m", "-o", "f.png", "-y", *at)
            width, height, rows = read_png("f.png")
            self.assertEqual((width, height), (64, 48))
            self.assertAlmostEqual(rows[20][30][0], grey(number), delta=2)
        kel("frame", "v.y4m", "--sheet", "2x2", "-o", "s.png")
        width, height, rows = read_png("s.png")
        self.assertEqual((width, height), (2 * 70 + 6, 2 * 54 + 6))
        seen = [rows[8 + 54 * y][60 + 70 * x][0] for y in (0, 1) for x in (0, 1)]
        for value, number in zip(seen, (5, 15, 25, 35)):
            self.assertAlmostEqual(value, grey(number), delta=2)

    @unittest.skipIf(SMALL, "the emulator's rasteriser is too slow")
    def test_filters(self):
        names = kel("filters", "--names").split()
        self.assertEqual(names, sorted(f[:-5] for f in os.listdir(SOURCES + "/share/kel/filters")))
        listed = kel("filters")
        self.assertEqual([line.split()[0] for line in listed.splitlines() if line[0] != " "], names)
        self.assertRegex(listed, r"(?m)^sepia  .*\n +amount +float +default 1, from 0, to 1$")
        self.assertEqual(kel("filters", *names).count(": it compiles\n"), len(names))
        with open("bad.glsl", "w") as file:
            file.write("/*\nFilter: bad\nParameter: float dry/wet\nParameter: float dry-wet\nParameter: flaot x\n*/\n"
                       "void bad(float a, float b) {}\n")
        done = subprocess.run([*media_commands_test.PROGRAM, "filters", "bad.glsl"], capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stderr), (1, "kel: not sound: bad.glsl\n"))
        for said in ("line 5: 'flaot x' declares no parameter", "'dry/wet' and 'dry-wet' both become the uniform "
                     "filter0_dry_wet", "  12  uniform mediump float filter0_dry_wet;", "redeclared", "does not compile"):
            self.assertIn(said, done.stdout)
        write_bmp("i.bmp", [[(200, 100, 40)] * 8] * 8)
        kel("image", "i.bmp", "-o", "t.png", "--filter", "tint=color:0.5/1/0", "--filter", "fade=amount:0.5")
        for value, wanted in zip(read_png("t.png")[2][4][4], (50, 50, 0, 255)):
            self.assertAlmostEqual(value, wanted, delta=1)

    def test_bad_input(self):
        write_y4m("v.y4m", [50] * 3)
        write_bmp("i.bmp", [[(1, 2, 3)] * 8] * 8)
        open("empty", "w").close()
        with open(PHOTO, "rb") as whole, open("cut.jpg", "wb") as cut:
            cut.write(whole.read()[:30000])
        with open("garbage", "wb") as file:
            file.write(bytes(i * i % 251 for i in range(20000)))
        with open("old.png", "w") as file:
            file.write("old")
        rows = [  # words, what is said, status
            ("text a -o old.png", "exists already; -y", 1),
            ("text a -o /dev/full -y", "No space left", 1),
            ("text a -o missing/o.png", "there is no folder", 1),
            ("text a -o .", "folder", 1),
            ("text a -o o.png --font nosuchfont", "no font is named 'nosuchfont'; there are ", 1),
            ("text a -o o.png --font ./none.ttf", "no such font file", 1),
            ("text a -o o.png --font garbage", "cannot be drawn with garbage", 1),
            ("text \udcff -o o.png", "not UTF-8", 1),
            ("text \u3000 -o o.png --font garbage", "cannot be drawn", 1),
            ("text a -o o.png --size 0x4", "not a size", 2),
            ("text a -o o.png --size 16384x16384", "no picture of 16384 x 16384", 1),
            ("text a -o o.png --size 9x9 --pos 50,50", "nothing of the text lies", 1),
            ("text a -o o.png --box 1,1,5,5", "need the --size", 2),
            ("text a -o o.png --color reddish", "not a colour", 2),
            ("text a -o o.png --align up", "not an alignment", 2),
            ("text a -o o.png --text-size 0", "--text-size", 2),
            ("text a", "--output is required", 2),
            ("image none.png -o o.png", "none.png: No such file", 1),
            ("image empty -o o.png", "it is empty", 1),
            ("image garbage -o old.png -y", "garbage: no PNG", 1),
            ("image cut.jpg -o o.png", "cut.jpg: no PNG", 1),
            ("image . -o o.png", "cannot be read", 1),
            ("image i.bmp -o i.bmp -y", "it is an input, too", 1),
            ("image i.bmp -o o.png --fit 5", "not a size", 2),
            ("image i.bmp -o o.png --filter sepia=amount:2", "amount is at most 1", 2),
            ("image i.bmp -o o.png --filter tint=color:1/1/1/1", "color has 3 values", 2),
            ("frame none.mp4 -o o.png", "none.mp4: No such file", 1),
            ("frame empty -o o.png", "empty: ", 1),
            ("frame garbage -o o.png", "garbage: ", 1),
            ("frame v.y4m -o o.png --at 9", "v.y4m: it ends before 9.000 s", 1),
            ("frame v.y4m -o o.png --at soon", "'soon' is not a number", 2),
            ("frame v.y4m -o o.png --sheet 2x99", "not a sheet", 2),
            ("frame v.y4m -o o.png --sheet 2x2 --at 1", "exclude each other", 2),
            ("filters none.glsl", "none.glsl: no such file", 1),
            ("filters ./garbage", "not a video filter", 1),
        ]
        before = set(os.listdir())
        for words, said, status in rows:
            with self.subTest(words):
                complaint = kel(*words.split(" "), status=status)
                self.assertIn(said, complaint)
                self.assertEqual(complaint.count("\n"), 1)
                self.assertEqual(set(os.listdir()), before)
        with open("old.png") as file:
            self.assertEqual(file.read(), "old")

    def test_manual_and_completion_know_every_option(self):
        with open(SOURCES + "/tools/kel/man/kel.1", encoding="utf-8") as file:
            manual = file.read().replace("\\-", "-")
        commands = re.findall(r"(?m)^  ([a-z]+)  ", kel("--help").partition("Subcommands:")[2])
        self.assertTrue({"run", "filters"} <= set(commands), commands)
        for command in commands:
            told = kel(command, "--help")
            self.assertIn("Example", told)
            self.assertIn(f".SS kel {command} ", manual)
            options = re.findall(r"(?m)^  (?:-[a-z],)?(--[a-z-]+)", told)
            for option in options:
                self.assertRegex(manual, re.escape(option) + r"(?![a-z-])", command)
            script = f'source "$0"; COMP_WORDS=("$@" {command} --); COMP_CWORD=2; _kel_complete; echo "${{COMPREPLY[@]}}"'
            if len(media_commands_test.PROGRAM) > 1:
                continue  # an emulator's command line is not completed
            completed = subprocess.run(["bash", "-c", script, SOURCES + "/tools/kel/completion/kel.bash",
                                        *media_commands_test.PROGRAM], capture_output=True, text=True, check=True)
            self.assertEqual(completed.stdout.split(), [*options, "--verbose"])


if __name__ == "__main__":
    media_commands_test.PROGRAM = sys.argv[1:]
    unittest.main(argv=sys.argv[:1], verbosity=2)
