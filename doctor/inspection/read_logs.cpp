#include <windows.h>
#include <shlobj.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>

#include "doctor/analysis/log_files.h"
#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"
#include "platform/handles.h"
#include "service/service_names.h"

namespace Inspection {
namespace {

std::wstring SystemFolder() {
    std::array<wchar_t, MAX_PATH> path{};
    GetSystemDirectoryW(path.data(), static_cast<UINT>(path.size()));
    return path.data();
}

std::wstring OwnRoamingFolder() {
    std::array<wchar_t, MAX_PATH> path{};
    return SUCCEEDED(SHGetFolderPathW(nullptr, CSIDL_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path.data()))
               ? std::wstring(path.data())
               : std::wstring();
}

LogFile Describe(const std::wstring& folder, const WIN32_FIND_DATAW& found) {
    return {Utf8(folder + L"\\" + found.cFileName),
            (std::uint64_t{found.nFileSizeHigh} << 32U) | found.nFileSizeLow,
            LocalTimeText(found.ftLastWriteTime)};
}

LogFolder ReadLogFolder(const std::wstring& path, bool isServices) {
    LogFolder folder;
    folder.path = Utf8(path);
    folder.isServices = isServices;
    const std::wstring pattern = path + L"\\" + ServiceNames::kService + L"*.log";
    WIN32_FIND_DATAW found{};
    const Platform::UniqueFindHandle listing(FindFirstFileW(pattern.c_str(), &found));
    if (!listing) {
        const DWORD error = GetLastError();
        const bool isEmpty = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        folder.error = isEmpty ? static_cast<DWORD>(ERROR_SUCCESS) : error;
        return folder;
    }
    do {
        folder.files.push_back(Describe(path, found));
    } while (FindNextFileW(listing.Get(), &found) != FALSE);
    std::sort(folder.files.begin(), folder.files.end(),
              [](const LogFile& a, const LogFile& b) { return a.path < b.path; });
    return folder;
}

}  // namespace

std::string LocalTimeText(const FILETIME& utc) {
    SYSTEMTIME time{};
    SYSTEMTIME local{};
    if (FileTimeToSystemTime(&utc, &time) == FALSE ||
        SystemTimeToTzSpecificLocalTime(nullptr, &time, &local) == FALSE) {
        return {};
    }
    return fmt::format("{:04}/{:02}/{:02} {:02}:{:02}:{:02}", local.wYear, local.wMonth, local.wDay,
                       local.wHour, local.wMinute, local.wSecond);
}

std::vector<LogFolder> ReadLogFolders() {
    std::vector<LogFolder> folders;
    const std::filesystem::path services = std::filesystem::path(SystemFolder()) / Doctor::kServiceLogFolder;
    folders.push_back(ReadLogFolder(std::filesystem::path(services).make_preferred().wstring(), true));
    const std::wstring own = OwnRoamingFolder();
    if (!own.empty()) {
        folders.push_back(ReadLogFolder((std::filesystem::path(own) / services.filename()).wstring(), false));
    }
    return folders;
}

}  // namespace Inspection
