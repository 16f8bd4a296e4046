#pragma once

#include <windows.h>
#include <netlistmgr.h>

/// Of <netlistmgr.h> from Windows 8.1 on. Headers that do not have it want no more than its name.
struct NLM_SIMULATED_PROFILE_INFO;

namespace Notebook {

/// What stands in for the Network List Manager is derived from this: the operations that not all headers
/// have, or have under the same name. Microsoft's "INetworkListManager interface" has get_IsConnected,
/// get_IsConnectedToInternet and the two for simulated profiles; mingw-w64 calls the first two otherwise and
/// lacks the others. Whichever of these a header declares, they override without saying so.
class NetworkListManagerBase : public INetworkListManager {
  public:
    HRESULT STDMETHODCALLTYPE IsConnectedToInternet(VARIANT_BOOL* /*value*/) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE IsConnected(VARIANT_BOOL* /*value*/) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_IsConnectedToInternet(VARIANT_BOOL* /*value*/) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE get_IsConnected(VARIANT_BOOL* /*value*/) { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSimulatedProfileInfo(NLM_SIMULATED_PROFILE_INFO* /*info*/) {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE ClearSimulatedProfileInfo() { return E_NOTIMPL; }
};

}  // namespace Notebook
