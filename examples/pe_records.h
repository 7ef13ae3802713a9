/* The records of a PE file that payload locators receive, made of ordinary headers; docs/embedding.md says what they
 * are for damaged ones. For hosts in C and C++. */
#ifndef PE_RECORDS_H
#define PE_RECORDS_H

#include <stdio.h>
#include <tavrik2/tavrik2.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct Records {
    FileHeader file_header;
    OptionalHeader opt_header;
    uint32_t data_dirs[DATA_DIRECTORY_WORDS];
    SectionHeader first_sections[2]; /* what each locator is asked with */
    uint32_t first_section_count;    /* 1 when both are the same header */
    SectionHeader last_section;
    uint8_t entry_code[ENTRY_CODE_BYTES];
    int32_t file_size;
} Records;

/* Reads the records; 0 when the file is no PE file that the locators can be asked about. */
int ReadRecords(FILE *file, Records *records);

#ifdef __cplusplus
}
#endif

#endif
