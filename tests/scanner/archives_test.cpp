// What is asked of cabinets and RAR archives before the library reads them, and what a build without it says.
#include <span>
#include <vector>

#include <gtest/gtest.h>

#include "scanner/payloads/archive_container.h"
#include "scanner/payloads/libraries.h"
#include "scanner/payloads/lzma.h"
#include "scanner/payloads/readers.h"
#include "tests/support/payload_builder.h"

namespace tavrik::tests {
namespace {

using namespace scanner::payloads;

std::span<const uint8_t> ViewOf(const std::string &text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

TEST(RarArchives, TellWhichFilesNeedAPassword) {
    const std::string record = Hex("04 01 00 00 0F"); // of encryption
    const std::pair<std::string, RarEncryption> rows[] = {
        {Rar4Main() + Rar4File("a", "x", 29) + Rar4File("b", "y", 29, 4) + kRar4End, {false, {false, true}}},
        {kRar5Main + Rar5File("a", "x", record) + Rar5File("b", "y") + kRar5End, {false, {true, false}}},
        {kRar5 + Rar5Block(Hex("04 00 00 00 0F")), {true, {}}},
        {"no archive", {}}};
    for (const auto &[bytes, encryption] : rows) {
        base::MemorySource source(ViewOf(bytes));
        EXPECT_EQ(EncryptionOfRar(source, 0), encryption) << bytes;
    }
    // The library alone would give the encrypted bytes as the file.
    if (!kReadsArchives)
        return;
    base::MemorySource source(ViewOf(rows[1].first));
    const std::unique_ptr<Container> container = OpenPayload(source, *ReadExtentAt(source, 0));
    for (const bool is_encrypted : rows[1].second.files) {
        const std::optional<Member> member = container->Next();
        ASSERT_TRUE(member.has_value());
        EXPECT_EQ(member->encrypted, is_encrypted);
        char byte = 0;
        EXPECT_EQ(container->Read(&byte, 1), is_encrypted ? 0u : 1u);
        EXPECT_EQ(container->member_error().empty(), !is_encrypted);
    }
}

TEST(Builds, SayWhatTheyCannotRead) {
    const std::string versions = LibraryVersions();
    EXPECT_EQ(versions.find("no libarchive") == std::string::npos, kReadsArchives) << versions;
    EXPECT_EQ(versions.find("no liblzma") == std::string::npos, kReadsLzma) << versions;
    const std::string cabinet = Cabinet(120);
    base::MemorySource source(ViewOf(cabinet));
    const std::unique_ptr<Container> container = OpenPayload(source, *ReadExtentAt(source, 0));
    EXPECT_FALSE(container->Next().has_value());
    const std::string words = "this build has no library that reads a cabinet; carve it";
    EXPECT_EQ(container->error().find(words) == std::string::npos, kReadsArchives) << container->error();
}

} // namespace
} // namespace tavrik::tests
