from __future__ import annotations

from pathlib import Path

import pytest

import kelvonclip
from kelvonclip import Clip, MessageKind


def test_a_message_has_its_text_its_number_and_its_file(recording: Clip, tmp_path: Path) -> None:
    track = recording.tracks[0]
    with pytest.raises(kelvonclip.ArgumentError) as caught:
        track.write(0, bytes(track.unit_size + 1))
    assert caught.value.text == "Buffer is too large"
    assert caught.value.kind is MessageKind.BUFFER_TOO_LARGE
    assert str(caught.value) == f"{tmp_path / 'take-1.clip'}: Buffer is too large"
    assert isinstance(caught.value, ValueError)


def test_a_file_that_is_not_there(tmp_path: Path) -> None:
    with pytest.raises(kelvonclip.HostError, match="no.clip: No such file") as caught:
        kelvonclip.open(tmp_path / "no.clip")
    assert isinstance(caught.value, OSError) and caught.value.kind is MessageKind.OTHER


def test_a_file_that_is_no_clip(tmp_path: Path) -> None:
    (tmp_path / "no.clip").write_bytes(bytes(65536))
    with pytest.raises(kelvonclip.FileError) as caught:
        kelvonclip.open(tmp_path / "no.clip")
    assert caught.value.kind is MessageKind.BAD_HEADER


def test_names_that_no_file_can_have(tmp_path: Path) -> None:
    for name, kind in (
        ("", MessageKind.INVALID_FILE_NAME),
        ("a\0b", MessageKind.ZERO_IN_FILE_NAME),
        ("\udcff", MessageKind.BAD_CONVERSION),
    ):
        with pytest.raises(kelvonclip.ArgumentError) as opening:
            kelvonclip.open(name)
        with pytest.raises(kelvonclip.ArgumentError) as creating:
            kelvonclip.create(name, "1080i 50Hz")
        assert opening.value.kind is kind and creating.value.kind is kind
    with pytest.raises(TypeError):
        kelvonclip.open(5)  # type: ignore[arg-type]
    with pytest.raises(ValueError, match="mode"):
        kelvonclip.open(tmp_path, "w")  # type: ignore[arg-type]


def test_text_with_a_zero_character_is_refused(recording: Clip) -> None:
    with pytest.raises(ValueError):
        recording.title = "a\0b"
    assert recording.title == ""


def test_a_standard_without_a_format() -> None:
    with pytest.raises(kelvonclip.ArgumentError) as caught:
        kelvonclip.Standard("8K")
    assert caught.value.kind is MessageKind.INVALID_VIDEO_STANDARD
    assert not kelvonclip.Standard("4K 60Hz").creates(kelvonclip.VideoType.DV)


def test_writing_a_clip_that_is_open_to_read(recording: Clip, tmp_path: Path) -> None:
    recording.close()
    with kelvonclip.open(tmp_path / "take-1.clip") as clip:
        with pytest.raises(kelvonclip.StateError, match="read-only"):
            clip.tracks[0].append(b"")
        with pytest.raises(kelvonclip.StateError, match="read-only"):
            clip.title = "x"
