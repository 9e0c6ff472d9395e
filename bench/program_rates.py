"""Measures the program's commands beside plain reads of the same bytes, by turns, and prints the ratios.

usage: program_rates.py PROGRAM YARDSTICK FOLDER [TURNS]

The clips are made in the folder: 200 small ones, one of 3000 pictures with sound (1.8 GB), and one whose map has ten
million records (the file has holes where units would be). Both sides are processes and their start counts on both. The
quickest of all turns counts: what else the machine does can only make a turn longer.
"""
from __future__ import annotations

import os
import resource
import struct
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent.parent / "tests" / "tools"))
import clipfile  # noqa: E402

SMALL_CLIPS = 200
PICTURES = 3000
EXTENTS = 10_000_000
SECTOR, BLOCK = clipfile.SECTOR, clipfile.BLOCK


def make_long(path: Path) -> None:
    """Units as a recording leaves them; their bytes are recognised as what they should be, so --deep reads on."""
    picture = clipfile.picture(1, 568832).ljust(569344, b"\0")
    with open(path, "wb") as file:
        log = Log(file, clipfile.Maker(["avci100-1080i", "auk2", "tc2"], room=2 * PICTURES))
        for number in range(PICTURES):
            log.append(0, picture)
            for field in (2 * number, 2 * number + 1):
                log.append(1, clipfile.sound(field, 2, fade_in=field == 0))
                log.append(2, clipfile.timecode(field))
        log.finish()


def make_wide(path: Path) -> None:
    """A map of many records: two tracks take turns, so no record continues another. The units are holes in the file."""
    with open(path, "wb") as file:
        log = Log(file, clipfile.Maker(["tc2", "auk2"], room=EXTENTS))
        for _ in range(EXTENTS // 2 - 1):
            log.append(0, None)
            log.append(1, None)
        log.finish()


class Log:
    """The log of a clip, written block by block: what is kept in memory is one block's records."""

    def __init__(self, file, maker):
        self.file, self.maker = file, maker
        self.end = clipfile.HEADER + 2 * BLOCK  # of the log, in the file
        self.records, self.block_at, self.left_in_run, self.run = [], self.end - BLOCK, 0, 0
        self.superblock = bytearray(BLOCK)
        self.superblock[:16] = b"KLVNPRS2" + struct.pack(">Q", maker.sparse_length)
        self._name_run(self.block_at)
        self.headers = []
        for plan in maker.plans:
            self.headers.append(self.end)
            self._store(plan[2], clipfile.GROW)

    def _name_run(self, at):
        entry = 32 + 8 * self.run
        self.superblock[entry : entry + 8] = struct.pack(">Q", (at - clipfile.HEADER) // SECTOR)

    def _write_block(self):
        data = b"KLVNPRS3".ljust(16, b"\0") + b"".join(self.records)
        self.file.seek(self.block_at)
        self.file.write(data.ljust(BLOCK, b"\0"))
        self.records = []

    def _store(self, logical, size):
        if len(self.records) == clipfile.RECORDS:
            self._write_block()
            if self.left_in_run == 0:
                self.run += 1
                self.left_in_run = clipfile.RUN_BLOCKS[self.run]
                self._name_run(self.end)
                self.block_at = self.end
                self.end += self.left_in_run * BLOCK
            else:
                self.block_at += BLOCK
            self.left_in_run -= 1
        self.records.append(struct.pack(">QQ", logical // SECTOR, size // SECTOR))
        self.end += size

    def append(self, track, unit):
        plan = self.maker.plans[track]
        self._store(plan[2] + clipfile.GROW + plan[4] * plan[1], plan[1])
        plan[4] += 1
        if unit is not None:
            self.file.seek(self.end - plan[1])
            self.file.write(unit)

    def finish(self):
        self._write_block()  # those behind it in the run stay holes
        self.file.seek(0)
        self.file.write(self.maker.header().encode().ljust(clipfile.HEADER, b" ") + self.superblock)
        for header, plan in zip(self.headers, self.maker.plans):
            self.file.seek(header)
            self.file.write(b"KLVNGROW" + struct.pack(">Q", plan[4] * plan[1]).ljust(clipfile.GROW - 8, b"\0"))
        self.file.truncate(self.end)


def seconds(line: list[str], codes: tuple[int, ...] = (0,)) -> float:
    begin = time.perf_counter()
    done = subprocess.run(line, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    assert done.returncode in codes, f"{line[:3]}: {done.returncode}, {done.stderr.decode()[:500]}"
    return time.perf_counter() - begin


def compare(what: str, turns: int, mine: list[str], limit: list[str], leaves: tuple[Path, ...] = ()) -> None:
    taken: tuple[list[float], list[float]] = ([], [])
    for _ in range(turns):
        for side, line in enumerate((mine, limit)):
            for file in leaves:
                file.unlink(missing_ok=True)
            taken[side].append(seconds(line))
    own, best = min(taken[0]), min(taken[1])
    print(f"{what:34} {own * 1e3:9.1f} ms  {best * 1e3:9.1f} ms  {own / best:6.2f} times, {best / own:.2f} of the rate")


def main() -> None:
    program, yardstick, folder = sys.argv[1], sys.argv[2], Path(sys.argv[3]).resolve()
    turns = int(sys.argv[4]) if len(sys.argv) > 4 else 11
    folder.mkdir(parents=True, exist_ok=True)
    small = [folder / f"small-{number}.clip" for number in range(SMALL_CLIPS)]
    long, wide, out = folder / "long.clip", folder / "wide.clip", folder / "extracted"
    try:
        for path in small:
            clipfile.take(8).write(path)
        make_long(long)
        make_wide(wide)
        os.sync()
        names = [str(path) for path in small]
        print(f"{'command':34} {'program':>12}  {'yardstick':>12}")
        compare("info of one clip", 3 * turns, [program, "info", names[0]], [yardstick, "front", names[0]])
        compare(f"info of {SMALL_CLIPS} clips, one by one", turns, [program, "info", "--jobs", "1", *names],
                [yardstick, "front", *names])
        read = [yardstick, "read", str(long)]
        compare("checksum", turns, [program, "checksum", str(long)], read)
        compare("verify --deep", turns, [program, "verify", "--deep", str(long)], read)
        compare("extract, pictures to a pipe", turns, [program, "extract", "-t", "0", "-o", "-", str(long)], read)
        compare("extract, pictures to a file", turns, [program, "extract", "-t", "0", "-o", str(out), str(long)],
                [yardstick, "copy", str(long), str(out)], (out,))
        whole = min(seconds([program, "map", str(wide)]) for _ in range(3))
        memory = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
        print(f"map of {EXTENTS} extents: {whole:.2f} s; no child of this run took more than {memory / 1024:.0f} MiB")
    finally:
        for path in (*small, long, wide, out):
            path.unlink(missing_ok=True)


if __name__ == "__main__":
    main()
