#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <iterator>
#include <optional>
#include <string>

#include "logging/level.h"
#include "logging/policy.h"
#include "radio/airplane_mode.h"
#include "radio/power_status.h"
#include "registry/registry.h"
#include "tests/hostile/guarded_room.h"
#include "tests/hostile/kind.h"
#include "tests/support/scoped_import.h"

namespace HostileBytes {
namespace {

using namespace Orva::Shared;
using Rig::ScopedImport;

struct Value {
    LSTATUS error = ERROR_SUCCESS;
    DWORD type = REG_NONE;
    Bytes bytes;

    [[nodiscard]] bool FitsInto(std::size_t room) const {
        return error == ERROR_SUCCESS && bytes.size() <= room;
    }
    /// What stands before the first null, or the end.
    [[nodiscard]] std::wstring Text() const {
        Bytes padded = bytes;
        padded.resize(bytes.size() / sizeof(wchar_t) * sizeof(wchar_t) + 2 * sizeof(wchar_t));
        return TextOf(padded).c_str();
    }
    [[nodiscard]] DWORD Number() const {
        DWORD number = 0;
        Copy(&number, bytes.data(), bytes.size());
        return number;
    }
};

constexpr const wchar_t* kChoices[] = {L"True",    L"False",       L"true",        L"",        L"Error",
                                       L"TraceIn", L"diag",        L"Never",       L"warning", L"FILE",
                                       L"none",    L"Event,Debug", L"xconsolefile"};
constexpr const wchar_t* kLevels[] = {L"tracein", L"traceout", L"verbose", L"information",
                                      L"warning", L"error",    L"diag"};

std::wstring InLowerCase(std::wstring text) {
    std::ranges::transform(text, text.begin(), [](wchar_t letter) {
        return letter >= L'A' && letter <= L'Z' ? static_cast<wchar_t>(letter - L'A' + L'a') : letter;
    });
    return text;
}

Value Draw(Random& random) {
    Value value;
    if (random.OneIn(8)) {
        value.error = static_cast<LSTATUS>(random.Of<DWORD>({ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED, 1}));
        return value;
    }
    if (random.OneIn(3)) {
        const DWORD number = random.Number();
        value = {ERROR_SUCCESS, REG_DWORD, BytesOf(number)};
    } else {
        value = {ERROR_SUCCESS, REG_SZ, BytesOfText(random.Of(kChoices))};
        if (random.OneIn(6)) {
            // Around the lengths that the readers have room for.
            std::wstring text(random.Of<std::size_t>({63, 64, 127, 128, 1023, 1024}), L' ');
            text.replace(0, 4, L"file");
            value.bytes = BytesOfText(text);
            value.bytes.resize(value.bytes.size() - random.Below(4));
        }
    }
    value.bytes = Damaged(random, std::move(value.bytes));
    if (random.OneIn(2)) {
        value.type = random.OneIn(8) ? random.Number() : random.Below(REG_QWORD + 1);
    }
    return value;
}

class RegistryValues final : public Kind {
  public:
    ~RegistryValues() override {
        m_keys.product.Reset();
        m_keys.executable.Reset();
    }

    void Try(Random& random) override {
        m_values[0] = Draw(random);
        m_values[1] = Draw(random);
        m_opens = random.OneIn(16) ? ERROR_FILE_NOT_FOUND : ERROR_SUCCESS;
        m_keys.product.Reset(KeyOf(0));
        m_keys.executable.Reset(random.OneIn(4) ? nullptr : KeyOf(1));
        const GuardedNew guarded;
        TryChoice();
        TryAirplaneMode();
        TryPolicy();
    }

  private:
    static HKEY KeyOf(std::uintptr_t number) { return reinterpret_cast<HKEY>(number + 0x1000); }

    LSTATUS Query(HKEY key, DWORD* type, BYTE* buffer, DWORD* bytes) {
        const Value& value = m_values[key == KeyOf(0) ? 0 : 1];
        if (value.error != ERROR_SUCCESS) {
            return value.error;
        }
        if (type != nullptr) {
            *type = value.type;
        }
        const DWORD room = std::exchange(*bytes, static_cast<DWORD>(value.bytes.size()));
        if (room < value.bytes.size()) {
            // What the buffer then holds is not said: something that would be taken for a choice.
            for (DWORD i = 0; i < room; ++i) {
                buffer[i] = reinterpret_cast<const BYTE*>(L"True")[i % 10];
            }
            return ERROR_MORE_DATA;
        }
        Copy(buffer, value.bytes.data(), value.bytes.size());
        return ERROR_SUCCESS;
    }

    /// A value of another type or length, or without its end, is no choice.
    void TryChoice() const {
        const Value& value = m_values[0];
        const std::size_t bytes = value.bytes.size();
        const bool isText = value.type == REG_SZ || value.type == REG_EXPAND_SZ;
        const bool isWhole = bytes % 2 == 0 && (bytes == 0 || TextOf(value.bytes).back() == L'\0');
        const bool counts = m_opens == ERROR_SUCCESS && value.FitsInto(2048) && isText && isWhole;
        const std::wstring text = counts ? value.Text() : L"";
        const std::wstring read = Registry(HKEY_LOCAL_MACHINE).GetValue(PowerStatus::kWlanKey, L"PowerOnOff");
        Require(read == text, "a text was misread");
        Require(ServiceUtils::RememberedPowerStatus(PowerStatus::kWwanKey) == (text.empty() ? L"True" : text),
                "a choice was made up");
    }

    void TryAirplaneMode() const {
        const Value& value = m_values[0];
        const bool isOn = m_opens == ERROR_SUCCESS && value.FitsInto(sizeof(DWORD)) && value.Number() == 1;
        Require(ServiceUtils::CheckAirplaneMode() == isOn, "airplane mode was misread");
        Require(ServiceUtils::IsAirplaneModeOn() == isOn, "airplane mode was misread quietly");
    }

    /// The executable's value where `counts` takes it, else the product's.
    template <class Counts>
    const Value* First(Counts counts) const {
        if (m_keys.executable && counts(m_values[1])) {
            return &m_values[1];
        }
        return counts(m_values[0]) ? &m_values[0] : nullptr;
    }

    void TryPolicy() const {
        const auto isNumber = [](const Value& value) { return value.FitsInto(sizeof(DWORD)); };
        const Value* found =
            First([&](const Value& value) { return isNumber(value) && value.Number() != 0; });
        Require(ReadMaxLogSize(m_keys) == (found != nullptr ? found->Number() : 2048), "a size was misread");
        found = First(isNumber);
        for (const bool otherwise : {false, true}) {
            Require(
                ReadQueuedWrites(m_keys, otherwise) == (found != nullptr ? found->Number() != 0 : otherwise),
                "the queue was misread");
        }
        found = First([](const Value& value) {
            return value.FitsInto(256) && value.type == REG_SZ && !value.Text().empty();
        });
        const auto* const level =
            std::ranges::find(kLevels, InLowerCase(found != nullptr ? found->Text() : L""));
        const int number =
            level != std::end(kLevels) ? static_cast<int>(level - kLevels) : Orva::Shared::Level::kNever;
        const auto [least, most] = ReadLogLevels(m_keys);
        Require(least == (found != nullptr ? number : 0) && most == (found != nullptr ? number : 5),
                "a level was misread");
        found = First([](const Value& value) { return value.FitsInto(128); });
        Require(ReadOutputSelection(m_keys) == Selected(found != nullptr ? found->Text() : L""),
                "an output was misread");
    }

    static int Selected(const std::wstring& text) {
        const std::wstring words = InLowerCase(text);
        const auto has = [&words](const wchar_t* word) { return words.find(word) != std::wstring::npos; };
        const int bits = (has(L"event") ? 1 : 0) + (has(L"debug") ? 2 : 0) + (has(L"file") ? 8 : 0) +
                         (has(L"console") ? 16 : 0);
        return bits != 0 ? bits : 4;
    }

    Value m_values[2];
    LSTATUS m_opens = ERROR_SUCCESS;
    ScopedImport<&::RegOpenKeyExW> m_open{[this](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) {
        *key = m_opens == ERROR_SUCCESS ? KeyOf(0) : nullptr;
        return m_opens;
    }};
    ScopedImport<&::RegQueryValueExW> m_query{
        [this](HKEY key, LPCWSTR, LPDWORD, LPDWORD type, LPBYTE buffer, LPDWORD bytes) {
            return Query(key, type, buffer, bytes);
        }};
    ScopedImport<&::RegCloseKey> m_close{[](HKEY) -> LSTATUS { return ERROR_SUCCESS; }};
    Orva::Shared::PolicyKeys m_keys;
};

}  // namespace

std::unique_ptr<Kind> MakeRegistryValues() {
    return std::make_unique<RegistryValues>();
}

}  // namespace HostileBytes
