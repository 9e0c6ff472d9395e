"""Reads and makes clip files by the format pages alone (docs/format.md, docs/standards.md), without the library.

The reader is the oracle of the program's tests; the maker writes what a recording leaves: whole, unfinished or damaged.
"""
import re
import struct

HEADER = 32768
BLOCK = 65536
RECORDS = 4095
GROW = 4096
SECTOR = 512
RUN_BLOCKS = [1, 3, 5, 9, 17, 33] + [65] * 8182

# name: (fields per second or None, stored bytes of a unit, fields per unit, bytes of a unit), at 1080i 50Hz
FORMATS = {
    "avci50-1080i": (282624, 2, 281088),
    "avci100-1080i": (569344, 2, 568832),
    "dv100-1080": (577536, 2, 576000),
    "jp2@25": (65536, 1, 65536),
    "auk2": (8192, 1, 8192),
    "auk4": (16384, 1, 16384),
    "auk": (32768, 1, 32768),
    "auk16": (65536, 1, 65536),
    "tc1": (512, 1, 512),
    "tc2": (4096, 1, 4096),
}


def be64(data, at):
    return struct.unpack_from(">Q", data, at)[0]


def element(text, name):
    """The text inside the first element of that name; None if there is none."""
    match = re.search(f"<{name}>(.*?)</{name}>", text, re.S)
    return match.group(1) if match else None


class Track:
    def __init__(self, clip, number, kind, start, length):
        self.clip, self.number, self.format = clip, number, kind
        self.start, self.partition = start, length
        self.stored_size, self.fields_per_unit, self.unit_size = FORMATS[kind]
        header = clip.logical(start, GROW)
        assert header[:8] == b"KLVNGROW", header[:8]
        self.length = be64(header, 8)

    @property
    def units(self):
        whole = self.length // self.stored_size
        if whole < 2:
            return whole
        head = min(self.clip.trim_start // self.fields_per_unit, whole - 2)
        tail = min(self.clip.trim_end // self.fields_per_unit, whole - head - 2)
        return whole - head - tail

    @property
    def head(self):
        whole = self.length // self.stored_size
        return min(self.clip.trim_start // self.fields_per_unit, whole - 2) if whole >= 2 else 0

    def position(self, unit):
        return self.start + GROW + (unit + self.head) * self.stored_size

    def unit(self, number):
        return self.clip.logical(self.position(number), self.stored_size)[: self.unit_size]

    def stored_bytes(self):
        return sum(length for _, length, _ in self.unit_extents())

    def unit_extents(self):
        """(logical start, length, byte of the clip file) of the track's extents, in logical order."""
        return [e for e in sorted(self.clip.extents) if self.start <= e[0] < self.start + self.partition]


class Clip:
    """A created clip: its tracks are grow containers in partitions of one sparse file in the clip file."""

    def __init__(self, path):
        with open(path, "rb") as file:
            self.data = file.read()
        end = self.data[:HEADER].index(b"</KelvonClipMeta1>")
        self.header = self.data[:end].decode()
        self.standard = element(self.header, "VideoStandard")
        self.trim_start = int(element(self.header, "TrimStart") or 0)
        self.trim_end = int(element(self.header, "TrimEnd") or 0)
        self.replay()
        self.tracks = []
        for text in re.findall("<TrackMeta>(.*?)</TrackMeta>", self.header, re.S):
            start, length = int(element(text, "Start")), int(element(text, "Length"))
            self.tracks.append(Track(self, len(self.tracks), element(text, "TrackType"), start, length))

    def replay(self):
        area = memoryview(self.data)[HEADER:]
        assert bytes(area[:8]) == b"KLVNPRS2"
        self.sparse_length = be64(area, 8)
        self.extents, self.blocks = [], []
        end = BLOCK
        for run, count in enumerate(RUN_BLOCKS):
            start = be64(area, 32 + 8 * run) * SECTOR
            if start == 0 or start != end or bytes(area[start : start + 8]) != b"KLVNPRS3":
                break
            end += count * BLOCK
            for index in range(count):
                at = start + index * BLOCK
                if bytes(area[at : at + 8]) != b"KLVNPRS3":
                    self.log_end = HEADER + end
                    return
                records = 0
                for k in range(RECORDS):
                    logical, length = be64(area, at + 16 + 16 * k), be64(area, at + 24 + 16 * k)
                    if length == 0:
                        break
                    self.extents.append((logical * SECTOR, length * SECTOR, HEADER + end))
                    end += length * SECTOR
                    records += 1
                self.blocks.append((HEADER + at, records))
        self.log_end = HEADER + end

    def logical(self, start, length):
        """Bytes of the sparse file; what is not stored reads as zeros."""
        result = bytearray(length)
        for logical, size, host in self.extents:
            first, last = max(start, logical), min(start + length, logical + size)
            if first < last:
                part = self.data[host + first - logical : host + last - logical]
                result[first - start : first - start + len(part)] = part
        return bytes(result)


def picture(seed, size):
    """An AVC access unit: a start code, a delimiter, and bytes without zeros to the end."""
    state = (seed * 2654435761 + 1) & 0xFFFFFFFF
    pattern = bytes(((state >> (i % 24)) + i * 7) & 0xFF | 1 for i in range(251))
    body = (pattern * (size // len(pattern) + 1))[: size - 6]
    return b"\0\0\0\1\x09\x10" + body


def sound(number, subchannels, first_word=1000, fade_in=False, samples=None):
    """A hemlock unit at 50Hz. `samples`: 960 for each subchannel."""
    unit = b""
    for i in range(subchannels):
        values = samples[i] if samples else [(number * 960 + k) * 65536 * (i + 1) % 2**31 for k in range(960)]
        word = (first_word + i * 0x01010101 + number) & 0xFFFFFFFF
        head = struct.pack("<IBBBBI20x", 0x7D3E9A51, 1 if fade_in else 0, 0, i, 1, word)
        unit += (head + struct.pack("<960i", *values)).ljust(4096, b"\0")
    return unit


def timecode(fields, size=4096):
    seconds, frames, second_field = fields // 50, fields % 50 // 2, fields % 2
    packed = [seconds // 3600 % 24 | second_field << 7, seconds // 60 % 60, seconds % 60, frames]
    nibbles = bytes(packed[i // 2] >> (4 * (i % 2)) & 15 for i in range(8))
    return nibbles.ljust(size, b"\0")


class Maker:
    """Makes a clip at 1080i 50Hz as a recording does: a record for every unit, in the order of `append`."""

    def __init__(self, formats, extra="", room=1000):
        self.plans, at = [], 0
        for kind in formats:
            size = FORMATS[kind][0]
            self.plans.append([kind, size, at, GROW + room * size, 0])
            at += GROW + room * size
        self.sparse_length = at
        self.extra = extra
        self.records, self.body = [], bytearray()
        for plan in self.plans:
            self._store(plan[2], bytes(GROW))

    def _store(self, logical, data):
        if len(self.records) == RECORDS:  # run 1: three blocks
            assert not hasattr(self, "run1")
            self.run1 = 2 * BLOCK + len(self.body)
            self.body += bytes(3 * BLOCK)
        self.records.append((logical, len(data)))
        self.body += data
        return HEADER + 2 * BLOCK + len(self.body) - len(data)

    def append(self, track, data):
        kind, size, start, _, units = self.plans[track]
        self.plans[track][4] += 1
        return self._store(start + GROW + units * size, data.ljust(size, b"\0"))

    def header(self):
        tracks = ""
        for kind, _, start, length, _ in self.plans:
            section = (f"<Partition><Start>{start}</Start><Length>{length}</Length>"
                       "<VFile><Sparse2><VFile><ThisFile/></VFile></Sparse2></VFile></Partition>")
            tracks += (f"<TrackMeta><TrackType>{kind}</TrackType>"
                       f"<VFile><Grow><MinLength>1</MinLength><VFile>{section}</VFile></Grow></VFile></TrackMeta>")
        extra = self.extra
        if "TimecodeSource" not in extra:
            extra += "<TimecodeSource>zerobased</TimecodeSource>"
        return ("<KelvonClipMeta1><VideoStandard>1080i 50Hz</VideoStandard>"
                "<UUID>{00112233-4455-6677-8899-AABBCCDDEEFF}</UUID>"
                "<ClipLastContentEdited>1700000000</ClipLastContentEdited>"
                "<ClipLastMetaEdited>1700000001</ClipLastMetaEdited>"
                f"<TrackMetaVector>{tracks}</TrackMetaVector>{extra}</KelvonClipMeta1>")

    def bytes(self, lengths=None, mapped=None):
        """The file. `lengths`: units that the grow headers claim; `mapped`: records that are on the disk."""
        body = bytearray(self.body)
        place, position = [], 0
        for index, (logical, length) in enumerate(self.records):
            if index == RECORDS:
                position += 3 * BLOCK
            place.append(position)
            position += length
        for index, plan in enumerate(self.plans):
            claimed = plan[4] if lengths is None else lengths[index]
            body[place[index] : place[index] + 16] = b"KLVNGROW" + struct.pack(">Q", claimed * plan[1])
        superblock = bytearray(BLOCK)
        superblock[:16] = b"KLVNPRS2" + struct.pack(">Q", self.sparse_length)
        superblock[32:40] = struct.pack(">Q", BLOCK // SECTOR)
        records = self.records[: len(self.records) if mapped is None else mapped]
        blocks = [records[:RECORDS], records[RECORDS:]]
        encoded = []
        for block in blocks:
            data = bytearray(b"KLVNPRS3".ljust(16, b"\0"))
            for logical, length in block:
                data += struct.pack(">QQ", logical // SECTOR, length // SECTOR)
            encoded.append(bytes(data.ljust(BLOCK, b"\0")))
        if blocks[1]:
            superblock[40:48] = struct.pack(">Q", self.run1 // SECTOR)
            at = self.run1 - 2 * BLOCK
            body[at : at + BLOCK] = encoded[1]
        return self.header().encode().ljust(HEADER, b" ") + bytes(superblock) + encoded[0] + bytes(body)

    def write(self, path, **options):
        with open(path, "wb") as file:
            file.write(self.bytes(**options))
        return path


def take(seconds_of_fields=8, first_timecode=1800000, extra=""):
    """The clip of most tests: video, audio of two subchannels and timecode; a frame at a time."""
    maker = Maker(["avci50-1080i", "auk2", "tc2"], extra=extra)
    for field in range(0, seconds_of_fields, 2):
        maker.append(0, picture(field, 281088))
        for part in (0, 1):
            maker.append(1, sound(field + part, 2, fade_in=field + part == 0))
            maker.append(2, timecode(first_timecode + field + part))
    return maker
