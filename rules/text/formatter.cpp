#include "rules/text/formatter.h"

#include <algorithm>
#include <compare>
#include <map>
#include <string_view>
#include <vector>

#include "rules/text/printer.h"

namespace tavrik::rules::text {

namespace {

// A piece of the text with lines of its own: the lines of includes, a rule, or a branch of one.
struct Piece {
    const Rule *rule = nullptr; // null: of the includes
    const RuleOrigin *origin = nullptr;
    Spelling spelling = {};
    bool is_branch = false;
    bool is_first_branch = false;
    std::vector<std::size_t> branches = {}; // the pieces of a rule's branches
};

// A place in a text to which comments are attached: a line of canonical form, or an element of one.
struct Anchor {
    std::size_t piece = 0;
    LineKind kind = LineKind::Head;
    Item item = Item::Count;
    std::size_t element = 0;

    auto operator<=>(const Anchor &) const = default;
};

struct Comments {
    std::vector<std::string_view> before; // on lines of their own
    std::vector<std::string_view> after;  // on the anchor's line
};

using CommentMap = std::map<Anchor, Comments>;

struct PlacedAnchor {
    std::size_t offset;
    Anchor anchor;
};

Spelling SpellingOf(const RuleOrigin &origin) {
    Spelling spelling;
    spelling.values = &origin.values;
    spelling.expression = origin.expression;
    return spelling;
}

// The pieces of a file in the order of their places; the first is that of the includes.
std::vector<Piece> PiecesOf(const ParsedFile &file) {
    std::vector<Piece> pieces(1);
    auto either = file.eithers.begin();
    for (std::size_t record = 0; record < file.set.rules.size(); ++record) {
        if (either == file.eithers.end() || either->first != record) {
            pieces.push_back({&file.set.rules[record], &file.origins[record], SpellingOf(file.origins[record])});
            continue;
        }
        const auto add = [&pieces](const WrittenPart &part) {
            pieces.push_back({&part.rule, &part.origin, SpellingOf(part.origin)});
            pieces.back().spelling.is_part = true;
        };
        const std::size_t common = pieces.size();
        add(either->common);
        for (const WrittenPart &branch : either->branches) {
            pieces[common].branches.push_back(pieces.size());
            add(branch);
            pieces.back().is_branch = true;
            pieces.back().is_first_branch = &branch == &either->branches.front();
            pieces.back().spelling.first_string = either->common.rule.strings.size();
        }
        record += either->branches.size() - 1;
        ++either;
    }
    return pieces;
}

// All anchors of a file, in the order of their places.
std::vector<PlacedAnchor> AnchorsOf(const ParsedFile &file, const std::vector<Piece> &pieces) {
    std::vector<PlacedAnchor> anchors;
    for (std::size_t i = 0; i < file.includes.size(); ++i)
        anchors.push_back({file.includes[i].offset, {0, LineKind::Row, Item::Count, i}});
    for (std::size_t piece = 1; piece < pieces.size(); ++piece) {
        const RuleOrigin &origin = *pieces[piece].origin;
        anchors.push_back({origin.begin, {piece, LineKind::Head, Item::Count, 0}});
        for (std::size_t number = 0; number < kItemCount; ++number) {
            const auto item = static_cast<Item>(number);
            const ItemOrigin &place = origin.of(item);
            if (place.begin == kNoOffset)
                continue;
            anchors.push_back({place.begin, {piece, LineKind::Item, item, 0}});
            for (std::size_t element = 0; element < place.rows.size(); ++element) {
                // The elements of one row share its comments: its first has them.
                if (element == 0 || place.rows[element] != place.rows[element - 1])
                    anchors.push_back({place.rows[element], {piece, LineKind::Row, item, element}});
            }
            if (place.end != kNoOffset)
                anchors.push_back({place.end, {piece, LineKind::ItemEnd, item, 0}});
        }
        anchors.push_back({origin.end, {piece, LineKind::RuleEnd, Item::Count, 0}});
    }
    std::ranges::stable_sort(anchors, {}, &PlacedAnchor::offset);
    return anchors;
}

bool EndsLine(std::string_view comment) {
    return comment.starts_with("//") || comment.find('\n') != std::string_view::npos;
}

class Formatter {
public:
    explicit Formatter(const ParsedFile &file) : file_(file), pieces_(PiecesOf(file)) { Attach(); }

    std::string Format() {
        for (std::size_t i = 0; i < file_.includes.size(); ++i)
            PrintLine(0, {LineKind::Row, Item::Count, i, 1, 0, "include " + QuoteText(file_.includes[i].name)}, 0);
        for (std::size_t piece = 1; piece < pieces_.size(); ++piece) {
            if (pieces_[piece].is_branch)
                continue;
            if (!out_.empty())
                out_ += "\n";
            PrintPiece(piece, 0);
        }
        if (!last_.empty() && !out_.empty())
            out_ += "\n";
        for (const std::string_view comment : last_) {
            PrintComment(comment);
            out_ += "\n";
        }
        return std::move(out_);
    }

private:
    void Attach() {
        const std::vector<PlacedAnchor> anchors = AnchorsOf(file_, pieces_);
        for (const Comment &comment : file_.comments) {
            const auto next = std::ranges::upper_bound(anchors, comment.offset, {}, &PlacedAnchor::offset);
            if (!comment.own_line && next != anchors.begin())
                comments_[std::prev(next)->anchor].after.push_back(comment.text);
            else if (next != anchors.end())
                comments_[next->anchor].before.push_back(comment.text);
            else
                last_.push_back(comment.text);
        }
    }

    // A rule, its branches before its closing brace.
    void PrintPiece(std::size_t number, std::size_t level) {
        const Piece &piece = pieces_[number];
        for (PrintedLine &line : RuleLines(*piece.rule, piece.spelling)) {
            if (line.kind == LineKind::Head && piece.is_branch)
                line.text = piece.is_first_branch ? "either {" : "or {";
            if (line.kind == LineKind::RuleEnd)
                for (const std::size_t branch : piece.branches)
                    PrintPiece(branch, level + 1);
            PrintLine(number, line, level);
        }
    }

    void PrintLine(std::size_t piece, const PrintedLine &line, std::size_t level) {
        Comments comments;
        if (line.kind == LineKind::Row) {
            for (std::size_t element = line.first; element < line.first + line.count; ++element)
                TakeComments({piece, line.kind, line.item, element}, comments);
        } else {
            // What is left of this rule when it ends belongs to parts that are not printed.
            if (line.kind == LineKind::RuleEnd)
                TakeLeftOver(piece, comments);
            TakeComments({piece, line.kind, line.item, 0}, comments);
        }
        // A comment before a closing brace is indented like the rows.
        const bool closing = line.kind == LineKind::ItemEnd || line.kind == LineKind::RuleEnd;
        // Nothing can follow a comment that extends to the line's end: such comments, except the last, move before the
        // row.
        auto &after = comments.after;
        const auto rest = std::find_if(after.rbegin() + (after.empty() ? 0 : 1), after.rend(), EndsLine).base();
        comments.before.insert(comments.before.end(), after.begin(), rest);
        after.erase(after.begin(), rest);
        for (const std::string_view comment : comments.before) {
            Indent(level + line.indent + (closing ? 1 : 0));
            PrintComment(comment);
            out_ += "\n";
        }
        Indent(level + line.indent);
        PrintText(line.text, level);
        std::string_view gap = "  ";
        for (const std::string_view comment : comments.after) {
            out_ += gap;
            PrintComment(comment);
            gap = " ";
        }
        out_ += "\n";
    }

    void TakeComments(const Anchor &anchor, Comments &out) {
        const auto found = comments_.find(anchor);
        if (found == comments_.end())
            return;
        const auto append = [](auto &to, const auto &from) { to.insert(to.end(), from.begin(), from.end()); };
        append(out.before, found->second.before);
        append(out.after, found->second.after);
        comments_.erase(found);
    }

    void TakeLeftOver(std::size_t piece, Comments &out) {
        const auto begin = comments_.lower_bound({piece, LineKind::Head, Item::Meta, 0});
        for (auto each = begin; each != comments_.end() && each->first.piece == piece;) {
            if (each->first.kind == LineKind::RuleEnd) {
                ++each;
                continue;
            }
            for (const auto *list : {&each->second.before, &each->second.after})
                out.before.insert(out.before.end(), list->begin(), list->end());
            each = comments_.erase(each);
        }
    }

    // Line ends within a comment become line feeds, like all others.
    void PrintComment(std::string_view comment) {
        while (!comment.empty()) {
            const std::size_t end = std::min(comment.find('\n'), comment.size());
            std::size_t length = end;
            while (end < comment.size() && length > 0 && comment[length - 1] == '\r')
                --length;
            out_ += comment.substr(0, length);
            out_ += comment.substr(end, 1);
            comment.remove_prefix(std::min(end + 1, comment.size()));
        }
    }

    // The lines of a long hex string have their indentation, but for that of a branch.
    void PrintText(std::string_view text, std::size_t level) {
        for (const char c : text) {
            out_ += c;
            if (c == '\n')
                Indent(level);
        }
    }

    void Indent(std::size_t levels) {
        for (std::size_t level = 0; level < levels; ++level)
            out_ += kIndent;
    }

    const ParsedFile &file_;
    std::vector<Piece> pieces_;
    CommentMap comments_;
    std::vector<std::string_view> last_; // after everything
    std::string out_;
};

} // namespace

std::string FormatRules(const ParsedFile &file) {
    return Formatter(file).Format();
}

} // namespace tavrik::rules::text
