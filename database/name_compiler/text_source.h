/* The text form of the name tables: sections of entries, one entry a line; and diagnostics about it.
 *
 * docs/rule-database.md describes the form. */
#ifndef TAVRIK_DATABASE_NAME_COMPILER_TEXT_SOURCE_H
#define TAVRIK_DATABASE_NAME_COMPILER_TEXT_SOURCE_H

#include <cstddef>
#include <string>
#include <vector>

namespace tavrik::name_compiler {

/** A place in one of the source files; line and column (in bytes) count from 1. */
struct Place {
    size_t file = 0;
    size_t line = 1;
    size_t column = 1;
};

/** A quoted text without its quotes and escapes, or a bare word as written. */
struct Field {
    bool quoted = false;
    std::string value;
    Place place;
};

struct Entry {
    std::vector<Field> fields; // at least one
};

struct Section {
    std::string name;
    Place place;
    std::vector<Entry> entries;
};

/** The source files and what was found wrong in them. */
class Sources {
public:
    /** Reads a file and splits it into sections. What is wrong with its form is reported. */
    std::vector<Section> Read(const std::string &path);

    /** Remembers an error at a place. */
    void Report(Place place, std::string message);

    bool Failed() const { return !errors_.empty(); }

    /** All errors in the order of files and lines, each with its line and a caret, for people. */
    std::string Describe() const;

private:
    struct File {
        std::string path;
        std::vector<std::string> lines;
    };
    struct Error {
        Place place;
        std::string message;
    };

    std::vector<Field> ReadFields(Place place);

    std::vector<File> files_;
    std::vector<Error> errors_;
};

} // namespace tavrik::name_compiler

#endif
