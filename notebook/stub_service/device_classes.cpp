#include "notebook/stub_service/device_classes.h"

#include <windows.h>
#include <netlistmgr.h>
#include <ocidl.h>

#include <algorithm>
#include <iterator>
#include <vector>

#include "notebook/hardware/class_objects.h"
#include "notebook/state/shared_state.h"
#include "platform/mbn_api.h"

namespace Notebook {

namespace {

std::vector<DWORD> g_cookies;

/// Has one interface, which nobody calls.
class Keeper final : public IUnknown {
  public:
    explicit Keeper(REFIID iid) : m_iid(iid) {}
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        *object = IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, m_iid) ? this : nullptr;
        return *object == nullptr ? E_NOINTERFACE : S_OK;
    }
    // Lives as long as the process.
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

  private:
    IID m_iid;
};

/// Keeps a stub of the interface until the process ends. Without one Wine's COM would withdraw the
/// interface with its last object, and wait meanwhile, under a lock of all calls, for a call that
/// may itself wait for the lock: nobody would be answered any more.
bool Keep(REFIID iid) {
    IStream* stream = nullptr;
    if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, &stream))) {
        return false;
    }
    const HRESULT kept =
        CoMarshalInterface(stream, iid, new Keeper(iid), MSHCTX_LOCAL, nullptr, MSHLFLAGS_TABLESTRONG);
    stream->Release();
    return SUCCEEDED(kept);
}

bool Serve(REFCLSID clsid) {
    IUnknown* factory = nullptr;
    GetDeviceClass(clsid, IID_IUnknown, reinterpret_cast<void**>(&factory));
    DWORD cookie = 0;
    const HRESULT registered =
        CoRegisterClassObject(clsid, factory, CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie);
    factory->Release();
    g_cookies.push_back(cookie);
    return SUCCEEDED(registered);
}

}  // namespace

bool ServeDevices() {
    SharedState::Get().BecomeDeviceServer();
    constexpr const IID* kInterfaces[] = {
        &IID_IClassFactory,
        &IID_IConnectionPointContainer,
        &IID_IConnectionPoint,
        &IID_INetworkListManager,
        &IID_IEnumNetworkConnections,
        &IID_INetworkConnection,
        &IID_INetwork,
        &IID_IMbnInterfaceManager,
        &IID_IMbnInterface,
        &IID_IMbnRadio,
    };
    return SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) &&
           std::all_of(std::begin(kInterfaces), std::end(kInterfaces),
                       [](const IID* iid) { return Keep(*iid); }) &&
           Serve(CLSID_NetworkListManager) && Serve(CLSID_MbnInterfaceManager);
}

void StopServingDevices() {
    for (const DWORD cookie : g_cookies) {
        CoRevokeClassObject(cookie);
    }
}

}  // namespace Notebook
