"""`ruvell maketx`."""
import os
import signal
import stat
import struct
import subprocess
import time
import unittest
from command_case import RUVELL, CommandCase


def ppm(width, height):
    pixels = bytes((x * 7 + y * 13 + c * 50) % 256
                   for y in range(height) for x in range(width) for c in range(3))
    return b"P6\n%d %d\n255\n" % (width, height) + pixels


def tiff_directories(data):
    """The tags of every directory of a TIFF file, which maketx writes."""
    order = {b"II": "<", b"MM": ">"}[data[:2]]
    assert struct.unpack(order + "H", data[2:4])[0] == 42
    at, found = struct.unpack(order + "I", data[4:8])[0], []
    while at:
        count = struct.unpack(order + "H", data[at:at + 2])[0]
        tags = {}
        for i in range(count):
            entry = data[at + 2 + 12 * i:at + 14 + 12 * i]
            tag, kind = struct.unpack(order + "HH", entry[:4])
            tags[tag] = struct.unpack(order + ("H" if kind == 3 else "I"),
                                      entry[8:10 if kind == 3 else 12])[0]
        found.append(tags)
        end = at + 2 + 12 * count
        at = struct.unpack(order + "I", data[end:end + 4])[0]
    return found


WIDTH, TILE_WIDTH = 256, 322


class Maketx(CommandCase):
    def image(self, name, width=40, height=30):
        with open(self.path(name), "wb") as file:
            file.write(ppm(width, height))

    def leftovers(self):
        return [name for name in os.listdir(self.folder) if name.startswith(".")]

    def test_every_image_gets_a_texture_beside_it(self):
        os.mkdir(self.path("sub"))
        self.image("a.ppm")
        self.image("sub/b.ppm")
        result = self.run_command("maketx", "a.ppm", "sub/b.ppm")
        self.assertEqual(result.stdout, "a.tx\nsub/b.tx\n")
        for name in ("a.tx", "sub/b.tx"):
            levels = tiff_directories(self.read(name))
            self.assertGreater(len(levels), 3)
            self.assertEqual(levels[0][WIDTH], 40)
            self.assertEqual(levels[0][TILE_WIDTH], 64)
            self.assertEqual(levels[1][WIDTH], 20)
            self.assertEqual(levels[-1][WIDTH], 1)
        self.assertEqual(self.leftovers(), [])

    def test_safe_mode_makes_the_same_textures(self):
        os.mkdir(self.path("made"))
        self.image("a.ppm")
        plain = self.run_command("maketx", "a.ppm", "-o", "made/plain.tx")
        safe = self.run_command("maketx", "--safe", "a.ppm", "-o", "made/safe.tx")
        self.assertEqual((plain.returncode, safe.returncode, safe.stderr), (0, 0, ""))
        self.assertEqual([tags[WIDTH] for tags in tiff_directories(self.read("made/safe.tx"))],
                         [tags[WIDTH] for tags in tiff_directories(self.read("made/plain.tx"))])

    def test_an_image_that_is_too_large_is_refused_by_its_header(self):
        with open(self.path("large.ppm"), "wb") as file:
            file.write(b"P6\n300000 300000\n255\n" + bytes(38))
        self.image("good.ppm")
        for arguments, bound in ([], r"\d+ MB of this machine"), \
                (["--safe"], r"\d+ MB of --max-memory"), \
                (["--safe", "--max-memory", "500M"], "500 MB of --max-memory"):
            with self.subTest(arguments):
                start = time.monotonic()
                result = self.run_command("maketx", "large.ppm", "good.ppm", *arguments, code=1)
                self.assertLess(time.monotonic() - start, 20)
                self.assertRegex(result.stderr,
                                 r"^ruvell: error: large.ppm: an image of 300000 x 300000 pixels "
                                 rf"needs more memory than the {bound}\n$")
                self.assertEqual(result.stdout, "good.tx\n")
                os.remove(self.path("good.tx"))
                self.assertEqual(sorted(os.listdir(self.folder)), ["good.ppm", "large.ppm"])

    def test_memory_that_runs_out_ends_the_command_tidily(self):
        self.image("large.ppm", 3000, 2000)  # 72 MB in floating point, and more for the rest
        for bound in "75M", "110M", "150M", "200M":
            with self.subTest(bound):
                result = self.run_command("maketx", "--safe", "--max-memory", bound, "large.ppm",
                                          code=1)
                self.assertRegex(result.stderr, r"^ruvell: error: large.ppm: .*needs more memory "
                                 rf"than the {bound[:-1]} MB of --max-memory\n$")
                self.assertEqual(os.listdir(self.folder), ["large.ppm"])
        self.run_command("maketx", "--safe", "--max-memory", "500M", "large.ppm")

    def test_the_bound_of_the_memory_needs_safe_mode(self):
        self.image("a.ppm")
        self.run_command("maketx", "--max-memory", "1G", "a.ppm", code=2)

    def test_links_stay_and_lead_to_the_texture(self):
        os.mkdir(self.path("kept"))
        self.image("a.ppm")
        self.write("kept/a.tx", "old")
        os.symlink("kept/a.tx", self.path("a.tx"))
        self.run_command("maketx", "a.ppm")
        self.assertTrue(os.path.islink(self.path("a.tx")))
        self.assertEqual(tiff_directories(self.read("kept/a.tx"))[0][WIDTH], 40)
        self.assertEqual(self.leftovers(), [])

    def test_special_files_are_not_replaced(self):
        self.image("a.ppm")
        os.mkfifo(self.path("pipe.tx"))
        self.refuses("maketx", "a.ppm", "-o", "pipe.tx", code=1,
                     message="pipe.tx: not a file that a texture could replace")
        self.assertTrue(stat.S_ISFIFO(os.stat(self.path("pipe.tx")).st_mode))

    def test_two_images_do_not_become_one_texture(self):
        self.image("a.ppm")
        self.image("a.pnm")
        self.refuses("maketx", "a.ppm", "a.pnm", code=2,
                     message="a.ppm and a.pnm would both become a.tx")
        self.assertFalse(self.exists("a.tx"))

    def test_an_interrupt_leaves_no_unfinished_file(self):
        with open(self.path("large.ppm"), "wb") as file:
            file.write(b"P6\n6000 6000\n255\n" + os.urandom(6000 * 300) * 60)
        for arguments in [], ["--safe"]:
            with self.subTest(arguments):
                process = subprocess.Popen([RUVELL, "maketx", "large.ppm", *arguments],
                                           cwd=self.folder, stdout=subprocess.PIPE,
                                           stderr=subprocess.PIPE)
                while not self.leftovers() and process.poll() is None:
                    time.sleep(0.01)
                process.send_signal(signal.SIGINT)
                process.communicate(timeout=60)
                self.assertEqual(process.returncode, 130)
                self.assertEqual(os.listdir(self.folder), ["large.ppm"])

    def test_several_interrupts_leave_no_unfinished_file_either(self):
        with open(self.path("large.ppm"), "wb") as file:
            file.write(b"P6\n4000 4000\n255\n" + os.urandom(4000 * 200) * 60)
        for _ in range(5):
            process = subprocess.Popen([RUVELL, "maketx", "large.ppm"], cwd=self.folder,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            while not self.leftovers() and process.poll() is None:
                time.sleep(0.01)
            for number in signal.SIGINT, signal.SIGTERM, signal.SIGINT:
                process.send_signal(number)
            process.communicate(timeout=60)
            self.assertIn(process.returncode, (130, 143))
            self.assertEqual(os.listdir(self.folder), ["large.ppm"])

    def test_one_texture_can_be_named(self):
        self.image("a.ppm")
        self.run_command("maketx", "a.ppm", "-o", "x.tx", "--tile", "16", "--quiet",
                         "--wrap", "periodic", "--filter", "lanczos3", "--format", "uint16")
        self.assertEqual(tiff_directories(self.read("x.tx"))[0][TILE_WIDTH], 16)
        self.assertFalse(self.exists("a.tx"))

    def test_quiet_says_nothing(self):
        self.image("a.ppm")
        self.assertEqual(self.run_command("maketx", "-q", "a.ppm").stdout, "")

    def test_environment_maps_are_made(self):
        self.image("sky.ppm", 64, 32)
        self.run_command("maketx", "--env", "sky.ppm")
        self.assertTrue(self.exists("sky.tx"))

    def test_up_to_date_textures_are_left_alone(self):
        self.image("a.ppm")
        self.run_command("maketx", "a.ppm")
        self.assertEqual(self.run_command("maketx", "--update", "a.ppm").stdout, "")
        later = time.time() + 100
        os.utime(self.path("a.ppm"), (later, later))
        self.assertEqual(self.run_command("maketx", "--update", "a.ppm").stdout, "a.tx\n")

    def test_bad_images_are_named_and_the_others_made(self):
        self.image("good.ppm")
        self.write("text.exr", "This is no picture.\n")
        self.write("empty.png", "")
        self.write("none.ppm", "P6\n0 0\n255\n")
        os.mkdir(self.path("folder.tif"))
        result = self.run_command("maketx", "missing.png", "text.exr", "empty.png", "none.ppm",
                                  "folder.tif", "good.ppm", code=1)
        for name in ("missing.png", "text.exr", "empty.png", "none.ppm", "folder.tif"):
            self.assertRegex(result.stderr, rf"(?m)^ruvell: error: {name}: .+")
        self.assertEqual(result.stdout, "good.tx\n")
        self.assertEqual(self.leftovers(), [])

    def test_an_older_texture_survives_a_failure(self):
        self.write("a.tx", "older")
        self.write("a.png", "no picture")
        self.run_command("maketx", "a.png", code=1)
        self.assertEqual(self.read("a.tx"), b"older")

    def test_the_image_is_not_overwritten(self):
        self.image("a.tx")
        before = self.read("a.tx")
        self.refuses("maketx", "a.tx", code=1, message="would overwrite its image")
        self.assertEqual(self.read("a.tx"), before)

    def test_folders_that_do_not_exist_are_reported(self):
        self.image("a.ppm")
        self.refuses("maketx", "a.ppm", "-o", "none/a.tx", code=1, message="none")

    def test_wrong_use(self):
        self.image("a.ppm")
        self.run_command("maketx", code=2)
        self.refuses("maketx", "a.ppm", "a.ppm", "-o", "x.tx", code=2, message="several images")
        self.run_command("maketx", "a.ppm", "--wrap", "around", code=2)
        self.run_command("maketx", "a.ppm", "--tile", "63", code=2)


if __name__ == "__main__":
    unittest.main()
