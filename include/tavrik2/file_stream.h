/* The host's file-access object. */
#ifndef TAVRIK2_FILE_STREAM_H
#define TAVRIK2_FILE_STREAM_H

#include "abi.h"

typedef struct FileStream FileStream;

/* An operation slot that the module never calls. */
typedef void (*UnusedOperation)(void);

/* The host's table of operations; a slot's position in the table is the interface.
 *
 * Positions, offsets and lengths are unsigned 32-bit byte counts. `handle` is the host's handle of the open file and is
 * passed through unchanged. A stream carries one position and serves one call at a time. */
typedef struct TAVRIK_PACKED_OBJECT FileStreamOperations {
    UnusedOperation unused_0;
    /* Opens `file_name` with `mode`; `zero` is always 0. Returns the handle, or 0xFFFFFFFF when it cannot be opened. */
    uint32_t (*Open)(FileStream *stream, const void *file_name, uint32_t mode, uint32_t zero);
    /* Moves to `offset` from the start of the file (`origin` is always 0). Returns the new position. */
    uint32_t (*Seek)(FileStream *stream, uint32_t handle, uint32_t offset, uint32_t origin);
    /* Reads up to `length` bytes into `buffer` (the caller's). Returns the number of bytes read. */
    uint32_t (*Read)(FileStream *stream, uint32_t handle, void *buffer, uint32_t length);
    UnusedOperation unused_4;
    UnusedOperation unused_5;
    /* Closes the file; the result is not used. */
    uint32_t (*Close)(FileStream *stream, uint32_t handle);
    /* Returns the current position. */
    uint32_t (*Tell)(FileStream *stream, uint32_t handle);
} FileStreamOperations;

struct TAVRIK_PACKED_OBJECT FileStream {
    const FileStreamOperations *operations; /* the host's, never null */
};

/* The only origin of Seek: the start of the file. */
#define SEEK_FROM_START 0u
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
