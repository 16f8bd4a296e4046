#include "tests/bios/fake_bios.h"

namespace BiosTests {

Step Ends(HRESULT result) {
    return [result] { return result; };
}

HRESULT FakeSetting::Get(LPCWSTR name, LONG /*flags*/, VARIANT* value, CIMTYPE* /*type*/, LONG* /*flavor*/) {
    ExpectHeld("Get");
    m_bios.propertiesAsked.emplace_back(name);
    if (const std::optional<HRESULT> ending = FakeBios::Take(m_bios.reads)) {
        return *ending;
    }
    m_bios.m_settings.at(m_bios.NameInLastQuery())(value);
    return WBEM_S_NO_ERROR;
}

HRESULT FakeQueryResult::Next(LONG timeout, ULONG count, IWbemClassObject** objects, ULONG* returned) {
    ExpectHeld("Next");
    m_bios.fetchTimeout = timeout;
    m_bios.fetchCount = count;
    *objects = nullptr;
    *returned = 0;
    if (const std::optional<HRESULT> ending = FakeBios::Take(m_bios.fetches)) {
        return *ending;
    }
    if (!m_bios.m_settings.contains(m_bios.NameInLastQuery())) {
        return WBEM_S_FALSE;
    }
    if (m_bios.givesSetting) {
        *returned = 1;
        m_bios.m_setting.HandOut(objects);
    }
    return WBEM_S_NO_ERROR;
}

HRESULT FakeServices::ExecQuery(const BSTR language, const BSTR query, LONG flags, IWbemContext* /*context*/,
                                IEnumWbemClassObject** result) {
    ExpectHeld("ExecQuery");
    m_bios.queryLanguage = language;
    m_bios.queriesAsked.emplace_back(query);
    m_bios.queryFlags = flags;
    *result = nullptr;
    if (const std::optional<HRESULT> ending = FakeBios::Take(m_bios.queries)) {
        return *ending;
    }
    if (m_bios.givesQueryResult) {
        m_bios.m_queryResult.HandOut(result);
    }
    return WBEM_S_NO_ERROR;
}

HRESULT FakeLocator::ConnectServer(const BSTR resource, const BSTR user, const BSTR password,
                                   const BSTR locale, LONG flags, const BSTR authority, IWbemContext* context,
                                   IWbemServices** services) {
    ExpectHeld("ConnectServer");
    m_bios.namespacesAsked.emplace_back(resource);
    m_bios.connectFlags = flags;
    m_bios.connectHadOtherArguments = user != nullptr || password != nullptr || locale != nullptr ||
                                      authority != nullptr || context != nullptr;
    *services = nullptr;
    if (const std::optional<HRESULT> ending = FakeBios::Take(m_bios.connects)) {
        return *ending;
    }
    if (m_bios.givesServices) {
        m_bios.m_services.HandOut(services);
    }
    return WBEM_S_NO_ERROR;
}

FakeBios::FakeBios(DWORD apartmentModel)
    : m_apartment(apartmentModel),
      m_blanket([this](IUnknown* proxy, DWORD authentication, DWORD authorization, OLECHAR* principal,
                       DWORD authenticationLevel, DWORD impersonationLevel, void* identity,
                       DWORD capabilities) -> HRESULT {
          blanketsAsked.push_back({proxy, authentication, authorization, principal != nullptr,
                                   authenticationLevel, impersonationLevel, identity != nullptr,
                                   capabilities});
          return Take(blankets).value_or(S_OK);
      }) {}

void FakeBios::Set(const std::wstring& name, const std::wstring& text) {
    SetValue(name, [text](VARIANT* value) {
        value->vt = VT_BSTR;
        value->bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    });
}

void FakeBios::SetValue(const std::wstring& name, std::function<void(VARIANT*)> fill) {
    m_settings[name] = std::move(fill);
}

long FakeBios::References() const {
    return m_setting.References() + m_queryResult.References() + m_services.References() +
           m_locator.References();
}

std::optional<HRESULT> FakeBios::Take(std::deque<Step>& steps) {
    if (steps.empty()) {
        return std::nullopt;
    }
    const Step step = std::move(steps.front());
    steps.pop_front();
    return step();
}

std::wstring FakeBios::NameInLastQuery() const {
    static constexpr std::wstring_view kBefore = L"Name='";
    const std::wstring& query = queriesAsked.back();
    const std::size_t start = query.find(kBefore) + kBefore.size();
    return query.substr(start, query.size() - start - 1);
}

}  // namespace BiosTests
