#!/usr/bin/python3
"""checksum and check: the sums are those that another implementation finds for the units of the independent reader."""
import xxhash

import clipfile
import support


class Checksum(support.ProgramTest):
    def test_sums_are_xxh3_of_the_units_that_the_reader_finds(self):
        clipfile.take(12, extra="<TrimStart>2</TrimStart>").write(self.path("clip"))
        reader = clipfile.Clip(self.path("clip"))
        expected = [(track.number, unit, f"{xxhash.xxh3_64_intdigest(track.unit(unit)):016x}")
                    for track in reader.tracks for unit in range(track.units)]
        self.assertEqual(self.run_tool("checksum", "clip").text, "".join(f"{s}  {t}/{u}\n" for t, u, s in expected))
        said = self.run_json("checksum", "clip")["sums"]
        self.assertEqual([(s["track"], s["unit"], s["xxh3"]) for s in said], expected)
        self.assertEqual(self.run_tool("checksum", "-t", "1", "clip").text,
                         "".join(f"{s}  {t}/{u}\n" for t, u, s in expected if t == 1))

    def test_a_clip_that_grows_keeps_its_sums(self):
        clipfile.take(8).write(self.path("short"))
        clipfile.take(16).write(self.path("long"))
        short, long = (self.run_tool("checksum", name).text.splitlines() for name in ("short", "long"))
        self.assertLess(set(short), set(long))
        sums = "\n".join(short).encode()
        self.assertEqual(self.run_json("check", "long", "-", stdin=sums)["checked"], len(short))

    def test_a_changed_and_a_missing_unit_are_named(self):
        maker = clipfile.take(8)
        maker.write(self.path("clip"))
        with open(self.path("sums"), "wb") as file:
            file.write(self.run_tool("checksum", "clip").out)
        self.run_tool("check", "clip", "sums")
        audio = clipfile.Clip(self.path("clip")).tracks[1]
        data = bytearray(maker.bytes())
        place = {e[0]: e[2] for e in audio.clip.extents}[audio.position(5)]
        data[place + 200] ^= 1
        with open(self.path("clip"), "wb") as file:
            file.write(data)
        said = self.run_json("check", "clip", "sums", code=6)
        self.assertEqual(said["differing"], [{"track": 1, "unit": 5, "reason": "the unit differs"}])
        self.assertIn("clip: track 1, unit 5: the unit differs\n", self.run_tool("check", "clip", "sums", code=6).text)
        clipfile.take(6).write(self.path("clip"))
        missing = self.run_json("check", "clip", "sums", code=6)["differing"]
        self.assertEqual([(d["track"], d["unit"]) for d in missing], [(0, 3), (1, 6), (1, 7), (2, 6), (2, 7)])

    def test_a_missing_track_differs_and_an_unreadable_one_is_named(self):
        clipfile.take(2).write(self.path("clip"))
        said = self.run_json("check", "clip", "-", stdin=b"0123456789abcdef  9/0\n", code=6)
        self.assertEqual(said["differing"], [{"track": 9, "unit": 0, "reason": "the track is missing"}])
        sums = self.run_tool("checksum", "clip").text.splitlines()
        data = bytearray(clipfile.take(2).bytes())
        data[:clipfile.HEADER] = data[:clipfile.HEADER].replace(b"<TrackType>auk2<", b"<TrackType>auk3<")
        with open(self.path("clip"), "wb") as file:
            file.write(data)
        result = self.run_tool("checksum", "clip", code=3)
        self.assertEqual(result.text.splitlines(), [line for line in sums if "  1/" not in line])
        self.assertIn("clip: track 1: the format auk3 is unknown", result.err)

    def test_with_quiet_only_what_differs_is_said(self):
        clipfile.take(2).write(self.path("clip"))
        sums = self.run_tool("checksum", "clip").out
        self.assertEqual(self.run_tool("check", "-q", "clip", "-", stdin=sums).text, "")
        self.assertIn("differs", self.run_tool("check", "-q", "clip", "-", stdin=b"0" * 16 + b"  0/0\n", code=6).text)

    def test_lists_that_are_none_are_refused_with_the_line(self):
        clipfile.take(2).write(self.path("clip"))
        for wrong in ("0123456789abcdef  0/0\nnonsense\n", "x\n", "0123456789ABCDEF  0/0\n",
                      "0123456789abcdef  0/99999999999999999999\n"):
            result = self.run_tool("check", "clip", "-", stdin=wrong.encode(), code=1)
            self.assertRegex(result.err, "line [12] is no checksum")
        self.run_tool("check", "clip", "missing", code=1)
        self.assertIn("no checksum", self.run_tool("check", "clip", "-", stdin=b"\n", code=1).err)
        self.run_tool("checksum", "-t", "9", "clip", code=2)


if __name__ == "__main__":
    support.main()
