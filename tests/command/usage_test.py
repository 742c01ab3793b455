"""Help, versions, wrong use and exit codes."""
import os
import signal
import subprocess
import unittest
from command_case import BALL, RUVELL, CommandCase


COMMANDS = ("render", "check", "info", "convert", "maketx", "nodes", "version", "completion")


class Usage(CommandCase):
    def test_help_lists_the_commands_and_the_exit_codes(self):
        text = self.run_command("--help").stdout
        for word in (*COMMANDS, "124", "stopped by --timeout", "129", "the terminal was closed",
                     "130", "interrupted", "143", "told to end"):
            self.assertIn(word, text)
        self.assertNotIn("manual", text)

    def test_help_of_every_command_has_its_usage(self):
        for command in COMMANDS:
            with self.subTest(command):
                result = self.run_command(command, "--help")
                self.assertIn(f"Usage: ruvell {command}", result.stdout)
                self.assertEqual(result.stderr, "")

    def test_help_is_a_command_too(self):
        self.assertEqual(self.run_command("help").stdout, self.run_command("--help").stdout)
        self.assertEqual(self.run_command("help", "check").stdout,
                         self.run_command("check", "--help").stdout)

    def test_help_of_maketx_lists_the_values(self):
        text = " ".join(self.run_command("maketx", "--help").stdout.split())
        for words in ("--wrap MODE", "black (unless given), clamp, periodic or mirror",
                      "--filter NAME", "box (unless given), triangle or lanczos3",
                      "--format TYPE", "uint8, uint16, half or float", "--tile N",
                      "16, 32, 64 (unless given), 128, 256 or 512", "--max-memory SIZE"):
            self.assertIn(words, text)

    def test_help_of_render_has_every_option(self):
        text = self.run_command("render", "--help").stdout
        for option in ("-o,--output FILE", "-r,--resolution WxH", "--crop X0 Y0 X1 Y1", "--aa N",
                       "-t,--threads N", "--camera NAME", "-D,--define NODE.PARAM=VALUE",
                       "--seed N", "--plugins DIR", "--search DIR", "--frames A-BxSTEP",
                       "-v,--verbose", "-q,--quiet", "--log-file FILE", "--stats",
                       "--stats-json FILE", "--timeout DURATION", "--grace DURATION",
                       "--max-pixels N"):
            self.assertIn(option, text)

    def test_help_of_commands_with_scenes_has_the_options_of_safe_mode(self):
        for command in "render", "check", "info", "convert":
            text = self.run_command(command, "--help").stdout
            for option in ("--safe", "--root DIR", "--max-memory SIZE", "--max-nodes N",
                           "--max-scan DURATION"):
                self.assertIn(option, text, command)

    def test_every_command_has_safe_mode(self):
        self.write("scene.rvs", "sphere { name a }\n")
        for arguments in (["nodes"], ["nodes", "sphere"], ["version"], ["completion", "bash"],
                          ["manual"], ["info", "scene.rvs"], ["check", "scene.rvs"]):
            with self.subTest(arguments):
                plain = self.run_command(*arguments).stdout.split("memory:")[0]
                safe = self.run_command(*arguments, "--safe")
                self.assertEqual((safe.stdout.split("memory:")[0], safe.stderr), (plain, ""))

    def test_version_names_the_interface_and_the_real_build(self):
        self.assertEqual(self.run_command("--version").stdout, "ruvell 3.3.6.0\n")
        lines = self.run_command("version").stdout.splitlines()
        self.assertTrue(lines[0].startswith("Ruvell 3.3.6.0 "))
        self.assertRegex(lines[1], r"^built as: linux x86-64, (gcc|clang) .*OpenImageIO \d.* build$")

    def test_wrong_use_ends_with_2_and_says_why(self):
        rows = [
            ([], "which command? There are render, check, info, convert, maketx, nodes, version, "
                 "completion"),
            (["--hlp"], "there is no option '--hlp' (did you mean --help?)"),
            (["render", BALL, "--resoluton", "3x3"],
             "there is no option '--resoluton' (did you mean --resolution?)"),
            (["render", BALL, "--otput=a.png"],
             "there is no option '--otput' (did you mean --output?)"),
            (["check", BALL, "-x"], "there is no option '-x'"),
            (["version", "extra"], "there is no place for 'extra'"),
            (["help", "rendr"], "there is no command 'rendr' (did you mean render?)"),
            (["rendr"], "there is no command 'rendr' (did you mean render?)"),
            (["render"], "SCENE is required"),
            (["render", BALL, "--no-such-option"], "--no-such-option"),
            (["render", BALL, "-r", "12"], "'12' is not a size such as 640x480"),
            (["render", BALL, "-r", "0x5"], "'0x5' is not a size"),
            (["render", BALL, "-r", "999999x999999"], "at most 65535 pixels each way"),
            (["render", BALL, "-r", "65536x1"], "at most 65535 pixels each way"),
            (["render", BALL, "--seed", "x"],
             "'x' is not a whole number from -2147483648 to 2147483647"),
            (["render", BALL, "--seed", "9999999999"], "'9999999999' is not a whole number"),
            (["render", BALL, "--aa", "1.5"], "'1.5' is not a whole number from -16 to 64"),
            (["render", BALL, "-o", ""], "--output: the name is empty"),
            (["render", BALL, "--camera", ""], "--camera: the name is empty"),
            (["render", BALL, "--log-file", ""], "--log-file: the name is empty"),
            (["render", BALL, "--stats-json", ""], "--stats-json: the name is empty"),
            (["render", ""], "SCENE: the name is empty"),
            (["info", "--safe", "--max-memory=-5", BALL], "'-5' is not a size of 32M or more"),
            (["info", "--safe", "--max-memory", "0", BALL], "'0' is not a size"),
            (["info", "--safe", "--max-memory", "1", BALL], "'1' is not a size"),
            (["info", "--safe", "--max-memory", "99999999999T", BALL], "is not a size"),
            (["info", "--safe", "--max-memory", "4X", BALL], "'4X' is not a size"),
            (["info", "--safe", "--max-nodes", "0", BALL], "from 1 to 2147483647"),
            (["info", "--safe", "--max-nodes", "99999999999999999999", BALL],
             "from 1 to 2147483647"),
            (["info", "--safe", "--max-scan", "0", BALL], "'0' is not a duration"),
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

    def test_results_that_cannot_be_written_are_an_error(self):
        for arguments in (["nodes"], ["nodes", "--json"], ["info", BALL], ["check", BALL],
                          ["version"], ["completion", "bash"], ["manual"], ["--help"],
                          ["--version"], ["render", "-q", "--stats", BALL]):
            with self.subTest(arguments), open("/dev/full", "w", encoding="utf-8") as full:
                result = self.run_raw(*arguments, stdout=full)
                self.assertEqual(result.returncode, 1)
                self.assertRegex(result.stderr, "^ruvell: error: cannot write the results"
                                                "(: No space left on device)?\n$")

    def test_readers_that_leave_are_no_error(self):
        for is_ignored in False, True:
            with self.subTest(is_ignored):
                reading, writing = os.pipe()
                os.close(reading)
                disposition = signal.SIG_IGN if is_ignored else signal.SIG_DFL
                result = self.run_raw("nodes", "--json", stdout=writing, restore_signals=False,
                                      preexec_fn=lambda: signal.signal(signal.SIGPIPE, disposition))
                os.close(writing)
                self.assertEqual(result.stderr, "")
                self.assertEqual(result.returncode, 1 if is_ignored else 128 + signal.SIGPIPE)

    def test_files_do_not_take_the_place_of_closed_ones(self):
        def close_output():
            os.close(1)
            os.close(2)
        result = subprocess.run([RUVELL, "render", BALL, "-v"], cwd=self.folder, timeout=120,
                                preexec_fn=close_output, check=False)
        self.assertEqual(result.returncode, 0)
        self.assertEqual(self.png("ball.png").width, 64)

    def run_raw(self, *arguments, **settings):
        return subprocess.run([RUVELL, *arguments], cwd=self.folder, stderr=subprocess.PIPE,
                              text=True, timeout=120, check=False, **settings)

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
