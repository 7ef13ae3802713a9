#include "draft/texts.h"

#include <algorithm>
#include <bitset>
#include <optional>
#include <string_view>
#include <unordered_set>

#include "base/characters.h"
#include "rules/numbers.h"
#include "rules/regions.h"

namespace tavrik::draft {

namespace {

using rules::StringKind;

constexpr uint16_t kDrift = 0x100;          // bytes that a place may differ in the next build
constexpr uint64_t kLargestWindow = 0x2000; // a wider one is none

struct Text {
    std::string bytes; // without the zeros of the wide form
    bool is_wide = false;
    std::size_t score = 0;

    std::string InFile() const {
        if (!is_wide)
            return bytes;
        std::string wide;
        for (const char c : bytes)
            wide.append({c, '\0'});
        return wide;
    }
};

// Length, and how many different characters there are: a row of blanks says nothing.
std::size_t ScoreOf(std::string_view text) {
    std::bitset<256> seen;
    for (const char c : text)
        seen.set(static_cast<unsigned char>(c));
    return std::min<std::size_t>(text.size(), 48) + 2 * std::min<std::size_t>(seen.count(), 24);
}

// The runs of printable characters, `step` bytes from one to the next with zeros between.
void FindRuns(std::string_view bytes, std::size_t step, std::vector<Text> &texts) {
    std::unordered_set<std::string_view> known;
    std::string run;
    std::unordered_set<std::string> found;
    const auto end_run = [&] {
        if (run.size() >= kShortestText && found.size() < kMostTextsTried) {
            run.resize(std::min(run.size(), rules::kMaxStringLength));
            if (found.insert(run).second)
                texts.push_back({run, step == 2, ScoreOf(run)});
        }
        run.clear();
    };
    for (std::size_t start = 0; start < step; ++start) {
        for (std::size_t at = start; at + step <= bytes.size(); at += step) {
            const bool is_part = base::IsPrintableAscii(bytes[at]) && (step == 1 || bytes[at + 1] == '\0');
            if (is_part)
                run += bytes[at];
            else
                end_run();
        }
        end_run();
    }
}

// A file's bytes, and where its sections and overlay are.
struct Searched {
    std::string bytes;
    evaluation::Features *features;

    // The section whose raw data hold the offset, and the place in them.
    std::optional<std::pair<std::size_t, uint64_t>> SectionPlace(uint64_t offset, std::size_t length) const {
        for (std::size_t i = 0; i < features->sections().size() && i <= rules::kMaxSectionIndex; ++i) {
            const base::Region region = features->image().RawData(i);
            if (!region.IsAbsent() && offset >= region.offset && offset + length <= region.End())
                return std::pair(i, offset - region.offset);
        }
        return std::nullopt;
    }
};

// The string as all files have it; nothing when one lacks it.
std::optional<Row> PlacedText(const Text &text, const std::vector<Searched> &files) {
    rules::StringFeature string;
    string.bytes = text.bytes;
    string.options = text.is_wide ? rules::kStringWide : uint8_t{0};
    string.kind = rules::CodeOf(StringKind::File);
    const std::string wanted = text.InFile();
    bool in_section = true;
    bool in_overlay = true;
    std::optional<std::size_t> section;
    uint64_t low = UINT64_MAX;
    uint64_t high = 0;
    for (const Searched &file : files) {
        const std::size_t offset = file.bytes.find(wanted);
        if (offset == std::string::npos)
            return std::nullopt;
        // What every program's headers and stub have says nothing.
        if (offset < file.features->image().SizeOfHeaders())
            return std::nullopt;
        const auto place = file.SectionPlace(offset, wanted.size());
        in_section = in_section && place && (!section || *section == place->first);
        if (in_section) {
            section = place->first;
            low = std::min(low, place->second);
            high = std::max(high, place->second);
        }
        const auto overlay = file.features->Header(rules::header_field::kOverlayOffset);
        in_overlay = in_overlay && overlay && *overlay < file.features->image().size() && offset >= *overlay;
    }
    if (in_section) {
        string.kind = rules::CodeOf(StringKind::IndexedSection);
        string.index = static_cast<uint8_t>(*section);
        if (high <= UINT16_MAX && high - low < kLargestWindow) {
            string.window_start = static_cast<uint16_t>(low);
            string.window_length = static_cast<uint16_t>(high - low + 1);
            string.drift = kDrift;
        }
    } else if (in_overlay) {
        string.kind = rules::CodeOf(StringKind::Overlay);
    }
    string.anchor = rules::DefaultAnchor(string);
    Row row;
    row.strings.push_back(std::move(string));
    return row;
}

} // namespace

std::vector<Row> SharedTexts(FilePointers files, std::size_t most) {
    std::vector<Searched> searched;
    for (const auto &file : files) {
        base::FileBytes &bytes = file->bytes();
        std::string copy(std::min<uint64_t>(bytes.size(), kMostTextBytes), '\0');
        if (!bytes.Read(0, copy.data(), copy.size()))
            copy.clear();
        searched.push_back({std::move(copy), file.get()});
    }
    std::vector<Text> texts;
    if (!searched.empty())
        for (const std::size_t step : {1u, 2u})
            FindRuns(searched.front().bytes, step, texts);
    std::ranges::stable_sort(texts, std::ranges::greater(), &Text::score);
    std::vector<Row> rows;
    for (const Text &text : texts) {
        if (rows.size() >= most)
            break;
        if (auto row = PlacedText(text, searched))
            rows.push_back(std::move(*row));
    }
    return rows;
}

} // namespace tavrik::draft
