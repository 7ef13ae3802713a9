/* How the facts of the profile write what they counted. */
#ifndef TAVRIK_DATABASE_PROFILE_ANSWERS_H
#define TAVRIK_DATABASE_PROFILE_ANSWERS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace tavrik::profile {

using Values = std::set<int64_t>;
using Frequencies = std::map<uint32_t, std::size_t>; // of values

/** "5". */
std::string Count(std::size_t count);

/** "5 of 9". */
std::string OutOf(std::size_t part, std::size_t whole);

/** "1..5". */
std::string Range(uint64_t first, uint64_t last);

/** "0..3, 7": runs of at least three are written as ranges. */
std::string Text(const Values &values);

/** The least and the greatest as a range; "none" when there are no values. */
std::string Bounds(const Values &values);

/** "most" when it is more than half, else both counts. */
std::string Most(std::size_t part, std::size_t whole);

/** "rare" when there are some, but at most one in a hundred, else both counts. */
std::string Rare(std::size_t part, std::size_t whole);

/** "some" when there is at least one, but fewer than half, else both counts. */
std::string Some(std::size_t part, std::size_t whole);

/** "present" or "absent". */
std::string Present(bool present);

/** The values by falling frequency, at most `limit` of them. */
std::string ByFrequency(const Frequencies &counts, std::size_t limit);

/** The values in hexadecimal, ascending. */
std::string HexList(const Frequencies &counts);

} // namespace tavrik::profile

#endif
