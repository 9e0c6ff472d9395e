"""The enumerations of the library. `str` gives the library's own text of a value."""

from __future__ import annotations

import enum
from collections.abc import Callable
from typing import Any

from kelvonclip._native import lib
from kelvonclip._text import constant


class _Enumeration(enum.IntEnum):
    def __str__(self) -> str:
        return constant(_TO_TEXT[type(self)](self.value)) or self.name


class Category(_Enumeration):
    """What a track holds."""

    NONE = 0
    VIDEO = lib.KCLIP_VIDEO
    KEY = lib.KCLIP_KEY
    AUDIO = lib.KCLIP_AUDIO
    TIMECODE = lib.KCLIP_TIMECODE


class VideoType(_Enumeration):
    """How a video or key track is coded."""

    NONE = 0
    J2K = lib.KCLIP_J2K
    DV = lib.KCLIP_DV
    AVC = lib.KCLIP_AVC


class AudioType(_Enumeration):
    """How an audio track is coded."""

    NONE = 0
    HEMLOCK = lib.KCLIP_HEMLOCK


class AVCFlavor(_Enumeration):
    """The family of an AVC track."""

    NONE = 0
    XAVC = lib.KCLIP_XAVC
    AVC_INTRA = lib.KCLIP_AVC_INTRA


class TimecodeSource(_Enumeration):
    """Where a clip's timecode comes from."""

    NONE = 0
    ZERO_BASED = lib.KCLIP_ZERO_BASED
    STRIPED = lib.KCLIP_STRIPED
    TC0_STRIPED = lib.KCLIP_TC0_STRIPED
    TIMECODE_TRACK = lib.KCLIP_TIMECODE_FROM_TRACK


_TO_TEXT: dict[type[_Enumeration], Callable[[int], Any]] = {
    Category: lib.kclip_category_to_text,
    VideoType: lib.kclip_video_type_to_text,
    AudioType: lib.kclip_audio_type_to_text,
    AVCFlavor: lib.kclip_avc_flavor_to_text,
    TimecodeSource: lib.kclip_timecode_source_to_text,
}
