// The parts of fmt that need to be compiled once, for all programs: its package has no library for Windows, and
// header-only use would compile them in every source file.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {

template thousands_sep_result<char> thousands_sep_impl<char>(locale_ref);
template char decimal_point_impl<char>(locale_ref);

} // namespace detail
FMT_END_NAMESPACE
