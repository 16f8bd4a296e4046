#pragma once

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

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

/// Calls `visit` for each record, in the order of the links, until it says true; whether it did. A list whose
/// links lead out of its block, or round in a circle, ends there.
template <class Record, class Visit>
bool VisitRecords(const Platform::UniqueProcessHeap<Record>& list, Visit visit) {
    const SIZE_T bytes = HeapSize(GetProcessHeap(), 0, list.Get());
    SIZE_T left = bytes / sizeof(Record);
    for (const Record* record = list.Get(); record != nullptr && left != 0; record = record->Next, --left) {
        // Of a record in front of the block this is an enormous number.
        const auto offset =
            reinterpret_cast<std::uintptr_t>(record) - reinterpret_cast<std::uintptr_t>(list.Get());
        if (offset > bytes - sizeof(Record)) {
            return false;
        }
        if (visit(*record)) {
            return true;
        }
    }
    return false;
}

/// What the log has for an interface type of the IP helper (IANA ifType).
struct TypeText {
    DWORD type;
    const wchar_t* text;
};

/// The text of a type; null when the table has none.
[[nodiscard]] inline const wchar_t* FindText(std::span<const TypeText> table, DWORD type) {
    const auto found = std::ranges::find(table, type, &TypeText::type);
    return found != table.end() ? found->text : nullptr;
}

}  // namespace NLMUtils
