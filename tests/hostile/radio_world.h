#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <string>
#include <vector>

#include "tests/hostile/random.h"
#include "tests/support/scoped_import.h"
#include "tests/support/test_clock.h"

namespace HostileBytes {

/// What a notification finds beside the radio: the cable, airplane mode, and where the choice is stored.
class RadioWorld {
  public:
    void Draw(Random& random) {
        isReadable = !random.OneIn(8);
        isCableIn = random.OneIn(2);
        inAirplaneMode = random.OneIn(4);
        stored.clear();
        m_clock.ForgetRecords();
    }

    bool isReadable = true;
    bool isCableIn = false;
    bool inAirplaneMode = false;
    std::vector<std::wstring> stored;  ///< what was written as a choice, in order

  private:
    DWORD List(IP_ADAPTER_INFO* list) const {
        if (!isReadable) {
            return ERROR_NOT_SUPPORTED;
        }
        *list = {};
        list->Type = isCableIn ? MIB_IF_TYPE_ETHERNET : 71;
        return ERROR_SUCCESS;
    }

    Rig::TestClock m_clock;
    Rig::ScopedImport<&::GetAdaptersInfo> m_info{
        [this](IP_ADAPTER_INFO* list, ULONG*) { return List(list); }};
    Rig::ScopedImport<&::RegOpenKeyExW> m_open{[](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) -> LSTATUS {
        *key = reinterpret_cast<HKEY>(std::uintptr_t{0x1000});
        return ERROR_SUCCESS;
    }};
    Rig::ScopedImport<&::RegCreateKeyExW> m_create{
        [](HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM, SECURITY_ATTRIBUTES*, PHKEY key, LPDWORD) -> LSTATUS {
            *key = reinterpret_cast<HKEY>(std::uintptr_t{0x1000});
            return ERROR_SUCCESS;
        }};
    Rig::ScopedImport<&::RegQueryValueExW> m_query{
        [this](HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE buffer, LPDWORD) -> LSTATUS {
            const DWORD mode = inAirplaneMode ? 1 : 0;
            Copy(buffer, &mode, sizeof(mode));
            return ERROR_SUCCESS;
        }};
    Rig::ScopedImport<&::RegSetValueExW> m_set{
        [this](HKEY, LPCWSTR, DWORD, DWORD, const BYTE* data, DWORD bytes) -> LSTATUS {
            stored.emplace_back(reinterpret_cast<const wchar_t*>(data), bytes / sizeof(wchar_t) - 1);
            return ERROR_SUCCESS;
        }};
    Rig::ScopedImport<&::RegCloseKey> m_close{[](HKEY) -> LSTATUS { return ERROR_SUCCESS; }};
};

}  // namespace HostileBytes
