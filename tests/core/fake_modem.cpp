#include "tests/core/fake_modem.h"

#include <wrl/client.h>

#include <gtest/gtest.h>

#include "radio/wwan_state.h"

namespace RadioTests {

HRESULT FakeRadio::get_SoftwareRadioState(MBN_RADIO* softwareState) {
    ExpectHeld("get_SoftwareRadioState");
    if (onGet) {
        const HRESULT result = onGet(softwareState);
        ExpectHeld("get_SoftwareRadioState");
        return result;
    }
    *softwareState = state;
    return S_OK;
}

HRESULT FakeRadio::get_HardwareRadioState(MBN_RADIO* /*hardwareState*/) {
    ADD_FAILURE() << "nobody is interested in the hardware switch";
    return E_NOTIMPL;
}

HRESULT FakeRadio::SetSoftwareRadioState(MBN_RADIO wanted, ULONG* requestId) {
    ExpectHeld("SetSoftwareRadioState");
    sets.push_back(wanted);
    if (onSet) {
        return onSet(wanted, requestId);
    }
    *requestId = static_cast<ULONG>(sets.size());
    return S_OK;
}

HRESULT FakeInterface::QueryInterface(REFIID interfaceId, void** object) {
    if (interfaceId != IID_IMbnRadio) {
        return FakeUnknown::QueryInterface(interfaceId, object);
    }
    ExpectHeld("QueryInterface");
    return onRadio ? onRadio(object) : m_radio.HandOut(interfaceId, object);
}

HRESULT FakeInterface::get_InterfaceID(BSTR* interfaceId) {
    ExpectHeld("get_InterfaceID");
    if (SUCCEEDED(identifierResult)) {
        *interfaceId = identifier ? SysAllocString(identifier->c_str()) : nullptr;
    }
    return identifierResult;
}

SAFEARRAY* FakeManager::ArrayOf(const std::vector<IUnknown*>& elements, LONG lowerBound, VARTYPE type) {
    SAFEARRAY* const array = SafeArrayCreateVector(type, lowerBound, static_cast<ULONG>(elements.size()));
    for (std::size_t i = 0; i < elements.size(); ++i) {
        LONG index = lowerBound + static_cast<LONG>(i);
        SafeArrayPutElement(array, &index, elements[i]);
    }
    return array;
}

HRESULT FakeManager::GetInterface(LPCWSTR interfaceId, IMbnInterface** mbnInterface) {
    ExpectHeld("GetInterface");
    asked.emplace_back(interfaceId);
    const HRESULT result = onGetInterface ? onGetInterface(static_cast<int>(asked.size())) : S_OK;
    if (FAILED(result) || givesNoInterface) {
        return result;
    }
    for (FakeInterface& candidate : m_interfaces) {
        if (candidate.identifier == interfaceId) {
            return candidate.HandOut(mbnInterface);
        }
    }
    return E_INVALIDARG;
}

HRESULT FakeManager::GetInterfaces(SAFEARRAY** mbnInterfaces) {
    ExpectHeld("GetInterfaces");
    ++enumerations;
    const HRESULT result = onGetInterfaces ? onGetInterfaces(enumerations) : S_OK;
    if (FAILED(result)) {
        return result;
    }
    std::vector<IUnknown*> elements;
    for (FakeInterface& element : m_interfaces) {
        IMbnInterface* reference = nullptr;
        element.HandOut(&reference);
        elements.push_back(reference);
    }
    *mbnInterfaces = makeArray ? makeArray() : ArrayOf(elements, lowerBound);
    for (IUnknown* element : elements) {
        element->Release();  // the array has a reference of its own
    }
    return S_OK;
}

void Publish(FakeManager& manager) {
    Microsoft::WRL::ComPtr<IMbnInterfaceManager> reference;
    manager.HandOut(reference.GetAddressOf());
    WwanState::interfaceManager = WwanState::Share(reference.Get());
}

FakeModems::FakeModems(std::vector<MBN_RADIO> states) : manager(interfaces) {
    static constexpr const wchar_t* kIdentifiers[] = {kFirstModem, kSecondModem};
    for (std::size_t i = 0; i < states.size(); ++i) {
        FakeRadio& radio = radios.emplace_back(states[i], "radio " + std::to_string(i));
        interfaces.emplace_back(radio, kIdentifiers[i]);
    }
    Publish(manager);
    if (!states.empty()) {
        WwanState::interfaceId = kIdentifiers[states.size() - 1];
        WwanState::devicePresent = true;
    }
}

FakeModems::~FakeModems() {
    WwanState::interfaceManager.store(nullptr);
    WwanState::interfaceId.clear();
    WwanState::devicePresent = false;
    WwanState::lastRadio.store(nullptr);
}

HRESULT HeldSink::Complete(FakeRadio* radio, ULONG requestId, HRESULT status) const {
    IMbnRadio* reference = nullptr;
    if (radio != nullptr) {
        radio->HandOut(&reference);
    }
    const HRESULT result = m_sink->OnSetSoftwareRadioStateComplete(reference, requestId, status);
    if (reference != nullptr) {
        reference->Release();
    }
    return result;
}

EventWatch::EventWatch()
    : m_create([this](LPSECURITY_ATTRIBUTES security, BOOL manual, BOOL signalled, LPCWSTR name) {
          const HANDLE event = m_create.Original(security, manual, signalled, name);
          m_made.push_back(std::string(manual != FALSE ? "manual-reset" : "auto-reset") + ", " +
                           (signalled != FALSE ? "signalled" : "not signalled") +
                           (name != nullptr ? ", named" : "") + (security != nullptr ? ", secured" : ""));
          m_open.insert(event);
          return event;
      }),
      m_close([this](HANDLE handle) { return m_open.contains(handle); },
              [this](HANDLE handle) {
                  m_open.erase(handle);
                  return m_close.Original(handle);
              }) {}

}  // namespace RadioTests
