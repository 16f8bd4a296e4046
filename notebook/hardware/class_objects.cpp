#include "notebook/hardware/class_objects.h"

#include <netlistmgr.h>
#include <wbemcli.h>

#include "notebook/hardware/com_object.h"
#include "platform/mbn_api.h"

namespace Notebook {

HRESULT GetDeviceClass(REFCLSID clsid, REFIID iid, void** object) {
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

}  // namespace Notebook
