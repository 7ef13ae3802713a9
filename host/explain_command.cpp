#include <fmt/format.h>

#include "host/commands.h"
#include "host/explain.h"
#include "host/file_stream.h"
#include "host/scan.h"
#include "host/text.h"

namespace tavrik::host {

namespace fs = std::filesystem;

ExitCode RunExplain(const fs::path &module_path, uint32_t entry, const fs::path &file) {
    const Module module(module_path);
    const auto fail = [&](const std::string &reason) {
        ReportError(file, reason);
        return kErrorHappened;
    };
    try {
        FileSource source(file);
        const PeResult pe = ParsePe(source);
        if (pe.status != PeStatus::Parsed)
            return fail(pe.status == PeStatus::NotPe ? pe.text + "; name a PE file" : pe.text);
        if (source.size() > kLargestFile)
            return fail(TooLargeText(source.size()));
        const Explanation explanation = Explain(module, entry, source, pe.image);
        Print(fmt::format("{}: {} bytes, {}, {} of {} section headers present\n", PrintablePath(file), source.size(),
                          pe.image.is_pe32_plus ? "PE32+" : "PE32", pe.image.sections.size(),
                          uint16_t{pe.image.file_header.NumberOfSections}) +
              explanation.text);
        if (!source.error().empty())
            return fail(source.error());
        return explanation.found ? kFound : kNothingFound;
    } catch (const OpenError &error) {
        return fail(error.what());
    }
}

} // namespace tavrik::host
