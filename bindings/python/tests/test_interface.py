"""The package keeps up with the library: what the headers have, it has."""

from __future__ import annotations

import re
from pathlib import Path

from kelvonclip import MessageKind, errors

PACKAGE = Path(__file__).parent.parent / "src" / "kelvonclip"
HEADERS = Path(__file__).parent.parent.parent.parent / "include" / "kelvonclip"

# What Python has by itself, or what other calls of the package tell.
LEFT_OUT = {
    r"kclip_(from|to)_be_\w+": "int.from_bytes, int.to_bytes",
    r"kclip_flag_\w+|kclip_\w+_flag_for": "drop_frame is a bool",
    r"kclip_rough_frequency_\w+|kclip_\w+_rough_frequency": "Frequency.rough_fields_per_second",
    r"kclip_standard_(?!of|valid|frequency|resolution|from_text|to_text|first|next)\w+": "Standard.raster, .frequency",
    r"kclip_resolution_is_progressive": "Raster.is_interlaced",
    r"kclip_(frequency|resolution)_is_valid": "values are made from texts",
    r"kclip_track_j2k_(video|key)_size": "Track.unit_size",
    r"kclip_track_get_video_standard": "the clip's",
    r"kclip_clip_(read|write)_units": "Track.read_units and Track.write, track by track",
    r"kclip_clip_timecode_valid": "Clip.timecode_source",
    r"kclip_timecode_is_defined": "a Timecode is defined",
    r"kclip_library_version": "its text is __version__",
}


def declared() -> set[str]:
    return set(re.findall(r"\b(kclip_\w+)\(", (HEADERS / "c_api.h").read_text()))


def used() -> set[str]:
    """Named in the sources, or put together from the name of a family, as _Named and j2k_limits do."""
    text = "\n".join(source.read_text() for source in PACKAGE.glob("*.py"))
    names = set(re.findall(r"lib\.(kclip_\w+)", text))
    for family in re.findall(r'_family = "(\w+)"', text):
        names |= {f"kclip_{family}_{call}" for call in re.findall(r'_call\("(\w+)"', text)}
    parts = ("video_luma", "video_chroma", "video", "key")
    return names | {f"kclip_j2k_{part}_{limit}_size" for part in parts for limit in ("min", "max")}


def left_out(name: str) -> bool:
    return any(re.fullmatch(pattern, name) for pattern in LEFT_OUT)


def test_every_function_is_used_or_left_out_for_a_reason() -> None:
    assert len(declared()) > 200
    assert not sorted(name for name in declared() - used() if not left_out(name))
    assert not sorted(used() - declared())


def test_kinds_of_messages_are_those_of_the_library() -> None:
    header = (HEADERS / "message.h").read_text()
    body = header.split("enum class MessageKind", 1)[1].split("};", 1)[0]
    kinds = {name.upper(): int(number) for name, number in re.findall(r"^ +(\w+) = (\d+),", body, re.MULTILINE)}
    assert kinds == {kind.name: kind.value for kind in MessageKind}
    assert {number // 100 for number in kinds.values()} == set(errors._CLASSES)


def test_constants_are_all_used() -> None:
    constants = set(re.findall(r"^    (KCLIP_\w+) = ", (HEADERS / "c_api.h").read_text(), re.MULTILINE))
    text = "\n".join(source.read_text() for source in PACKAGE.glob("*.py"))
    assert constants == set(re.findall(r"lib\.(KCLIP_\w+)", text))
