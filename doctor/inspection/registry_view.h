#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

#include "doctor/inspection/state.h"
#include "platform/handles.h"

namespace Inspection {

/// A registry value, byte for byte.
struct RawValue {
    std::wstring name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

/// Opens a key for reading. The Win32 error.
[[nodiscard]] LSTATUS OpenForReading(HKEY root, const std::wstring& path, Platform::UniqueRegistryKey& key);

/// One value. The Win32 error; ERROR_FILE_NOT_FOUND when there is none.
[[nodiscard]] LSTATUS ReadValue(HKEY key, const wchar_t* name, RawValue& value);

/// Every value of a key, in the registry's order.
[[nodiscard]] std::vector<RawValue> ReadValues(HKEY key);

/// Names of the keys directly below one.
[[nodiscard]] std::vector<std::wstring> ReadSubkeys(HKEY key);

/// Its characters as they stand, without the first terminator and what follows it.
[[nodiscard]] std::wstring TextOf(const RawValue& value);

/// For people: a text, a number, or bytes in hexadecimal (the first 64).
[[nodiscard]] Value Describe(const RawValue& value);

/// Whether the keys below a key go with it.
enum class Below { kNot, kToo };

/// A key, one value a line, for people.
[[nodiscard]] std::string Dump(HKEY root, const std::wstring& path, Below below = Below::kToo);

}  // namespace Inspection
