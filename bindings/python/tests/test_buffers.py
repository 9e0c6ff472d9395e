from __future__ import annotations

import array
import gc
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


def test_units_are_read_together(recording: Clip) -> None:
    for track in recording.tracks:
        contents = [np.random.default_rng(unit).bytes(track.unit_size) for unit in range(5)]
        for content in contents:
            track.append(content)
        buffers = track.new_buffers(3)
        assert len(buffers) == 3
        for first in (0, 1, 2):
            track.read_units(first, buffers)
            assert [bytes(buffer) for buffer in buffers] == contents[first : first + 3]
        track.read_units(4, buffers)
        assert [bytes(buffer) for buffer in buffers] == [contents[4], bytes(track.unit_size), bytes(track.unit_size)]


def test_buffers_are_a_sequence(recording: Clip) -> None:
    buffers = recording.tracks[0].new_buffers(3)
    buffers[1][:2] = b"ab"
    assert [bytes(buffer[:2]) for buffer in buffers] == [b"\0\0", b"ab", b"\0\0"]
    assert buffers[-2] == buffers[1]
    assert [len(buffer) for buffer in buffers[1:]] == [recording.tracks[0].unit_size] * 2
    for outside in (3, -4):
        with pytest.raises(IndexError):
            buffers[outside]


def test_buffers_that_do_not_fit_are_refused(recording: Clip) -> None:
    picture, sound = recording.tracks[0], recording.tracks[1]
    with pytest.raises(ValueError, match="568832 bytes are needed, not of 8192"):
        picture.read_units(0, sound.new_buffers(2))
    for count in (0, -1):
        with pytest.raises(ValueError):
            sound.new_buffers(count)
    with pytest.raises(OverflowError):
        sound.new_buffers(2**32)
    with pytest.raises(OverflowError):
        sound.read_units(-1, sound.new_buffers(1))
    with pytest.raises(MemoryError):
        picture.new_buffers(2**32 - 1)


def test_views_outlive_their_buffers(recording: Clip) -> None:
    track = recording.tracks[0]
    track.append(b"\1" * track.unit_size)
    buffers = track.new_buffers(1)
    track.read_units(0, buffers)
    view = buffers[0]
    del buffers
    recording.close()
    gc.collect()
    assert bytes(view) == b"\1" * track._unit_size
    with pytest.raises(kelvonclip.HandleError):
        track.new_buffers(1)
