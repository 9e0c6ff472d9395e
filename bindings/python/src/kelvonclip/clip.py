"""Clips and their tracks."""

from __future__ import annotations

import ctypes
import os
import warnings
from collections.abc import Iterator, MutableMapping, Sequence
from dataclasses import dataclass
from datetime import datetime, timezone
from types import TracebackType
from typing import TYPE_CHECKING, Any, Literal, Union, overload

from kelvonclip._native import ffi, lib
from kelvonclip._text import encoded, filled
from kelvonclip.enums import AudioType, AVCFlavor, Category, TimecodeSource, VideoType
from kelvonclip.errors import MessageKind, check, fail
from kelvonclip.standard import Standard
from kelvonclip.timecode import Timecode

if TYPE_CHECKING:
    from kelvonclip.audio import AudioReader, AudioWriter

FileName = Union[str, "os.PathLike[str]"]

# Whatever has the buffer interface: bytes, bytearray, memoryview, mmap, array, numpy arrays. Python 3.11 has no type
# for the interface itself.
Buffer = Any

# What reading a unit calls, without looking it up each time: units of timecode take a few microseconds.
_from_buffer = ffi.from_buffer
_track_read = lib.kclip_track_read
_track_read_units = lib.kclip_track_read_units
_new_bytes = ctypes.pythonapi.PyBytes_FromStringAndSize
_new_bytes.restype = ctypes.py_object
_new_bytes.argtypes = [ctypes.c_char_p, ctypes.c_ssize_t]


class UnitBuffers(Sequence[memoryview]):
    """Memory for units, each of them a memoryview of its bytes. `Track.new_buffers` makes it.

    Units are transferred from and to it without a copy. The views may outlive it, the track and the clip.
    Threads: as any other memory; calls that fill it must not overlap.
    """

    def __init__(self, track: int, unit_size: int, count: int) -> None:
        stride = ffi.new("uint32_t *")
        self._memory = lib.kclip_unit_buffer_alloc(track, count, stride)
        if not self._memory:
            raise MemoryError(f"no memory for {count} units of {unit_size} bytes")
        self._stride, self._unit_size, self._count = int(stride[0]), unit_size, count
        # Freed when neither this object nor a view uses it any more.
        self._memory = ffi.gc(self._memory, lib.kclip_unit_buffer_free, count * self._stride)
        self._bytes = memoryview(ffi.buffer(self._memory, count * self._stride))

    def __len__(self) -> int:
        return self._count

    @overload
    def __getitem__(self, index: int) -> memoryview: ...
    @overload
    def __getitem__(self, index: slice) -> list[memoryview]: ...

    def __getitem__(self, index: int | slice) -> memoryview | list[memoryview]:
        if isinstance(index, slice):
            return [self[number] for number in range(*index.indices(self._count))]
        if not -self._count <= index < self._count:
            raise IndexError(f"buffer {index} of {self._count}")
        begin = index % self._count * self._stride
        return self._bytes[begin : begin + self._unit_size]


class Track:
    """A track of a clip: a sequence of units that are read and written whole.

    It ends with its clip: afterwards every call raises HandleError. Threads: any function from any thread at any time;
    units of one track may be read and written at once. Waiting for the disk lets other Python threads run.
    """

    def __init__(self, clip: Clip, handle: int) -> None:
        self.clip = clip
        self._handle = handle
        self._unit_size = int(lib.kclip_track_unit_size(handle))  # never changes

    def _open_handle(self) -> int:
        if self.clip._handle == 0:
            fail(MessageKind.UNKNOWN_HANDLE, "Bad Handle")
        return self._handle

    def __repr__(self) -> str:
        return "<Track of a closed clip>" if self.clip.closed else f"<Track {self.category} {self.format_name}>"

    def read(self, unit: int) -> bytes:
        """Reads a unit into new bytes. At and past the end of the track they are zeros."""
        # As C code makes bytes: without clearing them first, and filled before anybody else sees them.
        handle = self._open_handle()
        content: bytes = _new_bytes(None, self._unit_size)
        message = _track_read(handle, unit, _from_buffer(content))
        if message:
            check(message, handle)
        return content

    def read_into(self, unit: int, buffer: Buffer) -> int:
        """Reads a unit into the beginning of a writable buffer, and returns the unit's size.

        A buffer of `new_buffer` is filled straight from the disk; any other costs a copy.
        ValueError for a buffer that is too small.
        """
        handle = self._open_handle()
        with _from_buffer(buffer, require_writable=True) as memory:
            if len(memory) < self._unit_size:
                raise ValueError(f"a buffer of {self._unit_size} bytes is needed, not of {len(memory)}")
            message = _track_read(handle, unit, memory)
        if message:
            check(message, handle)
        return self._unit_size

    def read_units(self, first: int, buffers: UnitBuffers) -> None:
        """Reads as many consecutive units as there are buffers, in one call: the quickest way to read small units.

        Units at and past the end of the track are zeros. ValueError for buffers of a track with other units.
        """
        handle = self._open_handle()
        if buffers._unit_size != self._unit_size:
            raise ValueError(f"buffers of {self._unit_size} bytes are needed, not of {buffers._unit_size}")
        message = _track_read_units(handle, first, buffers._count, buffers._memory, buffers._stride)
        if message:
            check(message, handle)

    def write(self, unit: int, content: Buffer) -> None:
        """Writes a unit; the rest of a short one is filled with zeros. A unit past the end extends the track.

        The bytes are in the file when the call returns, and the track's new length at the next checkpoint.
        """
        handle = self._open_handle()
        with ffi.from_buffer(content) as memory:
            message = lib.kclip_track_write(handle, unit, memory, len(memory))
        check(message, handle)

    def append(self, content: Buffer) -> None:
        """Writes a unit behind the last one. For one thread a track at a time."""
        self.write(len(self), content)

    def new_buffer(self) -> memoryview:
        """Memory for a unit, from and to which units are transferred without a copy."""
        return self.new_buffers(1)[0]

    def new_buffers(self, count: int) -> UnitBuffers:
        """Memory for several units, from and to which they are transferred without a copy.

        ValueError for less than one, and for a track of unknown format, which has no units; MemoryError.
        """
        handle = self._open_handle()
        if count < 1 or self._unit_size == 0:
            raise ValueError(f"no buffers for {count} units of {self._unit_size} bytes")
        return UnitBuffers(handle, self._unit_size, count)

    def __len__(self) -> int:
        """The length in units. It grows as units are appended, and with `Clip.refresh`."""
        return int(lib.kclip_track_length_in_units(self._open_handle()))

    def __bool__(self) -> bool:
        return True  # an empty track too

    def __getitem__(self, unit: int) -> bytes:
        """Reads a unit; a negative number counts from the end. IndexError outside the track."""
        length = len(self)
        if not -length <= unit < length:
            raise IndexError(f"unit {unit} of {length}")
        return self.read(unit if unit >= 0 else length + unit)

    def __iter__(self) -> Iterator[bytes]:
        """Reads unit by unit, those that are appended meanwhile too."""
        unit = 0
        while unit < len(self):
            yield self.read(unit)
            unit += 1

    def _number(self, function: Any) -> int:
        return int(function(self._open_handle()))

    @property
    def category(self) -> Category:
        """What the track holds."""
        return Category(self._number(lib.kclip_track_category))

    @property
    def video_type(self) -> VideoType:
        """How pictures are coded."""
        return VideoType(self._number(lib.kclip_track_video_type))

    @property
    def audio_type(self) -> AudioType:
        """How sound is coded."""
        return AudioType(self._number(lib.kclip_track_audio_type))

    @property
    def avc_flavor(self) -> AVCFlavor:
        """The family of an AVC track."""
        return AVCFlavor(self._number(lib.kclip_track_avc_flavor))

    @property
    def avc_class(self) -> int:
        """Mbit/s of an AVC track; 0 for any other."""
        return self._number(lib.kclip_track_avc_class)

    @property
    def format_name(self) -> str:
        """The name of the format, as the header has it."""
        return filled(lib.kclip_track_get_format_name, self._open_handle())

    @property
    def standard(self) -> Standard | None:
        """The video standard of the clip."""
        return self.clip.standard

    @property
    def subchannels(self) -> int:
        """Subchannels of an audio track; 0 for any other."""
        return self._number(lib.kclip_track_audio_subchannel_count)

    @property
    def luma_size(self) -> int:
        """Bytes of luma in a JPEG 2000 video unit; 0 for any other."""
        return self._number(lib.kclip_track_j2k_video_luma_size)

    @property
    def chroma_size(self) -> int:
        """Bytes of chroma in a JPEG 2000 video unit; 0 for any other."""
        return self._number(lib.kclip_track_j2k_video_chroma_size)

    @property
    def unit_size(self) -> int:
        """Bytes of a unit."""
        self._open_handle()
        return self._unit_size

    @property
    def fields_per_unit(self) -> int:
        """Fields that a unit covers."""
        return self._number(lib.kclip_track_fields_per_unit)

    @property
    def fields(self) -> int:
        """The length in fields."""
        return self._number(lib.kclip_track_length_in_fields)

    def timecode(self, unit: int) -> Timecode | None:
        """The timecode of a unit of a timecode track; None if the unit has none."""
        handle = self._open_handle()
        standard = self.standard
        if standard is None or not lib.kclip_track_valid_timecode(handle, unit):
            return None
        fields, drop_frame = ffi.new("uint32_t *"), ffi.new("bool *")
        check(lib.kclip_track_get_timecode(handle, unit, fields, drop_frame), handle)
        return Timecode(standard, fields[0], drop_frame=bool(drop_frame[0]))

    def set_timecode(self, unit: int, timecode: Timecode) -> None:
        """Writes a unit of a timecode track. It holds the time of day, without days."""
        handle = self._open_handle()
        check(lib.kclip_track_set_timecode(handle, unit, timecode.fields, timecode.drop_frame), handle)

    def read_audio(self) -> AudioReader:
        """A reader of the track's samples, from the first one.

        with track.read_audio() as reader:
            samples = reader.read()        # int32, shape (samples, subchannels)
        """
        from kelvonclip.audio import AudioReader

        return AudioReader(self)

    def write_audio(self) -> AudioWriter:
        """A writer that records behind what the track holds; one a track at a time.

        with track.write_audio() as writer:
            writer.write(samples)          # int32, shape (samples, subchannels)
        """
        from kelvonclip.audio import AudioWriter

        return AudioWriter(self)


class Meta(MutableMapping[str, str]):
    """The `Meta` list of a clip's header: names with values. Every change is on the disk when it returns."""

    def __init__(self, clip: Clip) -> None:
        self._clip = clip

    def __len__(self) -> int:
        return int(lib.kclip_clip_meta_count(self._clip._open_handle()))

    def __iter__(self) -> Iterator[str]:
        for index in range(len(self)):
            yield filled(lib.kclip_clip_get_meta_name, self._clip._open_handle(), index)

    def __getitem__(self, name: str) -> str:
        if name not in list(self):
            raise KeyError(name)
        return filled(lib.kclip_clip_get_meta, self._clip._open_handle(), encoded(name))

    def __setitem__(self, name: str, value: str) -> None:
        self._set(name, encoded(value))

    def __delitem__(self, name: str) -> None:
        if name not in list(self):
            raise KeyError(name)
        self._set(name, ffi.NULL)

    def _set(self, name: str, value: Any) -> None:
        handle = self._clip._open_handle()
        check(lib.kclip_clip_set_meta(handle, encoded(name), value), handle)

    def __repr__(self) -> str:
        return f"Meta({dict(self)!r})"


class Clip:
    """An open clip. `open` and `create` make it; `close`, or the end of a `with`, ends it.

    A name that is open already in this process shares the library's clip; each of the objects is closed by itself.
    Threads: any function from any thread at any time. Waiting for the disk lets other Python threads run.
    """

    def __init__(self, handle: int) -> None:
        """Of a handle of the library, which the object closes."""
        self._handle = handle

    def _open_handle(self) -> int:
        if self._handle == 0:
            fail(MessageKind.UNKNOWN_CLIP, "invalid clip handle")
        return self._handle

    def _check(self, function: Any, *arguments: object) -> None:
        handle = self._open_handle()
        check(function(handle, *arguments), handle)

    def _number(self, function: Any) -> int:
        return int(function(self._open_handle()))

    def _text(self, which: int) -> str:
        return filled(lib.kclip_clip_get_text, self._open_handle(), which)

    def _set_text(self, which: int, text: str) -> None:
        self._check(lib.kclip_clip_set_text, which, encoded(text))

    def _time(self, function: Any) -> datetime | None:
        seconds = self._number(function)
        try:
            return datetime.fromtimestamp(seconds, timezone.utc) if seconds else None
        except (OverflowError, ValueError, OSError):  # the header has a time that no calendar has
            return None

    def close(self) -> None:
        """Closes the clip; what was written survives a power failure then. Closing it twice does nothing.

        The clip is closed after an error too, which tells what could not be written.
        """
        handle, self._handle = self._handle, 0
        if handle != 0:
            name = filled(lib.kclip_clip_get_text, handle, lib.KCLIP_FILE_NAME)
            check(lib.kclip_clip_close_checked(handle), file_name=name)

    @property
    def closed(self) -> bool:
        """Whether `close` has been called."""
        return self._handle == 0

    def __enter__(self) -> Clip:
        self._open_handle()
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if self._handle != 0:
            warnings.warn(f"unclosed {self!r}", ResourceWarning, source=self)
            lib.kclip_clip_close(self._handle)

    def __repr__(self) -> str:
        return "<Clip, closed>" if self.closed else f"<Clip {self.file_name!r}, {self.standard}>"

    # ------------------------------------------------------------------------------------------- recording, following

    def checkpoint(self) -> None:
        """Makes everything that was written survive a power failure, while recording continues."""
        self._check(lib.kclip_clip_checkpoint)

    def checkpoint_every(self, seconds: float, *, durable: bool = False) -> None:
        """Sets the interval of automatic checkpoints; 0: none. The default is 2 seconds, not durable.

        Args:
            seconds: the interval, in steps of a millisecond.
            durable: survive a power failure, as with `checkpoint`. Otherwise a killed process alone is survived.
        """
        self._check(lib.kclip_clip_checkpoint_every, round(seconds * 1000), durable)

    def share(self) -> None:
        """Lets other processes open a clip that this one has created, while it is still recorded."""
        self._check(lib.kclip_clip_share)

    def refresh(self) -> None:
        """Takes in what another process has recorded up to its last checkpoint; for a clip that is open to read."""
        self._check(lib.kclip_clip_refresh)

    # --------------------------------------------------------------------------------------------------------- tracks

    @property
    def tracks(self) -> tuple[Track, ...]:
        """The tracks, in the header's order. Those that cannot be opened are left out: see `open_tracks`."""
        handle = self._open_handle()
        return tuple(
            Track(self, int(lib.kclip_clip_get_track(handle, index)))
            for index in range(int(lib.kclip_clip_track_count(handle)))
        )

    def open_tracks(self) -> None:
        """Raises what keeps a track from being opened. Called before `tracks`, it opens all or none."""
        self._check(lib.kclip_clip_open_tracks)

    # --------------------------------------------------------------------------------------------------------- header

    @property
    def standard(self) -> Standard | None:
        """The video standard; None for a child clip."""
        number = self._number(lib.kclip_clip_get_video_standard)
        return Standard._of(number) if lib.kclip_standard_is_valid(number) else None

    @property
    def fields(self) -> int:
        """The length in fields: that of the longest track, rounded down to an even number."""
        return self._number(lib.kclip_clip_get_length)

    @property
    def timecode(self) -> Timecode | None:
        """The timecode of the first frame, whatever its source is; None if there is none."""
        handle, standard = self._open_handle(), self.standard
        if standard is None:
            return None
        fields, drop_frame = ffi.new("uint32_t *"), ffi.new("bool *")
        message = lib.kclip_clip_get_timecode(handle, fields, drop_frame)
        kind = lib.kclip_message_kind(message)
        if kind == MessageKind.TIMECODE_IN_TRACK:
            tracks = (track for track in self.tracks if track.category == Category.TIMECODE)
            return next(filter(None, (track.timecode(0) for track in tracks)), None)
        if kind == MessageKind.NO_TIMECODE:
            return None
        check(message, handle)
        return Timecode(standard, fields[0], drop_frame=bool(drop_frame[0]))

    @property
    def timecode_source(self) -> TimecodeSource:
        """Where the timecode comes from; NONE if the header names a source that is not known."""
        return TimecodeSource(self._number(lib.kclip_clip_get_timecode_source))

    @property
    def is_writable(self) -> bool:
        """Whether the clip was opened for writing, or created."""
        return bool(lib.kclip_clip_is_writable(self._open_handle()))

    @property
    def is_child(self) -> bool:
        """Whether the header names a parent clip and lists no tracks."""
        return bool(lib.kclip_clip_get_is_child_clip(self._open_handle()))

    @property
    def file_name(self) -> str:
        """The name under which the clip was opened first."""
        return self._text(lib.KCLIP_FILE_NAME)

    @property
    def uuid(self) -> str:
        """The identifier that creating has given the clip."""
        return self._text(lib.KCLIP_UUID)

    @property
    def parent(self) -> str:
        """What a child clip names as its parent."""
        return self._text(lib.KCLIP_PARENT)

    @property
    def project(self) -> str:
        """The project; can be set, and is on the disk when that returns. All texts are "" where the header has none."""
        return self._text(lib.KCLIP_PROJECT)

    @project.setter
    def project(self, text: str) -> None:
        self._set_text(lib.KCLIP_PROJECT, text)

    @property
    def title(self) -> str:
        """The title; can be set."""
        return self._text(lib.KCLIP_TITLE)

    @title.setter
    def title(self, text: str) -> None:
        self._set_text(lib.KCLIP_TITLE, text)

    @property
    def creator(self) -> str:
        """The creator; can be set."""
        return self._text(lib.KCLIP_CREATOR)

    @creator.setter
    def creator(self, text: str) -> None:
        self._set_text(lib.KCLIP_CREATOR, text)

    @property
    def meta(self) -> Meta:
        """The header's `Meta` list."""
        self._open_handle()
        return Meta(self)

    @property
    def trims(self) -> tuple[int, int]:
        """Fields that the header hides at the start and at the end of every track; can be set.

        The tracks of clips that are open keep their length until the clip is closed and opened again.
        """
        return self._number(lib.kclip_clip_get_trim_start), self._number(lib.kclip_clip_get_trim_end)

    @trims.setter
    def trims(self, start_and_end: tuple[int, int]) -> None:
        self._check(lib.kclip_clip_set_trims, *start_and_end)

    @property
    def last_loaded(self) -> datetime | None:
        """When the clip was last loaded."""
        return self._time(lib.kclip_clip_get_last_loaded)

    @property
    def last_unloaded(self) -> datetime | None:
        """When the clip was last unloaded."""
        return self._time(lib.kclip_clip_get_last_unloaded)

    @property
    def last_played(self) -> datetime | None:
        """When the clip was last played."""
        return self._time(lib.kclip_clip_get_last_played)

    @property
    def last_meta_edit(self) -> datetime | None:
        """When the header was last changed."""
        return self._time(lib.kclip_clip_get_last_meta_edit)

    @property
    def last_content_edit(self) -> datetime | None:
        """When the content was last edited."""
        return self._time(lib.kclip_clip_get_last_content_edit)

    @property
    def unreplayed_bytes(self) -> int:
        """Bytes of units that a killed recording left and no checkpoint has covered: ask before the first write."""
        return self._number(lib.kclip_clip_unreplayed_bytes)


def open(file_name: FileName, mode: Literal["r", "r+"] = "r") -> Clip:
    """Opens a clip file.

    Args:
        file_name: of the clip.
        mode: "r" to read, "r+" to read and write.
    """
    functions = {"r": lib.kclip_clip_open, "r+": lib.kclip_clip_open_rw}
    if mode not in functions:
        raise ValueError(f'the mode is "r" or "r+", not {mode!r}')
    handle = ffi.new("uint32_t *")
    check(functions[mode](_path(file_name), handle), file_name=os.fspath(file_name))
    return Clip(int(handle[0]))


@dataclass(frozen=True)
class J2K:
    """JPEG 2000 at the lowest bit rate whose units hold these bytes; zeros take the lowest of the standard."""

    luma: int = 0
    chroma: int = 0
    key: int = 0


def create(
    file_name: FileName,
    standard: Standard | str,
    *,
    video: Literal["avci", "dv"] | J2K | None = None,
    video_tracks: int | None = None,
    key_tracks: int = 0,
    audio_tracks: int = 0,
    subchannels: int = 2,
    timecode_track: bool = False,
    timecode: Timecode | None = None,
    timecode_source: TimecodeSource | None = None,
    timecode_like: Clip | None = None,
    shared: bool = False,
) -> Clip:
    """Creates a clip file with room for 24 hours, and opens it to read and write. An existing file is replaced.

    Args:
        file_name: of the new clip.
        standard: the picture format of all tracks, or its text.
        video: the coding of video and key tracks: AVC-Intra 100, DV or JPEG 2000. `Standard.creates` tells which a
            standard has.
        video_tracks: how many; one unless said otherwise if there is `video`.
        key_tracks: how many.
        audio_tracks: how many.
        subchannels: of each audio track: 2, 4, 8 or 16.
        timecode_track: whether there is one; its units are written like those of any other track.
        timecode: of the first frame. Without it the clip counts from 0.
        timecode_source: where the clip's timecode comes from; STRIPED with `timecode`, else ZERO_BASED.
        timecode_like: an open clip from which the timecode and its source are taken instead.
        shared: whether other processes may open the clip while it is recorded; see `Clip.share`.

    Whatever fails, no clip stays open and the name is free again.
    """
    chosen = Standard(standard) if isinstance(standard, str) else standard
    handle = ffi.new("uint32_t *")
    check(lib.kclip_create_begin(_path(file_name), chosen.number, handle), file_name=os.fspath(file_name))
    creation = int(handle[0])

    def configure(function: Any, *arguments: object) -> None:
        check(function(creation, *arguments), creation)

    try:
        if video == "avci":
            configure(lib.kclip_cfg_video_avci)
        elif video == "dv":
            configure(lib.kclip_cfg_video_dv)
        elif isinstance(video, J2K):
            configure(lib.kclip_cfg_video_j2k, video.luma, video.chroma, video.key)
        elif video is not None:
            raise ValueError(f'video is "avci", "dv" or J2K(), not {video!r}')
        if video_tracks is None:
            video_tracks = 0 if video is None else 1
        configure(lib.kclip_cfg_track_count_video, video_tracks)
        configure(lib.kclip_cfg_track_count_key, key_tracks)
        configure(lib.kclip_cfg_track_count_audio, audio_tracks)
        if audio_tracks > 0:
            configure(lib.kclip_cfg_audio_hemlock, subchannels)
        if timecode_track:
            configure(lib.kclip_cfg_track_timecode)
        if timecode_like is not None:
            if timecode is not None or timecode_source is not None:
                raise ValueError("timecode_like takes the place of timecode and timecode_source")
            check(lib.kclip_cfg_clip_timecode(timecode_like._open_handle(), creation), creation)
        else:
            _configure_timecode(configure, chosen, timecode, timecode_source)
        configure(lib.kclip_create_finish, handle)
    except BaseException:
        lib.kclip_create_cancel(creation)
        raise
    clip = Clip(int(handle[0]))
    if shared:
        try:
            clip.share()
        except BaseException:
            clip.close()
            raise
    return clip


def _configure_timecode(
    configure: Any, standard: Standard, timecode: Timecode | None, source: TimecodeSource | None
) -> None:
    if source is None:
        source = TimecodeSource.ZERO_BASED if timecode is None else TimecodeSource.STRIPED
    if source == TimecodeSource.ZERO_BASED:
        if timecode is not None:
            raise ValueError("a clip that counts from 0 has no timecode of its own")
        return
    if timecode is not None and timecode.frequency != standard.frequency:
        raise ValueError(f"the timecode is at {timecode.frequency}, the standard at {standard.frequency}")
    start = timecode or Timecode(standard)
    configure(
        lib.kclip_cfg_clip_timecode2,
        start.fields,
        start.drop_frame,
        source == TimecodeSource.TIMECODE_TRACK,
        source == TimecodeSource.TC0_STRIPED,
    )


def _path(file_name: FileName) -> bytes:
    name = os.fspath(file_name)
    if "\0" in name:
        fail(MessageKind.ZERO_IN_FILE_NAME, "A file name can't hold a zero character", repr(name))
    return encoded(name)
