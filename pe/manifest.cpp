#include "pe/manifest.h"

#include <string>

namespace tavrik::pe {

namespace {

enum Key : uint32_t {
    kAny = 0,
    kManifestName = 30,
    kManifestVersion = 31,
    kManifestArchitecture = 32,
    kManifestDescription = 33,
    kRequestedExecutionLevel = 34,
    kDependencyName = 35,
};

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// What follows the `number`th (from 1) `start` in the text.
std::optional<std::string_view> After(std::string_view text, std::string_view start, int number = 1) {
    for (; number > 0; --number) {
        const std::size_t place = text.find(start);
        if (place == std::string_view::npos)
            return std::nullopt;
        text.remove_prefix(place + start.size());
    }
    return text;
}

std::optional<std::string_view> UpTo(std::optional<std::string_view> text, std::string_view end) {
    const std::size_t place = text ? text->find(end) : std::string_view::npos;
    return place == std::string_view::npos ? std::nullopt : std::optional(text->substr(0, place));
}

// The value of an attribute in what is between a tag's name and its end.
std::optional<std::string_view> Attribute(std::optional<std::string_view> tag, const std::string &name) {
    const std::string start = name + '=';
    for (std::size_t place = tag ? tag->find(start) : std::string_view::npos; place != std::string_view::npos;
         place = tag->find(start, place + 1)) {
        const std::string_view value = tag->substr(place + start.size());
        if (place > 0 && IsSpace((*tag)[place - 1]) && !value.empty() && (value[0] == '"' || value[0] == '\''))
            return UpTo(value.substr(1), value.substr(0, 1));
    }
    return std::nullopt;
}

std::optional<std::string_view> Identity(std::string_view manifest, int number) {
    return UpTo(After(manifest, "<assemblyIdentity", number), ">");
}

} // namespace

std::optional<std::string_view> FindInManifest(std::string_view manifest, uint32_t key) {
    switch (key) {
    case kAny:
        return manifest;
    case kManifestName:
        return Attribute(Identity(manifest, 1), "name");
    case kManifestVersion:
        return Attribute(Identity(manifest, 1), "version");
    case kManifestArchitecture:
        return Attribute(Identity(manifest, 1), "processorArchitecture");
    case kManifestDescription:
        return UpTo(After(manifest, "<description>"), "</description>");
    case kRequestedExecutionLevel:
        return Attribute(UpTo(After(manifest, "requestedExecutionLevel"), ">"), "level");
    case kDependencyName:
        return Attribute(Identity(manifest, 2), "name");
    default:
        return std::nullopt;
    }
}

} // namespace tavrik::pe
