#include "each_clip.h"

#include <algorithm>
#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "failure.h"
#include "host.h"

namespace tool {

int graver(int one, int other) {
    // From the lightest to the gravest.
    constexpr std::array ORDER = {FINE, REPAIRED, UNFINISHED, DIFFERS, DAMAGED, FAILED, USAGE, INTERRUPTED};
    auto const weight = [&](int code) { return std::ranges::find(ORDER, code); };
    return weight(one) < weight(other) ? other : one;
}

namespace {

Answer failed(Failure const& failure, std::string const& path) {
    Json error = {{"message", failure.reason}};
    if (failure.place.track) error["track"] = *failure.place.track;
    if (failure.place.unit) error["unit"] = *failure.place.unit;
    return {{{"path", path}, {"error", error}, {"text", failure.what()}}, failure.code};
}

Answer asked(std::function<Answer(std::string const&)> const& ask, std::string const& path) {
    try {
        stopIfInterrupted();
        return ask(path);
    } catch (Failure const& failure) {
        return failed(failure, path);
    } catch (std::bad_alloc const&) {
        return failed(Failure(FAILED, {path}, "out of memory"), path);
    } catch (std::exception const& fault) {
        return failed(Failure(FAILED, {path}, fault.what()), path);
    }
}

// Threads that ask the clips in order and run ahead of the printing by a few.
class Askers {
  public:
    Askers(std::vector<std::string> const& clips, std::size_t jobs,
           std::function<Answer(std::string const&)> const& ask)
        : paths(clips), ahead(jobs * 4), question(ask) {
        for (std::size_t i = 0; i < jobs; ++i)
            start();
    }
    Askers(Askers const&) = delete;
    Askers& operator=(Askers const&) = delete;
    ~Askers() {
        {
            std::lock_guard const guard(lock);
            next = paths.size();
        }
        changed.notify_all();
        for (auto& thread : threads)
            thread.join();
    }

    // The answer of clip `index`; called for 0, 1, 2 ...
    Answer answer(std::size_t index) {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return answers.contains(index) || interrupted; });
        if (interrupted) throw Interrupted();
        Answer taken = std::move(answers.extract(index).mapped());
        printed = index + 1;
        guard.unlock();
        changed.notify_all();
        return taken;
    }

  private:
    // A host that gives no more threads does not end the work.
    void start() {
        try {
            threads.emplace_back([this] { run(); });
        } catch (std::system_error const&) {
            if (threads.empty()) throw;
        }
    }
    void run() {
        std::unique_lock guard(lock);
        while (true) {
            changed.wait(guard, [&] { return next >= paths.size() || next < printed + ahead; });
            if (next >= paths.size()) return;
            std::size_t const mine = next++;
            guard.unlock();
            std::optional<Answer> got;
            try {
                got = asked(question, paths[mine]);
            } catch (Interrupted const&) {
            }
            guard.lock();
            if (got)
                answers.emplace(mine, std::move(*got));
            else
                interrupted = true;
            changed.notify_all();
        }
    }

    std::vector<std::string> const& paths;
    std::size_t const ahead;
    std::function<Answer(std::string const&)> const& question;
    std::mutex lock;
    std::condition_variable changed;
    std::map<std::size_t, Answer> answers;
    std::size_t next = 0, printed = 0;
    bool interrupted = false;
    std::vector<std::thread> threads;
};

}  // namespace

int forEachClip(std::string_view command, Arguments const& arguments, Console& console,
                std::function<Answer(std::string const& path)> const& ask,
                std::function<std::string(Json const& data, Console const& console)> const& show) {
    std::vector<std::string> const& paths = arguments.list("CLIP");
    constexpr std::uint64_t MOST_JOBS = 256;
    std::uint64_t const wanted =
        arguments.number("--jobs", MOST_JOBS).value_or(std::max(1u, std::thread::hardware_concurrency()));
    std::size_t const jobs = std::clamp<std::size_t>(static_cast<std::size_t>(wanted), 1, paths.size());
    std::optional<Askers> askers;
    if (jobs > 1) askers.emplace(paths, jobs, ask);

    int code = FINE;
    bool shown = false;
    if (console.json())
        console.print("{\n\"version\": " + std::to_string(JSON_VERSION) + ",\n\"command\": \"" + std::string(command) +
                      "\",\n\"clips\": [\n");
    for (std::size_t i = 0; i < paths.size(); ++i) {
        Answer answer = askers ? askers->answer(i) : asked(ask, paths[i]);
        code = graver(code, answer.code);
        bool const failure = answer.data.contains("error");
        if (failure) {
            console.error(answer.data["text"].get<std::string>());
            answer.data.erase("text");
        }
        if (console.json())
            console.print(dumped(answer.data) + (i + 1 < paths.size() ? ",\n" : "\n"));
        else if (std::string const text = failure ? "" : show(answer.data, console); !text.empty())
            console.print((std::exchange(shown, true) ? "\n" : "") + text);
    }
    if (console.json()) console.print("]\n}\n");
    return code;
}

}  // namespace tool
