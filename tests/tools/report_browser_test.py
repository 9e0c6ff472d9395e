#!/usr/bin/python3
"""report: the page in a real browser (headless Chromium), at two widths, light and dark, by keyboard and for readers.

Skipped where Debian's package "chromium" is not installed (scripts/install-deps browser). KELVONCLIP_PICTURES names a
folder that gets a picture of every page that is looked at.
"""
import os
import unittest

import browser
import clipfile
import support

WIDTHS = (1280, 400)
HOSTILE = "&lt;script&gt;document.title='run'&lt;/script&gt;&lt;img src=x onerror=document.title='run'&gt;"


@unittest.skipIf(browser.CHROMIUM is None or support.WINDOWS, "Chromium is not installed")
class Browser(support.ProgramTest):
    @classmethod
    def setUpClass(cls):
        cls.browser = browser.Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()

    def write_page(self, title="A take"):
        """A page with all there is: joins, fades, breaks, invalid blocks, findings, and a long name."""
        maker = clipfile.Maker(["avci50-1080i", "auk4", "tc2", "dv100-1080"], extra=(
            f"<Title>{title}</Title><Project>{'long' * 60}</Project><TimecodeSource>timecodetrack</TimecodeSource>"))
        header = maker.header()
        maker.header = lambda: header.replace("dv100-1080", "unknown-" + "x" * 80)
        maker.append(0, clipfile.picture(1, 281088))
        for unit in range(120):
            sound = clipfile.sound(unit, 4, fade_in=unit in (0, 60))
            maker.append(1, bytes(16384) if unit == 90 else sound)
            maker.append(2, clipfile.timecode(unit + (100 if unit > 30 else 0)))
        maker.write(self.path("clip"))
        self.run_tool("report", "clip", "-o", "page.html", "--force", code=3)
        return self.path("page.html")

    def each_look(self, path):
        for width in WIDTHS:
            for dark in (False, True):
                self.browser.show(path, width, dark)
                yield f"{width}-{'dark' if dark else 'light'}"

    def keep_picture(self, name):
        if folder := os.environ.get("KELVONCLIP_PICTURES"):
            os.makedirs(folder, exist_ok=True)
            self.browser.picture(os.path.join(folder, f"report-{name}.png"))

    def test_nothing_fails_and_nothing_is_asked_for(self):
        path = self.write_page()
        for look in self.each_look(path):
            self.keep_picture(look)
            events = self.browser.events
            asked = [p["request"]["url"] for m, p in events if m == "Network.requestWillBeSent"]
            self.assertEqual(len(asked), 1, asked)  # the page itself
            talk = ("Runtime.exceptionThrown", "Runtime.consoleAPICalled", "Log.entryAdded")
            self.assertEqual([p for m, p in events if m in talk], [], look)

    def test_hostile_texts_run_nothing(self):
        self.browser.show(self.write_page(HOSTILE), 1280)
        self.assertTrue(self.browser.value("document.title").startswith("<script>"))
        self.assertEqual(self.browser.value("document.scripts.length + document.images.length"), 0)

    def test_the_policy_of_the_page_forbids_scripts(self):
        # The page has none; what got into it all the same would not run.
        path = self.write_page()
        with open(path) as file:
            text = file.read()
        with open(path, "w") as file:
            file.write(text.replace("</main>", "<script>document.title='run'</script></main>"))
        self.browser.show(path, 1280)
        self.assertEqual(self.browser.value("document.scripts.length"), 1)
        self.assertNotEqual(self.browser.value("document.title"), "run")

    def test_the_page_fits_the_window_and_the_pictures_are_there(self):
        for look in self.each_look(self.write_page()):
            width = int(look.split("-")[0])
            self.assertEqual(self.browser.value("document.documentElement.scrollWidth"), width, look)
            # Everything ends inside the window, or inside a part that scrolls by itself.
            outside = self.browser.value("""[...document.body.querySelectorAll('*')]
                .filter(e => !e.closest('.scroll') && !e.closest('svg.shapes'))
                .filter(e => e.getBoundingClientRect().right > innerWidth + 0.5)
                .map(e => e.tagName + ' ' + e.textContent.slice(0, 40))""")
            self.assertEqual(outside, [], look)
            sizes = self.browser.value("""[...document.querySelectorAll('svg[role=img]')]
                .map(e => [e.getBoundingClientRect().width, e.getBoundingClientRect().height])""")
            self.assertEqual(len(sizes), 5)
            for wide, high in sizes:
                self.assertGreater(wide, 300, look)
                self.assertGreater(high, 60, look)
            # The waveforms are drawn over the whole width, and as high as the sound is.
            drawn = self.browser.value("""[...document.querySelectorAll('path.sound')]
                .map(e => e.getBoundingClientRect()).map(r => [r.width, r.height])""")
            for wide, high in drawn:
                self.assertGreater(wide, 0.9 * (width - 220), look)
                self.assertGreater(high, 5, look)
            marks = self.browser.value("""[...document.querySelectorAll('figure use')]
                .map(e => e.getBoundingClientRect().width)""")
            self.assertEqual(len(marks), 8)
            self.assertTrue(all(5 < mark < 15 for mark in marks), marks)
            smallest = self.browser.value("""Math.min(...[...document.querySelectorAll('main *')]
                .filter(e => e.innerText).map(e => parseFloat(getComputedStyle(e).fontSize)))""")
            self.assertGreaterEqual(smallest, 12)
            lane = self.browser.value("document.querySelector('svg.map text').getBoundingClientRect().height")
            self.assertGreater(lane, 11, look)

    def test_dark_is_dark_and_paper_is_light(self):
        path = self.write_page()
        back = "getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)"
        text = "getComputedStyle(document.body).color.match(/\\d+/g).map(Number)"
        lane = "getComputedStyle(document.querySelector('svg.map text')).fill.match(/\\d+/g).map(Number)"
        for dark, media, is_dark in ((False, "screen", False), (True, "screen", True), (True, "print", False)):
            self.browser.show(path, 1280, dark, media)
            self.assertEqual(max(self.browser.value(back)) < 60, is_dark)
            self.assertEqual(min(self.browser.value(text)) > 180, is_dark)
            self.assertEqual(min(self.browser.value(lane)) > 180, is_dark)
        self.browser.show(path, 700, False, "print")
        self.assertEqual(self.browser.value("getComputedStyle(document.querySelector('nav')).display"), "none")
        self.assertEqual(self.browser.value("document.documentElement.scrollWidth"), 700)

    def test_everything_can_be_reached_with_the_keyboard(self):
        self.browser.show(self.write_page(), 400)
        wanted = self.browser.value("document.querySelectorAll('a, .scroll').length")
        reached = []
        for _ in range(wanted):
            self.browser.press("Tab", 9)
            reached.append(self.browser.value("""(e => [e.tagName, e.getAttribute('href') || e.className,
                getComputedStyle(e).outlineStyle])(document.activeElement)"""))
        self.assertEqual(sum(tag == "A" for tag, _, _ in reached), 7)
        self.assertEqual(sum(what == "scroll" for _, what, _ in reached), wanted - 7)
        self.assertEqual({outline for _, _, outline in reached}, {"solid"})
        # The arrow keys scroll a wide table.
        self.browser.value("document.querySelector('#tracks .scroll').focus()")
        self.browser.press("ArrowRight", 39)
        for _ in range(50):
            moved = self.browser.value("""new Promise(done => setTimeout(done, 20))
                .then(() => document.querySelector('#tracks .scroll').scrollLeft)""")
            if moved:
                break
        self.assertGreater(moved, 0)

    def test_readers_find_landmarks_headings_tables_and_the_texts_of_pictures(self):
        self.browser.show(self.write_page(), 1280)
        nodes = [n for n in self.browser.ask("Accessibility.getFullAXTree")["nodes"] if not n.get("ignored")]
        found = {}
        for node in nodes:
            found.setdefault(node["role"]["value"], []).append(node)
        for role in ("banner", "navigation", "main", "contentinfo"):
            self.assertEqual(len(found[role]), 1, role)

        def names(role):
            return [node.get("name", {}).get("value", "") for node in found[role]]

        sections = ["Identity", "Tracks", "Map", "Sound", "Timecode", "Findings"]
        self.assertEqual([name for name in names("region") if name in sections], sections)
        self.assertTrue(all(names("region")))
        self.assertEqual([name for name in names("heading") if name in sections], sections)
        pictures = found.get("image", []) + found.get("img", [])
        self.assertEqual(len(pictures), 5)
        for picture in pictures:
            self.assertTrue(picture["name"]["value"])
            self.assertTrue(picture["description"]["value"])
        self.assertIn("Waveform of track 1, subchannel 3", [p["name"]["value"] for p in pictures])
        self.assertEqual(len(found["table"]), 4)
        self.assertTrue(all(names("table")))
        self.assertGreater(len(found["columnheader"]), 20)
        self.assertGreater(len(found["rowheader"]), 8)


if __name__ == "__main__":
    support.main()
