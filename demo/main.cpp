// kelvonclip_demo record|play ESSENCE CLIPS EXTRACTED RESULTS: appends one line of figures for each clip to RESULTS.
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>

#include "demo.h"

int main(int argc, char** argv) {
    bool const recording = argc == 6 && std::strcmp(argv[1], "record") == 0;
    bool const playing = argc == 6 && std::strcmp(argv[1], "play") == 0;
    if (!recording && !playing) {
        std::fprintf(stderr, "usage: kelvonclip_demo record|play ESSENCE CLIPS EXTRACTED RESULTS\n");
        return 2;
    }
    std::filesystem::path const essence = argv[2], clips = argv[3], extracted = argv[4];
    std::ofstream results(argv[5], std::ios::app);
    for (auto const& clip : demo::CLIPS)
        try {
            auto const tally = recording ? record(clip, essence, clips) : play(clip, essence, clips, extracted);
            std::string standard;
            for (wchar_t const* unit = clip.standard; *unit != 0; ++unit)
                standard += static_cast<char>(*unit);
            results << argv[1] << '\t' << clip.name << '\t' << standard << '\t' << tally.tracks << '\t' << tally.units
                    << '\t' << tally.bytes << '\t' << tally.seconds << '\t' << tally.samples_compared << '\n';
        } catch (std::exception const& failure) {
            std::fprintf(stderr, "%s %s: %s\n", argv[1], clip.name, failure.what());
            return 1;
        }
    results.close();
    return results.fail() ? 1 : 0;
}
