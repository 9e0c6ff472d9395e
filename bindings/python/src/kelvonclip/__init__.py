"""Clip files for video servers: open, query, read, write and create them. See docs/python.md."""

from kelvonclip._native import lib as _lib
from kelvonclip._text import constant as _constant
from kelvonclip.audio import AudioReader, AudioWriter, Samples
from kelvonclip.clip import J2K, Buffer, Clip, FileName, Meta, Track, UnitBuffers, create, open
from kelvonclip.enums import AudioType, AVCFlavor, Category, TimecodeSource, VideoType
from kelvonclip.errors import (
    ArgumentError,
    BusyError,
    DiskError,
    Error,
    FileError,
    HandleError,
    HostError,
    InternalError,
    MessageKind,
    SpaceError,
    StateError,
)
from kelvonclip.standard import Format, Frequency, J2KLimits, Raster, Standard
from kelvonclip.timecode import Label, Timecode

__version__ = _constant(_lib.kclip_library_version_text()) or ""

__all__ = [
    "ArgumentError",
    "AudioReader",
    "AudioType",
    "AudioWriter",
    "AVCFlavor",
    "Buffer",
    "BusyError",
    "Category",
    "Clip",
    "DiskError",
    "Error",
    "FileError",
    "FileName",
    "Format",
    "Frequency",
    "HandleError",
    "HostError",
    "InternalError",
    "J2K",
    "J2KLimits",
    "Label",
    "MessageKind",
    "Meta",
    "Raster",
    "Samples",
    "SpaceError",
    "Standard",
    "StateError",
    "Timecode",
    "TimecodeSource",
    "Track",
    "UnitBuffers",
    "VideoType",
    "create",
    "open",
]
