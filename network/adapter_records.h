#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "platform/handles.h"

namespace NLMUtils {

/// A block of the process heap for a list of the IP helper's adapter records; empty when there is
/// no memory. Cleared, and never smaller than one record, so that a list which the system leaves
/// unwritten reads as one record without contents instead of as whatever lay in the heap.
template <class Record>
[[nodiscard]] Platform::UniqueProcessHeap<Record> AllocateAdapterRecords(ULONG bytes) {
    const SIZE_T size = std::max<SIZE_T>(bytes, sizeof(Record));
    Platform::UniqueProcessHeap<Record> records = Platform::AllocateFromProcessHeap<Record>(size);
    if (records) {
        std::memset(records.Get(), 0, size);
    }
    return records;
}

/// What the log has for an interface type of the IP helper (IANA ifType).
struct TypeText {
    DWORD type;
    const wchar_t* text;
};

/// The text of a type; null when the table has none.
template <std::size_t Size>
[[nodiscard]] const wchar_t* FindText(const std::array<TypeText, Size>& table, DWORD type) {
    const auto* const found = std::find_if(table.data(), table.data() + Size,
                                           [type](const TypeText& row) { return row.type == type; });
    return found != table.data() + Size ? found->text : nullptr;
}

}  // namespace NLMUtils
