#include "store/journal.h"

#include <cstdint>
#include <system_error>

#include "base/error.h"
#include "store/layout.h"

namespace tavrik::store {

namespace {

// A place: the length of a path in two bytes, the lower first, and the path.
constexpr std::size_t kLengthBytes = 2;
constexpr std::size_t kPlaceBytes = 64u << 10; // no page is written by two threads
constexpr std::size_t kMostPlaces = 1024;      // more are not read

std::filesystem::path JournalOf(std::filesystem::path store) {
    return store += "-work";
}

} // namespace

std::vector<std::string> Journal::FilesInHand(const std::filesystem::path &store) {
    const std::filesystem::path path = JournalOf(store);
    std::error_code missing;
    if (!std::filesystem::exists(path, missing))
        return {};
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw base::Error(path, "cannot be read");
    std::vector<std::string> in_hand;
    std::string place(kPlaceBytes, '\0');
    for (std::size_t count = 0; count < kMostPlaces && file; ++count) {
        file.read(place.data(), static_cast<std::streamsize>(place.size()));
        const auto there = static_cast<std::size_t>(file.gcount());
        if (there < kLengthBytes)
            break;
        const std::size_t length = static_cast<uint8_t>(place[0]) | std::size_t{static_cast<uint8_t>(place[1])} << 8;
        if (length > 0 && length <= there - kLengthBytes)
            in_hand.push_back(place.substr(kLengthBytes, length));
    }
    return in_hand;
}

Journal::Journal(const std::filesystem::path &store, unsigned threads) : path_(JournalOf(store)), places_(threads) {
    std::error_code missing;
    std::filesystem::remove(path_, missing);
    for (std::fstream &place : places_) {
        const auto end = &place == &places_.front() ? std::ios::trunc : std::ios::openmode{};
        place.open(path_, std::ios::in | std::ios::out | std::ios::binary | end);
        if (!place)
            throw base::Error(path_, "cannot be written");
    }
}

Journal::~Journal() {
    places_.clear();
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
}

void Journal::Take(unsigned thread, std::string_view path) {
    if (path.size() > kPlaceBytes - kLengthBytes)
        path = "";
    std::string bytes = {static_cast<char>(path.size() & 0xFF), static_cast<char>(path.size() >> 8)};
    bytes += path;
    std::fstream &place = places_[thread];
    place.seekp(static_cast<std::streamoff>(thread * kPlaceBytes));
    place.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    place.flush();
    if (!place)
        throw base::Error(path_, "cannot be written");
}

} // namespace tavrik::store
