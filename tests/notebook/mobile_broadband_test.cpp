#include <windows.h>
#include <ocidl.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "notebook/state/text.h"
#include "platform/mbn_api.h"
#include "tests/notebook/hardware.h"

namespace Notebook::Tests {

namespace {

struct Completion {
    MBN_RADIO state = MBN_RADIO_OFF;
    ULONG request = 0;
    HRESULT status = S_OK;
    DWORD thread = 0;
};

class RadioSink final : public IMbnRadioEvents {
  public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void** object) override {
        *object = static_cast<IMbnRadioEvents*>(this);
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE OnRadioStateChange(IMbnRadio*) override {
        const std::lock_guard hold(m_lock);
        ++m_changes;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnSetSoftwareRadioStateComplete(IMbnRadio* radio, ULONG request,
                                                              HRESULT status) override {
        Completion completion;
        EXPECT_EQ(S_OK, radio->get_SoftwareRadioState(&completion.state));
        completion.request = request;
        completion.status = status;
        completion.thread = GetCurrentThreadId();
        const std::lock_guard hold(m_lock);
        m_completions.push_back(completion);
        return S_OK;
    }

    std::vector<Completion> Completions() {
        const std::lock_guard hold(m_lock);
        return m_completions;
    }
    int Changes() {
        const std::lock_guard hold(m_lock);
        return m_changes;
    }

  private:
    std::mutex m_lock;
    std::vector<Completion> m_completions;
    int m_changes = 0;
};

class MobileBroadbandTest : public NotebookTest {
  protected:
    MobileBroadbandTest() {
        Reset({.modems = 1});
        EXPECT_EQ(S_OK, Hardware::Get().CreateObject(CLSID_MbnInterfaceManager, IID_IMbnInterfaceManager,
                                                     reinterpret_cast<void**>(m_manager.GetAddressOf())));
        ComPtr<IConnectionPointContainer> container;
        EXPECT_EQ(S_OK, m_manager->QueryInterface(IID_IConnectionPointContainer,
                                                  reinterpret_cast<void**>(container.GetAddressOf())));
        EXPECT_EQ(S_OK, container->FindConnectionPoint(IID_IMbnRadioEvents, &m_point));
        EXPECT_EQ(S_OK, m_point->Advise(&m_sink, &m_cookie));
    }
    ~MobileBroadbandTest() override { EXPECT_EQ(S_OK, m_point->Unadvise(m_cookie)); }

    static Modem& FirstModem() { return SharedState::Get().Raw().devices.modems[0]; }

    ComPtr<IMbnRadio> Radio() {
        ComPtr<IMbnInterface> modem;
        EXPECT_EQ(S_OK, m_manager->GetInterface(GuidText(FirstModem().id).c_str(), &modem));
        ComPtr<IMbnRadio> radio;
        EXPECT_EQ(S_OK, modem->QueryInterface(IID_IMbnRadio, reinterpret_cast<void**>(radio.GetAddressOf())));
        return radio;
    }
    static MBN_RADIO State(IMbnRadio& radio) {
        MBN_RADIO state{};
        EXPECT_EQ(S_OK, radio.get_SoftwareRadioState(&state));
        return state;
    }
    ComPtr<IMbnInterfaceManager> m_manager;
    ComPtr<IConnectionPoint> m_point;
    RadioSink m_sink;
    DWORD m_cookie = 0;
};

TEST_F(MobileBroadbandTest, SwitchIsCompletedOnAnotherThreadWithItsRequest) {
    ULONG request = 0;
    ASSERT_EQ(S_OK, Radio()->SetSoftwareRadioState(MBN_RADIO_OFF, &request));
    ASSERT_TRUE(Eventually([this] { return m_sink.Completions().size() == 1; }));
    const Completion completion = m_sink.Completions().front();
    EXPECT_EQ(request, completion.request);
    EXPECT_EQ(S_OK, completion.status);
    EXPECT_EQ(MBN_RADIO_OFF, completion.state);
    EXPECT_NE(GetCurrentThreadId(), completion.thread);
    EXPECT_EQ(1, m_sink.Changes());
    EXPECT_EQ(MBN_RADIO_OFF, State(*Radio().Get()));
}

}  // namespace

}  // namespace Notebook::Tests
