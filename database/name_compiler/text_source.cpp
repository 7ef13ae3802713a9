#include "database/name_compiler/text_source.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <tuple>

#include <fmt/format.h>

namespace tavrik::name_compiler {
namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kEndsWord = " \t\"#";

// Takes an escape whose backslash is at `at` and moves `at` past it. Returns false, and does not move, when it is not a
// known escape.
bool TakeEscape(std::string_view line, size_t &at, char &byte) {
    const std::string_view rest = line.substr(at + 1);
    if (!rest.empty() && (rest[0] == '"' || rest[0] == '\\')) {
        byte = rest[0];
        at += 2;
        return true;
    }
    uint8_t value = 0;
    if (rest.size() >= 3 && rest[0] == 'x' && std::from_chars(&rest[1], &rest[1] + 2, value, 16).ptr == &rest[1] + 2) {
        byte = static_cast<char>(value);
        at += 4;
        return true;
    }
    return false;
}

} // namespace

void Sources::Report(Place place, std::string message) {
    errors_.push_back({place, std::move(message)});
}

// The fields of a line. After an error the rest of the line is passed over.
std::vector<Field> Sources::ReadFields(Place place) {
    const std::string_view line = files_[place.file].lines[place.line - 1];
    std::vector<Field> fields;
    size_t at = 0;
    while ((at = line.find_first_not_of(kBlanks, at)) != line.npos && line[at] != '#') {
        place.column = at + 1;
        Field field{line[at] == '"', {}, place};
        if (!field.quoted) {
            const size_t end = std::min(line.find_first_of(kEndsWord, at), line.size());
            field.value = line.substr(at, end - at);
            at = end;
        } else {
            for (++at; at < line.size() && line[at] != '"';) {
                char byte = line[at];
                if (byte != '\\') {
                    ++at;
                } else if (!TakeEscape(line, at, byte)) {
                    place.column = at + 1;
                    Report(place, "unknown escape; write \\\" or \\\\ or \\x and two hex digits");
                    return {};
                }
                field.value += byte;
            }
            if (at == line.size()) {
                Report(place, "the text has no closing quote on this line");
                return {};
            }
            ++at;
        }
        fields.push_back(std::move(field));
    }
    return fields;
}

std::vector<Section> Sources::Read(const std::string &path) {
    files_.push_back({path, {}});
    Place place{files_.size() - 1, 1, 1};
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        Report(place, "the file cannot be read");
        return {};
    }
    for (std::string line; std::getline(stream, line);) {
        if (line.ends_with('\r'))
            line.pop_back();
        files_.back().lines.push_back(std::move(line));
    }

    std::vector<Section> sections;
    for (place.line = 1; place.line <= files_.back().lines.size(); ++place.line) {
        const bool continues = files_.back().lines[place.line - 1].find_first_of(kBlanks) == 0;
        std::vector<Field> fields = ReadFields(place);
        if (fields.empty())
            continue;
        const Field &first = fields.front();
        if (!first.quoted && first.value.starts_with('[')) {
            if (fields.size() != 1 || !first.value.ends_with(']'))
                Report(first.place, "a section begins with its name in brackets, alone on its line");
            else
                sections.push_back({first.value.substr(1, first.value.size() - 2), first.place, {}});
        } else if (sections.empty()) {
            Report(first.place, "expected a section, such as [Keywords]");
            break;
        } else if (!continues) {
            sections.back().entries.push_back({std::move(fields)});
        } else if (sections.back().entries.empty()) {
            Report(first.place, "a line that begins with a blank continues an entry, but there is none before it");
        } else {
            auto &entry = sections.back().entries.back().fields;
            std::move(fields.begin(), fields.end(), std::back_inserter(entry));
        }
    }
    return sections;
}

std::string Sources::Describe() const {
    std::vector<Error> errors = errors_;
    std::stable_sort(errors.begin(), errors.end(), [](const Error &left, const Error &right) {
        return std::tie(left.place.file, left.place.line, left.place.column) <
               std::tie(right.place.file, right.place.line, right.place.column);
    });
    std::string out;
    for (const auto &[place, message] : errors) {
        const File &file = files_[place.file];
        out += fmt::format("{}:{}:{}: error: {}\n", file.path, place.line, place.column, message);
        if (place.line > file.lines.size())
            continue;
        const std::string &line = file.lines[place.line - 1];
        std::string caret = line.substr(0, place.column - 1);
        std::replace_if(
            caret.begin(), caret.end(), [](char byte) { return byte != '\t'; }, ' ');
        out += fmt::format("    {}\n    {}^\n", line, caret);
    }
    return out;
}

} // namespace tavrik::name_compiler
