from __future__ import annotations

from pathlib import Path

import numpy as np
import pytest

import kelvonclip
from kelvonclip import Clip, MessageKind, Samples

FADED = 100  # samples at the ends of a recording


def noise(count: int, subchannels: int = 2) -> Samples:
    generator = np.random.default_rng(count)
    return generator.integers(-(2**31), 2**31, (count, subchannels), np.int32)


def record(clip: Clip, samples: Samples) -> None:
    with clip.tracks[1].write_audio() as writer:
        writer.write(samples[:1001])
        writer.write(samples[1001:])


def test_samples_come_back(recording: Clip) -> None:
    samples = noise(48000)
    record(recording, samples)
    with recording.tracks[1].read_audio() as reader:
        assert reader.subchannels == 2 and reader.remaining == 48000 and reader.position == 0
        back = reader.read()
        assert back.dtype == np.int32 and back.shape == (48000, 2)
        np.testing.assert_array_equal(back[FADED:-FADED], samples[FADED:-FADED])
        assert reader.remaining == 0 and reader.read(10).shape == (0, 2)


def test_blocks_and_seeking_give_the_same_samples(recording: Clip) -> None:
    record(recording, noise(10000))
    with recording.tracks[1].read_audio() as reader:
        total = reader.remaining
        whole = reader.read()
        reader.seek(0)
        blocks = list(reader.blocks(777))
        assert [len(block) for block in blocks[:-1]] == [777] * (len(blocks) - 1)
        np.testing.assert_array_equal(np.concatenate(blocks), whole)
        reader.seek(5000)
        assert reader.position == 5000 and reader.remaining == total - 5000
        np.testing.assert_array_equal(reader.read(3), whole[5000:5003])


def test_arrays_of_any_order_are_written(tmp_path: Path) -> None:
    samples = noise(4800)
    orders = [np.ascontiguousarray(samples), np.asfortranarray(samples), noise(9600)[::2]]
    for number, order in enumerate(orders):
        with kelvonclip.create(tmp_path / str(number), "1080i 50Hz", video="dv", audio_tracks=1) as clip:
            record(clip, order)
            with clip.tracks[1].read_audio() as reader:
                np.testing.assert_array_equal(reader.read()[FADED:4700], order[FADED:4700])


def test_wrong_arrays_are_refused(recording: Clip) -> None:
    with recording.tracks[1].write_audio() as writer:
        with pytest.raises(TypeError, match="int32"):
            writer.write(np.zeros((10, 2)))  # type: ignore[arg-type]
        for shape in ((10,), (2, 10), (10, 2, 1)):
            with pytest.raises(ValueError, match="shape"):
                writer.write(np.zeros(shape, np.int32))
    assert len(recording.tracks[1]) == 0


def test_only_audio_tracks_have_samples(recording: Clip) -> None:
    for begin in (recording.tracks[0].read_audio, recording.tracks[0].write_audio):
        with pytest.raises(kelvonclip.StateError) as caught:
            begin()
        assert caught.value.kind is MessageKind.NOT_HEMLOCK


def test_streams_end(recording: Clip) -> None:
    record(recording, noise(4800))
    reader, writer = recording.tracks[1].read_audio(), recording.tracks[1].write_audio()
    for close in (reader.close, writer.close):
        close()
        close()
    with pytest.raises(kelvonclip.HandleError, match="Invalid handle"):
        reader.read(1)
    with pytest.raises(kelvonclip.HandleError, match="Invalid handle"):
        writer.write(noise(1))


def test_a_writer_that_fails_says_so_when_it_ends(recording: Clip, tmp_path: Path) -> None:
    recording.close()
    with kelvonclip.open(tmp_path / "take-1.clip") as clip:
        writer = clip.tracks[1].write_audio()
        with pytest.raises(kelvonclip.StateError, match="read-only"):
            writer.write(noise(48000))
        with pytest.raises(kelvonclip.StateError, match="read-only"):
            writer.close()
