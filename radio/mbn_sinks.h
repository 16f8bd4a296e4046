#pragma once

#include <atomic>
#include <mutex>

#include "platform/mbn_api.h"

/// Receives the Mobile Broadband API's radio events on its callback threads. Reference counted; the last
/// `Release` destroys it.
///
/// The completion of a modem's radio change (`OnSetSoftwareRadioStateComplete`) does this, in order:
///  1. it remembers the radio, and wakes the switch that waits for it (radio/wwan_radio.cpp), whosever
///     change it is; its status is only logged;
///  2. that is all where the adapters cannot be read, while the service itself is switching, and in airplane
///     mode;
///  3. a change that the service did not make is the user's choice and is stored as such
///     (radio/power_status.h), unless a cable is in and LAN/WWAN switching enabled: then a modem that is on
///     is switched off again, and nothing is stored.
class CMbnSinks final : public IMbnRadioEvents {
  public:
    CMbnSinks() = default;
    CMbnSinks(const CMbnSinks&) = delete;
    CMbnSinks& operator=(const CMbnSinks&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE OnRadioStateChange(IMbnRadio* radio) override;
    HRESULT STDMETHODCALLTYPE OnSetSoftwareRadioStateComplete(IMbnRadio* radio, ULONG requestId,
                                                              HRESULT status) override;

  private:
    ~CMbnSinks();

    std::atomic<ULONG> m_references{0};
    std::mutex m_eventLock;
};
