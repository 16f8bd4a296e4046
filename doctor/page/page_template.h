#pragma once

#include <string_view>

namespace Doctor {

// The page without its data, in two parts, made at build time by EmbedPage.cmake. UTF-8; they live as
// long as the process.
std::string_view PageBeforeData();
std::string_view PageAfterData();

}  // namespace Doctor
