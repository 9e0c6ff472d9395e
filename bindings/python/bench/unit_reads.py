"""Reads units by turns in C++ and in Python, in one process, and prints both rates. usage: unit_reads.py FOLDER...

Each folder gets a clip of a track of each kind; give one on a disk and one in memory. `into` reads into one buffer
again and again, as C++ does; `bytes` makes new bytes for each unit. The quickest turn of each side counts: what else
the machine does can only make a turn longer.
"""

from __future__ import annotations

import ctypes
import sys
import time
from collections.abc import Callable
from pathlib import Path

import kelvonclip
from kelvonclip import Track

UNITS = 50
TURNS = 101
SECONDS_A_TURN = 0.03

cpp = ctypes.CDLL(str(Path(kelvonclip.__file__).parent.parent / "bench" / "cpp_reader.so"))
cpp.seconds_to_read.restype = ctypes.c_double


def seconds_in_python(read: Callable[[int], object], units: int, rounds: int) -> float:
    begin = time.perf_counter()
    for _ in range(rounds):
        for unit in range(units):
            read(unit)
    return time.perf_counter() - begin


def compare(name: str, track: Track) -> None:
    buffer, number = track.new_buffer(), track._open_handle()
    address = ctypes.addressof(ctypes.c_char.from_buffer(buffer))

    def in_cpp(rounds: int) -> float:
        seconds = float(cpp.seconds_to_read(number, UNITS, rounds, ctypes.c_void_p(address)))
        assert seconds >= 0, "a unit could not be read"
        return seconds

    rounds = max(1, round(SECONDS_A_TURN / in_cpp(1)))
    sides: dict[str, Callable[[], float]] = {
        "C++": lambda: in_cpp(rounds),
        "into": lambda: seconds_in_python(lambda unit: track.read_into(unit, buffer), UNITS, rounds),
        "bytes": lambda: seconds_in_python(track.read, UNITS, rounds),
    }
    taken: dict[str, list[float]] = {side: [] for side in sides}
    for _ in range(TURNS):
        for side, measure in sides.items():
            taken[side].append(measure())
    reads = UNITS * rounds
    line = f"{name:32} {track.unit_size:9} bytes"
    for side, seconds in taken.items():
        line += f"  {side} {min(seconds) / reads * 1e6:8.1f} us"
        if side != "C++":
            line += f" ({min(taken['C++']) / min(seconds):.3f} of C++'s rate)"
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
