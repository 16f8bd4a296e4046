// The Mobile Broadband API: the notebook's modems and the events of their radios.

#include <windows.h>
#include <oleauto.h>

#include <cstdint>
#include <cstring>
#include <ranges>
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

/// The result of a call that WWAN AutoConfig answers: the device is asked only while it runs.
template <class Device>
HRESULT Answer(CallScope& call, Device device) {
    return call.Answer(
        [&] { return SharedState::Get().Raw().devices.wwanServiceRuns != 0 ? device() : kNoService; });
}

/// A modem: the interface and its radio are one object.
class ModemObject final
    : public ModemOperations<ComObject<As<IMbnInterface, IID_IMbnInterface>, As<IMbnRadio, IID_IMbnRadio>>> {
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
        return Answer(call, [&] {
            LockedMachine machine;
            const Modem& modem = machine->devices.modems[m_index];
            *interfaceId =
                SysAllocString(modem.idText[0] != L'\0' ? modem.idText : GuidText(modem.id).c_str());
            return *interfaceId == nullptr ? E_OUTOFMEMORY : S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE get_SoftwareRadioState(MBN_RADIO* state) override {
        CallScope call(Call::MbnRadioGetSoftwareRadioState);
        if (m_kind == ConfirmRadio::Failing) {
            return call.Result(kNotReady);
        }
        return Answer(call, [&] {
            LockedMachine machine;
            const std::uint32_t software = machine->devices.modems[m_index].software;
            const bool on = software != 0;
            *state = on != (m_kind == ConfirmRadio::Opposite) ? MBN_RADIO_ON : MBN_RADIO_OFF;
            if (software > 1) {
                // No state that there is: shown as it stands.
                std::memcpy(state, &software, sizeof(software));
            }
            call.Detail("modem %u: %d", m_index + 1, *state);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE SetSoftwareRadioState(MBN_RADIO state, ULONG* requestId) override {
        CallScope call(Call::MbnRadioSetSoftwareRadioState);
        call.Detail("modem %u to %d", m_index + 1, state);
        return Answer(call, [&] {
            LockedMachine machine;
            std::uint32_t request = 0;
            const HRESULT result =
                SetModemSoftware(*machine, m_index, state == MBN_RADIO_ON ? 1 : 0, request, machine.Time());
            if (result == S_OK) {
                *requestId = request;
            }
            return result;
        });
    }

  private:
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

/// An array of all modems, its first index where the state wants it.
SAFEARRAY* ModemArray(const Machine& machine) {
    auto modems = Present(machine.devices.modems);
    const ModemList kind = machine.devices.modemList;
    const ULONG nulls = kind == ModemList::NullElement ? 1 : 0;
    const LONG first = kind == ModemList::OddBounds ? -3 : 0;
    const auto count = static_cast<ULONG>(std::ranges::distance(modems)) + nulls;
    SAFEARRAYBOUND bound{kind == ModemList::Empty ? 0 : count, first};
    if (kind == ModemList::WrongType) {
        return SafeArrayCreate(VT_I4, 1, &bound);
    }
    SAFEARRAY* const array = SafeArrayCreate(VT_UNKNOWN, 1, &bound);
    if (array == nullptr || kind == ModemList::Empty) {
        return array;
    }
    LONG place = first + static_cast<LONG>(nulls);
    for (const Modem& modem : modems) {
        IMbnInterface* const object = TheModem(IndexOf(machine.devices.modems, modem));
        SafeArrayPutElement(array, &place, object);
        object->Release();
        ++place;
    }
    return array;
}

using ModemManagerObject = ComObject<As<IMbnInterfaceManager, IID_IMbnInterfaceManager>,
                                     As<IConnectionPointContainer, IID_IConnectionPointContainer>>;

class ModemManager final
    : public EventSource<ModemManagerObject, Tells<IMbnRadioEvents, IID_IMbnRadioEvents>> {
  public:
    HRESULT STDMETHODCALLTYPE GetInterface(LPCWSTR interfaceId, IMbnInterface** mbnInterface) override {
        CallScope call(Call::MbnInterfaceManagerGetInterface);
        *mbnInterface = nullptr;
        return Answer(call, [&] {
            LockedMachine machine;
            for (const Modem& modem : Present(machine->devices.modems)) {
                if (interfaceId != nullptr && _wcsicmp(interfaceId, GuidText(modem.id).c_str()) == 0) {
                    *mbnInterface = TheModem(IndexOf(machine->devices.modems, modem));
                    return S_OK;
                }
            }
            return kNoDevice;
        });
    }
    HRESULT STDMETHODCALLTYPE GetInterfaces(SAFEARRAY** mbnInterfaces) override {
        CallScope call(Call::MbnInterfaceManagerGetInterfaces);
        *mbnInterfaces = nullptr;
        return Answer(call, [&] {
            LockedMachine machine;
            const ModemList kind = machine->devices.modemList;
            if (kind == ModemList::Null) {
                return S_OK;
            }
            if (kind == ModemList::Normal && Present(machine->devices.modems).empty()) {
                return kNoDevice;
            }
            *mbnInterfaces = ModemArray(*machine);
            return *mbnInterfaces == nullptr ? E_OUTOFMEMORY : S_OK;
        });
    }
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
    if (complete) {
        Tell(number, &IMbnRadioEvents::OnSetSoftwareRadioStateComplete, radio, event.request, event.status);
    } else {
        Tell(number, &IMbnRadioEvents::OnRadioStateChange, radio);
    }
    if (radio != nullptr) {
        radio->Release();
    }
}

}  // namespace

IUnknown* MakeMbnInterfaceManager() {
    EventPump::Get().On(Channel::Modem, &DeliverModem);
    return static_cast<IMbnInterfaceManager*>(new ModemManager());
}

}  // namespace Notebook
