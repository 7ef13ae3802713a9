/* The host's file-access object. */
#ifndef TAVRIK2_FILE_STREAM_H
#define TAVRIK2_FILE_STREAM_H

#include "abi.h"

TAVRIK_PACKED_BEGIN

typedef struct FileStream FileStream;

/* An operation slot that the module never calls; it may be null. */
typedef void (*UnusedOperation)(void);

/* The host's table of operations; a slot's position in the table is the interface.
 *
 * Positions, offsets and lengths are unsigned 32-bit byte counts. `handle` is the host's handle of the open file and is
 * passed through unchanged; any value but FILE_NOT_OPENED will do. A stream carries one position and serves one call at
 * a time: give each thread a stream of its own. Locators call Seek, Read and Tell; HeurClean calls Open and Close. All
 * five must be there. None may throw or jump out of the call. */
typedef struct TAVRIK_PACKED_OBJECT FileStreamOperations {
    UnusedOperation unused_0;
    /* Opens `file_name`, the pointer that HeurClean was called with; its meaning is the host's. `mode` is always
     * OPEN_FOR_CLEANING, `zero` always 0. The file must exist and must not be changed by being opened. Returns the
     * handle, or FILE_NOT_OPENED when it cannot be opened. A host that only wants to know the action may open for
     * reading: the module reads and writes nothing. */
    uint32_t (*Open)(FileStream *stream, const void *file_name, uint32_t mode, uint32_t zero);
    /* Moves to `offset` from the start of the file (`origin` is always SEEK_FROM_START). Returns the new position, that
     * is `offset`. Positions beyond the end are no failure: every offset of 32 bits must be taken, since hostile
     * headers lead anywhere, and a Read there returns 0. On failure it returns any other value than `offset`. Not every
     * call's result is looked at, so after a failure the next Read should return 0. */
    uint32_t (*Seek)(FileStream *stream, uint32_t handle, uint32_t offset, uint32_t origin);
    /* Reads up to `length` bytes at the position into `buffer` (the caller's) and moves the position past them. Returns
     * the number of bytes read: never more than `length`, fewer only at the end of the file, 0 beyond it and after an
     * error, which the module cannot tell from the end. */
    uint32_t (*Read)(FileStream *stream, uint32_t handle, void *buffer, uint32_t length);
    UnusedOperation unused_4;
    UnusedOperation unused_5;
    /* Closes what Open opened; the result is not used. Locators never close the stream that they are given. */
    uint32_t (*Close)(FileStream *stream, uint32_t handle);
    /* Returns the current position. */
    uint32_t (*Tell)(FileStream *stream, uint32_t handle);
} FileStreamOperations;

struct TAVRIK_PACKED_OBJECT FileStream {
    const FileStreamOperations *operations; /* the host's, never null */
    /* The host's own data may follow: make this the first member of a larger structure. */
};

TAVRIK_PACKED_END

/* The only origin of Seek: the start of the file. */
#define SEEK_FROM_START 0u
/* The only mode of Open: for reading and writing (0x0002), without any translation of the bytes (0x8000). */
#define OPEN_FOR_CLEANING 0x8002u
/* The handle of a file that was not opened. */
#define FILE_NOT_OPENED 0xFFFFFFFFu

TAVRIK_ASSERT_OFFSET(FileStreamOperations, Open, 1 * 8);
TAVRIK_ASSERT_OFFSET(FileStreamOperations, Seek, 2 * 8);
TAVRIK_ASSERT_OFFSET(FileStreamOperations, Read, 3 * 8);
TAVRIK_ASSERT_OFFSET(FileStreamOperations, Close, 6 * 8);
TAVRIK_ASSERT_OFFSET(FileStreamOperations, Tell, 7 * 8);
TAVRIK_ASSERT_SIZE(FileStreamOperations, 64);
TAVRIK_ASSERT_OFFSET(FileStream, operations, 0);
TAVRIK_ASSERT_SIZE(FileStream, 8);

#endif
