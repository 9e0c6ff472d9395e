// A caller built with another compiler: clang compiles it as Microsoft's compiler would, and it is linked with the DLL
// by Microsoft's decorated names. It uses no C++ library.
#include "microsoft_caller.h"

#include <kelvonclip/c_api.h>
#include <kelvonclip/kelvonclip.h>

using namespace KelvonClip;

wchar_t const* microsoft_record(wchar_t const* name, void const* unit, unsigned int units) {
    unsigned int creation = 0, clip = 0;
    if (auto const* error = create_begin(name, toVideoStandard(L"1080i 59.94Hz"), &creation)) return error;
    if (auto const* error = cfg_track_count_audio(creation, 1)) return error;
    if (auto const* error = cfg_audio_hemlock(creation, 2)) return error;
    if (auto const* error = cfg_clip_timecode2(creation, 1234, true, false, true)) return error;
    if (auto const* error = create_finish(creation, &clip)) return error;
    unsigned int const track = clip_get_track(clip, 0);
    for (unsigned int number = 0; number < units; ++number)
        if (auto const* error = track_write(track, number, unit, track_unit_size(track))) return error;
    clip_close(clip);
    // A function with C linkage, by the same import library.
    return kclip_clip_track_count(clip) == 0 ? nullptr : L"the C interface finds a closed clip";
}

wchar_t const* microsoft_play(wchar_t const* name, void* unit, MicrosoftFindings* findings) {
    unsigned int clip = 0, reader = 0;
    if (auto const* error = clip_open(name, &clip)) return error;
    unsigned int const track = clip_get_track(clip, 0);
    VideoStandard const standard = clip_get_video_standard(clip);
    findings->units = track_length_in_units(track);
    findings->unit_size = track_unit_size(track);
    findings->fields_per_unit = track_fields_per_unit(track);
    findings->width = width(standard);
    findings->fields_per_hour = timecode_fields_per_hour(toVideoFrequency(standard), DropframeFlag::df);
    findings->frequencies = 0;
    VideoFrequency frequency;
    for (bool more = getfirst(frequency); more; more = getnext(frequency))
        ++findings->frequencies;
    if (auto const* error = clip_get_timecode(clip, &findings->timecode, &findings->drop_frame)) return error;
    findings->big_endian = fromBE::u32(static_cast<unsigned char>(1), static_cast<unsigned char>(2),
                                       static_cast<unsigned char>(3), static_cast<unsigned char>(4));
    if (auto const* error = seqread_begin(track, &reader)) return error;
    findings->samples = seqread_samples_remaining(reader);
    seqread_finish(reader);
    findings->edited = clip_get_last_content_edit(clip);
    findings->child = clip_get_is_child_clip(clip);
    findings->interlaced = isInterlaced(standard);
    findings->unknown_is_child = clip_get_is_child_clip(0);
    findings->standard = toString(standard);
    auto const* const error = track_read(track, findings->units - 1, unit);
    clip_close(clip);
    return error;
}
