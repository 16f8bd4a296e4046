#include "service/executable_path.h"

#include "platform/handles.h"

DWORD GetExecutablePath(std::array<wchar_t, kExecutablePathCharacters>& path) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) {
        return Platform::ErrorUnless(FALSE);
    }
    // A path that was cut fills the buffer; a whole one leaves room for its end.
    return length < path.size() ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER;
}
