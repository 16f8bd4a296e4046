#include "notebook/state/shared_state.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "notebook/state/machine.h"

namespace Notebook {

namespace {

constexpr wchar_t kMutexName[] = L"Global\\LinkvaneNotebook.State";
constexpr Micros kMicrosPerSecond = 1'000'000;

bool g_inMemory = false;
std::function<Micros()> g_clock;

[[noreturn]] void GiveUp(const char* call) {
    std::fprintf(stderr, "notebook: %s failed with %lu\n", call, GetLastError());
    std::abort();
}

Machine* MapFile() {
    CreateDirectoryW(kFolder, nullptr);
    const std::wstring path = std::wstring(kFolder) + L"\\state.bin";
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        GiveUp("CreateFile of the state");
    }
    constexpr std::uint64_t kSize = sizeof(Machine);
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READWRITE, static_cast<DWORD>(kSize >> 32),
                                              static_cast<DWORD>(kSize), nullptr);
    CloseHandle(file);
    if (mapping == nullptr) {
        GiveUp("CreateFileMapping of the state");
    }
    void* const view = MapViewOfFile(mapping, FILE_MAP_ALL_ACCESS, 0, 0, sizeof(Machine));
    CloseHandle(mapping);
    if (view == nullptr) {
        GiveUp("MapViewOfFile of the state");
    }
    return static_cast<Machine*>(view);
}

bool IsReadable(const Machine& machine) {
    // The counter starts anew when the system does; times of a later one belong to the past run.
    return machine.magic == kLayoutMagic && machine.version == kLayoutVersion &&
           machine.size == sizeof(Machine) && machine.epoch <= Now();
}

void MakeNew(Machine& machine) {
    std::memset(static_cast<void*>(&machine), 0, sizeof(machine));
    machine.magic = kLayoutMagic;
    machine.version = kLayoutVersion;
    machine.size = sizeof(Machine);
    machine.epoch = Now();
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    machine.epochTime = (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
    ResetMachine(machine, Shape{}, machine.epoch);
}

bool Wake(std::uint32_t process) {
    const HANDLE event =
        OpenEventW(EVENT_MODIFY_STATE, FALSE, SharedState::ListenerEventName(process).c_str());
    if (event == nullptr) {
        return false;
    }
    SetEvent(event);
    CloseHandle(event);
    return true;
}

}  // namespace

Micros Now() noexcept {
    if (g_clock) {
        return g_clock();
    }
    static const LONGLONG frequency = [] {
        LARGE_INTEGER value{};
        QueryPerformanceFrequency(&value);
        return value.QuadPart;
    }();
    LARGE_INTEGER counter{};
    QueryPerformanceCounter(&counter);
    const LONGLONG seconds = counter.QuadPart / frequency;
    return seconds * kMicrosPerSecond + (counter.QuadPart % frequency) * kMicrosPerSecond / frequency;
}

void SetClock(std::function<Micros()> clock) {
    g_clock = std::move(clock);
}

void SharedState::KeepInMemory() noexcept {
    g_inMemory = true;
}

SharedState& SharedState::Get() {
    // Never destroyed: threads use it until the process has ended.
    static SharedState& state = *new SharedState();
    return state;
}

SharedState::SharedState() {
    m_mutex = CreateMutexW(nullptr, FALSE, g_inMemory ? nullptr : kMutexName);
    if (m_mutex == nullptr) {
        GiveUp("CreateMutex of the state");
    }
    WaitForSingleObject(m_mutex, INFINITE);
    m_machine =
        g_inMemory ? static_cast<Machine*>(VirtualAlloc(nullptr, sizeof(Machine), MEM_COMMIT, PAGE_READWRITE))
                   : MapFile();
    if (!IsReadable(*m_machine)) {
        MakeNew(*m_machine);
    }
    m_activity = &m_machine->activity;
    ReleaseMutex(m_mutex);
}

void SharedState::BecomeDeviceServer() {
    const LockedMachine machine;
    m_machine->deviceServer = GetCurrentProcessId();
    m_machine->serverActivity = {};
    m_activity = &m_machine->serverActivity;
}

std::wstring SharedState::ListenerEventName(std::uint32_t process) {
    return L"Global\\LinkvaneNotebook.Listener." + std::to_wstring(process);
}

LockedMachine::LockedMachine() : m_machine(SharedState::Get().Raw()) {
    // A process that was killed in its middle leaves the lock abandoned, which is as good as free.
    WaitForSingleObject(SharedState::Get().m_mutex, INFINITE);
    m_time = Now();
    m_events = m_machine.eventCount;
    m_schedule = m_machine.schedule;
    ApplyDue(m_machine, m_time);
}

LockedMachine::~LockedMachine() {
    const bool news = m_machine.eventCount != m_events || m_machine.schedule != m_schedule;
    if (news) {
        WakeListeners();
    }
    SharedState& state = SharedState::Get();
    ReleaseMutex(state.m_mutex);
    if (news && state.m_told) {
        state.m_told();
    }
}

void LockedMachine::WakeListeners() noexcept {
    for (Listener& listener : m_machine.listeners) {
        if (listener.process != 0 && !Wake(listener.process)) {
            listener.process = 0;
        }
    }
}

}  // namespace Notebook
