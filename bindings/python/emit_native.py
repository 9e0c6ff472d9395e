"""Writes the C source of the extension module kelvonclip._native from the header of the C interface.

The header itself is the declaration: its comments and preprocessor lines are taken away, and what is left goes to cffi.
The C compiler then compares the module with the header once more, type by type.

usage: emit_native.py HEADER OUTPUT
"""

import re
import sys
from pathlib import Path

import cffi  # type: ignore[import]  # has no stubs


def declarations(header: str) -> str:
    """The declarations of the header as cffi reads them: plain C without comments and preprocessor lines."""
    header = re.sub(r"#ifdef __cplusplus\n.*?#endif\n", "", header, flags=re.DOTALL)
    header = re.sub(r"//.*|^#.*", "", header, flags=re.MULTILINE)
    return header.replace("KELVONCLIP_API ", "")


def main() -> None:
    header, output = sys.argv[1:]
    builder = cffi.FFI()
    builder.cdef(declarations(Path(header).read_text(encoding="utf-8")))
    builder.set_source("kelvonclip._native", "#include <kelvonclip/c_api.h>\n")
    builder.emit_c_code(output)


if __name__ == "__main__":
    main()
