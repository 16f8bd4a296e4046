#pragma once

/// Names under which this service and those it depends on are registered.
namespace ServiceNames {
constexpr wchar_t kService[] = L"LinkvaneService";
constexpr wchar_t kDisplay[] = L"Linkvane Service";
constexpr wchar_t kWlanAutoConfig[] = L"WlanSvc";
constexpr wchar_t kWwanAutoConfig[] = L"WwanSvc";
}  // namespace ServiceNames
