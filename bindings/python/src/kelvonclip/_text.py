"""Text between Python and C, which has UTF-8."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from kelvonclip._native import ffi


def encoded(text: str) -> bytes:
    """The text for C. ValueError for a zero character, which would end it."""
    if "\0" in text:
        raise ValueError("text with a zero character")
    return text.encode("utf-8", "surrogateescape")


def constant(text: Any) -> str | None:
    """A text of the library; null is None."""
    return None if text == ffi.NULL else str(ffi.string(text).decode())


def filled(function: Callable[..., Any], *arguments: object) -> str:
    """The text that a C function writes to the caller's buffer. It may grow between two calls."""
    size = 256
    while True:
        buffer = ffi.new("char[]", size)
        length = int(function(*arguments, buffer, size))
        if length < size:
            return str(ffi.string(buffer).decode("utf-8", "surrogateescape"))
        size = length + 1
