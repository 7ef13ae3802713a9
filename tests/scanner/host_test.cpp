// The host's library with the real tavrik2.hbx: the sample set by way of files, the PE parser and the streams on bad
// input. The samples are made here, so that every build, also that for Windows, is checked against the same planned
// findings.
#include <algorithm>
#include <cstring>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "pe/builder/builder.h"
#include "samples/samples.h"
#include "scanner/explain.h"
#include "scanner/gate_tree.h"
#include "scanner/locator_info.h"
#include "scanner/module_stream.h"
#include "scanner/scan.h"
#include "tavrik2/locators/locators.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {

void PrintTo(const scanner::Finding &finding, std::ostream *out) {
    *out << "entry " << finding.entry << " kind " << finding.kind << " at " << finding.offset << " size "
         << finding.size;
}

namespace {

using base::Bytes;
using samples::MakeSample;
using samples::Sample;
using samples::SampleCount;
using tavrik2::LoadU32;
using tests::FreshFolder;

scanner::PeResult Parse(base::ByteSource &source) {
    base::FileBytes bytes(source);
    return scanner::MakeHostRecords(pe::Image(bytes), source);
}

scanner::PeResult Parse(const Bytes &bytes) {
    base::MemorySource source(bytes);
    return Parse(source);
}

// ---- The sample set ------------------------------------------------------------------------------------------------

// Other entries may know the same program, but what they report is the same payload.
TEST(Samples, GiveTheirPlannedFinding) {
    const scanner::Scanner scanner(std::make_shared<const scanner::Module>());
    const FreshFolder folder;
    for (std::size_t index = 0; index < SampleCount(); ++index) {
        const Sample sample = MakeSample(index);
        SCOPED_TRACE(sample.file_name);
        Write(sample.file_name, sample.bytes);
        const scanner::FileReport report = scanner.Scan(sample.file_name);
        std::filesystem::remove(sample.file_name);
        EXPECT_EQ(report.status, scanner::ScanStatus::Scanned) << report.error;
        if (!sample.finding) {
            EXPECT_EQ(report.findings, std::vector<scanner::Finding>{});
            continue;
        }
        const LocatorResult planned = *sample.finding;
        EXPECT_EQ(std::count(report.findings.begin(), report.findings.end(),
                             scanner::Finding{*sample.entry, planned.kind, planned.offset, planned.size}),
                  1);
        for (const scanner::Finding &finding : report.findings)
            EXPECT_TRUE(finding.kind == planned.kind && finding.offset == planned.offset)
                << testing::PrintToString(finding);
    }
}

TEST(Samples, AreExplained) {
    const std::map<std::string, std::string> failing = {{"near-miss-nullsoft.exe", "Subsystem"},
                                                        {"near-miss-autoit.exe", "AddressOfEntryPoint"},
                                                        {"near-miss-cabinet.exe", "MajorImageVersion"},
                                                        {"near-miss-rar.exe", "AddressOfEntryPoint"}};
    const scanner::Module module;
    std::size_t near_misses = 0;
    for (std::size_t index = 0; index < SampleCount(); ++index) {
        const Sample sample = MakeSample(index);
        if (!sample.entry)
            continue;
        SCOPED_TRACE(sample.file_name);
        base::MemorySource source(sample.bytes);
        const scanner::Explanation explanation = scanner::Explain(module, *sample.entry, source, Parse(source).records);
        EXPECT_EQ(explanation.found, sample.finding.has_value());
        if (sample.finding)
            continue;
        ++near_misses;
        // The first failure shown is the one that was made; the others are those of less similar alternatives.
        const std::string failed = explanation.text.substr(explanation.text.find("\nFAIL"));
        EXPECT_EQ(failed.find(failing.at(sample.file_name)), failed.find_first_not_of(' ', 5)) << explanation.text;
    }
    EXPECT_EQ(near_misses, failing.size());
}

// The rows as a tree of alternatives must give the results of the rows.
TEST(Explain, JudgesAsTheGatesDo) {
    std::mt19937 random(1);
    for (std::size_t index = 0; index < SampleCount(); ++index) {
        const Sample sample = MakeSample(index);
        for (int variant = 0; variant < 100; ++variant) {
            scanner::HostRecords image = Parse(sample.bytes).records;
            if (variant > 0)
                reinterpret_cast<uint8_t *>(&image.opt_header)[random() % sizeof image.opt_header] ^=
                    static_cast<uint8_t>(1u << random() % 8);
            const tavrik2::TargetFile file = {nullptr,
                                              0,
                                              static_cast<int32_t>(image.file_size),
                                              image.data_dirs.data(),
                                              &image.file_header,
                                              &image.opt_header,
                                              &image.first_sections.back(),
                                              &image.last_section,
                                              image.entry_code.data()};
            for (uint32_t entry = 0; entry < LOCATOR_COUNT; ++entry)
                if (entry != scanner::kDecliningEntry) {
                    ASSERT_EQ(scanner::JudgeGate(tavrik2::GateOf(entry), file).holds,
                              tavrik2::Passes(tavrik2::GateOf(entry), file))
                        << sample.file_name << ", variant " << variant << ", entry " << entry;
                }
        }
    }
}

TEST(Scan, SurvivesCutAndAlteredSamples) {
    constexpr std::size_t kHeaders = 0x400;
    const scanner::Module module;
    std::mt19937 random(2);
    std::size_t still_found = 0;
    for (std::size_t index = 0; index < SampleCount(); ++index) {
        const Bytes sample = MakeSample(index).bytes;
        for (int variant = 0; variant < 12; ++variant) {
            // A block of the variant's own size, so that the sanitizers see every byte read after it.
            Bytes bytes(sample);
            if (variant % 3 != 0)
                bytes = Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(random() % bytes.size()));
            for (int flips = variant % 4 * 3; flips > 0 && !bytes.empty(); --flips)
                bytes[random() % std::min(bytes.size(), kHeaders)] ^= static_cast<uint8_t>(1u << random() % 8);
            base::MemorySource source(bytes);
            const scanner::PeResult pe = Parse(source);
            if (pe.status != scanner::PeStatus::Parsed)
                continue;
            for (const scanner::Finding &finding : RunLocators(module, source, pe.records)) {
                ++still_found;
                EXPECT_LT(finding.offset, bytes.size()) << "sample " << index << ", variant " << variant;
            }
        }
    }
    EXPECT_GT(still_found, SampleCount() / 2) << "the variants no longer reach the locators";
}

// ---- The parser ----------------------------------------------------------------------------------------------------

constexpr uint32_t kLfanew = 60;

/** A small file whose header bytes can be set. */
struct Raw {
    explicit Raw(bool is_pe32_plus = false) {
        pe::builder::PeImage image;
        image.is_pe32_plus = is_pe32_plus;
        image.sections = {
            {.name = ".text", .Characteristics = pe::builder::kCodeSection, .pieces = {{Bytes(0x300, 0xCC)}}},
            {.name = ".data", .pieces = {{Bytes(0x100, 0xDD)}}}};
        for (uint32_t index = 0; index < pe::kDirectoryCount; ++index)
            image.directories[index] = {.VirtualAddress = 0x100 + index, .Size = 0x200 + index};
        bytes = image.Build().bytes;
        optional = LoadU32(&bytes[kLfanew]) + 24;
    }
    template <typename Value>
    Raw &Set(uint32_t offset, Value value) {
        std::memcpy(&bytes.at(offset), &value, sizeof value);
        return *this;
    }
    Raw &Sections(uint16_t count) { return Set(optional - 18, count); }
    Raw &OptionalSize(uint16_t size) { return Set(optional - 4, size); }
    Raw &EntryPoint(uint32_t rva) { return Set(optional + 16, rva); }
    Raw &BaseOfCode(uint32_t rva) { return Set(optional + 20, rva); }
    Raw &Directories(uint32_t count) { return Set(optional + 92, count); }
    scanner::HostRecords Image() const { return Parse(bytes).records; }

    Bytes bytes;
    uint32_t optional; // the optional header's offset
};

std::string NameOf(const SectionHeader &section) {
    return std::string(reinterpret_cast<const char *>(section.Name), sizeof section.Name).c_str();
}

TEST(Parser, WidensPe32AndKeepsPe32Plus) {
    for (const bool plus : {false, true}) {
        Raw raw(plus);
        for (uint8_t byte = 2; byte < 112; ++byte)
            raw.Set(raw.optional + byte, static_cast<uint8_t>(byte + 1));
        const scanner::HostRecords image = raw.Image();
        EXPECT_EQ(image.is_pe32_plus, plus);
        Bytes wide(raw.bytes.begin() + raw.optional, raw.bytes.begin() + raw.optional + 112);
        if (!plus) {
            const Bytes narrow = wide;
            const auto move = [&](std::size_t to, std::size_t from) { std::copy_n(&narrow[from], 4, &wide[to]); };
            std::fill(wide.begin() + 72, wide.end(), uint8_t{0});
            move(24, 28); // the image base
            move(28, 24); // the base of data
            for (std::size_t size = 0; size < 4; ++size)
                move(72 + 8 * size, 72 + 4 * size);
            move(104, 88);
            move(108, 92);
        }
        EXPECT_EQ(std::memcmp(&image.opt_header, wide.data(), wide.size()), 0) << (plus ? "PE32+" : "PE32");
    }
}

TEST(Parser, TakesWhatATruncatedFileHas) {
    for (const bool plus : {false, true}) {
        const Raw raw(plus);
        const scanner::HostRecords whole = raw.Image();
        const uint32_t table = raw.optional + (plus ? 240 : 224);
        ASSERT_EQ(whole.sections.size(), 2u);
        for (std::size_t length = 0; length < raw.bytes.size(); ++length) {
            SCOPED_TRACE(length);
            const Bytes cut(raw.bytes.begin(), raw.bytes.begin() + static_cast<std::ptrdiff_t>(length));
            const scanner::PeResult pe = Parse(cut);
            ASSERT_EQ(pe.status, length < raw.optional - 20 ? scanner::PeStatus::NotPe : scanner::PeStatus::Parsed);
            ASSERT_EQ(pe.text.empty(), pe.status == scanner::PeStatus::Parsed);
            if (pe.status == scanner::PeStatus::NotPe)
                continue;
            const std::size_t of_header = std::min<std::size_t>(length - (raw.optional - 20), sizeof(FileHeader));
            FileHeader header = {};
            std::memcpy(&header, &whole.file_header, of_header);
            ASSERT_EQ(std::memcmp(&pe.records.file_header, &header, sizeof header), 0);
            ASSERT_EQ(pe.records.sections.size(), length < table ? 0 : std::min<std::size_t>((length - table) / 40, 2));
            ASSERT_EQ(pe.records.first_sections.size(), 1u);
            const std::size_t directories = raw.optional + (plus ? 112 : 96);
            for (std::size_t index = 0; index < 16; ++index)
                ASSERT_EQ(pe.records.data_dirs[2 * index + 1],
                          directories + 8 * (index + 1) <= length ? 0x200 + index : 0);
        }
    }
}

TEST(Parser, BoundsCountsAndSizesByTheFile) {
    const struct {
        uint16_t optional_size;
        uint32_t declared; // directories
        std::size_t granted;
        std::string first_section;
    } rows[] = {
        {224, 16, 16, ".text"}, {224, 2, 2, ".text"},     {224, UINT32_MAX, 16, ".text"}, {224, 0, 0, ".text"},
        {0, 16, 16, ".text"},   {96, 16, 0, "?"},         {96 + 8 * 3 + 7, 16, 3, "?"},   {8, 16, 0, "?"},
        {0xFFFF, 16, 16, ""},   {0, UINT32_MAX, 16, "?"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.optional_size << ", " << row.declared);
        const scanner::HostRecords image = Raw().OptionalSize(row.optional_size).Directories(row.declared).Image();
        for (uint32_t index = 0; index < 16; ++index)
            EXPECT_EQ(image.data_dirs[2 * index], index < row.granted ? 0x100 + index : 0) << index;
        if (row.first_section != "?") {
            EXPECT_EQ(NameOf(image.first_sections.front()), row.first_section);
        }
    }

    const scanner::HostRecords none = Raw().Sections(0).Image();
    EXPECT_TRUE(none.sections.empty());
    EXPECT_EQ(none.first_sections.size(), 1u);
    const Raw many = Raw().Sections(0xFFFF);
    EXPECT_EQ(many.Image().sections.size(), (many.bytes.size() - many.optional - 224) / sizeof(SectionHeader));
}

TEST(Parser, FollowsTheDosHeaderAnywhere) {
    const uint32_t size = static_cast<uint32_t>(Raw().bytes.size());
    for (const uint32_t place : {4u, 56u, 64u, size - 28, size - 5, size - 4}) {
        Raw raw;
        raw.Set(place, uint32_t{0x4550}).Set(kLfanew, place);
        EXPECT_EQ(Parse(raw.bytes).status, scanner::PeStatus::Parsed) << place;
    }
    for (const uint32_t place : {0u, size - 3, size, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFE7u, 0xFFFFFFFCu, 0xFFFFFFFFu})
        EXPECT_EQ(Parse(Raw().Set(kLfanew, place).bytes).status, scanner::PeStatus::NotPe) << place;
}

TEST(Parser, OffersEachCandidateForTheFirstSectionOnce) {
    const auto names = [](const Raw &raw) {
        std::string text;
        for (const SectionHeader &section : raw.Image().first_sections)
            text += NameOf(section);
        return text;
    };
    EXPECT_EQ(names(Raw().BaseOfCode(0x1000)), ".text");
    EXPECT_EQ(names(Raw().BaseOfCode(0x2000)), ".text.data");
    EXPECT_EQ(names(Raw().BaseOfCode(0x9000)), ".text");
    EXPECT_EQ(names(Raw().BaseOfCode(0)), ".text");
    // .text made so long that it covers .data: the later header counts.
    Raw overlapping;
    EXPECT_EQ(names(overlapping.BaseOfCode(0x2000).Set(overlapping.optional + 224 + 8, 0x8000u)), ".text.data");
}

TEST(Parser, FindsTheEntryCode) {
    const auto code = [](Raw raw, uint32_t rva) {
        const auto bytes = raw.EntryPoint(rva).Image().entry_code;
        return std::string(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(code(Raw(), 0x1010), std::string(22, '\xCC'));
    EXPECT_EQ(code(Raw(), 0x9000), std::string(22, '\0')); // nowhere
    EXPECT_EQ(code(Raw(), 0).substr(0, 2), "MZ");          // the headers
    Raw cut;
    cut.bytes.resize(cut.Image().sections[0].PointerToRawData + 2u);
    EXPECT_EQ(code(cut, 0x1000), "\xCC\xCC" + std::string(20, '\0'));
}

// The module reads the section table from the file again and must come to the same places.
TEST(Parser, MapsAddressesAsTheModuleDoes) {
    std::mt19937 random(3);
    for (int round = 0; round < 3000; ++round) {
        Raw raw;
        raw.Set(raw.optional + 32, static_cast<uint32_t>(1u << random() % 16)); // SectionAlignment
        raw.Set(raw.optional + 36, static_cast<uint32_t>(1u << random() % 16)); // FileAlignment
        raw.Set(raw.optional + 68, static_cast<uint16_t>(random() % 4));        // Subsystem
        for (uint32_t field = 8; field < 24; field += 4)
            for (const uint32_t header : {0u, 40u})
                if (random() % 2 == 0)
                    raw.Set(raw.optional + 224 + header + field,
                            static_cast<uint32_t>(random() % 8 == 0 ? random() : random() % 0x3000));
        base::MemorySource source(raw.bytes);
        const scanner::HostRecords image = Parse(source).records;
        scanner::ModuleStream stream(source);
        for (int address = 0; address < 8; ++address) {
            const auto rva = static_cast<uint32_t>(address == 0 ? random() : random() % 0x4000);
            ASSERT_EQ(image.FileOffset(rva).value_or(tavrik2::kUnmappedRva),
                      tavrik2::RvaToFileOffset(stream.stream(), scanner::ModuleStream::handle(), rva))
                << "round " << round << ", address " << rva;
        }
    }
}

/** Says that reading fails from its `good`-th read on. */
class FailingSource final : public base::ByteSource {
public:
    FailingSource(const Bytes &bytes, int good) : bytes_(bytes), good_(good) {}
    uint64_t size() const override { return bytes_.size(); }
    std::size_t ReadAt(uint64_t offset, void *buffer, std::size_t length) override {
        if (good_-- > 0)
            return bytes_.ReadAt(offset, buffer, length);
        error_ = "bad disk";
        return 0;
    }
    const std::string &error() const override { return error_; }

private:
    base::MemorySource bytes_;
    int good_;
    std::string error_;
};

TEST(Parser, TellsReadErrorsFromBadFiles) {
    // The PE signature is 200 KiB into the file, and the data of .text is far beyond: each is read on its own.
    constexpr uint32_t kPlace = 200 * 1024;
    Raw raw;
    const uint32_t headers = raw.optional - 24;
    raw.bytes.resize(kPlace + 0x10000);
    std::copy_n(raw.bytes.begin() + headers, 0x200, raw.bytes.begin() + kPlace);
    raw.Set(kLfanew, kPlace).Set(kPlace + 24 + 16, uint32_t{0x1000}); // AddressOfEntryPoint
    raw.Set(kPlace + 24 + 224 + 20, uint32_t{kPlace / 2});            // PointerToRawData
    int good = 0;
    for (; good < 100; ++good) {
        FailingSource source(raw.bytes, good);
        const scanner::PeResult pe = Parse(source);
        if (pe.status == scanner::PeStatus::Parsed)
            break;
        EXPECT_EQ(pe.status, scanner::PeStatus::ReadFailed) << good;
        EXPECT_EQ(pe.text, "bad disk") << good;
    }
    EXPECT_EQ(good, 3); // the DOS header, the other headers, the entry code
    EXPECT_LT(good, 100);
}

// ---- The stream ----------------------------------------------------------------------------------------------------

TEST(Stream, ReadsUpToTheEndAndNothingAfterIt) {
    const FreshFolder folder;
    const Bytes bytes = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9'};
    Write("digits", bytes);
    base::MemorySource memory(bytes);
    base::FileSource file("digits");
    for (base::ByteSource *source :
         {static_cast<base::ByteSource *>(&memory), static_cast<base::ByteSource *>(&file)}) {
        scanner::ModuleStream owner(*source);
        FileStream *stream = owner.stream();
        const FileStreamOperations &io = *stream->operations;
        const auto read = [&](uint32_t offset, uint32_t length) {
            char buffer[16] = {};
            EXPECT_EQ(io.Seek(stream, owner.handle(), offset, 0), offset);
            const uint32_t count = io.Read(stream, owner.handle(), buffer, length);
            EXPECT_EQ(io.Tell(stream, owner.handle()), offset + count);
            return std::string(buffer, count);
        };
        EXPECT_EQ(read(0, 4), "0123");
        EXPECT_EQ(read(7, 16), "789");
        for (const uint32_t beyond : {10u, 11u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu})
            EXPECT_EQ(read(beyond, 16), "") << beyond;
        EXPECT_EQ(read(3, 0), "");
        EXPECT_EQ(read(9, 1), "9"); // still alive
        EXPECT_EQ(source->error(), "");
    }
}

// Holes of a file take no room on the disk.
TEST(Stream, TakesFilesBelow2GiBOnly) {
    const FreshFolder folder;
    const std::streamoff largest = scanner::kLargestFile;
    for (const std::streamoff size : {largest, largest + 1, std::streamoff{5} << 30}) {
        SCOPED_TRACE(size);
        std::ofstream("large", std::ios::binary).seekp(size - 1) << 'z';
        base::FileSource source("large");
        ASSERT_EQ(source.size(), static_cast<uint64_t>(size));
        char last = 0;
        EXPECT_EQ(source.ReadAt(source.size() - 1, &last, 1), 1u) << source.error();
        EXPECT_EQ(last, 'z');
        if (size > largest) {
            EXPECT_THROW(scanner::ModuleStream{source}, std::length_error);
            continue;
        }
        scanner::ModuleStream owner(source);
        const FileStreamOperations &io = *owner.stream()->operations;
        io.Seek(owner.stream(), owner.handle(), static_cast<uint32_t>(size - 1), 0);
        EXPECT_EQ(io.Read(owner.stream(), owner.handle(), &last, 1), 1u);
        EXPECT_EQ(io.Read(owner.stream(), owner.handle(), &last, 1), 0u);
    }
}

} // namespace
} // namespace tavrik::tests
