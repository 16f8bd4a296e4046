#pragma once

#include <windows.h>
#include <wlanapi.h>
#include <wrl/client.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"

namespace Notebook::Tests {

using Microsoft::WRL::ComPtr;

/// What the hardware DLL, which is taken in on first use, has under a name.
class Export {
  public:
    explicit Export(const char* name);
    template <class Function>
    operator Function*() const {
        return reinterpret_cast<Function*>(m_address);
    }

  private:
    void* m_address;
};

/// The hardware DLL in this process.
class Hardware {
  public:
    static Hardware& Get();

    decltype(&::WlanOpenHandle) WlanOpenHandle = Export("WlanOpenHandle");
    decltype(&::WlanCloseHandle) WlanCloseHandle = Export("WlanCloseHandle");
    decltype(&::WlanEnumInterfaces) WlanEnumInterfaces = Export("WlanEnumInterfaces");
    decltype(&::WlanGetInterfaceCapability) WlanGetInterfaceCapability = Export("WlanGetInterfaceCapability");
    decltype(&::WlanSetInterface) WlanSetInterface = Export("WlanSetInterface");
    decltype(&::WlanQueryInterface) WlanQueryInterface = Export("WlanQueryInterface");
    decltype(&::WlanFreeMemory) WlanFreeMemory = Export("WlanFreeMemory");
    decltype(&::WlanRegisterNotification) WlanRegisterNotification = Export("WlanRegisterNotification");

    /// A new object of one of the classes that the DLL serves.
    template <class Interface>
    ComPtr<Interface> Create(REFCLSID clsid) {
        ComPtr<Interface> object;
        EXPECT_EQ(S_OK,
                  CreateObject(clsid, __uuidof(Interface), reinterpret_cast<void**>(object.GetAddressOf())));
        return object;
    }
    HRESULT CreateObject(REFCLSID clsid, REFIID iid, void** object);

  private:
    decltype(&::DllGetClassObject) m_getClassObject = Export("DllGetClassObject");
};

/// A fresh notebook for each test, this process in the multithreaded apartment, and everything
/// that the hardware gave out back at the end.
class NotebookTest : public testing::Test {
  protected:
    NotebookTest();
    ~NotebookTest() override;

    /// Makes it anew with other devices.
    static void Reset(const Shape& shape);
};

/// Waits up to five seconds of real time; returns whether it came to be.
bool Eventually(const std::function<bool()>& happened);

/// Runs the controller as a process of its own; returns its answer.
std::string RunController(const std::string& command);

}  // namespace Notebook::Tests
