/* Functions for the slots of the C ABI's tables that the module never calls. */
#ifndef TAVRIK_SCANNER_UNUSED_H
#define TAVRIK_SCANNER_UNUSED_H

#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace tavrik::scanner {

enum class SlotOf { HostServices, FileStream };

/** Ends the program with a message: the module called slot `Slot` of a table, which this host does not supply. */
template <SlotOf Table, std::size_t Slot>
void UnusedSlot() {
    std::fprintf(stderr, "tavrik host: the module called slot %zu of %s, which this host does not supply\n", Slot,
                 Table == SlotOf::HostServices ? "the host services" : "the file stream");
    std::abort();
}

} // namespace tavrik::scanner

#endif
