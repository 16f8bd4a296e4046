#include "logging/policy.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cwctype>
#include <vector>

#include "logging/level.h"
#include "logging/listener.h"

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

struct SelectionWord {
    const wchar_t* word;
    int bit;
};
constexpr SelectionWord kSelectionWords[] = {
    {L"EVENT", ListenerType::kEvent},
    {L"FILE", ListenerType::kFile},
    {L"CONSOLE", ListenerType::kConsole},
    {L"DEBUG", ListenerType::kDebug},
};

/// The file name of this process's executable, cut to `Characters` places, its end included.
template <std::size_t Characters>
std::wstring ModuleFileName() {
    std::array<wchar_t, Characters> path{};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    path.back() = L'\0';
    return path.data();
}

/// One text of a version resource; nothing when it is not there or has no characters.
std::optional<std::wstring> QueryVersionText(const std::vector<std::byte>& version, const wchar_t* name) {
    void* text = nullptr;
    UINT characters = 0;
    if (VerQueryValueW(version.data(), name, &text, &characters) == FALSE || characters == 0) {
        return std::nullopt;
    }
    const std::wstring found(static_cast<const wchar_t*>(text), characters);
    // Most resource compilers count the terminator; it is no part of the name.
    return found.substr(0, found.find(L'\0'));
}

/// A text value as it stands in the registry. It may have been written without a terminator.
struct TextValue {
    DWORD type = REG_NONE;
    std::wstring text;
};

/// Nothing when there is no key or no such value, or when it is longer than the limit.
template <DWORD LimitBytes>
std::optional<TextValue> QueryText(const UniqueRegistryKey& key, const wchar_t* name) {
    std::array<wchar_t, LimitBytes / sizeof(wchar_t) + 1> buffer{};
    TextValue value;
    DWORD bytes = LimitBytes;
    if (!key || RegQueryValueExW(key.Get(), name, nullptr, &value.type,
                                 reinterpret_cast<BYTE*>(buffer.data()), &bytes) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    value.text = buffer.data();
    return value;
}

/// Whatever the value's type, its bytes are taken for a number; nothing when there is no key or
/// no such value, or when it is longer than a number.
std::optional<std::uint32_t> QueryNumber(const UniqueRegistryKey& key, const wchar_t* name) {
    std::uint32_t number = 0;
    DWORD bytes = sizeof(number);
    if (!key || RegQueryValueExW(key.Get(), name, nullptr, nullptr, reinterpret_cast<BYTE*>(&number),
                                 &bytes) != ERROR_SUCCESS) {
        return std::nullopt;
    }
    return number;
}

int ReadLevel(const PolicyKeys& keys, const wchar_t* name, int otherwise) {
    for (const UniqueRegistryKey* key : {&keys.executable, &keys.product}) {
        const std::optional<TextValue> value = QueryText<kLevelNameBytes>(*key, name);
        if (value && value->type == REG_SZ && !value->text.empty()) {
            return LevelFromName(value->text.c_str());
        }
    }
    return otherwise;
}

std::wstring ToUpper(std::wstring text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t character) { return static_cast<wchar_t>(std::towupper(character)); });
    return text;
}

}  // namespace

std::wstring GetProductName(const wchar_t* executablePath) {
    DWORD ignored = 0;
    const DWORD bytes = GetFileVersionInfoSizeW(executablePath, &ignored);
    if (bytes == 0) {
        return {};
    }
    std::vector<std::byte> version(bytes);
    if (GetFileVersionInfoW(executablePath, 0, bytes, version.data()) == FALSE) {
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
    names.path = ModuleFileName<kModuleNameCharacters>();
    const std::size_t dot = names.path.rfind(L'.');
    if (dot == std::wstring::npos) {
        return std::nullopt;
    }
    const std::wstring withoutExtension = names.path.substr(0, dot);
    const std::size_t backslash = withoutExtension.rfind(L'\\');
    if (backslash == std::wstring::npos) {
        return std::nullopt;
    }
    names.baseName = withoutExtension.substr(backslash + 1);
    return names;
}

void OpenPolicyKeys(PolicyKeys& keys) {
    keys.product.Reset();
    keys.executable.Reset();
    const std::wstring product = GetProductName(ModuleFileName<MAX_PATH>().c_str());
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

std::uint32_t ReadMaxLogSize(const PolicyKeys& keys) {
    for (const UniqueRegistryKey* key : {&keys.executable, &keys.product}) {
        const std::optional<std::uint32_t> kilobytes = QueryNumber(*key, kMaxLogSize);
        // Zero does not mean "without limit": it counts as absent.
        if (kilobytes && *kilobytes != 0) {
            return *kilobytes;
        }
    }
    return kDefaultMaxLogSizeKilobytes;
}

bool ReadQueuedWrites(const PolicyKeys& keys, bool otherwise) {
    for (const UniqueRegistryKey* key : {&keys.executable, &keys.product}) {
        if (const std::optional<std::uint32_t> number = QueryNumber(*key, kQueuedWrites)) {
            return *number != 0;
        }
    }
    return otherwise;
}

int ReadOutputSelection(const PolicyKeys& keys) {
    std::optional<TextValue> value = QueryText<kLoggingTypeBytes>(keys.executable, kLoggingType);
    // An empty text of the executable hides the product's.
    if (!value) {
        value = QueryText<kLoggingTypeBytes>(keys.product, kLoggingType);
    }
    const std::wstring wanted = ToUpper(value ? value->text : std::wstring());
    int selection = 0;
    for (const SelectionWord& known : kSelectionWords) {
        // Anywhere in the text: how the words are divided does not matter.
        if (wanted.find(known.word) != std::wstring::npos) {
            selection |= known.bit;
        }
    }
    return selection != 0 ? selection : ListenerType::kQueuedFile;
}

}  // namespace Orva::Shared
