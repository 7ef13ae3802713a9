/* A host of the module in C: starts it, asks every payload locator about a PE file, asks for the clean action of a
 * detection, stops it.
 *
 *     ./module_host MODULE_FOLDER FILE */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "pe_records.h"

#ifdef _WIN32
#include <windows.h>
#define LOAD(path) LoadLibraryExA(path, NULL, LOAD_WITH_ALTERED_SEARCH_PATH)
#define SYMBOL(module, name) ((void *)GetProcAddress(module, name))
typedef HMODULE Library;
#else
#include <dlfcn.h>
#define LOAD(path) dlopen(path, RTLD_NOW | RTLD_LOCAL)
#define SYMBOL(module, name) dlsym(module, name)
typedef void *Library;
#endif

/* ---- What the module needs of its host ------------------------------------------------------------------------- */

static uint32_t Service114(void) {
    return 0;
}

static uint32_t CreateLock(void **slot, uint8_t kind, uint32_t zero) {
    static int lock; /* the module never acquires it */
    (void)kind, (void)zero;
    *slot = &lock;
    return 1;
}

static void DestroyLock(void *lock) {
    (void)lock;
}

static void *GetNoInterface(uint32_t interface_number, uint32_t companion_number) {
    (void)interface_number, (void)companion_number;
    return NULL;
}

/* ---- A stream: the module sees its first member only --------------------------------------------------------------
 */

typedef struct Stream {
    FileStream interface_;
    FILE *file;
    uint32_t position, calls;
} Stream;

static uint32_t Open(FileStream *stream, const void *file_name, uint32_t mode, uint32_t zero) {
    (void)mode, (void)zero; /* this host only asks what would be done: it opens for reading */
    ((Stream *)stream)->file = fopen((const char *)file_name, "rb");
    return ((Stream *)stream)->file ? 1 : FILE_NOT_OPENED;
}

static uint32_t Seek(FileStream *stream, uint32_t handle, uint32_t offset, uint32_t origin) {
    (void)handle, (void)origin;
    ++((Stream *)stream)->calls;
    return ((Stream *)stream)->position = offset;
}

static uint32_t Read(FileStream *stream, uint32_t handle, void *buffer, uint32_t length) {
    Stream *self = (Stream *)stream;
    uint32_t count = 0;
    (void)handle;
    ++self->calls;
    if (fseek(self->file, (long)self->position, SEEK_SET) == 0)
        count = (uint32_t)fread(buffer, 1, length, self->file);
    self->position += count;
    return count;
}

static uint32_t Close(FileStream *stream, uint32_t handle) {
    (void)handle;
    return (uint32_t)fclose(((Stream *)stream)->file);
}

static uint32_t Tell(FileStream *stream, uint32_t handle) {
    (void)handle;
    return ((Stream *)stream)->position;
}

static const FileStreamOperations kOperations = {NULL, Open, Seek, Read, NULL, NULL, Close, Tell};

/* ---- The module -------------------------------------------------------------------------------------------------- */

static Library module;

static void Fail(const char *what, const char *why) {
    fprintf(stderr, "module_host: %s: %s\n", what, why);
    exit(2);
}

/* Puts the address of an exported function into the pointer at `function`. */
static void Find(const char *name, void *function) {
    void *address = SYMBOL(module, name);
    if (address == NULL)
        Fail(name, "the module does not export it");
    memcpy(function, &address, sizeof address);
}

static void Start(const char *folder) {
    static HostServices services; /* must outlive YNLibDeinit */
    HostConfig config;
    YNLibInitFunction init;
    char path[sizeof config.decoder_directory + 16];
    if (strlen(folder) + sizeof "/disasm.hbx" > sizeof config.decoder_directory)
        Fail(folder, "too long a path");
    snprintf(path, sizeof path, "%s/tavrik2.hbx", folder);
    module = LOAD(path);
    if (module == NULL)
        Fail(path, "cannot be loaded; is platform.hbx beside it?");
    services.Service114 = Service114;
    services.CreateLock = CreateLock;
    services.DestroyLock = DestroyLock;
    memset(&config, 0, sizeof config);
    config.services = &services;
    strcpy(config.decoder_directory, folder);
    Find("YNLibInit", &init);
    if (init(NULL, &config, GetNoInterface, NULL) == 0)
        Fail(path, "cannot be initialised; is disasm.hbx beside it?");
}

static void AskLocators(const char *name, FILE *file, const Records *records) {
    Stream stream = {{&kOperations}, file, 0, 0};
    HeurGetLocatorTableFunction get_table;
    const LocatorTableEntry *table;
    uint32_t count, entry, candidate, found = 0;
    Find("HeurGetLocatorTable", &get_table);
    if (get_table(&table, &count) == 0)
        return;
    for (entry = 0; entry < count; ++entry)
        for (candidate = 0; candidate < records->first_section_count; ++candidate) {
            LocatorResult result;
            if (table[entry].locator(&stream.interface_, 1, records->file_size, records->data_dirs,
                                     &records->file_header, &records->opt_header, &records->first_sections[candidate],
                                     &records->last_section, records->entry_code, &result) == 0)
                continue;
            printf("%s: entry %u, kind %u, offset 0x%x, size %u\n", name, (unsigned)entry, (unsigned)result.kind,
                   (unsigned)result.offset, (unsigned)result.size);
            ++found;
        }
    printf("%s: %u found, %u calls of the stream\n", name, (unsigned)found, (unsigned)stream.calls);
}

static void AskCleanAction(const char *name, uint32_t rule_id, uint32_t code) {
    Stream closed = {{&kOperations}, NULL, 0, 0};
    CleanContext context;
    HeurCleanFunction clean;
    uint32_t action = CLEAN_ACTION_NONE, applies;
    memset(&context, 0, sizeof context);
    context.stream = &closed.interface_;
    Find("HeurClean", &clean);
    applies = clean(name, &context, NULL, NULL, code, 0, rule_id, &action, NULL);
    printf("%s: rule %u: applies %u, action %u\n", name, (unsigned)rule_id, (unsigned)applies, (unsigned)action);
}

int main(int argc, char **argv) {
    YNLibDeinitFunction deinit;
    Records records;
    FILE *file;
    if (argc != 3)
        Fail("usage", "module_host MODULE_FOLDER FILE");
    Start(argv[1]);
    file = fopen(argv[2], "rb");
    if (file == NULL || !ReadRecords(file, &records))
        Fail(argv[2], "is no PE file below 2 GiB");
    AskLocators(argv[2], file, &records);
    fclose(file);
    AskCleanAction(argv[2], 173, 7422);
    Find("YNLibDeinit", &deinit);
    printf("clients left: %u\n", (unsigned)deinit());
    return 0;
}
