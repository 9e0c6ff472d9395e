from __future__ import annotations

import os
from datetime import datetime, timezone
from pathlib import Path

import pytest

import kelvonclip
from kelvonclip import Category, Clip, MessageKind, Standard, Timecode, TimecodeSource, VideoType


def test_a_created_clip_has_what_was_asked_for(recording: Clip) -> None:
    assert recording.standard == Standard("1080i 50Hz")
    assert recording.is_writable and not recording.is_child
    assert [track.category for track in recording.tracks] == [Category.VIDEO, Category.AUDIO, Category.TIMECODE]
    assert recording.tracks[0].video_type is VideoType.AVC
    assert recording.tracks[0].format_name == "avci100-1080i"
    assert recording.tracks[0].unit_size == 568832
    assert recording.tracks[1].subchannels == 2
    assert recording.tracks[0].fields_per_unit == 2
    recording.open_tracks()


def test_units_come_back(recording: Clip, tmp_path: Path) -> None:
    units = [bytes([unit]) * recording.tracks[0].unit_size for unit in range(3)]
    for unit in units:
        recording.tracks[0].append(unit)
    recording.close()
    with kelvonclip.open(tmp_path / "take-1.clip") as clip:
        assert not clip.is_writable
        assert list(clip.tracks[0]) == units
        assert clip.tracks[0][-1] == units[2]
        assert clip.tracks[0].fields == 6 and clip.fields == 6 and len(clip.tracks[0]) == 3
        with pytest.raises(IndexError):
            clip.tracks[0][3]


def test_texts_trims_and_meta_can_be_changed(recording: Clip, tmp_path: Path) -> None:
    recording.title, recording.project, recording.creator = "Früh <&> spät", "日本", "𝄞"
    recording.meta["Reel"] = "12"
    recording.meta["Place"] = ""
    del recording.meta["Place"]
    recording.trims = 2, 4
    recording.close()
    with kelvonclip.open(tmp_path / "take-1.clip") as clip:
        assert (clip.title, clip.project, clip.creator) == ("Früh <&> spät", "日本", "𝄞")
        assert dict(clip.meta) == {"Reel": "12"} and "Place" not in clip.meta
        assert clip.trims == (2, 4)
        assert len(clip.uuid) == 38 and clip.parent == ""
        assert clip.file_name == str(tmp_path / "take-1.clip")
        assert clip.last_meta_edit is not None
        assert abs((datetime.now(timezone.utc) - clip.last_meta_edit).total_seconds()) < 3600
        assert clip.last_played is None and clip.last_loaded is None and clip.last_unloaded is None
        assert clip.last_content_edit is not None and clip.unreplayed_bytes == 0


def test_meta_is_a_mapping(recording: Clip) -> None:
    recording.meta.update({"A": "1", "B": "2"})
    recording.meta.update({"B": "3", "C": "4"})
    assert recording.meta.pop("A") == "1"
    assert dict(recording.meta) == {"B": "3", "C": "4"}
    with pytest.raises(KeyError):
        recording.meta["A"]
    with pytest.raises(KeyError):
        del recording.meta["A"]
    with pytest.raises(kelvonclip.ArgumentError, match="Invalid meta name"):
        recording.meta["1 2"] = ""


def test_a_long_text_comes_back_whole(recording: Clip) -> None:
    recording.title = "ä" * 1000
    assert recording.title == "ä" * 1000


@pytest.mark.parametrize("name", ["Ünïcode \N{CLAPPER BOARD}.clip", "日本語.clip"])
def test_file_names_may_have_any_letter(tmp_path: Path, name: str) -> None:
    kelvonclip.create(tmp_path / name, "1080i 50Hz", video="dv").close()
    assert os.listdir(tmp_path) == [name]
    with kelvonclip.open(str(tmp_path / name)) as clip:
        assert clip.file_name.endswith(name)


def test_a_name_that_is_open_shares_the_clip(recording: Clip, tmp_path: Path) -> None:
    recording.close()
    first = kelvonclip.open(tmp_path / "take-1.clip")
    second = kelvonclip.open(tmp_path / "take-1.clip", "r+")
    assert not second.is_writable, "the mode is the first one's"
    first.close()
    assert second.tracks[0].category == Category.VIDEO
    second.close()


def test_timecode_sources(tmp_path: Path) -> None:
    start = Timecode.parse("10:00:00:00", "50Hz")
    with kelvonclip.create(tmp_path / "a", "1080i 50Hz", video="dv") as clip:
        assert clip.timecode_source is TimecodeSource.ZERO_BASED
        assert clip.timecode == Timecode("50Hz")
    with kelvonclip.create(tmp_path / "b", "1080i 50Hz", video="dv", timecode=start) as clip:
        assert clip.timecode_source is TimecodeSource.STRIPED and clip.timecode == start
        with kelvonclip.create(tmp_path / "c", "1080i 50Hz", video="dv", timecode_like=clip) as other:
            assert other.timecode == start
    source = TimecodeSource.TIMECODE_TRACK
    with kelvonclip.create(tmp_path / "d", "1080i 50Hz", timecode_track=True, timecode_source=source) as clip:
        assert clip.timecode_source is source
        clip.tracks[0].set_timecode(0, start + 7)
        assert clip.timecode == start + 7 and clip.tracks[0].timecode(0) == start + 7
        clip.tracks[0].write(1, b"\xff" * 8)
        assert clip.tracks[0].timecode(1) is None
    contradiction = {"timecode": start, "timecode_source": TimecodeSource.ZERO_BASED}
    for arguments in (contradiction, {"timecode": Timecode("25Hz")}):
        with pytest.raises(ValueError):
            kelvonclip.create(tmp_path / "e", "1080i 50Hz", video="dv", **arguments)  # type: ignore[arg-type]


def test_every_format_that_a_standard_can_create_is_created(tmp_path: Path) -> None:
    standard = Standard("720p 50Hz")
    with kelvonclip.create(tmp_path / "avci", standard, video="avci", video_tracks=2, key_tracks=1) as clip:
        assert [track.category for track in clip.tracks] == [Category.VIDEO, Category.VIDEO, Category.KEY]
    with kelvonclip.create(tmp_path / "dv", standard, video="dv") as clip:
        assert clip.tracks[0].video_type is VideoType.DV
    sizes = kelvonclip.J2K(luma=100_000, chroma=30_000, key=100_000)
    with kelvonclip.create(tmp_path / "j2k", standard, video=sizes, audio_tracks=2, subchannels=16) as clip:
        assert clip.tracks[0].luma_size >= 100_000 and clip.tracks[0].chroma_size >= 30_000
        assert clip.tracks[1].subchannels == 16
        assert standard.format(clip.tracks[0].format_name).unit_size == clip.tracks[0].unit_size


@pytest.mark.parametrize(
    "arguments",
    [
        {"video": "dv", "audio_tracks": 1, "subchannels": 3},
        {"video": kelvonclip.J2K(luma=10**9)},
        {"video": "mpeg"},
        {"video_tracks": 1},
    ],
)
def test_a_failed_creation_leaves_the_name_free(tmp_path: Path, arguments: dict[str, object]) -> None:
    path = tmp_path / "take.clip"
    with pytest.raises((kelvonclip.Error, ValueError)):
        kelvonclip.create(path, "1080i 50Hz", **arguments)  # type: ignore[arg-type]
    assert not path.exists()
    kelvonclip.create(path, "1080i 50Hz", video="dv").close()


def test_a_recording_is_followed(recording: Clip, tmp_path: Path) -> None:
    """By another process: this one has the clip open for writing."""
    import subprocess
    import sys

    follower = """
import sys, kelvonclip
with kelvonclip.open(sys.argv[1]) as clip:
    for _ in range(2):
        print(len(clip.tracks[0]), flush=True)
        sys.stdin.readline()
        clip.refresh()
    print(len(clip.tracks[0]), clip.tracks[0].read(1)[:1], flush=True)
"""
    recording.share()
    recording.checkpoint_every(0)
    track = recording.tracks[0]
    track.append(b"a")
    recording.checkpoint()
    arguments = [sys.executable, "-c", follower, str(tmp_path / "take-1.clip")]
    with subprocess.Popen(arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as process:
        assert process.stdin and process.stdout
        assert process.stdout.readline() == "1\n"
        track.append(b"b")
        process.stdin.write("\n")
        process.stdin.flush()
        assert process.stdout.readline() == "1\n"
        recording.checkpoint()
        process.stdin.write("\n")
        process.stdin.flush()
        assert process.stdout.readline() == "2 b'b'\n"
    assert process.returncode == 0


def test_refreshing_what_is_open_for_writing_is_refused(recording: Clip) -> None:
    with pytest.raises(kelvonclip.StateError) as caught:
        recording.refresh()
    assert caught.value.kind is MessageKind.NOT_READ_ONLY
