"""What was closed raises; nothing crashes, and nothing stays open."""

from __future__ import annotations

import gc
from collections.abc import Callable
from pathlib import Path

import numpy as np
import pytest

import kelvonclip
from kelvonclip import Clip, Track


def test_a_track_of_a_closed_clip_raises(recording: Clip) -> None:
    track = recording.tracks[0]
    buffer = track.new_buffer()
    recording.close()
    calls: tuple[Callable[[], object], ...] = (
        lambda: track.read(0),
        lambda: track.read_into(0, buffer),
        lambda: track.write(0, b""),
        lambda: len(track),
        lambda: track.unit_size,
        lambda: track.category,
        lambda: track.format_name,
        lambda: track.timecode(0),
        lambda: track.read_audio(),
        lambda: next(iter(track)),
        lambda: track.standard,
    )
    for call in calls:
        with pytest.raises(kelvonclip.HandleError):
            call()
    assert repr(track) == "<Track of a closed clip>"


def test_a_closed_clip_raises(recording: Clip) -> None:
    meta = recording.meta
    recording.close()
    recording.close()
    assert recording.closed and repr(recording) == "<Clip, closed>"
    properties = [name for name, value in vars(Clip).items() if isinstance(value, property) and name != "closed"]
    assert len(properties) > 15
    for name in properties:
        with pytest.raises(kelvonclip.HandleError):
            getattr(recording, name)
    for call in (recording.checkpoint, recording.refresh, recording.share, recording.open_tracks, recording.__enter__):
        with pytest.raises(kelvonclip.HandleError):
            call()
    with pytest.raises(kelvonclip.HandleError):
        dict(meta)
    with pytest.raises(kelvonclip.HandleError):
        recording.title = "x"


def test_streams_of_a_closed_clip_raise(recording: Clip) -> None:
    track = recording.tracks[1]
    writer, reader = track.write_audio(), track.read_audio()
    writer.write(np.zeros((10, 2), np.int32))
    recording.close()
    with pytest.raises(kelvonclip.HandleError):
        reader.read(1)
    with pytest.raises(kelvonclip.HandleError):
        writer.write(np.zeros((10, 2), np.int32))
    reader.close()
    with pytest.raises(kelvonclip.HandleError):
        writer.close()  # the ten samples are lost


def test_a_track_keeps_its_clip_open(recording: Clip, tmp_path: Path) -> None:
    recording.close()

    def first_track() -> Track:
        return kelvonclip.open(tmp_path / "take-1.clip").tracks[0]

    track = first_track()
    gc.collect()
    assert track.unit_size == 568832
    track.clip.close()


def test_a_clip_that_is_forgotten_is_closed(recording: Clip, tmp_path: Path) -> None:
    recording.close()
    with pytest.warns(ResourceWarning, match="unclosed"):
        clip = kelvonclip.open(tmp_path / "take-1.clip", "r+")
        clip.tracks[0].append(b"x")
        del clip
        gc.collect()
    with kelvonclip.open(tmp_path / "take-1.clip") as again:
        assert len(again.tracks[0]) == 1 and not again.is_writable  # not the first one


def test_a_writer_that_is_forgotten_ends_its_recording(recording: Clip) -> None:
    with pytest.warns(ResourceWarning, match="AudioWriter"):
        writer = recording.tracks[1].write_audio()
        writer.write(np.ones((10, 2), np.int32))
        del writer
        gc.collect()
    assert len(recording.tracks[1]) == 1


def test_an_exception_in_a_with_closes_the_clip(recording: Clip, tmp_path: Path) -> None:
    recording.close()
    for _ in range(100):
        with pytest.raises(ZeroDivisionError):
            with kelvonclip.open(tmp_path / "take-1.clip", "r+") as clip, clip.tracks[1].read_audio():
                1 / 0
        assert clip.closed
    with kelvonclip.open(tmp_path / "take-1.clip") as again:
        assert not again.is_writable  # none of the others


def test_an_exception_from_a_reader_leaves_no_reader(recording: Clip) -> None:
    for _ in range(100):
        with pytest.raises(kelvonclip.StateError):
            recording.tracks[0].read_audio()


def test_a_buffer_of_a_closed_clip_stays_readable(recording: Clip) -> None:
    track = recording.tracks[0]
    track.append(b"\7")
    buffer = track.new_buffer()
    track.read_into(0, buffer)
    recording.close()
    del track
    gc.collect()
    assert buffer[0] == 7
