#include "rules/text/rule_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <system_error>

#include "base/error.h"
#include "base/text.h"

namespace tavrik::rules::text {

namespace {

std::string ReadAll(const std::filesystem::path &path) {
    if (std::filesystem::is_directory(path))
        throw base::Error(path, "is a folder; name the rule files in it");
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw base::Error(path, std::string("cannot be read: ") + std::strerror(errno));
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (file.bad())
        throw base::Error(path, "cannot be read to its end");
    return text;
}

std::string ReadNamed(const std::string &name) {
    return name == kStandardInput ? std::string{std::istreambuf_iterator<char>(std::cin), {}}
                                  : ReadAll(base::PathOf(name));
}

// One path for each file, whatever it is called by.
std::filesystem::path Identity(const std::filesystem::path &path) {
    std::error_code error;
    const std::filesystem::path whole = std::filesystem::weakly_canonical(path, error);
    return error ? path.lexically_normal() : whole;
}

// A text that an include names: a pipe or device might have no end.
std::string ReadIncluded(const std::filesystem::path &path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status))
        throw base::Error(path, "there is no such file");
    if (!std::filesystem::is_regular_file(status))
        throw base::Error(path, "is no file");
    if (std::filesystem::file_size(path, error) > kLargestRuleFile || error)
        throw base::Error(path, "is too large");
    return ReadAll(path);
}

} // namespace

RuleFile::RuleFile(const std::string &name) : RuleFile(name, ReadNamed(name)) {}

RuleFile::RuleFile(const std::string &name, std::string text)
    : source{name == kStandardInput ? "<standard input>" : name, std::move(text)},
      parsed(ParseRules(source.text, Includes::Allowed)) {}

void RuleFileReader::Read(const std::string &name) {
    const std::filesystem::path path = name == kStandardInput ? std::filesystem::path() : base::PathOf(name);
    if (!path.empty() && included_.contains(Identity(path)))
        return;
    auto file = std::make_unique<RuleFile>(name);
    if (!path.empty())
        named_.insert(Identity(path));
    Add(std::move(file), path);
}

void RuleFileReader::Add(std::unique_ptr<RuleFile> file, const std::filesystem::path &path) {
    open_.push_back(path.empty() ? path : Identity(path));
    // Of a file with errors, what it includes may be what is wrong.
    for (const Include &include : file->parsed.includes)
        ReadInclude(*file, path, include);
    open_.pop_back();
    std::ranges::stable_sort(file->parsed.diagnostics, {}, &Diagnostic::offset);
    files_.push_back(std::move(file));
}

void RuleFileReader::ReadInclude(RuleFile &file, const std::filesystem::path &path, const Include &include) {
    const auto report = [&](Code code, std::string message, std::string help) {
        if (file.parsed.diagnostics.size() < kMaxErrors)
            file.parsed.diagnostics.push_back(
                {Severity::Error, code, include.offset, include.length, std::move(message), std::move(help)});
    };
    const std::filesystem::path included = path.parent_path() / base::PathOf(include.name);
    const std::filesystem::path identity = Identity(included);
    if (std::ranges::find(open_, identity) != open_.end())
        return report(Code::E009,
                      "this file includes itself" + std::string(open_.back() == identity ? "" : ", by others"),
                      "remove one of the includes");
    if (named_.contains(identity) || included_.contains(identity))
        return;
    if (open_.size() >= kMostIncluded)
        return report(Code::E009, "more than 16 files include one another here", "include the files from one file");
    std::unique_ptr<RuleFile> text;
    try {
        text = std::make_unique<RuleFile>(base::PathText(included), ReadIncluded(included));
    } catch (const base::Error &error) {
        return report(Code::E008, "this file cannot be included: " + error.reason(),
                      "the path is relative to the folder of this file");
    }
    included_.insert(identity);
    Add(std::move(text), included);
}

RuleSet RuleFileReader::Rules() const {
    RuleSet all;
    for (const std::unique_ptr<RuleFile> &file : files_)
        std::ranges::copy(file->parsed.set.rules, std::back_inserter(all.rules));
    return all;
}

bool RuleFileReader::HasErrors() const {
    return std::ranges::any_of(files_, [](const auto &file) { return text::HasErrors(file->parsed.diagnostics); });
}

} // namespace tavrik::rules::text
