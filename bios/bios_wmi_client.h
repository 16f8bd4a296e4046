#pragma once

#include <windows.h>
#include <comdef.h>
#include <wbemidl.h>
#include <wrl/client.h>

#include <map>
#include <string>
#include <utility>

/// Reads settings from the BIOS vendor's WMI provider. Made on the stack for one read, used by the
/// thread that made it. It enters a single-threaded apartment of its own when that thread has none;
/// on a thread of the multithreaded apartment it works in that one.
class BIOSWmiClient {
  public:
    /// Enters the apartment and connects. Whether that succeeded shows in the operations below.
    BIOSWmiClient();

    /// Connects to the provider's namespace anew. The HRESULT of the last step performed.
    HRESULT Connect();

    /// Reads the setting `name` into `value`. `name` goes into the query as it is. S_OK only when
    /// the text was read; WBEM_S_TIMEDOUT, a success code, when the provider took too long. Throws
    /// `_com_error` with WBEM_E_CONNECTION_FAILED when there is no connection.
    HRESULT GetValue(const std::wstring& name, std::wstring& value);

    /// Runs a WQL query and fetches its first object. The HRESULT of the query or of the fetch;
    /// WBEM_S_FALSE when nothing was found, WBEM_S_TIMEDOUT after 20 s.
    HRESULT ExecuteQuery(const std::wstring& query);

    /// The value of the object that the last query found, as text; empty when it is null. A value
    /// that has no text gives WBEM_E_TYPE_MISMATCH.
    HRESULT GetPropertyValue(std::wstring& value);

  private:
    /// What CoInitializeEx answered; uninitialises at its end when that was a success. The first
    /// field, so that it is destroyed after every interface pointer.
    class Apartment {
      public:
        Apartment();
        Apartment(const Apartment&) = delete;
        Apartment& operator=(const Apartment&) = delete;
        ~Apartment();

      private:
        HRESULT m_result;
    };

    Apartment m_apartment;
    std::wstring m_namespace;  ///< empty unless connected
    Microsoft::WRL::ComPtr<IWbemServices> m_services;
    Microsoft::WRL::ComPtr<IWbemClassObject> m_currentObject;
    Microsoft::WRL::ComPtr<IEnumWbemClassObject> m_enumerator;

    // For the provider's other operations (setting values, users), which this service never calls.
    std::wstring m_userName;
    std::wstring m_encoding;
    Microsoft::WRL::ComPtr<IWbemClassObject> m_settingInterface;
    Microsoft::WRL::ComPtr<IWbemClassObject> m_userInterface;
    std::map<std::wstring, std::wstring> m_properties;
    [[maybe_unused]] DWORD m_flags = 1;
    std::pair<bool, bool> m_states{false, false};
};
