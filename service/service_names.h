#pragma once

/// Names under which this service and those it depends on are registered.
namespace ServiceNames {
constexpr wchar_t kService[] = L"LinkvaneService";
constexpr wchar_t kDisplay[] = L"Linkvane Service";
constexpr wchar_t kWlanAutoConfig[] = L"WlanSvc";
constexpr wchar_t kWwanAutoConfig[] = L"WwanSvc";
/// What the service depends on, each with its end, as CreateServiceW takes it. Both are needed by every
/// start: no radio can be switched without its own service.
constexpr wchar_t kDependencies[] = L"WlanSvc\0WwanSvc\0";
}  // namespace ServiceNames
