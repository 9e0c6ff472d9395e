// Whole clips through the exported interface: an arbitrary file is opened, queried, read, refreshed while it changes,
// and written.
//
// Input: whether to write (1 byte); the text of the header (two bytes with its length); the pieces of the file behind
// the header (the same; see container_fuzz.h); and the pieces that change before the refresh.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/seq_read.h>
#include <kelvonclip/seq_write.h>
#include <kelvonclip/track.h>
#include <unistd.h>

#include "container_fuzz.h"
#include "input.h"
#include "require.h"
#include "support/clip_image.h"
#include "support/linux/open_handles.h"
#include "support/scratch_path.h"

namespace {

using namespace KelvonClip;
using fuzz::require;

constexpr unsigned MOST_TRACKS = 5, LARGEST_UNIT = 8 << 20;
constexpr std::align_val_t ALIGNMENT{4096};

// In memory, because every run writes a file.
ScratchPath const& folder() {
    static ScratchPath const made(std::filesystem::is_directory("/dev/shm") ? "/dev/shm"
                                                                            : std::filesystem::temp_directory_path());
    return made;
}

char* unitMemory() {
    static auto* const memory = static_cast<char*>(::operator new(LARGEST_UNIT + 1, ALIGNMENT));
    return memory;
}

class File {
  public:
    explicit File(int flags) : descriptor(::open((folder().path / "clip").c_str(), flags | O_CLOEXEC, 0600)) {
        require(descriptor >= 0, "the file opens");
    }
    ~File() { ::close(descriptor); }
    File(File const&) = delete;
    File& operator=(File const&) = delete;

    void putPieces(std::span<std::uint8_t const> pieces) {
        std::uint64_t const end =
            fuzz::eachPiece(pieces.data(), pieces.size(), [&](std::uint64_t at, auto const* bytes, std::size_t length) {
                put(test::HEADER_AREA + at, bytes, length);
            });
        auto const size = static_cast<std::uint64_t>(::lseek(descriptor, 0, SEEK_END));
        std::uint64_t const rounded = (std::max(size, test::HEADER_AREA + end) + 511) / 512 * 512;
        require(::ftruncate(descriptor, static_cast<off_t>(rounded)) == 0, "the file gets its length");
    }
    void put(std::uint64_t at, void const* bytes, std::size_t length) {
        require(::pwrite(descriptor, bytes, length, static_cast<off_t>(at)) == static_cast<ssize_t>(length),
                "the file is written");
    }

  private:
    int const descriptor;
};

// Whether the header can name other files than the clip itself. They may be any of the host's: none of them is written.
bool mayNameOthers(std::string_view header) {
    constexpr std::string_view NAME = "FileName";
    for (std::size_t at = header.find(NAME); at != std::string_view::npos; at = header.find(NAME, at)) {
        at += NAME.size();
        if (header.substr(at, header.find('<', at) - at).find_first_of("/&") != std::string_view::npos) return true;
    }
    return false;
}

void readSound(unsigned track) {
    unsigned reader = 0;
    if (seqread_begin(track, &reader) != nullptr) return;
    unsigned const subchannels = seqread_subchannel_count(reader);
    require(subchannels > 0 && subchannels <= 16, "an audio track has subchannels");
    std::vector<std::vector<std::int32_t>> samples(subchannels, std::vector<std::int32_t>(4000));
    std::vector<std::int32_t*> buffers;
    for (auto& of_one : samples)
        buffers.push_back(of_one.data());
    for (unsigned n : {1u, 4000u, 0u, 4000u, 1999u})
        (void)seqread_read(reader, buffers.data(), n);
    (void)seqread_samples_remaining(reader);
    seqread_finish(reader);
}

void readTrack(unsigned track) {
    unsigned const units = track_length_in_units(track), size = track_unit_size(track);
    require(size <= LARGEST_UNIT, "no unit is larger than the largest format's");
    require(track_length_in_fields(track) >= units || track_fields_per_unit(track) == 0, "units cover fields");
    for (unsigned unit : {0u, 1u, units / 2, units - 1, units, ~0u}) {
        std::string const first = [&] {
            (void)track_read(track, unit, unitMemory());
            return std::string(unitMemory(), size);
        }();
        wchar_t const* const message = track_read(track, unit, unitMemory() + 1);
        if (message == nullptr && unit < units && track_read(track, unit, unitMemory()) == nullptr)
            require(std::equal(first.begin(), first.end(), unitMemory()), "a unit reads the same twice");
        unsigned timecode = 0;
        bool drop = false;
        (void)track_get_timecode(track, unit, &timecode, &drop);
        (void)track_valid_timecode(track, unit);
    }
    (void)track_j2k_video_luma_size(track);
    (void)track_j2k_video_chroma_size(track);
    (void)track_avc_class(track);
    readSound(track);
}

void query(unsigned clip) {
    unsigned timecode = 0;
    bool drop = false;
    (void)clip_get_timecode(clip, &timecode, &drop);
    (void)clip_timecode_valid(clip);
    (void)clip_get_is_child_clip(clip);
    (void)clip_get_last_played(clip);
    (void)clip_unreplayed_bytes(clip);
    (void)clip_get_length(clip);
}

void readAll(unsigned clip) {
    query(clip);
    for (unsigned index = 0; index < std::min(clip_track_count(clip), MOST_TRACKS); ++index)
        readTrack(clip_get_track(clip, index));
}

void writeSound(unsigned track) {
    unsigned writer = 0;
    if (seqwrite_begin(track, &writer) != nullptr) return;
    std::vector<std::int32_t> const samples(3000, 123456);
    std::vector<std::int32_t const*> const buffers(seqwrite_subchannel_count(writer), samples.data());
    (void)seqwrite_write(writer, buffers.data(), 3000);
    (void)seqwrite_finish(writer);
}

void writeTrack(unsigned track) {
    unsigned const units = track_length_in_units(track), size = track_unit_size(track);
    for (unsigned unit : {0u, units - 1, units, units + 1, units + 100})
        (void)track_write(track, unit, unitMemory(), unit % 2 == 0 ? size : size / 2);
    writeSound(track);
}

void writeAll(unsigned clip) {
    for (unsigned index = 0; index < std::min(clip_track_count(clip), MOST_TRACKS); ++index) {
        writeTrack(clip_get_track(clip, index));
        (void)clip_checkpoint(clip);
        (void)clip_checkpoint_every(clip, index, index % 2 == 0);
    }
}

void run(fuzz::Input& input) {
    bool const wants_to_write = input.byte() % 2 != 0;
    std::string const header = fuzz::text(input.part());
    {
        File file(O_RDWR | O_CREAT | O_TRUNC);
        std::string const area = test::headerArea(header);
        file.put(0, area.data(), area.size());
        file.putPieces(input.part());
    }
    std::wstring const name = folder().name("clip");
    unsigned clip = 0;
    bool const read_only = !wants_to_write || mayNameOthers(header);
    wchar_t const* const message = (read_only ? clip_open : clip_open_rw)(name.c_str(), &clip);
    require((message == nullptr) == (clip != 0), "a clip or a message");
    if (clip == 0) return;
    readAll(clip);
    if (!read_only) {
        writeAll(clip);
        readAll(clip);
        clip_close(clip);
        if (clip_open(name.c_str(), &clip) != nullptr) return;  // a track may lie over the header
    }
    File(O_RDWR).putPieces(input.rest());
    (void)clip_refresh(clip);
    readAll(clip);
    clip_close(clip);
    require(clip_track_count(clip) == 0, "a closed clip is unknown");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static std::size_t open_before = 0;
    fuzz::Input input(data, size);
    run(input);
    // What threads keep for good is there after the first run.
    std::size_t const open_now = test::openHandles();
    if (open_before == 0) open_before = open_now + 64;
    require(open_now <= open_before, "no descriptor is left open");
    return 0;
}
