// The notebook's hardware: one DLL that is the WLAN interface of the executable it stands beside and
// the in-process server of the COM classes that the executable uses.

#include <windows.h>
#include <netlistmgr.h>
#include <wbemcli.h>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/com_object.h"
#include "notebook/hardware/start.h"
#include "notebook/state/shared_state.h"
#include "platform/mbn_api.h"

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
        Notebook::SharedState::Get();
        Notebook::StartWlan();
        Notebook::ReplaceAdapterList();
        Notebook::ReplaceServiceControl();
        Notebook::ReplaceEventLog();
        Notebook::ReplaceWaits();
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID iid, LPVOID* object) {
    using namespace Notebook;
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (IsEqualCLSID(clsid, CLSID_NetworkListManager)) {
        return GetClassObject(Call::NetworkListManagerCreate, &MakeNetworkListManager, iid, object);
    }
    if (IsEqualCLSID(clsid, CLSID_MbnInterfaceManager)) {
        return GetClassObject(Call::MbnInterfaceManagerCreate, &MakeMbnInterfaceManager, iid, object);
    }
    if (IsEqualCLSID(clsid, CLSID_WbemLocator)) {
        return GetClassObject(Call::WbemLocatorCreate, &MakeWbemLocator, iid, object);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() {
    // Its threads run until the process ends.
    return S_FALSE;
}
