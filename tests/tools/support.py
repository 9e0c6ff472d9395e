"""What the tests of the program share: running it, checking its JSON, and a folder for each test."""
import json
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

import jsonschema

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
# How the program is started: its path, on Windows behind the script that runs Windows programs.
PROGRAM = shlex.split(os.environ.get("KELVONCLIP_PROGRAM", os.path.join(ROOT, "build/release/bin/kelvonclip")))
# The recording process of the tests (recorder.cpp).
RECORDER = shlex.split(os.environ.get("KELVONCLIP_RECORDER", os.path.join(ROOT, "build/release/bin/recorder")))
WINDOWS = PROGRAM[-1].endswith(".exe")
with open(PROGRAM[-1], "rb") as file:
    # The address sanitizer keeps memory that was freed, and reserves more than a limit allows.
    COUNTS_MEMORY = b"__asan_init" not in file.read() and not WINDOWS
# Wine now and then crashes when a process ends while one of its threads does (docs/windows.md). A fault of the program
# itself comes again at the second try.
WINE_CRASHED = (-11, 139)

with open(os.path.join(ROOT, "docs/tool.schema.json")) as file:
    SCHEMA = json.load(file)


class Result:
    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err

    @property
    def text(self):
        return self.out.decode()


class ProgramTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="kelvonclip tool ")
        self.addCleanup(shutil.rmtree, self.folder, True)

    def path(self, name):
        return os.path.join(self.folder, name)

    def run_tool(self, *arguments, code=0, stdin=None, env=None):
        """Runs the program in the test's folder; fails unless it ends with `code` (None: with any)."""
        def once():
            return subprocess.run(PROGRAM + list(arguments), cwd=self.folder, input=stdin if stdin is not None else b"",
                                  capture_output=True, timeout=120, env={**os.environ, **(env or {})})

        done = once()
        if WINDOWS and done.returncode in WINE_CRASHED:
            print(f"Wine crashed (exit code {done.returncode}); second try: {arguments}", file=sys.stderr)
            if file_name := os.environ.get("KELVONCLIP_SECOND_TRIES"):
                with open(file_name, "a") as file:
                    file.write(f"{arguments}\n")
            done = once()
        result = Result(done.returncode, done.stdout, done.stderr.decode(errors="replace"))
        if code is not None:
            shown = result.out[:5000].decode(errors="replace")
            self.assertEqual(result.code, code, f"{arguments}: {shown}\n{result.err}")
        return result

    def run_json(self, *arguments, code=0, **options):
        """The same with --json; what is printed is checked against the schema."""
        result = self.run_tool(*arguments, "--json", code=code, **options)
        document = json.loads(result.out)
        jsonschema.validate(document, SCHEMA)
        self.assertEqual(document["command"], arguments[0])
        return document


def main():
    sys.dont_write_bytecode = True
    unittest.main(verbosity=1)
