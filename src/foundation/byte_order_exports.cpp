// Emits the inline functions of the public header into the library, so that it exports them.
#include <cstdint>

#include <kelvonclip/byte_order.h>

namespace {

template <class Result, class... Pieces>
using Function = Result (*)(Pieces...);
using U8 = unsigned char;
using U16 = unsigned short;
using U32 = unsigned int;
using U64 = std::uint64_t;
using S8 = signed char;
using S16 = short;
using S32 = int;
using S64 = std::int64_t;

// The compiler emits every function whose address is stored here.
struct Emitted {
    Function<U8, U8> u8_of_1;
    Function<S8, S8> s8_of_1;
    Function<U16, U8, U8> u16_of_2;
    Function<U16, U16> u16_of_1;
    Function<S16, S8, S8> s16_of_2;
    Function<S16, S16> s16_of_1;
    Function<U32, U8, U8, U8, U8> u32_of_4;
    Function<U32, U16, U16> u32_of_2;
    Function<U32, U32> u32_of_1;
    Function<S32, S8, S8, S8, S8> s32_of_4;
    Function<S32, S16, S16> s32_of_2;
    Function<S32, S32> s32_of_1;
    Function<U64, U8, U8, U8, U8, U8, U8, U8, U8> u64_of_8;
    Function<U64, U16, U16, U16, U16> u64_of_4;
    Function<U64, U32, U32> u64_of_2;
    Function<U64, U64> u64_of_1;
    Function<S64, S8, S8, S8, S8, S8, S8, S8, S8> s64_of_8;
    Function<S64, S16, S16, S16, S16> s64_of_4;
    Function<S64, S32, S32> s64_of_2;
    Function<S64, S64> s64_of_1;
};

[[gnu::used]] constexpr Emitted FROM_BE = {fromBE::u8,  fromBE::s8,  fromBE::u16, fromBE::u16, fromBE::s16,
                                           fromBE::s16, fromBE::u32, fromBE::u32, fromBE::u32, fromBE::s32,
                                           fromBE::s32, fromBE::s32, fromBE::u64, fromBE::u64, fromBE::u64,
                                           fromBE::u64, fromBE::s64, fromBE::s64, fromBE::s64, fromBE::s64};
[[gnu::used]] constexpr Emitted TO_BE = {toBE::u8,  toBE::s8,  toBE::u16, toBE::u16, toBE::s16, toBE::s16, toBE::u32,
                                         toBE::u32, toBE::u32, toBE::s32, toBE::s32, toBE::s32, toBE::u64, toBE::u64,
                                         toBE::u64, toBE::u64, toBE::s64, toBE::s64, toBE::s64, toBE::s64};

}  // namespace
