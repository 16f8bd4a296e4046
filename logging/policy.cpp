#include "logging/policy.h"

#include <algorithm>
#include <cstddef>
#include <cwctype>
#include <utility>
#include <vector>

#include "logging/level.h"
#include "logging/listener.h"
#include "platform/executable_path.h"

namespace Orva::Shared {
namespace {

using Platform::UniqueRegistryKey;

constexpr wchar_t kPolicyRoot[] = L"Software\\Policies\\Orva\\";
constexpr wchar_t kLoggingType[] = L"LoggingType";
constexpr wchar_t kMinLogLevel[] = L"MinLogLevel";
constexpr wchar_t kMaxLogLevel[] = L"MaxLogLevel";
constexpr wchar_t kMaxLogSize[] = L"MaxLogSize";
constexpr wchar_t kQueuedWrites[] = L"QueuedWrites";

constexpr DWORD kLevelNameBytes = 256;
constexpr DWORD kLoggingTypeBytes = 128;
constexpr std::size_t kModuleNameCharacters = 520;
constexpr std::uint32_t kDefaultMaxLogSizeKilobytes = 2048;

constexpr std::pair<const wchar_t*, int> kSelectionWords[] = {
    {L"EVENT", ListenerType::kEvent},
    {L"FILE", ListenerType::kFile},
    {L"CONSOLE", ListenerType::kConsole},
    {L"DEBUG", ListenerType::kDebug},
};

/// The path of this process's executable, cut to so many characters, its end included.
std::wstring ExecutablePath(std::size_t characters) {
    std::vector<wchar_t> path(characters);
    static_cast<void>(Platform::GetExecutablePath(path));
    return path.data();
}

/// One text of a version resource; nothing when it is not there or has no characters.
std::optional<std::wstring> QueryVersionText(const std::vector<std::byte>& version, const wchar_t* name) {
    void* text = nullptr;
    UINT characters = 0;
    if (VerQueryValueW(version.data(), name, &text, &characters) == FALSE || text == nullptr ||
        characters == 0) {
        return std::nullopt;
    }
    const std::wstring found(static_cast<const wchar_t*>(text), characters);
    // Most resource compilers count the terminator; it is no part of the name.
    return found.substr(0, found.find(L'\0'));
}

/// Reads a value's bytes, of any type unless one is named. False when there is no key or no such value,
/// or when it is longer than `bytes`.
bool QueryValue(const UniqueRegistryKey& key, const wchar_t* name, void* buffer, DWORD bytes,
                DWORD onlyType = REG_NONE) {
    DWORD type = REG_NONE;
    return key &&
           RegQueryValueExW(key.Get(), name, nullptr, &type, static_cast<BYTE*>(buffer), &bytes) ==
               ERROR_SUCCESS &&
           (onlyType == REG_NONE || type == onlyType);
}

/// A text of at most so many bytes. It may have been written without a terminator.
std::optional<std::wstring> QueryText(const UniqueRegistryKey& key, const wchar_t* name, DWORD bytes,
                                      DWORD onlyType = REG_NONE) {
    std::vector<wchar_t> text(bytes / sizeof(wchar_t) + 1);
    if (!QueryValue(key, name, text.data(), bytes, onlyType)) {
        return std::nullopt;
    }
    return text.data();
}

std::optional<std::uint32_t> QueryNumber(const UniqueRegistryKey& key, const wchar_t* name) {
    std::uint32_t number = 0;
    return QueryValue(key, name, &number, sizeof(number)) ? std::optional(number) : std::nullopt;
}

/// What `read` finds in the executable's key, or else in the product's.
template <class Read>
auto FirstOf(const PolicyKeys& keys, Read read) {
    auto found = read(keys.executable);
    return found ? found : read(keys.product);
}

int ReadLevel(const PolicyKeys& keys, const wchar_t* name, int otherwise) {
    const auto read = [name](const UniqueRegistryKey& key) {
        std::optional<std::wstring> text = QueryText(key, name, kLevelNameBytes, REG_SZ);
        return text == L"" ? std::nullopt : text;
    };
    const std::optional<std::wstring> found = FirstOf(keys, read);
    return found ? LevelFromName(found->c_str()) : otherwise;
}

}  // namespace

std::wstring GetProductName(const wchar_t* executablePath) {
    DWORD ignored = 0;
    const DWORD bytes = GetFileVersionInfoSizeW(executablePath, &ignored);
    std::vector<std::byte> version(bytes);
    if (bytes == 0 || GetFileVersionInfoW(executablePath, 0, bytes, version.data()) == FALSE) {
        return {};
    }
    // English (United States), first in the Windows code page, then in Unicode.
    for (const wchar_t* name :
         {L"\\StringFileInfo\\040904E4\\ProductName", L"\\StringFileInfo\\040904B0\\ProductName"}) {
        if (std::optional<std::wstring> found = QueryVersionText(version, name)) {
            return *std::move(found);
        }
    }
    return {};
}

std::optional<ModuleNames> GetModuleNames() {
    ModuleNames names;
    names.path = ExecutablePath(kModuleNameCharacters);
    const std::size_t dot = names.path.rfind(L'.');
    const std::size_t backslash = names.path.rfind(L'\\', dot);
    if (dot == std::wstring::npos || backslash == std::wstring::npos) {
        return std::nullopt;
    }
    names.baseName = names.path.substr(backslash + 1, dot - backslash - 1);
    return names;
}

void OpenPolicyKeys(PolicyKeys& keys) {
    keys.product.Reset();
    keys.executable.Reset();
    const std::wstring product = GetProductName(ExecutablePath(MAX_PATH).c_str());
    if (product.empty()) {
        return;
    }
    const std::wstring path = kPolicyRoot + product;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, keys.product.Put()) != ERROR_SUCCESS) {
        return;
    }
    if (const std::optional<ModuleNames> names = GetModuleNames()) {
        static_cast<void>(
            RegOpenKeyExW(keys.product.Get(), names->baseName.c_str(), 0, KEY_READ, keys.executable.Put()));
    }
}

LevelRange ReadLogLevels(const PolicyKeys& keys) {
    return {ReadLevel(keys, kMinLogLevel, Level::kTraceIn), ReadLevel(keys, kMaxLogLevel, Level::kError)};
}

CorvaLogListener::CorvaLogListener(PolicyLevels policyLevels) {
    if (policyLevels == PolicyLevels::kRead) {
        PolicyKeys keys;
        OpenPolicyKeys(keys);
        const LevelRange range = ReadLogLevels(keys);
        m_minLogLevel = range.minLevel;
        m_maxLogLevel = range.maxLevel;
    }
}

std::uint32_t ReadMaxLogSize(const PolicyKeys& keys) {
    const auto read = [](const UniqueRegistryKey& key) {
        const std::optional<std::uint32_t> kilobytes = QueryNumber(key, kMaxLogSize);
        // Zero does not mean "without limit": it counts as absent.
        return kilobytes != 0U ? kilobytes : std::nullopt;
    };
    return FirstOf(keys, read).value_or(kDefaultMaxLogSizeKilobytes);
}

bool ReadQueuedWrites(const PolicyKeys& keys, bool otherwise) {
    const auto read = [](const UniqueRegistryKey& key) { return QueryNumber(key, kQueuedWrites); };
    return FirstOf(keys, read).value_or(otherwise ? 1 : 0) != 0;
}

int ReadOutputSelection(const PolicyKeys& keys) {
    // An empty text of the executable hides the product's.
    const auto read = [](const UniqueRegistryKey& key) {
        return QueryText(key, kLoggingType, kLoggingTypeBytes);
    };
    std::wstring wanted = FirstOf(keys, read).value_or(L"");
    std::transform(wanted.begin(), wanted.end(), wanted.begin(),
                   [](wchar_t character) { return static_cast<wchar_t>(std::towupper(character)); });
    int selection = 0;
    for (const auto& [word, bit] : kSelectionWords) {
        // Anywhere in the text: how the words are divided does not matter.
        if (wanted.find(word) != std::wstring::npos) {
            selection |= bit;
        }
    }
    return selection != 0 ? selection : ListenerType::kQueuedFile;
}

}  // namespace Orva::Shared
