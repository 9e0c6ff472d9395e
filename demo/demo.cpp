// kelvonclip_demo record|play ESSENCE CLIPS EXTRACTED RESULTS: appends one line of figures for each clip to RESULTS.
#include "demo.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace demo {

int run(std::vector<std::filesystem::path> const& arguments) {
    bool const recording = arguments.size() == 6 && arguments[1] == "record";
    bool const playing = arguments.size() == 6 && arguments[1] == "play";
    if (!recording && !playing) {
        std::fprintf(stderr, "usage: kelvonclip_demo record|play ESSENCE CLIPS EXTRACTED RESULTS\n");
        return 2;
    }
    auto const &essence = arguments[2], &clips = arguments[3], &extracted = arguments[4];
    std::string const what = recording ? "record" : "play";
    std::ofstream results(arguments[5], std::ios::app);
    for (auto const& clip : CLIPS)
        try {
            auto const tally = recording ? record(clip, essence, clips) : play(clip, essence, clips, extracted);
            std::string standard;
            for (wchar_t const* unit = clip.standard; *unit != 0; ++unit)
                standard += static_cast<char>(*unit);
            results << what << '\t' << clip.name << '\t' << standard << '\t' << tally.tracks << '\t' << tally.units
                    << '\t' << tally.bytes << '\t' << tally.seconds << '\t' << tally.samples_compared << '\n';
        } catch (std::exception const& failure) {
            std::fprintf(stderr, "%s %s: %s\n", what.c_str(), clip.name, failure.what());
            return 1;
        }
    results.close();
    return results.fail() ? 1 : 0;
}

}  // namespace demo
