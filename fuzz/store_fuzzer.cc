// Any bytes as a store. What begins like a database is opened as one; other bytes are the pieces of a segment, each
// with its number and length, unpacked, so that the readers behind the checksums get them. All of it is read, rules are
// evaluated on it, and Damaged is the only way to refuse it.

#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>

#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "store/hunt.h"
#include "store/store.h"

namespace {

using namespace tavrik;

constexpr std::string_view kDatabase = "SQLite format 3";

constexpr std::string_view kRules = R"(
rule 1 "Header" for program { header { NumberOfSections == 3; TimeDateStamp > 0 } }
rule 2 "Sections" for program { sections { last.VirtualSize > 0; [1].VirtualSize > 0 } section_names { any != "x" } }
rule 3 "Names" for program { import_modules { "kernel32.dll" } }
rule 4 "Traits" for program { traits few_imports }
)";

void ReadSegment(store::Segment &segment, const store::Hunt &hunt) {
    hunt.Search(segment, {});
    segment.RowsWith(rules::header_field::kTimeDateStamp, 0);
    segment.RowsThatMayHave(0x80000000);
    segment.AllFiles();
}

void ReadPieces(std::span<const uint8_t> bytes, const store::Hunt &hunt) {
    store::PieceReader reader(bytes);
    const std::size_t rows = static_cast<std::size_t>(reader.NumberUpTo(store::kMostRows));
    std::map<uint32_t, std::string> pieces;
    while (!reader.AtEnd()) {
        const auto number = static_cast<uint32_t>(reader.NumberUpTo(store::kMostPieces));
        const std::span<const uint8_t> piece = reader.Take(reader.Number());
        pieces[number] = store::Compress({reinterpret_cast<const char *>(piece.data()), piece.size()});
    }
    store::Segment segment(rows, [&](uint32_t number) -> std::span<const uint8_t> {
        const auto found = pieces.find(number);
        if (found == pieces.end())
            return {};
        return {reinterpret_cast<const uint8_t *>(found->second.data()), found->second.size()};
    });
    ReadSegment(segment, hunt);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const rules::record::RecordSet kRecords(rules::text::ParseRules(kRules).set);
    static const store::Hunt kHunt(kRecords.rules());
    try {
        if (size < kDatabase.size() || std::memcmp(data, kDatabase.data(), kDatabase.size()) != 0) {
            ReadPieces({data, size}, kHunt);
            return 0;
        }
        store::Store opened({data, size});
        opened.CheckDatabase();
        opened.Faults();
        opened.PieceSizes();
        for (const store::SegmentEntry &entry : opened.Segments())
            ReadSegment(*opened.Open(entry), kHunt);
    } catch (const base::Error &) {
        // refused
    }
    return 0;
}
