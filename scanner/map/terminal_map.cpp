#include "scanner/map/terminal_map.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "base/characters.h"
#include "base/text.h"

namespace tavrik::scanner::map {

namespace {

constexpr std::size_t kLabelColumns = 10;
constexpr std::size_t kTickColumns = 14; // a number on the axis and a blank at least
constexpr std::size_t kMostRows = 64;    // of a table
constexpr char kPlain[] = "\x1b[0m";

// Colours of the 256-colour palette: dark enough for white letters, light enough for a black screen.
constexpr int kSectionColours[] = {25, 29, 94, 60, 30, 95};
constexpr int kLetterColour = 231;

int ColourOf(const FileMap &map, std::size_t segment) {
    switch (map.segments[segment].area) {
    case Area::Headers:
        return 240;
    case Area::Gap:
        return 237;
    case Area::Overlay:
        return 130;
    case Area::Signature:
        return 90;
    default:
        break;
    }
    std::size_t number = 0; // among the sections
    for (std::size_t index = 0; index < segment; ++index)
        number += map.segments[index].area == Area::Section ? 1u : 0u;
    return kSectionColours[number % std::size(kSectionColours)];
}

int ColourOf(MarkKind kind) {
    switch (kind) {
    case MarkKind::Payload:
        return 172; // orange
    case MarkKind::NearMiss:
        return 37; // cyan
    default:
        return 167; // red
    }
}

constexpr int kReadColour = 71; // green

int EntropyColour(double entropy) {
    return entropy >= 7.2 ? 167 : entropy >= 6 ? 172 : entropy >= 3 ? 71 : 67;
}

// Draws rows of columns that stand for equal parts of the file.
class Picture {
public:
    Picture(const FileMap &map, TerminalLook look)
        : map_(map), in_colour_(look.in_colour), columns_(std::max(look.columns, kLeastColumns) - kLabelColumns - 1) {}

    std::string Draw() {
        Axis();
        Layout();
        Entropy();
        Marks("payloads", MarkKind::Payload);
        Marks("near", MarkKind::NearMiss);
        Marks("strings", MarkKind::DetectionString);
        if (!map_.read.empty())
            Halves("read", kReadColour, map_.read);
        return std::move(text_);
    }

private:
    // The part of the file that a column, or half of one, stands for.
    double OffsetAt(std::size_t place, std::size_t places) const {
        return static_cast<double>(map_.size) * static_cast<double>(place) / static_cast<double>(places);
    }
    std::size_t PlaceOf(uint64_t offset, std::size_t places) const {
        const double share = static_cast<double>(offset) / static_cast<double>(map_.size);
        return std::min(places - 1, static_cast<std::size_t>(share * static_cast<double>(places)));
    }

    // The segment in the middle of a half column.
    std::size_t SegmentAt(std::size_t half) const {
        const auto middle = static_cast<uint64_t>(OffsetAt(2 * half + 1, 4 * columns_));
        const auto after =
            std::upper_bound(map_.segments.begin(), map_.segments.end(), middle,
                             [](uint64_t offset, const Segment &segment) { return offset < segment.place.offset; });
        return static_cast<std::size_t>(after - map_.segments.begin()) - 1;
    }

    void Label(std::string_view label) { fmt::format_to(std::back_inserter(text_), "{:<{}}", label, kLabelColumns); }

    void Axis() {
        const uint64_t distance = TickDistance(map_.size, std::max<std::size_t>(columns_ / kTickColumns, 1));
        std::string numbers;
        std::string sizes;
        std::string line;
        for (std::size_t column = 0; column < columns_; ++column)
            line += "─";
        const std::size_t width = std::string_view("─").size();
        for (uint64_t offset = 0; offset < map_.size; offset += distance) {
            const std::size_t column = PlaceOf(offset, columns_);
            numbers.resize(std::max(numbers.size(), column), ' ');
            numbers += fmt::format("{:#x}", offset);
            sizes.resize(numbers.size() - fmt::formatted_size("{:#x}", offset), ' ');
            sizes += offset == 0 ? "0" : SizeText(offset);
            line.replace(column * width, width, offset == 0 ? "├" : "┼");
        }
        Label("offset");
        text_ += numbers + '\n';
        Label("");
        text_ += sizes + '\n';
        Label("");
        text_ += line + '\n';
    }

    // The names of the segments that have room for them; a NUL for each column without a letter.
    std::string Names() const {
        std::string letters(columns_, '\0');
        for (std::size_t column = 0; column < columns_;) {
            const std::size_t segment = SegmentAt(2 * column);
            std::size_t end = column;
            while (end < columns_ && SegmentAt(2 * end) == segment && SegmentAt(2 * end + 1) == segment)
                ++end;
            const std::string name = base::Printable(map_.segments[segment].name);
            const bool is_ascii = std::all_of(name.begin(), name.end(), base::IsPrintableAscii);
            if (is_ascii && name.size() + 2 <= end - column)
                letters.replace(column + (end - column - name.size()) / 2, name.size(), name);
            column = std::max(end, column + 1);
        }
        return letters;
    }

    void Layout() {
        Label("layout");
        if (!in_colour_) {
            PlainLayout();
            return;
        }
        const std::string letters = Names();
        std::optional<std::size_t> before; // the segment of whose colour the terminal draws
        for (std::size_t column = 0; column < columns_; ++column) {
            const std::size_t left = SegmentAt(2 * column);
            const std::size_t right = SegmentAt(2 * column + 1);
            const char letter = letters[column] == '\0' ? ' ' : letters[column];
            if (left == right && before == left)
                text_ += letter;
            else if (left == right)
                fmt::format_to(std::back_inserter(text_), "\x1b[38;5;{};48;5;{}m{}", kLetterColour,
                               ColourOf(map_, left), letter);
            else
                fmt::format_to(std::back_inserter(text_), "\x1b[38;5;{};48;5;{}m▌", ColourOf(map_, left),
                               ColourOf(map_, right));
            before = left == right ? std::optional(left) : std::nullopt;
        }
        text_ += kPlain;
        text_ += '\n';
    }

    // A bar where each segment begins, and its name where there is room.
    void PlainLayout() {
        const std::string letters = Names();
        std::optional<std::size_t> before;
        for (std::size_t column = 0; column < columns_; ++column) {
            const std::size_t segment = SegmentAt(2 * column);
            text_ += before != segment ? '|' : letters[column] == '\0' ? '.' : letters[column];
            before = segment;
        }
        text_ += '\n';
    }

    void Entropy() {
        constexpr std::string_view kBars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
        Label("entropy");
        int before = 0; // the colour that the terminal draws in
        for (std::size_t column = 0; column < columns_; ++column) {
            const auto first =
                static_cast<std::size_t>(OffsetAt(column, columns_) / static_cast<double>(map_.bucket_size));
            const auto last =
                static_cast<std::size_t>(OffsetAt(column + 1, columns_) / static_cast<double>(map_.bucket_size));
            double entropy = -1;
            for (std::size_t bucket = first; bucket < map_.entropy.size() && (bucket == first || bucket < last);
                 ++bucket)
                entropy = std::max(entropy, map_.entropy[bucket]);
            if (entropy < 0) {
                text_ += ' ';
                continue;
            }
            const auto level = std::min<std::size_t>(static_cast<std::size_t>(entropy), std::size(kBars) - 1);
            if (in_colour_ && EntropyColour(entropy) != before)
                fmt::format_to(std::back_inserter(text_), "\x1b[38;5;{}m", before = EntropyColour(entropy));
            text_ += kBars[level];
        }
        EndRow();
    }

    void Marks(std::string_view label, MarkKind kind) {
        std::vector<base::Region> places;
        for (const Mark &mark : map_.marks)
            if (mark.kind == kind)
                places.push_back(mark.place);
        if (!places.empty())
            Halves(label, ColourOf(kind), places);
    }

    // Each half column that has a byte of one of the regions.
    void Halves(std::string_view label, int colour, std::span<const base::Region> places) {
        std::vector<bool> lit(2 * columns_);
        for (const base::Region &place : places) {
            if (place.IsAbsent() || place.offset >= map_.size)
                continue;
            const std::size_t last = PlaceOf(place.End() - 1, lit.size());
            for (std::size_t half = PlaceOf(place.offset, lit.size()); half <= last; ++half)
                lit[half] = true;
        }
        Label(label);
        if (in_colour_)
            fmt::format_to(std::back_inserter(text_), "\x1b[38;5;{}m", colour);
        for (std::size_t column = 0; column < columns_; ++column)
            text_ += lit[2 * column] ? (lit[2 * column + 1] ? "█" : "▌") : (lit[2 * column + 1] ? "▐" : " ");
        EndRow();
    }

    void EndRow() {
        text_.erase(text_.find_last_not_of(' ') + 1);
        text_ += in_colour_ ? std::string(kPlain) + '\n' : "\n";
    }

    const FileMap &map_;
    const bool in_colour_;
    const std::size_t columns_;
    std::string text_;
};

std::string Swatch(bool in_colour, int colour) {
    return in_colour ? fmt::format("\x1b[38;5;{}m██{} ", colour, kPlain) : "";
}

std::string More(std::size_t count) {
    return count <= kMostRows ? "" : fmt::format("  and {} more\n", count - kMostRows);
}

std::string Tables(const FileMap &map, bool in_colour) {
    std::string text = fmt::format("\n{}{:>12}{:>12}{:>14}{:>9}  {}\n", in_colour ? "   " : "", "offset", "end", "size",
                                   "entropy", "what");
    for (std::size_t index = 0; index < std::min(map.segments.size(), kMostRows); ++index) {
        const Segment &segment = map.segments[index];
        fmt::format_to(std::back_inserter(text), "{}{:>#12x}{:>#12x}{:>14}{:>9}  {}\n",
                       Swatch(in_colour, ColourOf(map, index)), segment.place.offset, segment.place.End(),
                       segment.place.length, segment.entropy < 0 ? "-" : fmt::format("{:.2f}", segment.entropy),
                       base::Printable(segment.name));
    }
    text += More(map.segments.size());
    if (map.marks.empty())
        return text;
    text += '\n';
    for (std::size_t index = 0; index < std::min(map.marks.size(), kMostRows); ++index) {
        const Mark &mark = map.marks[index];
        fmt::format_to(std::back_inserter(text), "{}{:>#12x}{:>#12x}{:>14}{:>9}  {}\n",
                       Swatch(in_colour, ColourOf(mark.kind)), mark.place.offset, mark.place.End(), mark.place.length,
                       "", base::Printable(mark.label));
    }
    return text + More(map.marks.size());
}

} // namespace

std::string TerminalText(const FileMap &map, TerminalLook look) {
    if (map.size == 0)
        return "";
    return Picture(map, look).Draw() + Tables(map, look.in_colour);
}

} // namespace tavrik::scanner::map
