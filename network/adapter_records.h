#pragma once

#include <windows.h>

#include <algorithm>
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

}  // namespace NLMUtils
