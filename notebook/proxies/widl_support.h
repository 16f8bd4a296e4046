/* Stands before everything that widl writes: what its code takes for granted and mingw-w64's headers
 * leave out or name otherwise. */
#pragma once

#define WIN32
#define CINTERFACE
#define REGISTER_PROXY_DLL
#define PROXY_DELEGATION
/* The class of the proxies is one of the notebook's own. */
#define PROXY_CLSID_IS                                     \
    {                                                      \
        0x5E0C4D52, 0x3B1A, 0x4F7E, {                      \
            0x9A, 0x61, 0x2C, 0xD4, 0x07, 0x8B, 0xE3, 0x15 \
        }                                                  \
    }

#include <windows.h>
#include <unknwn.h>

/* Names of Wine's headers. */
#define Prev prev
#define EH_UNWINDING 0x2
#define EH_EXIT_UNWIND 0x4
#define EH_NESTED_CALL 0x10

HRESULT WINAPI IUnknown_QueryInterface_Proxy(IUnknown* object, REFIID iid, void** found);
ULONG WINAPI IUnknown_AddRef_Proxy(IUnknown* object);
ULONG WINAPI IUnknown_Release_Proxy(IUnknown* object);

/* Arrays are unmarshalled by way of safe_array.cpp. */
#define LPSAFEARRAY_UserUnmarshal NotebookUnmarshalArray
