// Commands about the machine: the service, its neighbours, power, airplane mode, the registry.

#include <windows.h>

#include <map>
#include <sstream>

#include "notebook/controller/conversation.h"
#include "notebook/controller/service_manager.h"
#include "notebook/controller/system_registry.h"
#include "notebook/state/controls.h"
#include "notebook/state/machine.h"
#include "notebook/state/shared_state.h"
#include "notebook/state/text.h"
#include "platform/handles.h"

namespace Notebook {

namespace {

constexpr DWORD kStartMs = 30'000;
constexpr DWORD kStopMs = 600'000;
constexpr DWORD kControlMs = 600'000;
constexpr DWORD kPollMs = 2;

std::wstring OwnFolder() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring full(path, length);
    return full.substr(0, full.find_last_of(L'\\'));
}

std::string Milliseconds(Micros start) {
    return std::to_string((Now() - start) / kMicrosPerMilli);
}

void Run(const wchar_t* name) {
    if (QueryService(name).state == SERVICE_STOPPED) {
        StartInstalled(name);
    }
    if (!WaitForState(name, SERVICE_RUNNING, kStartMs)) {
        throw CommandError(Narrow(name) + " does not run");
    }
}

void RunStub(const wchar_t* name) {
    InstallStub(name, OwnFolder() + L"\\stub_service.exe");
    Run(name);
}

void RunDeviceServer() {
    // COM registers classes of services there. Wine's would start it when it is first needed, which
    // its service manager refuses to a service that is starting.
    Run(L"RpcSs");
    RunStub(kDeviceServer);
}

/// It says goodbye to nobody but COM, which would otherwise go on offering it. (Wine's does not notice
/// when a server dies.)
void EndDeviceServer() {
    const Platform::UniqueHandle process(
        OpenProcess(SYNCHRONIZE, FALSE, SharedState::Get().Raw().deviceServer));
    StopStub(kDeviceServer);
    if (process) {
        WaitForSingleObject(process.Get(), kStartMs);
    }
    LockedMachine machine;
    machine->deviceServer = 0;
}

void WriteAirplane(bool on) {
    Write(kAirplane, NumberValue(on ? 1 : 0));
}

void PlaceDevices(bool remote) {
    const std::wstring dll = OwnFolder() + L"\\wlanapi.dll";
    EndDeviceServer();
    if (remote) {
        RegisterDevicesRemote(dll, OwnFolder() + L"\\device_proxies.dll");
        RunDeviceServer();
    } else {
        RegisterDevicesHere(dll);
    }
}

void SetUp() {
    RegisterHardware();
    PlaceDevices(false);
    WriteAirplane(AirplaneIsOn());
    RunStub(L"WlanSvc");
    RunStub(L"WwanSvc");
}

void Reset(const Arguments& given) {
    Shape shape;
    shape.wlanAdapters = given.Number("wlan", shape.wlanAdapters);
    shape.phys = given.Number("phys", shape.phys);
    shape.cables = given.Number("cables", shape.cables);
    shape.modems = given.Number("modems", shape.modems);
    {
        LockedMachine machine;
        ResetMachine(*machine, shape, machine.Time());
        machine->traceOn = 0;
        machine->traceCount = 0;
    }
    for (const wchar_t* const key : {kStoredWlan.key, kStoredWwan.key, kPolicyRoot}) {
        DeleteKey(key);
    }
    WriteAirplane(false);
    PlaceDevices(given.Has("remote"));
    RunStub(L"WlanSvc");
    RunStub(L"WwanSvc");
}

void DevicesCommand(const Arguments& given) {
    if (given.Has("run")) {
        RunDeviceServer();
    } else if (SharedState::Get().Raw().deviceServer != 0) {
        EndDeviceServer();
    } else {
        throw CommandError("no process of their own serves the devices");
    }
}

Answer Install(const wchar_t* option) {
    DWORD exitCode = 0;
    std::istringstream printed(
        RunProgram(L"\"" + OwnFolder() + L"\\LinkvaneService.exe\" " + option, exitCode));
    Answer answer{"exit=" + std::to_string(exitCode), {}};
    for (std::string line; std::getline(printed, line);) {
        std::erase(line, '\r');
        answer.lines.push_back(line);
    }
    return answer;
}

/// Waits until the service is in the state, and throws what it is in instead.
void AwaitService(DWORD state, DWORD milliseconds) {
    if (!WaitForState(kServiceName, state, milliseconds)) {
        throw CommandError("the service does not get there but is " + StateName(QueryService(kServiceName)));
    }
}

Answer Start(const Arguments& given) {
    const Micros start = Now();
    StartInstalled(kServiceName);
    if (!given.Has("nowait")) {
        AwaitService(SERVICE_RUNNING, kStartMs);
    }
    return {"took=" + Milliseconds(start), {}};
}

Platform::UniqueHandle OpenServiceProcess(DWORD access) {
    const ServiceState state = QueryService(kServiceName);
    return Platform::UniqueHandle(state.process == 0 ? nullptr : OpenProcess(access, FALSE, state.process));
}

/// Sends a control to the service; returns its number in the handler's order.
LONG SendNumbered(DWORD code) {
    ServiceRun& service = SharedState::Get().Raw().service;
    const LONG number = InterlockedIncrement(&service.controlsSent);
    try {
        SendControl(kServiceName, code);
    } catch (...) {
        InterlockedDecrement(&service.controlsSent);
        throw;
    }
    return number;
}

/// Waits for the end that `ask` has asked for: how long it took, how long the process lived on, how it ended.
template <class Function>
Answer Stop(Function ask) {
    const Micros start = Now();
    const Platform::UniqueHandle process = OpenServiceProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION);
    ask();
    AwaitService(SERVICE_STOPPED, kStopMs);
    std::string text = "took=" + Milliseconds(start);
    DWORD code = STILL_ACTIVE;
    if (process && WaitForSingleObject(process.Get(), kStopMs) == WAIT_OBJECT_0) {
        GetExitCodeProcess(process.Get(), &code);
        text += " gone=" + Milliseconds(start) + " exit=" + std::to_string(code);
    }
    return {text, {}};
}

/// Sends a control and waits until the service's handler has returned, however long it takes.
Answer SendAndWait(DWORD code) {
    const Micros start = Now();
    const ServiceRun& service = SharedState::Get().Raw().service;
    const Platform::UniqueHandle process = OpenServiceProcess(SYNCHRONIZE);
    const LONG number = SendNumbered(code);
    while (service.controlsEnded < number) {
        if (process && WaitForSingleObject(process.Get(), 0) == WAIT_OBJECT_0) {
            break;
        }
        if (Now() - start > Micros{kControlMs} * kMicrosPerMilli) {
            throw CommandError("the control handler does not come back");
        }
        Sleep(kPollMs);
    }
    return {"took=" + Milliseconds(start), {}};
}

/// The same with a control that no program may send.
Answer SendAndWait(std::string_view name) {
    for (const TranslatedControl& control : kTranslatedControls) {
        if (control.name == name) {
            return SendAndWait(control.code);
        }
    }
    throw CommandError("no such control: " + std::string(name));
}

bool ServiceRuns() {
    const ServiceState state = QueryService(kServiceName);
    return state.installed && state.state != SERVICE_STOPPED;
}

Answer Suspend() {
    const Answer answer = ServiceRuns() ? SendAndWait("suspend") : Answer{};
    LockedMachine machine;
    machine->devices.asleep = 1;
    return answer;
}

Answer Resume() {
    {
        LockedMachine machine;
        machine->devices.asleep = 0;
    }
    const Answer answer = ServiceRuns() ? SendAndWait("resume-automatic") : Answer{};
    LockedMachine machine;
    ReleaseHeldEvents(*machine, machine.Time());
    return answer;
}

/// TYPE and DATA.
RegistryValue ValueOf(const Arguments& given) {
    const std::string& type = given.Text("TYPE");
    const std::string data = given.Text("DATA", "");
    if (type == "dword") {
        return NumberValue(given.Number("DATA"));
    }
    if (type == "binary") {
        return {REG_BINARY, {data.begin(), data.end()}};
    }
    static const std::map<std::string_view, DWORD> texts = {
        {"sz", REG_SZ}, {"expand", REG_EXPAND_SZ}, {"multi", REG_MULTI_SZ}, {"unterminated", REG_SZ}};
    const auto found = texts.find(type);
    if (found == texts.end()) {
        throw CommandError("sz, expand, multi, unterminated, dword or binary, not " + type);
    }
    RegistryValue value = TextValue(found->second, Widen(data));
    const std::size_t terminators = type == "multi" ? 2 : type == "unterminated" ? 0 : 1;
    value.data.resize((Widen(data).size() + terminators) * sizeof(wchar_t));
    return value;
}

void Stored(const Arguments& given) {
    const RegistryPlace& place = given.Has("wlan") ? kStoredWlan : kStoredWwan;
    if (given.Has("missing")) {
        DeleteKey(place.key);
    } else {
        Write(place, given.Has("TYPE") ? ValueOf(given) : TextValue(REG_SZ, Widen(given.Text("TEXT"))));
    }
}

/// Windows' own switch: the value is written, then the radios follow. Whoever looks at a radio
/// between the two waits for the state's lock.
void SwitchAirplane(bool on) {
    LockedMachine machine;
    const bool before = AirplaneIsOn();
    WriteAirplane(on);
    if (before != on) {
        FollowAirplaneMode(*machine, on, machine.Time());
    }
}

void Airplane(const Arguments& given) {
    if (given.Has("TYPE")) {
        Write(kAirplane, ValueOf(given));
    } else if (given.Has("value")) {
        DeleteValue(kAirplane);
    } else if (given.Has("present")) {
        WriteAirplane(false);
    } else if (given.Has("key")) {
        DeleteKey(kAirplane.key);
    } else {
        SwitchAirplane(given.IsOn("airplane"));
    }
}

/// What the notebook knows of a neighbour service.
void SetNeighbour(bool isWlan, bool runs, std::uint32_t lateMs) {
    LockedMachine machine;
    (isWlan ? machine->devices.wlanServiceLateMs : machine->devices.wwanServiceLateMs) = lateMs;
    if (!runs) {
        (isWlan ? machine->devices.wlanServiceRuns : machine->devices.wwanServiceRuns) = 0;
    }
}

void ServiceCommand(const Arguments& given) {
    const bool isWlan = given.Has("WlanSvc");
    const std::wstring name = isWlan ? L"WlanSvc" : L"WwanSvc";
    const std::uint32_t late = given.Number("late", 0);
    SetNeighbour(isWlan, true, late);
    if (given.Has("run")) {
        RunStub(name.c_str());
        return;
    }
    if (given.Has("absent")) {
        RemoveStub(name);
    } else {
        StopStub(name);
    }
    SetNeighbour(isWlan, false, late);
    if (given.Has("late")) {
        InstallStub(name, OwnFolder() + L"\\stub_service.exe");
        StartInstalled(name);
    }
}

void Policy(const Arguments& given) {
    if (given.Has("clear")) {
        DeleteKey(kPolicyRoot);
        return;
    }
    RegistryValue value;
    if (given.Has("TYPE")) {
        value = ValueOf(given);
    } else {
        const std::string& text = given.Text("VALUE");
        const bool isNumber = !text.empty() && text.front() >= '0' && text.front() <= '9';
        value = isNumber ? NumberValue(given.Number("VALUE")) : TextValue(REG_SZ, Widen(text));
    }
    const std::wstring name = Widen(given.Text("NAME"));
    Write({given.Has("executable") ? kExecutablePolicyKey : kPolicyKey, name.c_str()}, value);
}

}  // namespace

const std::vector<Command>& SystemCommands() {
    static const std::vector<Command> commands = {
        {"setup", "", "Makes this prefix a notebook: COM classes, DLL override, airplane key, stub services.",
         &SetUp},
        {"reset", "[wlan N] [phys N] [cables N] [modems N] [devices here|remote]",
         "A fresh notebook: radios on, no cable in, features enabled, nothing stored, no policies, no rules "
         "(1 WLAN adapter with 2 PHYs, 1 cable port, no modem unless told). Remote devices serve the network "
         "list and mobile broadband in a process of their own.",
         &Reset},
        {"devices", "kill|run",
         "Ends the process of remote devices without a word to who uses them, or brings it back.",
         &DevicesCommand},
        {"install", "", "Runs LinkvaneService.exe -install and shows what it prints.",
         [] { return Install(L"-install"); }},
        {"remove", "", "Runs LinkvaneService.exe -remove and shows what it prints.",
         [] { return Install(L"-remove"); }},
        {"start", "[nowait]", "Starts the service and waits until it runs.", &Start},
        {"stop", "", "Stops the service and waits until its process is gone.",
         [] { return Stop([] { SendNumbered(SERVICE_CONTROL_STOP); }); }},
        {"kill", "", "Ends the service's process.", [] { KillService(kServiceName); }},
        {"doom", "", "Marks the service for deletion: it is gone when the controller has ended.",
         [] { MarkForDeletion(kServiceName); }},
        {"control", "NAME",
         "Sends suspend, standby, resume-automatic, resume-suspend, power-status-change, preshutdown, "
         "shutdown or interrogate, and waits for the handler.",
         [](const Arguments& given) { return SendAndWait(given.Text("NAME")); }},
        {"suspend", "", "The notebook goes to sleep: what happens from now on is announced later.", &Suspend},
        {"resume", "",
         "It wakes up; what happened meanwhile is announced when the service has handled the resume.",
         &Resume},
        {"preshutdown", "", "Windows shuts down; waits as stop does.",
         [] { return Stop([] { SendAndWait("preshutdown"); }); }},
        {"airplane", "on|off | value (missing | TYPE [DATA]) | key missing|present",
         "Airplane mode, with the radios following; or only its registry value.", &Airplane},
        {"stored", "wlan|wwan (missing | type TYPE [DATA] | TEXT)",
         "The stored choice for a radio; its type is sz, expand, multi, unterminated, dword or binary.",
         &Stored},
        {"sleeps", "DIVISOR",
         "The service's sleeps, and its waits with a time limit, end so many times as soon.",
         [](const Arguments& given) { LockedMachine()->devices.sleepDivisor = given.Number("DIVISOR"); }},
        {"service", "WlanSvc|WwanSvc (run | stop | late MS | absent)", "A neighbour service.",
         &ServiceCommand},
        {"policy", "clear | [executable] NAME (type TYPE [DATA] | VALUE)",
         "A logging policy, for the product or for the executable alone.", &Policy},
    };
    return commands;
}

}  // namespace Notebook
