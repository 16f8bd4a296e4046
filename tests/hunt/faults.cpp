#include "tests/hunt/faults.h"

#include <iphlpapi.h>
#include <objbase.h>
#include <oleauto.h>
#include <wbemcli.h>
#include <wlanapi.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>
#include <type_traits>

#include "logging/log_data.h"
#include "network/nlm_event_handler.h"
#include "notebook/state/calls.h"
#include "notebook/state/shared_state.h"
#include "tests/hunt/operations.h"
#include "tests/support/scoped_import.h"

namespace RandomEvents {

using Rig::Call;
using Rig::Detail::NameOf;

namespace {

constexpr char kMemory[] = "memory";

constexpr std::uint32_t Code(HRESULT result) {
    return static_cast<std::uint32_t>(result);
}

// What a function of each kind can answer.
const std::vector<Answer> kResult = {{"error", Code(E_FAIL)}};
const std::vector<Answer> kObject = {{"error", Code(E_FAIL)}, {"nothing", Code(S_OK)}};
const std::vector<Answer> kError = {{"error", ERROR_GEN_FAILURE}};
const std::vector<Answer> kMemoryGiven = {{"error", ERROR_GEN_FAILURE}, {"nothing", ERROR_SUCCESS}};
const std::vector<Answer> kNoMemory = {{"error", ERROR_NOT_ENOUGH_MEMORY}};

struct FailingCall {
    Call call;
    std::vector<Answer> answers;
};

const std::vector<FailingCall>& FailingCalls() {
    static const std::vector<FailingCall> calls = {
        {Call::WlanOpenHandle, {{"error", ERROR_NOT_ENOUGH_MEMORY}}},
        {Call::WlanEnumInterfaces, kMemoryGiven},
        {Call::WlanGetInterfaceCapability, kMemoryGiven},
        {Call::WlanSetInterface, kError},
        {Call::WlanQueryInterface, kMemoryGiven},
        {Call::WlanRegisterNotification, {{"error", ERROR_NOT_ENOUGH_MEMORY}}},
        {Call::GetAdaptersInfo,
         {{"error", ERROR_NOT_SUPPORTED}, {"short", ERROR_BUFFER_OVERFLOW}, {"nothing", ERROR_NO_DATA}}},
        {Call::GetAdaptersAddresses,
         {{"error", ERROR_NOT_ENOUGH_MEMORY}, {"short", ERROR_BUFFER_OVERFLOW}, {"nothing", ERROR_NO_DATA}}},
        {Call::IsNetworkAlive, kError},
        {Call::NetworkListManagerGetNetworkConnections, kObject},
        {Call::NetworkListManagerGetNetworkConnection,
         {{"error", Code(E_FAIL)}, {"nothing", Code(S_OK)}, {"false", Code(S_FALSE)}}},
        {Call::NetworkConnectionsNext, kObject},
        {Call::NetworkConnectionGetNetwork, kObject},
        {Call::NetworkConnectionIsConnected, kResult},
        {Call::NetworkConnectionIsConnectedToInternet, kResult},
        {Call::NetworkConnectionGetConnectivity, kResult},
        {Call::NetworkConnectionGetConnectionId, kResult},
        {Call::NetworkConnectionGetAdapterId, kResult},
        {Call::NetworkGetName, kObject},
        {Call::FindConnectionPoint, kObject},
        {Call::Advise, kResult},
        {Call::Unadvise, kResult},
        {Call::MbnInterfaceManagerGetInterface,
         {{"error", Code(E_FAIL)}, {"pending", Code(E_PENDING)}, {"nothing", Code(S_OK)}}},
        {Call::MbnInterfaceManagerGetInterfaces,
         {{"error", Code(E_FAIL)}, {"pending", Code(E_PENDING)}, {"nothing", Code(S_OK)}}},
        {Call::MbnInterfaceQueryInterface, kObject},
        {Call::MbnInterfaceGetInterfaceId, kObject},
        {Call::MbnRadioGetSoftwareRadioState, kResult},
        {Call::MbnRadioSetSoftwareRadioState,
         {{"error", Code(E_FAIL)}, {"pending", Code(E_PENDING)}, {"nothing", Code(S_OK)}}},
        {Call::WbemConnectServer, kObject},
        {Call::WbemSetBlanket, kResult},
        {Call::WbemExecQuery, kObject},
        {Call::WbemNext,
         {{"error", Code(E_FAIL)}, {"timeout", WBEM_S_TIMEDOUT}, {"false", WBEM_S_FALSE}, {"nothing", 0}}},
        {Call::WbemGet, {{"error", Code(E_FAIL)}, {"nothing", Code(S_OK)}}},
        {Call::ReportEvent, kError},
        {Call::QueryServiceStatusEx, kError},
        {Call::ChangeServiceConfig2, kError},
    };
    return calls;
}

const std::vector<Function>& Imports() {
    static const std::vector<Function> imports = {
        {"CoCreateInstance", {{"error", Code(REGDB_E_CLASSNOTREG)}}},
        {"CoInitializeEx", {{"error", Code(E_OUTOFMEMORY)}, {"mode", Code(RPC_E_CHANGED_MODE)}}},
        {"CoInitializeSecurity", kResult},
        {"IIDFromString", {{"error", Code(CO_E_IIDSTRING)}}},
        {"StringFromCLSID", {{"error", Code(E_OUTOFMEMORY)}}},
        {"StringFromIID", {{"error", Code(E_OUTOFMEMORY)}}},
        {"SysAllocString", kNoMemory},
        {"VariantChangeType", {{"type", Code(DISP_E_TYPEMISMATCH)}, {"error", Code(E_OUTOFMEMORY)}}},
        {"SafeArrayGetLBound", kResult},
        {"SafeArrayGetUBound", kResult},
        {"SafeArrayGetElement", kResult},
        {"HeapAlloc", kNoMemory},
        {"LocalAlloc", kNoMemory},
        {"GetModuleFileNameW", {{"error", 0}}},
        {"GetFileVersionInfoSizeW", {{"error", 0}}},
        {"GetFileVersionInfoW", kError},
        {"VerQueryValueW", kError},
        {"CreateEventW", kNoMemory},
        {"SetEvent", {{"error", ERROR_INVALID_HANDLE}}},
        {"WaitForSingleObject", {{"failed", WAIT_FAILED}, {"timeout", WAIT_TIMEOUT}}},
        {"CloseHandle", {{"error", ERROR_INVALID_HANDLE}}},
        {"WlanCloseHandle", {{"error", ERROR_INVALID_HANDLE}}},
        {"QueueUserWorkItem", kNoMemory},
        {"OpenSCManagerW", {{"error", ERROR_ACCESS_DENIED}}},
        {"OpenServiceW", {{"error", ERROR_ACCESS_DENIED}, {"missing", ERROR_SERVICE_DOES_NOT_EXIST}}},
        {"CloseServiceHandle", {{"error", ERROR_INVALID_HANDLE}}},
        {"RegisterEventSourceW", kNoMemory},
        {"DeregisterEventSource", {{"error", ERROR_INVALID_HANDLE}}},
        {"RegOpenKeyExW", {{"error", ERROR_ACCESS_DENIED}, {"missing", ERROR_FILE_NOT_FOUND}}},
        {"RegCreateKeyExW", {{"error", ERROR_ACCESS_DENIED}}},
        {"RegQueryValueExW", {{"error", ERROR_MORE_DATA}, {"missing", ERROR_FILE_NOT_FOUND}}},
        {"RegSetValueExW", {{"error", ERROR_ACCESS_DENIED}}},
        {"RegCloseKey", {{"error", ERROR_INVALID_HANDLE}}},
        {"RegNotifyChangeKeyValue", {{"error", ERROR_NOT_ENOUGH_MEMORY}}},
        {kMemory, {{"none", 0}}},
    };
    return imports;
}

std::size_t Find(std::string_view name) {
    const auto found = std::ranges::find(
        FailingFunctions(), name, [](const Function& function) { return std::string_view(function.name); });
    if (found == FailingFunctions().end()) {
        throw std::runtime_error("no call: " + std::string(name));
    }
    return static_cast<std::size_t>(found - FailingFunctions().begin());
}

LONG CallsEnded() {
    return Notebook::SharedState::Get().OwnActivity().callsEnded;
}

/// Where a thread is. What an earlier play left counts no more.
struct Place {
    std::uint32_t play = 0;
    Operations operations;
    int calls = 0;  ///< into what is replaced here
    bool hasCalledDevice = false;
    LONG endedBefore = 0;  ///< calls of devices, when this thread's last one began

    [[nodiscard]] bool IsInService() const {
        return !operations.Names().empty() && calls == 0 && !(hasCalledDevice && CallsEnded() == endedBefore);
    }
};

std::uint32_t g_play = 0;
Faults* g_faults = nullptr;

Place& Here() {
    thread_local Place place;
    if (place.play != g_play) {
        place = {};
        place.play = g_play;
    }
    return place;
}

class InsideCall {
  public:
    InsideCall() { ++Here().calls; }
    InsideCall(const InsideCall&) = delete;
    InsideCall& operator=(const InsideCall&) = delete;
    ~InsideCall() { --Here().calls; }
};

/// What a function returns in place of its work.
template <class Result>
Result Failed(std::uint32_t value) {
    if constexpr (std::is_pointer_v<Result> || std::is_same_v<Result, BOOL>) {
        SetLastError(value);
        return Result{};
    } else {
        SetLastError(ERROR_GEN_FAILURE);
        return static_cast<Result>(value);
    }
}

template <auto Function>
struct ResultOf;
template <class R, class... Args, R(WINAPI* Target)(Args...)>
struct ResultOf<Target> {
    using Type = R;
};

}  // namespace

bool Strike::IsIn(std::string_view operation) const {
    return std::ranges::count(operations, operation) != 0;
}

std::string Strike::Text() const {
    std::string text = function;
    for (const std::string& operation : operations) {
        text += (&operation == &operations.front() ? " in " : ", ") + operation;
    }
    return text;
}

const std::vector<Function>& FailingFunctions() {
    static const std::vector<Function> functions = [] {
        std::vector<Function> all;
        for (const FailingCall& failing : FailingCalls()) {
            all.push_back({Notebook::CallName(failing.call).data(), failing.answers});
        }
        all.insert(all.end(), Imports().begin(), Imports().end());
        return all;
    }();
    return functions;
}

std::string Fault::Text() const {
    const Function& called = FailingFunctions()[function];
    return std::string(called.name) + " " + std::to_string(nth) + " " + called.answers[answer].name;
}

Fault ReadFault(const std::string& function, const std::string& nth, const std::string& answer) {
    Fault fault{Find(function), static_cast<std::uint32_t>(std::strtoul(nth.c_str(), nullptr, 10)), 0};
    const std::vector<Answer>& answers = FailingFunctions()[fault.function].answers;
    const auto found =
        std::ranges::find(answers, answer, [](const Answer& each) { return std::string(each.name); });
    if (found == answers.end() || fault.nth == 0) {
        throw std::runtime_error("no failure: " + function + " " + nth + " " + answer);
    }
    fault.answer = static_cast<std::size_t>(found - answers.begin());
    return fault;
}

/// Follows the threads into the service's operations and out of them, by the log; keeps the exceptions.
class Faults::Lines final : public Orva::Shared::CorvaLogListener {
  public:
    explicit Lines(Faults& faults) : CorvaLogListener(PolicyLevels::kIgnore), m_faults(faults) {}
    void Log(const LogData& entry) override {
        const InsideCall inside;
        Here().operations.Follow(entry);
        if (entry.GetLevel() == Orva::Shared::Level::kError &&
            entry.Message().starts_with(L"Exception in ")) {
            m_faults.m_exceptions.emplace_back(entry.FunctionName());
        }
    }
    [[nodiscard]] int GetType() const override { return Orva::Shared::ListenerType::kDebug; }

  private:
    Faults& m_faults;
};

Faults::Faults(Stage& stage, std::vector<Fault> faults)
    : m_stage(stage),
      m_faults(std::move(faults)),
      m_counts(FailingFunctions().size()),
      m_memory(Find(kMemory)),
      m_ledger(std::make_unique<Rig::Ledger>()) {
    ++g_play;
    Orva::Shared::CorvaLogListener* const lines = new Lines(*this);
    m_lines = std::make_unique<Orva::Shared::CorvaLogger>(&lines, 1);
    Orva::Shared::LoggerHolder().swap(m_lines);
    HookAll();
    g_faults = this;
}

Faults::~Faults() {
    g_faults = nullptr;
    for (std::size_t call = 0; call < Notebook::kCallCount; ++call) {
        m_stage.Devices().AtEach(static_cast<Call>(call), nullptr);
    }
    m_imports.clear();
    m_ledger->Dismiss();
    Orva::Shared::LoggerHolder().swap(m_lines);
}

const Answer* Faults::Ask(std::size_t function) {
    if (m_isOver || !Here().IsInService()) {
        return nullptr;
    }
    const std::uint32_t nth = ++m_counts[function];
    for (const Fault& fault : m_faults) {
        if (fault.function == function && fault.nth == nth) {
            const InsideCall inside;
            m_strikes.push_back({FailingFunctions()[function].name, Here().operations.Names()});
            return &FailingFunctions()[function].answers[fault.answer];
        }
    }
    return nullptr;
}

bool RefusesMemory() {
    return g_faults != nullptr && g_faults->RefusesMemory();
}

bool Faults::RefusesMemory() {
    return Ask(m_memory) != nullptr;
}

template <auto Function>
void Faults::Fails() {
    m_imports.push_back(Rig::ReplaceIfImported<Function>(
        Rig::kWrapping, [this, function = Find(NameOf<Function>())](const auto& self, auto... args) {
            using Result = typename ResultOf<Function>::Type;
            const Answer* const answer = Ask(function);
            const InsideCall inside;
            return answer != nullptr ? Failed<Result>(answer->value) : self.Original(args...);
        }));
}

/// A function that closes what is given first. What it does not close the play does, at its end.
template <auto Function>
void Faults::FailsToClose() {
    m_imports.push_back(Rig::ReplaceIfImported<Function>(
        Rig::kWrapping,
        [this, function = Find(NameOf<Function>())](const auto& self, auto value, auto... args) {
            using Result = typename ResultOf<Function>::Type;
            const Answer* const answer = Ask(function);
            const InsideCall inside;
            if (answer != nullptr) {
                m_unclosed.push_back({[](void* open) {
                                          if constexpr (sizeof...(args) == 0) {
                                              Function(static_cast<decltype(value)>(open));
                                          } else {
                                              Function(static_cast<decltype(value)>(open), nullptr);
                                          }
                                      },
                                      value});
                return Failed<Result>(answer->value);
            }
            std::erase_if(m_unclosed, [&](const auto& each) { return each.second == value; });
            return self.Original(value, args...);
        }));
}

/// What only the rig and the devices work in.
template <auto Function>
void Faults::Passes() {
    if (auto import = Rig::ReplaceIfImported<Function>(Rig::kWrapping, [](const auto& self, auto... args) {
            const InsideCall inside;
            return self.Original(args...);
        })) {
        m_imports.push_back(std::move(import));
    }
}

/// `function` is behind the last of the devices' calls for one that does not fail here.
void Faults::HookDevice(Call call, std::size_t function) {
    // The rig copies this at each call: small, it takes no memory for that.
    m_stage.Devices().AtEach(call, [this, function]() -> std::optional<DWORD> {
        const Answer* const answer = function < FailingCalls().size() ? Ask(function) : nullptr;
        Here().hasCalledDevice = true;
        Here().endedBefore = CallsEnded();
        return answer != nullptr ? std::optional<DWORD>(answer->value) : std::nullopt;
    });
}

void Faults::HookAll() {
    for (std::size_t i = 0; i < Notebook::kCallCount; ++i) {
        const Call call = static_cast<Call>(i);
        if (call != Call::Notification) {
            const auto found = std::ranges::find(FailingCalls(), call, &FailingCall::call);
            HookDevice(call, static_cast<std::size_t>(found - FailingCalls().begin()));
        }
    }
    Fails<&::CoCreateInstance>();
    Fails<&::CoInitializeEx>();
    Fails<&::CoInitializeSecurity>();
    Fails<&::IIDFromString>();
    Fails<&::StringFromCLSID>();
    Fails<&::StringFromIID>();
    Fails<&::SysAllocString>();
    Fails<&::VariantChangeType>();
    Fails<&::SafeArrayGetLBound>();
    Fails<&::SafeArrayGetUBound>();
    Fails<&::SafeArrayGetElement>();
    Fails<&::HeapAlloc>();
    Fails<&::LocalAlloc>();
    Fails<&::GetModuleFileNameW>();
    Fails<&::GetFileVersionInfoSizeW>();
    Fails<&::GetFileVersionInfoW>();
    Fails<&::VerQueryValueW>();
    Fails<&::QueueUserWorkItem>();
    Fails<&::RegOpenKeyExW>();
    Fails<&::RegCreateKeyExW>();
    Fails<&::RegQueryValueExW>();
    Fails<&::RegSetValueExW>();
    Fails<&::RegNotifyChangeKeyValue>();
    Fails<&::OpenSCManagerW>();
    Fails<&::OpenServiceW>();
    Fails<&::RegisterEventSourceW>();
    FailsToClose<&::CloseHandle>();
    FailsToClose<&::CloseServiceHandle>();
    FailsToClose<&::DeregisterEventSource>();
    FailsToClose<&::RegCloseKey>();
    FailsToClose<&::WlanCloseHandle>();
    Passes<&::CoTaskMemFree>();
    Passes<&::HeapFree>();
    Passes<&::LocalFree>();
    Passes<&::SafeArrayDestroy>();
    Passes<&::Sleep>();
    Passes<&::SysFreeString>();
    Passes<&::WlanFreeMemory>();
    m_imports.push_back(Rig::ShowVariantTexts());
    m_imports.push_back(Rig::ReplaceIfImported<&::CreateEventW>(
        Rig::kWrapping, [this, function = Find("CreateEventW")](const auto& self, auto... args) {
            const Answer* const answer = Ask(function);
            const bool isServices = Here().IsInService();
            const InsideCall inside;
            const HANDLE event = answer != nullptr ? Failed<HANDLE>(answer->value) : self.Original(args...);
            if (isServices) {
                m_events.insert(event);
            }
            return event;
        }));
    // Those of the language's locks do not fail.
    m_imports.push_back(Rig::ReplaceIfImported<&::SetEvent>(
        Rig::kWrapping, [this, function = Find("SetEvent")](const auto& self, HANDLE event) {
            const Answer* const answer = m_events.contains(event) ? Ask(function) : nullptr;
            const InsideCall inside;
            return answer != nullptr ? Failed<BOOL>(answer->value) : self.Original(event);
        }));
    m_imports.push_back(Rig::ReplaceIfImported<&::WaitForSingleObject>(
        Rig::kWrapping,
        [this, function = Find("WaitForSingleObject")](const auto& self, HANDLE handle, DWORD milliseconds) {
            const Answer* const answer = m_events.contains(handle) ? Ask(function) : nullptr;
            const InsideCall inside;
            if (answer == nullptr) {
                return self.Original(handle, milliseconds);
            }
            if (answer->value == WAIT_TIMEOUT && milliseconds != INFINITE) {
                ::Sleep(milliseconds);
                return DWORD{WAIT_TIMEOUT};
            }
            return Failed<DWORD>(WAIT_FAILED);
        }));
}

void Faults::EndProcess() {
    const auto unclosed = std::exchange(m_unclosed, {});
    for (const auto& [close, value] : unclosed) {
        close(value);
    }
}

std::string Faults::Leftovers() {
    // Its end releases the list that the look for a cable keeps.
    { const NLMEventHandler handler{nullptr, nullptr}; }
    EndProcess();
    const testing::AssertionResult balanced = m_ledger->Balanced();
    return balanced ? std::string() : balanced.message();
}

}  // namespace RandomEvents
