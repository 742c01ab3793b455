"""What is made from the command itself: the page of node types, the man page, the completion."""
import os
import re
import subprocess
import tempfile
import unittest
from command_case import ROOT, RUVELL, CommandCase


class Pages(CommandCase):
    def page_is_fresh(self, page, *command):
        with open(os.path.join(ROOT, "docs", page), encoding="utf-8") as file:
            self.assertEqual(file.read(), self.run_command(*command).stdout,
                             f"stale: ruvell {' '.join(command)} > docs/{page}")

    def test_the_page_of_node_types_is_fresh(self):
        self.page_is_fresh("nodes.md", "nodes", "--markdown")

    def test_the_man_page_is_fresh(self):
        self.page_is_fresh("ruvell.1", "manual")

    def test_the_man_page_has_every_command_and_option(self):
        page = self.run_command("manual").stdout.replace("\\-", "-")
        for command in ("render", "info", "convert", "nodes", "version", "completion"):
            self.assertIn(f".SS {command}\n", page)
            for option in re.findall(r"--[a-z-]+", self.run_command(command, "--help").stdout):
                self.assertIn(option, page)

    def test_the_guide_names_every_option_of_render(self):
        with open(os.path.join(ROOT, "docs", "command.md"), encoding="utf-8") as file:
            guide = file.read()
        text = self.run_command("render", "--help").stdout
        for option in re.findall(r"^  (?:-\w,)?(--[a-z-]+)", text, re.MULTILINE):
            self.assertIn(option, guide)


class Completion(CommandCase):
    def complete(self, *words):
        """What bash offers for the last of the words."""
        with tempfile.NamedTemporaryFile("w", suffix=".bash", delete=False) as script:
            script.write(self.run_command("completion", "bash").stdout)
        self.addCleanup(os.unlink, script.name)
        quoted = " ".join(f"'{word}'" for word in (RUVELL, *words))
        program = (f"set -u; source {script.name}; COMP_WORDS=({quoted}); "
                   f"COMP_CWORD={len(words)}; _ruvell; printf '%s\\n' \"${{COMPREPLY[@]:-}}\"")
        result = subprocess.run(["bash", "--norc", "-c", program], cwd=self.folder, text=True,
                                capture_output=True, timeout=60, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout.split()

    def test_commands_are_completed(self):
        self.assertEqual(self.complete("re"), ["render"])
        self.assertEqual(self.complete("co"), ["convert", "completion"])
        self.assertNotIn("manual", self.complete(""))

    def test_options_of_the_command_are_completed(self):
        self.assertEqual(self.complete("render", "--res"), ["--resolution"])
        self.assertEqual(self.complete("info", "--js"), ["--json"])
        self.assertEqual(self.complete("info", "--res"), [])

    def test_files_and_folders_are_completed(self):
        self.write("scene.rvs", "")
        os.mkdir(self.path("scenes"))
        self.assertEqual(sorted(self.complete("render", "sce")), ["scene.rvs", "scenes"])
        self.assertEqual(self.complete("render", "--search", "sce"), ["scenes"])
        self.assertEqual(self.complete("render", "--camera", "sce"), [])

    def test_node_types_are_completed(self):
        self.assertEqual(self.complete("nodes", "sph"), ["sphere"])


if __name__ == "__main__":
    unittest.main()
