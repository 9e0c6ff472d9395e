#!/usr/bin/python3
"""recover: what a killed recording left comes back, and nothing is overwritten or left half-written."""
import os
import signal
import subprocess
import time
import unittest

import clipfile
import support


class Recover(support.ProgramTest):
    def setUp(self):
        super().setUp()
        # 16 fields were recorded; the lengths say 4, and the map on the disk ends in the middle.
        clipfile.take(16).write(self.path("killed.clip"), lengths=[2, 4, 4], mapped=15)
        clipfile.take(16).write(self.path("whole.clip"))

    def test_a_dry_run_says_what_would_come_back_and_writes_nothing(self):
        before = clipfile.Clip(self.path("killed.clip")).data
        said = self.run_json("recover", "--dry-run", "killed.clip", code=4)
        self.assertEqual([t["units_before"] for t in said["tracks"]], [2, 4, 4])
        self.assertGreater(said["recovered_units"], 20)
        self.assertIsNone(said["output"])
        self.assertEqual(sorted(os.listdir(self.folder)), ["killed.clip", "whole.clip"])
        self.assertEqual(clipfile.Clip(self.path("killed.clip")).data, before)
        self.assertEqual(self.run_json("recover", "-n", "whole.clip", code=0)["recovered_units"], 0)

    def test_every_certain_unit_comes_back_byte_for_byte(self):
        said = self.run_json("recover", "killed.clip", "mended.clip", code=5)
        whole, mended = clipfile.Clip(self.path("whole.clip")), clipfile.Clip(self.path("mended.clip"))
        for track, of, was in zip(said["tracks"], mended.tracks, whole.tracks):
            self.assertEqual(of.units, track["units_after"])
            self.assertGreaterEqual(of.units, was.units - 1)
            for unit in range(of.units):
                self.assertEqual(of.unit(unit), was.unit(unit), (track["track"], unit))
        self.run_tool("verify", "--deep", "mended.clip")
        self.assertEqual(sorted(os.listdir(self.folder)), ["killed.clip", "mended.clip", "whole.clip"])

    def test_in_place_mends_the_clip_itself(self):
        self.run_tool("recover", "--in-place", "killed.clip", code=5)
        self.assertGreaterEqual(clipfile.Clip(self.path("killed.clip")).tracks[1].units, 15)

    def test_nothing_is_overwritten_without_force(self):
        before = clipfile.Clip(self.path("whole.clip")).data
        self.assertIn("exists", self.run_tool("recover", "killed.clip", "whole.clip", code=1).err)
        self.assertEqual(clipfile.Clip(self.path("whole.clip")).data, before)
        self.run_tool("recover", "--force", "killed.clip", "whole.clip", code=5)
        self.run_tool("recover", "--force", "killed.clip", "killed.clip", code=2)
        self.run_tool("recover", "killed.clip", code=2)
        self.run_tool("recover", "--in-place", "killed.clip", "x", code=2)

    def test_a_failure_leaves_nothing_behind(self):
        with open(self.path("text"), "w") as file:
            file.write("no clip" * 9000)
        self.run_tool("recover", "text", "out.clip", code=1)
        self.run_tool("recover", "missing", "out.clip", code=1)
        self.run_tool("recover", "killed.clip", "no/folder/out.clip", code=1)
        self.assertEqual(sorted(os.listdir(self.folder)), ["killed.clip", "text", "whole.clip"])

    @unittest.skipIf(support.WINDOWS, "signals of Unix")
    def test_an_interrupted_copy_leaves_nothing_behind(self):
        maker = clipfile.Maker(["avci50-1080i"])
        for unit in range(250):
            maker.append(0, clipfile.picture(unit, 281088))
        maker.write(self.path("long.clip"), lengths=[1])
        for pause in (0.0, 0.02, 0.1):
            process = subprocess.Popen(support.PROGRAM + ["recover", "long.clip", "out.clip"], cwd=self.folder,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            while pause and not any("part" in name for name in os.listdir(self.folder)) and process.poll() is None:
                time.sleep(0.002)
            time.sleep(pause)
            process.send_signal(signal.SIGINT)
            code = process.wait(60)
            process.stderr.close()
            # Before its handlers are there a signal ends the program as it ends any other; after its work it is done.
            self.assertIn(code, (130, 5, -signal.SIGINT))
            if code != 5:
                self.assertEqual(sorted(os.listdir(self.folder)), ["killed.clip", "long.clip", "whole.clip"])
            else:
                os.remove(self.path("out.clip"))


if __name__ == "__main__":
    support.main()
