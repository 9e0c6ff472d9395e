#!/usr/bin/python3
"""create: raw pictures, sound and timecode become a clip; read back by the independent reader."""
import itertools
import os
import random
import shutil
import signal
import struct
import subprocess
import time
import unittest

import clipfile
import essence
import support

PAGE = 4096
# The formats of docs/standards.md that are made here, at the rates of the tests.
UNITS = {"avci100-1080i": (568832, 2), "avci100-720p": (284672, 1), "avci100-1080p": (568832, 1), "dv50": (288000, 2),
         "dv100-1080": (576000, 2), "dv100-720": (288000, 1)}
for name, (size, fields) in UNITS.items():
    for suffix in ("", "k"):
        clipfile.FORMATS[name + suffix] = (-(-size // PAGE) * PAGE, fields, size)
for mbits in range(15, 170, 5):  # at 50Hz
    pages = (mbits * 1000000 // 8 - 1) // 50 // PAGE + 1
    clipfile.FORMATS[f"jp2@{mbits}"] = (pages * PAGE, 1, pages * PAGE)
    key = -(-pages * PAGE * 3 // 4 // PAGE) * PAGE
    clipfile.FORMATS[f"jp2@{mbits}k"] = (key, 1, key)


class CreateTest(support.ProgramTest):
    def put(self, name, content):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(content)
        return name

    def clip(self, name="new.clip"):
        return clipfile.Clip(self.path(name))

    def assert_units(self, track, units):
        self.assertEqual(track.units, len(units))
        for number, unit in enumerate(units):
            self.assertEqual(track.unit(number), unit.ljust(track.unit_size, b"\0"), number)

    def assert_refused(self, *arguments, reason, code=1):
        """Fails with a reason, and leaves nothing behind."""
        before = sorted(os.listdir(self.folder))
        result = self.run_tool("create", *arguments, code=code)
        self.assertIn(reason, result.err)
        self.assertEqual(sorted(os.listdir(self.folder)), before)
        return result.err


class Pictures(CreateTest):
    def test_every_kind_of_pictures_is_cut_into_units_and_says_its_standard(self):
        for content, standard, kind in (
                ([essence.avc_unit(i) for i in range(3)], "1080i 50Hz", "avci100-1080i"),
                ([essence.avc_unit(i, fields=True) for i in range(3)], "1080i 50Hz", "avci100-1080i"),
                ([essence.avc_unit(i, width=1280, lines=720, interlaced=False, rate=(50, 1)) for i in range(3)],
                 "720p 50Hz", "avci100-720p"),
                ([essence.avc_unit(i, interlaced=False, number_bits=7, scaling=False) for i in range(3)],
                 "1080p 25Hz", "avci100-1080p"),
                ([essence.dv_frame(i) for i in range(3)], "625i 50Hz", "dv50"),
                ([essence.dv_frame(i, "dv100-1080") for i in range(2)], "1080i 50Hz", "dv100-1080"),
                ([essence.dv_frame(i, "dv100-720") for i in range(3)], "720p 50Hz", "dv100-720"),
                ([essence.j2k_stream(i, open_end=i % 2) for i in range(4)], "625i 50Hz", "jp2@15")):
            self.put("in", b"".join(content))
            said = self.run_json("create", "--force", "--video", "in", "new.clip")
            self.assertEqual((said["standard"], said["standard_derived"]), (standard, True))
            self.assertEqual(said["tracks"], [{"track": 0, "category": "video", "format": kind, "units": len(content),
                                               "from": [{"path": "in"}]}])
            clip = self.clip()
            self.assertEqual((clip.standard, clip.tracks[0].format), (standard, kind))
            self.assert_units(clip.tracks[0], content)
            self.run_tool("verify", "--deep", "new.clip")

    def test_a_systems_of_60_fields_have_smaller_frames(self):
        frames = [essence.dv_frame(i, "dv50", fifty=False) for i in range(3)]
        self.assertEqual(len(frames[0]), 240000)
        self.put("in", b"".join(frames))
        self.assertEqual(self.run_json("create", "--video", "in", "new.clip")["standard"], "525i 59.94Hz")

    def test_zeros_behind_a_unit_stay_with_it_and_zeros_before_the_first_are_left_out(self):
        units = [essence.avc_unit(i, padding=5 * i) for i in range(3)]
        self.put("in", bytes(301) + b"".join(units) + bytes(70000))
        self.run_tool("create", "--video", "in", "new.clip")
        self.assert_units(self.clip().tracks[0], units)

    def test_slices_without_parameter_sets_and_delimiters_are_cut_where_a_picture_begins(self):
        units = [essence.picture_slice(0, body=essence.pattern(i, 100)) + essence.picture_slice(60) for i in range(3)]
        fields = [essence.picture_slice(0, f, body=essence.pattern(i, 99)) for i in range(3) for f in (1, 0)]
        self.put("frames", b"".join(units))
        self.put("fields", b"".join(fields))
        self.assertIn("--standard", self.run_tool("create", "--video", "frames", "new.clip", code=2).err)
        self.run_tool("create", "--video", "frames", "-s", "1080i 50Hz", "new.clip")
        self.assert_units(self.clip().tracks[0], units)
        self.run_tool("create", "--video", "fields", "-s", "1080i 50Hz", "two.clip")
        self.assert_units(self.clip("two.clip").tracks[0], [a + b for a, b in zip(fields[::2], fields[1::2])])

    def test_start_codes_are_found_wherever_reading_is_divided(self):
        rand = random.Random(4)
        units = [essence.avc_unit(i, size=rand.randrange(100, 140000), fields=i % 3 == 0) for i in range(12)]
        self.put("in", b"".join(units))
        self.run_tool("create", "--video", "in", "new.clip")
        self.assert_units(self.clip().tracks[0], units)

    def test_code_streams_of_a_folder_are_in_the_order_of_their_numbers(self):
        units = [essence.j2k_stream(i) for i in range(12)]
        for i, unit in enumerate(units):
            self.put(f"take/field {i}.j2k", unit)
        self.put("take/.hidden", b"no code stream")
        self.run_tool("create", "--video", "take", "new.clip")
        self.assert_units(self.clip().tracks[0], units)
        self.put("one", bytes(9).join(units) + bytes(5000))
        self.run_tool("create", "--video", "one", "two.clip")
        self.assert_units(self.clip("two.clip").tracks[0], units)
        self.put("take/field 12.j2k", units[0][:-1])
        self.assertIn("field 12.j2k: unit 12", self.assert_refused("-fi", "take", "new.clip", reason="ends inside"))
        self.put("take/field 12.j2k", b"text")
        self.assert_refused("-fi", "take", "new.clip", reason="field 12.j2k")
        self.put("take/field 12.j2k", essence.j2k_stream(1, lines=240))
        self.assert_refused("-fi", "take", "new.clip", reason="another size")
        os.mkdir(self.path("empty"))
        self.assert_refused("-fi", "empty", "new.clip", reason="no files")

    def test_the_smallest_rate_that_holds_all_code_streams_is_taken_unless_one_is_named(self):
        room = {mbits: clipfile.FORMATS[f"jp2@{mbits}"][2] for mbits in (15, 20, 115)}
        streams = [essence.j2k_stream(0, size=room[20] // 2 - 200), essence.j2k_stream(1)]
        self.assertGreater(len(streams[0]), room[15])
        self.put("in", b"".join(streams))
        self.put("key", b"".join(essence.j2k_stream(i, parts=1) for i in range(2)))
        self.run_tool("create", "--video", "in", "--key", "key", "new.clip")
        self.assertEqual([track.format for track in self.clip().tracks], ["jp2@20", "jp2@20k"])
        self.assert_units(self.clip().tracks[0], streams)
        self.run_tool("create", "-fi", "in", "--format", "jp2@115", "new.clip")
        self.assertEqual(self.clip().tracks[0].format, "jp2@115")
        self.assert_refused("-fi", "in", "--format", "jp2@15", "new.clip",
                            reason=f"in: unit 0: it has {len(streams[0])} bytes, and the largest unit of jp2@15 has "
                                   f"{room[15]}")
        self.put("large", b"".join(essence.j2k_stream(i, size=room[115] * i, parts=1) for i in range(2)))
        self.assert_refused("-fi", "large", "new.clip", reason="large: unit 1: it has ")
        self.assert_refused("-fi", "in", "--format", "jp2@16", "new.clip", reason="jp2@15 to jp2@115", code=2)
        with open(self.path("in"), "rb") as file:
            piped = file.read()
        self.assertIn("--format", self.run_tool("create", "-fi", "-", "new.clip", stdin=piped, code=2).err)
        self.run_tool("create", "-fi", "-", "--format", "jp2@20", "new.clip", stdin=piped)
        self.assert_units(self.clip().tracks[0], streams)

    def test_pictures_come_through_a_pipe_too(self):
        units = [essence.avc_unit(i) for i in range(4)]
        self.run_tool("create", "--video", "-", "new.clip", stdin=b"".join(units))
        self.assert_units(self.clip().tracks[0], units)
        self.assert_refused("--video", "-", "--key", "-", "x.clip", reason="standard input", code=2)

    def test_several_tracks_lie_frame_by_frame(self):
        tracks = [[essence.dv_frame(10 * t + i) for i in range(3)] for t in range(3)]
        for t, units in enumerate(tracks):
            self.put(str(t), b"".join(units))
        self.run_tool("create", "--key", "2", "--video", "0", "--video", "1", "new.clip")
        clip = self.clip()
        self.assertEqual([track.format for track in clip.tracks], ["dv50", "dv50", "dv50k"])
        for track, units in zip(clip.tracks, tracks):
            self.assert_units(track, units)
        self.put("short", b"".join(tracks[2][:2]))
        for order in (["-i", "0", "-k", "short"], ["-i", "short", "-k", "0"]):
            self.assert_refused(*order, "x.clip", reason="short: it ends after 2 units, and 0 goes on")
        self.put("avc", essence.avc_unit(0))
        self.assert_refused("-i", "0", "-k", "avc", "x.clip", reason="coded alike")


class Refusals(CreateTest):
    def test_what_is_too_large_names_unit_bytes_and_room(self):
        units = [essence.avc_unit(0), essence.avc_unit(1, size=300000)]
        self.put("in", b"".join(units))
        self.assert_refused("-i", "in", "x.clip", reason=f"in: unit 1: it has {len(units[1])} bytes, and "
                                                         "the largest unit of avci100-1080i has 568832")

    def test_pictures_of_another_size_than_the_standard_are_refused(self):
        self.put("avc", essence.avc_unit(0, width=1440))
        self.assert_refused("-i", "avc", "-s", "1080i 50Hz", "x.clip",
                            reason="its units have 1440 x 1080 pixels, those of 1080i 50Hz have 1920 x 1080")
        self.assert_refused("-i", "avc", "x.clip", reason="fits no standard", code=2)
        self.put("j2k", essence.j2k_stream(0, lines=576))
        self.assert_refused("-i", "j2k", "-s", "625i 50Hz", "x.clip", reason="have 720 x 288")
        self.put("changes", essence.avc_unit(0) + essence.avc_unit(1, width=1280, lines=720))
        self.assertIn("unit 1", self.assert_refused("-i", "changes", "x.clip", reason="another size from here on"))

    def test_a_rate_that_the_pictures_do_not_say_is_noted(self):
        self.put("in", essence.avc_unit(0))
        self.assertIn("25 frames a second", self.run_tool("create", "-i", "in", "-s", "1080i 59.94Hz", "a.clip").err)
        self.assertEqual(self.run_tool("create", "-i", "in", "-s", "1080i 50Hz", "b.clip").err, "")

    def test_a_standard_that_cannot_be_told_has_to_be_given(self):
        self.assert_refused("-i", self.put("a", essence.avc_unit(0, rate=None)), "x.clip", code=2,
                            reason="1920 x 1080 pixels, interlaced, which may be '1080i 59.94Hz', '1080i 60Hz'")
        self.assert_refused("-i", self.put("b", essence.j2k_stream(0, width=1280, lines=720)), "x.clip", code=2,
                            reason="'720p 60Hz', '720p 59.94Hz', '720p 50Hz'")
        self.assert_refused("-i", self.put("c", essence.dv_frame(0, source_pack=False)), "x.clip",
                            reason="does not say which DV")
        self.run_tool("create", "-i", "c", "-s", "625i 50Hz", "new.clip")
        self.assert_refused("-i", self.put("d", essence.dv_frame(0, "dv25")), "-s", "625i 50Hz", "x.clip",
                            reason="unit 0: it has 144000 bytes, and every unit of dv50 has 288000")
        self.assert_refused("-i", "a", "-s", "1080i50", "x.clip", reason="no standard", code=2)
        self.assert_refused("-i", "a", "-s", "1080psf 23.98Hz", "x.clip", reason="no format for these pictures")
        self.assert_refused("x.clip", reason="is missing", code=2)

    def test_what_is_no_intra_coded_essence_is_refused_with_the_place(self):
        picture = essence.avc_unit(0)
        for name, content, reason in (
                ("mxf", b"\x06\x0e\x2b\x34" + bytes(100), "neither"), ("empty", b"", "nothing in it"),
                ("zeros", bytes(3000), "neither"), ("text", b"Hello", "neither"),
                ("inter", picture + essence.nal(0x61, essence.Bits().ue(0).ue(5).ue(0).u(6, 0).bytes()),
                 "unit 1: a slice is not intra-coded"),
                ("parts", picture + essence.DELIMITER + essence.nal(0x62, b"\x88\x80"), "partitions"),
                ("lone field", essence.avc_unit(0, fields=True) + essence.picture_slice(0, 0),
                 "unit 1: the second field"),
                ("two tops", essence.picture_slice(0, 0) + essence.picture_slice(0, 0), "unit 0: the second field"),
                ("no picture", picture + essence.DELIMITER, "unit 1: there is no picture"),
                ("odd", b"".join(essence.j2k_stream(i) for i in range(3)), "there are 3: an odd number"),
                ("stray", essence.dv_frame(0) + b"\0" * 10, "unit 1: the input ends inside"),
                ("shifted", essence.dv_frame(0)[:12000] + essence.dv_frame(0)[80:], "DIF block 0 of sequence 1")):
            self.put(name, content)
            self.assertTrue(self.assert_refused("-i", name, "-s", "625i 50Hz" if name in ("odd", "stray", "shifted")
                                                else "1080i 50Hz", "x.clip", reason=reason))

    def test_a_last_unit_that_is_shorter_than_all_others_is_noted(self):
        units = [essence.avc_unit(i) for i in range(4)]
        self.put("in", b"".join(units)[:-50])
        self.assertIn("it may have been cut off", self.run_tool("create", "-i", "in", "new.clip").err)
        self.assertEqual(self.run_tool("create", "-fqi", "in", "new.clip").err, "")

    def test_inputs_cut_off_anywhere_are_refused_or_shorter_and_leave_nothing(self):
        for name, unit, standard in (("avc", essence.avc_unit(1, size=40), "1080i 50Hz"),
                                     ("j2k", essence.j2k_stream(1, size=30, lines=576, width=720), "720p 50Hz"),
                                     ("open", essence.j2k_stream(1, size=30, open_end=True), "625i 50Hz")):
            for end in range(0, len(unit), 11 if not support.WINDOWS else 29):
                self.put("in", unit + unit[:end])
                result = self.run_tool("create", "-nfi", "in", "-s", standard, "x.clip", code=None)
                self.assertIn(result.code, (0, 1), (name, end, result.err))
                if name != "avc" and end > 0:
                    self.assertEqual(result.code, 1, (name, end))
            self.assertEqual(os.listdir(self.folder), ["in"])

    def test_damaged_bytes_never_crash(self):
        rand = random.Random(11)
        for unit, standard in ((essence.avc_unit(1, size=300, fields=True), "1080i 50Hz"),
                               (essence.j2k_stream(1, size=300), "625i 50Hz"),
                               (essence.j2k_stream(2, size=300, open_end=True), "625i 50Hz"),
                               (essence.dv_frame(1), "625i 50Hz")):
            for _ in range(12 if not support.WINDOWS else 3):
                damaged = bytearray(unit * 2)
                for _ in range(rand.randrange(1, 9)):
                    damaged[rand.randrange(min(len(damaged), 700))] = rand.choice((0, 1, 0xFF, rand.randrange(256)))
                self.put("in", bytes(damaged))
                result = self.run_tool("create", "-nfi", "in", "-s", standard, "x.clip", code=None)
                self.assertIn(result.code, (0, 1, 2), result.err)

    @unittest.skipUnless(support.COUNTS_MEMORY, "memory is limited by Unix, without a sanitizer")
    def test_memory_does_not_follow_what_the_input_says(self):
        import resource
        # a tile-part that says it has four gigabytes, and a picture with many zeros behind it
        self.put("j2k", essence.j2k_stream(0, parts=1).replace(b"\0\0\x07", b"\xff\xff\xff", 1))
        with open(self.path("j2k"), "r+b") as file:
            file.truncate(1 << 29)
        with open(self.path("avc"), "wb") as file:
            file.write(essence.avc_unit(0))
            file.truncate(1 << 28)
            file.seek(0, 2)
            file.write(essence.avc_unit(1))
        for name, code in (("j2k", 1), ("avc", 1)):
            process = subprocess.run(support.PROGRAM + ["create", "-ni", name, "-s", "1080i 50Hz" if name == "avc"
                                                        else "625i 50Hz", "x.clip"], cwd=self.folder, timeout=60,
                                     capture_output=True,
                                     preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_DATA, (200 << 20,) * 2))
            self.assertEqual(process.returncode, code, process.stderr)
        self.assertIn(b"unit 0: it has 268435456 bytes", process.stderr)


class Output(CreateTest):
    def setUp(self):
        super().setUp()
        self.put("in", b"".join(essence.dv_frame(i) for i in range(2)))

    def test_q_leaves_only_the_clip(self):
        result = self.run_tool("create", "-q", "-i", "in", "new.clip")
        self.assertEqual((result.out, result.err), (b"", ""))
        self.assertEqual(self.clip().tracks[0].units, 2)

    def test_nothing_is_overwritten_without_force(self):
        self.put("new.clip", b"precious")
        self.assert_refused("-i", "in", "new.clip", reason="--force")
        self.assert_refused("-ni", "in", "new.clip", reason="--force")
        self.run_tool("create", "-fi", "in", "new.clip")
        self.assertEqual(self.clip().tracks[0].units, 2)
        self.assertEqual(sorted(os.listdir(self.folder)), ["in", "new.clip"])

    def test_out_cannot_be_an_input_or_standard_output(self):
        before = os.path.getsize(self.path("in"))
        self.assert_refused("-fi", "in", "in", reason="OUT is the input", code=2)
        self.assert_refused("-i", "in", "-", reason="standard output", code=2)
        self.assertEqual(os.path.getsize(self.path("in")), before)

    def test_a_folder_that_does_not_exist_and_missing_inputs_are_named(self):
        self.assert_refused("-i", "in", "nowhere/new.clip", reason="nowhere")
        self.assert_refused("-i", "missing", "new.clip", reason="missing")
        self.assert_refused("-i", "in", "--sound", "missing", "new.clip", reason="missing")

    def test_a_dry_run_checks_everything_and_writes_nothing(self):
        said = self.run_json("create", "-ni", "in", "--title", "a", "new.clip")
        self.assertEqual((said["dry_run"], said["fields"], said["texts"]["title"]), (True, 4, "a"))
        self.assertEqual(os.listdir(self.folder), ["in"])
        self.assertIn("would be created", self.run_tool("create", "-ni", "in", "new.clip").text)
        self.put("short", b"".join(essence.dv_frame(i) for i in range(1)))
        self.assert_refused("-ni", "in", "-k", "short", "new.clip", reason="ends after 1 units")

    def test_texts_are_in_the_header(self):
        said = self.run_json("create", "-i", "in", "--title", "Zwölf <&> \U0001d11e", "--creator", "me",
                             "--set", "Reel=A=4", "Ä ☃.clip")
        self.assertEqual(said["texts"], {"title": "Zwölf <&> \U0001d11e", "project": "", "creator": "me",
                                         "meta": {"Reel": "A=4"}})
        self.assertEqual(self.run_json("info", "Ä ☃.clip")["clips"][0]["texts"], said["texts"])
        for dry in ([], ["-n"]):
            for refused in (["--set", "1st=x"], ["--title", "x" * 32300]):
                self.assert_refused("-i", "in", *dry, *refused, "x.clip", reason="x.clip")
            self.assert_refused("-i", "in", *dry, "--set", "no equals sign", "x.clip", reason="--set", code=2)

    @unittest.skipIf(support.WINDOWS, "signals of Unix")
    def test_an_interruption_leaves_nothing(self):
        for arguments in ([], ["-s", "625i 50Hz"]):
            process = subprocess.Popen(support.PROGRAM + ["create", "-i", "-", *arguments, "x.clip"], cwd=self.folder,
                                       stdin=subprocess.PIPE, stderr=subprocess.PIPE)
            for number in range(3):
                process.stdin.write(essence.dv_frame(number))
            process.stdin.flush()
            deadline = time.monotonic() + 30
            while len(os.listdir(self.folder)) == 1 and time.monotonic() < deadline:
                time.sleep(0.01)
            self.assertEqual(len(os.listdir(self.folder)), 2)  # the temporary name
            process.send_signal(signal.SIGINT)
            self.assertEqual((process.wait(30), process.stderr.read()), (130, b""))
            process.stdin.close()
            process.stderr.close()
            self.assertEqual(os.listdir(self.folder), ["in"])

    @unittest.skipIf(support.WINDOWS, "limits of Unix")
    def test_a_disk_that_takes_no_more_is_named_and_nothing_is_left(self):
        import resource

        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (300000, 300000))
        process = subprocess.run(support.PROGRAM + ["create", "-i", "in", "x.clip"], cwd=self.folder, timeout=60,
                                 capture_output=True, preexec_fn=limit)
        self.assertEqual(process.returncode, 1)
        self.assertIn(b"x.clip: ", process.stderr)
        self.assertEqual(os.listdir(self.folder), ["in"])


class Timecode(CreateTest):
    def setUp(self):
        super().setUp()
        self.put("in", b"".join(essence.dv_frame(i) for i in range(3)))

    def labels(self, units, at=25):
        """(label, field, drop-frame) of units of a timecode track by docs/format.md; None without a timecode."""
        found = []
        for unit in units:
            if unit[:8] == b"\xff" * 8:
                found.append(None)
                continue
            h, m, s, f = (unit[i] & 15 | (unit[i + 1] & 15) << 4 for i in range(0, 8, 2))
            found.append((h & 0x7F, m, s & 0x7F, f & 0x3F, h >> 7 | s >> 7, f >> 6 & 1))
            self.assertEqual(unit[8:], bytes(len(unit) - 8))
        return found

    def test_without_one_the_clip_counts_from_zero(self):
        self.assertIsNone(self.run_json("create", "-i", "in", "new.clip")["timecode"])
        self.assertEqual(clipfile.element(self.clip().header, "TimecodeSource"), "zerobased")

    def test_the_header_has_the_first_one(self):
        said = self.run_json("create", "-i", "in", "--timecode", "10:00:00:00", "new.clip")
        self.assertEqual(said["timecode"]["fields"], 1800000)
        header = self.clip().header
        self.assertEqual([clipfile.element(header, name) for name in ("TimecodeSource", "Striped_TC_Offset",
                                                                      "Striped_TC_DF")], ["striped", "1800000", "ndf"])

    def test_a_track_has_one_for_every_field_and_passes_midnight(self):
        for source in ("timecodetrack", "tc0striped"):
            self.run_tool("create", "-fi", "in", "-t", "23:59:59:24", "--timecode-source", source, "new.clip")
            clip = self.clip()
            self.assertEqual(clipfile.element(clip.header, "TimecodeSource"), source)
            track = clip.tracks[1]
            self.assertEqual(self.labels(track.unit(u) for u in range(track.units)),
                             [(23, 59, 59, 24, 0, 0), (23, 59, 59, 24, 1, 0)] +
                             [(0, 0, 0, f, field, 0) for f in (0, 1) for field in (0, 1)])
        self.assertEqual(clipfile.element(clip.header, "RecTCStripe"), str(24 * 3600 * 50 - 2))

    def test_a_list_has_a_label_in_each_line_and_counts_on_behind_it(self):
        self.put("labels", b"10:00:00:24\r\n\r\n11:00:00:05")
        self.run_tool("create", "-i", "in", "--labels", "labels", "new.clip")
        track = self.clip().tracks[1]
        self.assertEqual(self.labels(track.unit(u) for u in range(track.units)),
                         [(10, 0, 0, 24, 0, 0), (10, 0, 0, 24, 1, 0), None, None, (11, 0, 0, 5, 0, 0),
                          (11, 0, 0, 5, 1, 0)])
        self.put("labels", b"10:00:00:24\n")
        self.run_tool("create", "-fi", "in", "--labels", "labels", "new.clip")
        track = self.clip().tracks[1]
        self.assertEqual(self.labels([track.unit(5)]), [(10, 0, 1, 1, 1, 0)])

    def test_drop_frame_is_counted_and_marked(self):
        self.put("in60", b"".join(essence.dv_frame(i, fifty=False) for i in range(2)))
        for wanted in (["-t", "00:00:59;29"], ["-t", "00:00:59:29", "--drop-frame"]):
            self.run_tool("create", "-fi", "in60", *wanted, "--timecode-source", "timecodetrack", "new.clip")
            data = self.clip_of_dv60()
            self.assertEqual(self.labels(data), [(0, 0, 59, 29, 0, 1), (0, 0, 59, 29, 1, 1), (0, 1, 0, 2, 0, 1),
                                                 (0, 1, 0, 2, 1, 1)])

    def clip_of_dv60(self):
        clipfile.FORMATS["dv50"], kept = (241664, 2, 240000), clipfile.FORMATS["dv50"]
        try:
            track = self.clip().tracks[1]
        finally:
            clipfile.FORMATS["dv50"] = kept
        return [track.unit(u) for u in range(track.units)]

    def test_lists_that_are_wrong_are_refused_with_the_line(self):
        for text, reason in ((b"10:00:00:00\n10:00:00:25\n", "line 2: 10:00:00:25"), (b"", "no labels"),
                             (b"x" * 100, "a line is too long"),
                             (b"1\n" * 4, "labels for 8 fields, and the clip has 6"),
                             (b"\xff\xfe\n", "line 1")):
            self.put("labels", text)
            self.assert_refused("-i", "in", "--labels", "labels", "x.clip", reason=reason)
        self.assert_refused("-i", "in", "--labels", "labels", "-t", "1", "x.clip", reason="exclude", code=2)
        self.assert_refused("-i", "in", "--labels", "labels", "--timecode-source", "striped", "x.clip",
                            reason="timecode track", code=2)
        self.assert_refused("-i", "in", "-t", "10:00:00:30", "x.clip", reason="0 to 24", code=2)
        self.assert_refused("-i", "in", "--drop-frame", "x.clip", reason="--drop-frame", code=2)


class Sound(CreateTest):
    # standard: (bytes of a block, samples of five blocks, rate code)
    CADENCES = {"1080i 50Hz": (4096, [960] * 5, 1), "1080i 59.94Hz": (4096, [801] * 4 + [800], 3),
                "1080p 29.97Hz": (8192, [1602] * 4 + [1600], 7), "1080p 25Hz": (8192, [1920] * 5, 8),
                "1080p 23.98Hz": (8192, [2002] * 5, 10)}

    def streams(self, track, standard):
        """The samples of each subchannel as the units have them, one after the other."""
        block, cadence, code = self.CADENCES[standard]
        stored = clipfile.FORMATS[track.format][0] * block // 4096
        count = track.length // stored
        streams = [[] for _ in range(stored // block)]
        for unit in range(count):
            data = track.clip.logical(track.start + clipfile.GROW + unit * stored, stored)
            for i, stream in enumerate(streams):
                magic, flags, phase, index, rate = struct.unpack_from("<IBBBB", data, i * block)
                self.assertEqual((magic, flags, index, rate), (0x7D3E9A51, int(unit == 0), i, code))
                self.assertEqual(phase, unit % 5 if code in (3, 7) else 0)
                stream += struct.unpack_from(f"<{cadence[unit % 5]}i", data, i * block + 32)
        return streams

    def test_channels_of_all_files_become_subchannels_at_every_cadence(self):
        for standard in self.CADENCES:
            channels = [essence.tone(c, 12012) for c in range(3)]
            essence.wav(self.path("a.wav"), channels[:2])
            essence.wav(self.path("b.wav"), channels[2:])
            said = self.run_json("create", "-f", "-s", standard, "--sound", "a.wav", "--sound", "b.wav", "new.clip")
            self.assertEqual([t["format"] for t in said["tracks"]], ["auk4"])
            self.assertEqual(said["tracks"][0]["from"],
                             [{"path": path, "channel": c} for path, c in (("a.wav", 0), ("a.wav", 1), ("b.wav", 0))])
            streams = self.streams(self.clip().tracks[0], standard)
            for channel, stream in zip(channels, streams):
                self.assertEqual(stream[:12012], [value << 16 for value in channel])
                self.assertEqual(set(stream[12012:]), {0} if len(stream) > 12012 else set())
            self.assertEqual(set(streams[3]), {0})
            self.assertLess(len(streams[0]) - 12012, 2 * 2002)
            self.run_tool("verify", "--deep", "new.clip")

    def test_samples_of_24_and_32_bits_are_kept_whole(self):
        for bits in (24, 32):
            essence.wav(self.path("a.wav"), [essence.tone(1, 1920, bits)], bits)
            self.run_tool("create", "-f", "-s", "1080i 50Hz", "--sound", "a.wav", "new.clip")
            self.assertEqual(self.streams(self.clip().tracks[0], "1080i 50Hz")[0],
                             [value << 32 - bits for value in essence.tone(1, 1920, bits)])

    def test_many_channels_are_divided_among_tracks(self):
        channels = [essence.tone(c, 1920) for c in range(20)]
        for name, part in (("a.wav", channels[:7]), ("b.wav", channels[7:])):
            essence.wav(self.path(name), part)
        for more, formats in (([], ["auk16", "auk16"]), (["--subchannels", "8"], ["auk"] * 3),
                              (["--subchannels", "2"], ["auk2"] * 10)):
            self.run_tool("create", "-f", "-s", "1080i 50Hz", "-a", "a.wav", "-a", "b.wav", *more, "new.clip")
            tracks = self.clip().tracks
            self.assertEqual([track.format for track in tracks], formats)
            streams = list(itertools.chain(*(self.streams(track, "1080i 50Hz") for track in tracks)))
            self.assertEqual(streams[:20], [[value << 16 for value in channel] for channel in channels])
            self.assertTrue(all(set(stream) == {0} for stream in streams[20:]))
        self.run_tool("create", "-s", "1080i 50Hz", "-a", "a.wav", "--subchannels", "3", "x.clip", code=2)

    def test_short_sound_is_followed_by_silence_and_long_sound_is_refused_unless_it_may_be_cut(self):
        self.put("in", b"".join(essence.dv_frame(i) for i in range(10)))  # 0.4 s
        for length, silence, left_out in ((9600, 9600, 0), (19200, 0, 0), (19200 + 1919, 0, 1919)):
            essence.wav(self.path("a.wav"), [essence.tone(0, length)])
            said = self.run_json("create", "-fi", "in", "-a", "a.wav", "new.clip")
            self.assertEqual(said["sounds"], [{"path": "a.wav", "channels": 1, "samples": min(length, 19200),
                                               "silence": silence, "left_out": left_out}])
            stream = self.streams(self.clip().tracks[1], "1080i 50Hz")[0]
            self.assertEqual(stream, ([value << 16 for value in essence.tone(0, length)] + [0] * 9600)[:19200])
        essence.wav(self.path("a.wav"), [essence.tone(0, 9600)])
        self.assertIn("shorter", self.run_tool("create", "-fi", "in", "-a", "a.wav", "new.clip").err)
        os.remove(self.path("new.clip"))
        essence.wav(self.path("a.wav"), [essence.tone(0, 30000)])
        self.assert_refused("-i", "in", "-a", "a.wav", "new.clip", reason="a.wav: its sound goes on")
        said = self.run_json("create", "-i", "in", "-a", "a.wav", "--cut-sound", "new.clip")
        self.assertEqual(said["sounds"][0]["left_out"], 30000 - 19200)

    def test_without_pictures_the_longest_file_counts_and_frames_are_whole(self):
        essence.wav(self.path("a.wav"), [essence.tone(0, 2000)])
        essence.wav(self.path("b.wav"), [essence.tone(1, 100)])
        said = self.run_json("create", "-s", "1080i 50Hz", "-a", "a.wav", "-a", "b.wav", "new.clip")
        self.assertEqual(said["fields"], 4)
        self.assertEqual([(s["samples"], s["silence"]) for s in said["sounds"]], [(2000, 1840), (100, 3740)])
        essence.wav(self.path("empty.wav"), [[]])
        self.assert_refused("-s", "1080i 50Hz", "-a", "empty.wav", "x.clip", reason="nothing in it")
        self.assert_refused("-a", "a.wav", "x.clip", reason="--standard", code=2)

    def test_sound_that_is_not_at_48_khz_is_refused(self):
        essence.wav(self.path("a.wav"), [essence.tone(0, 2000)], rate=44100)
        self.assert_refused("-s", "1080i 50Hz", "-a", "a.wav", "x.clip", reason="44100")


class RoundTrip(CreateTest):
    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def test_what_was_created_is_extracted_byte_for_byte(self):
        for units in ([essence.avc_unit(i, fields=i == 1) for i in range(3)],
                      [essence.dv_frame(i) for i in range(2)],
                      [essence.j2k_stream(i, open_end=i % 2) for i in range(4)]):
            self.put("in", b"".join(units))
            self.run_tool("create", "-fi", "in", "new.clip")
            self.run_tool("extract", "-f", "--track", "0", "--as", "units", "--no-padding", "-o", "out", "new.clip")
            self.assertEqual(self.read("out"), b"".join(units))
            self.run_tool("extract", "-f", "--track", "0", "--as", "units", "-o", "padded", "new.clip")
            self.run_tool("create", "-fi", "padded", "again.clip")
            self.assertEqual(clipfile.Clip(self.path("again.clip")).tracks[0].unit(1), self.clip().tracks[0].unit(1))

    def test_sound_comes_back_but_for_the_fade_in(self):
        channels = [essence.tone(c, 9600) for c in range(4)]
        essence.wav(self.path("a.wav"), channels)
        self.run_tool("create", "-a", "a.wav", "-s", "1080i 50Hz", "new.clip")
        self.run_tool("extract", "--track", "0", "--bits", "16", "-o", "out.wav", "new.clip")
        frames, faded = struct.unpack("<38400h", self.read("out.wav")[-9600 * 8 :]), 100
        for c, channel in enumerate(channels):
            self.assertEqual(list(frames[c::4][faded:]), channel[faded:])

    def test_labels_come_back_as_they_are_extracted(self):
        self.put("in", b"".join(essence.dv_frame(i) for i in range(3)))
        self.put("labels", b"10:00:00:24\n\n11:00:00:05\n")
        self.run_tool("create", "-i", "in", "-l", "labels", "new.clip")
        self.run_tool("extract", "--track", "1", "-o", "list", "new.clip")
        self.run_tool("create", "-i", "in", "-l", "list", "again.clip")
        self.run_tool("extract", "--track", "1", "-o", "list again", "again.clip")
        self.assertEqual(self.read("list"), self.read("list again"))
        self.assertIn(b"4 11:00:00:05\n5 11:00:00:05.2\n", self.read("list"))
        self.put("mixed", self.read("list") + b"10:00:00:00\n")
        self.assert_refused("-i", "in", "-l", "mixed", "x.clip", reason="line 7: either all lines")


@unittest.skipIf(support.WINDOWS or not shutil.which("ffmpeg"), "ffmpeg makes the pictures")
class RealPictures(CreateTest):
    def make(self, source, size, rate, *coding):
        done = subprocess.run(["ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i",
                               f"{source}=size={size}:rate={rate}", "-t", "0.12", *coding], cwd=self.folder)
        if done.returncode != 0:
            self.skipTest("this ffmpeg has not the coder")

    def check(self, name, standard, size):
        said = self.run_json("create", "-fi", name, "new.clip")
        self.assertEqual(said["standard"], standard)
        with open(self.path(name), "rb") as file:
            whole = file.read()
        clipfile.FORMATS[said["tracks"][0]["format"]] = (-(-size // PAGE) * PAGE, 1, size)
        self.assert_units(self.clip().tracks[0], [whole[at : at + size] for at in range(0, len(whole), size)])
        self.run_tool("verify", "--deep", "new.clip")

    def setUp(self):
        super().setUp()
        self.addCleanup(clipfile.FORMATS.update, dict(clipfile.FORMATS))

    def test_avc_intra(self):
        coding = ["-pix_fmt", "yuv422p10le", "-c:v", "libx264", "-x264-params", "avcintra-class=100"]
        self.make("testsrc2", "1280x720", "50", *coding, "-f", "h264", "a.h264")
        self.check("a.h264", "720p 50Hz", 284672)
        self.make("testsrc2", "1920x1080", "30000/1001", "-flags", "+ildct+ilme", *coding[:-1],
                  "avcintra-class=100:interlaced=1:tff=1", "-f", "h264", "b.h264")
        self.check("b.h264", "1080i 59.94Hz", 472576)

    def test_dv(self):
        self.make("testsrc2", "720x576", "25", "-pix_fmt", "yuv422p", "-c:v", "dvvideo", "-f", "dv", "a.dv")
        self.check("a.dv", "625i 50Hz", 288000)
        self.make("testsrc2", "1440x1080", "25", "-pix_fmt", "yuv422p", "-c:v", "dvvideo", "-f", "dv", "b.dv")
        self.check("b.dv", "1080i 50Hz", 576000)

    def test_code_streams(self):
        os.mkdir(self.path("j2k"))
        self.make("testsrc2", "720x288", "50", "-pix_fmt", "yuv422p10le", "-c:v", "jpeg2000", "-format", "j2k", "-q:v",
                  "8", "j2k/%d.j2k")
        self.assertEqual(self.run_json("create", "-i", "j2k", "new.clip")["standard"], "625i 50Hz")
        units = []
        for number in range(1, 1 + len(os.listdir(self.path("j2k")))):
            with open(self.path(f"j2k/{number}.j2k"), "rb") as file:
                units.append(file.read())
        self.assert_units(self.clip().tracks[0], units)


if __name__ == "__main__":
    support.main()
