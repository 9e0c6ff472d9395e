// Callers built with Microsoft's compiler: every free function is exported under the name they use, and works.

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "public/public_support.h"
#include "public/windows/microsoft_caller.h"
#include "support/clip_image.h"
#include "support/scratch_path.h"

namespace KelvonClip {
namespace {

using namespace test;

// The export table of the DLL as it is loaded: names by offset of the function.
std::map<DWORD, std::set<std::string>> exportsOfTheDll() {
    auto* const base = reinterpret_cast<char*>(GetModuleHandleW(L"kelvonclip.dll"));
    auto const* const headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
    auto const* const table = reinterpret_cast<IMAGE_EXPORT_DIRECTORY*>(
        base + headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT].VirtualAddress);
    auto const* const names = reinterpret_cast<DWORD*>(base + table->AddressOfNames);
    auto const* const ordinals = reinterpret_cast<WORD*>(base + table->AddressOfNameOrdinals);
    auto const* const functions = reinterpret_cast<DWORD*>(base + table->AddressOfFunctions);
    std::map<DWORD, std::set<std::string>> exports;
    for (DWORD i = 0; i < table->NumberOfNames; ++i)
        exports[functions[ordinals[i]]].insert(base + names[i]);
    return exports;
}

bool isMicrosofts(std::string const& name) { return name.front() == '?'; }
bool isFreeFunction(std::string const& name) {
    for (char const* prefix : {"_ZN10KelvonClip", "_ZN6fromBE", "_ZN4toBE"})
        if (name.starts_with(prefix)) return !name.starts_with("_ZN10KelvonClip9KTimecode");
    return false;
}

// Functions with identical code may share an address, so this compares sums and not pairs.
TEST(MicrosoftNames, EveryFreeFunctionIsExportedUnderBothDecorations) {
    std::ptrdiff_t functions = 0, aliases = 0;
    for (auto const& [address, names] : exportsOfTheDll()) {
        auto const ours = std::count_if(names.begin(), names.end(), isFreeFunction);
        auto const microsofts = std::count_if(names.begin(), names.end(), isMicrosofts);
        EXPECT_EQ(ours, microsofts) << *names.begin();
        functions += ours;
        aliases += microsofts;
    }
    EXPECT_EQ(functions, aliases);
    EXPECT_GT(functions, 150);
}

TEST(MicrosoftNames, FunctionsOfTheCInterfaceAreUndecorated) {
    HMODULE const library = GetModuleHandleW(L"kelvonclip.dll");
    for (char const* name : {"kclip_clip_open", "kclip_track_read", "kclip_timecode_to_tc64", "kclip_from_be_u16"}) {
        EXPECT_NE(GetProcAddress(library, name), nullptr) << name;
        EXPECT_EQ(GetProcAddress(library, (std::string("_") + name).c_str()), nullptr) << name;
    }
}

TEST(MicrosoftNames, NameThatMicrosoftsCompilerIsKnownToGiveResolves) {
    HMODULE const library = GetModuleHandleW(L"kelvonclip.dll");
    struct {
        char const *microsofts, *ours;
    } const names[] = {
        {"?clip_open@KelvonClip@@YAPB_WPB_WPAI@Z", "_ZN10KelvonClip9clip_openEPKwPj"},
        {"?track_write@KelvonClip@@YAPB_WIIPBXI@Z", "_ZN10KelvonClip11track_writeEjjPKvj"},
        {"?clip_get_last_loaded@KelvonClip@@YA_KI@Z", "_ZN10KelvonClip20clip_get_last_loadedEj"},
        {"?isValid@KelvonClip@@YA_NW4VideoStandard@1@@Z", "_ZN10KelvonClip7isValidENS_13VideoStandardE"},
    };
    for (auto const& name : names) {
        EXPECT_NE(GetProcAddress(library, name.microsofts), nullptr) << name.microsofts;
        EXPECT_EQ(GetProcAddress(library, name.microsofts), GetProcAddress(library, name.ours)) << name.ours;
    }
}

TEST(MicrosoftCaller, RecordsAndPlaysAClip) {
    ScratchPath folder;
    auto const name = folder.name("clip");
    std::string const unit = patternBytes(8192, 3);
    ASSERT_OK(microsoft_record(name.c_str(), unit.data(), 7));

    std::string back(unit.size(), '\0');
    MicrosoftFindings found{};
    ASSERT_OK(microsoft_play(name.c_str(), back.data(), &found));
    EXPECT_EQ(back, unit);
    EXPECT_EQ(found.units, 7u);
    EXPECT_EQ(found.unit_size, 8192u);
    EXPECT_EQ(found.fields_per_unit, 1u);
    EXPECT_EQ(found.width, 1920u);
    EXPECT_EQ(found.fields_per_hour, 215784u);
    EXPECT_EQ(found.frequencies, 10u);
    EXPECT_EQ(found.timecode, 1234u);
    EXPECT_TRUE(found.drop_frame);
    EXPECT_EQ(found.big_endian, 0x01020304u);
    EXPECT_EQ(found.samples, 7u * 8008 / 10 + 1);
    EXPECT_LT(found.edited, static_cast<unsigned long long>(_time64(nullptr)) + 2);
    EXPECT_FALSE(found.child);
    EXPECT_TRUE(found.interlaced);
    EXPECT_TRUE(found.unknown_is_child);
    EXPECT_STREQ(found.standard, L"1080i 59.94Hz");
}

TEST(MicrosoftCaller, GetsTheSameTexts) {
    MicrosoftFindings found{};
    unsigned int clip = 0;
    EXPECT_EQ(microsoft_play(L"", nullptr, &found), clip_open(L"", &clip));
    EXPECT_SAYS(microsoft_play(L"", nullptr, &found), "Invalid filename");
}

}  // namespace
}  // namespace KelvonClip
