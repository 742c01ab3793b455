"""What `ruvell check` finds, and that it ends on every input."""
import gzip
import json
import os
import time
import unittest
from scene_case import SCENES, SceneCase


class StoredScenes(SceneCase):
    def test_a_good_scene_has_no_problems(self):
        folder = os.path.join(SCENES, "good")
        self.assertEqual(self.findings("room.rvs", folder=folder), [])
        result = self.run_within_limit("check", "room.rvs", folder=folder)
        self.assertEqual(result.stdout, "no problems\n")

    def test_odd_scenes_have_the_problems_that_are_listed_beside_them(self):
        folder = os.path.join(SCENES, "odd")
        lists = sorted(name for name in os.listdir(folder) if name.endswith(".txt"))
        self.assertGreater(len(lists), 5)
        for name in lists:
            with self.subTest(name):
                result = self.run_within_limit("check", name.replace(".txt", ".rvs"),
                                               folder=folder)
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    self.assertEqual(result.stdout, file.read())
                self.assertEqual(result.returncode, 1)


class Text(SceneCase):
    def test_gzip_files_are_read_with_the_lines_of_their_text(self):
        self.write_bytes("scene.rvs.gz", gzip.compress(b"sphere\n{\n name a\n radios 1\n}\n"))
        for name in "scene.rvs.gz", "scene.rvs", "scene":
            if name == "scene":
                os.rename(self.path("scene.rvs.gz"), self.path("scene.gz"))
            (file, line, text), = self.findings(name)
            self.assertEqual(line, 4)
            self.assertIn('"sphere" has no parameter "radios" (did you mean radius?)', text)
            self.assertTrue(file.endswith(".gz"))

    def test_damaged_gzip_files_are_reported(self):
        whole = gzip.compress(os.urandom(3000) + b"\nsphere { name a }\n")
        self.write_bytes("scene.rvs", whole[:len(whole) // 2])
        self.assertTrue(any("damaged" in text for _, _, text in self.findings("scene.rvs")))

    def test_carriage_returns_mean_nothing(self):
        found = self.check_text(b"sphere\r\n{\r\n name a\r\n radius 1\r\n}\r\nspere { }\r\n")
        self.assertEqual(len(found), 1)
        self.assert_finds(found, 6, 'unknown node type "spere"')

    def test_a_nul_is_reported(self):
        found = self.check_text(b"sphere { name a }\n\nsphere { name b\0 }\n")
        self.assert_finds(found, 3, "NUL")

    def test_the_end_marker_inside_a_file_is_reported(self):
        self.assert_finds(self.check_text(b"sphere { name a }\n\xff sphere { name b }\n"), 2, "0xFF")

    def test_a_word_that_is_too_long_is_reported(self):
        found = self.check_text("sphere { name " + "x" * 40000 + " }\n")
        self.assert_finds(found, 1, "longer than 32767")

    def test_quotes_protect_braces_and_blanks_but_not_comments(self):
        self.assertEqual(self.check_text('sphere { name "a } b" radius 1 }\n'), [])
        self.assertEqual(self.check_text('sphere { name "cut#off"\n radius 1 }\n'), [])

    def test_lines_are_counted_through_quoted_text(self):
        self.assert_finds(self.check_text('sphere { name "a\nb\nc"\n radios 1 }\n'), 4, "radios")

    def test_terminal_codes_of_a_scene_do_not_reach_the_terminal(self):
        self.check_text(b"\x1b[31mred { }\n")
        result = self.run_within_limit("check", "scene.rvs")
        self.assertNotIn("\x1b", result.stdout)
        self.assertIn("\\x1B[31mred", result.stdout)

    def test_an_empty_file_is_fine(self):
        self.assertEqual(self.check_text(""), [])

    def test_every_cut_of_a_scene_ends(self):
        with open(os.path.join(SCENES, "odd", "values.rvs"), "rb") as file:
            whole = file.read()
        for length in range(1, len(whole), 37):
            with self.subTest(length):
                self.check_text(whole[:length])


class Braces(SceneCase):
    def test_an_unclosed_block_of_an_unknown_type_does_not_hang(self):
        text = "sphere { name a }\n\nnowhere\n{\n name b\n"
        found = self.check_text(text)
        self.assert_finds(found, 3, 'the block of "nowhere" is never closed')
        for command in "render", "info":
            result = self.run_within_limit(command, "scene.rvs")
            self.assertEqual(result.returncode, 1)
            self.assertIn("scene.rvs:3: error: the block of", result.stderr)

    def test_nor_does_one_in_an_included_or_compressed_file_or_a_procedural(self):
        self.write_bytes("part.rvs.gz", gzip.compress(b"nowhere {\n"))
        for text in 'include "part.rvs"\n', 'procedural { dso "part.rvs" min 0 0 0 max 1 1 1 }\n':
            with self.subTest(text):
                self.write_bytes("scene.rvs", text.encode())
                found = self.findings("scene.rvs")
                self.assertIn(("part.rvs.gz", 1), [(file, line) for file, line, _ in found])

    def test_nor_one_from_standard_input(self):
        result = self.run_command("info", "-", stdin="nowhere {\n", code=1)
        self.assertIn("standard input:1: error: the block of", result.stderr)

    def test_a_block_that_is_not_closed(self):
        found = self.check_text("sphere\n{\n name a\n\nplane\n{\n name b\n}\n")
        self.assert_finds(found, 5, '"plane" stands inside the block of "sphere" of line 1')
        self.assert_finds(self.check_text("\nsphere { name a\n"), 2, "is not closed")

    def test_a_brace_taken_for_a_value(self):
        for text in ("lambert { Kd }", "sphere { center 0 0 }", "sphere { shader }",
                     "image { swrap }", "image { sflip }", "sphere { declare a }",
                     "polymesh { vlist 2 1 POINT 0 0 0 1 0 }", "driver_png { filename }",
                     "options { ignore_list 3 1 STRING a b }"):
            with self.subTest(text):
                found = self.check_text(text + "\n")
                self.assertTrue(any("'}'" in message for _, message in found), found)

    def test_unclosed_overrides(self):
        self.assert_finds(self.check_text("override\n{\n a radius 1\n"), 1, "not closed")
        self.assert_finds(self.check_text("override\n{\n a radius 1"), 3, "not closed")
        self.assert_finds(self.check_text("sphere { name a }\noverride { a radius 1\n"), 2,
                          "not closed")


class Includes(SceneCase):
    def test_the_file_and_line_of_an_included_problem_are_named(self):
        self.write("part.rvs", "\n\nsphere { radios 1 }\n")
        self.write("scene.rvs", 'include "part.rvs"\nsphere { rodius 1 }\n')
        self.assertEqual([(file, line) for file, line, _ in self.findings("scene.rvs")],
                         [("scene.rvs", 2), ("part.rvs", 3)])

    def test_the_search_path_of_the_scene_is_followed(self):
        self.write_bytes("lib/part.rvs", b"sphere { radios 1 }\n")
        self.write("scene.rvs", 'options { procedural_searchpath "no;;lib/" }\n'
                                'include "part.rvs"\n')
        self.assertIn(("lib/part.rvs", 1),
                      [(file, line) for file, line, _ in self.findings("scene.rvs")])

    def test_a_folder_given_by_search_is_followed(self):
        self.write_bytes("lib/part.rvs", b"sphere { name a }\n")
        self.write("scene.rvs", 'include "part.rvs"\n')
        self.assertEqual(self.findings("--search", "lib", "scene.rvs"), [])
        self.assertEqual(len(self.findings("scene.rvs")), 1)

    def test_what_follows_a_missing_include_is_looked_at(self):
        found = self.check_text('include "no.rvs"\nspere { }\n')
        self.assert_finds(found, 1, 'cannot open "no.rvs": not found')
        self.assert_finds(found, 2, "spere")

    def test_a_file_that_includes_itself(self):
        self.write("a.rvs", 'include "b.rvs"\n')
        self.write("b.rvs", '\ninclude "a.rvs"\ninclude "b.rvs"\n')
        self.assertEqual([(file, line) for file, line, _ in self.findings("a.rvs")],
                         [("b.rvs", 2), ("b.rvs", 3)])

    def test_includes_that_branch_without_end(self):
        for i in range(40):
            self.write(f"{i}.rvs", f'include "{i + 1}.rvs"\ninclude "{i + 1}.rvs"\n')
        self.write("40.rvs", "")
        found = self.findings("0.rvs")
        self.assertTrue(any("files included" in text for _, _, text in found), found)

    def test_includes_deeper_than_the_reader_goes(self):
        for i in range(300):
            self.write(f"{i}.rvs", f'include "{i + 1}.rvs"\n')
        self.write("300.rvs", "")
        self.assertTrue(any("inside each other" in text for _, _, text in self.findings("0.rvs")))


class Names(SceneCase):
    def test_procedurals_whose_contents_are_unknown_may_define_anything(self):
        self.write("mesh.obj", "g part\nv 0 0 0\n")
        scene = "sphere { name a shader part }\n"
        self.assertEqual(len(self.check_text(scene)), 1)
        procedural = 'procedural { name p dso "mesh.obj" min 0 0 0 max 1 1 1 }\n'
        self.assertEqual(self.check_text(scene + procedural), [])

    def test_scene_files_of_procedurals_are_known(self):
        self.write("leaf.rvs", "lambert { name green }\nsphere { radios 1 }\n")
        self.write("scene.rvs", "sphere { name a shader green }\nsphere { shader gren }\n"
                                'procedural { name p dso "leaf.rvs" min 0 0 0 max 1 1 1 }\n')
        self.assertEqual([(file, line) for file, line, _ in self.findings("scene.rvs")],
                         [("scene.rvs", 2), ("leaf.rvs", 2)])

    def test_an_override_of_a_node_that_nothing_defines(self):
        found = self.check_text("override { bal radius 1\n}\nsphere { name ball }\n")
        self.assert_finds(found, 1, 'override of "bal", which no block defines (did you mean ball?)')

    def test_an_unquoted_word_is_a_string_unless_a_node_has_that_name(self):
        self.write("a.tx", "")
        self.assertEqual(self.check_text("image { name i filename a.tx }\n"), [])
        found = self.check_text("image { name i filename b.tx }\n")
        self.assert_finds(found, 1, 'texture "b.tx" not found')

    def test_the_search_path_for_textures_has_two_separators(self):
        self.write_bytes("lib/a.tx", b"")
        for path in "no;lib", "no:lib", "lib:no;", "no;:lib/":
            with self.subTest(path):
                self.write_bytes("no/b.tx", b"")
                scene = f'options {{ texture_searchpath "{path}" }}\nimage {{ filename "a.tx" }}\n'
                self.assertEqual(self.check_text(scene), [])
        self.assert_finds(self.check_text('options { texture_searchpath "lib:lost" }\n'), 1,
                          'folder "lost" does not exist')

    def test_a_folder_of_the_name_of_a_texture_is_passed_over(self):
        self.write_bytes("lib/a.tx", b"")
        os.mkdir(self.path("a.tx"))
        self.assertEqual(self.check_text('options { texture_searchpath "lib" }\n'
                                         'image { filename "a.tx" }\n'), [])

    def test_sets_of_tiles_need_one_tile(self):
        rows = [("a.<UDIM>.tx", "a.1001.tx"), ("a.<UDIM>.tx", "a.1012.tx"),
                ("a.<UDIM>.tx", "lib/a.2000.tx"), ("a.%(UDIM)d.tx", "a.1011.tx"),
                ("<UDIM>/a.tx", "1001/a.tx"), ("a.<UVTILE>.tx", "a.u1_v1.tx"),
                ("a.<uvtile>.tx", "a.u0_v1.tx")]
        for name, tile in rows:
            with self.subTest(name=name, tile=tile):
                scene = ('options { texture_searchpath "lib" }\n'
                         f'image {{ filename "{name}" }}\n')
                os.makedirs(self.path("lib"), exist_ok=True)
                found = self.check_text(scene)
                self.assert_finds(found, 2, f'texture "{name}": no tile found (the first would be')
                self.assertEqual(len(found), 1)
                self.write_bytes(tile, b"")
                self.assertEqual(self.check_text(scene), [])
                os.remove(self.path(tile))

    def test_what_is_no_tile_does_not_count(self):
        for tile in "a.1000.tx", "a.2001.tx", "a.101.tx", "a.10011.tx", "a.<UDIM>.tx":
            self.write_bytes(tile, b"")
        self.assert_finds(self.check_text('image { filename "a.<UDIM>.tx" }\n'), 1,
                          'no tile found (the first would be "a.1001.tx")')

    def test_sets_of_tiles_that_cannot_be_looked_up_are_reported(self):
        scene = 'image { filename "a.<u>.tx" }\n'
        self.write_bytes("a.u1.tx", b"")
        self.assert_finds(self.check_text(scene), 1,
                          "names a set of tiles that cannot be looked up (a name with <UDIM> can)")
        self.write_bytes("a.<u>.tx", b"")
        self.assertEqual(self.check_text(scene), [], "it is a file of that name")

    def test_files_whose_names_are_refused_are_reported(self):
        for name in "a.null", "A.NUL", "a.Null?RES=9x9":
            self.write_bytes(name, b"")
            self.assert_finds(self.check_text(f'image {{ filename "{name}" }}\n'), 1,
                              f'texture "{name}" is not an image file')

    def test_ignored_types_are_passed_over(self):
        self.assertEqual(self.check_text('options { ignore_list 1 1 STRING "sphere" }\n'
                                         "sphere { radios 1 }\n"), [])

    def test_many_problems_of_a_kind_are_summed_up(self):
        found = self.check_text("spere { }\n" * 1000)
        self.assertEqual(len(found), 20)
        self.assert_finds(found, 20, "and 980 more of these")

    def test_arrays_inside_arrays_without_end(self):
        found = self.check_text("sphere { declare x constant ARRAY ARRAY\n x 1 2 3 }\n")
        self.assert_finds(found, 2, "without end")


class Size(SceneCase):
    def seconds_for(self, megabytes):
        """The time it takes to check a mesh of that size in one file."""
        numbers = "0.25 -1.5 3 " * 1024
        count = megabytes * (1 << 20) // len(numbers)
        with open(self.path("large.rvs"), "w", encoding="utf-8") as file:
            file.write(f"polymesh\n{{\n name m\n vlist {1024 * count} 1 POINT\n")
            for _ in range(count):
                file.write(numbers + "\n")
            file.write("}\n")
        start = time.monotonic()
        self.assertEqual(self.findings("large.rvs"), [])
        return time.monotonic() - start

    def test_a_hundred_megabytes_take_a_few_seconds(self):
        small, large = self.seconds_for(25), self.seconds_for(100)
        self.assertLess(large, 8 * small + 1, "the time grows with the size")
        self.assertLess(large, 40)


class Form(SceneCase):
    def test_json_holds_the_same_findings(self):
        self.write_bytes("scene.rvs", b'sp"\xe9re { }\n')
        result = self.run_within_limit("check", "--json", "scene.rvs")
        self.assertEqual(result.returncode, 1)
        found, = json.loads(result.stdout)
        self.assertEqual((found["file"], found["line"], found["severity"]),
                         ("scene.rvs", 1, "error"))
        self.assertIn("unknown node type", found["message"])

    def test_json_of_a_good_scene_is_an_empty_list(self):
        self.write("scene.rvs", "sphere { name a }\n")
        self.assertEqual(json.loads(self.run_command("check", "--json", "scene.rvs").stdout), [])

    def test_quiet_leaves_out_the_summary(self):
        self.write("scene.rvs", "sphere { name a }\n")
        self.assertEqual(self.run_command("check", "-q", "scene.rvs").stdout, "")

    def test_standard_input_is_checked(self):
        result = self.run_command("check", "-", stdin="\nspere { }\n", code=1)
        self.assertIn('standard input:2: error: unknown node type "spere"', result.stdout)

    def test_a_scene_that_is_not_there(self):
        self.assertEqual(len(self.findings("no.rvs")), 1)

    def test_a_folder_is_one_problem_with_its_name(self):
        os.mkdir(self.path("folder"))
        (file, line, text), = self.findings("folder")
        self.assertEqual((file, line), ("folder", 0))
        self.assertIn("it is a folder", text)

    def test_several_scenes_are_one(self):
        self.write("a.rvs", "sphere { name a shader grey }\n")
        self.write("b.rvs", "lambert { name grey }\n")
        self.assertEqual(self.findings("b.rvs", "a.rvs"), [])

    def test_nothing_is_rendered_or_written(self):
        self.write("scene.rvs", "options { outputs \"RGBA RGBA f d\" }\nbox_filter { name f }\n"
                                'driver_png { name d filename "a.png" }\npersp_camera { name c }\n')
        self.assertEqual(self.findings("scene.rvs"), [])
        self.assertEqual(os.listdir(self.folder), ["scene.rvs"])


if __name__ == "__main__":
    unittest.main()
