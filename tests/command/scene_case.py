"""What the tests of scanning share: scenes made of bytes, and findings read back."""
import os
import re
import subprocess
from command_case import ROOT, RUVELL, CommandCase

SCENES = os.path.join(ROOT, "tests", "scenes")

# How long a command may take on a machine with more to do. What hangs takes longer.
LIMIT_SECONDS = 60


class SceneCase(CommandCase):
    def write_bytes(self, name, data):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(data)

    def run_within_limit(self, *arguments, folder=None):
        return subprocess.run([RUVELL, *arguments], cwd=folder or self.folder, text=True,
                              stdin=subprocess.DEVNULL, capture_output=True, errors="replace",
                              timeout=LIMIT_SECONDS, check=False)

    def findings(self, *arguments, folder=None):
        """The findings of `ruvell check`, as (file, line, text); the exit code must agree."""
        result = self.run_within_limit("check", *arguments, folder=folder)
        form = re.compile(r"(.*?):(?:(\d+):)? ((?:error|warning): .*)")
        matches = [form.fullmatch(line) for line in result.stdout.splitlines()]
        found = [(m[1], int(m[2] or 0), m[3]) for m in matches if m]
        self.assertEqual(result.returncode, 1 if found else 0, result.stdout + result.stderr)
        return found

    def check_text(self, text, *arguments):
        """The findings of a scene given as text or bytes, as (line, text)."""
        self.write_bytes("scene.rvs", text if isinstance(text, bytes) else text.encode())
        return [(line, message) for _, line, message in self.findings("scene.rvs", *arguments)]

    def assert_finds(self, findings, line, text):
        self.assertTrue(any(at == line and text in message for at, message in findings),
                        f"no {text!r} in line {line} of {findings}")
