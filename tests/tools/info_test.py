#!/usr/bin/python3
"""info: what it says is what the format pages say of the same bytes."""
import os
import unittest

import clipfile
import support


class Info(support.ProgramTest):
    def test_says_what_the_independent_reader_finds(self):
        clipfile.take(16, extra="<TimecodeSource>striped</TimecodeSource><Striped_TC_Offset>1800000</Striped_TC_Offset>"
                         "<Title>A &amp; B</Title><Project>P</Project><Meta><Reel><V>7</V></Reel></Meta>"
                      ).write(self.path("take.clip"))
        reader = clipfile.Clip(self.path("take.clip"))
        [clip] = self.run_json("info", "take.clip")["clips"]
        self.assertEqual(clip["standard"]["name"], reader.standard)
        self.assertEqual(clip["file_bytes"], len(reader.data))
        self.assertEqual(clip["texts"], {"project": "P", "title": "A & B", "creator": "", "meta": {"Reel": "7"}})
        self.assertEqual(clip["dates"]["content_edited"], "2023-11-14T22:13:20Z")
        self.assertEqual(clip["timecode"]["source"], "striped")
        self.assertEqual(clip["timecode"]["first"], {"fields": 1800000, "drop_frame": False,
                                                     "library": "10.00.00.00", "smpte": "10:00:00:00"})
        self.assertEqual(clip["length"], {"fields": 16, "seconds": 0.32})
        self.assertEqual(len(clip["tracks"]), 3)
        for said, track in zip(clip["tracks"], reader.tracks):
            self.assertEqual(said["format"], track.format)
            self.assertEqual(said["units"], track.units)
            self.assertEqual(said["fields"], track.units * track.fields_per_unit)
            self.assertEqual(said["unit_bytes"], track.unit_size)
            self.assertEqual(said["stored_bytes"], track.stored_bytes())
        self.assertEqual(clip["bytes_behind_map"], 0)
        screen = self.run_tool("info", "take.clip").text
        for part in ("1080i 50Hz", "10:00:00:00", "A & B", "avci50-1080i", "auk2 (2 subchannels)"):
            self.assertIn(part, screen)

    def test_takes_trims_off(self):
        clipfile.take(20, extra="<TrimStart>4</TrimStart><TrimEnd>5</TrimEnd>").write(self.path("take.clip"))
        reader = clipfile.Clip(self.path("take.clip"))
        [clip] = self.run_json("info", "take.clip")["clips"]
        self.assertEqual([t["units"] for t in clip["tracks"]], [t.units for t in reader.tracks])
        self.assertEqual([t["units"] for t in clip["tracks"]], [6, 11, 11])

    def test_reads_the_first_timecode_of_a_timecode_track(self):
        clipfile.take(4, 90001, extra="<TimecodeSource>timecodetrack</TimecodeSource>").write(self.path("take.clip"))
        [clip] = self.run_json("info", "take.clip")["clips"]
        self.assertEqual(clip["timecode"]["first"]["smpte"], "00:30:00:00.2")
        self.assertEqual(clip["timecode"]["first"]["fields"], 90001)

    def test_says_how_much_of_a_killed_recording_lies_behind_its_map(self):
        maker = clipfile.take(8)
        maker.write(self.path("killed.clip"), lengths=[2, 4, 4], mapped=15)
        reader = clipfile.Clip(self.path("killed.clip"))
        [clip] = self.run_json("info", "killed.clip")["clips"]
        self.assertEqual(clip["bytes_behind_map"], len(reader.data) - reader.log_end)
        self.assertGreater(clip["bytes_behind_map"], 0)
        self.assertIn("recover", self.run_tool("info", "killed.clip").text)

    def test_child_clips_and_damaged_ones_are_shown_as_far_as_they_go(self):
        child = "<KelvonClipMeta1><ParentClip>p</ParentClip><Title>part</Title></KelvonClipMeta1>"
        with open(self.path("child.clip"), "wb") as file:
            file.write(child.encode().ljust(32768))
        [clip] = self.run_json("info", "child.clip")["clips"]
        self.assertTrue(clip["child"])
        self.assertEqual(clip["texts"]["title"], "part")
        self.assertIsNone(clip["standard"])
        whole = bytearray(clipfile.take(4).bytes())
        whole[32768 : 32768 + 8] = bytes(8)  # the superblock
        with open(self.path("broken.clip"), "wb") as file:
            file.write(whole)
        [clip] = self.run_json("info", "broken.clip")["clips"]
        self.assertEqual([t["readable"] for t in clip["tracks"]], [False] * 3)

    def test_no_text_of_a_file_commands_a_terminal(self):
        clipfile.take(2, extra="<Title>\x1b[2Jred\x07\xc2\x9b</Title>").write(self.path("take.clip"))
        out = self.run_tool("info", "take.clip").out
        self.assertNotIn(b"\x1b", out)
        self.assertNotIn(b"\x07", out)
        self.assertIn(b"[2Jred", out)

    def test_goes_on_after_a_clip_that_fails_and_keeps_the_order(self):
        clipfile.take(2).write(self.path("a.clip"))
        with open(self.path("text"), "w") as file:
            file.write("no clip")
        result = self.run_json("info", "a.clip", "missing", "text", "a.clip", "--jobs", "3", code=1)
        self.assertEqual([c["path"] for c in result["clips"]], ["a.clip", "missing", "text", "a.clip"])
        self.assertEqual(["error" in c for c in result["clips"]], [False, True, True, False])
        said = self.run_tool("info", "a.clip", "missing", code=1)
        self.assertRegex(said.err, "^kelvonclip: missing: .+\n$")
        self.assertNotIn("?", said.err)  # such as of a line break at the end of the reason
        self.run_tool("info", "text", code=3)

    def test_names_in_any_script_and_very_long_ones(self):
        for name in ("дубль 1.clip", "テイク.clip", "prise é☃.clip", "x" * 200 + ".clip"):
            clipfile.take(2).write(self.path(name))
            [clip] = self.run_json("info", name)["clips"]
            self.assertEqual(clip["path"], name)
        deep = os.path.join(*["y" * 60] * 6)
        os.makedirs(self.path(deep))
        clipfile.take(2).write(self.path(os.path.join(deep, "take.clip")))
        self.run_tool("info", os.path.join(deep, "take.clip"))

    def test_names_that_look_like_something_else(self):
        for name in ("map", "[take]", "[a,b].clip", "info", "100%", "a b", "--json"):
            clipfile.take(2).write(self.path(name))
            separator = ["--"] if name.startswith("--") else []
            result = self.run_tool("info", *separator, name)
            self.assertTrue(result.text.startswith(f"{name}\n"), result.text)
        self.run_tool("info", "", code=1)

    @unittest.skipIf(support.WINDOWS, "the test's own paths are Unix ones")
    def test_paths_may_begin_with_a_slash(self):
        clipfile.take(2).write(self.path("clip"))
        self.run_tool("info", self.path("clip"))

    def test_a_header_of_any_bytes_never_crashes(self):
        whole = clipfile.take(4).bytes()
        for seed in range(12):
            hostile = bytearray(whole)
            state = seed * 7919 + 1
            for _ in range(40):
                state = (state * 1103515245 + 12345) & 0x7FFFFFFF
                hostile[(state >> 4) % (32768 + 2 * 65536)] = state & 0xFF
                state = (state * 1103515245 + 12345) & 0x7FFFFFFF
                hostile[100 + state % 1800] = 48 + state % 10
            with open(self.path("hostile.clip"), "wb") as file:
                file.write(hostile)
            self.assertIn(self.run_tool("info", "hostile.clip", code=None).code, (0, 1, 3))


if __name__ == "__main__":
    support.main()
