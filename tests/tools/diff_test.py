#!/usr/bin/python3
"""diff: names exactly what was changed."""
import clipfile
import support


class Diff(support.ProgramTest):
    def test_equal_content_is_equal_wherever_it_lies(self):
        clipfile.take(8).write(self.path("a"))
        maker = clipfile.Maker(["avci50-1080i", "auk2", "tc2"])  # track after track
        for field in range(0, 8, 2):
            maker.append(0, clipfile.picture(field, 281088))
        for field in range(8):
            maker.append(1, clipfile.sound(field, 2, fade_in=field == 0))
        for field in range(8):
            maker.append(2, clipfile.timecode(1800000 + field))
        maker.write(self.path("b"))
        self.assertEqual(self.run_tool("diff", "a", "b").text, "")
        self.assertFalse(self.run_json("diff", "a", "b")["differ"])

    def test_a_changed_text_a_changed_byte_and_a_missing_unit_are_named(self):
        clipfile.take(8, extra="<Title>one</Title>").write(self.path("a"))
        maker = clipfile.take(8, extra="<Title>two</Title><Project>p</Project>")
        data = bytearray(maker.bytes(lengths=[4, 8, 7]))
        maker.write(self.path("b"))
        video = clipfile.Clip(self.path("b")).tracks[0]
        place = {e[0]: e[2] for e in video.clip.extents}[video.position(2)]
        data[place + 100] ^= 255
        data[place + 5000] ^= 1
        with open(self.path("b"), "wb") as file:
            file.write(data)
        said = self.run_json("diff", "a", "b", code=6)
        self.assertEqual(said["header"], [{"element": "Project", "a": None, "b": "p"},
                                          {"element": "Title", "a": "one", "b": "two"}])
        self.assertEqual(said["tracks"][0]["units"], [{"unit": 2, "first_byte": 100, "bytes": 2}])
        self.assertEqual((said["tracks"][2]["units_a"], said["tracks"][2]["units_b"]), (8, 7))
        self.assertEqual(self.run_tool("diff", "a", "b", code=6).text,
                         "Project: (not there) | p\nTitle: one | two\n"
                         "track 0, unit 2: 2 bytes differ, the first at byte 100\n"
                         "track 2: 8 units | 7 units\n")

    def test_tracks_that_one_clip_lacks_differ(self):
        clipfile.take(4).write(self.path("a"))
        maker = clipfile.Maker(["avci50-1080i"])
        for field in (0, 2):
            maker.append(0, clipfile.picture(field, 281088))
        maker.write(self.path("b"))
        said = self.run_json("diff", "a", "b", code=6)
        self.assertIn({"element": "TrackMetaVector/TrackMeta[1]/TrackType", "a": "auk2", "b": None}, said["header"])
        self.assertEqual([t["units_b"] for t in said["tracks"]], [2, 0, 0])
        data = bytearray(clipfile.take(4).bytes())
        data[:clipfile.HEADER] = data[:clipfile.HEADER].replace(b"<TrackType>auk2<", b"<TrackType>auk3<")
        with open(self.path("c"), "wb") as file:
            file.write(data)
        self.assertIn("c: track 1: the format auk3 is unknown", self.run_tool("diff", "c", "c", code=3).err)
        self.run_tool("diff", "a", "missing", code=1)
        self.run_tool("diff", "a", code=2)


if __name__ == "__main__":
    support.main()
