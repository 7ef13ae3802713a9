#include "base/text.h"
#include "engine/failure.h"
#ifdef TAVRIK_HAS_STORE
#include "store/arrow.h"
#endif

using namespace tavrik;

extern "C" tavrik_status tavrik_corpus_export(const char *path, struct ArrowArrayStream *stream, tavrik_error *error) {
    return engine::Guard(error, [&] {
        engine::Require(path != nullptr, "path");
        engine::Require(stream != nullptr, "stream");
#ifdef TAVRIK_HAS_STORE
        store::ExportArrow(base::PathOf(path), *reinterpret_cast<store::ArrowArrayStream *>(stream));
#else
        throw base::Error(base::PathOf(path), "is a store of features, which this build cannot read");
#endif
    });
}
