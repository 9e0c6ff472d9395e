#!/usr/bin/python3
"""follow: a recording of another process, unit by unit, until it is closed or its process is gone."""
import json
import os
import signal
import subprocess
import threading
import unittest

import jsonschema

import clipfile
import support

# Bytes of a unit, and units of a frame, of the tracks that recorder.cpp makes.
SIZES = (568832, 8192, 4096)
PER_FRAME = (1, 2, 2)


def unit_of(track, unit):
    """The unit that recorder.cpp writes."""
    numbers = bytes(range(256)) * 17
    pages = []
    for page in range((SIZES[track] + 4095) // 4096):
        first = (unit * 7 + track * 101 + page * 3) % 256
        pages.append(numbers[first : first + 4096])
    return b"".join(pages)[: SIZES[track]]


class Recorder:
    """A process that records."""

    def __init__(self, folder):
        self.process = subprocess.Popen(support.RECORDER, cwd=folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def __call__(self, *commands):
        for command in commands:
            self.process.stdin.write(command.encode() + b"\n")
            self.process.stdin.flush()
            answer = self.process.stdout.readline().decode().strip()
            assert answer == "ok", (command, answer)

    def end(self):
        self.process.stdin.close()
        assert self.process.wait(60) == 0
        self.process.stdout.close()

    def kill(self):
        self.process.kill()
        self.process.wait(60)
        self.process.stdin.close()
        self.process.stdout.close()


class Follower:
    """A process that follows. What it puts out is read while it goes on."""

    def __init__(self, folder, *arguments):
        self.process = subprocess.Popen(support.PROGRAM + ["follow", "-i", "20", *arguments], cwd=folder,
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def read(self, count):
        """The next bytes of its output; it waits for them."""
        data = self.process.stdout.read(count)
        assert len(data) == count, (len(data), count, self.process.stderr.read())
        return data

    def line_with(self, expected):
        """Reads lines to this one. A look may fall into the middle of a checkpoint, between two tracks' lengths."""
        for _ in range(4):
            line = self.process.stdout.readline().decode().strip()
            if line == expected:
                return
        raise AssertionError((line, expected))

    def moment_with(self, state, units):
        """The same for JSON."""
        for _ in range(5):
            document = json.loads(self.process.stdout.readline())
            jsonschema.validate(document, support.SCHEMA)
            last = document["state"], [track["units"] for track in document["tracks"]]
            if last == (state, units):
                return
        raise AssertionError((last, state, units))

    def end(self):
        """(exit code, what is left of its output, its talk)"""
        out, err = self.process.communicate(timeout=60)
        return self.process.returncode, out, err.decode(errors="replace")


class Follow(support.ProgramTest):
    def setUp(self):
        super().setUp()
        self.started = []
        self.addCleanup(self.end_all)

    def end_all(self):
        for process in self.started:
            if process.poll() is None:
                process.kill()
            process.wait(60)
            for pipe in (process.stdin, process.stdout, process.stderr):
                if pipe is not None and not pipe.closed:
                    pipe.close()

    def recorder(self):
        recorder = Recorder(self.folder)
        self.started.append(recorder.process)
        return recorder

    def follower(self, *arguments):
        follower = Follower(self.folder, *arguments)
        self.started.append(follower.process)
        return follower

    def test_every_unit_comes_once_in_order_byte_for_byte_until_the_recording_is_closed(self):
        record = self.recorder()
        record("create take.clip", "frames 1", "share")
        followers = [self.follower("-t", str(track), "-o", "-", "take.clip") for track in (0, 1, 2)]
        recorded = 0
        for frames in (2, 1, 5):
            recorded += frames + (recorded == 0)
            record(f"frames {frames}", "checkpoint")
            for track, follower in enumerate(followers):
                first = (recorded - frames) * PER_FRAME[track] if recorded != frames + 1 else 0
                for unit in range(first, recorded * PER_FRAME[track]):
                    self.assertEqual(follower.read(SIZES[track]), unit_of(track, unit), (track, unit))
        record("frames 2", "close")
        for track, follower in enumerate(followers):
            code, rest, err = follower.end()
            self.assertEqual((code, err), (0, ""))
            last = range(recorded * PER_FRAME[track], (recorded + 2) * PER_FRAME[track])
            self.assertEqual(rest, b"".join(unit_of(track, unit) for unit in last), track)
        record.end()

    def test_moments_have_the_lengths_and_the_last_one_the_end(self):
        record = self.recorder()
        record("create take.clip", "share", "frames 2", "checkpoint")
        lines, documents = self.follower("take.clip"), self.follower("--json", "take.clip")
        lines.line_with("0:00.08, 4 fields; track 0: 2, track 1: 4, track 2: 4 units")
        documents.moment_with("recording", [2, 4, 4])
        record("frames 1", "checkpoint")
        lines.line_with("0:00.12, 6 fields; track 0: 3, track 1: 6, track 2: 6 units")
        documents.moment_with("recording", [3, 6, 6])
        record("frames 1", "close")
        lines.line_with("0:00.16, 8 fields; track 0: 4, track 1: 8, track 2: 8 units")
        documents.moment_with("closed", [4, 8, 8])
        self.assertEqual([lines.end(), documents.end()], [(0, b"", "")] * 2)

    def test_a_recorder_that_dies_ends_it_with_four_and_what_is_in_the_clip(self):
        record = self.recorder()
        record("create take.clip", "share", "frames 3", "checkpoint")
        units, documents = self.follower("-t", "1", "-o", "units", "take.clip"), self.follower("--json", "take.clip")
        documents.moment_with("recording", [3, 6, 6])
        record("frames 2")
        record.kill()
        documents.moment_with("unfinished", [3, 6, 6])
        for follower in (units, documents):
            code, rest, err = follower.end()
            self.assertEqual((code, rest), (4, b""))
            self.assertIn("take.clip: the recording ended without a close: see kelvonclip recover", err)
        with open(self.path("units"), "rb") as file:
            self.assertEqual(file.read(), b"".join(unit_of(1, unit) for unit in range(6)))

    def test_a_closed_clip_comes_whole_and_at_once(self):
        maker = clipfile.take(8)
        maker.write(self.path("take.clip"))
        reader = clipfile.Clip(self.path("take.clip"))
        for track in reader.tracks:
            out = self.run_tool("follow", "-t", str(track.number), "-o", "-", "take.clip").out
            self.assertEqual(out, b"".join(track.unit(unit) for unit in range(track.units)))
        said = self.run_json("follow", "take.clip")
        self.assertEqual((said["state"], said["length"]), ("closed", {"fields": 8, "seconds": 0.16}))
        self.assertEqual(said["tracks"][1], {"track": 1, "units": 8, "new_units": 8})
        self.run_tool("follow", "-t", "2", "-o", "out", "take.clip")
        self.assertEqual(os.path.getsize(self.path("out")), 8 * 4096)
        self.assertEqual(sorted(os.listdir(self.folder)), ["out", "take.clip"])

    def test_from_begins_later(self):
        clipfile.take(8).write(self.path("take.clip"))
        reader = clipfile.Clip(self.path("take.clip"))
        out = self.run_tool("follow", "-t", "2", "-o", "-", "--from", "5", "take.clip").out
        self.assertEqual(out, b"".join(reader.tracks[2].unit(unit) for unit in (5, 6, 7)))
        for late in ("8", "4294967295", "end"):
            self.assertEqual(self.run_tool("follow", "-t", "2", "-o", "-", "--from", late, "take.clip").out, b"")
        self.run_tool("follow", "--from", "3", "take.clip", code=2)
        self.run_tool("follow", "-t", "0", "--from", "x", "take.clip", code=2)

    def test_trims_never_change_what_came(self):
        # Trims leave two units of a short recording, which they hide when it is longer.
        record = self.recorder()
        record("create take.clip", "trim 4 2", "share", "frames 1", "checkpoint")
        follower = self.follower("-t", "2", "-o", "-", "take.clip")
        for frames in (2, 2):
            self.assertEqual(self.run_json("follow", "--once", "-t", "2", "take.clip")["tracks"][0]["units"], 0)
            record(f"frames {frames}", "checkpoint")
        self.assertEqual(follower.read(4 * SIZES[2]), b"".join(unit_of(2, unit) for unit in (4, 5, 6, 7)))
        record("close")
        self.assertEqual(follower.end(), (0, b"", ""))
        for fields in (4, 12):
            clipfile.take(fields, extra="<TrimStart>4</TrimStart><TrimEnd>2</TrimEnd>").write(self.path("clip"))
            track = clipfile.Clip(self.path("clip")).tracks[2]
            out = self.run_tool("follow", "-t", "2", "-o", "-", "clip").out
            self.assertEqual(out, b"".join(track.unit(unit) for unit in range(track.units)))

    def test_once_and_timeout_end_before_the_recording(self):
        record = self.recorder()
        record("create take.clip", "share", "frames 2", "checkpoint")
        said = self.run_json("follow", "--once", "take.clip")
        self.assertEqual((said["state"], said["tracks"][0]["units"]), ("recording", 2))
        said = self.run_tool("follow", "--timeout", "1", "take.clip", code=4)
        self.assertIn("nothing has come for 1 s", said.err)
        self.assertEqual(len(said.text.splitlines()), 1)

    def test_wait_waits_for_the_clip_and_for_its_creator(self):
        follower = self.follower("--wait", "-t", "2", "-o", "-", "take.clip")
        record = self.recorder()
        record("create take.clip", "frames 1")
        self.run_tool("follow", "take.clip", code=1)  # nobody is let in
        record("share", "frames 1", "close")
        code, out, err = follower.end()
        self.assertEqual((code, out), (0, b"".join(unit_of(2, unit) for unit in range(4))))
        self.assertEqual(err.count("\n"), 1)
        self.assertIn("waiting", err)
        self.run_tool("follow", "missing", code=1)
        self.run_tool("follow", "--wait", "--timeout", "1", "missing", code=1)

    def test_a_recording_that_goes_on_is_followed_from_its_first_write(self):
        clipfile.take(2).write(self.path("take.clip"))
        record = self.recorder()
        record("open take.clip")
        self.assertEqual(self.run_json("follow", "take.clip")["state"], "closed")
        record("frames 1")
        self.assertEqual(self.run_json("follow", "--once", "take.clip")["state"], "recording")
        record("close")
        self.assertEqual(self.run_json("follow", "take.clip")["state"], "closed")

    def test_what_is_no_clip_or_not_whole_is_refused(self):
        with open(self.path("text"), "w") as file:
            file.write("no clip" * 9000)
        self.assertIn("XML", self.run_tool("follow", "text", code=1).err)
        self.assertIn("XML", self.run_tool("follow", "--wait", "text", code=1).err)
        data = bytearray(clipfile.take(8).bytes())
        data[clipfile.HEADER : clipfile.HEADER + 8] = bytes(8)
        with open(self.path("damaged"), "wb") as file:
            file.write(data)
        self.assertIn("Bad superblock", self.run_tool("follow", "damaged", code=3).err)
        clipfile.take(8).write(self.path("unfinished"), lengths=[2, 4, 4], mapped=15)
        self.assertEqual(self.run_json("follow", "unfinished", code=4)["state"], "unfinished")
        for wrong in (["-o", "-"], ["-i", "0"], ["-i", "x"], ["-t", "9"], ["--timeout", "99999999999"],
                      ["--json", "-t", "0", "-o", "-"]):
            self.run_tool("follow", *wrong, "unfinished", code=2)

    def test_nothing_is_overwritten_without_force(self):
        clipfile.take(2).write(self.path("take.clip"))
        with open(self.path("out"), "w") as file:
            file.write("mine")
        self.run_tool("follow", "-t", "2", "-o", "out", "take.clip", code=1)
        self.assertEqual(os.path.getsize(self.path("out")), 4)
        self.run_tool("follow", "-f", "-t", "2", "-o", "out", "take.clip")
        self.assertEqual(os.path.getsize(self.path("out")), 2 * 4096)

    def test_names_are_unicode(self):
        record = self.recorder()
        record("create Größe 日本.clip", "share", "frames 1", "close")
        self.run_tool("follow", "-t", "2", "-o", "Töne ♪", "Größe 日本.clip")
        self.assertEqual(os.path.getsize(self.path("Töne ♪")), 2 * 4096)

    @unittest.skipIf(support.WINDOWS, "signals of Unix")
    def test_an_interruption_ends_it_and_leaves_nothing(self):
        record = self.recorder()
        record("create take.clip", "share", "frames 2", "checkpoint")
        moments = self.follower("take.clip")
        moments.line_with("0:00.08, 4 fields; track 0: 2, track 1: 4, track 2: 4 units")
        units = self.follower("-t", "0", "-o", "units", "take.clip")
        while not any("part" in name for name in os.listdir(self.folder)):
            threading.Event().wait(0.01)
        for follower in (moments, units):
            follower.process.send_signal(signal.SIGINT)
            self.assertEqual(follower.end(), (130, b"", ""))
        self.assertEqual(os.listdir(self.folder), ["take.clip"])

    def test_a_closed_pipe_ends_it_quietly(self):
        record = self.recorder()
        record("create take.clip", "share", "frames 2", "checkpoint")
        follower = self.follower("take.clip")
        follower.line_with("0:00.08, 4 fields; track 0: 2, track 1: 4, track 2: 4 units")
        follower.process.stdout.close()
        record("frames 1", "checkpoint")
        err = follower.process.stderr.read()
        self.assertEqual((follower.process.wait(60), err), (1, b""))


if __name__ == "__main__":
    support.main()
