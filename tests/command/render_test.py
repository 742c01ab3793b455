"""What `ruvell render` writes, and how its options change that."""
import gzip
import json
import os
import re
import unittest
from command_case import BALL, CommandCase, exr_header, exr_size


class Render(CommandCase):
    def test_outputs_of_the_scene_are_written(self):
        self.run_command("render", BALL)
        image = self.png("ball.png")
        self.assertEqual((image.width, image.height), (64, 48))
        red, green, _, _ = image.pixel(32, 24)
        self.assertGreater(red, 2 * green)

    def test_the_extension_chooses_the_driver(self):
        signatures = {"a.png": b"\x89PNG", "a.jpg": b"\xff\xd8\xff", "a.jpeg": b"\xff\xd8\xff",
                      "a.tif": b"II*\0", "a.TIFF": b"II*\0", "a.exr": b"\x76\x2f\x31\x01"}
        for name, signature in signatures.items():
            with self.subTest(name):
                self.run_command("render", BALL, "-o", name)
                self.assertTrue(self.read(name).startswith(signature))
        self.assertFalse(self.exists("ball.png"), "the outputs of the scene are replaced")

    def test_a_driver_of_the_same_format_keeps_its_settings_and_all_its_outputs(self):
        with open(BALL, encoding="utf-8") as file:
            scene = file.read()
        scene = scene.replace('outputs "RGBA RGBA filter driver"',
                              'outputs 2 1 STRING "RGBA RGBA filter layers" "Z FLOAT filter layers"')
        scene += "driver_exr\n{\n name layers\n filename \"old.exr\"\n preserve_layer_name on\n}\n"
        self.write("layers.rvs", scene)
        self.run_command("render", "layers.rvs", "-o", "new.exr")
        self.assertIn(b"Z\0", exr_header(self.read("new.exr"))["channels"])
        self.assertFalse(self.exists("old.exr"))

    def test_a_scene_without_outputs_needs_a_file(self):
        with open(BALL, encoding="utf-8") as file:
            scene = file.read().replace('outputs "RGBA RGBA filter driver"', "")
        self.write("plain.rvs", scene)
        self.refuses("render", "plain.rvs", code=1, message="name an image file with --output")
        self.run_command("render", "plain.rvs", "-o", "plain.png")
        self.assertEqual(self.png("plain.png").width, 64)

    def test_resolution(self):
        self.run_command("render", BALL, "-o", "a.exr", "-r", "33x17")
        self.assertEqual(exr_size(self.read("a.exr")), (33, 17))

    def test_crop_includes_both_corners(self):
        self.run_command("render", BALL, "-o", "a.exr", "--crop", "10", "5", "29", "14")
        self.assertEqual(exr_size(self.read("a.exr")), (20, 10))

    def test_a_crop_outside_of_the_image_is_refused(self):
        self.run_command("render", BALL, "--crop", "0", "0", "64", "47", code=1)

    def test_more_samples_give_softer_edges(self):
        def shades(name):
            image = self.png(name)
            return len({pixel for row in range(48)
                        for pixel in [image.pixel(x, row) for x in range(64)]})
        quiet = ["-D", "driver.dither_amplitude=0", "-D", "red.Kd=1"]
        self.run_command("render", BALL, *quiet)
        os.rename(self.path("ball.png"), self.path("coarse.png"))
        self.run_command("render", BALL, "--aa", "5", *quiet)
        self.assertGreater(shades("ball.png"), shades("coarse.png"))

    def test_camera_by_name(self):
        self.run_command("render", BALL)
        front = self.read("ball.png")
        self.run_command("render", BALL, "--camera", "top_camera")
        self.assertNotEqual(self.read("ball.png"), front)

    def test_the_seed_changes_the_noise_only(self):
        images = []
        for seed in ("1", "1", "7"):
            self.run_command("render", BALL, "--aa", "2", "--seed", seed)
            images.append(self.png("ball.png"))
        self.assertEqual(images[0].rows, images[1].rows)
        self.assertNotEqual(images[0].rows, images[2].rows)
        for one, other in zip(images[0].mean(), images[2].mean()):
            self.assertAlmostEqual(one, other, delta=3)

    def test_threads_do_not_change_the_image(self):
        self.run_command("render", BALL, "-t", "1")
        one = self.read("ball.png")
        self.run_command("render", BALL, "-t", "4")
        self.assertEqual(self.read("ball.png"), one)

    def test_several_scenes_are_one_scene(self):
        self.write("more.rvs", "override\n{\n red Kd_color 0 0.8 0\n}\n")
        self.run_command("render", BALL, "more.rvs")
        red, green, _, _ = self.png("ball.png").pixel(32, 24)
        self.assertGreater(green, red)

    def test_scene_from_standard_input(self):
        with open(BALL, encoding="utf-8") as file:
            self.run_command("render", "-", "-o", "in.png", stdin=file.read())
        self.assertEqual(self.png("in.png").height, 48)

    def test_compressed_scene(self):
        with open(BALL, "rb") as file, gzip.open(self.path("b.rvs.gz"), "wb") as packed:
            packed.write(file.read())
        self.run_command("render", "b.rvs.gz")
        self.assertEqual(self.png("ball.png").height, 48)

    def test_search_finds_included_files(self):
        os.mkdir(self.path("parts"))
        with open(BALL, encoding="utf-8") as file:
            self.write("parts/ball.rvs", file.read())
        self.write("main.rvs", "include \"ball.rvs\"\n")
        self.run_command("render", "main.rvs", code=1)
        self.run_command("render", "main.rvs", "--search", "parts")
        self.assertTrue(self.exists("ball.png"))

    def test_frames_number_scenes_and_outputs(self):
        with open(BALL, encoding="utf-8") as file:
            scene = file.read()
        for frame in (1, 3, 5):
            self.write(f"ball.{frame:04d}.rvs",
                       scene.replace("radius 0.5", f"radius 0.{frame}")
                            .replace("ball.png", "seen.%02d.png"))
        self.run_command("render", "ball.####.rvs", "--frames", "1-6x2")
        images = [self.png(f"seen.{frame:02d}.png") for frame in (1, 3, 5)]
        self.assertEqual(len({bytes(b"".join(image.rows)) for image in images}), 3)
        self.run_command("render", "ball.%04d.rvs", "--frames", "3-5x2", "-o", "o%03d.exr")
        self.assertEqual(sorted(n for n in os.listdir(self.folder) if n.endswith("exr")),
                         ["o003.exr", "o005.exr"])

    def test_number_signs_in_folders_are_no_places_for_frames(self):
        os.mkdir(self.path("shot#1"))
        with open(BALL, encoding="utf-8") as file:
            self.write("shot#1/ball.rvs", file.read())
        self.refuses("render", "shot#1/ball.rvs", "--frames", "1-2", "-o", "shot#1/a.png", code=2,
                     message="needs a place for the number")
        self.run_command("render", "shot#1/ball.rvs", "--frames", "1-2", "-o", "shot#1/a.##.png")
        self.assertEqual(sorted(os.listdir(self.path("shot#1"))),
                         ["a.01.png", "a.02.png", "ball.rvs"])

    def test_folders_may_be_numbered_as_printf_does(self):
        for frame in 1, 2:
            os.mkdir(self.path(f"f{frame:02d}"))
        self.run_command("render", BALL, "--frames", "1-2", "-o", "f%02d/a.png")
        self.assertTrue(self.exists("f01/a.png") and self.exists("f02/a.png"))

    def test_a_missing_frame_ends_the_sequence(self):
        self.refuses("render", "ball.##.rvs", "--frames", "1-2", "-o", "a.#.png", code=1,
                     message="ball.01.rvs: No such file")


class Define(CommandCase):
    def render(self, *assignments):
        arguments = [word for text in assignments for word in ("-D", text)]
        self.run_command("render", BALL, *arguments)
        return self.png("ball.png")

    def test_colours_numbers_and_options_are_set(self):
        image = self.render("red.Kd_color=0 0 0.9", "options.xres=20", "lamp.intensity=20")
        red, _, blue, _ = image.pixel(10, 24)
        self.assertEqual(image.width, 20)
        self.assertGreater(blue, red)

    def test_links_and_node_values_are_set(self):
        red, green, _, _ = self.render("ball.shader=grey").pixel(32, 24)
        self.assertAlmostEqual(red, green, delta=3)

    def test_strings_need_no_quotes_and_may_hold_anything(self):
        for value, name in (("a b#c}.png", "a b#c}.png"), ('"q \\"d\\".png"', 'q "d".png'),
                            ("plain.png", "plain.png")):
            with self.subTest(value):
                self.run_command("render", BALL, "-D", "driver.filename=" + value)
                self.assertTrue(self.exists(name))

    def test_arrays_enumerations_and_booleans_are_set(self):
        self.render("floor.vlist=4 1 POINT -1 0 1 1 0 1 1 0 -1 -1 0 -1", "ball.radius=0.25",
                    "options.bucket_scanning=spiral", "floor.opaque=off",
                    "options.buckets=1 1 POINT2 0 0")

    def test_a_later_assignment_wins(self):
        self.assertEqual(self.render("options.xres=9", "options.xres=11").width, 11)

    def test_mistakes_are_named(self):
        rows = [
            ("bal.radius=1", "there is no node 'bal' (did you mean ball?)"),
            ("ball.radiu=1", "a sphere has no parameter 'radiu' (did you mean radius?)"),
            ("ball.radius=1 2", "FLOAT takes 1 value, not 2"),
            ("ball.shader=gey", "there is no node 'gey' (did you mean grey"),
            ("red.Kd_color=1 0", "RGB takes 3 values, not 2"),
            ("red.Kd_color=1 0 x", "'x' is not a number"),
            ("red.Kd_color=rad", "there is no node 'rad' (did you mean red"),
            ("options.xres=1.5", "'1.5' is not a whole number"),
            ("options.xres=99999999999", "'99999999999' is not within -2147483648 to 2147483647"),
            ("options.bucket_scanning=spirl", "'spirl' is none of top, bottom, left"),
            ("options.abort_on_error=maybe", "there is no node 'maybe'"),
            ("ball.radius=", "there is no value"),
            ("floor.vlist=2 1 POINT 0 0 0", "POINT takes 6 values, not 3"),
            ("options.xres=5\n}", "takes 1 value, not 2"),
            ("options.xres=99999999999999999999 #", "takes 1 value"),
        ]
        for assignment, message in rows:
            with self.subTest(assignment):
                result = self.refuses("render", BALL, "-D", assignment, code=1, message=message)
                self.assertIn("-D " + assignment.split("\n", maxsplit=1)[0], result.stderr)
                self.assertFalse(self.exists("ball.png"))


class Folders(CommandCase):
    def test_a_folder_that_cannot_be_written_is_reported_before_rendering(self):
        for output in ("nowhere/a.png", "/proc/a.png"):
            with self.subTest(output):
                result = self.refuses("render", BALL, "-o", output, "-r", "4000x4000", code=1,
                                      message="cannot write " + output)
                self.assertNotIn("%", result.stderr)

    def test_folders_of_the_scenes_own_outputs_are_checked_too(self):
        result = self.refuses("render", BALL, "-D", "driver.filename=lost/a.png", code=1,
                              message="cannot write lost/a.png: No such file or directory")
        self.assertNotIn("%", result.stderr)

    def test_a_folder_in_place_of_the_file_is_reported(self):
        os.mkdir(self.path("a.png"))
        self.refuses("render", BALL, "-o", "a.png", code=1, message="cannot write a.png")

    def test_an_image_needs_a_folder_that_takes_new_files(self):
        os.symlink("/proc/self/comm", self.path("ball.png"))  # may be written, its folder not
        result = self.refuses("render", BALL, code=1, message="cannot write ball.png: ")
        self.assertNotIn("%", result.stderr)

    def test_the_check_leaves_nothing_behind(self):
        self.run_command("render", BALL)
        self.assertEqual(os.listdir(self.folder), ["ball.png"])


class Messages(CommandCase):
    def test_progress_is_plain_lines_without_a_terminal(self):
        lines = self.run_command("render", BALL).stderr.splitlines()
        form = re.compile(r"^ *\d+%  \d+ rays/pixel  \d+:\d\d elapsed  (\d+:\d\d|-:--) left$")
        self.assertTrue(lines)
        for line in lines:
            self.assertRegex(line, form)
        self.assertTrue(lines[-1].startswith("100%"))

    def test_quiet_says_nothing(self):
        result = self.run_command("render", BALL, "-q")
        self.assertEqual(result.stdout + result.stderr, "")

    def test_quiet_does_not_hide_errors(self):
        self.refuses("render", "missing.rvs", "-q", code=1, message="missing.rvs: No such file")

    def test_verbose_tells_what_is_done_and_twice_tells_more(self):
        once = self.run_command("render", BALL, "-v").stderr
        twice = self.run_command("render", BALL, "-vv").stderr
        self.assertIn("rendering image at 64 x 48", once)
        self.assertIn("built as: linux", once)
        self.assertNotIn("[aov] parsing output statement", once)
        self.assertIn("[aov] parsing output statement", twice)

    def test_results_go_to_standard_output_and_messages_do_not(self):
        self.assertEqual(self.run_command("render", BALL, "-vv").stdout, "")

    def test_log_file_has_times_loads_and_the_render(self):
        self.run_command("render", BALL, "-q", "--log-file", "log.txt")
        lines = self.read("log.txt").decode().splitlines()
        for line in lines:
            self.assertRegex(line, r"^\d\d:\d\d:\d\d +\d+mb (        |WARNING |ERROR   )\|")
        text = "\n".join(lines)
        for part in ("log started", "built as: ", "loading ", "parsed 10 nodes",
                     "rendering image at 64 x 48", "100% done", "render done"):
            self.assertIn(part, text)

    def test_statistics_are_printed(self):
        text = self.run_command("render", BALL, "-q", "--stats").stdout
        self.assertIn("render time:", text)
        self.assertIn("ray counts:", text)

    def test_statistics_of_a_sequence_have_a_record_for_each_frame(self):
        self.run_command("render", BALL, "--frames", "1-3", "-o", "a.#.png", "--stats-json",
                         "s.json", "-q")
        document = json.loads(self.read("s.json"))
        self.assertEqual([render["frame"] for render in document["renders"]], [1, 2, 3])
        result = self.run_command("render", BALL, "-q", "--stats-json", "/dev/stdout")
        self.assertEqual(len(json.loads(result.stdout)["renders"]), 1)

    def test_statistics_of_a_render_that_fails_are_a_whole_document(self):
        self.run_command("render", "missing.rvs", "--stats-json", "s.json", code=1)
        self.assertEqual(json.loads(self.read("s.json"))["renders"], [])

    def test_statistics_as_json(self):
        self.run_command("render", BALL, "--stats-json", "s.json", "-t", "2")
        document = json.loads(self.read("s.json"))
        render = document["renders"][0]
        self.assertEqual((document["version"], render["result"]), ("3.3.6.0", "finished"))
        self.assertEqual((render["width"], render["height"], render["threads"]), (64, 48, 2))
        self.assertGreater(render["peak_memory_bytes"], 1 << 20)
        self.assertGreater(render["seconds"], 0)
        self.assertEqual(render["outputs"][0]["file"], "ball.png")
        sections = {section["title"]: section["rows"] for section in render["sections"]}
        camera = next(row for row in sections["ray counts"] if row["label"] == "camera")
        self.assertEqual(camera["values"][0], 64 * 48)
        total = next(row for row in sections["render time"] if row["label"] == "total")
        self.assertGreaterEqual(total["values"][0], 0)
        self.assertLess(total["values"][0], render["seconds"] + 1)


if __name__ == "__main__":
    unittest.main()
