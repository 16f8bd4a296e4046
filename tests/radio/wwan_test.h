#pragma once

#include <ocidl.h>
#include <wrl/client.h>

#include <string>
#include <vector>

#include "radio/mbn_sinks.h"
#include "tests/radio/machine.h"

namespace RadioTests {

using ::Notebook::ConfirmRadio;

/// A test on a machine with modems, each on, published as the start-up worker does: the last one is the
/// one to switch. The service's sink is subscribed. The process-wide state is empty again at the end.
class WwanTest : public RadioTest {
  protected:
    WwanTest();
    ~WwanTest() override;

    /// Makes the machine anew with so many modems, and publishes them.
    void SetModems(std::uint32_t count);
    [[nodiscard]] ::Notebook::Modem& Modem(std::size_t number = 0) const { return m_notebook.Modem(number); }
    [[nodiscard]] bool IsOn() const { return Modem().software != 0; }

    /// Has the modem do what it is asked and say so after that time; nothing is said if there is none.
    void ConfirmAfter(std::chrono::milliseconds delay) const;
    void FollowWithoutAWord() const { Modem().confirmMs = kForEver; }
    /// Has the modem say yes to every request, stay as it is and say nothing more.
    void IgnoreRequests() const;

    /// The states that the modems were asked for so far: "modem 1 to 0".
    [[nodiscard]] std::vector<std::string> Sets() const;
    [[nodiscard]] int SetCount() const { return m_notebook.Count(Call::MbnRadioSetSoftwareRadioState); }
    /// References that the code under test holds to the devices' objects.
    [[nodiscard]] LONG References() const { return m_notebook.Held().comReferences - m_ownReferences; }

    /// Reports a completion to the sink; the caller holds the radio meanwhile, as COM's rules want it.
    HRESULT Complete(ULONG requestId = 1, HRESULT status = S_OK,
                     ConfirmRadio kind = ConfirmRadio::Same) const;

    CMbnSinks* m_sink = new CMbnSinks;

  private:
    void Publish();

    Microsoft::WRL::ComPtr<IConnectionPoint> m_events;
    DWORD m_cookie = 0;
    LONG m_ownReferences = 0;
};

/// The warnings of tries that failed, and behind them, where `givenUp` is not null, the error that ends them.
/// The texts have "%d" for the number of the try, from 0, and end where the HRESULT begins.
[[nodiscard]] std::vector<Rig::LogLine> FailedTries(const char* operation, int tries, const wchar_t* failed,
                                                    const std::wstring& error,
                                                    const wchar_t* givenUp = nullptr);

}  // namespace RadioTests
