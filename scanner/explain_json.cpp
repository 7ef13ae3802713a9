#include "scanner/explain_json.h"

#include <algorithm>
#include <optional>

#include "scanner/gate_tree.h"
#include "scanner/locator_info.h"
#include "scanner/module_stream.h"
#include "scanner/scan.h"
#include "tavrik2/locators/locators.h"

namespace tavrik::scanner {

namespace {

// A condition as {"field", "holds", "has", "wanted"}, alternatives as {"any": [{"heading", "holds", "all": [...]}]}.
Json ConditionsOf(const GateNode &node) {
    Json conditions = Json::array();
    for (const GateNode &child : node.children) {
        if (child.kind == GateNode::Kind::Condition) {
            conditions.push_back({{"field", FieldName(child.field)},
                                  {"holds", child.holds},
                                  {"has", ValueText(child.field, child.value)},
                                  {"wanted", WantedText(child)}});
            continue;
        }
        Json alternatives = Json::array();
        for (const GateNode &alternative : child.children)
            alternatives.push_back(
                {{"heading", alternative.heading}, {"holds", alternative.holds}, {"all", ConditionsOf(alternative)}});
        conditions.push_back({{"holds", child.holds}, {"any", alternatives}});
    }
    return conditions;
}

} // namespace

Json EntryObject(const Module &module, uint32_t entry, base::ByteSource &whole, const HostRecords &records) {
    base::WindowSource source(whole, 0, kLargestFile);
    const LocatorInfo &info = kLocatorInfo[entry];
    Json object = {{"entry", entry}, {"description", info.description}, {"gates", Json::array()}};
    if (entry == kDecliningEntry)
        return object;
    object["kind"] = static_cast<uint32_t>(info.kind);
    object["kind_name"] = KindName(info.kind);
    const tavrik2::GateView gate = tavrik2::GateOf(entry);
    for (const SectionHeader &first_section : records.first_sections) {
        ModuleStream stream(source);
        const tavrik2::TargetFile file = {
            stream.stream(),          ModuleStream::handle(), static_cast<int32_t>(source.size()),
            records.data_dirs.data(), &records.file_header,   &records.opt_header,
            &first_section,           &records.last_section,  records.entry_code.data()};
        const GateNode judged = JudgeGate(gate, file);
        const std::optional<Finding> finding = RunLocator(module, entry, source, records, first_section);
        object["gates"].push_back(
            {{"passes", judged.holds},
             {"failed", CountFailed(judged)},
             {"conditions", ConditionsOf(judged)},
             {"finding", finding ? Json{{"offset", finding->offset}, {"size", finding->size}} : Json(nullptr)}});
    }
    return object;
}

} // namespace tavrik::scanner
