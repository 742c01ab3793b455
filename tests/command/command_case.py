"""What the tests of the command share: running it as a user would, in an empty folder, and reading
back the images that it writes. RUVELL names the program under test, PLUGINS the folder of the plug-ins
of the tests."""
import os
import shutil
import struct
import subprocess
import tempfile
import unittest
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
RUVELL = os.environ["RUVELL"]
PLUGINS = os.environ["PLUGINS"]
BALL = os.path.join(HERE, "scenes", "ball.rvs")


class CommandCase(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="ruvell-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def write(self, name, text):
        with open(self.path(name), "w", encoding="utf-8") as file:
            file.write(text)
        return self.path(name)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def exists(self, name):
        return os.path.exists(self.path(name))

    def run_command(self, *arguments, code=0, stdin=""):
        """Runs the command in the folder of the test and checks its exit code."""
        result = subprocess.run([RUVELL, *arguments], cwd=self.folder, input=stdin, text=True,
                                capture_output=True, timeout=120, check=False)
        self.assertEqual(result.returncode, code, result.stdout + result.stderr)
        return result

    def refuses(self, *arguments, code, message):
        """The command ends with that code and says that on standard error."""
        result = self.run_command(*arguments, code=code)
        self.assertIn(message, result.stderr)
        return result

    def png(self, name):
        return Png(self.read(name))


class Png:
    """A decoded PNG file of 8-bit RGB or RGBA; fails on anything that is not whole."""

    def __init__(self, data):
        assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG file"
        chunks = dict.fromkeys([b"IDAT"], b"")
        at = 8
        while at < len(data):
            length, kind = struct.unpack(">I4s", data[at:at + 8])
            body = data[at + 8:at + 8 + length]
            checksum = struct.unpack(">I", data[at + 8 + length:at + 12 + length])[0]
            assert checksum == zlib.crc32(kind + body), "damaged PNG file"
            chunks[kind] = chunks.get(kind, b"") + body
            at += 12 + length
        assert b"IEND" in chunks, "unfinished PNG file"
        self.width, self.height, self.depth, colour = struct.unpack(">IIBB", chunks[b"IHDR"][:10])
        self.channels = {2: 3, 6: 4}[colour]
        self.rows = self._unfilter(zlib.decompress(chunks[b"IDAT"]))

    def _unfilter(self, data):
        stride, rows, previous = self.width * self.channels, [], None
        assert len(data) == (stride + 1) * self.height, "PNG file with pixels missing"
        for y in range(self.height):
            kind = data[y * (stride + 1)]
            row = bytearray(data[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
            above = previous or bytearray(stride)
            for i in range(stride):
                a = row[i - self.channels] if i >= self.channels else 0
                b, c = above[i], above[i - self.channels] if i >= self.channels else 0
                row[i] = (row[i] + (0, a, b, (a + b) // 2, paeth(a, b, c))[kind]) & 255
            rows.append(row)
            previous = row
        return rows

    def pixel(self, x, y):
        return tuple(self.rows[y][x * self.channels:(x + 1) * self.channels])

    def mean(self):
        """The mean of each channel."""
        count = self.width * self.height
        return [sum(sum(row[c::self.channels]) for row in self.rows) / count
                for c in range(self.channels)]


def paeth(a, b, c):
    p = a + b - c
    return min((a, b, c), key=lambda value: abs(p - value))


def exr_header(data):
    """The attributes of an OpenEXR file, by name."""
    assert data[:4] == b"\x76\x2f\x31\x01", "not an OpenEXR file"
    attributes, at = {}, 8
    while data[at]:
        end = data.index(b"\0", at)
        name, at = data[at:end].decode(), end + 1
        at = data.index(b"\0", at) + 1
        size = struct.unpack("<I", data[at:at + 4])[0]
        attributes[name] = data[at + 4:at + 4 + size]
        at += 4 + size
    return attributes


def exr_size(data):
    """Width and height of the data window."""
    x0, y0, x1, y1 = struct.unpack("<4i", exr_header(data)["dataWindow"])
    return x1 - x0 + 1, y1 - y0 + 1
