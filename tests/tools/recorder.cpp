// A recording process for the tests of the program: does what the lines of standard input ask for, and answers each of
// them with "ok" or the library's message. It writes known units; follow_test.py makes the same ones.
//
//   create NAME    a clip at 1080i 50Hz: video, audio of two subchannels, timecode
//   open NAME      for writing
//   frames N       the next N frames: a unit of video, two of audio and two of timecode each
//   trim S E       hides fields at the start and at the end
//   share, checkpoint, close
#include <array>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <kelvonclip/c_api.h>

namespace {

using Message = char const*;

// Each page of 4096 bytes counts from another number.
std::vector<unsigned char> unitOf(std::uint32_t track, std::uint32_t unit, std::uint32_t size) {
    std::vector<unsigned char> bytes(size);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(unit * 7 + track * 101 + i + i / 4096 * 3);
    return bytes;
}

class Recorder {
  public:
    Message perform(std::string const& command, std::string const& argument) {
        if (command == "create") return create(argument.c_str());
        if (command == "open") return kclip_clip_open_rw(argument.c_str(), &clip);
        if (command == "share") return kclip_clip_share(clip);
        if (command == "checkpoint") return kclip_clip_checkpoint(clip);
        if (command == "close") return kclip_clip_close_checked(clip);
        if (command == "trim") return trim(argument);
        if (command == "frames") return frames(static_cast<std::uint32_t>(std::stoul(argument)));
        return "unknown command";
    }

  private:
    // Without automatic checkpoints: the tests ask for each one.
    Message create(char const* name) {
        std::uint32_t const standard = kclip_standard_from_text("1080i 50Hz");
        std::uint32_t creation = 0;
        for (Message const message :
             {kclip_create_begin(name, standard, &creation), kclip_cfg_track_count_video(creation, 1),
              kclip_cfg_video_avci(creation), kclip_cfg_track_count_audio(creation, 1),
              kclip_cfg_audio_hemlock(creation, 2), kclip_cfg_track_timecode(creation),
              kclip_create_finish(creation, &clip), kclip_clip_checkpoint_every(clip, 0, false)})
            if (message != nullptr) return message;
        return nullptr;
    }

    Message trim(std::string const& fields) const {
        std::uint32_t start = 0, end = 0;
        std::istringstream(fields) >> start >> end;
        return kclip_clip_set_trims(clip, start, end);
    }

    Message frames(std::uint32_t count) {
        constexpr std::array<std::uint32_t, 3> UNITS_PER_FRAME = {1, 2, 2};
        for (; count > 0; --count, ++frame)
            for (std::uint32_t index = 0; index < UNITS_PER_FRAME.size(); ++index)
                for (std::uint32_t part = 0; part < UNITS_PER_FRAME[index]; ++part) {
                    std::uint32_t const track = kclip_clip_get_track(clip, index);
                    std::uint32_t const unit = frame * UNITS_PER_FRAME[index] + part;
                    auto const bytes = unitOf(index, unit, kclip_track_unit_size(track));
                    Message const message =
                        kclip_track_write(track, unit, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
                    if (message != nullptr) return message;
                }
        return nullptr;
    }

    std::uint32_t clip = 0, frame = 0;
};

}  // namespace

int main() {
    Recorder recorder;
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream words(line);
        std::string command, argument;
        words >> command;
        std::getline(words >> std::ws, argument);
        Message const message = recorder.perform(command, argument);
        std::cout << (message == nullptr ? "ok" : message) << std::endl;
    }
}
