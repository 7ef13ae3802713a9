/* The name tables and word lists that the module carries in addition to its rules.
 *
 * The data is compiled from the text sources in database/names. Only the four name tables are ever written, once, by
 * the preparation; everything else is read-only. Nothing is padded unless said. */
#ifndef TAVRIK2_RULES_NAME_TABLES_H
#define TAVRIK2_RULES_NAME_TABLES_H

#include <cstdint>

#include "tavrik2/abi.h"

namespace tavrik2 {

/** An entry of a name table: a NUL-terminated text followed by zeros; stored with kStoredShift added to each byte of
 * the text, modulo 256. */
using NameEntry = uint8_t[256];

/** What the stored form adds to each byte of a name or a feature string. */
constexpr uint8_t kStoredShift = 3;

/** Sizes of the tables, in entries. */
constexpr uint32_t kNameTable1Entries = 644;
constexpr uint32_t kNameTable2Entries = 27;
constexpr uint32_t kNameTable3Entries = 13;
constexpr uint32_t kNameTable4Entries = 9;
constexpr uint32_t kNameDetections = 635;
constexpr uint32_t kSecondNameDetections = 1;
constexpr uint32_t kNamePairs = 20;
constexpr uint32_t kPackerSignatures = 162;
constexpr uint32_t kModuleNames = 28;
constexpr uint32_t kKeywords = 231;
constexpr uint32_t kProductWords = 15;
constexpr uint32_t kVisualBasicRuntimes = 26;
constexpr uint32_t kWildcards = 2;
constexpr uint32_t kExecutionLevels = 3;
constexpr uint32_t kWordLists = 3;
constexpr uint32_t kFunctionNames = 244;
constexpr uint32_t kSectionNames = 230;

/** Widths of the slots of the two inline lists, in bytes; a section name may fill its slot. */
constexpr uint32_t kFunctionNameSlot = 58;
constexpr uint32_t kSectionNameSlot = 8;

/** A publisher and the issuer of its certificate, and what a file that they signed is detected as. */
struct TAVRIK_PACKED NameDetection {
    const uint8_t *first_name;  /* start of an entry of NameTable1 */
    const uint8_t *second_name; /* start of an entry of NameTable2 */
    uint32_t gen_flag;          /* 1 when `detection` ends in ".Gen", 0 when it ends in ".DC" */
    const char *detection;
};

/** A publisher and an issuer that belong together. */
struct NamePair {
    const uint8_t *first_name;  /* start of an entry of NameTable3 */
    const uint8_t *second_name; /* start of an entry of NameTable4 */
};

/** The entry code by which a packer or protector is recognised. */
struct TAVRIK_PACKED PackerSignature {
    uint32_t id;            /* counted from 1, in table order */
    const uint8_t *pattern; /* the bytes right before the record */
    uint8_t pattern_length; /* at most kLongestPackerPattern */
    uint8_t pattern_param;  /* at most kLargestPackerParam: near jumps to follow from the entry point */
    uint8_t pattern_kind;   /* a PackerPatternKind */
    const char *packer;
    uint8_t one; /* 1 */
};

enum PackerPatternKind : uint8_t {
    PACKER_PATTERN_AT = 0,   /* the bytes are where the jumps lead */
    PACKER_PATTERN_AFTER = 2 /* ... or anywhere after that place in its section */
};

constexpr uint32_t kLongestPackerPattern = 201;
constexpr uint32_t kLargestPackerParam = 5;

/** A packer signature with its pattern, as laid out in the image. */
template <uint32_t PatternLength>
struct TAVRIK_PACKED PackerSignatureImage {
    uint8_t pattern[PatternLength];
    PackerSignature record;
};

/** An array with its count right after it. */
template <typename Row, uint32_t Count>
struct CountedArray {
    Row rows[Count];
    uint32_t count;
    static_assert(sizeof(Row) * Count % alignof(uint32_t) == 0, "the count must follow without a gap");
};

struct TAVRIK_PACKED WordList {
    const char *const *words;
    uint32_t count;
};

extern "C" {

/** Publishers, issuers; the same for NamePairTable. In stored form until the preparation. */
extern NameEntry NameTable1[kNameTable1Entries];
extern const uint32_t NameTable1Count;
extern NameEntry NameTable2[kNameTable2Entries];
extern const uint32_t NameTable2Count;
extern NameEntry NameTable3[kNameTable3Entries];
extern const uint32_t NameTable3Count;
extern NameEntry NameTable4[kNameTable4Entries];
extern const uint32_t NameTable4Count;

/** Each of these counts follows its array. */
extern const NameDetection NameDetectionMap[kNameDetections];
extern const uint32_t NameDetectionMapCount;
extern const NameDetection SecondNameDetectionMap[kSecondNameDetections];
extern const uint32_t SecondNameDetectionMapCount;
extern const NamePair NamePairTable[kNamePairs];
extern const uint32_t NamePairTableCount;
extern const char *const Keywords[kKeywords];
extern const uint32_t KeywordsCount;
extern const char *const ProductWords[kProductWords];
extern const uint32_t ProductWordsCount;

/** The records in order; the array follows the last record at the next 8-byte boundary. */
extern const PackerSignature *const PackerSignatures[kPackerSignatures];

extern const char *const ModuleNames[kModuleNames];

/** Visual Basic runtime modules, wildcards, execution levels. */
extern const WordList WordListTable[kWordLists];

/** NUL-padded slots. */
extern const char FunctionNames[kFunctionNames][kFunctionNameSlot];
extern const char SectionNames[kSectionNames][kSectionNameSlot];

} // extern "C"

TAVRIK_ASSERT_SIZE(NameEntry, 256);

TAVRIK_ASSERT_SIZE(NameDetection, 28);
TAVRIK_ASSERT_OFFSET(NameDetection, first_name, 0);
TAVRIK_ASSERT_OFFSET(NameDetection, second_name, 8);
TAVRIK_ASSERT_OFFSET(NameDetection, gen_flag, 16);
TAVRIK_ASSERT_OFFSET(NameDetection, detection, 20);

TAVRIK_ASSERT_SIZE(NamePair, 16);
TAVRIK_ASSERT_OFFSET(NamePair, first_name, 0);
TAVRIK_ASSERT_OFFSET(NamePair, second_name, 8);

TAVRIK_ASSERT_SIZE(PackerSignature, 24);
TAVRIK_ASSERT_OFFSET(PackerSignature, id, 0);
TAVRIK_ASSERT_OFFSET(PackerSignature, pattern, 4);
TAVRIK_ASSERT_OFFSET(PackerSignature, pattern_length, 12);
TAVRIK_ASSERT_OFFSET(PackerSignature, pattern_param, 13);
TAVRIK_ASSERT_OFFSET(PackerSignature, pattern_kind, 14);
TAVRIK_ASSERT_OFFSET(PackerSignature, packer, 15);
TAVRIK_ASSERT_OFFSET(PackerSignature, one, 23);

TAVRIK_ASSERT_SIZE(WordList, 12);
TAVRIK_ASSERT_OFFSET(WordList, words, 0);
TAVRIK_ASSERT_OFFSET(WordList, count, 8);

} // namespace tavrik2

#endif
