#pragma once

#include <windows.h>
#include <wbemidl.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/com_support.h"
#include "tests/support/fake_unknown.h"
#include "tests/support/scoped_import.h"

namespace BiosTests {

class FakeBios;

/// One setting, as the object that a query finds.
class FakeSetting : public Rig::FakeUnknown<IWbemClassObject> {
  public:
    explicit FakeSetting(FakeBios& bios) : FakeUnknown("setting"), m_bios(bios) {}

    HRESULT WINAPI GetQualifierSet(IWbemQualifierSet**) override { return E_NOTIMPL; }
    HRESULT WINAPI Get(LPCWSTR name, LONG flags, VARIANT* value, CIMTYPE* type, LONG* flavor) override;
    HRESULT WINAPI Put(LPCWSTR, LONG, VARIANT*, CIMTYPE) override { return E_NOTIMPL; }
    HRESULT WINAPI Delete(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT WINAPI GetNames(LPCWSTR, LONG, VARIANT*, SAFEARRAY**) override { return E_NOTIMPL; }
    HRESULT WINAPI BeginEnumeration(LONG) override { return E_NOTIMPL; }
    HRESULT WINAPI Next(LONG, BSTR*, VARIANT*, CIMTYPE*, LONG*) override { return E_NOTIMPL; }
    HRESULT WINAPI EndEnumeration() override { return E_NOTIMPL; }
    HRESULT WINAPI GetPropertyQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
    HRESULT WINAPI Clone(IWbemClassObject**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetObjectText(LONG, BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI SpawnDerivedClass(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
    HRESULT WINAPI SpawnInstance(LONG, IWbemClassObject**) override { return E_NOTIMPL; }
    HRESULT WINAPI CompareTo(LONG, IWbemClassObject*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetPropertyOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }
    HRESULT WINAPI InheritsFrom(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT WINAPI GetMethod(LPCWSTR, LONG, IWbemClassObject**, IWbemClassObject**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI PutMethod(LPCWSTR, LONG, IWbemClassObject*, IWbemClassObject*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI DeleteMethod(LPCWSTR) override { return E_NOTIMPL; }
    HRESULT WINAPI BeginMethodEnumeration(LONG) override { return E_NOTIMPL; }
    HRESULT WINAPI NextMethod(LONG, BSTR*, IWbemClassObject**, IWbemClassObject**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI EndMethodEnumeration() override { return E_NOTIMPL; }
    HRESULT WINAPI GetMethodQualifierSet(LPCWSTR, IWbemQualifierSet**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetMethodOrigin(LPCWSTR, BSTR*) override { return E_NOTIMPL; }

  private:
    FakeBios& m_bios;
};

/// What a query found.
class FakeQueryResult : public Rig::FakeUnknown<IEnumWbemClassObject> {
  public:
    explicit FakeQueryResult(FakeBios& bios) : FakeUnknown("query result"), m_bios(bios) {}

    HRESULT WINAPI Reset() override { return E_NOTIMPL; }
    HRESULT WINAPI Next(LONG timeout, ULONG count, IWbemClassObject** objects, ULONG* returned) override;
    HRESULT WINAPI NextAsync(ULONG, IWbemObjectSink*) override { return E_NOTIMPL; }
    HRESULT WINAPI Clone(IEnumWbemClassObject**) override { return E_NOTIMPL; }
    HRESULT WINAPI Skip(LONG, ULONG) override { return E_NOTIMPL; }

  private:
    FakeBios& m_bios;
};

/// The provider's namespace.
class FakeServices : public Rig::FakeUnknown<IWbemServices> {
  public:
    explicit FakeServices(FakeBios& bios) : FakeUnknown("services"), m_bios(bios) {}

    HRESULT WINAPI OpenNamespace(const BSTR, LONG, IWbemContext*, IWbemServices**,
                                 IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI CancelAsyncCall(IWbemObjectSink*) override { return E_NOTIMPL; }
    HRESULT WINAPI QueryObjectSink(LONG, IWbemObjectSink**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetObject(const BSTR, LONG, IWbemContext*, IWbemClassObject**,
                             IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI GetObjectAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI PutClass(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI PutClassAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI DeleteClass(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI DeleteClassAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI CreateClassEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI CreateClassEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI PutInstance(IWbemClassObject*, LONG, IWbemContext*, IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI PutInstanceAsync(IWbemClassObject*, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI DeleteInstance(const BSTR, LONG, IWbemContext*, IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI DeleteInstanceAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI CreateInstanceEnum(const BSTR, LONG, IWbemContext*, IEnumWbemClassObject**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI CreateInstanceEnumAsync(const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI ExecQuery(const BSTR language, const BSTR query, LONG flags, IWbemContext* context,
                             IEnumWbemClassObject** result) override;
    HRESULT WINAPI ExecQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI ExecNotificationQuery(const BSTR, const BSTR, LONG, IWbemContext*,
                                         IEnumWbemClassObject**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI ExecNotificationQueryAsync(const BSTR, const BSTR, LONG, IWbemContext*,
                                              IWbemObjectSink*) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI ExecMethod(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                              IWbemClassObject**, IWbemCallResult**) override {
        return E_NOTIMPL;
    }
    HRESULT WINAPI ExecMethodAsync(const BSTR, const BSTR, LONG, IWbemContext*, IWbemClassObject*,
                                   IWbemObjectSink*) override {
        return E_NOTIMPL;
    }

  private:
    FakeBios& m_bios;
};

/// The way into WMI.
class FakeLocator : public Rig::FakeUnknown<IWbemLocator> {
  public:
    explicit FakeLocator(FakeBios& bios) : FakeUnknown("locator"), m_bios(bios) {}

    HRESULT WINAPI ConnectServer(const BSTR resource, const BSTR user, const BSTR password, const BSTR locale,
                                 LONG flags, const BSTR authority, IWbemContext* context,
                                 IWbemServices** services) override;

  private:
    FakeBios& m_bios;
};

/// How a call is made to end: a result, or an exception out of the call.
using Step = std::function<HRESULT()>;

/// The BIOS vendor's WMI provider, for a scope, for the thread that makes it, which is given an
/// apartment. Settings that it does not know are not found; each step can be made to fail.
class FakeBios {
  public:
    explicit FakeBios(DWORD apartmentModel = COINIT_APARTMENTTHREADED);

    /// Gives a setting a text.
    void Set(const std::wstring& name, const std::wstring& text);
    /// Gives it a value of any kind; `fill` writes an initialised variant.
    void SetValue(const std::wstring& name, std::function<void(VARIANT*)> fill);
    void Remove(const std::wstring& name) { m_settings.erase(name); }

    // The next calls end like this instead of as usual.
    std::deque<Step> connects;
    std::deque<Step> blankets;
    std::deque<Step> queries;
    std::deque<Step> fetches;
    std::deque<Step> reads;
    /// Successful calls that leave their result out.
    bool givesServices = true;
    bool givesQueryResult = true;
    bool givesSetting = true;

    // What was asked, call by call.
    std::vector<std::wstring> namespacesAsked;
    std::vector<std::wstring> queriesAsked;
    std::vector<std::wstring> propertiesAsked;
    struct Blanket {
        IUnknown* proxy;
        DWORD authentication;
        DWORD authorization;
        bool hasPrincipal;
        DWORD authenticationLevel;
        DWORD impersonationLevel;
        bool hasIdentity;
        DWORD capabilities;
    };
    std::vector<Blanket> blanketsAsked;
    LONG connectFlags = -1;
    bool connectHadOtherArguments = false;
    std::wstring queryLanguage;
    LONG queryFlags = -1;
    LONG fetchTimeout = -1;
    ULONG fetchCount = 0;

    /// References that the code holds to any of the provider's objects now.
    [[nodiscard]] long References() const;
    [[nodiscard]] FakeServices& Services() { return m_services; }
    [[nodiscard]] FakeLocator& Locator() { return m_locator; }
    /// How often the locator was made.
    [[nodiscard]] int Created() const { return m_class.Created(); }

  private:
    friend class FakeSetting;
    friend class FakeQueryResult;
    friend class FakeServices;
    friend class FakeLocator;

    /// Takes the next of `steps`; nothing when the call is to go its usual way.
    static std::optional<HRESULT> Take(std::deque<Step>& steps);
    [[nodiscard]] std::wstring NameInLastQuery() const;

    std::map<std::wstring, std::function<void(VARIANT*)>> m_settings;
    FakeSetting m_setting{*this};
    FakeQueryResult m_queryResult{*this};
    FakeServices m_services{*this};
    FakeLocator m_locator{*this};
    Rig::ComApartment m_apartment;
    Rig::ScopedClassObject m_class{CLSID_WbemLocator, m_locator};
    Rig::ScopedImport<&::CoSetProxyBlanket> m_blanket;
};

/// A step that ends with `result`.
[[nodiscard]] Step Ends(HRESULT result);

}  // namespace BiosTests
