/* What an explanation of an entry says, for programs. */
#ifndef TAVRIK_SCANNER_EXPLAIN_JSON_H
#define TAVRIK_SCANNER_EXPLAIN_JSON_H

#include "scanner/host_records.h"
#include "scanner/module.h"
#include "scanner/report_json.h"

namespace tavrik::scanner {

/** The entry with its gate beside the file's values, once for each candidate for the first section, and what its
 * locator found; see docs/json.md. Arguments as of Explain. */
Json EntryObject(const Module &module, uint32_t entry, base::ByteSource &source, const HostRecords &records);

} // namespace tavrik::scanner

#endif
