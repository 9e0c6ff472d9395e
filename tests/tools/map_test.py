#!/usr/bin/python3
"""map and dump: places and bytes, compared with those that the independent reader finds."""
import json
import re
import resource
import subprocess
import unittest
import xml.dom.minidom

import clipfile
import support


class Map(support.ProgramTest):
    def test_every_unit_is_where_the_reader_finds_it(self):
        clipfile.take(12).write(self.path("clip"))
        reader = clipfile.Clip(self.path("clip"))
        said = self.run_json("map", "clip")
        for track, of in zip(said["tracks"], reader.tracks):
            self.assertEqual(track["gaps"], 0)
            self.assertEqual(track["stored_bytes"], of.length)
            seen = {}
            for piece in track["pieces"]:
                for unit in range(piece["unit"], piece["unit"] + piece["units"]):
                    seen[unit] = piece["host"] + (unit - piece["unit"]) * of.stored_size
            place = {e[0]: e[2] for e in reader.extents}
            self.assertEqual(seen, {unit: place[of.position(unit)] for unit in range(of.units)})
        lines = [line.split() for line in self.run_tool("map", "clip", "--track", "1", "--unit", "4").text.splitlines()]
        piece = next(line for line in lines if line[:2] == ["1", "4"])
        audio = reader.tracks[1]
        self.assertEqual(reader.data[int(piece[4]) : int(piece[4]) + int(piece[5])], audio.unit(4))

    def test_units_side_by_side_are_one_piece_and_gaps_are_shown(self):
        maker = clipfile.Maker(["tc2"])
        for unit in range(4):
            maker.append(0, clipfile.timecode(unit))
        maker.plans[0][4] = 6  # skips two
        maker.append(0, clipfile.timecode(6))
        maker.write(self.path("clip"))
        [track] = self.run_json("map", "clip")["tracks"]
        self.assertEqual([(p["unit"], p["units"], p["host"] is None) for p in track["pieces"]],
                         [(0, 4, False), (4, 2, True), (6, 1, False)])
        self.assertEqual((track["stored_pieces"], track["gaps"], track["missing_bytes"]), (2, 1, 8192))
        self.assertRegex(self.run_tool("map", "clip").text, r"\n0 4 2 0 - 8192\n")

    def test_what_is_not_there_is_a_usage_error(self):
        clipfile.take(4).write(self.path("clip"))
        self.assertIn("clip: track 9", self.run_tool("map", "clip", "-t", "9", code=2).err)
        self.assertIn("clip: track 0, unit 77", self.run_tool("map", "clip", "-t", "0", "-u", "77", code=2).err)
        self.run_tool("map", "clip", "-u", "7", code=2)
        self.run_tool("map", "clip", "-t", "x", code=2)

    def test_the_picture_is_well_formed_and_says_what_it_shows(self):
        name = "a & b.clip" if support.WINDOWS else "a & <b>.clip"
        clipfile.take(8).write(self.path(name))
        picture = xml.dom.minidom.parseString(self.run_tool("map", "--svg", name).out)
        self.assertIn(name, picture.getElementsByTagName("title")[0].firstChild.data)
        self.assertIn("audio", picture.getElementsByTagName("desc")[0].firstChild.data)
        for lane in picture.getElementsByTagName("g"):
            self.assertEqual(len(lane.getElementsByTagName("rect")), 1)
            self.assertGreater(len(lane.getElementsByTagName("path")), 0)
        self.assertEqual(len(picture.getElementsByTagName("g")), 3)

    @unittest.skipIf(support.WINDOWS, "limits of Unix")
    def test_a_length_that_claims_everything_costs_nothing(self):
        data = bytearray(clipfile.take(4).bytes())
        at = data.index(b"KLVNGROW")
        data[at + 8 : at + 16] = (2**62).to_bytes(8, "big")
        with open(self.path("clip"), "wb") as file:
            file.write(data)
        for command in ("map", "stat", "info", "dump", "verify"):
            self.run_tool(command, "clip", code=3 if command == "verify" else 0)


class Dump(support.ProgramTest):
    def test_blocks_and_records_are_those_of_the_reader(self):
        maker = clipfile.Maker(["tc2", "auk2"], room=9000)
        for unit in range(2100):  # more records than a map block holds
            maker.append(0, clipfile.timecode(unit))
            maker.append(1, b"")
        maker.write(self.path("clip"))
        reader = clipfile.Clip(self.path("clip"))
        said = self.run_json("dump", "clip")
        [log] = said["maps"]
        self.assertEqual(log["superblock_at"], clipfile.HEADER)
        self.assertEqual(log["length"], reader.sparse_length)
        self.assertEqual(log["log_end"], reader.log_end)
        self.assertEqual([(b["at"], len(b["records"])) for b in log["blocks"]], reader.blocks)
        self.assertEqual([b["run"] for b in log["blocks"]], [0, 1])
        self.assertEqual([(r["start"], r["length"], r["host"]) for b in log["blocks"] for r in b["records"]],
                         reader.extents)
        self.assertEqual(log["blocks"][1]["records"][2]["at"], reader.blocks[1][0] + 16 + 2 * 16)
        self.assertEqual(re.sub(r"\s", "", said["header"]), re.sub(r"\s", "", maker.header()))
        self.assertEqual([level["kind"] for level in said["tracks"][0]["chain"]],
                         ["Grow", "Partition", "Sparse2", "ThisFile"])
        text = self.run_tool("dump", "clip").text
        self.assertIn(f"map block 1 (run 1, index 0) at byte {reader.blocks[1][0]}\n", text)
        self.assertIn("    <VideoStandard>1080i 50Hz</VideoStandard>\n", text)

    def test_a_unit_is_shown_with_its_fields_and_all_bytes(self):
        clipfile.take(8).write(self.path("clip"))
        reader = clipfile.Clip(self.path("clip"))
        for number, track in enumerate(reader.tracks):
            said = self.run_json("dump", "clip", "-t", str(number), "-u", "3")
            self.assertEqual(bytes.fromhex(said["bytes"]), track.unit(3))
        self.assertEqual(said["timecode"]["fields"], 1800003)
        blocks = self.run_json("dump", "clip", "-t", "1", "-u", "0")["blocks"]
        self.assertEqual([(b["block_word"], b["fade_in"], b["samples"], b["valid"]) for b in blocks],
                         [(1000, True, 960, True), (1000 + 0x01010101, True, 960, True)])
        text = self.run_tool("dump", "clip", "-t", "1", "-u", "0").text
        self.assertIn("0000000000  51 9a 3e 7d 01 00 00 01  e8 03 00 00", text)
        self.assertIn("\n*\n", text)
        self.run_tool("dump", "clip", "-t", "1", "-u", "8", code=2)
        self.run_tool("dump", "clip", "-t", "1", code=2)


if __name__ == "__main__":
    support.main()
