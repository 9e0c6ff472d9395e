from __future__ import annotations

from collections.abc import Iterator
from pathlib import Path

import pytest

import kelvonclip
from kelvonclip import Clip


@pytest.fixture
def recording(tmp_path: Path) -> Iterator[Clip]:
    """A new clip of a video track, an audio track with two subchannels and a timecode track, open for writing."""
    path = tmp_path / "take-1.clip"
    with kelvonclip.create(path, "1080i 50Hz", video="avci", audio_tracks=1, timecode_track=True) as clip:
        yield clip


@pytest.fixture(autouse=True)
def ends_without_handles(tmp_path: Path) -> Iterator[None]:
    """Whatever a test does: no file stays open."""
    yield
    targets = [Path("/proc/self/fd") / name for name in Path("/proc/self/fd").iterdir()]
    left = [str(target.readlink()) for target in targets if target.is_symlink()]
    assert not [name for name in left if name.startswith(str(tmp_path))]
