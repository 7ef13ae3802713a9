#include "scanner/carve.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "base/characters.h"
#include "base/error.h"
#include "base/sha256.h"
#include "base/text.h"

namespace tavrik::scanner {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBlockSize = 256 * 1024;

// File systems allow names of 255 bytes; the offset, a number and the extension need some of them.
constexpr std::size_t kLongestName = 200;

// Names that are tried before giving up.
constexpr unsigned kMostNames = 1'000'000;

struct FileCloser {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string SystemError() {
    return std::generic_category().message(errno);
}

// Creates the first file from `number` on whose name is free; `number` becomes its number and `name` its name.
File CreateFile(base::OutputFolder &folder, const std::string &beginning, const char *extension, unsigned &number,
                std::string &name) {
    for (; number <= kMostNames; ++number) {
        name = number == 1 ? fmt::format("{}.{}", beginning, extension)
                           : fmt::format("{}.{}.{}", beginning, number, extension);
        if (File file(folder.Create({&name, 1})); file != nullptr)
            return file;
        if (errno != EEXIST)
            throw base::Error(
                fmt::format("{} cannot be created: {}", base::PrintablePath(folder.PathOf({&name, 1})), SystemError()));
    }
    throw base::Error(fmt::format("{} has too many files called {}; name an empty folder",
                                  base::PrintablePath(folder.path()), base::Printable(beginning)));
}

// Copies the source and closes the file. Returns what failed; "" when nothing has.
std::string Copy(base::ByteSource &source, File to) {
    std::vector<uint8_t> block(kBlockSize);
    for (uint64_t offset = 0; offset < source.size();) {
        const std::size_t count = source.ReadAt(offset, block.data(), block.size());
        if (!source.error().empty())
            return source.error();
        if (count == 0)
            return "the file has become shorter";
        if (std::fwrite(block.data(), 1, count, to.get()) != count)
            return "cannot be written: " + SystemError();
        offset += count;
    }
    return std::fclose(to.release()) == 0 ? "" : "cannot be written: " + SystemError();
}

} // namespace

std::string SafeName(const fs::path &file) {
    std::string name = base::PrintablePath(file.filename());
    const auto is_unsafe = [](char byte) {
        return std::string_view("<>:\"/\\|?*").find(byte) != std::string_view::npos;
    };
    std::replace_if(name.begin(), name.end(), is_unsafe, '_');
    if (name.empty() || name.front() == '.' || name.front() == '-')
        name.insert(name.begin(), '_');
    if (name.size() > kLongestName) {
        // Not within a character.
        std::size_t end = kLongestName;
        while (end > 0 && base::IsUtf8Continuation(name[end]))
            --end;
        name.resize(end);
    }
    return name;
}

Carver::Carver(const fs::path &folder, const CarveSettings &settings) : folder_(folder), settings_(settings) {}

void Carver::Carve(base::ByteSource &source, const fs::path &file, Payload &payload) {
    const uint64_t to_end = source.size() - std::min(payload.offset, source.size());
    const bool is_exact = payload.extent && !settings_.with_tail;
    const uint64_t length = is_exact ? payload.extent->present : to_end;
    if (length > settings_.limit) {
        payload.not_carved = fmt::format("has {} bytes, more than the {} of --carve-limit", length, settings_.limit);
        return;
    }
    base::WindowSource bytes(source, payload.offset, length);
    const std::string sha256 = is_exact && !payload.sha256.empty() ? payload.sha256 : base::Sha256Of(bytes);
    if (const auto earlier = written_.find(sha256); earlier != written_.end()) {
        payload.carved = {earlier->second, length, sha256, false};
        return;
    }
    const std::string beginning = fmt::format("{}.0x{:x}", SafeName(file), payload.offset);
    const char *extension = payload.extent ? payloads::ExtensionOf(payload.extent->format) : "bin";
    const auto known = next_numbers_.find(beginning);
    unsigned number = known == next_numbers_.end() ? 1 : known->second;
    std::string name;
    File output = CreateFile(folder_, beginning, extension, number, name);
    if (number > 1)
        next_numbers_[beginning] = number + 1;
    const fs::path path = folder_.PathOf({&name, 1});
    const std::string failure = Copy(bytes, std::move(output));
    if (!failure.empty()) {
        folder_.Remove({&name, 1});
        throw base::Error(fmt::format("{}: {}", base::PrintablePath(path), failure));
    }
    payload.carved = {path, length, sha256, true};
    if (!sha256.empty())
        written_.emplace(sha256, path);
}

} // namespace tavrik::scanner
