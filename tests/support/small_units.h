// A clip with units and extents of 512 bytes, the smallest that the format has, for disks with larger sectors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <gtest/gtest.h>
#include <kelvonclip/kelvon_clip.h>
#include <kelvonclip/track.h>

#include "public/public_support.h"
#include "support/clip_image.h"
#include "support/recording_image.h"
#include "support/scratch_path.h"

namespace KelvonClip::test {

constexpr unsigned SMALL_UNIT = 512, SMALL_UNITS_THERE = 3;

// Writes the file of a clip with one track of such units, in turn with one of audio.
inline void writeClipOfSmallUnits(std::wstring const& name) {
    RecordingImage image({{"tc1", SMALL_UNIT}, {"auk2", 8192}});
    for (std::uint32_t unit = 0; unit < SMALL_UNITS_THERE; ++unit) {
        image.append(0, unit, timecodeUnit(SMALL_UNIT, unit));
        image.append(1, unit, hemlockUnit(2, 7, unit, unit == 0));
    }
    image.saveMap();
    for (std::size_t track : {0u, 1u})
        image.setLength(track, SMALL_UNITS_THERE);
    auto const bytes = image.file()->bytes(0, image.file()->realSize());
    writeFile(name, {reinterpret_cast<char const*>(bytes.data()), bytes.size()});
}

inline void expectSmallUnits(unsigned clip, unsigned units) {
    ASSERT_EQ(clip_track_count(clip), 2u);
    unsigned const track = clip_get_track(clip, 0);
    ASSERT_EQ(track_length_in_units(track), units);
    for (unsigned unit = 0; unit < units; ++unit) {
        std::string back(SMALL_UNIT, '\0');
        ASSERT_OK(track_read(track, unit, back.data()));
        std::string expected = patternBytes(SMALL_UNIT, unit);
        if (unit < SMALL_UNITS_THERE) {
            Bytes const there = timecodeUnit(SMALL_UNIT, unit);
            expected.assign(reinterpret_cast<char const*>(there.data()), there.size());
        }
        ASSERT_EQ(back, expected) << unit;
    }
}

// Goes on with such a recording, follows it, closes it and reads it back.
inline void recordAndFollowSmallUnits(ScratchPath const& folder) {
    constexpr unsigned FIRST_PART = 20, ALL = 41;
    auto const name = folder.name("clip"), other_spelling = folder.name("./clip");
    writeClipOfSmallUnits(name);
    unsigned writer = 0, reader = 0;
    ASSERT_OK(clip_open_rw(name.c_str(), &writer));
    ASSERT_OK(clip_open(other_spelling.c_str(), &reader));
    expectSmallUnits(reader, SMALL_UNITS_THERE);
    auto const append = [&](unsigned from, unsigned to) {
        for (unsigned unit = from; unit < to; ++unit) {
            ASSERT_OK(track_write(clip_get_track(writer, 0), unit, patternBytes(SMALL_UNIT, unit).data(), SMALL_UNIT));
            ASSERT_OK(track_write(clip_get_track(writer, 1), unit, patternBytes(8192, unit).data(), 8192));
        }
    };
    append(SMALL_UNITS_THERE, FIRST_PART);
    ASSERT_OK(clip_checkpoint(writer));
    ASSERT_OK(clip_refresh(reader));
    expectSmallUnits(reader, FIRST_PART);
    append(FIRST_PART, ALL);
    clip_close(writer);
    ASSERT_OK(clip_refresh(reader));
    expectSmallUnits(reader, ALL);
    clip_close(reader);
    ASSERT_OK(clip_open(name.c_str(), &reader));
    expectSmallUnits(reader, ALL);
    clip_close(reader);
}

}  // namespace KelvonClip::test
