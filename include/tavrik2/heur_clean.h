/* The clean decision: which clean action applies to a file that a cleanable rule detected. */
#ifndef TAVRIK2_HEUR_CLEAN_H
#define TAVRIK2_HEUR_CLEAN_H

#include "abi.h"
#include "file_stream.h"

TAVRIK_PACKED_BEGIN

/* The start of the host's clean record; the module reads nothing but the stream, at the odd byte 31. */
typedef struct TAVRIK_PACKED CleanContext {
    uint8_t unread_0[31];
    FileStream *stream; /* for the file being cleaned */
} CleanContext;

TAVRIK_PACKED_END

/* The action codes of HeurClean; the host performs them. */
enum CleanAction {
    CLEAN_ACTION_CANNOT_OPEN = 4003, /* the file cannot be opened for cleaning */
    CLEAN_ACTION_4021 = 4021,        /* rules 147 and 173, with code 7422 */
    CLEAN_ACTION_4024 = 4024         /* rule 175 */
};
#define CLEAN_ACTION_NONE 0xFFFFFFFFu

TAVRIK_EXTERN_C_BEGIN

/* Decides the clean action for a file detected by the rule `rule_id` (147, 173 or 175; any other rule returns 0 and
 * leaves *action alone). Opens and closes the file once through the context's stream; reads nothing.
 *
 * file_name  passed unchanged to the stream's Open
 * context    not null; its stream is not null
 * code       the host's code for what it found; 7422 is the one that selects action 4021
 * action     not null; receives a CleanAction or CLEAN_ACTION_NONE
 * third, fourth, sixth, ninth are accepted and not used.
 *
 * Returns 1 when an action applies, else 0 (*action then says 4003 when the file could not be opened).
 *
 * Any number of threads may call it at once, each with a stream of its own; it needs no initialisation. */
TAVRIK_API uint32_t HeurClean(const void *file_name, const CleanContext *context, const void *third, const void *fourth,
                              uint32_t code, uint32_t sixth, uint32_t rule_id, uint32_t *action, const void *ninth);
typedef uint32_t (*HeurCleanFunction)(const void *file_name, const CleanContext *context, const void *third,
                                      const void *fourth, uint32_t code, uint32_t sixth, uint32_t rule_id,
                                      uint32_t *action, const void *ninth);

TAVRIK_EXTERN_C_END

TAVRIK_ASSERT_OFFSET(CleanContext, stream, 31);

#endif
