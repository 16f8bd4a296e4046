// WMI, as far as the BIOS settings need it: a locator, one namespace, one kind of query.

#include <windows.h>
#include <wbemcli.h>
#include <oleauto.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/com_object.h"
#include "notebook/state/machine.h"
#include "notebook/state/text.h"

namespace Notebook {

namespace {

constexpr wchar_t kNamespace[] = L"\\\\.\\root\\Orva\\FirmwareSettings";
constexpr std::wstring_view kQueryStart = L"SELECT * FROM Orva_BIOSSetting where Name='";

/// The setting that a query asks for; nothing when it is no query of that kind, or when the name
/// in it holds a quote, which ends the text early.
std::optional<std::wstring> NameInQuery(std::wstring_view query) {
    if (query.size() <= kQueryStart.size() || query.substr(0, kQueryStart.size()) != kQueryStart) {
        return std::nullopt;
    }
    const std::wstring_view rest = query.substr(kQueryStart.size());
    if (rest.find(L'\'') != rest.size() - 1) {
        return std::nullopt;
    }
    return std::wstring(rest.substr(0, rest.size() - 1));
}

/// The setting's value, of its type.
VARIANT ValueOf(const Setting& setting) {
    VARIANT value{};
    switch (setting.type) {
        case kRawVariant:
            return setting.raw;
        case VT_NULL:
        case VT_EMPTY:
        case VT_UNKNOWN:  // a null reference
            V_VT(&value) = setting.type;
            return value;
        case VT_BSTR:
            V_VT(&value) = VT_BSTR;
            V_BSTR(&value) = SysAllocString(setting.text);
            return value;
        case VT_ARRAY | VT_BSTR: {
            V_VT(&value) = VT_ARRAY | VT_BSTR;
            V_ARRAY(&value) = SafeArrayCreateVector(VT_BSTR, 0, 1);
            LONG index = 0;
            const BSTR text = SysAllocString(setting.text);
            SafeArrayPutElement(V_ARRAY(&value), &index, text);
            SysFreeString(text);
            return value;
        }
        case VT_ERROR:
            V_VT(&value) = VT_ERROR;
            V_ERROR(&value) = static_cast<SCODE>(_wtoi64(setting.text));
            return value;
        default:
            V_VT(&value) = VT_R8;
            V_R8(&value) = std::wcstod(setting.text, nullptr);
            VariantChangeType(&value, &value, 0, setting.type);
            return value;
    }
}

/// One setting as a query found it.
class SettingObject final : public ComObject<As<IWbemClassObject, IID_IWbemClassObject>> {
  public:
    explicit SettingObject(const Setting& setting) : m_setting(setting) {}

    HRESULT STDMETHODCALLTYPE Get(LPCWSTR name, LONG, VARIANT* value, CIMTYPE*, LONG*) override {
        CallScope call(Call::WbemGet);
        call.Detail("%ls", name);
        *value = VARIANT{};
        return call.Answer([&] {
            if (_wcsicmp(name, L"Value") != 0) {
                return static_cast<HRESULT>(WBEM_E_NOT_FOUND);
            }
            *value = ValueOf(m_setting);
            return S_OK;
        });
    }

    NOTEBOOK_NOT_NEEDED(GetQualifierSet(IWbemQualifierSet**));
    NOTEBOOK_NOT_NEEDED(Put(LPCWSTR, LONG, VARIANT*, CIMTYPE));
    NOTEBOOK_NOT_NEEDED(Delete(LPCWSTR));
    NOTEBOOK_NOT_NEEDED(GetNames(LPCWSTR, LONG, VARIANT*, SAFEARRAY**));
    NOTEBOOK_NOT_NEEDED(BeginEnumeration(LONG));
    NOTEBOOK_NOT_NEEDED(Next(LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*));
    NOTEBOOK_NOT_NEEDED(EndEnumeration());
    NOTEBOOK_NOT_NEEDED(GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**));
    NOTEBOOK_NOT_NEEDED(Clone(IWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(GetObjectText(LONG, BSTR*));
    NOTEBOOK_NOT_NEEDED(SpawnDerivedClass(LONG, IWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(SpawnInstance(LONG, IWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(CompareTo(LONG, IWbemClassObject*));
    NOTEBOOK_NOT_NEEDED(GetPropertyOrigin(LPCWSTR, BSTR*));
    NOTEBOOK_NOT_NEEDED(InheritsFrom(LPCWSTR));
    NOTEBOOK_NOT_NEEDED(GetMethod(LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(PutMethod(LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*));
    NOTEBOOK_NOT_NEEDED(DeleteMethod(LPCWSTR));
    NOTEBOOK_NOT_NEEDED(BeginMethodEnumeration(LONG));
    NOTEBOOK_NOT_NEEDED(NextMethod(LONG, BSTR*, IWbemClassObject**, IWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(EndMethodEnumeration());
    NOTEBOOK_NOT_NEEDED(GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**));
    NOTEBOOK_NOT_NEEDED(GetMethodOrigin(LPCWSTR, BSTR*));

  private:
    Setting m_setting;
};

/// The answer to one query: at most one setting.
class QueryAnswer final : public ComObject<As<IEnumWbemClassObject, IID_IEnumWbemClassObject>> {
  public:
    explicit QueryAnswer(std::wstring name) : m_name(std::move(name)) {}

    HRESULT STDMETHODCALLTYPE Next(LONG timeout, ULONG count, IWbemClassObject** objects,
                                   ULONG* returned) override {
        CallScope call(Call::WbemNext);
        call.Detail("%lu within %ld ms: %s", count, timeout, Narrow(m_name).c_str());
        *returned = 0;
        return call.Answer([&]() -> HRESULT {
            const std::optional<Setting> setting = Read();
            if (setting && setting->timeoutsLeft != 0) {
                return WBEM_S_TIMEDOUT;
            }
            if (!setting || m_given || count == 0) {
                return WBEM_S_FALSE;
            }
            m_given = true;
            objects[0] = new SettingObject(*setting);
            *returned = 1;
            return count == 1 ? WBEM_S_NO_ERROR : WBEM_S_FALSE;
        });
    }
    NOTEBOOK_NOT_NEEDED(Reset());
    NOTEBOOK_NOT_NEEDED(NextAsync(ULONG, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(Clone(IEnumWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(Skip(LONG, ULONG));

  private:
    /// The setting as it is now; counts a time-out down.
    std::optional<Setting> Read() const {
        LockedMachine machine;
        Setting* const setting = FindSetting(*machine, m_name);
        if (setting == nullptr) {
            return std::nullopt;
        }
        const Setting copy = *setting;
        if (setting->timeoutsLeft != 0 && setting->timeoutsLeft != kForEver) {
            --setting->timeoutsLeft;
        }
        return copy;
    }

    std::wstring m_name;
    bool m_given = false;
};

/// Its security is the answer to CoSetProxyBlanket, as a proxy would give it.
class Services final
    : public ComObject<As<IWbemServices, IID_IWbemServices>, As<IClientSecurity, IID_IClientSecurity>> {
  public:
    HRESULT STDMETHODCALLTYPE ExecQuery(const BSTR language, const BSTR query, LONG flags, IWbemContext*,
                                        IEnumWbemClassObject** answer) override {
        CallScope call(Call::WbemExecQuery);
        *answer = nullptr;
        call.Detail("0x%lx %s", flags, Narrow(query).c_str());
        return call.Answer([&]() -> HRESULT {
            if (_wcsicmp(language, L"WQL") != 0) {
                return static_cast<HRESULT>(WBEM_E_INVALID_QUERY_TYPE);
            }
            const std::optional<std::wstring> name = NameInQuery(query);
            if (!name) {
                return static_cast<HRESULT>(WBEM_E_INVALID_QUERY);
            }
            *answer = new QueryAnswer(*name);
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown*, DWORD, DWORD, OLECHAR*, DWORD, DWORD, void*,
                                         DWORD) override {
        CallScope call(Call::WbemSetBlanket);
        return call.Answer([] { return S_OK; });
    }
    NOTEBOOK_NOT_NEEDED(QueryBlanket(IUnknown*, DWORD*, DWORD*, OLECHAR**, DWORD*, DWORD*, void**, DWORD*));
    NOTEBOOK_NOT_NEEDED(CopyProxy(IUnknown*, IUnknown**));

    NOTEBOOK_NOT_NEEDED(OpenNamespace(const BSTR, LONG, IWbemContext*, IWbemServices**, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(CancelAsyncCall(IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(QueryObjectSink(LONG, IWbemObjectSink**));
    NOTEBOOK_NOT_NEEDED(GetObject(const BSTR, LONG, IWbemContext*, IWbemClassObject**, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(GetObjectAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(PutClass(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(PutClassAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(DeleteClass(const BSTR, LONG, IWbemContext*, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(DeleteClassAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(CreateClassEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(CreateClassEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(PutInstance(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(PutInstanceAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(DeleteInstance(const BSTR, LONG, IWbemContext*, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(DeleteInstanceAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(CreateInstanceEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(CreateInstanceEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(ExecQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(ExecNotificationQuery(const BSTR, const BSTR, LONG, IWbemContext*,
                                              IEnumWbemClassObject**));
    NOTEBOOK_NOT_NEEDED(ExecNotificationQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*,
                                                   IWbemObjectSink*));
    NOTEBOOK_NOT_NEEDED(ExecMethod(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                                   IWbemClassObject**, IWbemCallResult**));
    NOTEBOOK_NOT_NEEDED(ExecMethodAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                                        IWbemObjectSink*));
};

class Locator final : public ComObject<As<IWbemLocator, IID_IWbemLocator>> {
  public:
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR resource, const BSTR user, const BSTR password,
                                            const BSTR locale, LONG flags, const BSTR authority,
                                            IWbemContext* context, IWbemServices** services) override {
        CallScope call(Call::WbemConnectServer);
        *services = nullptr;
        const bool asOneself = user == nullptr && password == nullptr && locale == nullptr &&
                               authority == nullptr && context == nullptr;
        call.Detail("0x%lx %s%s", flags, Narrow(resource).c_str(), asOneself ? "" : ", as another");
        return call.Answer([&]() -> HRESULT {
            if (SharedState::Get().Raw().devices.providerPresent == 0 ||
                _wcsicmp(resource, kNamespace) != 0) {
                return static_cast<HRESULT>(WBEM_E_INVALID_NAMESPACE);
            }
            *services = new Services();
            return S_OK;
        });
    }
};

}  // namespace

IUnknown* MakeWbemLocator() {
    return static_cast<IWbemLocator*>(new Locator());
}

}  // namespace Notebook
