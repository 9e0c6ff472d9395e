// The functions of microsoft_caller.cpp, with types that have the same layout in all compilers.
#pragma once

extern "C" {

struct MicrosoftFindings {
    unsigned int units, unit_size, fields_per_unit, width, fields_per_hour, frequencies;
    unsigned int timecode, big_endian;
    unsigned long long samples, edited;
    bool child, interlaced, drop_frame, unknown_is_child;
    wchar_t const* standard;
};

// Creates a clip with one audio track of two subchannels and writes `units` units to it; null, or the library's
// message.
wchar_t const* microsoft_record(wchar_t const* name, void const* unit, unsigned int units);
// Opens the clip, calls functions with every kind of argument and result, reads the last unit and closes the clip.
wchar_t const* microsoft_play(wchar_t const* name, void* unit, MicrosoftFindings* findings);
}
