#pragma once

#include <windows.h>
#include <wlanapi.h>

// The WLAN interface of the notebook, by the names of Windows' own (<wlanapi.h>).

extern "C" {

decltype(::WlanOpenHandle) NotebookWlanOpenHandle;
decltype(::WlanCloseHandle) NotebookWlanCloseHandle;
decltype(::WlanEnumInterfaces) NotebookWlanEnumInterfaces;
decltype(::WlanGetInterfaceCapability) NotebookWlanGetInterfaceCapability;
decltype(::WlanSetInterface) NotebookWlanSetInterface;
decltype(::WlanQueryInterface) NotebookWlanQueryInterface;
decltype(::WlanFreeMemory) NotebookWlanFreeMemory;
decltype(::WlanRegisterNotification) NotebookWlanRegisterNotification;

}  // extern "C"
