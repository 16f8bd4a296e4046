#pragma once

#include <string>

namespace Doctor {

// The whole page, ready to be written to a file: UTF-8, self-contained, asks no network for anything.
// `json` is the analysis' report as one JSON value in UTF-8. Its strings may hold anything, markup and
// "</script>" as well: nothing in them ends the data or becomes an element. Any thread. Throws only
// std::bad_alloc.
std::string RenderPage(const std::string& json);

}  // namespace Doctor
