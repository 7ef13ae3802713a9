// Any bytes as a file. The host's parsers must end and stay within it, the two evaluators must agree, also on a source
// that is not in memory, and an explanation must say what they say. The rules reach into every corner of the features;
// the hand-written ones of the database keep the index at work.

#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "database/generator/written_rules.h"
#include "evaluation/evaluator.h"
#include "evaluation/rule_explanation.h"
#include "evaluation/rule_index.h"
#include "evaluation/string_pass.h"
#include "evaluation/string_search.h"
#include "fuzz/streamed_source.h"
#include "pe/certificate.h"
#include "rules/record/record_builder.h"
#include "rules/text/parser.h"
#include "scanner/host_records.h"
#include "scanner/map/file_map.h"
#include "scanner/near_miss.h"

namespace {

using namespace tavrik;

constexpr std::string_view kRules = R"(
rule 1 "Derived" for program {
    header { FileSize > 0; OverlayOffset >= 0; OverlaySize >= 0; EntryPointOffset >= 0; EntryBytes[4] != 1 }
}
rule 2 "Rich" for program { header { Rich.Key != 0; Rich.Count > 0; Rich.LastBuild != 0 } }
rule 3 "Counts" for program {
    header { ImportModuleCount > 0; ImportFunctionCount > 1; ExportNameCount >= 0; ResourceCount >= 0 }
}
rule 4 "Roles" for program {
    sections { last.VirtualSize > 0; entry.Characteristics has 0x20; code.SizeOfRawData > 0; largest.VirtualAddress > 0 }
    section_names { any != ""; any_code == ".text"; any_data != "x"; next_to_last != "y" }
}
rule 5 "Imports" for program {
    import_table { [0].Name > 0; [0].FirstThunk > 0 }
    import_modules { "kernel" prefix; [0] != "none" }
    import_functions { #0 "ExitProcess"; #1 != "x"; any != "#7" }
}
rule 6 "Exports" for library { export_module { != "a.dll" } export_functions { != "DllMain" } }
rule 7 "Resources" for program {
    resources { any[any] }
    resource_types { type[16]; entry[77] absent; type["A"] absent }
}
rule 8 "Icons" for program { resources { any[any] crc32 0x1234567 } }
rule 9 "Version" for program { resource_strings { VERSION[any].CompanyName "Acme" } }
rule 10 "FixedVersion" for program { resource_strings { VERSION[any].FixedFileVersion "1.0.0.0" } }
rule 11 "Manifest" for program { resource_strings { MANIFEST[any].RequestedExecutionLevel "asInvoker" } }
rule 12 "Dependency" for program { resource_strings { MANIFEST[any].DependencyName "x"; MANIFEST[any].Any "assembly" } }
rule 13 "Table" for program { resource_strings { STRING[any][17] "Ready" } }
rule 14 "Measures" for program {
    measures { entropy(file) > 0; entropy(section[0]) >= 0; crc32(entry_code, 4) != 0; entropy(dos_stub) <= 8 }
}
rule 15 "MoreMeasures" for program { measures { entropy(overlay) > 7; crc32(resource_data[0]) != 0; entropy(vb) > 0 } }
rule 16 "Basic" for program { traits visual_basic header { VB.FormCount >= 0; VB.ObjectTable.TotalObjects > 0 } }
rule 17 "Objects" for program {
    traits native_code
    object_fields { [0].MethodCount > 0; [0].Info.Constants >= 0; [0].Optional.ControlCount >= 0 }
    object_names { [0] "Form1" prefix; [1] != "x" }
    member_names { #0 "Form_Load"; #0 != "y" }
}
rule 18 "Strings" for program {
    strings {
        A = "This program" in file
        B = { 50 45 ?? 00 } in headers at 0..0x200 drift 4
        C = "kernel32" nocase in import
        D = "VERSION" wide nocase in resource from end
        E = { ?? ?? 00 } in entry_code at 0..0x10
        F = "a" nocase in overlay from end at 0..0x20
    }
    when ((A|(B&C))|(D&(E|F)))
}
rule 19 "MoreStrings" for program {
    strings {
        A = { 00 } in section(".text")
        B = { 4D 5A } in resource_data[0] at 0
        C = "Rich" in dos_stub
        D = "VB5!" in vb
        E = { ?? } in last from end at 0..0 drift 2
    }
    when (((A|B)|(C|D))|E)
}
rule 20 "Traits" for program { traits overlay, few_imports, virtual_section, executable_last, writable_entry }
)";

void Require(bool holds) {
    if (!holds)
        std::abort();
}

const tavrik::rules::record::RecordSet &Rules() {
    static const tavrik::rules::record::RecordSet records = [] {
        tavrik::rules::text::ParsedFile parsed = tavrik::rules::text::ParseRules(kRules);
        Require(!tavrik::rules::text::HasErrors(parsed.diagnostics));
        for (const tavrik::rules::Rule &rule : tavrik::generator::WrittenRules().rules)
            parsed.set.rules.push_back(rule);
        return tavrik::rules::record::RecordSet(parsed.set);
    }();
    return records;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::span<HeuristicRule *const> table = Rules().rules();
    static const tavrik::evaluation::RuleIndex index(table);

    const std::vector<uint8_t> file(data, data + size); // of exactly that size, so that no read after it is missed
    tavrik::base::MemorySource source(file);
    tavrik::evaluation::Features features(source);
    tavrik::pe::ReadSigner(features.image());
    uint64_t covered = 0;
    for (const tavrik::scanner::map::Segment &segment :
         tavrik::scanner::map::MakeMap(source, features.image()).segments) {
        Require(segment.place.offset == covered && segment.place.length != 0);
        covered = segment.place.End();
    }
    Require(covered == size);
    // The searches of all entries, whatever their gates say.
    const tavrik::scanner::PeResult pe = tavrik::scanner::MakeHostRecords(features.image(), source);
    if (pe.status == tavrik::scanner::PeStatus::Parsed)
        tavrik::scanner::FindNearMisses(source, features.image(), pe.records, tavrik::scanner::kMostFailedConditions,
                                        {});
    const std::vector<uint32_t> fast = index.Match(features);
    tavrik::fuzz::StreamedSource streamed(file);
    tavrik::evaluation::Features streamed_features(streamed);
    Require(index.Match(streamed_features) == fast);

    tavrik::evaluation::Features plain_features(source);
    std::vector<uint32_t> plain;
    for (uint32_t place = 0; place < table.size(); ++place)
        if (tavrik::evaluation::Matches(*table[place], plain_features))
            plain.push_back(place);
    Require(plain == fast);

    // The search for all strings at once against the search for each.
    static const std::vector<const StringFeature *> strings = [&] {
        std::vector<const StringFeature *> all;
        for (const HeuristicRule *rule : table)
            for (uint32_t i = 0; i < rule->strings.count; ++i)
                all.push_back(&rule->strings.elements[i]);
        return all;
    }();
    static const tavrik::evaluation::StringPass pass(strings);
    const std::vector<bool> present = pass.Search(
        plain_features.bytes(), [&](const StringFeature &string) { return plain_features.StringRegion(string); });
    for (std::size_t i = 0; i < strings.size(); ++i)
        Require(present[i] == tavrik::evaluation::IsStringPresent(
                                  plain_features.bytes(), plain_features.StringRegion(*strings[i]), *strings[i]));

    const std::size_t explained = size % table.size();
    const tavrik::evaluation::RuleExplanation explanation =
        tavrik::evaluation::ExplainRule(*table[explained], features);
    Require(explanation.matches == tavrik::evaluation::Matches(*table[explained], features));
    Require(!explanation.matches || explanation.failed == 0);
    return 0;
}
