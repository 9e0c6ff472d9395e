"""Makes raw pictures and sound as the standards describe them, a few bytes each: what `create` is fed with."""
import struct
import wave


class Bits:
    """Writes the bits of a NAL unit."""

    def __init__(self):
        self.text = ""

    def u(self, count, value):
        self.text += format(value, f"0{count}b")
        return self

    def ue(self, value):
        bits = format(value + 1, "b")
        self.text += "0" * (len(bits) - 1) + bits
        return self

    def bytes(self, stop=True):
        text = self.text + "1" if stop else self.text
        text += "0" * (-len(text) % 8)
        return bytes(int(text[i : i + 8], 2) for i in range(0, len(text), 8))


def nal(first, payload=b"", start=b"\0\0\0\1"):
    """A NAL unit with bytes that prevent start codes."""
    out, zeros = bytearray(), 0
    for byte in payload:
        if zeros >= 2 and byte <= 3:
            out.append(3)
            zeros = 0
        out.append(byte)
        zeros = zeros + 1 if byte == 0 else 0
    return start + bytes([first]) + bytes(out)


def sps(width=1920, lines=1080, interlaced=True, rate=(25, 1), number_bits=4, scaling=True):
    """A sequence parameter set as AVC-Intra has it: High 4:2:2 Intra, with scaling lists and a rate."""
    bits = Bits().u(8, 122).u(8, 16).u(8, 41).ue(0)
    bits.ue(2).ue(2).ue(2).u(1, 0)  # 4:2:2, 10 bits
    bits.u(1, int(scaling))
    if scaling:
        for size in [16] * 6 + [64] * 2:
            bits.u(1, 1)
            for i in range(size):
                bits.ue(4 if i == 0 else 0)  # -2, then 0
    bits.ue(number_bits - 4).ue(0).ue(0).ue(0).u(1, 0)
    unit = 32 if interlaced else 16
    rows = -(-lines // unit)
    bits.ue(-(-width // 16) - 1).ue(rows - 1).u(1, int(not interlaced))
    if interlaced:
        bits.u(1, 0)
    bits.u(1, 1)
    right, bottom = -width % 16 // 2, (rows * unit - lines) // (2 if interlaced else 1)
    bits.u(1, int(right + bottom > 0))
    if right or bottom:
        bits.ue(0).ue(right).ue(0).ue(bottom)
    bits.u(1, int(rate is not None))
    if rate:
        bits.u(1, 1).u(8, 255).u(16, 4).u(16, 3)  # aspect
        bits.u(1, 0).u(1, 1).u(3, 5).u(1, 0).u(1, 1).u(24, 0x010101).u(1, 0)
        bits.u(1, 1).u(32, rate[1]).u(32, 2 * rate[0]).u(1, 1)
        bits.u(1, 0).u(1, 0).u(1, 0).u(1, 0)
    return nal(0x67, bits.bytes())


def picture_slice(macroblock, field=None, interlaced=True, slice_type=7, number_bits=4, body=b"", start=b"\0\0\1"):
    bits = Bits().ue(macroblock).ue(slice_type).ue(0).u(number_bits, 0)
    if interlaced:
        bits.u(1, int(field is not None))
        if field is not None:
            bits.u(1, field)
    return nal(0x65, bits.bytes() + body, start)


def pattern(seed, size):
    """Bytes that look coded: zeros in pairs, but no start code, and none at the end."""
    state, out = seed * 2654435761 + 12345 & 0xFFFFFFFF, bytearray()
    while len(out) < size:
        state = (state * 1664525 + 1013904223) & 0xFFFFFFFF
        out += bytes([state >> 24 | 1, 0, 0, 4 + (state >> 16 & 0x7F)])
    return bytes(out[: size - 1]) + b"\x80"


DELIMITER = nal(9, b"\x10")
PPS = nal(0x68, b"\xee\x3c\x80")


def avc_unit(number, fields=False, size=3000, sets=True, padding=0, **sequence):
    """The access units of a frame: of one with two slices, or of two fields."""
    interlaced = sequence.get("interlaced", True)
    head = DELIMITER + (sps(**sequence) + PPS if sets else b"") + nal(6, b"\x05\x01\x00\x80")
    bits = sequence.get("number_bits", 4)
    unit = b""
    for field in (0, 1) if fields else (None,):
        unit += head if not field else DELIMITER
        for macroblock in (0, 120):
            unit += picture_slice(macroblock, field, interlaced, number_bits=bits,
                                  body=pattern(2 * number + (field or 0), size))
    return unit + bytes(padding)


def dv_frame(number, kind="dv50", fifty=True, source_pack=True):
    channels, source_type = {"dv25": (1, 0), "dv50": (2, 4), "dv100-1080": (4, 0x14), "dv100-720": (2, 0x18)}[kind]
    frame = bytearray()
    for channel in range(channels):
        for sequence in range(12 if fifty else 10):
            blocks = [(0, 0), (1, 0), (1, 1), (2, 0), (2, 1), (2, 2)]
            for group in range(9):
                blocks += [(3, group)] + [(4, 15 * group + i) for i in range(15)]
            for k, (section, index) in enumerate(blocks):
                block = bytearray(pattern(number * 31 + k, 80))
                block[:3] = section << 5 | 0x1F, sequence << 4 | (channel & 1) << 3 | 7, index
                if section == 0:
                    block[3] = 0xBF if fifty else 0x3F
                if section == 2:
                    block[3:78] = b"\xff" * 75
                    if source_pack and index == 2:
                        block[48:53] = bytes([0x60, 0xFF, 0xFF, 0xE0 | source_type, 0xFF])
                frame += block
    return bytes(frame)


def j2k_stream(number, width=720, lines=288, size=2000, parts=2, open_end=False):
    """A code stream of tile-parts; the last one may leave its length open. Its data holds what looks like markers."""
    siz = struct.pack(">HIIIIIIIIH", 0, width + 8, lines + 4, 8, 4, width, lines, 0, 0, 3) + b"\x09\1\1" * 3
    comment = b"\0\1" + b"\xff\xd9\xff\x4f"  # EOC and SOC, as text
    stream = b"\xff\x4f"
    for marker, content in ((0x51, siz), (0x52, bytes(10)), (0x5C, bytes(5)), (0x64, comment)):
        stream += b"\xff" + bytes([marker]) + struct.pack(">H", 2 + len(content)) + content
    for part in range(parts):
        last_open = open_end and part == parts - 1
        # with a known length anything may stand in the data
        body = b"\xff\x91\0\4\xff\xd9" + b"\xff\x8f" + pattern(number, size).replace(b"\xff", b"\x7f") + b"\xff\x92"
        if not last_open:
            body += b"\xff\xd9\xff\x4f"
        length = 0 if last_open else 12 + 8 + 2 + len(body)
        stream += struct.pack(">HHHIBB", 0xFF90, 10, 0, length, part, parts)
        stream += b"\xff\x64\0\6\0\1\xff\x93" + b"\xff\x93" + body
    return stream + b"\xff\xd9"


def wav(path, channels, bits=16, rate=48000):
    """`channels`: a list of samples for each."""
    with wave.open(path, "wb") as file:
        file.setnchannels(len(channels))
        file.setsampwidth(bits // 8)
        file.setframerate(rate)
        file.writeframes(b"".join((value & (1 << bits) - 1).to_bytes(bits // 8, "little")
                                  for frame in zip(*channels) for value in frame))
    return path


def tone(channel, count, bits=16):
    """Samples of which no two neighbours, and no two channels, are alike."""
    return [((i * 7919 + channel * 104729) % (1 << bits)) - (1 << bits - 1) for i in range(count)]
