#include "clip/unit_runs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "clip/clip_directory.h"
#include "clip/track.h"
#include "vfile/vfileobject.h"

namespace KelvonClip {

namespace {

// A run and its track, which stays open until the transfer is over.
struct CheckedRun {
    UnitRun run;
    FoundTrack found;
};

KString check(UnitRun const& run, FoundTrack const& found, Direction direction) {
    if (!found) return "Bad Handle";
    Track const& track = *found.track;
    if (direction == Direction::write && run.size > track.unitSize()) return "Buffer is too large";
    if (run.buffer == nullptr) return "Invalid argument (null pointer)";
    if (!track.format().valid) return "Read from invalid track";
    if (run.count > 1 && run.stride < track.unitSize()) return "Stride is too small";
    if (direction == Direction::write && run.count - 1 > std::numeric_limits<std::uint32_t>::max() - run.first)
        return "Too many units";
    return {};
}

// A part of a run that is one transfer.
struct Piece {
    std::size_t run;
    std::uint32_t offset, count;  // units of the run
    bool failed;
    KString error;  // empty for a lack of memory
};

// The completion object of one piece: keeps its message, then releases that of all pieces.
class PieceDone : public CIO::CIOObject {
  public:
    PieceDone(Piece& transferred, std::shared_ptr<CIO::CIOObject> all_pieces)
        : piece(transferred), all(std::move(all_pieces)) {}
    void complete() override {
        handErrorTo(*all);  // a lack of memory, which has no text, ends the whole call
        piece.failed = error() != nullptr;
        piece.error = takeError();
    }

  private:
    Piece& piece;
    std::shared_ptr<CIO::CIOObject> all;
};

// Several pieces are under way at once, but not so many that a long run takes all memory for the units that are copied.
constexpr std::uint64_t BYTES_UNDER_WAY = std::uint64_t{16} << 20;

class Transfer {
  public:
    Transfer(Direction which_way, std::vector<CheckedRun> checked_runs)
        : direction(which_way), runs(std::move(checked_runs)), units_done(runs.size()) {}

    // Returns the first message.
    KString run() {
        KString first_error;
        for (std::size_t index = 0; index < runs.size(); ++index) {
            auto const& [run, found] = runs[index];
            std::uint32_t const step = found.track->unitsPerRequest();
            for (std::uint32_t at = 0; at < run.count;) {
                std::uint32_t const count = std::min(step, run.count - at);
                std::uint64_t const bytes = std::uint64_t{count} * found.track->unitSize();
                if (bytes_in_batch > 0 && bytes_in_batch + bytes > BYTES_UNDER_WAY) runBatch(first_error);
                batch.push_back({index, at, count, false, {}});
                bytes_in_batch += bytes;
                at += count;
            }
        }
        runBatch(first_error);
        return first_error;
    }

    // For each run, from its first unit on.
    std::vector<std::uint32_t> const& unitsDone() const { return units_done; }

  private:
    void runBatch(KString& first_error) {
        CIO::runSync([&](std::shared_ptr<CIO::CIOObject> const& all) {
            for (Piece& piece : batch)
                start(piece, CIO::makeCompletion<PieceDone>(piece, all));
        });
        for (Piece const& piece : batch)
            if (piece.failed) {
                if (first_error.empty()) first_error = piece.error;
            } else if (units_done[piece.run] == piece.offset) {
                units_done[piece.run] += piece.count;
            }
        batch.clear();
        bytes_in_batch = 0;
    }

    void start(Piece const& piece, std::shared_ptr<CIO::CIOObject> const& done) {
        auto const& [run, found] = runs[piece.run];
        auto* const memory = static_cast<std::byte*>(run.buffer) + std::size_t{piece.offset} * run.stride;
        std::uint64_t const first = std::uint64_t{run.first} + piece.offset;
        // A unit number above 32 bits is past the end of every track; nothing is written there (check).
        auto const in_range = static_cast<std::uint32_t>(std::min(first, std::uint64_t{UINT32_MAX}));
        if (direction == Direction::write)
            found.track->writeUnits(in_range, piece.count, memory, run.stride, run.size, done);
        else
            found.track->readUnits(in_range, piece.count, memory, run.stride, done);
    }

    Direction const direction;
    std::vector<CheckedRun> const runs;
    std::vector<Piece> batch;
    std::uint64_t bytes_in_batch = 0;
    std::vector<std::uint32_t> units_done;
};

}  // namespace

KString transferUnitRuns(std::uint32_t clip_handle, char const* unknown, Direction direction,
                         std::span<UnitRun const> runs, unsigned int* units_done) {
    auto const entry = findClip(clip_handle);
    if (!entry) return unknown;
    if (runs.data() == nullptr && !runs.empty()) return "Invalid argument (null pointer)";
    if (direction == Direction::write)
        if (KString refused = refuseWrites(*entry); !refused.empty()) return refused;

    std::vector<CheckedRun> checked;
    for (UnitRun const& run : runs) {
        checked.push_back({run, {}});
        if (run.count == 0) continue;
        auto& found = checked.back().found;
        found = findTrack(run.track);
        if (found.entry != entry) found = {};
        if (KString error = check(run, found, direction); !error.empty()) return error;
    }
    std::erase_if(checked, [](CheckedRun const& each) { return each.run.count == 0; });

    if (units_done != nullptr) std::fill_n(units_done, runs.size(), 0);  // and so it stays if memory runs out
    Transfer transfer(direction, std::move(checked));
    KString error = transfer.run();
    if (units_done != nullptr) {
        auto done = transfer.unitsDone().begin();
        for (std::size_t i = 0; i < runs.size(); ++i)
            units_done[i] = runs[i].count == 0 ? 0 : *done++;
    }
    if (direction == Direction::write && error.empty()) makeDueCheckpoint(*entry);
    return error;
}

KString readUnitRun(UnitRun const& run) {
    std::vector<CheckedRun> checked{{run, findTrack(run.track)}};
    if (!checked.front().found) return "Bad Handle";
    if (run.count == 0) return {};
    if (KString error = check(run, checked.front().found, Direction::read); !error.empty()) return error;
    return Transfer(Direction::read, std::move(checked)).run();
}

}  // namespace KelvonClip
