#include "tools/tavrik-rules/json_line.h"

namespace tavrik::rules_tool {

nlohmann::ordered_json MetadataJson(const rules::Rule &rule) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const rules::MetadataEntry &entry : rule.metadata)
        switch (entry.key) {
        case rules::MetadataKey::Author:
            object["authors"].push_back(entry.text);
            break;
        case rules::MetadataKey::Date:
            object["date"] = entry.text;
            break;
        case rules::MetadataKey::Reference:
            object["references"].push_back(entry.text);
            break;
        case rules::MetadataKey::Description:
            object["description"] = entry.text;
            break;
        case rules::MetadataKey::Sample:
            object["samples"].push_back(entry.text);
            break;
        }
    return object;
}

} // namespace tavrik::rules_tool
