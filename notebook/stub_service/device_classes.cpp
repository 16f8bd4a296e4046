#include "notebook/stub_service/device_classes.h"

#include <windows.h>
#include <netlistmgr.h>

#include <vector>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/com_object.h"
#include "notebook/state/shared_state.h"
#include "platform/mbn_api.h"

namespace Notebook {

namespace {

std::vector<DWORD> g_cookies;

template <class Make>
bool Serve(REFCLSID clsid, Call call, Make make) {
    IUnknown* factory = nullptr;
    GetClassObject(call, make, IID_IUnknown, reinterpret_cast<void**>(&factory));
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
    return SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) &&
           Serve(CLSID_NetworkListManager, Call::NetworkListManagerCreate, &MakeNetworkListManager) &&
           Serve(CLSID_MbnInterfaceManager, Call::MbnInterfaceManagerCreate, &MakeMbnInterfaceManager);
}

void StopServingDevices() {
    for (const DWORD cookie : g_cookies) {
        CoRevokeClassObject(cookie);
    }
}

}  // namespace Notebook
