/* The heuristic rule record, a binary format that the host reads in place, and the publication of the rule table.
 *
 * All integers are little-endian and nothing is padded. The module stores and hands out these values; what they ask of
 * a file is decided by the evaluating host. */
#ifndef TAVRIK2_HEURISTIC_RULE_H
#define TAVRIK2_HEURISTIC_RULE_H

#include "abi.h"

TAVRIK_PACKED_BEGIN

/* Every `op` is a condition operator, 1..7. Names are NUL-terminated, read-only and shared between elements. */

typedef struct TAVRIK_PACKED HeaderCondition {
    uint16_t field; /* a PE header field by its number: 0..99; 100..263 name further values */
    uint8_t op;
    uint32_t value;
} HeaderCondition;

typedef struct TAVRIK_PACKED SectionCondition {
    uint16_t section; /* 0..33 an index from the first header; 600..610 a role */
    uint8_t field;    /* 0-based position of the field in the section header, 1..9 */
    uint8_t op;
    uint32_t value;
} SectionCondition;

typedef struct TAVRIK_PACKED SectionNameCondition {
    uint16_t section; /* 0..33 an index; 505..507 and 600..610 a role */
    uint8_t op;
    char name[9]; /* NUL-padded, at most 8 characters */
} SectionNameCondition;

typedef struct TAVRIK_PACKED StringFeature {
    uint8_t mask[16]; /* bit set over the byte positions, position i at bit i % 8 of byte i / 8; only below length */
    uint8_t *bytes;   /* writable; each byte stored plus 3 until preparation; no terminator */
    uint8_t length;   /* 1..128 */
    uint8_t param_a;  /* below length */
    uint16_t param_b;
    uint16_t param_c;
    uint8_t string_kind; /* 1..32 */
    uint8_t param_d;
    uint8_t zero_32;
    const char *string_section; /* null, or 8 bytes that begin with a section name; set with kinds 15 and 16 */
    uint8_t string_section_length;
    uint8_t param_e;
    uint8_t zero_43;
    uint16_t param_f;
} StringFeature;

typedef struct TAVRIK_PACKED IndexedCondition {
    uint8_t index;
    uint8_t field;
    uint8_t op;
    uint32_t value;
} IndexedCondition;

typedef struct TAVRIK_PACKED ImportModule {
    int16_t index; /* -1 or 0..20 */
    uint8_t option;
    uint8_t op;
    const char *name;
} ImportModule;

typedef struct TAVRIK_PACKED ImportFunction {
    uint16_t index;
    uint8_t op;
    const char *name;
} ImportFunction;

/* A name among the exports: the module's own name, or a function's. */
typedef struct TAVRIK_PACKED ExportName {
    uint8_t op;
    const char *name;
} ExportName;

typedef struct TAVRIK_PACKED ResourceEntry {
    uint32_t type;
    uint32_t id;
    char name[30];
    uint16_t language;
    uint8_t zero_40[32];
    uint32_t value;
} ResourceEntry;

typedef struct TAVRIK_PACKED ResourceTypeEntry {
    uint32_t type;
    char name[30];
    uint16_t language;
    uint8_t zero_36[32];
    uint32_t param_a;
    uint32_t param_b;
} ResourceTypeEntry;

typedef struct TAVRIK_PACKED ResourceString {
    uint32_t type;
    uint32_t id;
    char name[30];
    uint16_t language;
    uint8_t zero_40[32];
    uint32_t key;
    const char *text;
} ResourceString;

typedef struct TAVRIK_PACKED MeasureCondition {
    uint8_t param_a;
    uint8_t value_kind; /* 1: value is a double; 2: value is a u32 followed by four zero bytes */
    uint32_t param_b;
    uint8_t param_c;
    uint8_t op;
    uint8_t value[8];
} MeasureCondition;

typedef struct TAVRIK_PACKED SecondaryCondition {
    uint8_t index;
    uint8_t field;
    uint8_t op;
    uint32_t value;
} SecondaryCondition;

typedef struct TAVRIK_PACKED ObjectName {
    uint16_t index;
    uint8_t option;
    uint8_t op;
    const char *name;
} ObjectName;

typedef struct TAVRIK_PACKED MemberName {
    uint16_t index; /* of the object that the member belongs to, below the rule's object_names count */
    uint8_t option;
    uint8_t op;
    const char *name;
} MemberName;

/* A list field: 12 bytes. An empty list has a null pointer and count 0. */
#define TAVRIK_RULE_LIST(element, name)                                                                                \
    struct TAVRIK_PACKED {                                                                                             \
        const element *elements;                                                                                       \
        uint32_t count;                                                                                                \
    } name

typedef struct TAVRIK_PACKED HeuristicRule {
    TAVRIK_RULE_LIST(HeaderCondition, header_conditions);
    TAVRIK_RULE_LIST(SectionCondition, section_conditions);
    TAVRIK_RULE_LIST(SectionNameCondition, section_names);
    TAVRIK_RULE_LIST(StringFeature, strings);
    const char *expression; /* over the strings: A is the first; "" when the rule has none; never null */
    uint32_t rule_id;
    char detection_name[30]; /* at most 29 characters, zero-filled */
    uint8_t feature_flags;   /* bit values 1 and 2; computed by PrepareRules */
    uint32_t attribute_a;
    uint32_t attribute_b;
    TAVRIK_RULE_LIST(IndexedCondition, indexed_conditions);
    TAVRIK_RULE_LIST(ImportModule, import_modules);
    TAVRIK_RULE_LIST(ImportFunction, import_functions);
    TAVRIK_RULE_LIST(ExportName, export_module_names); /* at most one element */
    TAVRIK_RULE_LIST(ExportName, export_functions);
    TAVRIK_RULE_LIST(ResourceEntry, resource_entries);
    TAVRIK_RULE_LIST(ResourceTypeEntry, resource_type_entries);
    TAVRIK_RULE_LIST(ResourceString, resource_strings);
    TAVRIK_RULE_LIST(MeasureCondition, measure_conditions);
    TAVRIK_RULE_LIST(SecondaryCondition, secondary_conditions);
    TAVRIK_RULE_LIST(ObjectName, object_names);
    TAVRIK_RULE_LIST(MemberName, member_names);
    uint64_t reserved; /* 0 */
} HeuristicRule;

#undef TAVRIK_RULE_LIST

TAVRIK_PACKED_END

/* The bits of feature_flags. */
enum FeatureFlag {
    FEATURE_STRUCTURE = 1, /* the rule asks for headers, sections, imports, exports, resources, or sets attribute_b */
    FEATURE_CONTENT = 2    /* the rule asks for byte strings, measures, objects or members */
};

TAVRIK_EXTERN_C_BEGIN

/* Hands out the rule table in place: the address of its first record pointer and the number of records. Returns 1; 0
 * when an argument is null, and then writes nothing. Works before initialisation (the records are then still in stored
 * form). The records are the module's, are only read by the host, and stay valid, in prepared form, while the module is
 * loaded, after the last YNLibDeinit too. Any thread. */
TAVRIK_API uint32_t HeurGetDetectionInfo(HeuristicRule *const **out_table, uint32_t *out_count);
typedef uint32_t (*HeurGetDetectionInfoFunction)(HeuristicRule *const **out_table, uint32_t *out_count);

TAVRIK_EXTERN_C_END

TAVRIK_ASSERT_SIZE(HeaderCondition, 7);
TAVRIK_ASSERT_OFFSET(HeaderCondition, field, 0);
TAVRIK_ASSERT_OFFSET(HeaderCondition, op, 2);
TAVRIK_ASSERT_OFFSET(HeaderCondition, value, 3);

TAVRIK_ASSERT_SIZE(SectionCondition, 8);
TAVRIK_ASSERT_OFFSET(SectionCondition, section, 0);
TAVRIK_ASSERT_OFFSET(SectionCondition, field, 2);
TAVRIK_ASSERT_OFFSET(SectionCondition, op, 3);
TAVRIK_ASSERT_OFFSET(SectionCondition, value, 4);

TAVRIK_ASSERT_SIZE(SectionNameCondition, 12);
TAVRIK_ASSERT_OFFSET(SectionNameCondition, section, 0);
TAVRIK_ASSERT_OFFSET(SectionNameCondition, op, 2);
TAVRIK_ASSERT_OFFSET(SectionNameCondition, name, 3);

TAVRIK_ASSERT_SIZE(StringFeature, 46);
TAVRIK_ASSERT_OFFSET(StringFeature, mask, 0);
TAVRIK_ASSERT_OFFSET(StringFeature, bytes, 16);
TAVRIK_ASSERT_OFFSET(StringFeature, length, 24);
TAVRIK_ASSERT_OFFSET(StringFeature, param_a, 25);
TAVRIK_ASSERT_OFFSET(StringFeature, param_b, 26);
TAVRIK_ASSERT_OFFSET(StringFeature, param_c, 28);
TAVRIK_ASSERT_OFFSET(StringFeature, string_kind, 30);
TAVRIK_ASSERT_OFFSET(StringFeature, param_d, 31);
TAVRIK_ASSERT_OFFSET(StringFeature, zero_32, 32);
TAVRIK_ASSERT_OFFSET(StringFeature, string_section, 33);
TAVRIK_ASSERT_OFFSET(StringFeature, string_section_length, 41);
TAVRIK_ASSERT_OFFSET(StringFeature, param_e, 42);
TAVRIK_ASSERT_OFFSET(StringFeature, zero_43, 43);
TAVRIK_ASSERT_OFFSET(StringFeature, param_f, 44);

TAVRIK_ASSERT_SIZE(IndexedCondition, 7);
TAVRIK_ASSERT_OFFSET(IndexedCondition, index, 0);
TAVRIK_ASSERT_OFFSET(IndexedCondition, field, 1);
TAVRIK_ASSERT_OFFSET(IndexedCondition, op, 2);
TAVRIK_ASSERT_OFFSET(IndexedCondition, value, 3);

TAVRIK_ASSERT_SIZE(ImportModule, 12);
TAVRIK_ASSERT_OFFSET(ImportModule, index, 0);
TAVRIK_ASSERT_OFFSET(ImportModule, option, 2);
TAVRIK_ASSERT_OFFSET(ImportModule, op, 3);
TAVRIK_ASSERT_OFFSET(ImportModule, name, 4);

TAVRIK_ASSERT_SIZE(ImportFunction, 11);
TAVRIK_ASSERT_OFFSET(ImportFunction, index, 0);
TAVRIK_ASSERT_OFFSET(ImportFunction, op, 2);
TAVRIK_ASSERT_OFFSET(ImportFunction, name, 3);

TAVRIK_ASSERT_SIZE(ExportName, 9);
TAVRIK_ASSERT_OFFSET(ExportName, op, 0);
TAVRIK_ASSERT_OFFSET(ExportName, name, 1);

TAVRIK_ASSERT_SIZE(ResourceEntry, 76);
TAVRIK_ASSERT_OFFSET(ResourceEntry, type, 0);
TAVRIK_ASSERT_OFFSET(ResourceEntry, id, 4);
TAVRIK_ASSERT_OFFSET(ResourceEntry, name, 8);
TAVRIK_ASSERT_OFFSET(ResourceEntry, language, 38);
TAVRIK_ASSERT_OFFSET(ResourceEntry, zero_40, 40);
TAVRIK_ASSERT_OFFSET(ResourceEntry, value, 72);

TAVRIK_ASSERT_SIZE(ResourceTypeEntry, 76);
TAVRIK_ASSERT_OFFSET(ResourceTypeEntry, type, 0);
TAVRIK_ASSERT_OFFSET(ResourceTypeEntry, name, 4);
TAVRIK_ASSERT_OFFSET(ResourceTypeEntry, language, 34);
TAVRIK_ASSERT_OFFSET(ResourceTypeEntry, zero_36, 36);
TAVRIK_ASSERT_OFFSET(ResourceTypeEntry, param_a, 68);
TAVRIK_ASSERT_OFFSET(ResourceTypeEntry, param_b, 72);

TAVRIK_ASSERT_SIZE(ResourceString, 84);
TAVRIK_ASSERT_OFFSET(ResourceString, type, 0);
TAVRIK_ASSERT_OFFSET(ResourceString, id, 4);
TAVRIK_ASSERT_OFFSET(ResourceString, name, 8);
TAVRIK_ASSERT_OFFSET(ResourceString, language, 38);
TAVRIK_ASSERT_OFFSET(ResourceString, zero_40, 40);
TAVRIK_ASSERT_OFFSET(ResourceString, key, 72);
TAVRIK_ASSERT_OFFSET(ResourceString, text, 76);

TAVRIK_ASSERT_SIZE(MeasureCondition, 16);
TAVRIK_ASSERT_OFFSET(MeasureCondition, param_a, 0);
TAVRIK_ASSERT_OFFSET(MeasureCondition, value_kind, 1);
TAVRIK_ASSERT_OFFSET(MeasureCondition, param_b, 2);
TAVRIK_ASSERT_OFFSET(MeasureCondition, param_c, 6);
TAVRIK_ASSERT_OFFSET(MeasureCondition, op, 7);
TAVRIK_ASSERT_OFFSET(MeasureCondition, value, 8);

TAVRIK_ASSERT_SIZE(SecondaryCondition, 7);
TAVRIK_ASSERT_OFFSET(SecondaryCondition, index, 0);
TAVRIK_ASSERT_OFFSET(SecondaryCondition, field, 1);
TAVRIK_ASSERT_OFFSET(SecondaryCondition, op, 2);
TAVRIK_ASSERT_OFFSET(SecondaryCondition, value, 3);

TAVRIK_ASSERT_SIZE(ObjectName, 12);
TAVRIK_ASSERT_OFFSET(ObjectName, index, 0);
TAVRIK_ASSERT_OFFSET(ObjectName, option, 2);
TAVRIK_ASSERT_OFFSET(ObjectName, op, 3);
TAVRIK_ASSERT_OFFSET(ObjectName, name, 4);

TAVRIK_ASSERT_SIZE(MemberName, 12);
TAVRIK_ASSERT_OFFSET(MemberName, index, 0);
TAVRIK_ASSERT_OFFSET(MemberName, option, 2);
TAVRIK_ASSERT_OFFSET(MemberName, op, 3);
TAVRIK_ASSERT_OFFSET(MemberName, name, 4);

TAVRIK_ASSERT_SIZE(HeuristicRule, 251);
TAVRIK_ASSERT_OFFSET(HeuristicRule, header_conditions, 0);
TAVRIK_ASSERT_OFFSET(HeuristicRule, section_conditions, 12);
TAVRIK_ASSERT_OFFSET(HeuristicRule, section_names, 24);
TAVRIK_ASSERT_OFFSET(HeuristicRule, strings, 36);
TAVRIK_ASSERT_OFFSET(HeuristicRule, expression, 48);
TAVRIK_ASSERT_OFFSET(HeuristicRule, rule_id, 56);
TAVRIK_ASSERT_OFFSET(HeuristicRule, detection_name, 60);
TAVRIK_ASSERT_OFFSET(HeuristicRule, feature_flags, 90);
TAVRIK_ASSERT_OFFSET(HeuristicRule, attribute_a, 91);
TAVRIK_ASSERT_OFFSET(HeuristicRule, attribute_b, 95);
TAVRIK_ASSERT_OFFSET(HeuristicRule, indexed_conditions, 99);
TAVRIK_ASSERT_OFFSET(HeuristicRule, import_modules, 111);
TAVRIK_ASSERT_OFFSET(HeuristicRule, import_functions, 123);
TAVRIK_ASSERT_OFFSET(HeuristicRule, export_module_names, 135);
TAVRIK_ASSERT_OFFSET(HeuristicRule, export_functions, 147);
TAVRIK_ASSERT_OFFSET(HeuristicRule, resource_entries, 159);
TAVRIK_ASSERT_OFFSET(HeuristicRule, resource_type_entries, 171);
TAVRIK_ASSERT_OFFSET(HeuristicRule, resource_strings, 183);
TAVRIK_ASSERT_OFFSET(HeuristicRule, measure_conditions, 195);
TAVRIK_ASSERT_OFFSET(HeuristicRule, secondary_conditions, 207);
TAVRIK_ASSERT_OFFSET(HeuristicRule, object_names, 219);
TAVRIK_ASSERT_OFFSET(HeuristicRule, member_names, 231);
TAVRIK_ASSERT_OFFSET(HeuristicRule, reserved, 243);

#endif
