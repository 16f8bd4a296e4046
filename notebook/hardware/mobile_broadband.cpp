// The Mobile Broadband API: the notebook's modems and the events of their radios.

#include <windows.h>
#include <oleauto.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/com_object.h"
#include "notebook/state/machine.h"
#include "notebook/state/text.h"
#include "platform/mbn_api.h"

namespace Notebook {

namespace {

constexpr HRESULT kNoDevice = static_cast<HRESULT>(0x80070490);   // HRESULT_FROM_WIN32(ERROR_NOT_FOUND)
constexpr HRESULT kNoService = static_cast<HRESULT>(0x80070426);  // ... (ERROR_SERVICE_NOT_ACTIVE)
constexpr HRESULT kNotReady = static_cast<HRESULT>(0x80070015);   // ... (ERROR_NOT_READY)

HRESULT Admit(const CallScope& call) {
    if (call.Refused()) {
        return call.Hresult();
    }
    return SharedState::Get().Raw().devices.wwanServiceRuns != 0 ? S_OK : kNoService;
}

/// A modem: the interface and its radio are one object.
class ModemObject final : public ComObject<IMbnInterface, IMbnRadio> {
  public:
    ModemObject(std::uint32_t index, ConfirmRadio kind) : m_index(index), m_kind(kind) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        CallScope call(Call::MbnInterfaceQueryInterface);
        if (call.Refused() && object != nullptr) {
            *object = nullptr;
            return call.Result(call.Hresult());
        }
        return call.Result(ComObject::QueryInterface(iid, object));
    }

    HRESULT STDMETHODCALLTYPE get_InterfaceID(BSTR* interfaceId) override {
        CallScope call(Call::MbnInterfaceGetInterfaceId);
        *interfaceId = nullptr;
        const HRESULT refusal = Admit(call);
        if (refusal != S_OK || call.Refused()) {
            return call.Result(refusal);
        }
        LockedMachine machine;
        const Modem& modem = machine->devices.modems[m_index];
        *interfaceId = SysAllocString(modem.idText[0] != L'\0' ? modem.idText : GuidText(modem.id).c_str());
        return call.Result(*interfaceId == nullptr ? E_OUTOFMEMORY : S_OK);
    }
    HRESULT STDMETHODCALLTYPE get_SoftwareRadioState(MBN_RADIO* state) override {
        CallScope call(Call::MbnRadioGetSoftwareRadioState);
        const HRESULT refusal = m_kind == ConfirmRadio::Failing ? kNotReady : Admit(call);
        if (refusal != S_OK || call.Refused()) {
            return call.Result(refusal);
        }
        LockedMachine machine;
        const std::uint32_t software = machine->devices.modems[m_index].software;
        const bool on = software != 0;
        *state = on != (m_kind == ConfirmRadio::Opposite) ? MBN_RADIO_ON : MBN_RADIO_OFF;
        if (software > 1) {
            // No state that there is: shown as it stands.
            std::memcpy(state, &software, sizeof(software));
        }
        call.Detail("modem %u: %d", m_index + 1, *state);
        return call.Result(S_OK);
    }
    HRESULT STDMETHODCALLTYPE get_HardwareRadioState(MBN_RADIO* state) override {
        LockedMachine machine;
        *state = machine->devices.modems[m_index].hardware != 0 ? MBN_RADIO_ON : MBN_RADIO_OFF;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSoftwareRadioState(MBN_RADIO state, ULONG* requestId) override {
        CallScope call(Call::MbnRadioSetSoftwareRadioState);
        call.Detail("modem %u to %d", m_index + 1, state);
        const HRESULT refusal = Admit(call);
        if (refusal != S_OK || call.Refused()) {
            return call.Result(refusal);
        }
        LockedMachine machine;
        std::uint32_t request = 0;
        const HRESULT result =
            SetModemSoftware(*machine, m_index, state == MBN_RADIO_ON ? 1 : 0, request, machine.Time());
        if (result == S_OK) {
            *requestId = request;
        }
        return call.Result(result);
    }

    HRESULT STDMETHODCALLTYPE GetInterfaceCapability(MBN_INTERFACE_CAPS*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSubscriberInformation(IMbnSubscriberInformation**) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE GetReadyState(int*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE InEmergencyMode(VARIANT_BOOL*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetHomeProvider(MBN_PROVIDER*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPreferredProviders(SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetPreferredProviders(SAFEARRAY*, ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetVisibleProviders(ULONG*, SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ScanNetwork(ULONG*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetConnection(IMbnConnection**) override { return E_NOTIMPL; }

  protected:
    void* Find(REFIID iid) override {
        if (IsEqualIID(iid, IID_IMbnRadio)) {
            return static_cast<IMbnRadio*>(this);
        }
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMbnInterface)
                   ? static_cast<IMbnInterface*>(this)
                   : nullptr;
    }

  private:
    ~ModemObject() override = default;

    std::uint32_t m_index;
    ConfirmRadio m_kind;
};

/// The one object of each modem, which the API gives out again and again; made once for a run of the
/// service.
ModemObject* TheModem(std::uint32_t index) {
    static SRWLOCK lock = SRWLOCK_INIT;
    static ModemObject* modems[kMaxModems] = {};
    static std::uint32_t runs[kMaxModems] = {};
    const ExclusiveLock hold(lock);
    if (modems[index] == nullptr || runs[index] != CurrentRun()) {
        if (modems[index] != nullptr) {
            modems[index]->Release();
        }
        runs[index] = CurrentRun();
        modems[index] = new ModemObject(index, ConfirmRadio::Same);
        // Our own reference is not one that the service holds.
        InterlockedDecrement(&SharedState::Get().Raw().ledger.comReferences);
    }
    modems[index]->AddRef();
    return modems[index];
}

void PutElement(SAFEARRAY* array, LONG index, IUnknown* object) {
    SafeArrayPutElement(array, &index, object);
    if (object != nullptr) {
        object->Release();
    }
}

/// An array of all modems, its first index where the state wants it.
SAFEARRAY* ModemArray(const Machine& machine) {
    ULONG count = 0;
    for (const Modem& modem : machine.devices.modems) {
        count += modem.present;
    }
    const ModemList kind = machine.devices.modemList;
    const ULONG nulls = kind == ModemList::NullElement ? 1 : 0;
    const LONG first = kind == ModemList::OddBounds ? -3 : 0;
    SAFEARRAYBOUND bound{kind == ModemList::Empty ? 0 : count + nulls, first};
    if (kind == ModemList::WrongType) {
        return SafeArrayCreate(VT_I4, 1, &bound);
    }
    SAFEARRAY* const array = SafeArrayCreate(VT_UNKNOWN, 1, &bound);
    if (array == nullptr || kind == ModemList::Empty) {
        return array;
    }
    LONG place = first + static_cast<LONG>(nulls);
    for (std::uint32_t i = 0; i < kMaxModems; ++i) {
        if (machine.devices.modems[i].present != 0) {
            PutElement(array, place++, static_cast<IMbnInterface*>(TheModem(i)));
        }
    }
    return array;
}

class Manager final : public ComObject<IMbnInterfaceManager, IConnectionPointContainer> {
  public:
    HRESULT STDMETHODCALLTYPE GetInterface(LPCWSTR interfaceId, IMbnInterface** mbnInterface) override {
        CallScope call(Call::MbnInterfaceManagerGetInterface);
        *mbnInterface = nullptr;
        const HRESULT refusal = Admit(call);
        if (refusal != S_OK || call.Refused()) {
            return call.Result(refusal);
        }
        LockedMachine machine;
        for (std::uint32_t i = 0; i < kMaxModems; ++i) {
            const Modem& modem = machine->devices.modems[i];
            if (modem.present != 0 && interfaceId != nullptr &&
                _wcsicmp(interfaceId, GuidText(modem.id).c_str()) == 0) {
                *mbnInterface = TheModem(i);
                return call.Result(S_OK);
            }
        }
        return call.Result(kNoDevice);
    }
    HRESULT STDMETHODCALLTYPE GetInterfaces(SAFEARRAY** mbnInterfaces) override {
        CallScope call(Call::MbnInterfaceManagerGetInterfaces);
        *mbnInterfaces = nullptr;
        const HRESULT refusal = Admit(call);
        if (refusal != S_OK || call.Refused()) {
            return call.Result(refusal);
        }
        LockedMachine machine;
        const ModemList kind = machine->devices.modemList;
        bool any = false;
        for (const Modem& modem : machine->devices.modems) {
            any = any || modem.present != 0;
        }
        if (kind == ModemList::Null) {
            return call.Result(S_OK);
        }
        if (!any && kind == ModemList::Normal) {
            return call.Result(kNoDevice);
        }
        *mbnInterfaces = ModemArray(*machine);
        return call.Result(*mbnInterfaces == nullptr ? E_OUTOFMEMORY : S_OK);
    }

    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID iid, IConnectionPoint** point) override {
        CallScope call(Call::FindConnectionPoint);
        call.Detail("%s", EventsName(iid));
        *point = nullptr;
        if (call.Refused()) {
            return call.Result(call.Hresult());
        }
        if (IsEqualIID(iid, IID_IMbnRadioEvents)) {
            *point = new ConnectionPoint<IMbnRadioEvents>(this, iid);
        }
        return call.Result(*point == nullptr ? CONNECT_E_NOCONNECTION : S_OK);
    }

  protected:
    void* Find(REFIID iid) override {
        if (IsEqualIID(iid, IID_IConnectionPointContainer)) {
            return static_cast<IConnectionPointContainer*>(this);
        }
        return IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMbnInterfaceManager)
                   ? static_cast<IMbnInterfaceManager*>(this)
                   : nullptr;
    }

  private:
    ~Manager() override = default;
};

}  // namespace

IMbnRadio* EventRadio(std::uint32_t index, ConfirmRadio kind) {
    switch (kind) {
        case ConfirmRadio::Same:
            return TheModem(index);
        case ConfirmRadio::Null:
            return nullptr;
        default:
            return new ModemObject(index, kind);
    }
}

namespace {

void DeliverModem(const Event& event, std::uint64_t number) {
    CallScope scope(Call::Notification);
    const bool complete = event.kind == EventKind::ModemSetComplete;
    scope.Detail("modem %u %s %u", event.value + 1, complete ? "completes" : "changes", event.request);
    IMbnRadio* const radio = EventRadio(event.value, complete ? event.radio : ConfirmRadio::Same);
    SinkTable<IMbnRadioEvents>::Get().Tell(number, [&](IMbnRadioEvents& sink) {
        return complete ? sink.OnSetSoftwareRadioStateComplete(radio, event.request, event.status)
                        : sink.OnRadioStateChange(radio);
    });
    if (radio != nullptr) {
        radio->Release();
    }
}

}  // namespace

IUnknown* MakeMbnInterfaceManager() {
    EventPump::Get().OnModem(&DeliverModem);
    return static_cast<IMbnInterfaceManager*>(new Manager());
}

}  // namespace Notebook
