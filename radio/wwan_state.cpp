#include "radio/wwan_state.h"

namespace WwanState {

Microsoft::WRL::ComPtr<IMbnInterfaceManager> interfaceManager;
std::wstring& interfaceId = *new std::wstring();
std::atomic<bool> devicePresent{false};
std::atomic<std::shared_ptr<Platform::UniqueHandle>>& radioChangeEvent =
    *new std::atomic<std::shared_ptr<Platform::UniqueHandle>>();
std::atomic<bool> NetworkChangedForSetRadio{false};
std::atomic<std::shared_ptr<IMbnRadio>>& lastRadio = *new std::atomic<std::shared_ptr<IMbnRadio>>();
std::mutex switchLock;
std::atomic<bool> offWithoutEthernet{false};

std::shared_ptr<IMbnRadio> ShareRadio(IMbnRadio* radio) {
    if (radio == nullptr) {
        return nullptr;
    }
    radio->AddRef();
    return {radio, [](IMbnRadio* shared) { shared->Release(); }};
}

}  // namespace WwanState
