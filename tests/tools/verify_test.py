#!/usr/bin/python3
"""verify and stat: what they say of whole, unfinished and damaged clips."""
import struct

import clipfile
import support


class Verify(support.ProgramTest):
    def one(self, *options, code=0):
        [clip] = self.run_json("verify", "clip", *options, code=code)["clips"]
        return clip

    def kinds(self, *options, code):
        return {f["kind"]: f for f in self.one(*options, code=code)["findings"]}

    def damage(self, maker, *changes):
        data = bytearray(maker.bytes())
        for at, value in changes:
            data[at : at + len(value)] = value
        with open(self.path("clip"), "wb") as file:
            file.write(data)

    def test_a_whole_clip_is_fine_at_every_level(self):
        clipfile.take(12).write(self.path("clip"))
        for option, level in (("--quick", "structure"), ("--deep", "units"), ("-q", "marks")):
            said = self.one(option)
            self.assertEqual((said["verdict"], said["level"], said["findings"]), ("fine", level, []))
            self.assertEqual([t["stored_units"] for t in said["tracks"]], [6, 12, 12])
        self.assertEqual("clip: fine\n", self.run_tool("verify", "clip").text)
        more = self.run_tool("verify", "clip", "-v")
        self.assertIn("track 1: auk2, 12 of 12 units stored", more.text)
        self.assertIn("ends with 0", more.err)
        self.run_tool("verify", "--quick", "--deep", "clip", code=2)

    def test_an_unfinished_recording_ends_with_four(self):
        clipfile.take(8).write(self.path("clip"), lengths=[2, 4, 4])
        self.assertEqual(self.kinds(code=4)["units-behind-length"]["severity"], "note")
        clipfile.take(8).write(self.path("clip"), lengths=[2, 4, 4], mapped=13)
        self.assertIn("bytes-behind-log", self.kinds(code=4))

    def test_damage_is_named_with_its_place(self):
        maker = clipfile.take(8)
        maker.write(self.path("clip"))
        reader = clipfile.Clip(self.path("clip"))
        place = {e[0]: e[2] for e in reader.extents}
        video, audio, code = reader.tracks
        self.damage(maker, (place[audio.position(3)], bytes(4)))
        found = self.kinds(code=3)["audio-block-invalid"]
        self.assertEqual((found["track"], found["unit"], found["count"], found["offset"]),
                         (1, 3, 1, place[audio.position(3)]))
        self.damage(maker, (place[audio.position(5)] + 8, struct.pack("<I", 7)))
        self.assertEqual(self.kinds(code=3)["audio-chain-break"]["unit"], 5)
        self.assertNotIn("audio-chain-break", self.kinds("--quick", code=0))
        self.damage(maker, (place[code.position(4)], b"\x05"))
        self.assertEqual(self.kinds(code=0)["timecode-break"]["unit"], 4)
        self.damage(maker, (place[video.position(2)], b"\xff" * 6))
        self.assertEqual(self.kinds("--deep", code=3)["essence-not-recognised"]["unit"], 2)
        self.assertNotIn("essence-not-recognised", self.kinds(code=0))
        self.assertRegex(self.run_tool("verify", "--deep", "clip", code=3).text,
                         r"damage +track 0, unit 2: .* at byte \d+")

    def test_lost_structure_is_a_loss(self):
        maker = clipfile.take(8)
        self.damage(maker, (clipfile.HEADER, bytes(8)))
        self.assertEqual(self.kinds(code=3)["superblock-magic"]["severity"], "loss")
        self.damage(maker, (0, b"no header"))
        self.run_tool("verify", "clip", code=3)
        self.run_tool("verify", "missing", code=1)
        whole = maker.bytes()
        with open(self.path("clip"), "wb") as file:
            file.write(whole[: len(whole) - 300000])
        self.assertIn("record-behind-host", self.kinds(code=3))

    def test_many_clips_in_one_call_and_the_gravest_code(self):
        clipfile.take(2).write(self.path("good"))
        clipfile.take(4).write(self.path("open"), lengths=[1, 2, 2])
        self.damage(clipfile.take(2), (clipfile.HEADER, bytes(8)))
        said = self.run_json("verify", "good", "open", "clip", "-j", "2", code=3)
        self.assertEqual([clip["verdict"] for clip in said["clips"]], ["fine", "unfinished", "damaged"])
        self.assertEqual(self.run_tool("verify", "good", "open", code=4).text.splitlines()[:3:2],
                         ["good: fine", "open: unfinished"])
        self.assertTrue(self.run_tool("verify", "-q", "good", "open", code=4).text.startswith("open: unfinished\n"))
        self.assertIn("clip: the structure is damaged", self.run_tool("stat", "clip").err)


class Stat(support.ProgramTest):
    def test_every_byte_is_accounted_for(self):
        take = clipfile.take(20, extra="<TrimStart>4</TrimStart><TrimEnd>6</TrimEnd>")
        take.write(self.path("clip"), lengths=[9, 18, 18])
        reader = clipfile.Clip(self.path("clip"))
        [said] = self.run_json("stat", "clip")["clips"]
        self.assertEqual(said["records"], len(reader.extents))
        self.assertEqual(said["map_bytes"], 2 * clipfile.BLOCK)
        for track, of in zip(said["tracks"], reader.tracks):
            size = of.stored_size
            self.assertEqual(track["stored_bytes"], of.stored_bytes())
            self.assertEqual(track["bytes_behind_length"], of.stored_bytes() - clipfile.GROW - of.length)
            self.assertEqual(track["trimmed_bytes"], (of.length // size - of.units) * size)
            self.assertEqual(track["unit_bytes"] + track["padding_bytes"], of.units * size)
        everything = said["header_bytes"] + said["map_bytes"] + sum(t["stored_bytes"] for t in said["tracks"])
        self.assertEqual(everything + said["bytes_behind_map"], said["file_bytes"])
        self.run_tool("stat", "--most-waste", "1", "clip", code=4)
        self.run_tool("stat", "--most-waste", "99", "clip")
        self.assertIn("wasted", self.run_tool("stat", "clip").text)

    def test_stretches_tell_tracks_recorded_in_turn_from_tracks_in_one_piece(self):
        clipfile.take(8).write(self.path("turns"))
        one_by_one = clipfile.Maker(["auk2", "tc2"])
        for unit in range(8):
            one_by_one.append(0, clipfile.sound(unit, 2))
        for unit in range(8):
            one_by_one.append(1, clipfile.timecode(unit))
        one_by_one.write(self.path("blocks"))
        turns, blocks = self.run_json("stat", "turns", "blocks")["clips"]
        self.assertEqual(turns["stretches"], 3 + 4 * 5)
        self.assertEqual(blocks["stretches"], 4)


if __name__ == "__main__":
    support.main()
