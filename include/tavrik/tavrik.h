/* libtavrik: scans files with the rules and payload locators of a module. C99 and C++11; tavrik.hpp is the C++
 * interface.
 *
 *     tavrik_module *module;
 *     tavrik_scanner *scanner;
 *     tavrik_report *report;
 *     tavrik_error error = {sizeof error};
 *     tavrik_input input = tavrik_input_path("setup.exe");
 *     if (tavrik_module_open(NULL, &module, &error) || tavrik_scanner_open(module, NULL, &scanner, &error) ||
 *         tavrik_scan(scanner, &input, NULL, &report, &error))
 *         puts(error.text);
 *
 * Handles are opaque. What a function makes is the caller's, and is released by the function of its type; null is
 * ignored there. Releasing a handle that others were made from is safe in any order: they keep what they need.
 * Texts are UTF-8 with a NUL at the end (paths elsewhere than on Windows: the system's bytes) and belong to the handle
 * that they were got from; they stay valid as long as it.
 *
 * Structures begin with their size, which the caller sets: `tavrik_summary summary = {sizeof summary};`. Later versions
 * add fields at the end; the library reads and writes only what both sides know, and zeroes the rest.
 *
 * Threads: modules, scanners, reports, rules, features and explanations do not change once made; any number of threads
 * may use one at once. Releasing is for one thread, when no other uses the handle. A cancel handle may be requested
 * from any thread at any time. The library has no other state: no settings of the process, no thread of its own.
 *
 * No exception leaves the library. Functions that can fail return a tavrik_status and, if `error` is not null, fill it;
 * then outputs are null, unless a function says otherwise. Null for an argument that must be there is
 * TAVRIK_ERROR_ARGUMENT. */
#ifndef TAVRIK_TAVRIK_H
#define TAVRIK_TAVRIK_H

#include <stddef.h>
#include <stdint.h>

#include "tavrik/version.h"

#if defined(_WIN32) && defined(TAVRIK_BUILDING_LIBRARY)
#define TAVRIK_PUBLIC __declspec(dllexport)
#elif defined(_WIN32) && !defined(TAVRIK_STATIC)
#define TAVRIK_PUBLIC __declspec(dllimport)
#elif defined(_WIN32)
#define TAVRIK_PUBLIC
#else
#define TAVRIK_PUBLIC __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Failures ------------------------------------------------------------------------------------------------------
 */

/* Values keep their meaning for ever; later versions add some. */
typedef enum tavrik_status {
    TAVRIK_OK = 0,
    TAVRIK_ERROR_ARGUMENT = 1,            /* null, a size or an index that cannot be */
    TAVRIK_ERROR_MEMORY = 2,              /* not enough memory */
    TAVRIK_ERROR_INTERNAL = 3,            /* a fault of the library: please report it */
    TAVRIK_ERROR_FILE = 10,               /* the file cannot be opened */
    TAVRIK_ERROR_READ = 11,               /* the file or stream failed while it was read */
    TAVRIK_ERROR_TOO_LARGE = 12,          /* larger than max_size, or than a locator can be explained for (2 GiB) */
    TAVRIK_ERROR_TIMEOUT = 13,            /* the time of the settings was over */
    TAVRIK_ERROR_CANCELLED = 14,          /* by tavrik_cancel_request */
    TAVRIK_ERROR_RULES = 20,              /* the rules have errors: see their diagnostics */
    TAVRIK_ERROR_NO_SUCH_RULE = 21,       /* no rule of that number */
    TAVRIK_ERROR_MODULE_MISSING = 30,     /* there is no module at that path */
    TAVRIK_ERROR_MODULE_UNLOADABLE = 31,  /* the system refuses to load it; the text has its reason */
    TAVRIK_ERROR_MODULE_FOREIGN = 32,     /* it is no such module: it lacks an export */
    TAVRIK_ERROR_MODULE_PATH = 33,        /* its folder's path is too long, or has characters that it cannot take */
    TAVRIK_ERROR_COMPANION_MISSING = 34,  /* platform.hbx or disasm.hbx is not beside it */
    TAVRIK_ERROR_COMPANION_UNUSABLE = 35, /* disasm.hbx cannot be loaded, or lacks a function */
    TAVRIK_ERROR_MODULE_INIT = 36         /* it does not initialise for another reason */
} tavrik_status;

typedef struct tavrik_error {
    uint32_t size;   /* sizeof(tavrik_error) */
    int32_t status;  /* a tavrik_status */
    char text[1016]; /* one line without a full stop: what failed, the file, and after a semicolon the remedy; may be
                        cut */
} tavrik_error;

/* The status as a word, such as "module-missing"; "unknown" for a number that this version does not have. Static. */
TAVRIK_PUBLIC const char *tavrik_status_name(int32_t status);

/* The version of the library that runs, to be compared with TAVRIK_VERSION_NUMBER of the headers. Static. */
TAVRIK_PUBLIC uint32_t tavrik_version(void);
TAVRIK_PUBLIC const char *tavrik_version_text(void);

/* ---- The module ----------------------------------------------------------------------------------------------------
 */

/* A loaded and initialised module. */
typedef struct tavrik_module tavrik_module;

/* Loads and initialises the module at `path`; null means the one that was installed with the library, or is beside
 * it. Every failure names the file and the remedy, also those of which the module itself says nothing. Opening a path
 * again gives a second handle to the same module. Not while code other than this library initialises the same module.
 */
TAVRIK_PUBLIC tavrik_status tavrik_module_open(const char *path, tavrik_module **module, tavrik_error *error);
TAVRIK_PUBLIC void tavrik_module_close(tavrik_module *module);

/* The absolute path that it was loaded from. */
TAVRIK_PUBLIC const char *tavrik_module_path(const tavrik_module *module);

typedef struct tavrik_rule {
    uint32_t size;
    uint32_t rule;        /* its number; two rules of the reference database may have the same */
    const char *name;     /* of the detection */
    const char *metadata; /* what a text says about the rule, as a JSON object with `authors`, `date`, `references`,
                             `description`, `samples`; "" when it says nothing, and for the module's rules */
} tavrik_rule;

/* The rules, in the module's order. `index` counts from 0. */
TAVRIK_PUBLIC size_t tavrik_module_rule_count(const tavrik_module *module);
TAVRIK_PUBLIC tavrik_status tavrik_module_rule(const tavrik_module *module, size_t index, tavrik_rule *rule);

typedef struct tavrik_locator {
    uint32_t size;
    uint32_t entry;          /* of the locator table */
    uint32_t kind;           /* of what it finds: 81, 82, 111 or 113; 0 for the entry that declines every file */
    uint32_t flags;          /* from the table */
    const char *kind_name;   /* such as "Nullsoft installer" */
    const char *description; /* one line: the program, and where its payload is */
    const char *gate;        /* the conditions on the headers, a line each */
} tavrik_locator;

/* The payload locators, in the table's order. */
TAVRIK_PUBLIC size_t tavrik_module_locator_count(const tavrik_module *module);
TAVRIK_PUBLIC tavrik_status tavrik_module_locator(const tavrik_module *module, size_t index, tavrik_locator *locator);

/* ---- Rules as text -------------------------------------------------------------------------------------------------
 */

/* A text of rules, parsed and checked. */
typedef struct tavrik_rules tavrik_rules;

typedef struct tavrik_diagnostic {
    uint32_t size;
    uint32_t is_error;    /* 1; 0 is a warning */
    const char *code;     /* such as "E101" */
    const char *message;  /* what is wrong */
    const char *help;     /* what was expected or what to do; may be "" */
    const char *rendered; /* all of it as people read it, with the line and a caret below */
    uint64_t offset;      /* in the text, in bytes */
    uint64_t length;      /* in bytes; 0 points between two */
    uint32_t line;        /* from 1 */
    uint32_t column;      /* from 1, in bytes */
} tavrik_diagnostic;

/* Parses and checks `length` bytes of text; `name` is what diagnostics call it. Succeeds for any text: what is wrong
 * with it is in its diagnostics. It cannot include files. */
TAVRIK_PUBLIC tavrik_status tavrik_rules_parse(const char *name, const char *text, size_t length, tavrik_rules **rules,
                                               tavrik_error *error);
TAVRIK_PUBLIC void tavrik_rules_free(tavrik_rules *rules);

/* The rules in the text, in its order; 0 when it has errors. `index` counts from 0. */
TAVRIK_PUBLIC size_t tavrik_rules_count(const tavrik_rules *rules);
TAVRIK_PUBLIC tavrik_status tavrik_rules_rule(const tavrik_rules *rules, size_t index, tavrik_rule *rule);

/* Errors and warnings in the order of their places. */
TAVRIK_PUBLIC size_t tavrik_rules_diagnostic_count(const tavrik_rules *rules);
TAVRIK_PUBLIC tavrik_status tavrik_rules_diagnostic(const tavrik_rules *rules, size_t index,
                                                    tavrik_diagnostic *diagnostic);

/* ---- Scanning ------------------------------------------------------------------------------------------------------
 */

/* A module and settings, ready to scan. Making one takes some milliseconds; a scan then takes microseconds for most
 * files. Make one and share it. */
typedef struct tavrik_scanner tavrik_scanner;

typedef struct tavrik_settings {
    uint32_t size;
    uint32_t sha256;           /* 1: each report has the digest of the file, which reads all of it */
    double timeout;            /* seconds for a call; 0 is no limit. Looked at with each read of the input */
    uint64_t max_size;         /* bytes; larger inputs are skipped. 0 is no limit. Memory does not grow with the size */
    const tavrik_rules *rules; /* in place of the module's; null is the module's. May be freed after the call */
    uint32_t add_rules;        /* 1: `rules` come after the module's instead of in their place */
    uint32_t near_conditions;  /* of a gate that may fail in a near miss, 1 to 64; 0: near misses are not looked for */
    uint32_t inside;           /* 1: files inside payloads and archives are scanned too; see tavrik_report_inside */
    uint32_t inside_depth;     /* containers that are opened within each other, up to 16; 0 is 4 */
    uint64_t inside_files;     /* that are scanned inside a file; 0 is 10000 */
    uint64_t inside_bytes;     /* that are unpacked out of a file; 0 is 4 GiB */
    uint64_t inside_ratio;     /* bytes unpacked for each byte of a file, after 128 MiB; 0 is 250 */
} tavrik_settings;

/* `settings` null means none of them: no digest, no limits, the module's rules, no near misses, nothing inside. */
TAVRIK_PUBLIC tavrik_status tavrik_scanner_open(const tavrik_module *module, const tavrik_settings *settings,
                                                tavrik_scanner **scanner, tavrik_error *error);
TAVRIK_PUBLIC void tavrik_scanner_close(tavrik_scanner *scanner);

/* What is read through functions of the caller, called by the thread that called the library and by no other. */
typedef struct tavrik_stream {
    uint32_t size;
    uint32_t zero;   /* 0 */
    void *context;   /* for read_at */
    uint64_t length; /* of all there is, in bytes */
    /* Reads up to `length` bytes at `offset` into `buffer`. Returns how many: fewer only at the end; negative on
     * failure. Ranges are aligned to 64 KiB and read once, as long as few are in use. Must not throw. */
    int64_t (*read_at)(void *context, uint64_t offset, void *buffer, size_t length);
} tavrik_stream;

/* A file to look at: by its path, as bytes in memory, or as a stream. Only read, never changed. */
typedef struct tavrik_input {
    uint32_t size;
    uint32_t zero;               /* 0 */
    const char *name;            /* the path; with bytes or a stream only what reports call it, or null */
    const void *bytes;           /* not null: the file is these bytes */
    uint64_t length;             /* of `bytes` */
    const tavrik_stream *stream; /* not null: the file is read through it */
} tavrik_input;

static inline tavrik_input tavrik_input_path(const char *path) {
    tavrik_input input = {sizeof(tavrik_input), 0, path, NULL, 0, NULL};
    return input;
}

static inline tavrik_input tavrik_input_bytes(const char *name, const void *bytes, uint64_t length) {
    tavrik_input input = {sizeof(tavrik_input), 0, name, bytes, length, NULL};
    return input;
}

static inline tavrik_input tavrik_input_stream(const char *name, const tavrik_stream *stream) {
    tavrik_input input = {sizeof(tavrik_input), 0, name, NULL, 0, stream};
    return input;
}

/* Ends a call that is under way, from another thread. */
typedef struct tavrik_cancel tavrik_cancel;

TAVRIK_PUBLIC tavrik_status tavrik_cancel_create(tavrik_cancel **cancel);

/* Calls that were given the handle end with TAVRIK_ERROR_CANCELLED at their next read, and so do later ones. Callable
 * from signal handlers. */
TAVRIK_PUBLIC void tavrik_cancel_request(tavrik_cancel *cancel);

/* When no call that was given it is under way. */
TAVRIK_PUBLIC void tavrik_cancel_free(tavrik_cancel *cancel);

/* What a scan found. */
typedef struct tavrik_report tavrik_report;

/* Scans a file. `cancel` may be null. When the file cannot be opened or read (TAVRIK_ERROR_FILE, _READ, _TIMEOUT,
 * _CANCELLED) *report is not null and holds why, and what was found before; rules' answers about a file that could not
 * be read as a whole are dropped. With TAVRIK_ERROR_MEMORY it may be null. */
TAVRIK_PUBLIC tavrik_status tavrik_scan(const tavrik_scanner *scanner, const tavrik_input *input, tavrik_cancel *cancel,
                                        tavrik_report **report, tavrik_error *error);

/* Scans `count` files one after the other, on the calling thread: for callers to whom each call is expensive, such as
 * interpreters that give up a lock for it. `inputs` and `reports` have `count` elements; inputs[0].size counts for all.
 * Every file gets a report, whose summary has the status that tavrik_scan would have returned. The result is a failure
 * of the call itself, after which all of `reports` are null. */
TAVRIK_PUBLIC tavrik_status tavrik_scan_many(const tavrik_scanner *scanner, const tavrik_input *inputs, size_t count,
                                             tavrik_cancel *cancel, tavrik_report **reports, tavrik_error *error);
TAVRIK_PUBLIC void tavrik_report_free(tavrik_report *report);

typedef enum tavrik_outcome {
    TAVRIK_SCANNED = 0,
    TAVRIK_NOT_PE = 1,  /* not a PE file, so nothing was asked */
    TAVRIK_SKIPPED = 2, /* larger than max_size */
    TAVRIK_FAILED = 3   /* see status */
} tavrik_outcome;

typedef struct tavrik_summary {
    uint32_t size;
    int32_t outcome;    /* a tavrik_outcome */
    int32_t status;     /* what tavrik_scan returned */
    uint32_t zero;      /* 0 */
    const char *name;   /* of the input; "" without one */
    const char *text;   /* why it was skipped or failed; "" when neither */
    const char *sha256; /* in hexadecimal digits; "" when not asked for or not known */
    uint64_t file_size; /* in bytes */
    size_t detections, findings, payloads;
    uint64_t bytes_read; /* of the file or stream; bytes in memory count as read */
    const char *parent;  /* the name of the file that this one is inside of; "" */
    size_t near_misses, notes;
    size_t inside; /* files that are directly inside this one */
} tavrik_summary;

TAVRIK_PUBLIC tavrik_status tavrik_report_summary(const tavrik_report *report, tavrik_summary *summary);

/* A rule that matches. */
typedef struct tavrik_detection {
    uint32_t size;
    uint32_t rule;           /* its number */
    const char *name;        /* of the detection */
    uint32_t action;         /* the module's for cleaning: 4021, 4024, or 0xFFFFFFFF for none */
    uint32_t zero;           /* 0 */
    const char *action_name; /* such as "quarantine" or "none" */
    const char *metadata;    /* as in tavrik_rule */
} tavrik_detection;

TAVRIK_PUBLIC tavrik_status tavrik_report_detection(const tavrik_report *report, size_t index,
                                                    tavrik_detection *detection);

/* What one locator said. */
typedef struct tavrik_finding {
    uint32_t size;
    uint32_t entry;        /* of the locator table */
    uint32_t kind;         /* 81, 82, 111 or 113 */
    uint32_t reported;     /* the locator's own statement, 256 or 4096; not the payload's length */
    uint64_t offset;       /* in the file */
    const char *kind_name; /* such as "Nullsoft installer" */
} tavrik_finding;

TAVRIK_PUBLIC tavrik_status tavrik_report_finding(const tavrik_report *report, size_t index, tavrik_finding *finding);

/* A payload, once, whatever number of locators found it. */
typedef struct tavrik_payload {
    uint32_t size;
    uint32_t kind;
    uint64_t offset;         /* in the file, of its first byte */
    uint64_t length;         /* by its own structure; 0 when that cannot be read */
    uint64_t present;        /* as many of these bytes are in the file */
    const char *kind_name;   /* such as "Nullsoft installer" */
    const char *sha256;      /* of the bytes that are there, in hexadecimal digits; "" when not known */
    const uint32_t *entries; /* of the locator table that found it */
    size_t entry_count;
} tavrik_payload;

TAVRIK_PUBLIC tavrik_status tavrik_report_payload(const tavrik_report *report, size_t index, tavrik_payload *payload);

/* A payload that no locator finds. It is no finding. */
typedef struct tavrik_near_miss {
    uint32_t size;
    uint32_t is_unknown_build; /* 0: `entry` would find it if `failed` conditions of its gate were not asked; 1: it is
                                  where payloads usually begin, and the gate of `entry` is the nearest */
    uint32_t kind;
    uint32_t entry;         /* of the locator table */
    uint64_t offset;        /* in the file, of its first byte */
    uint64_t length;        /* by its own structure; 0 when that cannot be read */
    uint64_t present;       /* as many of these bytes are in the file */
    size_t failed;          /* conditions of the gate */
    const char *kind_name;  /* such as "Nullsoft installer" */
    const char *text;       /* one line for people: what it is, and which conditions fail */
    const char *conditions; /* those that fail, a line each: "SizeOfCode is 0x6a00, wanted 0x6e00..0x7500" */
} tavrik_near_miss;

TAVRIK_PUBLIC tavrik_status tavrik_report_near_miss(const tavrik_report *report, size_t index,
                                                    tavrik_near_miss *near_miss);

/* Something about the file that is no failure, such as a bound that ended the scan of what is inside. */
typedef struct tavrik_note {
    uint32_t size;
    uint32_t zero;    /* 0 */
    const char *code; /* a word such as "inside-bound" */
    const char *text;
} tavrik_note;

TAVRIK_PUBLIC tavrik_status tavrik_report_note(const tavrik_report *report, size_t index, tavrik_note *note);

/* The report of a file that is directly inside this one; what is inside of that is in its own. It belongs to `report`
 * and must not be freed. */
TAVRIK_PUBLIC tavrik_status tavrik_report_inside(const tavrik_report *report, size_t index,
                                                 const tavrik_report **inner);

/* The report, without what is inside, as one JSON object without line feeds, the line that `tavrik-scan --json` prints.
 * Made when it is asked for first; "" when there is not enough memory. */
TAVRIK_PUBLIC const char *tavrik_report_json(const tavrik_report *report);

/* ---- Why, and what a file has -------------------------------------------------------------------------------------
 */

/* Why a rule or a locator does or does not recognise a file. */
typedef struct tavrik_explanation tavrik_explanation;

/* Judges every condition of the rule with that number (of all of them, should several have it), or of a locator. What a
 * text says about its rule comes first. Limits of the scanner's settings apply. */
TAVRIK_PUBLIC tavrik_status tavrik_explain_rule(const tavrik_scanner *scanner, const tavrik_input *input, uint32_t rule,
                                                tavrik_cancel *cancel, tavrik_explanation **explanation,
                                                tavrik_error *error);
TAVRIK_PUBLIC tavrik_status tavrik_explain_locator(const tavrik_scanner *scanner, const tavrik_input *input,
                                                   uint32_t entry, tavrik_cancel *cancel,
                                                   tavrik_explanation **explanation, tavrik_error *error);
TAVRIK_PUBLIC void tavrik_explanation_free(tavrik_explanation *explanation);

/* Lines, each condition marked "ok" or "FAIL" next to what the file has; whether the rule matches or the locator found
 * something (1 or 0). */
TAVRIK_PUBLIC const char *tavrik_explanation_text(const tavrik_explanation *explanation);
TAVRIK_PUBLIC uint32_t tavrik_explanation_holds(const tavrik_explanation *explanation);

/* The values of a file that rules ask for. */
typedef struct tavrik_features tavrik_features;

typedef struct tavrik_feature {
    uint32_t size;
    uint32_t is_text; /* 1: the value is `text`; 0: it is `number` */
    /* As rules write it, such as "AddressOfEntryPoint", "section[0].VirtualSize", "import[2].module". */
    const char *name;
    uint64_t number;
    const char *text; /* "" for a number */
} tavrik_feature;

/* Reads the header values, sections, imports, exports and resources of a file, in this order; values that it does not
 * have are left out. Limits of the scanner's settings apply. A file that is not PE has no features. */
TAVRIK_PUBLIC tavrik_status tavrik_features_read(const tavrik_scanner *scanner, const tavrik_input *input,
                                                 tavrik_cancel *cancel, tavrik_features **features,
                                                 tavrik_error *error);
TAVRIK_PUBLIC void tavrik_features_free(tavrik_features *features);
TAVRIK_PUBLIC size_t tavrik_features_count(const tavrik_features *features);
TAVRIK_PUBLIC tavrik_status tavrik_features_get(const tavrik_features *features, size_t index, tavrik_feature *feature);

/* ---- The features of many files ---------------------------------------------------------------------------------- */

/* The table of a stream, by Arrow's C stream interface, whose headers define it. */
struct ArrowArrayStream;

/* Fills a stream with the files of a store that `tavrik-corpus add` made: columns `file`, `size`, `sha256`, `pe` and
 * one for each header value, null where a file has none. The caller releases it by its own `release`; until then the
 * store is open for reading. It serves one thread at a time. In builds without stores TAVRIK_ERROR_FILE. */
TAVRIK_PUBLIC tavrik_status tavrik_corpus_export(const char *path, struct ArrowArrayStream *stream,
                                                 tavrik_error *error);

#ifdef __cplusplus
}
#endif

#endif
