"""What --safe keeps a scene from, with the scan alone and where the scan is gone around."""
import glob
import gzip
import os
import shutil
import time
import unittest
from scene_case import SCENES, SceneCase

HOSTILE = os.path.join(SCENES, "hostile")
RENDERABLE = """
options { xres 8 yres 8 outputs "RGBA RGBA f d" }
box_filter { name f }
driver_png { name d filename "out.png" }
persp_camera { name eye position 0 0 5 look_at 0 0 0 }
sphere { name ball radius 1 shader skin }
flat { name skin color tex }
image { name tex filename "" }
procedural { name proc min -1 -1 -1 max 1 1 1 }
"""

PLAIN = RENDERABLE[:RENDERABLE.index("procedural")]


class SafeCase(SceneCase):
    def setUp(self):
        super().setUp()
        # The scene may read below `scene`, nothing beside it.
        os.mkdir(self.path("scene"))
        self.write_bytes("outside/part.rvs", b"sphere { name stolen }\n")

    def scene(self, text, name="scene/scene.rvs"):
        self.write_bytes(name, text.encode())
        return name

    def refused(self, text, message, *arguments):
        """Every command that loads scenes refuses this one, with the file and line."""
        name = self.scene(text)
        for command in ("check",), ("render", "-q"), ("info",), ("convert",):
            target = ["scene/out.rvs"] if command == ("convert",) else []
            result = self.run_within_limit(*command, "--safe", *arguments, name, *target)
            output = result.stdout + result.stderr
            self.assertEqual(result.returncode, 1, output)
            self.assertIn("not allowed in safe mode: ", output)
            self.assertIn(message, output)
            self.assertRegex(output, r"scene/\w+\.rvs:[0-9]+: error: not allowed")
        self.assertFalse(self.exists("scene/out.rvs"))

    def allowed(self, text, *arguments):
        name = self.scene(text)
        result = self.run_within_limit("check", "--safe", *arguments, name)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)


class Refusals(SafeCase):
    def test_hostile_scenes_are_refused_by_every_command(self):
        for path in sorted(glob.glob(os.path.join(HOSTILE, "*.rvs"))):
            if path.endswith("_inner.rvs"):
                continue
            with self.subTest(os.path.basename(path)):
                shutil.copytree(HOSTILE, self.path("copy"), dirs_exist_ok=True)
                name = os.path.basename(path)
                for command in ["check"], ["render"], ["info"]:
                    result = self.run_within_limit(*command, "--safe", name,
                                                   folder=self.path("copy"))
                    self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
                self.assertEqual(glob.glob(self.path("**/escaped*"), recursive=True), [])

    def test_commands_are_not_run(self):
        for text in ('include "|touch escaped"', 'include <|touch escaped>',
                     'procedural { dso "|touch escaped; cat .rvs" load_at_init on }',
                     'procedural { name p }\noverride { p dso "|touch escaped; cat .rvs"\n}'):
            with self.subTest(text):
                self.refused(text + "\n", "reading from the command")
                self.assertFalse(self.exists("escaped"))
        # The test is worth something only if the command is run otherwise.
        self.run_within_limit("info", self.scene('include "|touch escaped"\n'))
        self.assertTrue(self.exists("escaped"))

    def test_a_scene_argument_cannot_be_a_command(self):
        result = self.run_within_limit("info", "--safe", "|touch escaped")
        self.assertEqual(result.returncode, 1)
        self.assertFalse(self.exists("escaped"))

    def test_standard_input_cannot_be_included(self):
        self.refused("include <->\n", "reading from standard input")

    def test_plugins_are_not_loaded(self):
        self.refused('options { shader_searchpath "plugins" }\n', "loading plug-ins")
        self.refused("options { shader_searchpath plugins }\n", "loading plug-ins")
        self.refused('override { options shader_searchpath "plugins"\n}\n', "loading plug-ins")

    def test_libraries_are_not_loaded(self):
        self.refused('procedural { name p dso "libx" }\n', "loading the library")
        self.refused('procedural { name p dso "x.rvs.so" }\n', "loading the library")
        self.refused("procedural { name p dso libx.so }\n", "loading the library")

    def test_files_outside_of_the_roots_are_not_read(self):
        for text in ('include "outside/part.rvs"', 'include "scene/../outside/part.rvs"',
                     f'include "{self.path("outside/part.rvs")}"',
                     'procedural { dso "outside/part.rvs" }', 'procedural { dso "outside/x.obj" }',
                     'image { filename "outside/a.png" }', 'image { image_map "/etc/passwd" }',
                     "image { filename /etc/passwd }",
                     'options { texture_searchpath "scene;outside" }',
                     'options { texture_searchpath "none:outside" }',
                     'options { procedural_searchpath "/etc" }'):
            with self.subTest(text):
                self.refused(text + "\n", "outside of the roots")

    def test_textures_are_plain_files(self):
        os.mkfifo(self.path("scene/pipe.png"))
        self.write_bytes("scene/t.1001.png", b"")
        os.mkfifo(self.path("scene/t.1002.png"))
        self.write_bytes("scene/a.null?RES=9x9", b"")
        for name in ("scene/pipe.png", "scene/lost.png", "scene", "scene/a.null?RES=9x9",
                     "scene/b.NULL?RES=9x9", "scene/t.<UDIM>.png"):
            with self.subTest(name):
                self.refused(f'image {{ filename "{name}" }}\n', "which is no plain file")

    def test_every_tile_of_a_set_is_looked_at(self):
        self.write_bytes("scene/a.1001.png", b"")
        self.allowed('image { filename "scene/a.<UDIM>.png" }\n')
        self.write_bytes("outside/a.1012.png", b"")
        os.symlink(self.path("outside/a.1012.png"), self.path("scene/a.1012.png"))
        self.refused('image { filename "scene/a.<UDIM>.png" }\n',
                     'reading "scene/a.1012.png", which is')
        self.refused('image { filename "outside/a.<UDIM>.png" }\n', "outside of the roots")
        self.refused('image { filename "/etc/none.<UDIM>.png" }\n', "outside of the roots")

    def test_every_place_of_a_texture_is_looked_at(self):
        os.mkdir(self.path("scene/a.png"))
        os.symlink(self.path("outside"), self.path("scene/lib"))
        self.write_bytes("outside/a.png", b"")
        self.refused('image { filename "scene/a.png" }\nimage { filename "lib/a.png" }\n'
                     'options { texture_searchpath "none:scene" }\n',
                     'reading "scene/lib/a.png"')

    def test_symbolic_links_do_not_lead_out(self):
        os.symlink(self.path("outside/part.rvs"), self.path("scene/link.rvs"))
        os.symlink(self.path("outside"), self.path("scene/folder"))
        os.symlink(self.path("outside/new.png"), self.path("scene/new.png"))
        self.refused('include "scene/link.rvs"\n', "outside of the roots")
        self.refused('include "scene/folder/part.rvs"\n', "outside of the roots")
        self.refused('driver_png { filename "scene/folder/new.png" }\n', "outside of the roots")
        self.refused('driver_png { filename "scene/new.png" }\n', "symbolic link")

    def test_files_outside_of_the_roots_are_not_written(self):
        self.refused('driver_png { filename "outside/a.png" }\n', "outside of the roots")
        self.refused('driver_exr { filename "/usr/a.exr" }\n', "outside of the roots")
        self.refused('driver_png { filename "scene/scene.rvs" }\n', "writing over the scene")

    def test_the_users_own_files_do_not_open_their_folders(self):
        self.write_bytes("outside/victim.txt", b"precious")
        name = self.scene(RENDERABLE.replace('"out.png"', '"outside/victim.txt"'))
        for option in "--log-file", "--stats-json":
            result = self.run_within_limit("render", "--safe", option, "outside/own.txt", name)
            self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
            self.assertIn("outside of the roots", result.stderr)
        with open(self.path("outside/victim.txt")) as file:
            self.assertEqual(file.read(), "precious")

    def test_nested_scenes_of_procedurals_do_not_escape(self):
        self.write("scene/a.rvs", 'procedural { name b dso "scene/b.rvs" }\n')
        self.write("scene/b.rvs", 'include "outside/part.rvs"\n')
        name = self.scene('procedural { name a dso "scene/a.rvs" }\n')
        result = self.run_within_limit("check", "--safe", name)
        self.assertEqual(result.returncode, 1)
        self.assertIn("scene/b.rvs:1: error: not allowed in safe mode", result.stdout)

    def test_a_procedural_that_loads_itself_is_refused(self):
        self.scene('procedural { name a dso "scene/scene.rvs" }\n')
        result = self.run_within_limit("render", "--safe", "scene/scene.rvs")
        self.assertEqual(result.returncode, 1)
        self.assertIn("loads itself", result.stderr)

    def test_overrides_of_nodes_to_come_are_looked_at(self):
        self.write("scene/a.rvs", 'procedural { name inner }\n')
        self.refused('override { inner dso "outside/part.rvs"\n}\n'
                     'procedural { name outer dso "scene/a.rvs" }\n', "outside of the roots")

    def test_nothing_hides_behind_broken_text(self):
        for text in ("sphere { radius }\n", "sphere name a\n", "sphere { name a\0 }\n",
                     "} sphere { name a }\n", "sphere { name a\n", "sphere { name \xff }\n"):
            with self.subTest(text):
                self.write_bytes("scene/scene.rvs", text.encode("latin-1"))
                result = self.run_within_limit("check", "--safe", "scene/scene.rvs")
                self.assertEqual(result.returncode, 1)
                result = self.run_within_limit("info", "--safe", "scene/scene.rvs")
                self.assertEqual(result.returncode, 1, result.stdout)


class Permissions(SafeCase):
    def test_what_is_inside_of_the_roots_is_allowed(self):
        self.write_bytes("scene/part.rvs", b"sphere { name a }\n")
        self.write_bytes("scene/a.png", b"")
        self.allowed('include "scene/part.rvs"\nimage { name i filename "scene/a.png" }\n'
                     'driver_png { name d filename "scene/out.png" }\n')

    def test_textures_are_found_in_the_folders_of_the_search_path(self):
        self.write_bytes("scene/lib/a.png", b"")
        for path in "scene/lib", "scene;scene/lib", "scene:scene/lib":
            with self.subTest(path):
                self.allowed(f'options {{ texture_searchpath "{path}" }}\n'
                             'image { filename "a.png" }\n')

    def test_roots_are_given_by_root(self):
        include = 'include "outside/part.rvs"\n'
        self.allowed(include, "--root", "scene", "--root", "outside")
        self.allowed(include, "--root", "outside")
        self.refused(include, "outside of the roots", "--root", "scene")

    def test_folders_given_by_search_may_be_read(self):
        self.allowed('include "part.rvs"\n', "--search", "outside")

    def test_a_scene_from_standard_input_has_the_current_folder(self):
        self.run_command("info", "--safe", "-", stdin='include "outside/part.rvs"\n')
        self.refuses_input('include "/etc/hostname"\n')

    def refuses_input(self, text):
        result = self.run_command("info", "--safe", "-", stdin=text, code=1)
        self.assertIn("standard input:1: error: not allowed in safe mode", result.stderr)

    def test_a_safe_render_writes_its_images(self):
        self.write("scene.rvs", RENDERABLE.replace("proc min", "proc dso \"part.rvs\" min"))
        self.write("part.rvs", "sphere { name inner radius 0.2 }\n")
        self.run_command("render", "--safe", "-q", "scene.rvs")
        self.assertEqual(self.png("out.png").width, 8)
        os.mkdir(self.path("else"))
        for name in "else/a.png", "else/a.tif", "else/a.exr", "else/a.jpg":
            self.run_command("render", "--safe", "-q", "scene.rvs", "-o", name)
            self.assertTrue(self.exists(name))

    def test_a_sequence_has_the_folders_of_all_its_frames(self):
        for frame in 1, 2, 3:
            os.makedirs(self.path(f"in{frame}"))
            os.makedirs(self.path(f"in{frame}/out{frame}"))
            os.mkdir(self.path(f"else{frame}"))
            self.write(f"in{frame}/part{frame}.rvs", "sphere { name part }\n")
            self.write(f"in{frame}/s.{frame}.rvs",
                       PLAIN.replace('"out.png"', f'"in{frame}/out{frame}/a.%02d.png"')
                       + f'include "in{frame}/part{frame}.rvs"\n')
        self.run_command("render", "--safe", "-q", "in%d/s.#.rvs", "--frames", "1-3")
        self.run_command("render", "--safe", "-q", "in%d/s.#.rvs", "--frames", "1-3",
                         "-o", "else%d/b.png")
        for frame in 1, 2, 3:
            self.assertTrue(self.exists(f"in{frame}/out{frame}/a.{frame:02d}.png"))
            self.assertTrue(self.exists(f"else{frame}/b.png"))

    def test_a_frame_may_not_use_the_folder_of_another(self):
        for frame in 1, 2:
            os.makedirs(self.path(f"in{frame}"))
            self.write(f"in{frame}/s.{frame}.rvs",
                       PLAIN.replace('"out.png"', '"in1/a.%02d.png"'))
        result = self.refuses("render", "--safe", "-q", "in%d/s.#.rvs", "--frames", "1-2", code=1,
                              message="outside of the roots")
        self.assertIn("in2/s.2.rvs", result.stderr)
        self.assertEqual(sorted(os.listdir(self.path("in1"))), ["a.01.png", "s.1.rvs"])

    def test_the_number_of_a_frame_does_not_lead_out(self):
        os.symlink(self.path("outside"), self.path("scene/1"))
        name = self.scene(PLAIN.replace('"out.png"', '"scene/%d/a.png"'))
        for frames in "1", "1-2":
            self.refuses("render", "--safe", "-q", name, "--frames", frames, code=1,
                         message="outside of the roots")
        self.assertEqual(os.listdir(self.path("outside")), ["part.rvs"])

    def test_options_of_safe_mode_need_it(self):
        self.write("scene.rvs", "")
        for option in ("--root", "."), ("--max-memory", "1G"), ("--max-nodes", "5"), \
                ("--max-scan", "5s"):
            self.run_command("info", *option, "scene.rvs", code=2)


class Limits(SafeCase):
    def test_the_pixels_of_an_image_are_bounded(self):
        self.write("scene.rvs", PLAIN.replace("xres 8 yres 8", "xres 999999 yres 999999"))
        self.refuses("render", "--safe", "scene.rvs", code=1,
                     message="error: not allowed in safe mode: an image of 999999 x 999999 pixels, "
                             "more than the 268435456 of --max-pixels")
        render = ["render", "--safe", "-q", "scene.rvs", "-r", "8x8", "--max-pixels"]
        self.refuses(*render, "63", code=1, message="more than the 63 of --max-pixels")
        self.assertFalse(self.exists("out.png"))
        self.run_command(*render, "64")
        self.assertEqual(self.png("out.png").width, 8)

    def test_the_number_of_nodes_is_bounded(self):
        nodes = "sphere { radius 1 }\n"
        self.allowed(nodes * 10, "--max-nodes", "10")
        self.refused(nodes * 11, "more than 10 nodes", "--max-nodes", "10")

    def test_included_nodes_and_those_of_procedurals_count_each_time(self):
        self.write("scene/five.rvs", "sphere { radius 1 }\n" * 5)
        include = 'include "scene/five.rvs"\n'
        self.allowed(include * 2, "--max-nodes", "10")
        self.refused(include * 3, "more than 10 nodes", "--max-nodes", "10")
        procedural = 'procedural { dso "scene/five.rvs" }\n'
        self.refused(procedural * 3, "more than 17 nodes", "--max-nodes", "17")
        self.allowed(procedural * 3, "--max-nodes", "18")

    def test_procedurals_that_multiply_are_counted_without_being_read_again(self):
        for i in range(30):
            self.write(f"scene/{i}.rvs", f'procedural {{ dso "scene/{i + 1}.rvs" }}\n' * 10)
        self.write("scene/30.rvs", "sphere { radius 1 }\n")
        name = self.scene('procedural { dso "scene/0.rvs" }\n')
        result = self.run_within_limit("info", "--safe", name)
        self.assertEqual(result.returncode, 1)
        self.assertIn("more than 1000000 nodes", result.stderr)

    def test_memory_is_bounded_with_a_clear_message(self):
        count = 4000000
        self.write("scene/scene.rvs", "polymesh { name m nsides 1 1 UINT 3 vlist "
                   f"{count} 1 POINT " + "0 0 0 " * count + "}\n")
        result = self.run_within_limit("info", "--safe", "--max-memory", "60M", "scene/scene.rvs")
        self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
        self.assertIn("--max-memory", result.stderr)
        result = self.run_within_limit("info", "--safe", "--max-memory", "1G", "scene/scene.rvs")
        self.assertEqual(result.returncode, 0, result.stderr)


    def test_the_time_of_a_scan_is_bounded(self):
        message = "it takes longer than 0:00 to look at the scene (see --max-scan)"
        with gzip.open(self.path("scene/blanks.rvs.gz"), "wb", compresslevel=1) as file:
            for _ in range(400):
                file.write(b" " * (1 << 20))
        for i in range(16):
            self.write(f"scene/{i}.rvs", f'include "scene/{i + 1}.rvs"\n' * 2)
        self.write("scene/16.rvs", "")
        for text in 'include "scene/blanks.rvs"\n', 'include "scene/0.rvs"\n', \
                "sphere { }\n" * 2000000, 'image { filename "a.png" }\n' * 500000:
            with self.subTest(text[:40]):
                name = self.scene(text)
                start = time.monotonic()
                result = self.run_within_limit("check", "--safe", "--max-nodes", "100000000",
                                               "--max-scan", "100ms", name)
                self.assertEqual(result.returncode, 1)
                self.assertIn(message, result.stdout)
                self.assertLess(time.monotonic() - start, 10)

    def test_memory_is_bounded_while_the_scene_is_looked_at(self):
        self.write("scene/scene.rvs", 'override { nobody filename "' + "x" * 200000000 + '"\n}\n')
        result = self.run_within_limit("info", "--safe", "--max-memory", "100M", "scene/scene.rvs")
        self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
        self.assertIn("--max-memory", result.stderr)


class Addresses(SafeCase):
    def test_nodes_do_not_pass_for_code_or_data(self):
        for block in ("procedural { name p load_at_init on funcptr ball }",
                      "procedural { name p load_at_init on userptr ball }",
                      "driver_display { name d callback ball }",
                      "driver_display { name d callback_data ball }",
                      "list_aggregate { name l obj_list ball }",
                      "override {\n l obj_list ball\n}\nlist_aggregate { name l }"):
            name = self.scene("sphere { name ball radius 1 }\n" + block + "\n")
            for mode in [], ["--safe"]:
                result = self.run_within_limit("check", *mode, name)
                self.assertEqual(result.returncode, 1, result.stdout)
                self.assertIn("is the address of code or data", result.stdout)
                self.assertNotIn("2 errors", result.stdout)
            result = self.run_within_limit("info", "--safe", name)
            self.assertEqual(result.returncode, 1, result.stderr)
            self.assertIn("is the address of code or data", result.stderr)
            result = self.run_within_limit("info", name)
            self.assertEqual(result.returncode, 0, result.stderr)
            place = "" if block.startswith("override") else "scene/scene.rvs:2: "
            self.assertRegex(result.stderr, rf"warning: {place}\w\.\w+: an address, which only a "
                                            "program can give; ignoring \"ball\"")
        self.allowed("procedural { name p funcptr NULL min -1 -1 -1 max 1 1 1 }")


class Confinement(SafeCase):
    """-D is the user's own and is not looked at by the scan, so it shows what the process can do."""

    def setUp(self):
        super().setUp()
        self.write("scene/scene.rvs", RENDERABLE.replace('"out.png"', '"scene/out.png"'))

    def render(self, *arguments):
        return self.run_within_limit("render", *arguments, "scene/scene.rvs")

    def test_commands_cannot_be_run(self):
        define = ("-D", "proc.dso=|touch escaped; cat .rvs")
        self.render("--safe", *define)
        self.assertFalse(self.exists("escaped"))
        self.render(*define)
        self.assertTrue(self.exists("escaped"))

    def test_files_outside_of_the_roots_cannot_be_opened(self):
        define = ("-D", "proc.dso=outside/part.rvs")
        self.assertIn("Permission denied", self.render("--safe", *define).stderr)
        self.assertNotIn("Permission denied", self.render(*define).stderr)

    def test_libraries_cannot_be_loaded(self):
        library, = glob.glob("/usr/lib/x86_64-linux-gnu/libz.so.1")
        shutil.copy(os.path.realpath(library), self.path("scene/libx.so"))
        define = ("-D", "proc.dso=" + self.path("scene/libx.so"))
        self.assertIn("error reading dynamic library", self.render("--safe", *define).stderr)
        self.assertIn("unable to get symbol", self.render(*define).stderr)

    def test_files_outside_of_the_roots_cannot_be_written(self):
        define = ("-D", "d.filename=outside/stolen.png")
        self.render("--safe", *define)
        self.assertFalse(self.exists("outside/stolen.png"))
        self.render(*define)
        self.assertTrue(self.exists("outside/stolen.png"))


if __name__ == "__main__":
    unittest.main()
