#pragma once

#include <windows.h>
#include <oleauto.h>

#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/mbn_api.h"
#include "radio/mbn_sinks.h"
#include "tests/support/fake_unknown.h"
#include "tests/support/scoped_import.h"

template <>
struct Rig::InterfaceId<IMbnInterfaceManager> {
    static REFIID Value() { return IID_IMbnInterfaceManager; }
};
template <>
struct Rig::InterfaceId<IMbnInterface> {
    static REFIID Value() { return IID_IMbnInterface; }
};
template <>
struct Rig::InterfaceId<IMbnRadio> {
    static REFIID Value() { return IID_IMbnRadio; }
};

namespace RadioTests {

/// The radio of a modem. Asked for a state it says yes and does nothing more, unless `onSet` is
/// there.
class FakeRadio : public Rig::FakeUnknown<IMbnRadio> {
  public:
    explicit FakeRadio(MBN_RADIO initialState, std::string name = "radio")
        : FakeUnknown(std::move(name)), state(initialState) {}

    MBN_RADIO state;
    std::function<HRESULT(MBN_RADIO wanted, ULONG* requestId)> onSet;
    std::function<HRESULT(MBN_RADIO*)> onGet;

    /// The states asked for so far.
    std::vector<MBN_RADIO> sets;

    HRESULT WINAPI get_SoftwareRadioState(MBN_RADIO* softwareState) override;
    HRESULT WINAPI get_HardwareRadioState(MBN_RADIO* hardwareState) override;
    HRESULT WINAPI SetSoftwareRadioState(MBN_RADIO wanted, ULONG* requestId) override;
};

/// One adapter. Its radio comes by `QueryInterface`.
class FakeInterface : public Rig::FakeUnknown<IMbnInterface> {
  public:
    FakeInterface(FakeRadio& radio, std::wstring id)
        : FakeUnknown("interface"), identifier(std::move(id)), m_radio(radio) {}

    /// None: a null text.
    std::optional<std::wstring> identifier;
    HRESULT identifierResult = S_OK;
    /// What asking for the radio gives instead.
    std::function<HRESULT(void**)> onRadio;

    HRESULT WINAPI QueryInterface(REFIID interfaceId, void** object) override;
    HRESULT WINAPI get_InterfaceID(BSTR* interfaceId) override;
    HRESULT WINAPI GetInterfaceCapability(MBN_INTERFACE_CAPS*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetSubscriberInformation(IMbnSubscriberInformation**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetReadyState(int*) override { return E_NOTIMPL; }
    HRESULT WINAPI InEmergencyMode(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetHomeProvider(MBN_PROVIDER*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetPreferredProviders(SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT WINAPI SetPreferredProviders(SAFEARRAY*, ULONG*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetVisibleProviders(ULONG*, SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT WINAPI ScanNetwork(ULONG*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetConnection(IMbnConnection**) override { return E_NOTIMPL; }

  private:
    FakeRadio& m_radio;
};

/// The interface manager over some adapters.
class FakeManager : public Rig::FakeUnknown<IMbnInterfaceManager> {
  public:
    explicit FakeManager(std::deque<FakeInterface>& interfaces)
        : FakeUnknown("manager"), m_interfaces(interfaces) {}

    /// What a call answers instead, counted from 1; it may throw. S_OK: it goes on as usual.
    std::function<HRESULT(int call)> onGetInterface;
    std::function<HRESULT(int call)> onGetInterfaces;
    /// The array that is given instead of the adapters' own.
    std::function<SAFEARRAY*()> makeArray;
    bool givesNoInterface = false;
    LONG lowerBound = 0;

    /// The identifiers asked for so far.
    std::vector<std::wstring> asked;
    int enumerations = 0;

    /// An array of these references.
    [[nodiscard]] static SAFEARRAY* ArrayOf(const std::vector<IUnknown*>& elements, LONG lowerBound = 0,
                                            VARTYPE type = VT_UNKNOWN);
    HRESULT WINAPI GetInterface(LPCWSTR interfaceId, IMbnInterface** mbnInterface) override;
    HRESULT WINAPI GetInterfaces(SAFEARRAY** mbnInterfaces) override;

  private:
    std::deque<FakeInterface>& m_interfaces;
};

/// Publishes the manager as the start-up worker does.
void Publish(FakeManager& manager);

/// Identifiers of the modems.
constexpr wchar_t kFirstModem[] = L"{11111111-1111-1111-1111-111111111111}";
constexpr wchar_t kSecondModem[] = L"{22222222-2222-2222-2222-222222222222}";

/// The machine's modems, for a scope, published as the start-up worker does: the last one is the
/// one to switch. The process-wide state is empty again at the end.
class FakeModems {
  public:
    explicit FakeModems(std::vector<MBN_RADIO> states = {MBN_RADIO_ON});
    FakeModems(const FakeModems&) = delete;
    FakeModems& operator=(const FakeModems&) = delete;
    ~FakeModems();

    std::deque<FakeRadio> radios;
    std::deque<FakeInterface> interfaces;
    FakeManager manager;

    [[nodiscard]] FakeRadio& Radio() { return radios.back(); }
};

/// An event sink that the Mobile Broadband API holds, for a scope.
class HeldSink {
  public:
    HeldSink() : m_sink(new CMbnSinks) { m_sink->AddRef(); }
    HeldSink(const HeldSink&) = delete;
    HeldSink& operator=(const HeldSink&) = delete;
    ~HeldSink() { m_sink->Release(); }

    CMbnSinks* operator->() const { return m_sink; }

    /// Reports a completion; the caller holds the radio meanwhile, as COM's rules want it.
    HRESULT Complete(FakeRadio* radio, ULONG requestId = 1, HRESULT status = S_OK) const;

  private:
    CMbnSinks* m_sink;
};

/// Events that the code under test makes and closes, for a scope.
class EventWatch {
  public:
    EventWatch();
    EventWatch(const EventWatch&) = delete;
    EventWatch& operator=(const EventWatch&) = delete;

    /// How each event was made: "auto-reset, not signalled".
    [[nodiscard]] const std::vector<std::string>& Made() const { return m_made; }
    [[nodiscard]] std::size_t Open() const { return m_open.size(); }

  private:
    std::vector<std::string> m_made;
    std::set<HANDLE> m_open;
    Rig::ScopedImport<&::CreateEventW> m_create;
    Rig::ScopedImport<&::CloseHandle> m_close;
};

}  // namespace RadioTests
