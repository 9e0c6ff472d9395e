"""Timecode: counts of fields at a frequency, their labels, and the arithmetic between them."""

from __future__ import annotations

import functools
import operator
from typing import Any, NamedTuple

from kelvonclip._native import ffi, lib
from kelvonclip._text import encoded, filled
from kelvonclip.standard import Frequency, Standard


class Label(NamedTuple):
    """The components of a label. Frames are pairs of fields: at 25Hz and 24Hz two pictures share a frame."""

    days: int
    hours: int
    minutes: int
    seconds: int
    frames: int
    field_2: bool


@functools.total_ordering
class Timecode:
    """Fields since midnight of day 0, with labels that count drop-frame or not. Immutable.

    A *field* is a field of an interlaced raster and a whole picture of a progressive one. Timecodes are compared by
    their fields alone, whatever their frequency.

    >>> start = Timecode.parse("10:00:00:00", "50Hz")
    >>> print(start + 50, start - 2)
    10:00:01:00 09:59:59:24
    """

    __slots__ = ("_struct",)

    def __init__(
        self, frequency: Frequency | Standard | str, fields: int = 0, *, drop_frame: bool | None = None
    ) -> None:
        """A count of fields.

        Args:
            frequency: or the standard that has it, or its text.
            fields: since midnight; may exceed a day; 0 to 2^32 - 1.
            drop_frame: how labels count. None takes the default of the frequency; one that has no drop-frame counts
                without.
        """
        self._struct = ffi.new("kclip_timecode *")
        at = _frequency(frequency)
        lib.kclip_timecode_from_fields(at.number, _flag(at, drop_frame), fields, self._struct)

    @classmethod
    def _of(cls, struct: Any) -> Timecode:
        timecode = cls.__new__(cls)
        timecode._struct = struct
        return timecode

    @classmethod
    def parse(cls, text: str, frequency: Frequency | Standard | str, *, drop_frame: bool | None = None) -> Timecode:
        """From a text: hours, minutes, seconds and frames, of which the first ones may be missing.

        The first of , . : ; is the separator; ':' and ';' stand for field 2, so "10.00.00.00" is field 1. ValueError
        for a text without a separator.
        """
        struct, at = ffi.new("kclip_timecode *"), _frequency(frequency)
        if not lib.kclip_timecode_from_text(at.number, _flag(at, drop_frame), encoded(text), struct):
            raise ValueError(f"not a timecode: {text!r}")
        return cls._of(struct)

    @classmethod
    def from_label(
        cls, label: Label, frequency: Frequency | Standard | str, *, drop_frame: bool | None = None
    ) -> Timecode:
        """From components, whose ranges are not checked: 75 minutes are multiplied in."""
        struct, at = ffi.new("kclip_timecode *"), _frequency(frequency)
        lib.kclip_timecode_from_label(at.number, _flag(at, drop_frame), ffi.new("kclip_label *", label), struct)
        return cls._of(struct)

    @classmethod
    def from_tc64(cls, unit: bytes, frequency: Frequency | Standard | str) -> Timecode | None:
        """From the first eight bytes of a unit of a timecode track; None for a unit without a timecode."""
        return cls._from_bytes(lib.kclip_timecode_from_tc64, unit, 8, frequency)

    @classmethod
    def from_sony(cls, binary: bytes, frequency: Frequency | Standard | str) -> Timecode | None:
        """From four bytes of plain binary hours, minutes, seconds and frames with flag bits; None for invalid ones."""
        return cls._from_bytes(lib.kclip_timecode_from_sony, binary, 4, frequency)

    @classmethod
    def _from_bytes(
        cls, function: Any, source: bytes, size: int, frequency: Frequency | Standard | str
    ) -> Timecode | None:
        if len(source) < size:
            raise ValueError(f"{size} bytes are needed, not {len(source)}")
        struct = ffi.new("kclip_timecode *")
        return cls._of(struct) if function(_frequency(frequency).number, source, struct) else None

    def to_tc64(self) -> bytes:
        """The first eight bytes of a unit of a timecode track: the time of day, without days."""
        return self._to_bytes(lib.kclip_timecode_to_tc64, 8)

    def to_sony(self) -> bytes:
        """Four bytes of plain binary hours, minutes, seconds and frames with flag bits; without days."""
        return self._to_bytes(lib.kclip_timecode_to_sony, 4)

    def _to_bytes(self, function: Any, size: int) -> bytes:
        buffer = ffi.new("char[]", size)
        function(self._struct, buffer)
        return bytes(ffi.buffer(buffer))

    @property
    def fields(self) -> int:
        """The count of fields."""
        return int(self._struct.fields)

    @property
    def frequency(self) -> Frequency:
        """Fields per second."""
        return Frequency._of(self._struct.frequency)

    @property
    def drop_frame(self) -> bool:
        """Whether labels count drop-frame."""
        return bool(self._struct.flag == lib.KCLIP_DF)

    @property
    def label(self) -> Label:
        """The components of the label."""
        label = ffi.new("kclip_label *")
        lib.kclip_timecode_to_label(self._struct, label)
        return Label(label.days, label.hours, label.minutes, label.seconds, label.frames, bool(label.field_2))

    def text(self, components: int = 4) -> str:
        """The label as text.

        Args:
            components: how many of frames, seconds, minutes, hours and days to show at least, 1 to 5.
        """
        return filled(lib.kclip_timecode_to_text, self._struct, components)

    def __str__(self) -> str:
        return self.text()

    def __repr__(self) -> str:
        counting = ", drop_frame=True" if self.drop_frame else ""
        return f"<Timecode {self} at {self.frequency}{counting}>"

    @property
    def fields_per_second(self) -> int:
        """Fields that a second of labels counts."""
        return int(lib.kclip_timecode_fields_per_second(self._struct.frequency, self._struct.flag))

    @property
    def fields_per_minute(self) -> int:
        """Fields of a minute; in drop-frame counting, of one that skips labels."""
        return int(lib.kclip_timecode_fields_per_minute(self._struct.frequency, self._struct.flag))

    @property
    def fields_per_10minutes(self) -> int:
        """Fields of ten minutes."""
        return int(lib.kclip_timecode_fields_per_10minutes(self._struct.frequency, self._struct.flag))

    @property
    def fields_per_hour(self) -> int:
        """Fields of an hour."""
        return int(lib.kclip_timecode_fields_per_hour(self._struct.frequency, self._struct.flag))

    @property
    def fields_per_day(self) -> int:
        """Fields of 24 hours."""
        return int(lib.kclip_timecode_fields_per_day(self._struct.frequency, self._struct.flag))

    def _changed(self, function: Any, *arguments: object) -> Timecode:
        struct = ffi.new("kclip_timecode *", self._struct[0])
        function(struct, *arguments)
        return Timecode._of(struct)

    def __add__(self, other: int | Timecode) -> Timecode:
        """Adds fields. The sum wraps at 32 bits; adding a negative number subtracts it."""
        fields = _fields(other)
        if fields is None:
            return NotImplemented
        if fields < 0:
            return self._changed(lib.kclip_timecode_decrease, -fields)
        return self._changed(lib.kclip_timecode_add, fields, False)

    __radd__ = __add__

    def __sub__(self, other: int | Timecode) -> Timecode:
        """Subtracts fields and stops at 0. `a.fields - b.fields` gives a difference with a sign."""
        fields = _fields(other)
        if fields is None:
            return NotImplemented
        if fields < 0:
            return self._changed(lib.kclip_timecode_add, -fields, False)
        return self._changed(lib.kclip_timecode_decrease, fields)

    def add24(self, other: int | Timecode) -> Timecode:
        """Adds fields round the clock: the result has no days. A negative number subtracts."""
        fields = _fields_or_fail(other)
        function = lib.kclip_timecode_add if fields >= 0 else lib.kclip_timecode_subtract
        return self._changed(function, abs(fields), True)

    def sub24(self, other: int | Timecode) -> Timecode:
        """Subtracts fields round the clock: what is less than midnight becomes the evening before."""
        return self.add24(-_fields_or_fail(other))

    def wrap24(self) -> Timecode:
        """The time of day, without days."""
        return self._changed(lib.kclip_timecode_wrap24)

    def with_fields(self, fields: int) -> Timecode:
        """Another count of the same frequency and counting."""
        return self._changed(lib.kclip_timecode_set_fields, fields)

    def with_drop_frame(self, drop_frame: bool) -> Timecode:
        """The same count with the other labels, where the frequency has drop-frame."""
        return self._changed(lib.kclip_timecode_set_flag, lib.KCLIP_DF if drop_frame else lib.KCLIP_NDF)

    def on_field(self, field_2: bool) -> Timecode:
        """Field 1 or 2 of the same frame."""
        return self._changed(lib.kclip_timecode_force_field, field_2)

    def day(self) -> Timecode:
        """24 hours at the same frequency and counting."""
        return self._changed(lib.kclip_timecode_become_a_day)

    def __eq__(self, other: object) -> bool:
        if not isinstance(other, Timecode):
            return NotImplemented
        return bool(lib.kclip_timecode_cmp(self._struct, other._struct) == 0)

    def __lt__(self, other: Timecode) -> bool:
        if not isinstance(other, Timecode):
            return NotImplemented
        return bool(lib.kclip_timecode_cmp(self._struct, other._struct) < 0)

    def __hash__(self) -> int:
        return hash(self.fields)

    def cmp24(self, other: Timecode) -> int:
        """-1, 0 or 1, round the clock: midnight comes one field after the last field of the day."""
        return int(lib.kclip_timecode_cmp24(self._struct, other._struct))

    def in_range(self, start: Timecode, length: Timecode) -> bool:
        """Whether start <= this < start + length."""
        return bool(lib.kclip_timecode_is_inrange(self._struct, start._struct, length._struct))

    def in_range24(self, start: Timecode, length: Timecode) -> bool:
        """The same round the clock: the range may pass midnight. False when this timecode has days."""
        return bool(lib.kclip_timecode_is_inrange24(self._struct, start._struct, length._struct))


def _frequency(of: Frequency | Standard | str) -> Frequency:
    if isinstance(of, str):
        return Frequency(of)
    return of.frequency if isinstance(of, Standard) else of


def _flag(frequency: Frequency, drop_frame: bool | None) -> int:
    if drop_frame is None:
        return int(lib.kclip_frequency_default_flag(frequency.number))
    return int(lib.kclip_frequency_flag_for(frequency.number, lib.KCLIP_DF if drop_frame else lib.KCLIP_NDF))


def _fields(of: int | Timecode) -> int | None:
    if isinstance(of, Timecode):
        return of.fields
    try:
        return operator.index(of)
    except TypeError:
        return None


def _fields_or_fail(of: int | Timecode) -> int:
    fields = _fields(of)
    if fields is None:
        raise TypeError(f"a number of fields or a Timecode is needed, not {of!r}")
    return fields
