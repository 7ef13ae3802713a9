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
#include "base/system.h"
#include "base/text.h"
#include "tavrik2/payload_locator.h"

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

// A RAR or cabinet archive is complete from its signature on, so archive tools open it; the others are parts of a
// program.
const char *ExtensionOf(uint32_t kind) {
    switch (kind) {
    case PAYLOAD_RAR:
        return "rar";
    case PAYLOAD_CABINET:
        return "cab";
    default:
        return "bin";
    }
}

std::string SystemError() {
    return std::generic_category().message(errno);
}

// Creates the first file from `number` on whose name is free; `number` becomes its number.
std::pair<File, fs::path> CreateFile(const fs::path &folder, const std::string &beginning, const char *extension,
                                     unsigned &number) {
    for (; number <= kMostNames; ++number) {
        fs::path path = folder / base::PathOf(number == 1 ? fmt::format("{}.{}", beginning, extension)
                                                          : fmt::format("{}.{}.{}", beginning, number, extension));
        if (File file(base::CreateNewFile(path)); file != nullptr)
            return {std::move(file), std::move(path)};
        if (errno != EEXIST)
            throw base::Error(fmt::format("{} cannot be created: {}", base::PrintablePath(path), SystemError()));
    }
    throw base::Error(fmt::format("{} has too many files called {}; name an empty folder", base::PrintablePath(folder),
                                  base::Printable(beginning)));
}

// Copies the source from `offset` to its end and closes the file. Returns what failed; "" when nothing has.
std::string Copy(base::ByteSource &source, uint64_t offset, File to) {
    std::vector<uint8_t> block(kBlockSize);
    while (offset < source.size()) {
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

Carver::Carver(fs::path folder) : folder_(std::move(folder)) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (!fs::is_directory(folder_, error))
        throw base::Error(fmt::format("payloads cannot be written to {}: {}; name a folder with --carve",
                                      base::PrintablePath(folder_), error ? error.message() : "it is not a folder"));
}

fs::path Carver::Carve(base::ByteSource &source, const fs::path &file, uint64_t offset, uint32_t kind) {
    const std::string beginning = fmt::format("{}.0x{:x}", SafeName(file), offset);
    const char *extension = ExtensionOf(kind);
    const auto known = next_numbers_.find(beginning);
    unsigned number = known == next_numbers_.end() ? 1 : known->second;
    auto [output, path] = CreateFile(folder_, beginning, extension, number);
    if (number > 1)
        next_numbers_[beginning] = number + 1;
    const std::string failure = Copy(source, offset, std::move(output));
    if (!failure.empty()) {
        std::error_code ignored;
        fs::remove(path, ignored);
        throw base::Error(fmt::format("{}: {}", base::PrintablePath(path), failure));
    }
    return path;
}

} // namespace tavrik::scanner
