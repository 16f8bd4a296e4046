#pragma once

#include <atomic>
#include <mutex>

#include "platform/mbn_api.h"

/// Receives the Mobile Broadband API's radio events on its callback threads: wakes a switch in
/// progress, and reacts to changes that the service did not make. Reference counted; the last
/// `Release` destroys it.
class CMbnSinks final : public IMbnRadioEvents {
  public:
    CMbnSinks() = default;
    CMbnSinks(const CMbnSinks&) = delete;
    CMbnSinks& operator=(const CMbnSinks&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID interfaceId, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE OnRadioStateChange(IMbnRadio* radio) override;
    HRESULT STDMETHODCALLTYPE OnSetSoftwareRadioStateComplete(IMbnRadio* radio, ULONG requestId,
                                                              HRESULT status) override;

  private:
    ~CMbnSinks();

    std::atomic<ULONG> m_references{0};
    std::mutex m_eventLock;
};
