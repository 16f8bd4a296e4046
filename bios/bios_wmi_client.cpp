#include "bios/bios_wmi_client.h"

#include "bios/bios_vocabulary.h"
#include "platform/handles.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr wchar_t kQueryLanguage[] = L"WQL";

/// How long a query may take to find its first object, in milliseconds.
constexpr long kNextTimeout = 20000;

Platform::UniqueBstr MakeBstr(const std::wstring& text) {
    return Platform::UniqueBstr(SysAllocString(text.c_str()));
}

/// The text of a value of any type; a text without a buffer is an empty one. Throws `_com_error` when it has
/// none.
std::wstring TextOf(_variant_t& value) {
    if (V_VT(&value) == VT_NULL) {
        return {};
    }
    value.ChangeType(VT_BSTR);
    const BSTR text = V_BSTR(&value);
    return text != nullptr ? std::wstring(text, SysStringLen(text)) : std::wstring();
}

}  // namespace

BIOSWmiClient::Apartment::Apartment()
    : m_result(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE)) {
    if (SUCCEEDED(m_result)) {
        // Fails harmlessly when the process has set its security already.
        static_cast<void>(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
    }
}

BIOSWmiClient::Apartment::~Apartment() {
    if (SUCCEEDED(m_result)) {
        CoUninitialize();
    }
}

BIOSWmiClient::BIOSWmiClient() {
    static_cast<void>(Connect());
}

HRESULT BIOSWmiClient::Connect() {
    m_services.Reset();
    m_namespace.clear();
    ComPtr<IWbemLocator> locator;
    HRESULT result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                      reinterpret_cast<void**>(locator.GetAddressOf()));
    if (FAILED(result)) {
        return result;
    }
    const Platform::UniqueBstr name = MakeBstr(BiosVocabulary::kNamespace);
    if (!name) {
        return E_OUTOFMEMORY;
    }
    ComPtr<IWbemServices> services;
    result = locator->ConnectServer(name.Get(), nullptr, nullptr, nullptr, WBEM_FLAG_CONNECT_USE_MAX_WAIT,
                                    nullptr, nullptr, services.GetAddressOf());
    if (FAILED(result) || services == nullptr) {
        return result;
    }
    result = CoSetProxyBlanket(services.Get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                               RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (SUCCEEDED(result)) {
        m_services = std::move(services);
        m_namespace = BiosVocabulary::kNamespace;
    }
    return result;
}

HRESULT BIOSWmiClient::GetValue(const std::wstring& name, std::wstring& value) {
    if (m_services == nullptr) {
        throw _com_error(static_cast<HRESULT>(WBEM_E_CONNECTION_FAILED));
    }
    const std::wstring query = std::wstring(L"SELECT * FROM ") + BiosVocabulary::kSettingClass + L" where " +
                               BiosVocabulary::kNameProperty + L"='" + name + L"'";
    const HRESULT result = ExecuteQuery(query);
    // Exactly S_OK: a time-out, a success code, must reach the caller, who then tries again.
    return result == S_OK ? GetPropertyValue(value) : result;
}

HRESULT BIOSWmiClient::ExecuteQuery(const std::wstring& query) {
    if (m_services == nullptr) {
        return static_cast<HRESULT>(WBEM_E_INITIALIZATION_FAILURE);
    }
    m_currentObject.Reset();
    const Platform::UniqueBstr language = MakeBstr(kQueryLanguage);
    const Platform::UniqueBstr text = MakeBstr(query);
    if (!language || !text) {
        return E_OUTOFMEMORY;
    }
    const HRESULT result = m_services->ExecQuery(language.Get(), text.Get(),
                                                 WBEM_FLAG_RETURN_IMMEDIATELY | WBEM_FLAG_FORWARD_ONLY,
                                                 nullptr, m_enumerator.ReleaseAndGetAddressOf());
    if (FAILED(result)) {
        return result;
    }
    if (m_enumerator == nullptr) {
        return static_cast<HRESULT>(WBEM_E_INVALID_CLASS);
    }
    ULONG fetched = 0;
    return m_enumerator->Next(kNextTimeout, 1, m_currentObject.ReleaseAndGetAddressOf(), &fetched);
}

HRESULT BIOSWmiClient::GetPropertyValue(std::wstring& value) {
    value.clear();
    if (m_currentObject == nullptr) {
        return static_cast<HRESULT>(WBEM_E_INVALID_OBJECT);
    }
    _variant_t property;
    const HRESULT result =
        m_currentObject->Get(BiosVocabulary::kValueProperty, 0, &property, nullptr, nullptr);
    if (FAILED(result)) {
        return result;
    }
    try {
        value = TextOf(property);
    } catch (const _com_error& error) {
        return error.Error() == DISP_E_TYPEMISMATCH ? static_cast<HRESULT>(WBEM_E_TYPE_MISMATCH)
                                                    : error.Error();
    }
    return S_OK;
}
