// The notebook's hardware: one DLL that is the WLAN interface of the executable it stands beside and
// the in-process server of the COM classes that the executable uses.

#include <windows.h>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/start.h"
#include "notebook/state/shared_state.h"

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
    return object == nullptr ? E_POINTER : Notebook::GetDeviceClass(clsid, iid, object);
}

STDAPI DllCanUnloadNow() {
    // Its threads run until the process ends.
    return S_FALSE;
}
