#include <windows.h>
#include <oleauto.h>

#include <optional>
#include <string>

#include "bios/bios_settings.h"
#include "bios/bios_vocabulary.h"
#include "bios/bios_wmi_client.h"
#include "tests/hostile/kind.h"
#include "tests/support/com_support.h"
#include "tests/support/simulated_notebook.h"
#include "tests/support/test_clock.h"

namespace HostileBytes {
namespace {

using Rig::Call;

constexpr const wchar_t* kStates[] = {L"Enable", L"*Enable", L"*", L"", L"Disable", L" *", L"%s%n%s"};
/// What holds a number in the value itself, and what holds none.
constexpr VARTYPE kNumbers[] = {VT_I1,   VT_UI1, VT_I2, VT_UI2, VT_I4,   VT_UI4,  VT_I8,    VT_UI8,    VT_INT,
                                VT_UINT, VT_R4,  VT_R8, VT_CY,  VT_DATE, VT_BOOL, VT_ERROR, VT_DECIMAL};
/// References to what outlives the reading.
LONG someNumber = 0;
BSTR someText = nullptr;

VARIANT DrawVariant(Random& random) {
    VARIANT value{};
    switch (random.Below(8)) {
        case 0:
            value.vt = static_cast<VARTYPE>(random.Number());
            break;
        case 1:
            value.vt = static_cast<VARTYPE>(random.Below(VT_VERSIONED_STREAM + 1));
            break;
        case 2: {
            const DWORD bounds[] = {random.Number() % 4, random.Number() % 4};
            value.vt = static_cast<VARTYPE>(VT_ARRAY |
                                            random.Of<VARTYPE>({VT_BSTR, VT_UI1, VT_VARIANT, VT_UNKNOWN}));
            value.parray = random.OneIn(4) ? nullptr
                                           : SafeArrayCreateVector(static_cast<VARTYPE>(value.vt & ~VT_ARRAY),
                                                                   static_cast<LONG>(bounds[0]), bounds[1]);
            break;
        }
        case 3:
            value.vt = VT_BYREF | VT_I4;
            value.plVal = &someNumber;
            if (random.OneIn(2)) {
                value.vt = VT_BYREF | VT_BSTR;
                value.pbstrVal = &someText;
            }
            break;
        case 4:
            value.ullVal = random.Next();
            value.vt = random.Of(kNumbers);
            break;
        default: {
            Bytes bytes = Damaged(random, BytesOfText(random.Of(kStates)));
            if (random.OneIn(2) && bytes.size() >= sizeof(wchar_t)) {
                bytes.resize(bytes.size() - sizeof(wchar_t));
            }
            value.vt = VT_BSTR;
            value.bstrVal = SysAllocStringByteLen(reinterpret_cast<const char*>(bytes.data()),
                                                  static_cast<UINT>(bytes.size()));
            break;
        }
    }
    return value;
}

/// The text of a value; nothing when it has none.
std::optional<std::wstring> TextOfValue(VARIANT& value) {
    if (value.vt == VT_NULL) {
        return L"";
    }
    VARIANT copy{};
    const HRESULT result = VariantChangeType(&copy, &value, 0, VT_BSTR);
    std::optional<std::wstring> text;
    if (SUCCEEDED(result)) {
        text = copy.bstrVal != nullptr ? std::wstring(copy.bstrVal, SysStringLen(copy.bstrVal)) : L"";
        VariantClear(&copy);
    }
    return text;
}

class WmiValues final : public Kind {
  public:
    WmiValues() { someText = SysAllocString(L"*by reference"); }
    ~WmiValues() override { SysFreeString(someText); }

    void Try(Random& random) override {
        m_failing =
            random.OneIn(6) ? random.Of({Call::WbemExecQuery, Call::WbemNext, Call::WbemGet}) : Call::Count;
        m_failure = random.OneIn(2) ? random.Number() : random.Of<DWORD>({0, 1, 0x40004, 0x40005});
        someNumber = static_cast<LONG>(random.Number());
        m_notebook.RemoveSettings();
        const std::optional<std::wstring> wlan = Put(random, BiosVocabulary::kLanWlanAutoSwitchingSetting);
        const std::optional<std::wstring> second = Put(random, BiosVocabulary::kLanWlanSwitchingSetting);
        const std::optional<std::wstring> wwan = Put(random, BiosVocabulary::kLanWwanAutoSwitchingSetting);
        random.OneIn(8) ? TryHalves(wlan && !wlan->empty() && m_failing == Call::Count ? wlan : second, wwan)
                        : TryOneReading(wwan);
        m_clock.ForgetRecords();
    }

  private:
    /// By the whole way, a connection for each name.
    void TryHalves(const std::optional<std::wstring>& wlan, const std::optional<std::wstring>& wwan) const {
        const LONG held = m_notebook.Held().comReferences;
        NLMUtils::lanWlanSwitchingEnabled = false;
        NLMUtils::lanWwanSwitchingEnabled = false;
        NLMUtils::IsLanWlanAutoSwitchingEnabled();
        NLMUtils::IsLanWwanAutoSwitchingEnabled();
        Require(NLMUtils::lanWlanSwitchingEnabled == MeansEnabled(wlan), "the WLAN half was misjudged");
        Require(NLMUtils::lanWwanSwitchingEnabled == MeansEnabled(wwan), "the WWAN half was misjudged");
        Require(m_notebook.Held().comReferences == held, "a reference is left");
    }

    /// By a connection that is kept, which is faster.
    void TryOneReading(const std::optional<std::wstring>& text) {
        std::wstring value = L"old";
        const HRESULT result = m_client.GetValue(BiosVocabulary::kLanWwanAutoSwitchingSetting, value);
        const bool isRead = result == S_OK && !value.empty();
        Require(isRead == (m_failing == Call::Count && text && !text->empty()),
                "a value was made up, or lost");
        Require(!isRead || value == text, "a value was misread");
        Require(m_notebook.Held().comReferences <= 3, "a reference is left");
    }

    [[nodiscard]] bool MeansEnabled(const std::optional<std::wstring>& text) const {
        return m_failing == Call::Count && text && !text->empty() && text->front() != L'*';
    }

    std::optional<std::wstring> Put(Random& random, const wchar_t* name) const {
        if (random.OneIn(8)) {
            return std::nullopt;
        }
        VARIANT value = DrawVariant(random);
        const std::optional<std::wstring> text = TextOfValue(value);
        m_notebook.SetSetting(name, value);
        return text;
    }

    std::optional<DWORD> FailOrNot(Call call) const {
        return call == m_failing ? std::optional(m_failure) : std::nullopt;
    }

    Rig::TestClock m_clock;
    Rig::SimulatedNotebook m_notebook{m_clock};
    const Rig::ComApartment m_apartment;
    BIOSWmiClient m_client;
    Call m_failing = Call::Count;
    DWORD m_failure = 0;
    bool m_hasFailures = [this] {
        for (const Call call : {Call::WbemExecQuery, Call::WbemNext, Call::WbemGet}) {
            m_notebook.AtEach(call, [this, call] { return FailOrNot(call); });
        }
        return true;
    }();
};

}  // namespace

std::unique_ptr<Kind> MakeWmiValues() {
    return std::make_unique<WmiValues>();
}

}  // namespace HostileBytes
