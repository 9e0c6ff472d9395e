#!/usr/bin/python3
"""A session at a terminal, in tmux: the progress line, colours, an interruption, and completions in the shells."""
import os
import re
import shutil
import subprocess
import time
import unittest

import clipfile
import support

SECONDS = 60  # to wait for what must come


@unittest.skipIf(support.WINDOWS, "terminals of Unix")
@unittest.skipUnless(shutil.which("tmux"), "tmux is not installed")
class Terminal(support.ProgramTest):
    def setUp(self):
        super().setUp()
        # A name of its own for each server: tests run side by side.
        self.server = ["tmux", "-L", f"kelvonclip-{os.getpid()}-{self.id().rsplit('.', 1)[-1]}", "-f", "/dev/null"]
        os.mkdir(self.path("bin"))
        os.symlink(support.PROGRAM[-1], self.path("bin/kelvonclip"))

    def tmux(self, *arguments):
        return subprocess.run(self.server + list(arguments), capture_output=True, timeout=30, text=True, check=True)

    def start(self, *shell):
        """A session of 100 by 30 characters that runs a shell; everything that it writes is kept."""
        env = {key: value for key, value in os.environ.items() if key not in ("NO_COLOR", "TMUX")}
        env.update(PATH=self.path("bin") + ":" + env["PATH"], HOME=self.folder, LC_ALL="C.UTF-8")
        done = subprocess.run(self.server + ["new-session", "-d", "-x", "100", "-y", "30", "-c", self.folder, *shell],
                              capture_output=True, timeout=30, text=True, env=env)
        if done.returncode != 0:
            self.skipTest(f"no terminals here: {done.stderr.strip()}")
        self.addCleanup(subprocess.run, self.server + ["kill-server"], capture_output=True, timeout=30)
        self.tmux("pipe-pane", "-o", f"cat > '{self.path('written')}'")

    def type(self, text, *keys):
        self.tmux("send-keys", "-l", text)
        if keys:
            self.tmux("send-keys", *keys)

    def screen(self, *options):
        return self.tmux("capture-pane", "-p", *options).stdout

    def written(self):
        with open(self.path("written"), "rb") as file:
            return file.read().decode(errors="replace")

    def wait_for(self, pattern, look):
        until = time.monotonic() + SECONDS
        while not re.search(pattern, look(), re.M):
            self.assertLess(time.monotonic(), until, f"{pattern} does not come:\n{self.screen()}\n{look()!r}")
            time.sleep(0.05)
        return look()

    def long_clip(self):
        """A clip whose pictures are a gigabyte of holes: long work that needs no disk."""
        maker = clipfile.Maker(["avci50-1080i"], room=8000)
        maker.append(0, b"")
        data = bytearray(maker.bytes(lengths=[3500]))
        record = clipfile.HEADER + clipfile.BLOCK + 16 + 16  # behind that of the grow header
        data[record + 8 : record + 16] = (3500 * 282624 // 512).to_bytes(8, "big")
        with open(self.path("long.clip"), "wb") as file:
            file.write(data)
            file.truncate(len(data) + 3499 * 282624)

    def test_long_work_shows_how_far_it_is_and_takes_the_line_away(self):
        self.long_clip()
        self.start("bash", "--norc")
        self.type("kelvonclip checksum long.clip > sums; echo ended with $?", "Enter")
        self.wait_for(r"^ended with 0$", self.screen)
        line = re.search(r"\r\x1b\[Kchecksum +(\d+) %  [\d.]+ [kMGT]?B/s  [\d:.]+ (s )?left", self.written())
        self.assertTrue(line, self.written())
        self.assertLessEqual(int(line.group(1)), 100)
        self.assertNotIn("left", self.screen())
        with open(self.path("sums")) as file:
            self.assertEqual(len([text for text in file if not text.startswith("#")]), 3500)

    def test_no_progress_is_shown_where_the_talk_goes_to_a_file(self):
        self.long_clip()
        self.start("bash", "--norc")
        self.type("kelvonclip checksum long.clip > sums 2> talk; echo ended with $?", "Enter")
        self.wait_for(r"^ended with 0$", self.screen)
        self.assertNotIn("left", self.written())
        self.assertEqual(os.path.getsize(self.path("talk")), 0)

    def test_control_c_ends_it_with_130_and_leaves_nothing(self):
        self.long_clip()
        self.start("bash", "--norc")
        self.type("kelvonclip recover long.clip mended.clip; echo ended with $?", "Enter")
        self.wait_for(r"recover +\d+ %", self.written)
        self.tmux("send-keys", "C-c")
        self.wait_for(r"^ended with 130$", self.screen)
        self.assertEqual(sorted(os.listdir(self.folder)), ["bin", "long.clip", "written"])

    def test_colours_are_shown_in_a_terminal(self):
        clipfile.take(8).write(self.path("take.clip"))
        self.start("bash", "--norc")
        show = "kelvonclip formats '625i 50Hz'"
        self.type(f"{show} | cat; echo piped; {show}; echo ended", "Enter")
        self.wait_for(r"^ended$", self.screen)
        piped, shown = re.split(r"^piped\r?$", self.written(), flags=re.M)
        self.assertNotIn("\x1b[1m", piped)
        self.assertIn("\x1b[1m", shown)

    def completed(self, typed, pattern):
        """What the shell makes of a line and the tabulator key; the line is taken away again."""
        self.type(typed, "Tab")
        screen = self.wait_for(pattern, self.screen)
        self.tmux("send-keys", "C-u")
        return screen

    def complete_everywhere(self):
        self.completed("kelvonclip recov", r"kelvonclip recover\b")
        self.completed("kelvonclip info --js", r"kelvonclip info --json\b")
        self.completed("kelvonclip info tak", r"kelvonclip info take\.clip\b")

    def shell(self, name, *line):
        if not shutil.which(name):
            self.skipTest(f"{name} is not installed")
        clipfile.take(8).write(self.path("take.clip"))
        for folder, file in (("bash", "kelvonclip"), ("zsh", "_kelvonclip"), ("fish", "kelvonclip.fish")):
            os.mkdir(self.path(folder))
            with open(self.path(f"{folder}/{file}"), "wb") as out:
                out.write(self.run_tool("--generate", folder).out)
        self.start(name, *line)

    def test_bash_completes(self):
        self.shell("bash", "--norc")
        self.type("PS1='ready> '; . bash/kelvonclip; clear", "Enter")
        self.wait_for(r"^ready>", self.screen)
        self.complete_everywhere()

    def test_zsh_completes(self):
        self.shell("zsh", "-f")
        self.type("PS1='ready> '; fpath=($PWD/zsh $fpath); autoload -U compinit; compinit -u -D; clear", "Enter")
        self.wait_for(r"^ready>", self.screen)
        self.complete_everywhere()

    def test_fish_completes(self):
        self.shell("fish", "--no-config")
        self.type("function fish_prompt; echo 'ready> '; end; source fish/kelvonclip.fish; clear", "Enter")
        self.wait_for(r"^ready>", self.screen)
        self.complete_everywhere()


if __name__ == "__main__":
    support.main()
