#!/usr/bin/python3
"""compact: the same units, lengths, holes and header, in the order in which they are played and without waste."""
import os
import random
import resource
import signal
import struct
import subprocess
import time
import unittest

import clipfile
import support


def one_after_the_other(units=40, kinds=("auk2", "tc2"), **options):
    """A clip whose tracks lie in one piece each: far from the order in which they are played."""
    maker = clipfile.Maker(list(kinds), **options)
    for track, kind in enumerate(kinds):
        for unit in range(units // clipfile.FORMATS[kind][1]):
            maker.append(track, clipfile.picture(unit * 10 + track, clipfile.FORMATS[kind][2]))
    return maker


class Compact(support.ProgramTest):
    def units(self, name):
        """The units of each track."""
        rows = []
        for track in clipfile.Clip(self.path(name)).tracks:
            data = track.clip.logical(track.position(0), track.units * track.stored_size)
            rows.append([data[at : at + track.unit_size] for at in range(0, len(data), track.stored_size)])
        return rows

    def write(self, name, data):
        with open(self.path(name), "wb") as file:
            file.write(data)

    def require_compact(self, name):
        """The units of each frame lie side by side, frame after frame, and there is nothing else in the file."""
        clip = clipfile.Clip(self.path(name))
        self.assertEqual(clip.log_end, len(clip.data))
        place = []  # (frame, track, position in the track) in the order of the file
        for start, length, _ in clip.extents:
            [track] = [t for t in clip.tracks if t.start <= start < t.start + t.partition]
            first = start - track.start - clipfile.GROW
            self.assertLessEqual(first + length, track.length)
            for position in range(max(first, 0), first + length, clipfile.SECTOR):
                unit = position // track.stored_size - track.head
                place.append((unit * track.fields_per_unit // 2, track.number, position))
        self.assertEqual(place, sorted(place))
        neighbours = zip(clip.extents, clip.extents[1:])
        joined = [a for a, b in neighbours if a[0] + a[1] == b[0] and a[2] + a[1] == b[2]]
        self.assertLessEqual(len(joined), len(clip.blocks) - 1)  # only a new block begins a record anew
        [said] = self.run_json("stat", name)["clips"]
        behind = sum(track["bytes_behind_length"] for track in said["tracks"])
        self.assertEqual((said["bytes_behind_map"], behind), (0, 0))
        said = self.run_json("compact", "--dry-run", name)
        self.assertEqual((said["won_bytes"], said["far_jumps"]), (0, 0))
        self.assertEqual(said["compact_records"], len(clip.extents))
        return clip

    def test_units_come_in_the_order_in_which_they_are_played(self):
        one_after_the_other(900, kinds=("auk4", "tc2")).write(self.path("clip"))
        dry = self.run_json("compact", "--dry-run", "clip", code=4)
        self.assertGreater(dry["far_jumps"], 100)
        said = self.run_json("compact", "--compare", "clip", "copy")
        self.assertEqual(said["compact_bytes"], os.path.getsize(self.path("copy")))
        self.assertEqual({**dry, "output": "copy", "dry_run": False}, said)
        copy = self.require_compact("copy")
        self.assertEqual(self.units("copy"), self.units("clip"))
        self.assertEqual(len(copy.extents), 2 * 450)
        self.assertEqual(self.run_tool("diff", "clip", "copy").text, "")

    def test_a_recording_keeps_all_and_its_map_gets_shorter(self):
        clipfile.take(40, extra="<Title>one &amp; two</Title><Meta><Reel><V>A 4</V></Reel></Meta><Foreign>x</Foreign>"
                      ).write(self.path("clip"))
        self.run_tool("compact", "clip", "copy")
        clip, copy = clipfile.Clip(self.path("clip")), self.require_compact("copy")
        self.assertEqual(self.units("copy"), self.units("clip"))
        self.assertEqual(copy.header.replace(" />", "/>"), clip.header.replace("</KelvonClipMeta1>", ""))
        self.assertEqual(copy.sparse_length, clip.sparse_length)
        self.assertEqual((len(clip.extents), len(copy.extents)), (3 + 5 * 20, 3 * 20))
        self.run_tool("verify", "--deep", "copy")

    def test_trims_are_kept_and_what_they_hide_too(self):
        for start, end in ((4, 6), (3, 0), (30, 30)):
            extra = f"<TrimStart>{start}</TrimStart><TrimEnd>{end}</TrimEnd>"
            clipfile.take(20, extra=extra).write(self.path("clip"))
            self.run_tool("compact", "--force", "clip", "copy")
            self.require_compact("copy")
            self.assertEqual(self.units("copy"), self.units("clip"))
            for name in ("clip", "copy"):
                self.run_tool("trim", "-s", "0", "-e", "0", name)
            self.assertEqual(self.units("copy"), self.units("clip"))
            self.assertEqual([len(units) for units in self.units("copy")], [10, 20, 20])

    def test_holes_stay_holes(self):
        maker = clipfile.Maker(["auk2", "tc2"])
        rows = {(0, 3), (0, 4), (1, 0), (1, 9), (1, 500), (0, 900)}
        for track, unit in sorted(rows, reverse=True):
            maker._store(maker.plans[track][2] + clipfile.GROW + unit * maker.plans[track][1],
                         clipfile.picture(unit, maker.plans[track][1]))
        maker.write(self.path("clip"), lengths=[950, 700])
        self.run_tool("compact", "clip", "copy")
        copy = self.require_compact("copy")
        self.assertEqual(self.units("copy"), self.units("clip"))
        stored = {(t.number, (start - t.start - clipfile.GROW) // t.stored_size + part) for t in copy.tracks
                  for start, length, _ in t.unit_extents() for part in range(length // t.stored_size)
                  if start != t.start or part > 0}
        self.assertLessEqual({row for row in rows if row != (1, 0)}, stored)
        self.assertEqual(os.path.getsize(self.path("copy")),
                         clipfile.HEADER + 2 * clipfile.BLOCK + 2 * clipfile.GROW + 3 * 8192 + 3 * 4096)

    def test_a_long_map_is_written_in_runs(self):
        # Every other unit is missing, so none goes on where another one ends.
        maker = clipfile.Maker(["tc1", "tc1"], room=9000)
        for unit in range(0, 8000, 2):
            for _, size, start, _, _ in maker.plans:
                maker._store(start + clipfile.GROW + unit * size, clipfile.timecode(unit, size))
        maker.write(self.path("clip"), lengths=[8000, 8000])
        self.run_tool("compact", "clip", "copy")
        copy = self.require_compact("copy")
        self.assertEqual([records for _, records in copy.blocks[:1]], [clipfile.RECORDS])
        self.assertGreater(len(copy.blocks), 1)
        for track in copy.tracks:
            for unit in (0, 1, 4094, 7998):
                self.assertEqual(track.unit(unit), bytes(512) if unit % 2 else clipfile.timecode(unit, 512))
        self.assertEqual(self.run_tool("diff", "clip", "copy").text, "")

    def test_what_is_not_in_the_clip_is_left_out_only_if_that_is_asked_for(self):
        maker = clipfile.take(16)
        maker.write(self.path("clip"), lengths=[6, 12, 12])
        refused = self.run_tool("compact", "clip", "copy", code=4)
        self.assertIn("see kelvonclip recover", refused.err)
        self.assertIn("units", refused.err)
        self.run_tool("compact", "--dry-run", "clip", code=4)
        self.assertEqual(os.listdir(self.folder), ["clip"])
        self.run_tool("compact", "--reachable", "clip", "copy")
        self.require_compact("copy")
        self.assertEqual(self.units("copy"), self.units("clip"))
        maker.write(self.path("clip"), mapped=20)
        self.run_tool("compact", "clip", "other", code=4)

    def test_damage_is_refused_with_the_findings(self):
        data = bytearray(clipfile.take(16).bytes())
        at = clipfile.HEADER + clipfile.BLOCK + 16 + 16 * 9
        self.write("clip", data[:at] + struct.pack(">QQ", 2**20, 2**40) + data[at + 16 :])
        refused = self.run_tool("compact", "clip", "copy", code=3)
        self.assertIn("A record reaches past the length", refused.err)
        self.write("clip", data[: clipfile.HEADER] + bytes(len(data) - clipfile.HEADER))
        self.assertIn("magic number", self.run_tool("compact", "clip", "copy", code=3).err)
        self.run_tool("compact", "--reachable", "clip", "copy", code=3)
        self.write("clip", b"no clip" * 9000)
        self.run_tool("compact", "clip", "copy", code=3)
        self.write("clip", data[: clipfile.HEADER].replace(b">auk2<", b">auk3<") + data[clipfile.HEADER :])
        self.run_tool("compact", "clip", "copy", code=3)
        self.run_tool("compact", "--reachable", "clip", "copy", code=3)
        self.run_tool("compact", "missing", "copy", code=1)
        self.assertEqual(os.listdir(self.folder), ["clip"])

    def test_hostile_lengths_cost_nothing(self):
        maker = clipfile.take(4)
        data = bytearray(maker.bytes())
        for length in (2**63, 2**64 - 1, 2**52):
            at = clipfile.Clip(maker.write(self.path("clip"))).tracks[2].unit_extents()[0][2]
            self.write("clip", data[: at + 8] + struct.pack(">Q", length) + data[at + 16 :])
            self.run_tool("compact", "clip", "copy", code=3)
            self.run_tool("compact", "--reachable", "clip", "copy", code=None)
        chance = random.Random(1)
        for _ in range(40):
            self.write("clip", data)
            with open(self.path("clip"), "r+b") as file:
                for _ in range(chance.randrange(1, 4)):
                    file.seek(chance.choice((chance.randrange(1200), clipfile.HEADER + chance.randrange(64),
                                             clipfile.HEADER + clipfile.BLOCK + chance.randrange(300))))
                    file.write(bytes([chance.randrange(256)]))
            code = self.run_tool("compact", "--force", "--reachable", "clip", "copy", code=None).code
            self.assertIn(code, (0, 1, 3))

    def foreign(self, stack, data, kinds=("auk2", "tc2")):
        """A clip whose tracks have the stack of files that stack(number) describes."""
        tracks = "".join(f"<TrackMeta><TrackType>{kind}</TrackType><VFile>{stack(number)}</VFile></TrackMeta>"
                         for number, kind in enumerate(kinds))
        text = clipfile.Maker([]).header().replace("<TrackMetaVector>", "<TrackMetaVector>" + tracks)
        self.write("clip", text.encode().ljust(clipfile.HEADER, b" ") + data)

    def require_copied(self, expected):
        self.run_tool("compact", "--compare", "clip", "copy")
        self.require_compact("copy")
        self.assertEqual(self.units("copy"), expected)
        self.assertEqual(self.run_tool("diff", "clip", "copy").text, "")
        day = {"auk2": 24 * 3600 * 50 * 8192, "tc2": 24 * 3600 * 50 * 4096}
        for track in clipfile.Clip(self.path("copy")).tracks:
            self.assertEqual(track.partition, clipfile.GROW + day[track.format])

    def test_plain_sections_become_a_clip_of_the_usual_kind(self):
        sound = [clipfile.sound(unit, 2) for unit in range(6)]
        code = [clipfile.timecode(unit) for unit in range(6)]
        place = ((0, 6 * 8192), (6 * 8192, 6 * 4096))
        self.foreign(lambda n: f"<Partition><Start>{place[n][0]}</Start><Length>{place[n][1]}</Length>"
                     "<VFile><ThisFile/></VFile></Partition>", b"".join(sound + code))
        self.require_copied([sound, code])

    def test_files_of_their_own_are_brought_in(self):
        sound = [clipfile.sound(unit, 2) for unit in range(7)]
        code = [clipfile.timecode(unit) for unit in range(4)]
        for name, units in (("Ton ♪", sound), ("code", code)):
            length = sum(map(len, units))
            self.write(name, b"KLVNGROW" + struct.pack(">Q", length) + bytes(4080) + b"".join(units))
        names = ("Ton ♪", "code")
        self.foreign(lambda n: f"<Grow><VFile><FileName>{names[n]}</FileName></VFile></Grow>", b"")
        self.require_copied([sound, code])
        said = self.run_json("compact", "-n", "clip")
        self.assertEqual(said["file_bytes"], sum(os.path.getsize(self.path(name)) for name in ("clip", *names)))

    def test_sparse_format_1_becomes_format_2(self):
        sound = [clipfile.sound(unit, 2) for unit in range(3)]
        code = [bytes(4096), clipfile.timecode(1), bytes(4096), clipfile.timecode(3)]
        records = [(0, 8192), (16384, 8192), (8192, 8192), (24576 + 4096, 4096), (24576 + 3 * 4096, 4096)]
        block = bytearray(16384)
        block[:24] = b"KLVNPRSE" + struct.pack(">QQ", 0, 2**20)
        for index, (start, length) in enumerate(records):
            block[24 + 16 * index : 40 + 16 * index] = struct.pack(">QQ", start // 512, length // 512)
        body = sound[0] + sound[2] + sound[1] + code[1] + code[3]
        place = ((0, 24576), (24576, 16384))
        self.foreign(lambda n: f"<Partition><Start>{place[n][0]}</Start><Length>{place[n][1]}</Length>"
                     "<VFile><Sparse><VFile><ThisFile/></VFile></Sparse></VFile></Partition>", bytes(block) + body)
        self.require_copied([sound, code])

    def test_a_section_that_begins_inside_a_sector(self):
        maker = clipfile.Maker(["tc2"])
        for unit in range(3):
            maker.append(0, clipfile.timecode(unit))
        at = clipfile.GROW + 100
        self.foreign(lambda n: f"<Partition><Start>{at}</Start><Length>{3 * 4096}</Length><VFile><Sparse2><VFile>"
                     "<ThisFile/></VFile></Sparse2></VFile></Partition>", maker.bytes()[clipfile.HEADER :], ["tc2"])
        logical = b"".join(clipfile.timecode(unit) for unit in range(3)) + bytes(100)
        self.require_copied([[logical[100 + 4096 * unit :][:4096] for unit in range(3)]])

    def test_nothing_is_overwritten_without_force(self):
        clipfile.take(4).write(self.path("clip"))
        self.write("copy", b"mine")
        self.assertIn("exists", self.run_tool("compact", "clip", "copy", code=1).err)
        self.assertEqual(os.path.getsize(self.path("copy")), 4)
        self.run_tool("compact", "--force", "clip", "copy")
        for words in (["clip"], ["--force", "clip", "clip"], ["-n", "--most-waste", "101", "clip"]):
            self.run_tool("compact", *words, code=2)
        self.run_tool("compact", "clip", "no/folder/copy", code=1)
        self.assertEqual(sorted(os.listdir(self.folder)), ["clip", "copy"])

    def test_a_clip_that_somebody_records_is_refused(self):
        recorder = subprocess.Popen(support.RECORDER, cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        for command in (b"create clip\n", b"share\n", b"frames 1\n", b"checkpoint\n"):
            recorder.stdin.write(command)
            recorder.stdin.flush()
            self.assertEqual(recorder.stdout.readline().strip(), b"ok")
        self.assertIn("recording", self.run_tool("compact", "clip", "copy", code=1).err)
        recorder.communicate(timeout=60)
        self.run_tool("compact", "clip", "copy")

    def test_names_are_unicode(self):
        clipfile.take(4).write(self.path("Größe 日本.clip"))
        self.assertIn("Größe 日本.clip", self.run_tool("compact", "Größe 日本.clip", "Kopie ♪.clip").text)
        self.assertEqual(self.units("Kopie ♪.clip"), self.units("Größe 日本.clip"))

    @unittest.skipIf(support.WINDOWS, "limits of Unix")
    def test_a_disk_that_is_full_fails_and_leaves_nothing(self):
        one_after_the_other(600).write(self.path("clip"))
        for limit in (20000, 100000, 170000, 2000000):
            done = subprocess.run(support.PROGRAM + ["compact", "clip", "copy"], cwd=self.folder, capture_output=True,
                                  preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
            self.assertEqual(done.returncode, 1, limit)
            self.assertRegex(done.stderr.decode(), r"copy: .*Write failed")
            self.assertEqual(os.listdir(self.folder), ["clip"])

    @unittest.skipIf(support.WINDOWS, "signals of Unix")
    def test_an_interruption_leaves_nothing(self):
        one_after_the_other(900, kinds=("avci50-1080i", "auk2")).write(self.path("clip"))
        for pause in (0.0, 0.02, 0.1):
            process = subprocess.Popen(support.PROGRAM + ["compact", "clip", "copy"], cwd=self.folder,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            while not any("part" in name for name in os.listdir(self.folder)) and process.poll() is None:
                time.sleep(0.002)
            time.sleep(pause)
            process.send_signal(signal.SIGINT)
            code = process.wait(60)
            process.stderr.close()
            self.assertIn(code, (130, 0))
            if code == 0:
                os.remove(self.path("copy"))
            self.assertEqual(os.listdir(self.folder), ["clip"])


if __name__ == "__main__":
    support.main()
