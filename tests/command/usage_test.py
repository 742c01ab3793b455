"""Help, versions, wrong use and exit codes."""
import unittest
from command_case import BALL, CommandCase


class Usage(CommandCase):
    def test_help_lists_the_commands_and_the_exit_codes(self):
        text = self.run_command("--help").stdout
        for word in ("render", "info", "convert", "nodes", "version", "completion",
                     "124", "stopped by --timeout", "130", "interrupted"):
            self.assertIn(word, text)
        self.assertNotIn("manual", text)

    def test_help_of_every_command_has_its_usage(self):
        for command in ("render", "info", "convert", "nodes", "version", "completion"):
            with self.subTest(command):
                result = self.run_command(command, "--help")
                self.assertIn(f"Usage: ruvell {command}", result.stdout)
                self.assertEqual(result.stderr, "")

    def test_help_of_render_has_every_option(self):
        text = self.run_command("render", "--help").stdout
        for option in ("-o,--output FILE", "-r,--resolution WxH", "--crop X0 Y0 X1 Y1", "--aa N",
                       "-t,--threads N", "--camera NAME", "-D,--define NODE.PARAM=VALUE",
                       "--seed N", "--plugins DIR", "--search DIR", "--frames A-BxSTEP",
                       "-v,--verbose", "-q,--quiet", "--log-file FILE", "--stats",
                       "--stats-json FILE", "--timeout DURATION"):
            self.assertIn(option, text)

    def test_version_names_the_interface_and_the_real_build(self):
        self.assertEqual(self.run_command("--version").stdout, "ruvell 3.3.6.0\n")
        lines = self.run_command("version").stdout.splitlines()
        self.assertTrue(lines[0].startswith("Ruvell 3.3.6.0 "))
        self.assertRegex(lines[1], r"^built as: linux x86-64, (gcc|clang) .*OpenImageIO \d.* build$")

    def test_wrong_use_ends_with_2_and_says_why(self):
        rows = [
            ([], "A subcommand is required"),
            (["rendr"], "there is no command 'rendr' (did you mean render?)"),
            (["render"], "SCENE is required"),
            (["render", BALL, "--no-such-option"], "--no-such-option"),
            (["render", BALL, "-r", "12"], "'12' is not a size such as 640x480"),
            (["render", BALL, "-r", "0x5"], "'0x5' is not a size"),
            (["render", BALL, "--crop", "5", "5", "1", "9"], "--crop needs 0 <= X0 <= X1"),
            (["render", BALL, "--crop", "-1", "0", "1", "9"], "--crop needs 0 <= X0"),
            (["render", BALL, "-t", "65"], "--threads"),
            (["render", BALL, "-D", "ball"], "'ball' is not of the form NODE.PARAM=VALUE"),
            (["render", BALL, "--timeout", "soon"], "'soon' is not a duration"),
            (["render", BALL, "--timeout", "0"], "'0' is not a duration"),
            (["render", BALL, "--frames", "5-1"], "'5-1' is not a range"),
            (["render", BALL, "--frames", "1-5x0"], "'1-5x0' is not a range"),
            (["render", BALL, "--frames", "1-2", "-o", "a.png"], "needs a place for the number"),
            (["render", "-", "-"], "standard input can be read only once"),
            (["render", BALL, "--plugins", "nowhere"], "nowhere"),
            (["convert", BALL, "out.txt"], "'out.txt' does not end in .rvs or .rvs.gz"),
            (["nodes", "--json", "--markdown"], "--json"),
            (["completion", "fish"], "fish"),
        ]
        for arguments, message in rows:
            with self.subTest(arguments):
                result = self.refuses(*arguments, code=2, message=message)
                self.assertIn("ruvell: error: ", result.stderr)
                self.assertEqual(result.stdout, "")

    def test_failures_end_with_1_and_say_why(self):
        rows = [
            (["render", "missing.rvs"], "missing.rvs: No such file or directory"),
            (["info", "missing.rvs"], "cannot load missing.rvs"),
            (["convert", "missing.obj", "out.rvs"], "missing.obj: No such file or directory"),
            (["convert", BALL, "nowhere/out.rvs"], "cannot write nowhere/out.rvs"),
            (["nodes", "spere"], "there is no node type 'spere' (did you mean sphere?)"),
            (["render", BALL, "-o", "a.bmp"], "no driver writes files like 'a.bmp'"),
            (["render", BALL, "--camera", "camra"], "there is no camera 'camra' (did you mean camera"),
            (["render", BALL, "--log-file", "nowhere/log"], "cannot write the log file nowhere/log"),
            (["render", BALL, "--stats-json", "nowhere/s"], "cannot write nowhere/s"),
        ]
        for arguments, message in rows:
            with self.subTest(arguments):
                self.refuses(*arguments, code=1, message=message)

    def test_messages_name_file_and_line(self):
        self.write("bad.rvs", "# a comment\nsphere\n{\n id 1\n colour 3\n}\n")
        result = self.run_command("info", "bad.rvs")
        self.assertIn("warning: bad.rvs:5: ", result.stderr)

    def test_messages_after_an_include_do_not_claim_a_wrong_line(self):
        self.write("part.rvs", "sphere\n{\n radius 1\n}\n")
        self.write("main.rvs", "\n\ninclude \"part.rvs\"\nsphere\n{\n colour 3\n}\n")
        result = self.run_command("info", "main.rvs")
        self.assertIn("main.rvs: ", result.stderr)
        self.assertIn("(line 3 after the one that includes part.rvs)", result.stderr)
        self.assertNotIn("main.rvs:3:", result.stderr)

    def test_a_missing_include_is_reported_where_it_is_asked_for(self):
        self.write("main.rvs", "\ninclude \"lost.rvs\"\n")
        result = self.refuses("info", "main.rvs", code=1, message="error loading main.rvs")
        self.assertIn("main.rvs:2: lost.rvs: No such file or directory", result.stderr)

    def test_control_characters_do_not_reach_the_terminal(self):
        result = self.run_command("render", "no\x1b[31msuch.rvs", code=1)
        self.assertNotIn("\x1b", result.stderr)


if __name__ == "__main__":
    unittest.main()
