// What a user's first program looks like: built against the installed package, not against this tree.
#include <kelvonclip/kelvonclip.h>

static_assert(KELVONCLIP_VERSION >= 1000, "the first version is 0.1.0");

int main() {
    unsigned int clip = 0;
    wchar_t const* message = KelvonClip::clip_open(L"no such folder/no.clip", &clip);
    bool const refused = message != nullptr && clip == 0;
    bool const known = KelvonClip::toVideoStandard(L"1080i 50Hz") == KelvonClip::VideoStandard{20};
    bool const same = KelvonClip::library_version() == KELVONCLIP_VERSION;
    return refused && known && same && fromBE::u16(0x12, 0x34) == 0x1234 ? 0 : 1;
}
