#include "scanner/map/svg_map.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "base/markup.h"
#include "base/text.h"

namespace tavrik::scanner::map {

const char kMapStyle[] = R"(.tavrik-map{font:11px ui-monospace,Menlo,Consolas,"DejaVu Sans Mono",monospace}
.tavrik-map .back{fill:#ffffff}
.tavrik-map text{fill:#24292f}
.tavrik-map .name{fill:#ffffff}
.tavrik-map .dim{fill:#57606a}
.tavrik-map .grid{stroke:#d0d7de;stroke-width:1}
.tavrik-map .frame{fill:none;stroke:#8c959f;stroke-width:1}
.tavrik-map .headers{fill:#6e7781}
.tavrik-map .gap{fill:#c6ccd2}
.tavrik-map .data,.tavrik-map .s0{fill:#2f6f9f}
.tavrik-map .s1{fill:#3f7d58}
.tavrik-map .s2{fill:#8a6d2f}
.tavrik-map .s3{fill:#6a5aa0}
.tavrik-map .s4{fill:#2b7a78}
.tavrik-map .s5{fill:#8b5a6b}
.tavrik-map .overlay{fill:#b8611b}
.tavrik-map .signature{fill:#8e3a8c}
.tavrik-map .entropy{fill:#57606a}
.tavrik-map .payload{fill:#bc5a00}
.tavrik-map .near{fill:#0b7285}
.tavrik-map .string{fill:#c92a2a}
.tavrik-map .read{fill:#2b8a3e}
@media (prefers-color-scheme:dark){
.tavrik-map .back{fill:#161b22}
.tavrik-map text{fill:#e6edf3}
.tavrik-map .name{fill:#ffffff}
.tavrik-map .dim{fill:#9aa4b0}
.tavrik-map .grid{stroke:#3d444d}
.tavrik-map .frame{stroke:#6e7681}
.tavrik-map .gap{fill:#3d444d}
.tavrik-map .entropy{fill:#9aa4b0}
.tavrik-map .payload{fill:#f0883e}
.tavrik-map .near{fill:#3bc9db}
.tavrik-map .string{fill:#ff6b6b}
.tavrik-map .read{fill:#51cf66}
}
)";

namespace {

// Lengths of the picture, in its own units.
constexpr double kWidth = 1000;
constexpr double kLeft = 76; // of the axis
constexpr double kRight = 988;
constexpr double kLetter = 6.7; // the width of one
constexpr double kGap = 8;      // between two rows
constexpr double kBar = 24;
constexpr double kCurve = 48;
constexpr double kMarks = 14;
constexpr double kLeastMark = 1.5; // the width of a mark that would be narrower
constexpr std::size_t kMostTicks = 10;
constexpr std::size_t kMostMarks = 256; // of a kind
constexpr std::size_t kMostReads = 256;

class Drawing {
public:
    explicit Drawing(const FileMap &map) : map_(map) {}

    std::string Draw(std::string_view style) {
        Axis();
        Layout();
        Entropy();
        Marks("payloads", "payload", MarkKind::Payload);
        Marks("near", "near", MarkKind::NearMiss);
        Marks("strings", "string", MarkKind::DetectionString);
        Reads();
        const double height = top_;
        return fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" class=\"tavrik-map\" viewBox=\"0 0 {:.0f} {:.0f}\" "
            "role=\"img\" aria-label=\"map of the file\">\n{}"
            "<rect class=\"back\" width=\"{:.0f}\" height=\"{:.0f}\"/>\n{}</svg>\n",
            kWidth, height, style, kWidth, height, body_);
    }

private:
    double X(uint64_t offset) const {
        return kLeft + (kRight - kLeft) * static_cast<double>(offset) / static_cast<double>(map_.size);
    }

    template <typename... Values>
    void Add(fmt::format_string<Values...> format, Values &&...values) {
        fmt::format_to(std::back_inserter(body_), format, std::forward<Values>(values)...);
    }

    void Label(std::string_view label, double height) {
        Add("<text class=\"dim\" x=\"{:.0f}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", kLeft - 8,
            top_ + height / 2 + 4, label);
    }

    void Axis() {
        constexpr double kNumbers = 30;
        Label("offset", 16);
        const uint64_t distance = TickDistance(map_.size, kMostTicks);
        constexpr double kLongestNumber = 11 * kLetter;
        for (uint64_t offset = 0; offset < map_.size; offset += distance) {
            if (X(offset) + kLongestNumber > kWidth)
                continue;
            Add("<text x=\"{:.1f}\" y=\"{:.1f}\">{:#x}</text>\n", X(offset) + 3, top_ + 12, offset);
            Add("<text class=\"dim\" x=\"{:.1f}\" y=\"{:.1f}\">{}</text>\n", X(offset) + 3, top_ + 26,
                offset == 0 ? "0" : SizeText(offset));
            Add("<path class=\"grid\" d=\"M{:.1f} {:.1f}v{:.1f}\"/>\n", X(offset), top_ + 4, kNumbers);
        }
        top_ += kNumbers + 4;
    }

    std::string ClassOf(const Segment &segment, std::size_t &sections) const {
        switch (segment.area) {
        case Area::Headers:
            return "headers";
        case Area::Gap:
            return "gap";
        case Area::Overlay:
            return "overlay";
        case Area::Signature:
            return "signature";
        case Area::Data:
            return "data";
        default:
            return fmt::format("s{}", sections++ % 6);
        }
    }

    static std::string Place(base::Region place) {
        return fmt::format("{:#x} to {:#x}, {}", place.offset, place.End(), SizeText(place.length));
    }

    void Layout() {
        Label("layout", kBar);
        std::size_t sections = 0;
        for (const Segment &segment : map_.segments) {
            const double left = X(segment.place.offset);
            const double width = X(segment.place.End()) - left;
            const std::string printable = base::Printable(segment.name);
            Add("<rect class=\"{}\" x=\"{:.2f}\" y=\"{:.1f}\" width=\"{:.2f}\" height=\"{:.0f}\"><title>{}: "
                "{}{}</title>"
                "</rect>\n",
                ClassOf(segment, sections), left, top_, width, kBar, base::MarkupText(segment.name),
                Place(segment.place), segment.entropy < 0 ? "" : fmt::format(", entropy {:.2f}", segment.entropy));
            if (kLetter * static_cast<double>(printable.size()) + 8 <= width && segment.area != Area::Gap)
                Add("<text class=\"name\" x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">{}</text>\n",
                    left + width / 2, top_ + kBar / 2 + 4, base::MarkupText(segment.name));
        }
        Frame(kBar);
    }

    void Frame(double height) {
        Add("<rect class=\"frame\" x=\"{:.0f}\" y=\"{:.1f}\" width=\"{:.0f}\" height=\"{:.0f}\"/>\n", kLeft, top_,
            kRight - kLeft, height);
        top_ += height + kGap;
    }

    // The curve is a row of steps; what could not be read is drawn as 0.
    void Entropy() {
        Label("entropy", kCurve);
        Add("<path class=\"grid\" d=\"M{:.0f} {:.1f}H{:.0f}\"/>\n", kLeft, top_ + kCurve / 2, kRight);
        Add("<path class=\"entropy\" d=\"M{:.0f} {:.1f}", kLeft, top_ + kCurve);
        for (std::size_t bucket = 0; bucket < map_.entropy.size(); ++bucket)
            Add("V{:.1f}H{:.1f}", top_ + kCurve * (1 - std::max(map_.entropy[bucket], 0.0) / 8),
                X(std::min(map_.size, (bucket + 1) * map_.bucket_size)));
        Add("V{:.1f}Z\"><title>entropy of {} at a time, 0 to 8 bits per byte</title></path>\n", top_ + kCurve,
            SizeText(map_.bucket_size));
        Frame(kCurve);
    }

    void Stretch(std::string_view css_class, base::Region place, double height, std::string_view title) {
        const double left = X(std::min(place.offset, map_.size));
        const double width = std::max(X(std::min(place.End(), map_.size)) - left, kLeastMark);
        Add("<rect class=\"{}\" x=\"{:.2f}\" y=\"{:.1f}\" width=\"{:.2f}\" "
            "height=\"{:.0f}\"><title>{}</title></rect>\n",
            css_class, left, top_, width, height, title);
    }

    void Marks(std::string_view label, std::string_view css_class, MarkKind kind) {
        std::size_t drawn = 0;
        for (const Mark &mark : map_.marks) {
            if (mark.kind != kind || drawn == kMostMarks)
                continue;
            if (drawn++ == 0)
                Label(label, kMarks);
            Stretch(css_class, mark.place, kMarks, base::MarkupText(mark.label) + ": " + Place(mark.place));
        }
        if (drawn != 0)
            Frame(kMarks);
    }

    void Reads() {
        if (map_.read.empty())
            return;
        Label("read", kMarks);
        for (std::size_t index = 0; index < std::min(map_.read.size(), kMostReads); ++index)
            Stretch("read", map_.read[index], kMarks, "read by the scan: " + Place(map_.read[index]));
        Frame(kMarks);
    }

    const FileMap &map_;
    std::string body_;
    double top_ = 2;
};

} // namespace

std::string SvgElement(const FileMap &map) {
    return map.size == 0 ? "" : Drawing(map).Draw("");
}

std::string SvgDocument(const FileMap &map) {
    constexpr char kEmpty[] = "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1000 24\"/>\n";
    return map.size == 0 ? kEmpty : Drawing(map).Draw(fmt::format("<style>{}</style>\n", kMapStyle));
}

} // namespace tavrik::scanner::map
