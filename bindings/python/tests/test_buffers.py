from __future__ import annotations

import array
import mmap

import numpy as np
import pytest

import kelvonclip
from kelvonclip import Clip


def test_any_writable_buffer_takes_a_unit(recording: Clip) -> None:
    track = recording.tracks[0]
    content = np.random.default_rng(1).bytes(track.unit_size)
    track.append(content)
    for buffer in (
        bytearray(track.unit_size),
        memoryview(bytearray(track.unit_size)),
        array.array("B", bytes(track.unit_size)),
        np.zeros(track.unit_size, np.uint8),
        np.zeros((2, track.unit_size // 4), np.uint16),
        mmap.mmap(-1, track.unit_size),
        track.new_buffer(),
    ):
        assert track.read_into(0, buffer) == track.unit_size
        assert memoryview(buffer).tobytes()[: track.unit_size] == content  # type: ignore[arg-type]
    assert track.read(0) == content


def test_any_buffer_gives_a_unit(recording: Clip) -> None:
    track = recording.tracks[0]
    content = bytes(range(256)) * 2
    for buffer in (content, bytearray(content), memoryview(content), np.frombuffer(content, np.int16)):
        track.write(0, buffer)
        assert track.read(0) == content + bytes(track.unit_size - len(content))


def test_what_lies_behind_the_unit_in_a_larger_buffer_stays(recording: Clip) -> None:
    track = recording.tracks[0]
    track.append(b"\1" * track.unit_size)
    buffer = bytearray(b"\2" * (track.unit_size + 5))
    track.read_into(0, buffer)
    assert buffer == b"\1" * track.unit_size + b"\2" * 5


def test_a_buffer_that_cannot_take_a_unit_is_refused(recording: Clip) -> None:
    track = recording.tracks[0]
    with pytest.raises(ValueError, match="568832 bytes"):
        track.read_into(0, bytearray(track.unit_size - 1))
    with pytest.raises((TypeError, BufferError, ValueError)):
        track.read_into(0, bytes(track.unit_size))
    with pytest.raises(TypeError):
        track.read_into(0, "text")
    with pytest.raises((TypeError, BufferError, ValueError)):
        track.read_into(0, np.zeros((track.unit_size, 2), np.uint8)[:, 0])
    with pytest.raises(OverflowError):
        track.read(-1)
    with pytest.raises(kelvonclip.ArgumentError, match="Buffer is too large"):
        track.write(0, bytes(track.unit_size + 1))
    assert len(track) == 0


def test_a_buffer_may_be_resized_after_a_failure(recording: Clip) -> None:
    buffer = bytearray(1)
    with pytest.raises(ValueError):
        recording.tracks[0].read_into(0, buffer)
    buffer.append(0)  # BufferError if it were still held


def test_a_new_buffer_is_aligned(recording: Clip) -> None:
    buffer = recording.tracks[0].new_buffer()
    assert np.frombuffer(buffer, np.uint8).ctypes.data % 4096 == 0
    assert len(buffer) == recording.tracks[0].unit_size
