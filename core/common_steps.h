#pragma once

#include <windows.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <string>

#include "radio/power_status.h"

class LogScope;

/// Steps that several operations of the core have in common, each with the log lines that belong
/// to it, which go under the name of the operation that asks. Callable on any thread.
namespace CoreSteps {

/// Wait until the service runs. One that does not come up in time costs an error line, nothing
/// more: the callers go on and let the radio operations find out.
void WaitForWlanAutoConfig(const LogScope& log);
void WaitForWwanAutoConfig(const LogScope& log);

/// Whether a COM step succeeded. If not, writes `failureLine`, which has one placeholder, with the
/// result.
[[nodiscard]] bool StepSucceeded(const LogScope& log, HRESULT result, const wchar_t* failureLine);

/// What another process answers may be a success without its object; that is a failure, too.
template <class Interface>
[[nodiscard]] HRESULT RequireObject(HRESULT result, const Microsoft::WRL::ComPtr<Interface>& object) {
    return SUCCEEDED(result) && object == nullptr ? E_POINTER : result;
}

/// The container of a manager's connection points. `manager` is null when a stop has taken it away
/// already: E_POINTER.
template <class Manager>
[[nodiscard]] HRESULT QueryContainer(const Microsoft::WRL::ComPtr<Manager>& manager,
                                     Microsoft::WRL::ComPtr<IConnectionPointContainer>& container) {
    if (manager == nullptr) {
        return E_POINTER;
    }
    const HRESULT result = manager->QueryInterface(IID_PPV_ARGS(container.GetAddressOf()));
    return RequireObject(result, container);
}

/// The remembered state that a text from the registry stands for: on only for exactly "True".
[[nodiscard]] ServiceUtils::RadioStatus RadioStatusFromText(const std::wstring& text);

}  // namespace CoreSteps
