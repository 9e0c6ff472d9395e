#include "inspect/essence.h"

#include <kelvonclip/kelvon_timecode.h>

#include <algorithm>

#include "foundation/load_store.h"
#include "foundation/zeros.h"

namespace KelvonClip::inspect {

namespace {

std::uint8_t byteAt(UnitBytes unit, std::size_t at) { return std::to_integer<std::uint8_t>(unit[at]); }

// --- AVC: a byte stream of NAL units ---

// Types of NAL units with which a picture may begin: slices, SEI, parameter sets, access unit delimiter.
bool beginsPicture(std::uint8_t nal_header) {
    constexpr std::uint8_t FORBIDDEN = 0x80, TYPE = 0x1F;
    std::uint8_t const type = nal_header & TYPE;
    return (nal_header & FORBIDDEN) == 0 && (type == 1 || (type >= 5 && type <= 9));
}

bool isAvc(UnitBytes unit) {
    if (unit.size() < 8 || byteAt(unit, 0) != 0 || byteAt(unit, 1) != 0) return false;
    std::size_t const one_at = byteAt(unit, 2) == 0 ? 3 : 2;
    return byteAt(unit, one_at) == 1 && beginsPicture(byteAt(unit, one_at + 1));
}

// --- DV: DIF blocks of 80 bytes, 150 to a sequence ---

constexpr std::size_t DIF_BLOCK = 80, DIF_SEQUENCE = 150;

// The section type that block k of a sequence has: header, subcode, VAUX, then audio before each 15 of video.
constexpr std::uint8_t difSection(std::size_t k) {
    if (k == 0) return 0;
    if (k < 3) return 1;
    if (k < 6) return 2;
    return (k - 6) % 16 == 0 ? 3 : 4;
}

bool hasDifBlocks(UnitBytes unit, std::size_t count) {
    if (unit.size() < count * DIF_BLOCK) return false;
    for (std::size_t k = 0; k < count; ++k)
        if (byteAt(unit, k * DIF_BLOCK) >> 5 != difSection(k % DIF_SEQUENCE)) return false;
    return true;
}
constexpr std::size_t FIRST_DIF_BLOCKS = 8;  // one of each section at least

// --- J2K: SOC, then SIZ ---

bool isJ2k(UnitBytes unit) { return unit.size() >= 4 && loadBE64(unit.data()) >> 32 == 0xFF4FFF51; }

// --- Audio and timecode ---

constexpr std::size_t TIMECODE_BYTES = 8;

bool isTimecode(VideoFrequency frequency, UnitBytes unit) {
    return timecodeOf(frequency, unit) && isZero(unit.subspan(std::min(TIMECODE_BYTES, unit.size())));
}

}  // namespace

bool recognised(TrackFormat const& format, VideoFrequency frequency, UnitBytes unit) {
    switch (format.category) {
    case TrackCategory::audio:
        return readAudioUnit(format, frequency, unit).complete();
    case TrackCategory::timecode:
        return isTimecode(frequency, unit);
    case TrackCategory::video:
    case TrackCategory::key:
        break;
    case TrackCategory::none:
        return false;
    }
    switch (format.video_type) {
    case TrackVideoType::avc:
        return isAvc(unit);
    case TrackVideoType::dv:
        return hasDifBlocks(unit, FIRST_DIF_BLOCKS);
    case TrackVideoType::j2k:
        return isJ2k(unit);
    default:
        return false;
    }
}

std::uint32_t bytesToRecognise(TrackFormat const& format) {
    constexpr std::uint32_t ENOUGH = 1024;
    static_assert(ENOUGH >= FIRST_DIF_BLOCKS * DIF_BLOCK);
    bool const pictures = format.video_type != TrackVideoType::none;
    return pictures ? std::min(ENOUGH, format.stored_unit_size) : format.stored_unit_size;
}

// In an AVC byte stream three zeros are followed by more of them, by a start code or by nothing. DV says in each block
// what it is. A codestream of J2K has no page of zeros inside. Audio may be silent; a timecode is followed by zeros.
bool hasHole(TrackFormat const& format, UnitBytes unit) {
    if (format.video_type == TrackVideoType::none) return false;
    if (format.video_type == TrackVideoType::dv) return !hasDifBlocks(unit, format.unit_size / DIF_BLOCK);
    bool after_zeros = false;
    for (std::size_t at = 0; at < unit.size(); at += PAGE) {
        UnitBytes const page = unit.subspan(at, std::min(PAGE, unit.size() - at));
        if (isZero(page)) {
            after_zeros = true;
            continue;
        }
        auto const data = std::ranges::find_if(page, [](std::byte byte) { return byte != std::byte{0}; });
        bool const start_code = format.video_type == TrackVideoType::avc && *data == std::byte{1};
        if (after_zeros && !start_code) return true;
        after_zeros = false;
    }
    return false;
}

bool isWhole(TrackFormat const& format, UnitBytes unit, HostBefore before) {
    if (format.video_type == TrackVideoType::dv) return !hasHole(format, unit);
    bool const marked_to_the_end =
        format.category == TrackCategory::audio && format.stored_unit_size / format.subchannel_count <= PAGE;
    if (marked_to_the_end || unit.size() <= PAGE) return true;
    if (before == HostBefore::unknown) return false;
    // The bytes between the unit and its stored size are zeros in any case.
    UnitBytes const data = unit.first(std::min<std::size_t>(unit.size(), format.unit_size));
    for (std::size_t at = 0; at < data.size(); at += PAGE)
        if (isZero(data.subspan(at, std::min(PAGE, data.size() - at)))) return false;
    return true;
}

bool AudioUnit::complete() const {
    for (std::uint32_t i = 0; i < count; ++i)
        if (!blocks[i] || blocks[i]->block_byte != i) return false;
    return count != 0;
}

bool AudioUnit::startsRecording() const {
    if (!complete()) return false;
    return std::all_of(blocks.begin(), blocks.begin() + count,
                       [](auto const& block) { return block->fade_in && block->phase == 0; });
}

AudioUnit readAudioUnit(TrackFormat const& format, VideoFrequency frequency, UnitBytes unit) {
    AudioUnit read;
    hemlock::Cadence const& cadence = hemlock::cadenceOf(frequency);
    if (format.subchannel_count == 0 || format.subchannel_count > MOST_SUBCHANNELS) return read;
    std::size_t const block_size = format.stored_unit_size / format.subchannel_count;
    for (std::uint32_t i = 0; i < format.subchannel_count && (i + 1) * block_size <= unit.size(); ++i, ++read.count)
        read.blocks[i] = hemlock::readHeader(unit.data() + i * block_size, cadence);
    return read;
}

bool isNextBlock(hemlock::BlockHeader const& previous, hemlock::BlockHeader const& next, VideoFrequency frequency) {
    return next.block_word == previous.block_word + 1 &&
           next.phase == hemlock::cadenceOf(frequency).nextPhase(previous.phase);
}

std::optional<std::uint32_t> timecodeOf(VideoFrequency frequency, UnitBytes unit) {
    if (unit.size() < TIMECODE_BYTES) return std::nullopt;
    KTimecode const timecode = KTimecode::from_tc64(frequency, unit.data());
    return timecode.is_defined() ? std::optional(timecode.get_nfields()) : std::nullopt;
}

std::uint32_t nextTimecode(VideoFrequency frequency, UnitBytes unit, std::uint32_t count) {
    std::uint32_t const day = KTimecode::from_tc64(frequency, unit.data()).get_fields_per_day();
    return day != 0 && count + 1 == day ? 0 : count + 1;
}

}  // namespace KelvonClip::inspect
