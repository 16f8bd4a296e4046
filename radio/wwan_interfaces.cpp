#include "radio/wwan_interfaces.h"

#include <wrl/client.h>

#include <chrono>
#include <memory>
#include <utility>

#include "logging/log_scope.h"
#include "platform/mbn_api.h"
#include "radio/mbn_retry.h"
#include "radio/wwan_state.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr MbnCall kGetInterfaces{
    std::chrono::milliseconds{500},
    L"GetInterfaces failed in try %d with !err is 0x%08X",
    L"GetInterfaces failed with error: HRESULT : 0x%08X",
};

constexpr UINT kOnlyDimension = 1;

/// Bounds of a vector, both ends included. An empty one ends before it begins.
struct Bounds {
    LONG lower = 0;
    LONG upper = -1;

    [[nodiscard]] ULONGLONG Count() const {
        return upper < lower ? 0 : static_cast<ULONGLONG>(LONGLONG{upper} - lower) + 1;
    }
};

HRESULT GetBounds(SAFEARRAY* array, Bounds& bounds) {
    const HRESULT result = SafeArrayGetLBound(array, kOnlyDimension, &bounds.lower);
    return FAILED(result) ? result : SafeArrayGetUBound(array, kOnlyDimension, &bounds.upper);
}

HRESULT GetElement(SAFEARRAY* array, LONG index, ComPtr<IMbnInterface>& element) {
    ComPtr<IUnknown> unknown;
    const HRESULT got = SafeArrayGetElement(array, &index, unknown.GetAddressOf());
    const HRESULT result = Platform::RequireObject(got, unknown);
    if (FAILED(result)) {
        return result;
    }
    const HRESULT queried =
        unknown->QueryInterface(IID_IMbnInterface, reinterpret_cast<void**>(element.GetAddressOf()));
    return Platform::RequireObject(queried, element, E_NOINTERFACE);
}

HRESULT GetIdentifier(IMbnInterface& mbnInterface, GUID& identifier) {
    Platform::UniqueBstr text;
    const HRESULT result = mbnInterface.get_InterfaceID(text.Put());
    if (FAILED(result)) {
        return result;
    }
    // No text would be taken for the null identifier.
    return text ? IIDFromString(text.Get(), &identifier) : CO_E_IIDSTRING;
}

HRESULT CopyIdentifiers(SAFEARRAY* array, const Bounds& bounds, GUID* identifiers) {
    for (LONGLONG index = bounds.lower; index <= bounds.upper; ++index) {
        ComPtr<IMbnInterface> element;
        HRESULT result = GetElement(array, static_cast<LONG>(index), element);
        if (SUCCEEDED(result)) {
            result = GetIdentifier(*element.Get(), *identifiers++);
        }
        if (FAILED(result)) {
            return result;
        }
    }
    return S_OK;
}

/// Records each identifier in turn, so that the last one stays. False when one of them failed or
/// there was none.
bool RecordInterfaces(const LogScope& log, const GUID* identifiers, ULONG count) {
    bool succeeded = count > 0;
    for (ULONG i = 0; i < count; ++i) {
        Platform::UniqueCoTaskText text;
        const HRESULT result = StringFromIID(identifiers[i], text.Put());
        if (FAILED(result) || !text) {
            succeeded = log.Failure(false, L"StringFromIID failed with error 0x%08X", result);
            continue;
        }
        log.Information(L"WWAN Interface = %s", text.Get());
        WwanState::interfaceId = text.Get();
    }
    return succeeded;
}

bool FindInterfaces(const LogScope& log) {
    const std::shared_ptr<IMbnInterfaceManager> manager = WwanState::interfaceManager;
    if (manager == nullptr) {
        return log.Failure(false, L"IMbnInterfaceManager is NULL");
    }
    Platform::UniqueSafeArray interfaces;
    if (FAILED(
            CallWithRetries(log, kGetInterfaces, [&] { return manager->GetInterfaces(interfaces.Put()); }))) {
        return false;
    }
    ULONG count = 0;
    Platform::UniqueProcessHeap<GUID> identifiers;
    const HRESULT result = NLMUtils::CopyArrayOfInterfaces(interfaces.Get(), &count, &identifiers);
    if (FAILED(result)) {
        return log.Failure(false, L"CopyArrayOfInterfaces Failed with error 0x%08X", result);
    }
    return RecordInterfaces(log, identifiers.Get(), count);
}

}  // namespace

HRESULT NLMUtils::CopyArrayOfInterfaces(SAFEARRAY* interfaces, ULONG* count,
                                        Platform::UniqueProcessHeap<GUID>* identifiers) {
    const LogScope log("NLMUtils::CopyArrayOfInterfaces");
    if (interfaces == nullptr || count == nullptr || identifiers == nullptr) {
        return E_POINTER;
    }
    *count = 0;
    identifiers->Reset();
    // Anything else but a vector of references would be misread element by element.
    if (SafeArrayGetDim(interfaces) != kOnlyDimension ||
        (interfaces->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) == 0) {
        return DISP_E_TYPEMISMATCH;
    }
    Bounds bounds;
    HRESULT result = GetBounds(interfaces, bounds);
    if (FAILED(result)) {
        return result;
    }
    // A descriptor may claim elements for which nobody ever made room.
    if (interfaces->pvData == nullptr && bounds.Count() != 0) {
        return E_POINTER;
    }
    auto copy = Platform::AllocateFromProcessHeap<GUID>(bounds.Count() * sizeof(GUID));
    if (!copy) {
        return log.Failure(E_OUTOFMEMORY, L"CopyArrayOfInterfaces malloc failed!!");
    }
    result = CopyIdentifiers(interfaces, bounds, copy.Get());
    if (SUCCEEDED(result)) {
        *count = static_cast<ULONG>(bounds.Count());
        *identifiers = std::move(copy);
    }
    return result;
}

bool ServiceUtils::EnumerateWwanInterfaces() {
    LogScope log("ServiceUtils::EnumerateWwanInterfaces");
    return log.Return(L"Return = %d", log.Guard(false, [&] { return FindInterfaces(log); }));
}
