/* A folder of a test's own, and files in it. */
#ifndef TAVRIK_TESTS_SUPPORT_FRESH_FOLDER_H
#define TAVRIK_TESTS_SUPPORT_FRESH_FOLDER_H

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

namespace tavrik::tests {

/** The bytes of a file, line ends as they are; "" when there is none. */
inline std::string ReadFile(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Writes a file, and the folders on the way to it. */
inline void Write(const std::filesystem::path &path, std::string_view bytes) {
    std::filesystem::create_directories(std::filesystem::absolute(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

inline void Write(const std::filesystem::path &path, std::span<const uint8_t> bytes) {
    Write(path, std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
}

/** A text as the bytes of a file; it must live as long. */
inline std::span<const uint8_t> BytesOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

/** An empty folder that is the current one while this lives. */
class FreshFolder {
public:
    FreshFolder() : before_(std::filesystem::current_path()) {
        for (int number = 0;
             !std::filesystem::create_directory(folder_ = before_ / ("test-" + std::to_string(number)));)
            ++number;
        std::filesystem::current_path(folder_);
    }
    ~FreshFolder() {
        std::filesystem::current_path(before_);
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    FreshFolder(const FreshFolder &) = delete;
    FreshFolder &operator=(const FreshFolder &) = delete;

private:
    std::filesystem::path before_;
    std::filesystem::path folder_;
};

} // namespace tavrik::tests

#endif
