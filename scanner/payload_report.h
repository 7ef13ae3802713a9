/* A payload in words and as a JSON object. */
#ifndef TAVRIK_SCANNER_PAYLOAD_REPORT_H
#define TAVRIK_SCANNER_PAYLOAD_REPORT_H

#include <string>

#include "base/json.h"
#include "scanner/payload.h"

namespace tavrik::scanner {

/** The word for an extent's format in JSON: "nsis", "autoit", "cabinet" or "rar". */
const char *FormatName(const payloads::Extent &extent);

/** The payload on one line: "entries 16, 26: AutoIt EA06, offset 0x1a00, length 123456 (complete)". */
std::string PayloadText(const Payload &payload);

/** Where it was carved to, or why it was not; "" when carving was not asked for. */
std::string CarvedText(const Payload &payload);

/** The object of a payload, see docs/json.md. */
base::Json PayloadObject(const Payload &payload);

} // namespace tavrik::scanner

#endif
