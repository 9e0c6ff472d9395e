"""Video standards, frequencies and rasters, and the track formats that a standard has. All are values without state."""

from __future__ import annotations

import functools
from collections.abc import Iterator
from dataclasses import dataclass
from fractions import Fraction
from typing import Any, ClassVar, NamedTuple, TypeVar

from kelvonclip._native import ffi, lib
from kelvonclip._text import constant, encoded
from kelvonclip.enums import AudioType, AVCFlavor, Category, VideoType
from kelvonclip.errors import MessageKind, fail

Self = TypeVar("Self", bound="_Named")


class _Named:
    """A value that the library knows by number and by text."""

    _family: ClassVar[str]

    def __init__(self, text: str) -> None:
        number = int(self._call("from_text", encoded(text)))
        if number == 0:
            fail(MessageKind.INVALID_VIDEO_STANDARD, f"not a {self._family}: {text!r}")
        self.number = number

    @classmethod
    def _call(cls, name: str, *arguments: object) -> Any:
        return getattr(lib, f"kclip_{cls._family}_{name}")(*arguments)

    @classmethod
    def _of(cls: type[Self], number: int) -> Self:
        value = cls.__new__(cls)
        value.number = int(number)
        return value

    @classmethod
    def all(cls: type[Self]) -> Iterator[Self]:
        """All valid values, in the library's order."""
        number = ffi.new("uint32_t *")
        more = cls._call("first", number)
        while more:
            yield cls._of(number[0])
            more = cls._call("next", number)

    def __str__(self) -> str:
        return constant(self._call("to_text", self.number)) or "(invalid)"

    def __repr__(self) -> str:
        return f"{type(self).__name__}({str(self)!r})"

    def __eq__(self, other: object) -> bool:
        return isinstance(other, type(self)) and other.number == self.number

    def __hash__(self) -> int:
        return hash((self._family, self.number))


class Frequency(_Named):
    """Fields or pictures per second, such as `Frequency("59.94Hz")`."""

    _family = "frequency"

    @property
    def ratio(self) -> Fraction:
        """The exact rate."""
        numerator, denominator = ffi.new("uint32_t *"), ffi.new("uint32_t *")
        lib.kclip_frequency_ratio(self.number, numerator, denominator)
        return Fraction(numerator[0], denominator[0])

    @property
    def has_drop_frame(self) -> bool:
        """Whether timecode may count drop-frame."""
        return bool(lib.kclip_frequency_has_dropframe(self.number))

    @property
    def default_drop_frame(self) -> bool:
        """How timecode counts unless something else is asked for."""
        return bool(lib.kclip_frequency_default_flag(self.number) == lib.KCLIP_DF)

    @property
    def rough_fields_per_second(self) -> int:
        """The rate as a whole number, by which labels count."""
        return int(lib.kclip_frequency_rough_fields_per_second(self.number))

    @property
    def samples_per_unit(self) -> int:
        """The room that a unit of audio has, in samples for each subchannel."""
        return int(lib.kclip_frequency_audio_size(self.number))


class Raster(_Named):
    """Width, height and scan of pictures, such as `Raster("1080i")`."""

    _family = "resolution"

    @property
    def width(self) -> int:
        """Pixels in a line."""
        return int(lib.kclip_resolution_width(self.number))

    @property
    def frame_height(self) -> int:
        """Lines of a frame."""
        return int(lib.kclip_resolution_frame_height(self.number))

    @property
    def field_height(self) -> int:
        """Lines of a field."""
        return int(lib.kclip_resolution_field_height(self.number))

    @property
    def pixels_per_frame(self) -> int:
        """Width times the lines of a frame."""
        return int(lib.kclip_resolution_pixels_per_frame(self.number))

    @property
    def pixels_per_field(self) -> int:
        """Width times the lines of a field."""
        return int(lib.kclip_resolution_pixels_per_field(self.number))

    @property
    def is_interlaced(self) -> bool:
        """Whether a frame has two fields; the opposite of progressive."""
        return bool(lib.kclip_resolution_is_interlaced(self.number))

    @property
    def is_high_definition(self) -> bool:
        """Whether this is high definition."""
        return bool(lib.kclip_resolution_is_high_definition(self.number))

    @property
    def is_standard_definition(self) -> bool:
        """Whether this is standard definition."""
        return bool(lib.kclip_resolution_is_standard_definition(self.number))

    @property
    def top_field_is_f1(self) -> bool:
        """Whether the top line of a frame belongs to field 1."""
        return bool(lib.kclip_resolution_top_field_is_f1(self.number))


@dataclass(frozen=True)
class Format:
    """A track format at a video standard. What does not apply is 0 or `NONE`."""

    name: str
    category: Category
    video_type: VideoType
    audio_type: AudioType
    avc_flavor: AVCFlavor
    avc_class: int
    subchannels: int
    unit_size: int
    fields_per_unit: int
    luma_size: int
    chroma_size: int
    creatable: bool


class J2KLimits(NamedTuple):
    """The bytes that JPEG 2000 units may have at a standard."""

    luma_min: int
    luma_max: int
    chroma_min: int
    chroma_max: int
    video_min: int
    video_max: int
    key_min: int
    key_max: int


class Standard(_Named):
    """A video standard, such as `Standard("1080i 50Hz")`."""

    _family = "standard"

    @staticmethod
    def of(raster: Raster, frequency: Frequency) -> Standard | None:
        """The standard of a raster and a frequency, if there is one."""
        number = lib.kclip_standard_of(raster.number, frequency.number)
        return Standard._of(number) if lib.kclip_standard_is_valid(number) else None

    @property
    def frequency(self) -> Frequency:
        """Fields or pictures per second."""
        return Frequency._of(lib.kclip_standard_frequency(self.number))

    @property
    def raster(self) -> Raster:
        """Width, height and scan."""
        return Raster._of(lib.kclip_standard_resolution(self.number))

    def formats(self) -> tuple[Format, ...]:
        """The track formats that the standard has."""
        names: list[str] = []
        while (name := constant(lib.kclip_format_name(self.number, len(names)))) is not None:
            names.append(name)
        return tuple(self.format(name) for name in names)

    def format(self, name: str) -> Format:
        """The format of this name. KeyError if the standard has none."""
        info = ffi.new("kclip_format *")
        if not lib.kclip_format_info(self.number, encoded(name), info):
            raise KeyError(name)
        return Format(
            name,
            Category(info.category),
            VideoType(info.video_type),
            AudioType(info.audio_type),
            AVCFlavor(info.avc_flavor),
            info.avc_class,
            info.subchannels,
            info.unit_size,
            info.fields_per_unit,
            info.luma_size,
            info.chroma_size,
            bool(info.creatable),
        )

    def creates(self, video_type: VideoType) -> bool:
        """Whether `create` can make video and key tracks of this kind."""
        return bool(lib.kclip_format_video_creatable(self.number, video_type))

    @functools.cached_property
    def j2k_limits(self) -> J2KLimits:
        """The bytes that JPEG 2000 units may have."""
        return J2KLimits(
            *(
                int(getattr(lib, f"kclip_j2k_{part}_{limit}_size")(self.number))
                for part in ("video_luma", "video_chroma", "video", "key")
                for limit in ("min", "max")
            )
        )
