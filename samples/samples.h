/* The sample set: for each locator that can find something a program with its payload, clean programs, and near misses.
 * Nothing in them does anything but end. */
#ifndef TAVRIK_SAMPLES_SAMPLES_H
#define TAVRIK_SAMPLES_SAMPLES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "base/byte_writer.h"
#include "tavrik2/payload_locator.h"

namespace tavrik::samples {

/** One sample file. */
struct Sample {
    std::string file_name;
    std::string about;                    // what it is, in a line
    std::optional<uint32_t> entry;        // the locator that it is for; with a near miss, the one that it just misses
    std::optional<LocatorResult> finding; // what that locator reports; none for a near miss
    base::Bytes bytes;
};

/** The number of samples. */
std::size_t SampleCount();

/** The sample at `index`, the same bytes each time; samples are up to several MiB large, so keep few of them. */
Sample MakeSample(std::size_t index);

} // namespace tavrik::samples

#endif
