// A host of the module in C++: the same as module_host.c with a stream over a buffer in memory.
//
//     ./module_host_cpp MODULE_FOLDER FILE
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "pe_records.h"

namespace {

/** A stream over bytes in memory. Nothing thrown may cross the module, so the operations do not throw. */
class MemoryStream {
public:
    explicit MemoryStream(const std::vector<char> &bytes) : bytes_(bytes) {}
    FileStream *stream() { return &object_.stream; }

private:
    struct Object {
        FileStream stream; // what the module gets a pointer to
        MemoryStream *self;
    };

    static MemoryStream &Self(FileStream *stream) { return *reinterpret_cast<Object *>(stream)->self; }
    static uint32_t Open(FileStream *, const void *, uint32_t, uint32_t) { return 1; }
    static uint32_t Close(FileStream *, uint32_t) { return 0; }
    static uint32_t Seek(FileStream *stream, uint32_t, uint32_t offset, uint32_t) {
        return Self(stream).position_ = offset;
    }
    static uint32_t Tell(FileStream *stream, uint32_t) { return Self(stream).position_; }
    static uint32_t Read(FileStream *stream, uint32_t, void *buffer, uint32_t length) {
        MemoryStream &self = Self(stream);
        if (self.position_ >= self.bytes_.size())
            return 0;
        const auto count = static_cast<uint32_t>(std::min<std::size_t>(length, self.bytes_.size() - self.position_));
        std::memcpy(buffer, self.bytes_.data() + self.position_, count);
        self.position_ += count;
        return count;
    }

    static constexpr FileStreamOperations kOperations = {nullptr, Open, Seek, Read, nullptr, nullptr, Close, Tell};
    const std::vector<char> &bytes_;
    uint32_t position_ = 0;
    Object object_ = {{&kOperations}, this};
};

/** The loaded and initialised module. */
class Module {
public:
    explicit Module(const std::string &folder) : library_(dlopen((folder + "/tavrik2.hbx").c_str(), RTLD_NOW)) {
        if (library_ == nullptr)
            throw std::runtime_error(dlerror());
        services_.Service114 = [] { return uint32_t{0}; };
        services_.CreateLock = [](void **slot, uint8_t, uint32_t) {
            *slot = nullptr; // the module only hands it back
            return uint32_t{1};
        };
        services_.DestroyLock = [](void *) {};
        HostConfig config = {};
        config.services = &services_;
        if (folder.size() >= sizeof config.decoder_directory)
            throw std::runtime_error(folder + ": too long a path");
        folder.copy(config.decoder_directory, folder.size());
        const GetInterface no_interfaces = [](uint32_t, uint32_t) { return static_cast<void *>(nullptr); };
        if (Find<YNLibInitFunction>("YNLibInit")(nullptr, &config, no_interfaces, nullptr) == 0)
            throw std::runtime_error(folder + ": the module cannot be initialised; is disasm.hbx there?");
    }
    ~Module() {
        Find<YNLibDeinitFunction>("YNLibDeinit")();
        dlclose(library_);
    }
    Module(const Module &) = delete;
    Module &operator=(const Module &) = delete;

    template <typename Function>
    Function Find(const char *name) const {
        void *address = dlsym(library_, name);
        if (address == nullptr)
            throw std::runtime_error(std::string(name) + " is missing");
        return reinterpret_cast<Function>(address);
    }

private:
    void *library_;
    HostServices services_ = {};
};

void Run(const std::string &folder, const std::string &name) {
    const Module module(folder);
    Records records;
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(name.c_str(), "rb"), std::fclose);
    if (file == nullptr || ReadRecords(file.get(), &records) == 0)
        throw std::runtime_error(name + ": is no PE file below 2 GiB");
    std::ifstream input(name, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());

    const LocatorTableEntry *table = nullptr;
    uint32_t count = 0;
    module.Find<HeurGetLocatorTableFunction>("HeurGetLocatorTable")(&table, &count);
    for (uint32_t entry = 0; entry < count; ++entry)
        for (uint32_t candidate = 0; candidate < records.first_section_count; ++candidate) {
            MemoryStream stream(bytes);
            LocatorResult result;
            const PayloadLocator locator = table[entry].locator;
            if (locator(stream.stream(), 1, records.file_size, records.data_dirs, &records.file_header,
                        &records.opt_header, &records.first_sections[candidate], &records.last_section,
                        records.entry_code, &result) != 0)
                std::printf("%s: entry %u, kind %u, offset 0x%x, size %u\n", name.c_str(), entry, unsigned{result.kind},
                            unsigned{result.offset}, unsigned{result.size});
        }

    MemoryStream stream(bytes);
    CleanContext context = {};
    context.stream = stream.stream();
    uint32_t action = CLEAN_ACTION_NONE;
    const uint32_t applies = module.Find<HeurCleanFunction>("HeurClean")(name.c_str(), &context, nullptr, nullptr, 7422,
                                                                         0, 173, &action, nullptr);
    std::printf("%s: rule 173: applies %u, action %u\n", name.c_str(), applies, action);
}

} // namespace

int main(int argc, char **argv) try {
    if (argc != 3)
        throw std::runtime_error("usage: module_host_cpp MODULE_FOLDER FILE");
    Run(argv[1], argv[2]);
} catch (const std::exception &error) {
    std::fprintf(stderr, "module_host_cpp: %s\n", error.what());
    return 2;
}
