#include "base/json.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "base/text.h"
#include "base/utf8.h"

namespace tavrik::base {

namespace {

void WriteJson(std::string &text, std::nullptr_t) {
    text += "null";
}

void WriteJson(std::string &text, bool value) {
    text += value ? "true" : "false";
}

template <std::integral Number>
void WriteJson(std::string &text, Number number) {
    const fmt::format_int digits(number);
    text.append(digits.data(), digits.size());
}

// The shortest digits that give the number back; one that is whole has a fraction, so that it is read as what it was.
void WriteJson(std::string &text, double number) {
    if (!std::isfinite(number))
        return WriteJson(text, nullptr);
    const std::size_t start = text.size();
    fmt::format_to(std::back_inserter(text), "{}", number);
    if (text.find_first_of(".e", start) == std::string::npos)
        text += ".0";
}

void WriteEscaped(std::string &text, char letter) {
    switch (letter) {
    case '"':
    case '\\':
        text += '\\';
        text += letter;
        break;
    case '\b':
        text += "\\b";
        break;
    case '\t':
        text += "\\t";
        break;
    case '\n':
        text += "\\n";
        break;
    case '\f':
        text += "\\f";
        break;
    case '\r':
        text += "\\r";
        break;
    default:
        fmt::format_to(std::back_inserter(text), "\\u{:04x}", static_cast<unsigned>(letter));
    }
}

void WriteJson(std::string &text, const std::string &value) {
    if (!IsUtf8(value))
        return WriteJson(text, LossyUtf8(value));
    text += '"';
    const auto is_escaped = [](char letter) {
        return static_cast<unsigned char>(letter) < 0x20 || letter == '"' || letter == '\\';
    };
    for (auto place = value.begin(); place != value.end();) {
        const auto end = std::find_if(place, value.end(), is_escaped);
        text.append(place, end);
        place = end;
        if (place != value.end())
            WriteEscaped(text, *place++);
    }
    text += '"';
}

void WriteJson(std::string &text, const std::vector<Json> &elements) {
    char before = '[';
    for (const Json &element : elements) {
        text += std::exchange(before, ',');
        element.AppendTo(text);
    }
    text += elements.empty() ? "[]" : "]";
}

void WriteJson(std::string &text, const std::vector<JsonMember> &members) {
    char before = '{';
    for (const JsonMember &member : members) {
        text += std::exchange(before, ',');
        WriteJson(text, member.key);
        text += ':';
        member.value.AppendTo(text);
    }
    text += members.empty() ? "{}" : "}";
}

} // namespace

Json::Json() = default;
Json::Json(bool value) : value_(value) {}
Json::Json(double number) : value_(number) {}
Json::Json(std::string text) : value_(std::move(text)) {}
Json::Json(Signed number) : value_(number.value) {}
Json::Json(Unsigned number) : value_(number.value) {}

Json::Json(std::initializer_list<JsonMember> members) : value_(std::vector<JsonMember>()) {
    auto &own = std::get<std::vector<JsonMember>>(value_);
    own.reserve(members.size());
    for (const JsonMember &member : members)
        own.push_back({member.key, std::move(member.value)});
}

Json::Json(const Json &other) = default;
Json::Json(Json &&other) noexcept = default;
Json &Json::operator=(const Json &other) = default;
Json &Json::operator=(Json &&other) noexcept = default;
Json::~Json() = default;

Json Json::array() {
    Json value;
    value.value_ = std::vector<Json>();
    return value;
}

Json Json::object() {
    return std::initializer_list<JsonMember>();
}

Json &Json::operator[](std::string_view key) {
    if (std::holds_alternative<std::nullptr_t>(value_))
        value_ = std::vector<JsonMember>();
    auto &members = std::get<std::vector<JsonMember>>(value_);
    const auto place =
        std::find_if(members.begin(), members.end(), [key](const JsonMember &member) { return member.key == key; });
    return place != members.end() ? place->value : members.emplace_back(JsonMember{std::string(key), {}}).value;
}

Json &Json::push_back(Json element) {
    if (std::holds_alternative<std::nullptr_t>(value_))
        value_ = std::vector<Json>();
    return std::get<std::vector<Json>>(value_).emplace_back(std::move(element));
}

Json &Json::back() {
    return std::get<std::vector<Json>>(value_).back();
}

void Json::AppendTo(std::string &text) const {
    std::visit([&text](const auto &value) { WriteJson(text, value); }, value_);
}

std::string Json::Text() const {
    std::string text;
    AppendTo(text);
    return text;
}

} // namespace tavrik::base
