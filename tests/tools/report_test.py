#!/usr/bin/python3
"""report: the page is strict HTML that runs and loads nothing, and shows what the independent reader finds."""
import fractions
import math
import os
import random
import re
import signal
import struct
import subprocess
import time
import unittest

import clipfile
import page
import support

COLUMNS = 800


def squares(units, loud):
    """Samples of one subchannel: a square wave of half the full scale in the units `loud`, silence in the others."""
    return [[(2**30 if k // 48 % 2 == 0 else -2**30) if unit in loud else 0 for k in range(960)]
            for unit in range(units)]


def block(samples, word, subchannel, flags=0):
    head = struct.pack("<IBBBBI20x", 0x7D3E9A51, flags, 0, subchannel, 1, word)
    return (head + struct.pack("<960i", *samples)).ljust(4096, b"\0")


def columns_of(units):
    """(least, greatest) of each column: those of the samples whose share of the time falls into it."""
    columns = [[] for _ in range(COLUMNS)]
    all_samples = [sample for samples in units for sample in samples]
    for index, sample in enumerate(all_samples):
        columns[index * COLUMNS // len(all_samples)].append(sample)
    return [(min(samples), max(samples)) for samples in columns]


def drawn_columns(path):
    """(least, greatest) of each column of a waveform's path, in 128ths of the full scale; None where nothing is."""
    tops, bottoms = [None] * COLUMNS, [None] * COLUMNS
    x = y = 0
    for command, numbers in re.findall(r"([MVhz])([-\d. ]*)", path):
        if command == "M":
            x, y = map(int, numbers.split())
        elif command == "V":
            y = int(numbers)
        elif command == "h":
            step = int(numbers)
            for column in range(min(x, x + step), max(x, x + step)):
                (tops if step > 0 else bottoms)[column] = 128 - y
            x += step
    return list(zip(bottoms, tops))


class ReportTest(support.ProgramTest):
    def report(self, name="clip", *options, code=0):
        self.run_tool("report", name, "-o", "page.html", "--force", *options, code=code)
        return self.page()

    def page(self):
        with open(self.path("page.html"), "rb") as file:
            return page.Page(file.read()).root

    def sound_clip(self, units, marks=None, **options):
        """A clip of one audio track, two subchannels; `units`: samples of subchannel 0. `marks`: {unit: flags}."""
        maker = clipfile.Maker(["auk2"], room=9000, **options)
        for unit, samples in enumerate(units):
            flags = (marks or {}).get(unit, 0)
            maker.append(0, block(samples, 1000 + unit, 0, flags) + block([0] * 960, 5000 + unit, 1, flags))
        return maker


class Structure(ReportTest):
    def test_the_page_is_strict_and_can_be_used_without_seeing_it(self):
        clipfile.take(12, extra="<Title>A take</Title>").write(self.path("clip"))
        root = self.report()
        html = root.one("html")
        self.assertEqual(html.attributes["lang"], "en")
        self.assertIn("A take", next(root.one("head").all("title")).text)
        for landmark in ("header", "nav", "main", "footer"):
            root.one(landmark)
        self.assertTrue(root.one("nav").attributes["aria-label"])
        levels = [int(e.name[1]) for e in root.all() if re.fullmatch("h[1-6]", e.name)]
        self.assertEqual(levels[0], 1)
        self.assertEqual(levels.count(1), 1)
        for before, after in zip(levels, levels[1:]):
            self.assertLessEqual(after, before + 1)
        for section in root.all("section"):
            self.assertEqual(section.one("h2").attributes["id"], section.attributes["aria-labelledby"])
        self.assertEqual([a.attributes["href"][1:] for a in root.one("nav").all("a")],
                         [s.attributes["id"] for s in root.all("section")])
        for table in root.all("table"):
            self.assertEqual({th.attributes["scope"] for th in table.one("thead").all("th")}, {"col"})
            for row in table.one("tbody").all("tr"):
                self.assertEqual([th.attributes["scope"] for th in row.all("th")], ["row"])
            region = table.parent
            self.assertEqual((region.attributes["role"], region.attributes["tabindex"]), ("region", "0"))
            self.assertEqual(region.attributes["aria-labelledby"], table.one("caption").attributes["id"])
        pictures = [svg for svg in root.all("svg") if svg.attributes.get("role") == "img"]
        self.assertEqual(len(pictures), 3)  # the map and two subchannels
        for picture in pictures:
            self.assertTrue(picture.one("title").text.strip())
            self.assertTrue(picture.one("desc").text.strip())
        outermost = [svg for svg in root.all("svg") if svg.parent.name not in ("svg", "g")]
        for svg in outermost:  # the others are decoration
            self.assertTrue(svg.attributes.get("role") == "img" or svg.attributes.get("aria-hidden"))

    def test_the_page_runs_and_loads_nothing(self):
        clipfile.take(4).write(self.path("clip"))
        root = self.report()
        policy = next(m for m in root.all("meta") if m.attributes.get("http-equiv") == "Content-Security-Policy")
        self.assertIn("default-src 'none'", policy.attributes["content"])
        loading = ("script", "link", "img", "iframe", "object", "base")
        self.assertEqual([e.name for e in root.all() if e.name in loading], [])
        for style in root.all("style"):
            self.assertNotRegex(style.text, r"url\(|@import|<")

    def test_texts_have_enough_contrast_in_light_and_dark(self):
        clipfile.take(4).write(self.path("clip"))
        style = next(self.report().all("style")).text

        def luminance(colour):
            parts = [int(colour[i : i + 2], 16) / 255 for i in (1, 3, 5)]
            linear = [p / 12.92 if p <= 0.04045 else ((p + 0.055) / 1.055) ** 2.4 for p in parts]
            return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

        themes = [dict(re.findall(r"--(\w+): (#\w{6});", block)) for block in style.split(":root")[1:3]]
        self.assertEqual(themes[0].keys(), themes[1].keys())
        for theme in themes:
            for least, names in ((4.5, "text quiet link fine unfinished damaged"), (3, "sound zero join")):
                for name in names.split():
                    for back in ("back", "panel"):
                        one, other = sorted((luminance(theme[name]), luminance(theme[back])))
                        self.assertGreaterEqual((other + 0.05) / (one + 0.05), least, (name, back, theme))


class Escaping(ReportTest):
    HOSTILE = ("&lt;/title&gt;&lt;script&gt;alert(1)&lt;/script&gt;&lt;img src=x onerror=alert(2)&gt; "
               "&quot;&apos;&amp;lt;")
    PLAIN = "</title><script>alert(1)</script><img src=x onerror=alert(2)> \"'&lt;"

    def test_texts_of_the_header_stay_texts(self):
        extra = (f"<Title>{self.HOSTILE}</Title><Project>{self.HOSTILE}</Project>"
                 f"<Meta><Reel><V>{self.HOSTILE}\u202e\u0085</V></Reel></Meta>")
        clipfile.take(4, extra=extra).write(self.path("clip"))
        root = self.report()
        self.assertEqual(root.one("h1").text, self.PLAIN)
        self.assertTrue(next(root.one("head").all("title")).text.startswith(self.PLAIN))
        values = [dd.text for dd in root.one("section", id="identity").all("dd")]
        self.assertEqual(values.count(self.PLAIN), 2)
        self.assertIn(self.PLAIN + "\u202e\ufffd", values)

    def test_controls_and_what_is_no_character_are_replaced(self):
        odd = "a\x01b\x1b[31mc\x7f\ufffe\U0001ffffd"
        clipfile.take(4, extra=f"<Title>{odd}</Title>").write(self.path("clip"))
        self.assertEqual(self.report().one("h1").text, "a\ufffdb\ufffd[31mc\ufffd\ufffd\ufffdd")

    def test_bytes_that_are_not_utf8_do_not_reach_the_page(self):
        for bad in (b"\xff", b"\xc0\x80", b"\xed\xa0\x80", b"\xf4\x90\x80\x80", b"\xe2\x82"):
            data = clipfile.take(4, extra="<Title>one TITLE two</Title>").bytes().replace(b"TITLE", bad.ljust(5), 1)
            with open(self.path("clip"), "wb") as file:
                file.write(data)
            done = self.run_tool("report", "clip", "-o", "page.html", "--force", code=None)
            self.assertIn(done.code, (0, 3))  # an odd header is none
            if done.code == 0:
                self.assertIn("one", self.page().one("h1").text)

    def test_names_of_formats_and_files_stay_texts(self):
        data = clipfile.take(4).bytes()
        name = "&lt;b onclick=&quot;x&quot;&gt;"
        header = data[: clipfile.HEADER].rstrip(b" ").decode()
        header = header.replace("<TrackType>auk2<", f"<TrackType>{name}<", 1)
        header = header.replace("<ThisFile/>", f"<FileName>{name}</FileName>", 1)
        with open(self.path("clip"), "wb") as file:
            file.write(header.encode().ljust(clipfile.HEADER) + data[clipfile.HEADER :])
        root = self.report(code=3)
        self.assertIn('<b onclick="x">', root.one("section", id="tracks").text)
        self.assertIn('<b onclick="x">', next(root.all("svg", class_="map")).text)
        self.assertIn('<b onclick="x">', root.one("section", id="findings").text)

    @unittest.skipIf(support.WINDOWS, "names that Windows refuses")
    def test_the_name_of_the_clip_stays_a_text(self):
        name = "a & <script>\"'\x07 \u00e4\u4e2d.clip"
        clipfile.take(4).write(self.path(name))
        root = self.report(name)
        self.assertEqual(root.one("h1").text, name.replace("\x07", "\ufffd"))

    def test_long_texts_are_shortened_with_the_number_of_what_is_left_out(self):
        clipfile.take(4, extra="<Title>" + "x" * 5000 + "</Title>").write(self.path("clip"))
        root = self.report()
        self.assertEqual(root.one("h1").text, "x" * 200 + "\u2026 (4800 characters more)")
        self.assertIn("x" * 5000, [dd.text for dd in root.one("section", id="identity").all("dd")])


class Identity(ReportTest):
    def test_what_info_knows_is_in_the_page(self):
        clipfile.take(12, extra="<Title>T1</Title><TrimStart>2</TrimStart><Meta><Reel><V>A4</V></Reel></Meta>").write(
            self.path("clip"))
        root = self.report()
        [info] = self.run_json("info", "clip")["clips"]
        section = root.one("section", id="identity")
        pairs = dict(zip((dt.text for dt in section.all("dt")), (dd.text for dd in section.all("dd"))))
        self.assertEqual(pairs["UUID"], info["uuid"])
        self.assertEqual((pairs["Title"], pairs["Reel"]), ("T1", "A4"))
        self.assertEqual(pairs["Trimmed"], "2 fields at the start, 0 at the end")
        self.assertEqual(pairs["Content edited"], "2023-11-14T22:13:20Z")
        self.assertTrue(pairs["Standard"].startswith("1080i 50Hz, 1920 \u00d7 1080"))
        rows = root.one("section", id="tracks").rows()
        self.assertEqual([(row[0], row[1], row[4], row[5]) for row in rows],
                         [(str(t["track"]), t["category"], str(t["units"]), str(t["fields"])) for t in info["tracks"]])

    def test_a_child_clip_has_a_page_without_tracks(self):
        text = "<KelvonClipMeta1><ParentClip>x</ParentClip><Title>child</Title></KelvonClipMeta1>"
        with open(self.path("clip"), "wb") as file:
            file.write(text.encode().ljust(clipfile.HEADER))
        self.assertEqual(self.report().one("h1").text, "child")


class Map(ReportTest):
    def test_the_dark_parts_are_where_the_reader_finds_the_tracks(self):
        clipfile.take(12).write(self.path("clip"))
        reader = clipfile.Clip(self.path("clip"))
        lanes = list(next(self.report().all("svg", class_="map")).all("g"))
        self.assertEqual(len(lanes), len(reader.tracks))
        width = fractions.Fraction(len(reader.data), 500)
        for lane, track in zip(lanes, reader.tracks):
            drawn = [0] * 500
            for path in lane.all("path"):
                for x, run in re.findall(r"M(\d+) \d+h(\d+)v", path.attributes["d"]):
                    first = (int(x) - 190) // 2
                    drawn[first : first + int(run) // 2] = [float(path.attributes["fill-opacity"])] * (int(run) // 2)
            shares = [0] * 500
            for logical, length, host in track.unit_extents():
                if logical == track.start:
                    continue  # the head of the grow container
                for i in range(math.floor(host / width), min(500, math.ceil((host + length) / width))):
                    shares[i] += max(0, min(host + length, (i + 1) * width) - max(host, i * width)) / width
            for share, dark in zip(shares, drawn):
                self.assertLess(abs(math.ceil(share * 8 - fractions.Fraction(1, 10**6)) / 8 - dark), 1e-9)


class Sound(ReportTest):
    def test_a_square_wave_has_its_columns(self):
        for count, loud in ((10, {2, 3, 7}), (1, {0}), (803, {5, 400, 802})):
            units = squares(count, loud)
            self.sound_clip(units, {0: 1}).write(self.path("clip"))
            root = self.report()
            first, second = root.all("svg", class_="wave")
            expected = [(low // 2**24, -(-high // 2**24)) for low, high in columns_of(units)]
            self.assertEqual(drawn_columns(first.one("path", class_="sound").attributes["d"]), expected, count)
            self.assertEqual(set(drawn_columns(second.one("path", class_="sound").attributes["d"])), {(0, 0)})
            self.assertIn("peak \u22126.0 dBFS", first.one("desc").text)
            self.assertIn("silent", second.one("desc").text)
            self.assertEqual(list(root.all("path", class_="silent")), [])

    def test_every_sample_is_in_its_column(self):
        source = random.Random(3)
        for count in (7, 803):
            units = [[source.randrange(-2**31, 2**31) for _ in range(960)] for _ in range(count)]
            self.sound_clip(units).write(self.path("clip"))
            wave = next(self.report().all("svg", class_="wave"))
            self.assertEqual(drawn_columns(wave.one("path", class_="sound").attributes["d"]),
                             [(low // 2**24, -(-high // 2**24)) for low, high in columns_of(units)], count)

    def test_full_scale_reaches_the_edges(self):
        self.sound_clip([[-2**31, 2**31 - 1] * 480] * 20).write(self.path("clip"))
        wave = next(self.report().all("svg", class_="wave"))
        self.assertEqual(set(drawn_columns(wave.one("path", class_="sound").attributes["d"])), {(-128, 128)})
        self.assertIn("peak 0.0 dBFS", wave.one("desc").text)

    def test_joins_and_fades_are_marked_and_listed(self):
        # Three recordings: 0 to 99, which is faded out; 100 to 149, which ends with a unit; 150 to 199, faded out.
        marks = {0: 1, 99: 2, 100: 1, 150: 1, 199: 2}
        self.sound_clip(squares(200, {3}), marks).write(self.path("clip"))
        root = self.report()
        for wave in root.all("svg", class_="wave"):
            lines = [int(x) for x in re.findall(r"M(\d+) 0V256", wave.one("path", class_="join").attributes["d"])]
            self.assertEqual(lines, [400, 600])
            uses = [(use.attributes["href"], use.attributes["x"]) for use in wave.all("use")]
            self.assertEqual(uses, [("#fade-in", "0%"), ("#fade-out", "50%"), ("#fade-in", "50%"), ("#fade-in", "75%"),
                                    ("#fade-out", "100%")])
        rows = root.one("section", id="sound").rows()
        self.assertEqual(rows, [["0", "0:00.00", "fade-in", "all"],
                                ["100", "0:02.00", "fade-out before it, fade-in", "all"],
                                ["150", "0:03.00", "fade-in", "all"],
                                ["end", "0:04.00", "fade-out before it", "all"]])

    def test_breaks_invalid_blocks_and_gaps_are_marked(self):
        maker = clipfile.Maker(["auk2"], room=9000)
        quiet = [0] * 960
        for unit in range(100):
            if unit == 80:
                maker.plans[0][4] = 90  # ten units are never written
            if 80 <= unit < 90:
                continue
            word = 1000 + unit + (500 if unit >= 20 else 0)
            second = bytes(4096) if 40 <= unit < 50 else block(quiet, 7000 + unit, 1)
            maker.append(0, block(quiet, word, 0) + second)
        maker.write(self.path("clip"))
        root = self.report(code=3)
        first, second = root.all("svg", class_="wave")
        self.assertEqual(first.one("path", class_="broken").attributes["d"], "M160 0V256")
        self.assertEqual(list(second.all("path", class_="broken")), [])
        self.assertEqual(first.one("path", class_="silent").attributes["d"], "M640 0h80v256h-80z")
        self.assertEqual(second.one("path", class_="silent").attributes["d"], "M320 0h80v256h-80zM640 0h80v256h-80z")
        self.assertEqual([(row[0], row[2], row[3]) for row in root.one("section", id="sound").rows()],
                         [("20", "break without a fade", "0"), ("40", "invalid or not stored from here on", "1"),
                          ("80", "invalid or not stored from here on", "all")])

    def test_what_the_trims_hide_is_said(self):
        extra = "<TrimStart>10</TrimStart><TrimEnd>20</TrimEnd>"
        self.sound_clip(squares(100, {3}), extra=extra).write(self.path("clip"))
        root = self.report()
        wave = next(root.all("svg", class_="wave"))
        self.assertEqual(wave.one("path", class_="trimmed").attributes["d"],
                         "M0 0H80.00V256H0zM640.00 0H800V256H640.00z")
        self.assertIn("units 10 to 79", root.one("section", id="sound").text)

    def test_a_long_list_of_joins_says_how_many_are_left_out(self):
        self.sound_clip([[0] * 960] * 250, {unit: 1 for unit in range(250)}).write(self.path("clip"))
        root = self.report()
        self.assertEqual(len(root.one("section", id="sound").rows()), 100)
        self.assertIn("150 more", root.one("section", id="sound").text)

    def test_subchannels_that_are_not_drawn_are_counted(self):
        maker = clipfile.Maker(["auk16"] * 5 + ["auk2"], room=10)
        for track, subchannels in enumerate([16] * 5 + [2]):
            maker.append(track, clipfile.sound(0, subchannels))
        maker.write(self.path("clip"))
        root = self.report()
        self.assertEqual(len(list(root.all("svg", class_="wave"))), 64)
        self.assertIn("18 subchannels of 2 audio tracks more are not drawn", root.one("section", id="sound").text)


class Timecode(ReportTest):
    def timecode_clip(self, counts, extra="<TimecodeSource>timecodetrack</TimecodeSource>"):
        maker = clipfile.Maker(["tc2"], extra=extra)
        for count in counts:
            maker.append(0, b"\xff" * 8 + bytes(4088) if count is None else clipfile.timecode(count))
        maker.write(self.path("clip"))

    def test_every_break_is_listed_with_what_was_expected(self):
        day = 24 * 3600 * 50
        self.timecode_clip([100, 101, 102, 160, 161, 50, 51, None, 70, 71, day - 1, 0, 1])
        section = self.report().one("section", id="timecode")
        self.assertEqual(section.rows(),
                         [["3", "0:00.06", "00:00:02:01.2", "00:00:03:05", "+57"],
                          ["5", "0:00.10", "00:00:03:06", "00:00:01:00", "\u2212112"],
                          ["7", "0:00.14", "00:00:01:01", "none", ""],
                          ["10", "0:00.20", "00:00:01:11", "23:59:59:24.2", "+4319927"]])
        self.assertIn("4 breaks", section.text)
        said = self.run_json("report", "clip", "-o", "page.html", "--force")
        self.assertEqual(said["timecode_breaks"], 4)
        [checked] = self.run_json("verify", "clip")["clips"]
        self.assertEqual(sum(f["count"] for f in checked["findings"] if f["kind"] == "timecode-break"), 4)

    def test_units_that_are_not_stored_make_no_break(self):
        maker = clipfile.Maker(["tc2"], extra="<TimecodeSource>timecodetrack</TimecodeSource>")
        for unit, count in ((0, 10), (1, 11), (4, 70), (5, 71), (6, 80)):
            maker.plans[0][4] = unit
            maker.append(0, clipfile.timecode(count))
        maker.write(self.path("clip"))
        section = self.report(code=3).one("section", id="timecode")
        self.assertEqual([row[0] for row in section.rows()], ["6"])

    def test_continuous_timecode_says_so(self):
        self.timecode_clip(range(1800000, 1800050))
        self.assertIn("10:00:00:00 to 10:00:00:24.2, without a break", self.report().one("section", id="timecode").text)

    def test_many_breaks_are_counted(self):
        self.timecode_clip([unit * 100 for unit in range(300)])
        section = self.report().one("section", id="timecode")
        self.assertEqual(len(section.rows()), 100)
        self.assertIn("199 more", section.text)


class Command(ReportTest):
    def test_the_exit_code_and_the_findings_are_those_of_verify(self):
        clipfile.take(8).write(self.path("fine"))
        clipfile.take(16).write(self.path("killed"), lengths=[2, 4, 4], mapped=15)
        data = bytearray(clipfile.take(8).bytes())
        data[data.index(struct.pack("<I", 0x7D3E9A51))] ^= 255
        with open(self.path("damaged"), "wb") as file:
            file.write(data)
        for name, code in (("fine", 0), ("killed", 4), ("damaged", 3)):
            for option in ([], ["--deep"], ["--quick"]) if name == "damaged" else ([],):
                [checked] = self.run_json("verify", name, *option, code=None)["clips"]
                expected = {"fine": 0, "unfinished": 4, "damaged": 3}[checked["verdict"]]
                if not option:
                    self.assertEqual(expected, code)
                said = self.run_json("report", name, "-o", "page.html", "--force", *option, code=expected)
                self.assertEqual((said["level"], said["verdict"]), (checked["level"], checked["verdict"]))
                for severity in ("note", "damage", "loss"):
                    self.assertEqual(said["findings"][severity],
                                     sum(f["severity"] == severity for f in checked["findings"]))
                self.assertEqual(said["page_bytes"], os.path.getsize(self.path("page.html")))
                section = self.page().one("section", id="findings")
                rows = section.rows() if checked["findings"] else []
                self.assertEqual([(row[0], row[4]) for row in rows],
                                 [(f["severity"], f"{f['count']} {f['counted']}") for f in checked["findings"]])
                for row, finding in zip(rows, checked["findings"]):
                    self.assertTrue(row[3].startswith(finding["text"]))
                    self.assertEqual(row[1], str(finding.get("track", "")))

    def test_quick_reads_no_unit_and_says_so(self):
        clipfile.take(8).write(self.path("clip"))
        root = self.report("clip", "--quick")
        self.assertEqual(list(root.all("svg", class_="wave")), [])
        self.assertIn("No unit was read", root.one("section", id="sound").text)
        self.assertIn("No unit was read", root.one("section", id="timecode").text)

    def test_nothing_is_overwritten_without_force(self):
        clipfile.take(4).write(self.path("clip"))
        with open(self.path("page.html"), "w") as file:
            file.write("mine")
        self.assertIn("exists", self.run_tool("report", "clip", "-o", "page.html", code=1).err)
        with open(self.path("page.html")) as file:
            self.assertEqual(file.read(), "mine")
        before = clipfile.Clip(self.path("clip")).data
        self.run_tool("report", "clip", "-o", "clip", "--force", code=2)
        self.assertEqual(clipfile.Clip(self.path("clip")).data, before)
        self.run_tool("report", "clip", code=2)
        self.run_tool("report", "clip", "-o", "-", "--json", code=2)
        self.run_tool("report", "clip", "-o", "x", "--quick", "--deep", code=2)

    def test_a_dash_is_standard_output_and_a_dry_run_writes_nothing(self):
        clipfile.take(4).write(self.path("clip"))
        done = self.run_tool("report", "clip", "-o", "-")
        page.Page(done.out)
        self.assertEqual(done.err, "")
        said = self.run_json("report", "clip", "--dry-run")
        self.assertIsNone(said["output"])
        self.assertGreater(said["page_bytes"], 10000)
        self.assertEqual(os.listdir(self.folder), ["clip"])
        self.assertEqual(self.run_tool("report", "-q", "clip", "-o", "page.html").out, b"")

    def test_a_failure_leaves_nothing_behind(self):
        with open(self.path("text"), "w") as file:
            file.write("no clip" * 9000)
        clipfile.take(4).write(self.path("clip"))
        self.assertIn("text", self.run_tool("report", "text", "-o", "page.html", code=3).err)
        self.run_tool("report", "missing", "-o", "page.html", code=1)
        self.run_tool("report", "clip", "-o", "no/folder/page.html", code=1)
        self.assertEqual(sorted(os.listdir(self.folder)), ["clip", "text"])

    @unittest.skipIf(support.WINDOWS, "signals, devices and shells of Unix")
    def test_an_interruption_a_closed_pipe_and_a_full_disk_leave_nothing_behind(self):
        maker = clipfile.Maker(["avci50-1080i"])
        for unit in range(250):
            maker.append(0, clipfile.picture(unit, 281088))
        maker.write(self.path("long"))
        for pause in (0.0, 0.05, 0.2):
            process = subprocess.Popen(support.PROGRAM + ["report", "--deep", "long", "-o", "page.html"],
                                       cwd=self.folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(pause)
            process.send_signal(signal.SIGINT)
            self.assertIn(process.wait(60), (130, 0, -signal.SIGINT))
            left = sorted(os.listdir(self.folder))
            self.assertIn(left, (["long"], ["long", "page.html"]))
            if "page.html" in left:
                self.page()  # whole
                os.remove(self.path("page.html"))
        line = f"'{support.PROGRAM[-1]}' report long -o - | head -c 100 > /dev/null; exit ${{PIPESTATUS[0]}}"
        done = subprocess.run(["bash", "-c", line], cwd=self.folder, capture_output=True, timeout=60)
        self.assertIn((done.returncode, done.stderr), ((1, b""), (0, b"")))  # a small page fits into the pipe
        if os.path.exists("/dev/full"):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([support.PROGRAM[-1], "report", "long", "-o", "-"], cwd=self.folder, stdout=full,
                                      stderr=subprocess.PIPE, timeout=60)
            self.assertEqual(done.returncode, 1)
            self.assertIn(b"standard output", done.stderr)


class Bounds(ReportTest):
    @unittest.skipIf(support.WINDOWS, "limits of Unix")
    def test_a_length_that_claims_everything_costs_nothing(self):
        maker = self.sound_clip([[0] * 960] * 4)
        data = bytearray(maker.bytes())
        at = data.index(b"KLVNGROW")
        data[at + 8 : at + 16] = (2**63).to_bytes(8, "big")
        with open(self.path("clip"), "wb") as file:
            file.write(data)
        for option in ([], ["--quick"], ["--deep"]):
            self.report("clip", *option, code=3)
        self.assertLess(os.path.getsize(self.path("page.html")), 200000)

    def test_a_page_of_many_tracks_on_one_container_is_bounded(self):
        # As many tracks as a header has room for, all of them the same sixteen subchannels.
        maker = clipfile.Maker(["auk16"], room=300)
        for unit in range(110):
            maker.append(0, clipfile.sound(unit * 7, 16, fade_in=True))
        data = maker.bytes()
        header = data[: clipfile.HEADER].rstrip(b" ").decode()
        [track] = re.findall("<TrackMeta>.*?</TrackMeta>", header)
        count = (clipfile.HEADER - len(header)) // len(track)
        header = header.replace(track, track * count)
        with open(self.path("clip"), "wb") as file:
            file.write(header.encode().ljust(clipfile.HEADER) + data[clipfile.HEADER :])
        root = self.report("clip", code=3)
        self.assertEqual(len(list(root.all("svg", class_="wave"))), 64)
        self.assertEqual(len(root.one("section", id="tracks").rows()), count)
        self.assertLess(os.path.getsize(self.path("page.html")), 8_000_000)

    def test_a_long_name_in_many_findings_is_shortened(self):
        # Every second unit is invalid, in a file of its own with a long name.
        name = "n" * 200 + ".essence"
        quiet = block([0] * 960, 0, 0)
        with open(self.path(name), "wb") as file:
            file.write((bytes(8192) + quiet + quiet) * 750)
        track = f"<TrackMeta><TrackType>auk2</TrackType><VFile><FileName>{name}</FileName></VFile></TrackMeta>"
        header = ("<KelvonClipMeta1><VideoStandard>1080i 50Hz</VideoStandard>"
                  f"<TrackMetaVector>{track}</TrackMetaVector></KelvonClipMeta1>")
        with open(self.path("clip"), "wb") as file:
            file.write(header.encode().ljust(clipfile.HEADER))
        root = self.report("clip", code=3)
        self.assertGreater(len(root.one("section", id="findings").rows()), 700)
        self.assertLess(os.path.getsize(self.path("page.html")), 1_000_000)


if __name__ == "__main__":
    support.main()
