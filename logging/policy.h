#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/handles.h"

/// The log's configuration: machine policy in the registry, under
///
///     HKEY_LOCAL_MACHINE\Software\Policies\Orva\<product name>\<executable's base name>
///
/// A value is looked for in the executable's key and then in the product's, so that one policy
/// covers every program of the product and can be refined for one of them. What is missing or too
/// long counts as absent, and an absent value has a default: nothing here fails. A level of another
/// type than REG_SZ counts as absent too. Of the other values the type is not examined: their bytes
/// are taken for what they should be, so "QueuedWrites" as the text "0" is a number other than 0.
/// Policy is read once, on the thread that creates the logger.
namespace Orva::Shared {

/// The two keys; either may be empty.
struct PolicyKeys {
    Platform::UniqueRegistryKey product;
    Platform::UniqueRegistryKey executable;
};

struct ModuleNames {
    std::wstring path;      ///< full path of the executable
    std::wstring baseName;  ///< without directory and extension
};

/// Lowest and highest level that a listener takes, both included.
struct LevelRange {
    int minLevel;
    int maxLevel;
};

/// The product name in the version resource of an executable; empty when there is none.
[[nodiscard]] std::wstring GetProductName(const wchar_t* executablePath);

/// The names of this process's executable; nothing when its path has no "." or no "\".
[[nodiscard]] std::optional<ModuleNames> GetModuleNames();

/// Opens both keys for reading, as far as they exist. Keys that were open are closed first.
void OpenPolicyKeys(PolicyKeys& keys);

/// "MinLogLevel" and "MaxLogLevel"; without policy "TraceIn" to "Error". An unknown name reads
/// as "Never": as the lowest level it silences a listener, as the highest it lets all through.
[[nodiscard]] LevelRange ReadLogLevels(const PolicyKeys& keys);

/// "MaxLogSize": the size at which the log file is rotated, in kilobytes; without policy, or
/// with 0, 2048.
[[nodiscard]] std::uint32_t ReadMaxLogSize(const PolicyKeys& keys);

/// "QueuedWrites": whether file writes go through a queue; without policy `otherwise`.
[[nodiscard]] bool ReadQueuedWrites(const PolicyKeys& keys, bool otherwise);

/// "LoggingType": the listeners that are wanted, as bits of `ListenerType`. Never none: without
/// policy, or when no known word occurs in it, it is the queued file.
[[nodiscard]] int ReadOutputSelection(const PolicyKeys& keys);

}  // namespace Orva::Shared
