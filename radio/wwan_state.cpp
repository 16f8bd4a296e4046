#include "radio/wwan_state.h"

namespace WwanState {

std::atomic<std::shared_ptr<IMbnInterfaceManager>>& interfaceManager =
    *new std::atomic<std::shared_ptr<IMbnInterfaceManager>>();
std::wstring& interfaceId = *new std::wstring();
std::atomic<bool> devicePresent{false};
std::atomic<std::shared_ptr<Platform::UniqueHandle>>& radioChangeEvent =
    *new std::atomic<std::shared_ptr<Platform::UniqueHandle>>();
std::atomic<bool> NetworkChangedForSetRadio{false};
std::atomic<std::shared_ptr<IMbnRadio>>& lastRadio = *new std::atomic<std::shared_ptr<IMbnRadio>>();
std::mutex switchLock;
std::atomic<bool> offWithoutEthernet{false};

namespace {

/// Its destructor runs on the main thread behind `wmain`, before the system ends the other threads and
/// unloads any library, and inside the multithreaded apartment, which the process holds. (Where it could
/// not, which the start has logged, Windows decides what becomes of the calls.) So the references go as at
/// any other time: to a server that is gone, with an error that nobody looks at; to one that does not
/// answer, when it does. The service has been reported as stopped by then. A thread that is still at work
/// holds references of its own, or finds the holders empty.
struct ReleaseAtExit {
    ReleaseAtExit() = default;
    ReleaseAtExit(const ReleaseAtExit&) = delete;
    ReleaseAtExit& operator=(const ReleaseAtExit&) = delete;
    ~ReleaseAtExit() {
        lastRadio.store(nullptr);
        interfaceManager.store(nullptr);
    }
} releaseAtExit;

}  // namespace

}  // namespace WwanState
