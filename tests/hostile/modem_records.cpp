#include "tests/hostile/radio_world.h"

#include <oleauto.h>

#include <algorithm>
#include <memory>
#include <string>

#include "bios/bios_settings.h"
#include "notebook/hardware/com_object.h"
#include "platform/mbn_api.h"
#include "radio/mbn_sinks.h"
#include "radio/wwan_interfaces.h"
#include "radio/wwan_state.h"
#include "tests/hostile/kind.h"

namespace HostileBytes {
namespace {

constexpr wchar_t kInterfaceId[] = L"{6B29FC40-CA47-1067-B31D-00DD010662DA}";

/// The answers of the Mobile Broadband API.
struct ModemAnswers {
    HRESULT result = S_OK;
    std::uint32_t state = 0;
    bool isRadioThere = true;
    BSTR text = nullptr;  ///< the adapter's identifier
    SAFEARRAY* adapters = nullptr;
    int textsOut = 0;  ///< copies of `text` that were not given back
    int switches = 0;
};

/// An object of the test's own, whose references are counted.
template <class... Interfaces>
class Lent : public Interfaces... {
  public:
    ULONG STDMETHODCALLTYPE AddRef() override { return static_cast<ULONG>(++references); }
    ULONG STDMETHODCALLTYPE Release() override { return static_cast<ULONG>(--references); }

    int references = 0;

  protected:
    ~Lent() = default;
};

/// A modem: the interface and its radio are one object.
class Modem final : public Notebook::ModemOperations<Lent<IMbnInterface, IMbnRadio>> {
  public:
    explicit Modem(ModemAnswers& answers) : m_answers(answers) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
        *object = nullptr;
        if (id == IID_IMbnRadio) {
            *object = m_answers.isRadioThere ? static_cast<IMbnRadio*>(this) : nullptr;
        } else if (id == IID_IMbnInterface || id == IID_IUnknown) {
            *object = static_cast<IMbnInterface*>(this);
        } else {
            return E_NOINTERFACE;
        }
        references += *object != nullptr ? 1 : 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_InterfaceID(BSTR* text) override {
        *text = m_answers.text == nullptr
                    ? nullptr
                    : SysAllocStringByteLen(reinterpret_cast<const char*>(m_answers.text),
                                            SysStringByteLen(m_answers.text));
        m_answers.textsOut += *text != nullptr ? 1 : 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE get_SoftwareRadioState(MBN_RADIO* state) override {
        Copy(state, &m_answers.state, sizeof(*state));
        return m_answers.result;
    }
    HRESULT STDMETHODCALLTYPE SetSoftwareRadioState(MBN_RADIO state, ULONG*) override {
        m_answers.state = static_cast<std::uint32_t>(state);
        ++m_answers.switches;
        return S_OK;
    }

  private:
    ModemAnswers& m_answers;
};

class Manager final : public Lent<IMbnInterfaceManager> {
  public:
    Manager(ModemAnswers& answers, Modem& modem) : m_answers(answers), m_modem(modem) {}

    NOTEBOOK_NOT_NEEDED(QueryInterface(REFIID, void**));
    HRESULT STDMETHODCALLTYPE GetInterface(LPCWSTR, IMbnInterface** adapter) override {
        m_modem.AddRef();
        *adapter = &m_modem;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetInterfaces(SAFEARRAY** adapters) override {
        *adapters = std::exchange(m_answers.adapters, nullptr);
        return S_OK;
    }

  private:
    ModemAnswers& m_answers;
    Modem& m_modem;
};

/// Completions of a modem's switch, and the lists and states that are asked for meanwhile.
class ModemRecords final : public Kind {
  public:
    ~ModemRecords() override { Forget(); }

    void Try(Random& random) override {
        m_world.Draw(random);
        m_answers = {};
        m_answers.result = random.OneIn(16) ? static_cast<HRESULT>(random.Number() | 0x80000000U) : S_OK;
        m_answers.state = random.OneIn(3) ? random.Number() : random.Below(2);
        m_answers.isRadioThere = !random.OneIn(16);
        WwanState::interfaceManager = WwanState::Share<IMbnInterfaceManager>(&m_manager);
        WwanState::devicePresent = !random.OneIn(16);
        TryList(random);
        TryCompletion(random);
        Forget();
        Require(m_modem.references == 0 && m_manager.references == 0, "a reference is left");
    }

  private:
    static void Forget() {
        WwanState::interfaceManager.store(nullptr);
        WwanState::lastRadio.store(nullptr);
        WwanState::interfaceId.clear();
    }

    void TryCompletion(Random& random) {
        const bool isEnabled = random.OneIn(2);
        const bool isOwn = random.OneIn(4);
        NLMUtils::lanWwanSwitchingEnabled = isEnabled;
        WwanState::NetworkChangedForSetRadio = isOwn;
        const bool isOn = WwanState::devicePresent && m_answers.isRadioThere && SUCCEEDED(m_answers.result) &&
                          m_answers.state == 1;
        IMbnRadio* const radio = random.OneIn(2) ? &m_modem : nullptr;
        auto* const sink = new CMbnSinks;
        sink->AddRef();
        const HRESULT result = sink->OnSetSoftwareRadioStateComplete(radio, random.Number(),
                                                                     static_cast<HRESULT>(random.Number()));
        WwanState::NetworkChangedForSetRadio = false;
        sink->Release();

        const bool acts = m_world.isReadable && !isOwn && !m_world.inAirplaneMode;
        const bool keepsOff = isEnabled && m_world.isCableIn;
        std::vector<std::wstring> stored;
        if (acts && !keepsOff) {
            stored.emplace_back(isOn ? L"True" : L"False");
        }
        Require(result == S_OK, "a completion was refused");
        Require(m_world.stored == stored, "a choice was invented or lost");
        Require((m_answers.switches != 0) == (acts && keepsOff && isOn),
                "the modem was switched against the rules");
    }

    void TryList(Random& random) {
        const Bytes text = Damaged(random, BytesOfText(kInterfaceId));
        if (!random.OneIn(8)) {
            const std::size_t end = random.OneIn(2) ? sizeof(wchar_t) : 0;
            m_answers.text =
                SysAllocStringByteLen(reinterpret_cast<const char*>(text.data()),
                                      static_cast<UINT>(text.size() - std::min(end, text.size())));
        }
        m_answers.adapters = DrawArray(random);
        const bool isFound = ServiceUtils::EnumerateWwanInterfaces();
        Rig::Real<&::SysFreeString>(m_answers.text);
        m_answers.text = nullptr;
        Require(m_answers.textsOut == 0, "an identifier's text is left");
        Require(isFound == !WwanState::interfaceId.empty(), "an adapter was made up, or lost");
        Require(!isFound || IsIdentifier(WwanState::interfaceId), "what was found is no identifier");
    }

    SAFEARRAY* DrawArray(Random& random) {
        if (random.OneIn(16)) {
            return nullptr;
        }
        const auto type = random.OneIn(4) ? random.Of<VARTYPE>({VT_DISPATCH, VT_BSTR, VT_I4, VT_VARIANT})
                                          : static_cast<VARTYPE>(VT_UNKNOWN);
        SAFEARRAYBOUND bounds[3] = {};
        for (SAFEARRAYBOUND& bound : bounds) {
            bound.cElements = random.Below(4);
            bound.lLbound = random.OneIn(4) ? static_cast<LONG>(random.Number()) : 0;
        }
        const UINT dimensions = random.OneIn(8) ? 2 + random.Below(2) : 1;
        SAFEARRAY* array = nullptr;
        if (random.OneIn(16)) {
            // A descriptor that claims elements for which nobody made room.
            SafeArrayAllocDescriptorEx(type, dimensions, &array);
            for (UINT i = 0; array != nullptr && i < dimensions; ++i) {
                array->rgsabound[i] = {random.Number(), static_cast<LONG>(random.Number())};
            }
            return array;
        }
        array = SafeArrayCreate(type, dimensions, bounds);
        const std::uint64_t end = std::uint64_t{bounds[0].cElements};
        for (std::uint64_t i = 0; array != nullptr && dimensions == 1 && type == VT_UNKNOWN && i < end; ++i) {
            LONG index = static_cast<LONG>(static_cast<ULONG>(bounds[0].lLbound) + static_cast<ULONG>(i));
            if (!random.OneIn(16)) {
                SafeArrayPutElement(array, &index, static_cast<IMbnInterface*>(&m_modem));
            }
        }
        return array;
    }

    static bool IsIdentifier(const std::wstring& text) {
        const auto isHex = [](wchar_t letter) {
            return (letter >= L'0' && letter <= L'9') || (letter >= L'A' && letter <= L'F') || letter == L'-';
        };
        return text.size() == 38 && text.front() == L'{' && text.back() == L'}' &&
               std::all_of(text.begin() + 1, text.end() - 1, isHex);
    }

    RadioWorld m_world;
    ModemAnswers m_answers;
    Modem m_modem{m_answers};
    Manager m_manager{m_answers, m_modem};
    Rig::ScopedImport<&::SysFreeString> m_free{[this](BSTR text) {
        m_answers.textsOut -= text != nullptr ? 1 : 0;
        Rig::Real<&::SysFreeString>(text);
    }};
};

}  // namespace

std::unique_ptr<Kind> MakeModemRecords() {
    return std::make_unique<ModemRecords>();
}

}  // namespace HostileBytes
