// Scans files with libtavrik in C++: one scanner, two threads, the content read by a function of the program's own.
//
//     c++ -std=c++17 scan_file.cpp -o scan_file_cpp $(pkg-config --cflags --libs tavrik) -pthread
#include <cstdio>
#include <fstream>
#include <future>
#include <memory>
#include <tavrik/tavrik.hpp>
#include <vector>

namespace {

tavrik::Input OpenByFunction(const std::string &name) {
    auto file = std::make_shared<std::ifstream>(name, std::ios::binary | std::ios::ate);
    if (!*file)
        throw std::runtime_error(name + ": cannot be opened");
    const auto size = static_cast<uint64_t>(file->tellg());
    return {name, size, [file](uint64_t offset, void *buffer, std::size_t length) {
                file->seekg(static_cast<std::streamoff>(offset));
                file->read(static_cast<char *>(buffer), static_cast<std::streamsize>(length));
                return static_cast<std::size_t>(file->gcount());
            }};
}

} // namespace

int main(int argc, char **argv) try {
    const tavrik::Scanner scanner{tavrik::Module()};
    std::vector<std::future<tavrik::Report>> reports;
    for (const std::string &name : std::vector<std::string>(argv + 1, argv + argc))
        reports.push_back(
            std::async(std::launch::async, [&scanner, name] { return scanner.Scan(OpenByFunction(name)); }));
    for (auto &future : reports) {
        const tavrik::Report report = future.get();
        std::printf("%s\n", report.json.c_str());
    }
} catch (const std::exception &error) {
    std::fprintf(stderr, "scan_file_cpp: %s\n", error.what());
    return 2;
}
