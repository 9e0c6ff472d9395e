// What a user's first program looks like: built against the installed package, not against this tree.
#include <kelvonclip/kelvonclip.h>

int main() {
    unsigned int clip = 0;
    wchar_t const* message = KelvonClip::clip_open(L"no such folder/no.clip", &clip);
    bool const refused = message != nullptr && clip == 0;
    bool const known = KelvonClip::toVideoStandard(L"1080i 50Hz") == KelvonClip::VideoStandard{20};
    return refused && known && fromBE::u16(0x12, 0x34) == 0x1234 ? 0 : 1;
}
