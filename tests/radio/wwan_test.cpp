#include "tests/radio/wwan_test.h"

#include "notebook/hardware/class_objects.h"
#include "notebook/state/text.h"
#include "radio/wwan_state.h"

namespace RadioTests {

WwanTest::WwanTest() : RadioTest({.modems = 1}) {
    m_sink->AddRef();
    m_notebook.Create<IConnectionPointContainer>(CLSID_MbnInterfaceManager, IID_IConnectionPointContainer)
        ->FindConnectionPoint(IID_IMbnRadioEvents, m_events.GetAddressOf());
    m_events->Advise(m_sink, &m_cookie);
    Publish();
}

WwanTest::~WwanTest() {
    m_events->Unadvise(m_cookie);
    m_sink->Release();
    WwanState::interfaceManager.store(nullptr);
    WwanState::interfaceId.clear();
    WwanState::devicePresent = false;
    WwanState::lastRadio.store(nullptr);
}

void WwanTest::Publish() {
    WwanState::interfaceManager = WwanState::Share(
        m_notebook.Create<IMbnInterfaceManager>(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager).Get());
    std::size_t last = 0;
    while (last + 1 < ::Notebook::kMaxModems && Modem(last + 1).present != 0) {
        ++last;
    }
    WwanState::interfaceId = ::Notebook::GuidText(Modem(last).id);
    WwanState::devicePresent = true;
    m_ownReferences = m_notebook.Held().comReferences;
    m_notebook.ForgetCalls();
}

void WwanTest::SetModems(std::uint32_t count) {
    m_notebook.Make({.modems = count});
    Publish();
}

void WwanTest::ConfirmAfter(std::chrono::milliseconds delay) const {
    Modem().confirmMs = static_cast<std::uint32_t>(delay.count());
}

void WwanTest::IgnoreRequests() const {
    Modem().confirmMs = kForEver;
    Modem().follows = 0;
}

std::vector<std::string> WwanTest::Sets() const {
    std::vector<std::string> sets = m_notebook.Calls(Call::MbnRadioSetSoftwareRadioState);
    for (std::string& set : sets) {
        set.erase(0, set.find(' ') + 1);
    }
    return sets;
}

HRESULT WwanTest::Complete(ULONG requestId, HRESULT status, ConfirmRadio kind) const {
    Microsoft::WRL::ComPtr<IMbnRadio> radio;
    *radio.GetAddressOf() = ::Notebook::EventRadio(0, kind);
    return m_sink->OnSetSoftwareRadioStateComplete(radio.Get(), requestId, status);
}

std::vector<LogLine> FailedTries(const char* operation, int tries, const wchar_t* failed,
                                 const std::wstring& error, const wchar_t* givenUp) {
    std::vector<LogLine> lines;
    for (int i = 0; i < tries; ++i) {
        std::wstring text = failed;
        text.replace(text.find(L"%d"), 2, std::to_wstring(i));
        lines.push_back(Rig::Lines::Warning(operation, text + error));
    }
    if (givenUp != nullptr) {
        lines.push_back(Rig::Lines::Error(operation, givenUp + error));
    }
    return lines;
}

}  // namespace RadioTests
