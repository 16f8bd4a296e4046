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
    const struct {
        const CLSID& id;
        Call create;
        Maker make;
    } served[] = {{CLSID_NetworkListManager, Call::NetworkListManagerCreate, &MakeNetworkListManager},
                  {CLSID_MbnInterfaceManager, Call::MbnInterfaceManagerCreate, &MakeMbnInterfaceManager},
                  {CLSID_WbemLocator, Call::WbemLocatorCreate, &MakeWbemLocator}};
    *object = nullptr;
    for (const auto& [id, create, make] : served) {
        if (IsEqualCLSID(clsid, id)) {
            auto* const factory = new ClassObject(create, make);
            const HRESULT result = factory->QueryInterface(iid, object);
            factory->Release();
            return result;
        }
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

}  // namespace Notebook
