#include "notebook/hardware/class_objects.h"

#include <netlistmgr.h>
#include <wbemcli.h>

#include "notebook/hardware/com_object.h"
#include "platform/mbn_api.h"

namespace Notebook {

const char* EventsName(REFIID events) {
    const struct {
        const IID& id;
        const char* name;
    } known[] = {{IID_INetworkListManagerEvents, "INetworkListManagerEvents"},
                 {IID_INetworkConnectionEvents, "INetworkConnectionEvents"},
                 {IID_INetworkEvents, "INetworkEvents"},
                 {IID_IMbnRadioEvents, "IMbnRadioEvents"}};
    for (const auto& [id, name] : known) {
        if (IsEqualIID(events, id)) {
            return name;
        }
    }
    return "other events";
}

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
