"""Reads units by turns in C++ and in Python, in one process, and prints the rates. usage: unit_reads.py FOLDER...

Each folder gets a clip of a track of each kind; give one on a disk and one in memory. Units are read one by one (into
one buffer again and again, and in Python also into new bytes), and all in one call. The quickest turn of each side
counts: what else the machine does can only make a turn longer.
"""

from __future__ import annotations

import ctypes
import sys
import time
from collections.abc import Callable
from pathlib import Path

import kelvonclip
from kelvonclip import Track

UNITS = 100
TURNS = 101
SECONDS_A_TURN = 0.03

cpp = ctypes.CDLL(str(Path(kelvonclip.__file__).parent.parent / "bench" / "cpp_reader.so"))
cpp.seconds_to_read.restype = cpp.seconds_to_read_together.restype = ctypes.c_double


def seconds_in_python(read: Callable[[], object], rounds: int) -> float:
    begin = time.perf_counter()
    for _ in range(rounds):
        read()
    return time.perf_counter() - begin


def one_by_one(read: Callable[[int], object]) -> Callable[[], None]:
    def read_all() -> None:
        for unit in range(UNITS):
            read(unit)

    return read_all


def compare(name: str, track: Track) -> None:
    number, buffer, buffers = track._open_handle(), track.new_buffer(), track.new_buffers(UNITS)
    address = ctypes.c_void_p(ctypes.addressof(ctypes.c_char.from_buffer(buffer)))
    together = ctypes.c_void_p(ctypes.addressof(ctypes.c_char.from_buffer(buffers[0])))

    def in_cpp(rounds: int) -> float:
        return float(cpp.seconds_to_read(number, UNITS, rounds, address))

    def together_in_cpp(rounds: int) -> float:
        return float(cpp.seconds_to_read_together(number, UNITS, rounds, together, buffers._stride))

    rounds = max(1, round(SECONDS_A_TURN / in_cpp(1)))
    # Each side of Python's behind C++'s with which it is compared.
    sides: dict[str, tuple[str, Callable[[], float]]] = {
        "C++": ("", lambda: in_cpp(rounds)),
        "read_into": ("C++", lambda: seconds_in_python(one_by_one(lambda unit: track.read_into(unit, buffer)), rounds)),
        "read": ("C++", lambda: seconds_in_python(one_by_one(track.read), rounds)),
        "C++ together": ("", lambda: together_in_cpp(rounds)),
        "read_units": ("C++ together", lambda: seconds_in_python(lambda: track.read_units(0, buffers), rounds)),
    }
    taken: dict[str, list[float]] = {side: [] for side in sides}
    for _ in range(TURNS):
        for side, (_yardstick, measure) in sides.items():
            taken[side].append(measure())
            assert taken[side][-1] >= 0, "a unit could not be read"
    print(f"{name}, units of {track.unit_size} bytes")
    for side, (yardstick, _measure) in sides.items():
        line = f"  {side:14} {min(taken[side]) / (UNITS * rounds) * 1e6:8.2f} us"
        if yardstick:
            line += f"  {min(taken[yardstick]) / min(taken[side]):.3f} of the rate of {yardstick}"
        print(line, flush=True)


def main() -> None:
    for folder in sys.argv[1:]:
        path = Path(folder) / "bench-python.clip"
        with kelvonclip.create(
            path, "1080i 50Hz", video="avci", audio_tracks=1, subchannels=16, timecode_track=True
        ) as clip:
            for track in clip.tracks:
                for unit in range(UNITS):
                    track.write(unit, bytes([unit]) * track.unit_size)
        try:
            with kelvonclip.open(path) as clip:
                for track in clip.tracks:
                    compare(f"{folder} {track.category}", track)
        finally:
            path.unlink()


if __name__ == "__main__":
    main()
