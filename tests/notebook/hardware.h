#pragma once

#include <windows.h>
#include <wlanapi.h>
#include <wrl/client.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>

#include "notebook/hardware/class_objects.h"
#include "notebook/hardware/wlan.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"

namespace Notebook::Tests {

using Microsoft::WRL::ComPtr;

/// A new object of one of the classes that the notebook serves.
template <class Interface>
ComPtr<Interface> CreateDevice(REFCLSID clsid) {
    ComPtr<IClassFactory> factory;
    EXPECT_EQ(S_OK,
              GetDeviceClass(clsid, IID_IClassFactory, reinterpret_cast<void**>(factory.GetAddressOf())));
    ComPtr<Interface> object;
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, __uuidof(Interface),
                                            reinterpret_cast<void**>(object.GetAddressOf())));
    return object;
}

/// The notebook's devices in this process, whose state other processes share: a fresh notebook for each test,
/// this process in the multithreaded apartment, and everything that the devices gave out back at the end.
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
