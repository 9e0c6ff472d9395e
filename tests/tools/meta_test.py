#!/usr/bin/python3
"""meta and trim: the header is changed in place, and nothing else of the file."""
import os
import re
import unittest

import clipfile
import support


class HeaderEdits(support.ProgramTest):
    def setUp(self):
        super().setUp()
        clipfile.take(8, extra="<Title>one</Title><Kept><Of>others</Of></Kept>").write(self.path("take.clip"))

    def clip(self):
        return clipfile.Clip(self.path("take.clip"))

    def element(self, name):
        return clipfile.element(self.clip().header, name)

    def bytes_behind_the_header(self):
        return self.clip().data[clipfile.HEADER :]


class Meta(HeaderEdits):
    def test_shows_what_there_is_and_writes_nothing(self):
        before = self.clip().data
        said = self.run_json("meta", "take.clip")
        self.assertEqual(said["texts"], {"title": "one", "project": "", "creator": "", "meta": {}})
        self.assertFalse(said["changed"])
        self.assertIn("one", self.run_tool("meta", "take.clip").text)
        self.assertEqual(self.clip().data, before)

    def test_sets_texts_and_entries_at_once_and_keeps_everything_else(self):
        behind = self.bytes_behind_the_header()
        said = self.run_json("meta", "--title", "Zwölf <&> \U0001d11e", "--creator", "me", "--set", "Reel=A=4",
                             "--set", "Lens=", "take.clip")
        self.assertEqual(said["texts"], {"title": "Zwölf <&> \U0001d11e", "project": "", "creator": "me",
                                         "meta": {"Reel": "A=4", "Lens": ""}})
        self.assertTrue(said["changed"])
        self.assertEqual(self.bytes_behind_the_header(), behind)
        self.assertEqual(self.element("Kept"), "<Of>others</Of>")
        self.assertEqual(self.element("Creator"), "me")
        self.assertIn("<Reel><V>A=4</V></Reel>", re.sub(r"\s+<", "<", self.clip().header))
        self.assertGreater(int(self.element("ClipLastMetaEdited")), 1700000001)
        self.assertEqual(self.run_json("info", "take.clip")["clips"][0]["texts"], said["texts"])
        self.run_tool("verify", "take.clip")

    def test_empty_texts_and_removed_entries_go(self):
        self.run_tool("meta", "--set", "Reel=1", "--set", "Lens=2", "take.clip")
        said = self.run_json("meta", "--title", "", "--remove", "Reel", "take.clip")
        self.assertEqual(said["texts"], {"title": "", "project": "", "creator": "", "meta": {"Lens": "2"}})
        self.assertIsNone(self.element("Title"))

    def test_a_dry_run_tells_and_writes_nothing(self):
        before = self.clip().data
        said = self.run_json("meta", "--dry-run", "--title", "two", "take.clip")
        self.assertEqual((said["texts"]["title"], said["changed"], said["dry_run"]), ("two", True, True))
        self.assertEqual(self.clip().data, before)

    def test_what_is_there_already_is_not_written_again(self):
        before = self.clip().data
        self.assertFalse(self.run_json("meta", "--title", "one", "take.clip")["changed"])
        self.assertEqual(self.clip().data, before)

    def test_of_several_changes_all_are_made_or_none(self):
        before = self.clip().data
        for refused in (["--set", "1st=x"], ["--set", "a b=x"], ["--creator", "x" * 32768]):
            for dry in ([], ["--dry-run"]):
                self.run_tool("meta", "--title", "two", *refused, *dry, "take.clip", code=1)
                self.assertEqual(self.clip().data, before)
        self.run_tool("meta", "--set", "no equals sign", "take.clip", code=2)
        self.assertEqual(self.clip().data, before)

    def test_what_is_no_clip_or_missing_is_refused(self):
        with open(self.path("text"), "w") as file:
            file.write("no clip" * 9000)
        self.run_tool("meta", "--title", "x", "text", code=3)
        self.assertIn("missing", self.run_tool("meta", "--title", "x", "missing", code=1).err)

    @unittest.skipIf(support.WINDOWS or os.geteuid() == 0, "root may write everything")
    def test_a_file_that_may_not_be_written_is_refused(self):
        os.chmod(self.path("take.clip"), 0o444)
        self.run_tool("meta", "take.clip")
        self.run_tool("meta", "--title", "x", "take.clip", code=1)


class Trim(HeaderEdits):
    def test_shows_what_is_hidden(self):
        said = self.run_json("trim", "take.clip")
        self.assertEqual((said["trim"], said["length"], said["changed"]),
                         ({"start": 0, "end": 0}, {"fields": 8}, False))

    def test_hides_fields_at_both_ends_and_shows_them_again(self):
        behind = self.bytes_behind_the_header()
        self.assertEqual(self.run_json("trim", "--start", "2", "take.clip")["length"], {"fields": 6})
        said = self.run_json("trim", "--end", "2", "take.clip")
        self.assertEqual((said["trim"], said["length"]), ({"start": 2, "end": 2}, {"fields": 4}))
        self.assertEqual([track.units for track in self.clip().tracks], [2, 4, 4])
        self.assertEqual(self.run_json("info", "take.clip")["clips"][0]["trim"], said["trim"])
        self.assertEqual(self.run_json("trim", "-s", "0", "-e", "0", "take.clip")["length"], {"fields": 8})
        self.assertEqual(self.bytes_behind_the_header(), behind)

    def test_two_units_of_a_track_stay(self):
        said = self.run_json("trim", "--start", "4294967295", "--end", "4294967295", "take.clip")
        self.assertEqual(said["length"], {"fields": 4})
        self.run_tool("trim", "--start", "4294967296", "take.clip", code=2)
        self.run_tool("trim", "--start", "-1", "take.clip", code=2)

    def test_what_is_there_already_is_not_written_again(self):
        before = self.clip().data
        self.assertFalse(self.run_json("trim", "--start", "0", "take.clip")["changed"])
        self.assertEqual(self.clip().data, before)

    def test_a_dry_run_tells_and_writes_nothing(self):
        before = self.clip().data
        said = self.run_json("trim", "--dry-run", "--start", "2", "take.clip")
        self.assertEqual((said["trim"]["start"], said["changed"], said["length"]), (2, True, {"fields": 8}))
        self.assertIn("would be", self.run_tool("trim", "-n", "--start", "2", "take.clip").text)
        self.assertEqual(self.clip().data, before)


if __name__ == "__main__":
    support.main()
