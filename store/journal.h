/* The files that a program has in hand while it adds them to a store, so that the next one knows at which files it
 * ended when it could say nothing any more. */
#ifndef TAVRIK_STORE_JOURNAL_H
#define TAVRIK_STORE_JOURNAL_H

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace tavrik::store {

/** A file beside the store, with a place for each thread. Whoever has the store open for changes has it alone. What is
 * written outlives the program, not a loss of power. */
class Journal {
public:
    /** The files that a program which ended without removing its journal had in hand; "" is not among them. Throws
     * base::Error when there is a journal that cannot be read. */
    static std::vector<std::string> FilesInHand(const std::filesystem::path &store);

    /** Begins a new journal in place of an old one. Throws base::Error. */
    Journal(const std::filesystem::path &store, unsigned threads);

    /** Removes the journal. */
    ~Journal();
    Journal(const Journal &) = delete;
    Journal &operator=(const Journal &) = delete;

    /** The thread has the file in hand, in place of the one before. A path that is too long for a store counts as "".
     * Throws base::Error. */
    void Take(unsigned thread, std::string_view path);

    /** The thread has nothing in hand. */
    void Leave(unsigned thread) { Take(thread, ""); }

private:
    std::filesystem::path path_;
    std::vector<std::fstream> places_; // of the threads: the same file
};

} // namespace tavrik::store

#endif
