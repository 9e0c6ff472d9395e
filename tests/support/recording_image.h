// Recordings made byte by byte, without the code under test: a clip file whose log, map and units a test writes itself,
// in any order and with anything missing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/clip_image.h"
#include "support/disk_image.h"
#include "support/memory_file.h"
#include "support/sanitizers.h"

namespace KelvonClip::test {

using Bytes = std::vector<std::byte>;

// Data without a zero byte, different for every seed.
KELVONCLIP_TEST_UNWATCHED inline void fillWithEssence(std::byte* bytes, std::size_t size, std::uint32_t seed) {
    std::uint32_t state = seed * 2654435761u + 12345;
    for (std::size_t at = 0; at < size; ++at) {
        state = state * 1664525u + 1013904223u;
        bytes[at] = static_cast<std::byte>((state >> 24) | 1);
    }
}
inline Bytes essenceBytes(std::size_t size, std::uint32_t seed) {
    Bytes bytes(size);
    fillWithEssence(bytes.data(), size, seed);
    return bytes;
}

// An access unit delimiter, then data to the end. Track and unit decide the data.
inline Bytes avcUnit(std::size_t size, std::uint32_t track, std::uint32_t unit) {
    Bytes bytes = essenceBytes(size, unit * 64 + track + 1);
    unsigned char const start[] = {0, 0, 0, 1, 9, 0x10};
    std::copy_n(reinterpret_cast<std::byte const*>(start), sizeof start, bytes.begin());
    return bytes;
}

// DIF blocks to the end, each with the type of its section: a header, two of subcode, three of VAUX, then one of audio
// before each 15 of video.
inline Bytes dvUnit(std::size_t size, std::uint32_t seed) {
    constexpr std::size_t BLOCK = 80, IN_SEQUENCE = 150;
    Bytes bytes = essenceBytes(size, seed + 77);
    for (std::size_t block = 0; block < size / BLOCK; ++block) {
        std::size_t const k = block % IN_SEQUENCE;
        unsigned const section = k == 0 ? 0 : k < 3 ? 1 : k < 6 ? 2 : (k - 6) % 16 == 0 ? 3 : 4;
        bytes[block * BLOCK] = static_cast<std::byte>(section << 5 | 0x1F);
    }
    return bytes;
}

// The markers SOC and SIZ, then data to the end.
inline Bytes j2kUnit(std::size_t size, std::uint32_t seed) {
    Bytes bytes = essenceBytes(size, seed + 99);
    unsigned char const start[] = {0xFF, 0x4F, 0xFF, 0x51};
    std::copy_n(reinterpret_cast<std::byte const*>(start), sizeof start, bytes.begin());
    return bytes;
}

// Hemlock blocks of 4096 bytes at 50Hz, whose words count on from `first_word` plus a step for each subchannel.
inline Bytes hemlockUnit(std::uint32_t subchannels, std::uint32_t first_word, std::uint32_t unit, bool fade_in) {
    constexpr std::size_t BLOCK = 4096, SAMPLES = 960;
    Bytes bytes(subchannels * BLOCK);
    for (std::uint32_t i = 0; i < subchannels; ++i) {
        std::byte* block = bytes.data() + i * BLOCK;
        std::uint32_t const word = first_word + i * 0x01010101u + unit;
        unsigned char const header[12] = {0x51,
                                          0x9A,
                                          0x3E,
                                          0x7D,
                                          static_cast<unsigned char>(fade_in ? 1 : 0),
                                          0,
                                          static_cast<unsigned char>(i),
                                          1,
                                          static_cast<unsigned char>(word),
                                          static_cast<unsigned char>(word >> 8),
                                          static_cast<unsigned char>(word >> 16),
                                          static_cast<unsigned char>(word >> 24)};
        std::copy_n(reinterpret_cast<std::byte const*>(header), sizeof header, block);
        Bytes const samples = essenceBytes(SAMPLES * 4, word);
        std::copy(samples.begin(), samples.end(), block + 32);
    }
    return bytes;
}

// The timecode of a field count at 50Hz, as the low halves of eight bytes.
inline Bytes timecodeUnit(std::size_t size, std::uint32_t fields) {
    std::uint32_t const seconds = fields / 50, frames = fields % 50 / 2, field2 = fields % 2;
    std::uint32_t const hours = seconds / 3600 % 24;
    std::uint32_t const packed[4] = {hours | field2 << 7, seconds / 60 % 60, seconds % 60, frames};
    Bytes bytes(size);
    for (std::size_t i = 0; i < 8; ++i)
        bytes[i] = static_cast<std::byte>(packed[i / 2] >> (4 * (i % 2)) & 15);
    return bytes;
}

// A clip at 1080i 50Hz with the layout of a created one. All positions are bytes of the clip file.
class RecordingImage {
  public:
    struct TrackPlan {
        std::string format;
        std::uint64_t unit_size;      // stored
        std::uint64_t room = 100000;  // units
    };
    static constexpr std::uint64_t AREA = 32768, BLOCK = 65536, RECORDS = 4095, GROW = 4096;

    explicit RecordingImage(std::vector<TrackPlan> planned, std::shared_ptr<MemoryFile> onto = nullptr)
        : disk(onto ? std::move(onto) : std::make_shared<MemoryFile>()), plans(std::move(planned)) {
        for (auto const& plan : plans) {
            partitions.push_back(sparse_length);
            sparse_length += GROW + plan.room * plan.unit_size;
        }
        putText(*disk, 0, headerArea(headerText()));
        Bytes const zeros(2 * BLOCK);
        disk->put(AREA, zeros.data(), zeros.size());
        putText(*disk, AREA, "KLVNPRS2");
        putBigEndian(*disk, AREA + 8, sparse_length);
        putBigEndian(*disk, AREA + 32, 128);
        blocks.push_back({BLOCK, {}});
        for (std::size_t t = 0; t < plans.size(); ++t) {
            std::uint64_t const at = allocate(partitions[t], GROW);
            Bytes header(GROW);
            disk->put(at, header.data(), header.size());
            putText(*disk, at, "KLVNGROW");
            grow_headers.push_back(at);
        }
        saveMap();
        freeze();
    }

    // Gives the unit its place in the log, as a writer does, and writes nothing into it.
    std::uint64_t reserve(std::size_t track, std::uint64_t unit) {
        return allocate(partitions[track] + GROW + unit * plans[track].unit_size, plans[track].unit_size);
    }
    // Gives the unit its place and writes it.
    std::uint64_t append(std::size_t track, std::uint64_t unit, Bytes const& bytes) {
        std::uint64_t const at = reserve(track, unit);
        Bytes padded = bytes;
        padded.resize(plans[track].unit_size);
        disk->put(at, padded.data(), padded.size());
        return at;
    }

    // Writes the map as it is now. `named`: with the runs in the superblock.
    void saveMap(bool named = true) {
        for (std::size_t n = 0; n < blocks.size(); ++n)
            saveBlock(n);
        if (named) nameRuns();
    }
    void saveBlock(std::size_t n) {
        std::uint64_t const at = AREA + blocks[n].host;
        Bytes const zeros(BLOCK);
        disk->put(at, zeros.data(), zeros.size());
        putText(*disk, at, "KLVNPRS3");
        for (std::size_t k = 0; k < blocks[n].records.size(); ++k) {
            putBigEndian(*disk, at + 16 + 16 * k, blocks[n].records[k].first / 512);
            putBigEndian(*disk, at + 24 + 16 * k, blocks[n].records[k].second / 512);
        }
    }
    void nameRuns() {
        for (std::size_t run = 0; run < runs.size(); ++run)
            putBigEndian(*disk, AREA + 32 + 8 * run, runs[run] / 512);
    }
    void setLength(std::size_t track, std::uint64_t units) {
        putBigEndian(*disk, grow_headers[track] + 8, units * plans[track].unit_size);
    }
    // What is recorded from here on begins new records, as after a checkpoint.
    void freeze() { frozen = true; }

    // Changes the time in the header at which the clip was created, in seconds since 1970.
    void setCreation(std::uint64_t seconds) {
        created = seconds;
        putText(*disk, 0, headerArea(headerText()));
    }

    // What a writer has on disk when it is killed without a checkpoint: a full block is written, and its follower's run
    // named, before the first record of the follower. Off: the superblock waits for the close, as other writers do it.
    bool names_runs_at_once = true;
    bool saves_full_blocks = true;

    // Where things are, for damage: the superblock, map block n, record k of it, the header of a track's length.
    std::uint64_t superblock() const { return AREA; }
    std::uint64_t block(std::size_t n) const { return AREA + blocks.at(n).host; }
    std::uint64_t record(std::size_t n, std::size_t k) const { return block(n) + 16 + 16 * k; }
    std::uint64_t growHeader(std::size_t track) const { return grow_headers.at(track); }
    std::uint64_t logEnd() const { return AREA + log_end; }
    std::uint64_t partition(std::size_t track) const { return partitions.at(track); }
    std::uint64_t sparseLength() const { return sparse_length; }
    std::shared_ptr<MemoryFile> file() const { return disk; }

    std::string headerText() const {
        std::string tracks;
        for (std::size_t t = 0; t < plans.size(); ++t)
            tracks += trackText(t);
        return clipHeaderText("1080i 50Hz", tracks,
                              element("UUID", "{00112233-4455-6677-8899-AABBCCDDEEFF}") +
                                  element("ClipLastContentEdited", std::to_string(created)) +
                                  element("ClipLastMetaEdited", "1") + element("TimecodeSource", "zerobased"));
    }
    std::string trackText(std::size_t t) const {
        std::string const sparse = element("VFile", element("Sparse2", element("VFile", "<ThisFile/>")));
        std::string const section =
            element("VFile",
                    element("Partition",
                            element("Start", std::to_string(partitions[t])) +
                                element("Length", std::to_string(GROW + plans[t].room * plans[t].unit_size)) + sparse));
        return trackMeta(plans[t].format, element("VFile", element("Grow", element("MinLength", "1") + section)));
    }

  private:
    struct Block {
        std::uint64_t host;
        std::vector<std::pair<std::uint64_t, std::uint64_t>> records;  // start and length, bytes
    };

    std::uint64_t allocate(std::uint64_t start, std::uint64_t length) {
        auto& last = blocks.back().records;
        if (!frozen && !last.empty() && last.back().first + last.back().second == start) {
            last.back().second += length;
        } else {
            if (last.size() == RECORDS) beginBlock();
            blocks.back().records.push_back({start, length});
            frozen = false;
        }
        log_end += length;
        return AREA + log_end - length;
    }
    void beginBlock() {
        if (saves_full_blocks) saveBlock(blocks.size() - 1);
        std::uint64_t in_run = blocks.size() - first_of_run;
        if (in_run == Sparse2Image::blocksInRun(runs.size() - 1)) {
            first_of_run = blocks.size();
            in_run = 0;
            runs.push_back(log_end);
            log_end += Sparse2Image::blocksInRun(runs.size() - 1) * BLOCK;
            if (names_runs_at_once) nameRuns();
        }
        blocks.push_back({runs.back() + in_run * BLOCK, {}});
        if (!names_runs_at_once) return;
        Bytes const zeros(BLOCK);
        disk->put(AREA + blocks.back().host, zeros.data(), zeros.size());
    }

    std::shared_ptr<MemoryFile> disk;
    std::vector<TrackPlan> plans;
    std::vector<std::uint64_t> partitions, grow_headers;
    std::uint64_t created = 1, sparse_length = 0, log_end = 2 * BLOCK;
    std::vector<Block> blocks;
    std::vector<std::uint64_t> runs{BLOCK};
    std::size_t first_of_run = 0;
    bool frozen = false;
};

}  // namespace KelvonClip::test
