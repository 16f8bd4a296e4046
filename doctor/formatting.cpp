// The formatting library's own code, compiled once: in each source that formats it would take the compiler
// longer than the source.
#include <fmt/format-inl.h>

// What its header leaves to one source.
template auto fmt::detail::thousands_sep_impl(fmt::detail::locale_ref)
    -> fmt::detail::thousands_sep_result<char>;
template auto fmt::detail::decimal_point_impl(fmt::detail::locale_ref) -> char;
