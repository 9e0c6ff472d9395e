#include "essence_input.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "byte_source.h"
#include "command.h"
#include "failure.h"
#include "text.h"

namespace tool {

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Takes the digits at the front of a text, without the zeros before them.
std::string_view takeNumber(std::string_view& text) {
    std::size_t const end = std::min(text.size(), text.find_first_not_of("0123456789"));
    std::string_view const digits = text.substr(0, end);
    text.remove_prefix(end);
    return digits.substr(std::min(digits.size(), digits.find_first_not_of('0')));
}

// Whether a name comes before another one, numbers in them counted as such.
bool comesBefore(std::string const& one, std::string const& other) {
    std::string_view a = one, b = other;
    while (!a.empty() && !b.empty()) {
        if (isDigit(a.front()) && isDigit(b.front())) {
            std::string_view const x = takeNumber(a), y = takeNumber(b);
            if (x.size() != y.size()) return x.size() < y.size();
            if (x != y) return x < y;
        } else if (a.front() != b.front()) {
            return a.front() < b.front();
        } else {
            a.remove_prefix(1);
            b.remove_prefix(1);
        }
    }
    if (a.empty() != b.empty()) return a.empty();
    return one < other;  // numbers with and without zeros before them
}

std::string nameOf(std::filesystem::path const& path) {
    auto const text = path.u8string();
    return {text.begin(), text.end()};
}

// The files of a folder without the hidden ones.
std::vector<std::filesystem::path> filesIn(std::string const& folder) {
    std::error_code error;
    std::vector<std::pair<std::string, std::filesystem::path>> named;
    for (std::filesystem::directory_iterator entry(fsPath(folder), error), end; !error && entry != end;
         entry.increment(error)) {
        std::string name = nameOf(entry->path().filename());
        if (!name.starts_with('.')) named.emplace_back(std::move(name), entry->path());
    }
    if (error) throw Failure(FAILED, {folder}, error.message());
    std::ranges::sort(named, [](auto const& a, auto const& b) { return comesBefore(a.first, b.first); });
    std::vector<std::filesystem::path> files(named.size());
    std::ranges::transform(named, files.begin(), [](auto& entry) { return std::move(entry.second); });
    return files;
}

// Gives the bytes that were read already, then the others.
ByteSource withFirst(std::vector<std::byte> first, ByteSource rest) {
    return
        [first = std::move(first), given = std::size_t{0}, rest = std::move(rest)](std::span<std::byte> bytes) mutable {
            if (given == first.size()) return rest(bytes);
            std::size_t const part = std::min(bytes.size(), first.size() - given);
            std::copy_n(first.begin() + static_cast<std::ptrdiff_t>(given), part, bytes.begin());
            given += part;
            return part;
        };
}

std::vector<std::byte> readFirst(ByteSource const& source) {
    std::vector<std::byte> first(BYTES_TO_RECOGNISE);
    std::size_t got = 0;
    for (std::size_t part = 1; part != 0 && got < first.size(); got += part)
        part = source(std::span(first).subspan(got));
    first.resize(got);
    return first;
}

std::unique_ptr<UnitCutter> cutterFor(EssenceKind kind, ByteSource source, std::size_t dv_frame_bytes) {
    switch (kind) {
    case EssenceKind::avc:
        return cutAvc(std::move(source));
    case EssenceKind::dv:
        return cutDv(std::move(source), dv_frame_bytes);
    case EssenceKind::j2k:
        return cutJ2k(std::move(source));
    case EssenceKind::unknown:
        break;
    }
    return nullptr;
}

}  // namespace

EssenceInput::EssenceInput(std::string const& path, std::size_t frame_bytes)
    : given_path(path), dv_frame_bytes(frame_bytes) {
    std::error_code ignored;
    if (!isStandardInput()) {
        bool const folder = std::filesystem::is_directory(fsPath(path), ignored);
        files = folder ? filesIn(path) : std::vector{fsPath(path)};
        if (files.empty()) throw Failure(FAILED, {path}, "the folder holds no files");
        for (auto const& file : files)
            if (auto const size = std::filesystem::file_size(file, ignored); !ignored) total_bytes += size;
    }
    openNext();
}

void EssenceInput::openNext() {
    name = isStandardInput() ? given_path : nameOf(files[next_file]);
    ByteSource source = openBytes(name);
    bool const first_file = next_file++ == 0;
    auto first = readFirst(source);
    EssenceKind const kind = recogniseEssence(first);
    if (first.empty()) throw Failure(FAILED, {name}, "there is nothing in it");
    if (kind == EssenceKind::unknown)
        throw Failure(FAILED, {name},
                      "this is neither an H.264 byte stream nor raw DV nor a JPEG 2000 code stream; files with "
                      "containers around them have to be unpacked first");
    if (!first_file && kind != kind_seen) throw Failure(FAILED, {name}, "this is of another kind than the first file");
    kind_seen = kind;
    cutter = cutterFor(kind, withFirst(std::move(first), std::move(source)), dv_frame_bytes);
    try {
        PictureFacts const told = cutter->facts();
        if (first_file) facts_seen = told;
        if (told.width != facts_seen.width || told.lines != facts_seen.lines)
            throw Failure(FAILED, {name}, "its pictures have another size than those of the first file");
    } catch (EssenceFault const& fault) {
        throw Failure(FAILED, {name, std::nullopt, count}, fault.what());
    }
}

std::optional<std::uint64_t> EssenceInput::next(std::span<std::byte> unit) {
    for (;;) {
        try {
            if (auto const size = cutter->next(unit)) {
                ++count;
                return size;
            }
        } catch (EssenceFault const& fault) {
            throw Failure(FAILED, {name, std::nullopt, count}, fault.what());
        }
        if (next_file >= files.size()) return std::nullopt;
        openNext();
    }
}

}  // namespace tool
