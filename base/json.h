/* Values of JSON and their text. */
#ifndef TAVRIK_BASE_JSON_H
#define TAVRIK_BASE_JSON_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tavrik::base {

struct JsonMember;

/** A value of JSON, to be written only. An object's members keep the order in which they came. What it is called with
 * is that part of nlohmann-json's interface that reports need. Unlike that library's values it allocates nothing when
 * it is destroyed, so whoever has used up the memory gets an exception and not the end of the program. Destruction and
 * writing recurse: the depth is that of the code which makes values, never that of a file. */
class Json {
public:
    Json(); // null
    Json(std::nullptr_t) : Json() {}
    Json(bool value);
    Json(double number);
    Json(std::string text);
    Json(std::string_view text) : Json(std::string(text)) {}
    Json(const char *text) : Json(std::string(text)) {}
    template <std::signed_integral Number>
    Json(Number number) : Json(Signed{number}) {}
    template <std::unsigned_integral Number>
    requires(!std::same_as<Number, bool>) Json(Number number) : Json(Unsigned{number}) {}
    template <std::integral Number>
    Json(const std::vector<Number> &numbers) : Json(array()) {
        for (const Number number : numbers)
            push_back(number);
    }
    /** An object of these members, each of another name. */
    Json(std::initializer_list<JsonMember> members);

    Json(const Json &other);
    Json(Json &&other) noexcept;
    Json &operator=(const Json &other);
    Json &operator=(Json &&other) noexcept;
    ~Json();

    static Json array();
    static Json object();

    /** The member of that name, null if it is new; null becomes an object, anything else than an object is refused by
     * std::bad_variant_access. A reference holds until the next member is added. */
    Json &operator[](std::string_view key);

    /** Adds an element at the end; null becomes an array, anything else than an array is refused as above. Returns the
     * element, for which the same holds. */
    Json &push_back(Json element);

    /** The last element of an array that has some. */
    Json &back();

    /** Appends the value on one line in UTF-8: no spaces, bytes that are not UTF-8 as U+FFFD, numbers without end as
     * null. */
    void AppendTo(std::string &text) const;
    std::string Text() const;

private:
    struct Signed {
        int64_t value;
    };
    struct Unsigned {
        uint64_t value;
    };
    explicit Json(Signed number);
    explicit Json(Unsigned number);

    std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string, std::vector<Json>,
                 std::vector<JsonMember>>
        value_;
};

/** A member of an object. The value can be moved out of a list of members, whose elements are constant. */
struct JsonMember {
    std::string key;
    mutable Json value;
};

} // namespace tavrik::base

#endif
