from __future__ import annotations

import sys
import threading
import time
from collections.abc import Callable
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np

import kelvonclip
from kelvonclip import Clip, HandleError

THREADS = 4


def test_threads_read_one_track(recording: Clip) -> None:
    track = recording.tracks[0]
    for unit in range(20):
        track.append(bytes([unit]) * track.unit_size)

    def read_all(thread: int) -> bool:
        buffer = track.new_buffer()
        order = np.random.default_rng(thread).permutation(20)
        for unit in map(int, order):
            track.read_into(unit, buffer)
            if bytes(buffer) != bytes([unit]) * track.unit_size or track.read(unit)[-1] != unit:
                return False
        return True

    with ThreadPoolExecutor(THREADS) as pool:
        assert all(pool.map(read_all, range(THREADS)))


def test_threads_record_tracks_of_one_clip(tmp_path: Path) -> None:
    with kelvonclip.create(tmp_path / "a", "1080i 50Hz", video="dv", video_tracks=THREADS) as clip:

        def record(number: int) -> None:
            for unit in range(10):
                clip.tracks[number].append(bytes([number, unit]))

        with ThreadPoolExecutor(THREADS) as pool:
            list(pool.map(record, range(THREADS)))
        for number, track in enumerate(clip.tracks):
            assert [unit[:2] for unit in track] == [bytes([number, unit]) for unit in range(10)]


def test_a_clip_may_be_closed_while_it_is_read(recording: Clip, tmp_path: Path) -> None:
    recording.tracks[0].append(b"x")
    recording.close()
    for _ in range(20):
        clip = kelvonclip.open(tmp_path / "take-1.clip")
        reading = threading.Barrier(THREADS + 1)

        def read_on(clip: Clip = clip, reading: threading.Barrier = reading) -> None:
            track = clip.tracks[0]
            reading.wait()
            while True:
                try:
                    if track.read(0)[:1] != b"x":
                        raise AssertionError("another unit")
                except HandleError:
                    return

        with ThreadPoolExecutor(THREADS) as pool:
            readers = [pool.submit(read_on) for _ in range(THREADS)]
            reading.wait()
            clip.close()
            for reader in readers:
                reader.result()


def test_other_threads_run_while_a_call_waits_for_the_disk(recording: Clip) -> None:
    track = recording.tracks[0]
    track.append(b"")
    buffer = track.new_buffer()
    turns, done = 0, threading.Event()

    def take_turns() -> None:
        nonlocal turns
        while not done.is_set():
            turns += 1
            time.sleep(0)

    def lets_others_run(call: Callable[[], object]) -> bool:
        for _ in range(1000):
            before = turns
            call()
            if turns != before:
                return True
        return False

    interval = sys.getswitchinterval()
    sys.setswitchinterval(1000)  # seconds: a thread loses its turn only by letting it go
    other = threading.Thread(target=take_turns)
    try:
        other.start()
        assert not lets_others_run(lambda: sum(range(1000)))
        assert lets_others_run(lambda: track.read_into(0, buffer))
        assert lets_others_run(lambda: track.read(0))
        assert lets_others_run(lambda: track.write(0, buffer))
        assert lets_others_run(recording.checkpoint)
    finally:
        done.set()
        sys.setswitchinterval(interval)
        other.join()
