#include "scanner/open_input.h"

#include <system_error>

#include "base/error.h"

namespace tavrik::scanner {

std::shared_ptr<base::StreamSource> ReadStream(const Input &input, uint64_t most, const Deadline &deadline) {
    const auto read = [&](base::InputStream &&stream) {
        return std::make_shared<base::StreamSource>(stream, most, [&deadline] { return deadline.HasPassed(); });
    };
    try {
        return input.kind == Input::Kind::StandardInput ? read(base::InputStream::StandardInput())
                                                        : read(base::InputStream(input.path));
    } catch (const std::system_error &error) {
        throw base::Error(input.path, error.code().message());
    }
}

std::shared_ptr<base::ByteSource> OpenInput(const Input &input, const Deadline &deadline) {
    if (input.kind == Input::Kind::File)
        return std::make_shared<base::FileSource>(input.path);
    std::shared_ptr<base::StreamSource> stream = ReadStream(input, kLargestStream, deadline);
    if (stream->IsCut())
        throw base::Error(input.path, "delivers more than 4 GiB; write it to a file and name that",
                          base::ErrorCode::TooLarge);
    return stream;
}

} // namespace tavrik::scanner
