"""`ruvell info`, `ruvell convert` and `ruvell nodes`."""
import gzip
import json
import os
import stat
import unittest
from command_case import BALL, CommandCase

OBJ = "g tri\nv 0 0 0\nv 2 0 0\nv 0 2 0\nf 1 2 3\ng quad\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\nf 4 5 6 7\n"


class Info(CommandCase):
    def test_text_names_everything(self):
        text = self.run_command("info", BALL).stdout
        for part in ("polygons: 1, of 4 vertices", "memory: ", "bounds: (-2, 0, -2) to (2, 1, 2)",
                     "cameras: 2", "(renders)", "lights: 1", "image: 64 x 48", "outputs: 1",
                     "ball.png"):
            self.assertIn(part, text)
        self.assertRegex(text, r"(?m)^  lambert +2$")

    def test_json_has_the_same(self):
        info = json.loads(self.run_command("info", "--json", BALL).stdout)
        self.assertEqual(info["nodes"], {"box_filter": 1, "driver_png": 1, "lambert": 2,
                                         "persp_camera": 2, "point_light": 1, "polymesh": 1,
                                         "sphere": 1})
        self.assertEqual((info["polygons"], info["vertices"]), (1, 4))
        self.assertEqual(info["bounds"], {"min": [-2, 0, -2], "max": [2, 1, 2]})
        self.assertEqual(info["camera"], "camera")
        self.assertEqual([light["name"] for light in info["lights"]], ["lamp"])
        self.assertEqual(info["outputs"][0]["file"], "ball.png")
        self.assertGreater(info["peak_memory_bytes"], info["memory_bytes"])

    def test_an_empty_scene_has_no_bounds(self):
        self.write("empty.rvs", "")
        info = json.loads(self.run_command("info", "--json", "empty.rvs").stdout)
        self.assertIsNone(info["bounds"])
        self.assertIsNone(info["camera"])
        self.assertEqual(info["nodes"], {})

    def test_meshes_without_sides_are_triangles(self):
        self.write("mesh.rvs", "polymesh\n{\n vidxs 6 1 UINT 0 1 2 0 2 3\n"
                               " vlist 4 1 POINT 0 0 0 1 0 0 1 1 0 0 1 0\n}\n")
        info = json.loads(self.run_command("info", "--json", "mesh.rvs").stdout)
        self.assertEqual(info["polygons"], 2)

    def test_names_that_are_not_text_do_not_break_json(self):
        with open(self.path("odd.rvs"), "wb") as file:
            file.write(b'point_light\n{\n name "l\xfe\xe9mp"\n}\n')
        info = json.loads(self.run_command("info", "--json", "odd.rvs").stdout)
        self.assertEqual(len(info["lights"]), 1)


class Convert(CommandCase):
    def test_a_converted_scene_renders_to_the_same_image(self):
        self.run_command("render", BALL)
        image = self.read("ball.png")
        for name in ("copy.rvs", "copy.rvs.gz"):
            with self.subTest(name):
                os.remove(self.path("ball.png"))
                self.run_command("convert", BALL, name)
                self.run_command("render", name)
                self.assertEqual(self.read("ball.png"), image)

    def test_the_extension_chooses_compression(self):
        self.run_command("convert", BALL, "a.rvs")
        self.run_command("convert", "a.rvs", "b.rvs.gz")
        self.assertTrue(self.read("a.rvs").startswith(b"### exported: "))
        self.assertTrue(gzip.decompress(self.read("b.rvs.gz")).startswith(b"### exported: "))

    def test_obj_files_become_meshes(self):
        self.write("model.obj", OBJ)
        self.run_command("convert", "model.obj", "model.rvs")
        info = json.loads(self.run_command("info", "--json", "model.rvs").stdout)
        self.assertEqual(info["nodes"], {"polymesh": 2})
        self.assertEqual((info["polygons"], info["vertices"]), (2, 7))
        self.assertEqual(info["bounds"], {"min": [0, 0, 0], "max": [2, 2, 1]})

    def test_a_scene_may_be_converted_onto_itself(self):
        with open(BALL, encoding="utf-8") as file:
            self.write("a.rvs", file.read())
        self.run_command("convert", "a.rvs", "a.rvs")
        self.assertIn(b"sphere", self.read("a.rvs"))
        self.assertEqual(os.listdir(self.folder), ["a.rvs"])

    def test_overrides_of_nodes_to_come_mean_the_same(self):
        with open(BALL, encoding="utf-8") as file:
            scene = file.read()
        self.write("part.rvs", "sphere { name later radius 0.1 shader red center 0 0.5 0.6 }\n")
        self.write("plain.rvs", scene + "procedural { name p dso \"part.rvs\" min -2 -2 -2 "
                                        "max 2 2 2 }\n")
        self.write("a.rvs", "override\n{\n later radius 0.4\n later shader grey\n}\n"
                            "include \"plain.rvs\"\n")
        self.run_command("convert", "a.rvs", "b.rvs")
        self.run_command("convert", "b.rvs", "c.rvs.gz")
        images = []
        for name in "plain.rvs", "a.rvs", "b.rvs", "c.rvs.gz":
            self.run_command("render", "-q", name)
            images.append(self.read("ball.png"))
        self.assertNotEqual(images[0], images[1])
        self.assertEqual(images[1], images[2])
        self.assertEqual(images[1], images[3])

    def test_links_are_written_through(self):
        os.mkdir(self.path("real"))
        self.write("real/a.rvs", "old")
        os.symlink("real/a.rvs", self.path("link.rvs"))
        os.symlink("real/new.rvs", self.path("dangling.rvs"))
        for name, target in ("link.rvs", "real/a.rvs"), ("dangling.rvs", "real/new.rvs"):
            self.run_command("convert", BALL, name)
            self.assertTrue(os.path.islink(self.path(name)))
            self.assertTrue(self.read(target).startswith(b"### exported: "))
        self.assertEqual(sorted(os.listdir(self.path("real"))), ["a.rvs", "new.rvs"])

    def test_a_folder_is_no_obj_file(self):
        os.mkdir(self.path("model.obj"))
        self.refuses("convert", "model.obj", "a.rvs", code=1, message="model.obj: Is a directory")
        self.assertFalse(self.exists("a.rvs"))

    def test_a_replaced_file_keeps_its_permissions(self):
        for mode in (0o600, 0o664):
            os.chmod(self.write("a.rvs", "old"), mode)
            self.run_command("convert", BALL, "a.rvs")
            self.assertNotEqual(self.read("a.rvs"), b"old")
            self.assertEqual(stat.S_IMODE(os.stat(self.path("a.rvs")).st_mode), mode)

    def test_a_failed_conversion_leaves_the_old_file(self):
        self.write("out.rvs", "old")
        self.refuses("convert", "missing.rvs", "out.rvs", code=1, message="missing.rvs")
        self.assertEqual(os.listdir(self.folder), ["out.rvs"])
        self.assertEqual(self.read("out.rvs"), b"old")


class Nodes(CommandCase):
    def test_the_list_has_every_type_once(self):
        lines = self.run_command("nodes").stdout.splitlines()
        names = [line.split()[0] for line in lines[1:]]
        self.assertEqual(len(names), len(set(names)))
        self.assertEqual(len(names), 69)
        for name in ("options", "sphere", "standard", "persp_camera", "driver_exr", "override"):
            self.assertIn(name, names)

    def test_one_type_shows_types_defaults_and_allowed_values(self):
        text = self.run_command("nodes", "options").stdout
        self.assertRegex(text, r"(?m)^xres +INT +320$")
        self.assertRegex(text, r"(?m)^bucket_scanning +ENUM +top$")
        self.assertIn("one of top, bottom, left, right, random, woven, spiral, hilbert, list", text)
        self.assertRegex(text, r"(?m)^error_color_bad_texture +RGB +1 0 0$")
        self.assertRegex(text, r"(?m)^outputs +ARRAY of STRING +empty$")

    def test_json_of_all_types_and_of_one(self):
        types = json.loads(self.run_command("nodes", "--json").stdout)
        self.assertEqual(len(types), 69)
        sphere = json.loads(self.run_command("nodes", "sphere", "--json").stdout)
        self.assertEqual(sphere, [next(t for t in types if t["name"] == "sphere")])
        radius = next(p for p in sphere[0]["parameters"] if p["name"] == "radius")
        self.assertEqual(radius, {"name": "radius", "type": "ARRAY of FLOAT", "default": "0.5"})

    def test_defaults_read_back_as_they_are_shown(self):
        """Every default but those of arrays, links and strings is accepted by -D and changes nothing."""
        options = json.loads(self.run_command("nodes", "options", "--json").stdout)[0]
        arguments = []
        for param in options["parameters"]:
            if param["type"] in ("INT", "FLOAT", "BOOL", "ENUM", "RGB"):
                if param["name"] not in ("xres", "yres", "AA_samples", "bucket_size"):
                    arguments += ["-D", f"options.{param['name']}={param['default']}"]
        self.run_command("render", BALL)
        image = self.read("ball.png")
        self.run_command("render", BALL, *arguments)
        self.assertEqual(self.read("ball.png"), image)


if __name__ == "__main__":
    unittest.main()
