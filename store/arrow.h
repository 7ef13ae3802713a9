/* The files of a store as a stream of columns by Arrow's C data and stream interfaces: structures of a published
 * layout, by which programs in one process hand columns to each other without copying them
 * (https://arrow.apache.org/docs/format/CDataInterface.html). */
#ifndef TAVRIK_STORE_ARROW_H
#define TAVRIK_STORE_ARROW_H

#include <cstdint>
#include <filesystem>

namespace tavrik::store {

/** The type of a column, or with children of a table. Whoever has it calls `release` in the end; null there: it was. */
struct ArrowSchema {
    const char *format;
    const char *name;
    const char *metadata;
    int64_t flags;
    int64_t n_children;
    ArrowSchema **children;
    ArrowSchema *dictionary;
    void (*release)(ArrowSchema *schema);
    void *private_data;
};

/** The values of a column, or with children of a table. Released like a schema; children may be taken out before, by
 * copying them and setting their `release` to null. */
struct ArrowArray {
    int64_t length;
    int64_t null_count;
    int64_t offset;
    int64_t n_buffers;
    int64_t n_children;
    const void **buffers;
    ArrowArray **children;
    ArrowArray *dictionary;
    void (*release)(ArrowArray *array);
    void *private_data;
};

/** A table in parts. The functions return 0 or an errno; after the last part comes one whose `release` is null. */
struct ArrowArrayStream {
    int (*get_schema)(ArrowArrayStream *stream, ArrowSchema *schema);
    int (*get_next)(ArrowArrayStream *stream, ArrowArray *array);
    const char *(*get_last_error)(ArrowArrayStream *stream);
    void (*release)(ArrowArrayStream *stream);
    void *private_data;
};

/** Opens a store for reading until the stream is released, and fills the stream: for each segment a table with the
 * columns `file`, `size`, `sha256`, `pe` and one of 32 bits for each header value, null where a file has none. Paths
 * that are not UTF-8 have replacement characters. The stream serves one thread at a time, its tables any. Throws
 * base::Error. */
void ExportArrow(const std::filesystem::path &store, ArrowArrayStream &stream);

} // namespace tavrik::store

#endif
