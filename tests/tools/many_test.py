#!/usr/bin/python3
"""Very many clips in one call: all are answered, in order, and memory does not grow with their number."""
import json
import os
import subprocess
import unittest

import clipfile
import support

MANY = 10000
# Names of that many clips, and what the allocator may keep.
GROWTH = 4 << 20


class Many(support.ProgramTest):
    @unittest.skipUnless(support.COUNTS_MEMORY, "memory is counted by Unix, without a sanitizer")
    def test_ten_thousand_clips_in_one_call_take_no_more_memory_than_a_hundred(self):
        clipfile.take(8).write(self.path("take.clip"))
        names = [f"take-{number}.clip" for number in range(MANY)]
        for name in names:
            os.symlink("take.clip", self.path(name))

        def peak(clips):
            with open(self.path("out.json"), "wb") as out:
                process = subprocess.Popen(support.PROGRAM + ["info", "--json", *clips], cwd=self.folder, stdout=out)
                _, status, usage = os.wait4(process.pid, 0)
                process.returncode = os.waitstatus_to_exitcode(status)
            self.assertEqual(process.returncode, 0)
            with open(self.path("out.json")) as said:
                self.assertEqual([clip["path"] for clip in json.load(said)["clips"]], clips)
            return usage.ru_maxrss * 1024

        few = peak(names[:100])
        self.assertLess(peak(names), few + GROWTH)


if __name__ == "__main__":
    support.main()
