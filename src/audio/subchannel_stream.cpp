#include "audio/subchannel_stream.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>

#include "audio/gain_tables.h"
#include "foundation/kassert.h"

namespace KelvonClip::hemlock {

namespace {

constexpr std::int64_t TENTHS = 10;
constexpr std::int64_t DRIFT_LIMIT = 2 * TENTHS;

// The division comes first (and rounds towards zero), so that the product fits into 32 bits.
void fade(std::span<std::int32_t> samples, std::int32_t const* gain) {
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = samples[i] / FULL_GAIN * gain[i];
}

}  // namespace

std::span<std::int32_t> fadeAndCorrect(DecodedBlock const& decoded, std::int64_t drift) {
    bool const join = decoded.invalid || decoded.header.fade_in;
    bool const repeat_first = join && drift <= -DRIFT_LIMIT;
    bool const drop_first = join && drift >= DRIFT_LIMIT;
    std::int32_t const first = decoded.samples.front();

    // In a block of fewer than 200 samples the fade-out is shortened to the samples after the fade-in. It uses the last
    // gains of the table, so it still ends at zero.
    std::size_t const head_end = std::min<std::size_t>(FADE_SAMPLES, decoded.samples.size());
    std::size_t const tail_size = std::min<std::size_t>(FADE_SAMPLES, decoded.samples.size() - head_end);
    // KEEP: without its first sample, a fade-in still starts with the first gain.
    auto const kept = decoded.samples.subspan(drop_first ? 1 : 0);
    auto const head = kept.first(head_end - (drop_first ? 1 : 0));
    auto const tail = kept.last(tail_size);
    if (!decoded.invalid && decoded.header.fade_in) fade(head, gains().in.data());
    if (!decoded.invalid && decoded.header.fade_out) fade(tail, gains().out.data() + (FADE_SAMPLES - tail_size));

    if (!repeat_first) return kept;
    // KEEP: the repeated sample comes first and is not faded. It overwrites the last word of the header.
    std::int32_t* const repeated = decoded.samples.data() - 1;
    *repeated = first;
    return {repeated, decoded.samples.size() + 1};
}

void SubchannelStream::restart(std::int64_t drift_in_tenths) {
    for (std::size_t i = front; i < buffered.size(); ++i)
        --*buffered[i].open_blocks;
    buffered.clear();
    front = 0;
    buffered_sample_count = 0;
    drift = drift_in_tenths;
    previous.reset();
    first_block = true;
}

// Removes used entries before the list would grow, so a stream that has run for a while allocates nothing.
void SubchannelStream::reserveBlock() {
    if (buffered.size() < buffered.capacity()) return;
    buffered.erase(buffered.begin(), buffered.begin() + static_cast<std::ptrdiff_t>(front));
    front = 0;
    if (buffered.size() == buffered.capacity()) buffered.reserve(std::max<std::size_t>(8, 2 * buffered.size()));
}

void SubchannelStream::feed(DecodedBlock const& decoded, std::uint32_t& open_blocks) {
    noteContinuity(decoded);
    auto const samples = fadeAndCorrect(decoded, drift);
    auto const count = static_cast<std::uint32_t>(samples.size());
    buffered.push_back({samples.data(), count, &open_blocks});
    ++open_blocks;
    buffered_sample_count += count;
    drift += count * TENTHS - cadence.samples_per_ten_units;
}

void SubchannelStream::noteContinuity(DecodedBlock const& decoded) {
    bool const goes_on = previous && !decoded.invalid && continues(*previous, decoded.header, cadence);
    if (!first_block && !goes_on) ++discontinuity_count;
    first_block = false;
    previous = decoded.invalid ? std::nullopt : std::optional(decoded.header);
}

bool SubchannelStream::take(std::int32_t* to, std::uint32_t num_samples) {
    if (!kassert(num_samples <= available(), "seq_read", __LINE__, "num_samples <= available_samples ()")) return false;
    if (!kassert(buffered_sample_count < UINT_MAX, "seq_read", __LINE__, "buffered_sample_count < UINT_MAX")) {
        return false;
    }
    while (num_samples > 0) {
        if (!kassert(front < buffered.size(), "seq_read", __LINE__, "!buffered_samples.empty ()")) break;
        Buffered& source = buffered[front];
        std::uint32_t const todo = std::min(num_samples, source.count);
        if (!kassert(todo <= source.count, "seq_read", __LINE__, "todo <= src.size ()")) break;
        if (to != nullptr) {
            std::memcpy(to, source.at, std::size_t{todo} * sizeof *to);
            to += todo;
        }
        source.at += todo;
        source.count -= todo;
        num_samples -= todo;
        buffered_sample_count -= todo;
        if (source.count > 0) continue;
        --*source.open_blocks;
        if (++front == buffered.size()) {
            buffered.clear();
            front = 0;
        }
    }
    return kassert(num_samples == 0, "seq_read", __LINE__, "num_samples == 0");
}

}  // namespace KelvonClip::hemlock
