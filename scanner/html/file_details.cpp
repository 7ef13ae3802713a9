#include "scanner/html/file_details.h"

#include <algorithm>
#include <optional>

#include <fmt/format.h>

#include "base/error.h"
#include "base/sha256.h"
#include "base/text.h"
#include "evaluation/rule_explanation.h"
#include "pe/format.h"
#include "scanner/map/marks.h"
#include "scanner/watched_source.h"

namespace tavrik::scanner::html {

namespace {

constexpr std::size_t kMostVersionBytes = 64 * 1024;
constexpr std::size_t kMostConditionText = 64 * 1024; // bytes

Contents ContentsOf(base::ByteSource &source, const Payload &payload) {
    Contents contents;
    if (!payload.extent)
        return contents;
    const std::unique_ptr<payloads::Container> container = payloads::OpenPayload(source, *payload.extent);
    while (contents.count < kMostCountedMembers) {
        std::optional<payloads::Member> member = container->Next();
        if (!member) {
            contents.error = container->error();
            return contents;
        }
        ++contents.count;
        if (contents.members.size() < kMostMembers)
            contents.members.push_back(std::move(*member));
    }
    contents.error = fmt::format("counted up to {} members", kMostCountedMembers);
    return contents;
}

pe::VersionInfo VersionOf(evaluation::Features &features) {
    for (const pe::Resource &resource : features.Resources().resources) {
        if (resource.type.number != pe::resource_type::kVersion || resource.data.length > kMostVersionBytes)
            continue;
        if (const auto bytes = features.bytes().Copy(resource.data))
            return pe::ReadVersionInfo(*bytes);
    }
    return {};
}

std::string ConditionsOf(const HeuristicRule &rule, evaluation::Features &features) {
    std::string text = evaluation::ExplainRule(rule, features).text;
    text.resize(std::min(text.size(), kMostConditionText));
    return text;
}

} // namespace

FileDetails Describe(const Scanner &scanner, const FileReport &report) {
    FileDetails details;
    try {
        std::optional<base::FileSource> reopened;
        base::ByteSource &opened = report.stream ? *report.stream : reopened.emplace(report.file);
        WatchedSource source(opened, Deadline(scanner.settings().timeout));
        details.sha256 = report.sha256.empty() ? base::Sha256Of(source) : report.sha256;
        evaluation::Features features(source);
        const pe::Image &image = features.image();
        details.map = map::MakeMap(source, image);
        details.map.read = report.read;
        details.map.marks = map::MarksOf(report, scanner, features);
        if (image.IsPe()) {
            details.kind = fmt::format("{}, {}", image.IsPe32Plus() ? "PE32+" : "PE32",
                                       base::CountText(image.sections().size(), "section"));
            details.has_certificates = !pe::CertificateTable(image).IsAbsent();
            details.signer = pe::ReadSigner(image);
            details.version = VersionOf(features);
        }
        for (const Detection &detection : report.detections)
            details.conditions.push_back(ConditionsOf(*scanner.rules()[detection.place], features));
        for (const Payload &payload : report.payloads)
            details.contents.push_back(ContentsOf(source, payload));
        details.error = source.error();
    } catch (const base::Error &error) {
        details.error = error.reason();
    }
    return details;
}

} // namespace tavrik::scanner::html
