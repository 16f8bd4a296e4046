#include "doctor/machine_now.h"

#include <windows.h>
#include <objbase.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <vector>

#include "doctor/analysis/analysis.h"
#include "doctor/inspection/readers.h"
#include "doctor/inspection/text.h"

namespace Doctor {
namespace {

/// This program's way into COM: the multithreaded apartment, as the service's worker has it. Security
/// is set for WMI, whose provider acts for who asks; it can be set once in a process.
class ComEntry {
  public:
    ComEntry() : m_isEntered(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        static_cast<void>(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
    }
    ComEntry(const ComEntry&) = delete;
    ComEntry& operator=(const ComEntry&) = delete;
    ~ComEntry() {
        if (m_isEntered) {
            CoUninitialize();
        }
    }

  private:
    bool m_isEntered;
};

/// The last decision in the service's log.
std::optional<Inspection::LastDecision> ReadLastDecision(const std::vector<Inspection::LogFolder>& folders) {
    std::vector<std::filesystem::path> paths;
    for (const Inspection::LogFolder& folder : folders) {
        for (const Inspection::LogFile& file : folder.files) {
            if (folder.isServices) {
                paths.emplace_back(Inspection::Wide(file.path));
            }
        }
    }
    if (paths.empty()) {
        return std::nullopt;
    }
    for (const Machine& machine : Analyse(paths, {})) {
        const std::vector<StoryEvent>& story = machine.history.story;
        const auto last = std::find_if(story.rbegin(), story.rend(), [](const StoryEvent& event) {
            return event.kind == StoryKind::kDecision;
        });
        if (last != story.rend()) {
            return Inspection::LastDecision{TimeText(last->time), last->text};
        }
    }
    return std::nullopt;
}

}  // namespace

Inspection::State LookAtMachine() {
    const ComEntry com;
    Inspection::State state = Inspection::ReadState();
    state.lastDecision = ReadLastDecision(state.logFolders);
    return state;
}

}  // namespace Doctor
