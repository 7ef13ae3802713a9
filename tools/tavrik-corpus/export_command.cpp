#include <functional>
#include <optional>
#include <span>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/atomic_file.h"
#include "base/console.h"
#include "base/sha256.h"
#include "base/text.h"
#include "rules/names.h"
#include "store/store.h"
#include "tools/tavrik-corpus/commands.h"

namespace tavrik::corpus_tool {

namespace {

// A field of CSV (RFC 4180).
std::string Quoted(std::string_view text) {
    if (text.find_first_of(",\"\r\n") == std::string_view::npos)
        return std::string(text);
    std::string quoted = "\"";
    for (const char c : text)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string DigestText(const base::Sha256::Digest &digest) {
    constexpr base::Sha256::Digest kNotKnown = {};
    return digest == kNotKnown ? "" : base::HexDigits(digest);
}

std::string CsvHead() {
    std::string line = "file,size,sha256,pe";
    for (const rules::Field &field : rules::HeaderFields())
        line += fmt::format(",{}", field.name);
    return line + "\r\n";
}

std::string CsvLine(store::Segment &segment, store::Row row) {
    std::string line = fmt::format("{},{},{},{}", Quoted(segment.Paths()[row]), segment.StampOf(row).size,
                                   DigestText(segment.DigestOf(row)), segment.IsPe(row) ? 1 : 0);
    for (const rules::Field &field : rules::HeaderFields()) {
        line += ',';
        if (const std::optional<uint64_t> value = segment.Value(field.number, row))
            line += fmt::format("{}", *value);
    }
    return line + "\r\n";
}

std::string JsonLine(store::Segment &segment, store::Row row) {
    nlohmann::ordered_json line = {{"file", segment.Paths()[row]},
                                   {"size", segment.StampOf(row).size},
                                   {"sha256", DigestText(segment.DigestOf(row))},
                                   {"pe", segment.IsPe(row)}};
    nlohmann::ordered_json header = nlohmann::ordered_json::object();
    for (const rules::Field &field : rules::HeaderFields())
        if (const std::optional<uint64_t> value = segment.Value(field.number, row))
            header[std::string(field.name)] = *value;
    line["header"] = std::move(header);
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

} // namespace

int Export(const std::filesystem::path &path, ExportFormat format, const std::string &output) {
    store::Store store(path, store::Store::Access::Read);
    std::optional<base::AtomicFile> file;
    if (!output.empty())
        file.emplace(base::PathOf(output));
    const auto write = [&](const std::string &text) { file ? file->Write(text) : base::Print(text); };
    if (format == ExportFormat::Csv)
        write(CsvHead());
    for (const store::SegmentEntry &entry : store.Segments()) {
        const std::unique_ptr<store::Segment> segment = store.Open(entry);
        for (std::size_t row = 0; row < entry.rows; ++row)
            if (row >= entry.is_gone.size() || !entry.is_gone[row])
                write(format == ExportFormat::Csv ? CsvLine(*segment, static_cast<store::Row>(row))
                                                  : JsonLine(*segment, static_cast<store::Row>(row)));
    }
    if (file)
        file->Commit();
    return kFine;
}

} // namespace tavrik::corpus_tool
