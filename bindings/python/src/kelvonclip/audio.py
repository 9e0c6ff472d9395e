"""Audio tracks as continuous streams of samples at 48 kHz, as numpy arrays of shape (samples, subchannels)."""

from __future__ import annotations

import warnings
from collections.abc import Iterator
from types import TracebackType
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt

from kelvonclip._native import ffi, lib
from kelvonclip.errors import MessageKind, check, fail

if TYPE_CHECKING:
    from kelvonclip.clip import Track

Samples = npt.NDArray[np.int32]


def _pointers(planes: Samples) -> Any:
    """What C takes: a pointer to the samples of each subchannel. Valid as long as `planes` lives."""
    return ffi.new("int32_t *[]", [ffi.cast("int32_t *", plane.ctypes.data) for plane in planes])


class _Stream:
    """A reader or a writer; used by one thread at a time."""

    def __init__(self, track: Track, begin: Any) -> None:
        self._handle = 0
        handle = ffi.new("uint32_t *")
        check(begin(track._open_handle(), handle), track._open_handle())
        self._handle = int(handle[0])
        self._track = track  # keeps the clip open

    def _open_handle(self) -> int:
        if self._handle == 0:
            fail(MessageKind.UNKNOWN_STREAM, "Invalid handle")
        self._track._open_handle()
        return self._handle


class AudioReader(_Stream):
    """Reads an audio track from any place: see `Track.read_audio`."""

    def __init__(self, track: Track) -> None:
        super().__init__(track, lib.kclip_seqread_begin)
        self.subchannels = int(lib.kclip_seqread_subchannel_count(self._handle))

    def read(self, count: int = -1) -> Samples:
        """Reads the next samples, at most `count`, or all that remain.

        Returns:
            An array of shape (samples, subchannels), in which the samples of a subchannel lie side by side (Fortran's
            order). It has fewer than `count` samples at the end of the track, and none behind it.

        After an error `position` is the sample that could not be read, and the next call begins there. What comes
        before it has been passed over: `seek` goes back to it.
        """
        handle, remaining = self._open_handle(), self.remaining
        count = remaining if count < 0 else min(count, remaining)
        planes = np.empty((self.subchannels, count), np.int32)
        check(lib.kclip_seqread_read(handle, _pointers(planes), count), self._track._open_handle())
        return planes.T

    def blocks(self, count: int = 48000) -> Iterator[Samples]:
        """Reads what remains in arrays of `count` samples; the last one may have fewer."""
        while len(samples := self.read(count)) > 0:
            yield samples

    def seek(self, sample: int) -> None:
        """Moves to a sample, counted from the track's beginning. docs/audio.md says what joins do to the count."""
        check(lib.kclip_seqread_seek(self._open_handle(), sample), self._track._open_handle())

    @property
    def position(self) -> int:
        """The sample that the next `read` begins with."""
        return int(lib.kclip_seqread_position(self._open_handle()))

    @property
    def remaining(self) -> int:
        """Samples up to the end of the track as it was when the reader was made."""
        return int(lib.kclip_seqread_samples_remaining(self._open_handle()))

    def close(self) -> None:
        """Ends the reader. Ending it twice does nothing."""
        handle, self._handle = self._handle, 0
        if handle != 0:
            lib.kclip_seqread_finish(handle)

    def __enter__(self) -> AudioReader:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()


class AudioWriter(_Stream):
    """Records behind what an audio track holds: see `Track.write_audio`."""

    def __init__(self, track: Track) -> None:
        super().__init__(track, lib.kclip_seqwrite_begin)
        self.subchannels = int(lib.kclip_seqwrite_subchannel_count(self._handle))

    def write(self, samples: Samples) -> None:
        """Appends samples: an array of int32 and of shape (samples, subchannels), in any order in memory.

        After the error of a unit that could not be written all samples have been taken in, and the next call, or
        `close`, tries that unit again. After "Too many samples wait to be written" none has been.
        """
        handle = self._open_handle()
        if samples.dtype != np.int32:
            raise TypeError(f"samples of int32 are needed, not of {samples.dtype}")
        if samples.ndim != 2 or samples.shape[1] != self.subchannels:
            raise ValueError(f"an array of shape (samples, {self.subchannels}) is needed, not {samples.shape}")
        planes = np.ascontiguousarray(samples.T)
        check(lib.kclip_seqwrite_write(handle, _pointers(planes), len(samples)), self._track._open_handle())

    def close(self) -> None:
        """Ends the recording: writes what is left, the last unit filled up with silence. Ending it twice does nothing.

        After "Out of memory" nothing is lost, and the call can be repeated.
        """
        handle, self._handle = self._handle, 0
        if handle == 0:
            return
        message = lib.kclip_seqwrite_finish(handle)
        if lib.kclip_message_kind(message) == MessageKind.OUT_OF_MEMORY:
            self._handle = handle
        check(message, self._track._handle)

    def __enter__(self) -> AudioWriter:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, value: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __del__(self) -> None:
        if self._handle != 0:
            warnings.warn("unclosed AudioWriter", ResourceWarning, source=self)
            lib.kclip_seqwrite_finish(self._handle)
