// Commands about the machine: the service, its neighbours, power, airplane mode, the registry.

#include <windows.h>

#include "notebook/controller/conversation.h"
#include "notebook/controller/service_manager.h"
#include "notebook/controller/system_registry.h"
#include "notebook/state/controls.h"
#include "notebook/state/event_log.h"
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

Answer SetUp(Words& words) {
    words.End();
    RegisterHardware();
    PlaceDevices(false);
    WriteAirplane(AirplaneIsOn());
    RunStub(L"WlanSvc");
    RunStub(L"WwanSvc");
    return {};
}

constexpr std::pair<std::string_view, bool> kPlaces[] = {{"here", false}, {"remote", true}};

Answer Reset(Words& words) {
    Shape shape;
    bool remote = false;
    while (!words.Empty()) {
        const std::string what = words.Take("what");
        if (what == "wlan") {
            shape.wlanAdapters = words.TakeNumber("adapters");
        } else if (what == "phys") {
            shape.phys = words.TakeNumber("PHYs");
        } else if (what == "cables") {
            shape.cables = words.TakeNumber("cables");
        } else if (what == "modems") {
            shape.modems = words.TakeNumber("modems");
        } else if (what == "devices") {
            remote = words.TakeOneOf(kPlaces);
        } else {
            throw CommandError("not understood: reset ... " + what);
        }
    }
    {
        LockedMachine machine;
        ResetMachine(*machine, shape, machine.Time());
        machine->traceOn = 0;
        machine->traceCount = 0;
    }
    DeleteStored(StoredRadio::Wlan);
    DeleteStored(StoredRadio::Wwan);
    DeletePolicies();
    WriteAirplane(false);
    ClearEventLog();
    PlaceDevices(remote);
    RunStub(L"WlanSvc");
    RunStub(L"WwanSvc");
    return {};
}

Answer DevicesCommand(Words& words) {
    const std::string what = words.Take("kill or run");
    words.End();
    if (what == "kill") {
        if (SharedState::Get().Raw().deviceServer == 0) {
            throw CommandError("no process of their own serves the devices");
        }
        EndDeviceServer();
    } else if (what == "run") {
        RunDeviceServer();
    } else {
        throw CommandError("kill or run, not " + what);
    }
    return {};
}

Answer Install(Words& words, const wchar_t* option) {
    words.End();
    DWORD exitCode = 0;
    const std::string printed =
        RunProgram(L"\"" + OwnFolder() + L"\\LinkvaneService.exe\" " + option, exitCode);
    Answer answer{"exit=" + std::to_string(exitCode), {}};
    std::string line;
    for (const char letter : printed) {
        if (letter == '\n') {
            answer.lines.push_back(line);
            line.clear();
        } else if (letter != '\r') {
            line += letter;
        }
    }
    if (!line.empty()) {
        answer.lines.push_back(line);
    }
    return answer;
}

Answer InstallService(Words& words) {
    return Install(words, L"-install");
}

Answer RemoveService(Words& words) {
    return Install(words, L"-remove");
}

Answer Start(Words& words) {
    const bool wait = !words.TakeIf("nowait");
    words.End();
    const Micros start = Now();
    StartInstalled(kServiceName);
    if (wait && !WaitForState(kServiceName, SERVICE_RUNNING, kStartMs)) {
        throw CommandError("the service does not run but is " + StateName(QueryService(kServiceName)));
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

/// How long it took until now, how long the process lived on, and how it ended.
std::string EndText(const Platform::UniqueHandle& process, Micros start) {
    std::string text = "took=" + Milliseconds(start);
    DWORD code = STILL_ACTIVE;
    if (process && WaitForSingleObject(process.Get(), kStopMs) == WAIT_OBJECT_0) {
        GetExitCodeProcess(process.Get(), &code);
        text += " gone=" + Milliseconds(start) + " exit=" + std::to_string(code);
    }
    return text;
}

Answer Stop(Words& words) {
    words.End();
    const Micros start = Now();
    const Platform::UniqueHandle process = OpenServiceProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION);
    SendNumbered(SERVICE_CONTROL_STOP);
    if (!WaitForState(kServiceName, SERVICE_STOPPED, kStopMs)) {
        throw CommandError("the service does not stop but is " + StateName(QueryService(kServiceName)));
    }
    return {EndText(process, start), {}};
}

Answer Kill(Words& words) {
    words.End();
    KillService(kServiceName);
    return {};
}

Answer Doom(Words& words) {
    words.End();
    MarkForDeletion(kServiceName);
    return {};
}

Answer State(Words& words) {
    words.End();
    const ServiceState state = QueryService(kServiceName);
    return {"state=" + StateName(state) + " pid=" + std::to_string(state.process) +
                " exit=" + std::to_string(state.exitCode),
            {}};
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

DWORD TranslatedCode(std::string_view name) {
    for (const TranslatedControl& control : kTranslatedControls) {
        if (control.name == name) {
            return control.code;
        }
    }
    throw CommandError("no such control: " + std::string(name));
}

Answer Control(Words& words) {
    return SendAndWait(TranslatedCode(words.Take("name of a control")));
}

bool ServiceRuns() {
    const ServiceState state = QueryService(kServiceName);
    return state.installed && state.state != SERVICE_STOPPED;
}

Answer Suspend(Words& words) {
    words.End();
    Answer answer;
    if (ServiceRuns()) {
        answer = SendAndWait(TranslatedCode("suspend"));
    }
    LockedMachine machine;
    machine->devices.asleep = 1;
    return answer;
}

Answer Resume(Words& words) {
    words.End();
    const auto wakeUp = [](bool announces) {
        LockedMachine machine;
        machine->devices.asleep = 0;
        if (announces) {
            ReleaseHeldEvents(*machine, machine.Time());
        }
    };
    wakeUp(false);
    Answer answer;
    if (ServiceRuns()) {
        answer = SendAndWait(TranslatedCode("resume-automatic"));
    }
    wakeUp(true);
    return answer;
}

Answer Preshutdown(Words& words) {
    words.End();
    const Micros start = Now();
    const Platform::UniqueHandle process = OpenServiceProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION);
    SendAndWait(TranslatedCode("preshutdown"));
    if (!WaitForState(kServiceName, SERVICE_STOPPED, kStopMs)) {
        throw CommandError("the service has not stopped");
    }
    return {EndText(process, start), {}};
}

RegistryValue TakeRegistryValue(Words& words) {
    const std::string type = words.Take("type");
    if (type == "dword") {
        return NumberValue(words.TakeNumber("number"));
    }
    const std::string data = words.Empty() ? "" : words.Take("data");
    if (type == "sz" || type == "expand" || type == "multi") {
        RegistryValue value = TextValue(type == "sz"       ? REG_SZ
                                        : type == "expand" ? REG_EXPAND_SZ
                                                           : REG_MULTI_SZ,
                                        Widen(data));
        if (type == "multi") {
            value.data.insert(value.data.end(), sizeof(wchar_t), 0);
        }
        return value;
    }
    if (type == "unterminated") {
        RegistryValue value = TextValue(REG_SZ, Widen(data));
        value.data.resize(value.data.size() - sizeof(wchar_t));
        return value;
    }
    if (type == "binary") {
        return {REG_BINARY, {data.begin(), data.end()}};
    }
    throw CommandError("sz, expand, multi, unterminated, dword or binary, not " + type);
}

constexpr std::pair<std::string_view, StoredRadio> kStoredRadios[] = {{"wlan", StoredRadio::Wlan},
                                                                      {"wwan", StoredRadio::Wwan}};

Answer Stored(Words& words) {
    const StoredRadio radio = words.TakeOneOf(kStoredRadios);
    if (words.TakeIf("missing")) {
        DeleteStored(radio);
    } else if (words.TakeIf("type")) {
        WriteStored(radio, TakeRegistryValue(words));
    } else {
        WriteStored(radio, TextValue(REG_SZ, Widen(words.Take("text"))));
    }
    return {};
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

Answer Airplane(Words& words) {
    if (words.TakeIf("value")) {
        if (words.TakeIf("missing")) {
            DeleteAirplaneValue();
        } else {
            WriteAirplane(TakeRegistryValue(words));
        }
        return {};
    }
    static constexpr std::pair<std::string_view, bool> kKey[] = {{"missing", false}, {"present", true}};
    if (!words.TakeIf("key")) {
        const bool on = words.TakeOnOff();
        words.End();
        SwitchAirplane(on);
    } else if (words.TakeOneOf(kKey)) {
        WriteAirplane(false);
    } else {
        DeleteAirplaneKey();
    }
    return {};
}

constexpr std::pair<std::string_view, const wchar_t*> kNeighbours[] = {{"WlanSvc", L"WlanSvc"},
                                                                       {"WwanSvc", L"WwanSvc"}};

Answer ServiceCommand(Words& words) {
    const std::wstring name = words.TakeOneOf(kNeighbours);
    const std::string what = words.Take("run, stop, late or absent");
    const std::uint32_t late = what == "late" ? words.TakeNumber("milliseconds") : 0;
    words.End();
    if (what != "run" && what != "stop" && what != "late" && what != "absent") {
        throw CommandError("not understood: service ... " + what);
    }
    const bool isWlan = name == L"WlanSvc";
    {
        LockedMachine machine;
        (isWlan ? machine->devices.wlanServiceLateMs : machine->devices.wwanServiceLateMs) = late;
    }
    if (what == "run") {
        RunStub(name.c_str());
        return {};
    }
    if (what == "absent") {
        RemoveStub(name);
    } else {
        StopStub(name);
    }
    {
        LockedMachine machine;
        (isWlan ? machine->devices.wlanServiceRuns : machine->devices.wwanServiceRuns) = 0;
    }
    if (what == "late") {
        InstallStub(name, OwnFolder() + L"\\stub_service.exe");
        StartInstalled(name);
    }
    return {};
}

Answer Policy(Words& words) {
    if (words.TakeIf("clear")) {
        DeletePolicies();
        return {};
    }
    const bool executable = words.TakeIf("executable");
    const std::wstring name = Widen(words.Take("value name"));
    if (words.TakeIf("type")) {
        WritePolicy(executable, name, TakeRegistryValue(words));
    } else if (const auto number = words.TakeNumberIf()) {
        WritePolicy(executable, name, NumberValue(*number));
    } else {
        WritePolicy(executable, name, TextValue(REG_SZ, Widen(words.Take("text"))));
    }
    return {};
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
        {"install", "", "Runs LinkvaneService.exe -install and shows what it prints.", &InstallService},
        {"remove", "", "Runs LinkvaneService.exe -remove and shows what it prints.", &RemoveService},
        {"start", "[nowait]", "Starts the service and waits until it runs.", &Start},
        {"stop", "", "Stops the service and waits until its process is gone.", &Stop},
        {"kill", "", "Ends the service's process.", &Kill},
        {"doom", "", "Marks the service for deletion: it is gone when the controller has ended.", &Doom},
        {"state", "", "What the service manager knows of the service.", &State},
        {"control", "NAME",
         "Sends suspend, standby, resume-automatic, resume-suspend, power-status-change, preshutdown, "
         "shutdown or interrogate, and waits for the handler.",
         &Control},
        {"suspend", "", "The notebook goes to sleep: what happens from now on is announced later.", &Suspend},
        {"resume", "",
         "It wakes up; what happened meanwhile is announced when the service has handled the resume.",
         &Resume},
        {"preshutdown", "", "Windows shuts down; waits as stop does.", &Preshutdown},
        {"airplane", "on|off | value TYPE DATA | value missing | key missing|present",
         "Airplane mode, with the radios following; or only its registry value.", &Airplane},
        {"stored", "wlan|wwan TEXT | missing | type sz|expand|multi|unterminated|dword|binary DATA",
         "The stored choice for a radio.", &Stored},
        {"service", "WlanSvc|WwanSvc run|stop|late MS|absent", "A neighbour service.", &ServiceCommand},
        {"policy", "[executable] NAME VALUE | [executable] NAME type TYPE DATA | clear",
         "A logging policy, for the product or for the executable alone.", &Policy},
    };
    return commands;
}

}  // namespace Notebook
