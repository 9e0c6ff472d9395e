"""Exceptions: the library's own messages, with a number for each text."""

from __future__ import annotations

import enum
from typing import NoReturn

from kelvonclip._native import ffi, lib
from kelvonclip._text import filled


class MessageKind(enum.IntEnum):
    """What a message says. The hundreds are those of the exception classes."""

    SUCCESS = 0
    OTHER = 1
    INVALID_FILE_NAME = 101
    INVALID_CLIP_POINTER = 102
    INVALID_HANDLE_POINTER = 103
    NULL_POINTER = 104
    INVALID_VIDEO_STANDARD = 105
    BUFFER_TOO_LARGE = 106
    ZERO_IN_FILE_NAME = 107
    BAD_CONVERSION = 108
    BAD_SUBCHANNEL_COUNT = 109
    LUMA_TOO_LARGE = 110
    CHROMA_TOO_LARGE = 111
    KEY_TOO_LARGE = 112
    INVALID_META_NAME = 113
    TEXT_CANNOT_BE_SET = 114
    STRIDE_TOO_SMALL = 115
    UNKNOWN_CLIP = 201
    UNKNOWN_HANDLE = 202
    UNKNOWN_TRACK = 203
    UNKNOWN_CREATION = 204
    UNKNOWN_SOURCE_CLIP = 205
    UNKNOWN_STREAM = 206
    READ_ONLY = 301
    NOT_READ_ONLY = 302
    OPEN_IN_OTHER_MODE = 303
    ALREADY_CREATING = 304
    TRACK_COUNT_SET = 305
    VIDEO_CONFIGURED = 306
    AUDIO_CONFIGURED = 307
    VIDEO_NOT_CONFIGURED = 308
    KEY_NOT_CONFIGURED = 309
    AUDIO_NOT_CONFIGURED = 310
    BAD_RATE = 311
    NOT_HEMLOCK = 312
    UNKNOWN_FORMAT = 313
    NOT_TIMECODE = 314
    NO_TIMECODE = 315
    TIMECODE_IN_TRACK = 316
    CHILD_CLIP = 317
    IN_USE = 401
    HELD_BY_CREATOR = 402
    HELD_BY_OTHERS = 403
    WRITTEN_BY_OTHER = 404
    CHANGED_BY_OTHER = 405
    CLIP_IS_OPEN = 406
    FILE_IS_OPEN = 407
    SPARSE_IS_OPEN = 408
    GROW_IS_OPEN = 409
    BAD_HEADER = 501
    BAD_TRACK = 502
    BAD_FILE_SPECIFICATION = 503
    BAD_SUPERBLOCK = 504
    BAD_SPARSE_HEADER = 505
    BAD_GROW_HEADER = 506
    UNREADABLE_MAP = 507
    READ_PAST_SECTION = 508
    WRITE_PAST_SECTION = 509
    READ_PAST_SPARSE = 510
    WRITE_PAST_SPARSE = 511
    READ_PAST_GROW = 512
    WRITE_PAST_GROW = 513
    NOT_IMPLEMENTED = 514
    NOT_A_FILE = 515
    OUT_OF_MEMORY = 601
    SPARSE_FULL = 602
    HEADER_FULL = 603
    TOO_MANY_SAMPLES = 604
    TOO_MANY_UNITS = 605
    READ_FAILED = 701
    WRITE_FAILED = 702
    FLUSH_FAILED = 703
    INTERNAL_ERROR = 901
    NO_BIT_RATE = 902
    NO_IDENTIFIER = 903
    SOFTWARE_ERROR = 904
    TEXT_TOO_LONG = 905
    INVALID_POSITION = 906
    LIBRARY_ENDED = 907


class Error(Exception):
    """A message of the library. `str` gives it with the name of the file in front, where there is one.

    Attributes:
        text: the message as the library gives it.
        kind: its number; `MessageKind.OTHER` for a text of the operating system.
    """

    def __init__(self, text: str, kind: MessageKind = MessageKind.OTHER, described: str | None = None) -> None:
        super().__init__(described or text)
        self.text = text
        self.kind = kind


class HostError(Error, OSError):
    """A text of the operating system, for example of a file that does not exist."""


class ArgumentError(Error, ValueError):
    """An argument is wrong."""


class HandleError(Error, ValueError):
    """What was called has been closed."""


class StateError(Error):
    """The call comes in the wrong order, or the clip is in the wrong mode."""


class BusyError(Error):
    """Somebody else has the file: try again later."""


class FileError(Error):
    """The file is not what it should be."""


class SpaceError(Error):
    """There is no room, in memory or in the file."""


class DiskError(Error, OSError):
    """The disk has failed."""


class InternalError(Error):
    """A fault of the library, or a format that the clip's video standard does not have."""


# By the hundreds of the kind.
_CLASSES: dict[int, type[Error]] = {
    0: HostError,
    1: ArgumentError,
    2: HandleError,
    3: StateError,
    4: BusyError,
    5: FileError,
    6: SpaceError,
    7: DiskError,
    9: InternalError,
}


def check(message: object, handle: int = 0, file_name: str | None = None) -> None:
    """Raises the exception for what a C function has returned; null is success.

    Args:
        message: what was returned.
        handle: of the clip, track or creation that the function was called with.
        file_name: what the call was about, where there is no handle yet.
    """
    if message == ffi.NULL:
        return
    text = ffi.string(message).decode()
    if file_name is not None:
        described = f"{file_name}: {text}"
    else:
        described = filled(lib.kclip_message_with_file, message, handle)
    fail(int(lib.kclip_message_kind(message)), text, described)


def fail(number: int, text: str, described: str | None = None) -> NoReturn:
    """Raises the exception for a message with this number."""
    known = number in MessageKind._value2member_map_  # not in a library that is newer than this package
    kind = MessageKind(number) if known else MessageKind.OTHER
    raise _CLASSES.get(number // 100, Error)(text, kind, described)
