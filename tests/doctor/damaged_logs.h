#pragma once

#include <cstdint>
#include <string>

namespace Doctor {

/// A log with damage that the number stands for: the same for the same number.
std::string DamagedLog(const std::string& whole, std::uint64_t number);

/// Has a damaged log analysed and reported in both ways; the folder is where its files are written.
/// Something is wrong, or nothing: a text that says what is wrong, or an empty one.
std::string TryDamagedLog(const std::string& folder, const std::string& whole, std::uint64_t number);

/// The log that damage is done to.
std::string WholeLog();

}  // namespace Doctor
