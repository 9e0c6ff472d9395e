# The extension module of cffi. Its types are those of the C header, which no stub repeats.
from typing import Any

ffi: Any
lib: Any
