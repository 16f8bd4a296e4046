#include "doctor/analysis/input_file.h"

#ifdef _WIN32
#include <windows.h>

#include <fcntl.h>
#include <io.h>
#endif

namespace Doctor {

#ifdef _WIN32

InputFile OpenForReading(const std::filesystem::path& path) {
    // The C library's own functions do not let others rename or delete what they have opened.
    const HANDLE handle =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return nullptr;
    }
    // Each step hands the file on to the next.
    const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(handle), _O_RDONLY | _O_BINARY);
    if (descriptor == -1) {
        CloseHandle(handle);
        return nullptr;
    }
    InputFile file(_fdopen(descriptor, "rb"));
    if (!file) {
        _close(descriptor);
    }
    return file;
}

#else

InputFile OpenForReading(const std::filesystem::path& path) {
    return InputFile(std::fopen(path.c_str(), "rb"));
}

#endif

}  // namespace Doctor
