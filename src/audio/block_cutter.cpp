#include "audio/block_cutter.h"

#include <cstring>

#include "foundation/kassert.h"

namespace KelvonClip::hemlock {

std::uint32_t samplesInBlock(VideoFrequency frequency, std::uint8_t phase) {
    Cadence const& cadence = cadenceOf(frequency);
    kassert(cadence.rate_code != 0, "seq_write", __LINE__, "0");
    return cadence.sampleCount(phase);
}

BlockCutter::BlockCutter(VideoFrequency its_frequency, std::uint32_t subchannel, std::uint32_t first_block_word)
    : frequency(its_frequency), cadence(cadenceOf(its_frequency)), block_size(toAudioSize(its_frequency)),
      subchannel_index(subchannel), block_word(first_block_word) {}

bool BlockCutter::makeBlock(std::byte* to) {
    std::uint32_t const needed = samplesInBlock(frequency, phase);
    if (needed == 0 || queue.count() < needed) return false;
    writeHeader(to, cadence,
                {.fade_in = fade_in_pending,
                 .fade_out = fade_out_pending,
                 .phase = phase,
                 .block_byte = static_cast<std::uint8_t>(subchannel_index),
                 .block_word = block_word});
    std::size_t const samples_end = block::SAMPLES_AT + std::size_t{needed} * sizeof(std::int32_t);
    std::memcpy(to + block::SAMPLES_AT, queue.front(), samples_end - block::SAMPLES_AT);
    std::memset(to + samples_end, 0, block_size - samples_end);
    queue.drop(needed);
    fade_in_pending = fade_out_pending = false;
    phase = cadence.nextPhase(phase);
    ++block_word;
    return true;
}

void BlockCutter::closeLastBlock() {
    std::uint32_t const buf_count = queue.count();
    if (buf_count == 0) return;
    std::uint32_t const required_samples = samplesInBlock(frequency, phase);
    if (!kassert(buf_count < required_samples, "seq_write", __LINE__, "buf_count < required_samples")) return;
    queue.moveToFront();
    queue.reserve(required_samples - buf_count);
    queue.append(nullptr, required_samples - buf_count);
    fade_out_pending = true;
}

}  // namespace KelvonClip::hemlock
