#include "scanner/map/file_map.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>

#include <fmt/format.h>

#include "pe/certificate.h"

namespace tavrik::scanner::map {

namespace {

// A stretch that says to be of an area. Of several the first in the list has the bytes.
struct Claim {
    Area area;
    base::Region place;
    std::string name;
};

std::string NameOf(const SectionHeader &section) {
    const std::string name(reinterpret_cast<const char *>(section.Name), sizeof section.Name);
    return name.substr(0, name.find('\0'));
}

base::Region Cut(uint64_t offset, uint64_t length, uint64_t size) {
    return offset >= size ? base::Region{} : base::Region{offset, std::min(length, size - offset)};
}

std::vector<Claim> ClaimsOf(const pe::Image &image) {
    std::vector<Claim> claims;
    const uint64_t table_end = image.SectionTableOffset() + image.sections().size() * sizeof(SectionHeader);
    claims.push_back({Area::Headers, Cut(0, table_end, image.size()), "headers"});
    for (std::size_t index = 0; index < image.sections().size(); ++index)
        claims.push_back({Area::Section, image.RawData(index), NameOf(image.sections()[index])});
    claims.push_back({Area::Signature, pe::CertificateTable(image), "signature"});
    claims.push_back({Area::Headers, Cut(0, image.SizeOfHeaders(), image.size()), "headers"});
    uint64_t sections_end = 0;
    for (const Claim &claim : claims)
        if (claim.area == Area::Section && !claim.place.IsAbsent())
            sections_end = std::max(sections_end, claim.place.End());
    claims.push_back({Area::Overlay, Cut(sections_end, image.size(), image.size()), "overlay"});
    claims.push_back({Area::Gap, Cut(0, image.size(), image.size()), "gap"});
    return claims;
}

using Histogram = std::array<uint32_t, 256>;

double EntropyOf(const Histogram &counts) {
    uint64_t total = 0;
    double sum = 0; // of n * log2(n)
    for (const uint32_t count : counts)
        if (count != 0) {
            total += count;
            sum += count * std::log2(static_cast<double>(count));
        }
    if (total == 0)
        return -1;
    const auto bytes = static_cast<double>(total);
    return std::max(0.0, std::log2(bytes) - sum / bytes);
}

// Several tables, so that a run of equal bytes does not wait for one counter.
void Count(std::span<const uint8_t> bytes, Histogram &counts) {
    constexpr std::size_t kTables = 4;
    Histogram tables[kTables] = {};
    std::size_t at = 0;
    for (; at + kTables <= bytes.size(); at += kTables)
        for (std::size_t table = 0; table < kTables; ++table)
            ++tables[table][bytes[at + table]];
    for (; at < bytes.size(); ++at)
        ++tables[0][bytes[at]];
    for (std::size_t value = 0; value < counts.size(); ++value)
        counts[value] += tables[0][value] + tables[1][value] + tables[2][value] + tables[3][value];
}

void Add(const Histogram &part, Histogram &sum) {
    for (std::size_t value = 0; value < sum.size(); ++value)
        sum[value] += part[value];
}

} // namespace

std::vector<Segment> SegmentsOf(const pe::Image &image) {
    if (image.size() == 0)
        return {};
    if (!image.IsPe())
        return {{Area::Data, {0, image.size()}, "data", -1}};
    const std::vector<Claim> claims = ClaimsOf(image);
    std::vector<uint64_t> borders = {0, image.size()};
    for (const Claim &claim : claims)
        if (!claim.place.IsAbsent())
            borders.insert(borders.end(), {claim.place.offset, claim.place.End()});
    std::sort(borders.begin(), borders.end());
    borders.erase(std::unique(borders.begin(), borders.end()), borders.end());

    std::vector<Segment> segments;
    const Claim *before = nullptr;
    for (std::size_t index = 0; index + 1 < borders.size(); ++index) {
        const auto claim = std::find_if(claims.begin(), claims.end(), [&](const Claim &candidate) {
            return candidate.place.offset <= borders[index] && borders[index] < candidate.place.End();
        });
        const uint64_t length = borders[index + 1] - borders[index];
        const bool goes_on = before != nullptr && before->area == claim->area && before->name == claim->name &&
                             (claim->area != Area::Section || before == &*claim);
        if (goes_on)
            segments.back().place.length += length;
        else
            segments.push_back({claim->area, {borders[index], length}, claim->name, -1});
        before = &*claim;
    }
    return segments;
}

FileMap MakeMap(base::ByteSource &source, const pe::Image &image) {
    FileMap map;
    map.size = image.size();
    map.segments = SegmentsOf(image);
    map.bucket_size = std::max(kLeastBucket, (map.size + kMostBuckets - 1) / kMostBuckets);
    std::vector<Histogram> of_segments(map.segments.size());
    std::vector<uint8_t> block(kMostSampled);
    std::size_t segment = 0;
    for (uint64_t start = 0; start < map.size; start += map.bucket_size) {
        const auto wanted = static_cast<std::size_t>(std::min({kMostSampled, map.bucket_size, map.size - start}));
        const std::size_t count = source.ReadAt(start, block.data(), wanted);
        Histogram of_bucket = {};
        for (uint64_t at = start; at < start + count;) {
            while (map.segments[segment].place.End() <= at)
                ++segment;
            const uint64_t end = std::min(start + count, map.segments[segment].place.End());
            Histogram part = {};
            Count(std::span(block).subspan(static_cast<std::size_t>(at - start), static_cast<std::size_t>(end - at)),
                  part);
            Add(part, of_bucket);
            Add(part, of_segments[segment]);
            at = end;
        }
        map.entropy.push_back(EntropyOf(of_bucket));
    }
    for (std::size_t index = 0; index < map.segments.size(); ++index)
        map.segments[index].entropy = EntropyOf(of_segments[index]);
    return map;
}

uint64_t TickDistance(uint64_t size, std::size_t most) {
    uint64_t distance = 1;
    while (size / distance >= most)
        distance *= 2;
    return distance;
}

std::string SizeText(uint64_t bytes) {
    constexpr const char *kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
    constexpr double kStep = 1024;
    if (bytes < 1024)
        return fmt::format("{} bytes", bytes);
    double value = static_cast<double>(bytes) / kStep;
    std::size_t unit = 0;
    for (; value >= kStep && unit + 1 < std::size(kUnits); ++unit)
        value /= kStep;
    const bool is_whole = value == std::floor(value);
    return fmt::format("{:.{}f} {}", value, is_whole || value >= 100 ? 0 : value < 10 ? 2 : 1, kUnits[unit]);
}

} // namespace tavrik::scanner::map
