/* Detection names: a category, a family, and a variant such as "LD4". */
#ifndef TAVRIK_DATABASE_GENERATOR_NAMES_H
#define TAVRIK_DATABASE_GENERATOR_NAMES_H

#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "database/generator/random.h"

namespace tavrik::generator {

/** An invented word of 4 to 8 letters, the same for the same number. */
std::string FamilyWord(uint64_t seed);

/** An invented word in small letters, for file names and the like. */
std::string SmallWord(Random &random);

/** Gives out detection names, none twice. */
class DetectionNames {
public:
    /** Keeps a name from being given out. */
    void Take(const std::string &name) { used_.insert(name); }

    /** The next variant of a family. */
    std::string Next(std::string_view category, const std::string &family, Random &random);

private:
    std::set<std::string> used_;
};

} // namespace tavrik::generator

#endif
