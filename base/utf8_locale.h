/* The encoding that libraries take names for. */
#ifndef TAVRIK_BASE_UTF8_LOCALE_H
#define TAVRIK_BASE_UTF8_LOCALE_H

namespace tavrik::base {

/** While this lives, the C library takes the texts of this thread for UTF-8, where the system allows a thread its own
 * encoding. */
class Utf8Locale {
public:
    Utf8Locale();
    ~Utf8Locale();
    Utf8Locale(const Utf8Locale &) = delete;
    Utf8Locale &operator=(const Utf8Locale &) = delete;

private:
    void *before_; // the system's
};

} // namespace tavrik::base

#endif
