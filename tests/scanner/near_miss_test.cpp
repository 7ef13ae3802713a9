// Payloads that no entry finds, and what a locator read in vain.
#include <algorithm>
#include <string_view>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "samples/samples.h"
#include "scanner/explain.h"
#include "scanner/near_report.h"
#include "scanner/scan.h"
#include "tests/support/fresh_folder.h"
#include "tests/support/module_folder.h"

namespace tavrik::tests {
namespace {

using scanner::NearMiss;

// The smallest cabinet: a folder and a file without a name; 54 bytes.
base::Bytes Cabinet() {
    base::Bytes bytes(54);
    const std::string_view signature = "MSCF";
    std::copy(signature.begin(), signature.end(), bytes.begin());
    const std::pair<std::size_t, uint8_t> fields[] = {{8, 54}, {16, 36}, {24, 3}, {25, 1}, {26, 1}, {28, 1}};
    for (const auto &[offset, value] : fields)
        bytes[offset] = value;
    return bytes;
}

base::Bytes SampleOf(std::string_view beginning) {
    for (std::size_t index = 0; index < samples::SampleCount(); ++index)
        if (samples::Sample sample = samples::MakeSample(index); sample.file_name.starts_with(beginning))
            return sample.bytes;
    throw std::invalid_argument("no such sample");
}

// The sample with a whole cabinet in place of the first bytes of one.
base::Bytes WithCabinet(std::string_view sample) {
    base::Bytes bytes = SampleOf(sample);
    const base::Bytes cabinet = Cabinet();
    const auto place = std::search(bytes.begin(), bytes.end(), cabinet.begin(), cabinet.begin() + 4);
    std::copy(cabinet.begin(), cabinet.end(), place);
    return bytes;
}

class NearMisses : public testing::Test {
protected:
    scanner::FileReport Scan(const base::Bytes &bytes, std::size_t conditions = 1) const {
        scanner::ScanSettings settings;
        settings.near_conditions = conditions;
        base::MemorySource source(bytes);
        return scanner::Scanner(module_, settings).Scan(source, "file");
    }

    scanner::Explanation Explain(uint32_t entry, const base::Bytes &bytes) const {
        base::MemorySource source(bytes);
        base::FileBytes file(source);
        return scanner::Explain(*module_, entry, source, scanner::MakeHostRecords(pe::Image(file), source).records);
    }

private:
    const std::shared_ptr<const scanner::Module> module_ =
        std::make_shared<const scanner::Module>(ModulePath("tavrik2.hbx"));
};

TEST_F(NearMisses, SayWhichConditionFails) {
    const scanner::FileReport report = Scan(WithCabinet("near-miss-cabinet"));
    EXPECT_TRUE(report.findings.empty());
    ASSERT_TRUE(report.near && report.near->size() == 1) << report.near->size();
    const NearMiss &miss = report.near->front();
    EXPECT_EQ(miss.status, NearMiss::Status::NearMiss);
    EXPECT_EQ(miss.kind, uint32_t{PAYLOAD_CABINET});
    ASSERT_TRUE(miss.extent);
    EXPECT_EQ(miss.extent->length, 54u);
    ASSERT_EQ(miss.entries.size(), 1u);
    EXPECT_EQ(miss.entries[0].entry, 38u);
    ASSERT_EQ(miss.entries[0].failed.size(), 1u);
    EXPECT_EQ(scanner::NearText(miss),
              "near miss of entry 38: cabinet, offset 0x1c00, 54 bytes; MajorImageVersion is 14, wanted 4..13");
    const auto object = nlohmann::json::parse(scanner::NearObject(miss).Text());
    EXPECT_EQ(object["status"], "near-miss");
    EXPECT_EQ(object["entries"][0]["failed"][0]["field"], miss.entries[0].failed[0].field);

    // Not when it was not asked for, not when the marker is no payload, not when the entry finds it.
    EXPECT_FALSE(Scan(WithCabinet("near-miss-cabinet"), 0).near);
    EXPECT_TRUE(Scan(SampleOf("near-miss-cabinet")).near->empty());
    const scanner::FileReport found = Scan(WithCabinet("entry38"), scanner::kMostFailedConditions);
    EXPECT_EQ(found.findings.size(), 1u);
    EXPECT_TRUE(found.near->empty());
}

TEST_F(NearMisses, AreUnknownBuildsWherePayloadsUsuallyBegin) {
    const base::Bytes cabinet = Cabinet();
    const base::Bytes clean = SampleOf("clean-windows");
    const struct {
        std::size_t distance; // of the cabinet from the end of the sections
        bool is_found;
    } rows[] = {{0, true}, {512, true}, {1536, true}, {16, false}, {511, false}};
    for (const auto &row : rows) {
        base::Bytes bytes = clean;
        bytes.resize(clean.size() + row.distance);
        bytes.insert(bytes.end(), cabinet.begin(), cabinet.end());
        const scanner::FileReport report = Scan(bytes);
        ASSERT_EQ(report.near->size(), row.is_found ? 1u : 0u) << row.distance;
        if (!row.is_found)
            continue;
        const NearMiss &build = report.near->front();
        EXPECT_EQ(build.status, NearMiss::Status::UnknownBuild);
        EXPECT_EQ(build.offset, clean.size() + row.distance);
        ASSERT_EQ(build.entries.size(), 1u);
        EXPECT_EQ(build.entries[0].entry, 38u); // the only one for cabinets
        EXPECT_GT(build.entries[0].failed.size(), 1u);
    }
    // What is within a payload belongs to it.
    base::Bytes bytes = clean;
    bytes.insert(bytes.end(), cabinet.begin(), cabinet.end());
    bytes[clean.size() + 9] = 4; // 1078 bytes
    bytes.resize(clean.size() + 512);
    bytes.insert(bytes.end(), cabinet.begin(), cabinet.end());
    bytes.resize(clean.size() + 2048);
    EXPECT_EQ(Scan(bytes).near->size(), 1u);
}

TEST_F(NearMisses, ExplanationsShowWhatWasThereInstead) {
    base::Bytes bytes = SampleOf("entry38");
    const std::string_view signature = "MSCF";
    *std::search(bytes.begin(), bytes.end(), signature.begin(), signature.end()) = 'X';
    const std::string text = Explain(38, bytes).text;
    EXPECT_NE(text.find("\n      0x1c00      1024 bytes  58 53 43 46 00 00 00 00 00 10 00 00 "), std::string::npos)
        << text;
    EXPECT_NE(text.find("XSCF......"), std::string::npos) << text;
    bytes = SampleOf("entry42");
    bytes.resize(0x1c00);
    EXPECT_NE(Explain(42, bytes).text.find("nothing but headers"), std::string::npos);
}

} // namespace
} // namespace tavrik::tests
