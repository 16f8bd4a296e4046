#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cwchar>

// Nothing of the C++ runtime is used here: it would be a tenth of the package.
namespace {

constexpr DWORD kPathCharacters = 32'768;
constexpr ULONGLONG kBytesPerKilobyte = 1024;

/// A condition compares no more than an int.
void SetNumber(MSIHANDLE installation, const wchar_t* property, ULONGLONG number) {
    wchar_t text[16] = L"";
    _ltow_s(static_cast<long>(std::min<ULONGLONG>(number, INT_MAX)), text, 16, 10);
    MsiSetPropertyW(installation, property, text);
}

/// Bytes that are free for the caller where the folder stands, or will stand: those of the nearest folder
/// above it that exists, to which `folder` is cut. False when Windows does not tell.
bool GetFreeBytes(wchar_t* folder, ULARGE_INTEGER& bytes) {
    while (GetDiskFreeSpaceExW(folder, &bytes, nullptr, nullptr) == FALSE) {
        const std::size_t characters = std::wcslen(folder);
        if (characters == 0) {
            return false;
        }
        folder[characters - 1] = L'\0';
        wchar_t* const backslash = std::wcsrchr(folder, L'\\');
        if (backslash == nullptr) {
            return false;
        }
        backslash[1] = L'\0';
    }
    return true;
}

}  // namespace

/// Measures the folder that was chosen, for the conditions of the package's refusals, by setting two of the
/// installation's properties:
///   FolderLength  characters of its path, with the backslash at its end
///   FolderRoom    kilobytes that are free there; stays unset where that cannot be told
/// An immediate custom action of Windows Installer, run when the folders are settled.
extern "C" UINT __stdcall MeasureFolder(MSIHANDLE installation) {
    wchar_t folder[kPathCharacters] = L"";
    DWORD characters = kPathCharacters;
    const UINT result = MsiGetPropertyW(installation, L"INSTALLFOLDER", folder, &characters);
    if (result != ERROR_SUCCESS && result != ERROR_MORE_DATA) {
        return result;
    }
    SetNumber(installation, L"FolderLength", characters);
    ULARGE_INTEGER bytes = {};
    if (GetFreeBytes(folder, bytes)) {
        SetNumber(installation, L"FolderRoom", bytes.QuadPart / kBytesPerKilobyte);
    }
    return ERROR_SUCCESS;
}

/// Gives a stopped service the time that it may take to write its log and end: an executable in use costs a
/// restart of Windows. A deferred custom action.
extern "C" UINT __stdcall WaitForEnd(MSIHANDLE /*installation*/) {
    constexpr DWORD kMilliseconds = 2000;
    Sleep(kMilliseconds);
    return ERROR_SUCCESS;
}

/// Starts the service that was installed, and does not wait until it runs. A commit custom action. (A program
/// that starts services would have a console window, of the system's, on the user's desktop.)
extern "C" UINT __stdcall StartInstalledService(MSIHANDLE /*installation*/) {
    BOOL started = FALSE;
    if (SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)) {
        if (SC_HANDLE service = OpenServiceW(manager, L"LinkvaneService", SERVICE_START)) {
            started = StartServiceW(service, 0, nullptr);
            CloseServiceHandle(service);
        }
        CloseServiceHandle(manager);
    }
    return started != FALSE ? ERROR_SUCCESS : ERROR_INSTALL_FAILURE;
}
