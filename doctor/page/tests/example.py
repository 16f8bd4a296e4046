#!/usr/bin/env python3
"""Reports to make pages of: an example that a reader can follow, and one as large as they become.

    example.py             the example's JSON
    example.py --large     200,000 lines, 50,000 intervals and 50,000 marks
"""

import json
import random
import sys
from datetime import datetime, timezone

LEVELS = ["TraceIn", "TraceOut", "Verbose", "Information", "Warning", "Error", "Diag"]
MARKUP = "<img src=x onerror=\"document.title='taken'\"></script><script>document.title='taken'</script><!-- &amp; \u2028 \U0001f50c"


def at(text):
    """Milliseconds of a log's local time such as "20 08:00:01.250", a day of November 2026."""
    moment = datetime.strptime(f"2026/11/{text}", "%Y/%m/%d %H:%M:%S.%f").replace(tzinfo=timezone.utc)
    return round(moment.timestamp() * 1000)


class Machine:
    """Collects what is told of one machine; lines are numbered as they come."""

    def __init__(self, name, path):
        self.name = name
        self.path = path
        self.lines = []
        self.operations = []
        self.threads = []
        self.lanes = {}
        self.story = []
        self.marks = []
        self.findings = []

    def line(self, t, level, operation, text, thread="00000120"):
        for names, name in ((self.operations, operation), (self.threads, thread)):
            if name not in names:
                names.append(name)
        self.lines.append([0, len(self.lines) + 1, t, self.threads.index(thread), LEVELS.index(level),
                           self.operations.index(operation), text])
        return [0, len(self.lines)]

    def lane(self, name, title, begin, end, *changes):
        """Changes are (time, state, who, why, line); before the first one nothing is known."""
        known = [(begin, "unknown", "unknown", "the log begins here", None), *changes]
        ends = [change[0] for change in known[1:]] + [end]
        self.lanes[name] = {"id": name, "title": title, "intervals": [
            {"from": t, "until": until, "state": state, "who": who, "why": why, "line": line}
            for (t, state, who, why, line), until in zip(known, ends) if until > t]}

    def told(self, t, kind, subject, who, text, line, severity="note", times=1, until=None):
        self.story.append({"t": t, "until": until or t, "kind": kind, "subject": subject, "who": who, "severity": severity,
                           "text": text, "times": times, "line": line})

    def mark(self, t, kind, lane, text, line, times=1, until=None):
        self.marks.append({"t": t, "until": until or t, "kind": kind, "lane": lane, "text": text, "times": times, "line": line})

    def finding(self, cause, severity, subject, sentence, remedy, t, *proof):
        lines = []
        for file, number in proof:
            _, _, when, _, level, operation, text = self.lines[number - 1]
            lines.append({"file": file, "line": number, "t": when, "level": LEVELS[level],
                          "operation": self.operations[operation], "text": text})
        self.findings.append({"number": len(self.findings) + 1, "cause": cause, "severity": severity, "subject": subject,
                              "sentence": sentence, "remedy": remedy, "t": t, "proof": lines})

    def report(self, moment):
        times = [line[2] for line in self.lines]
        return {
            "name": self.name,
            "files": [{"path": self.path, "bytes": 96 * len(self.lines), "lines": len(self.lines), "unread": 2, "doubtful": 0,
                       "encoding": "UTF-8", "from": min(times), "until": max(times)}],
            "from": min(times), "until": max(times), "at": moment,
            "levels": [name for number, name in enumerate(LEVELS) if number in {line[4] for line in self.lines}],
            "findings": self.findings, "lanes": list(self.lanes.values()), "story": self.story, "marks": self.marks,
            "operations": self.operations, "threads": self.threads, "lines": self.lines, "lines_left_out": 0,
        }


def refusing_driver():
    """A working day; in the evening the WLAN driver refuses to switch on."""
    machine = Machine("NB-0417", r"C:\Users\jo\Desktop\NB-0417\LinkvaneService.log")
    line, told, mark = machine.line, machine.told, machine.mark
    begin, end = at("20 07:58:12.310"), at("20 18:31:40.000")

    started = line(begin, "Information", "CMainService::OnStart", "Linkvane Service (1.0.0.1) in OnStart", "000002A8")
    told(begin, "start", "runs", "windows", "The service starts, version 1.0.0.1", started)
    bios = line(begin + 670, "Information", "NLMUtils::IsLanWlanAutoSwitchingEnabled", "BIOS(LAN/WLAN) Read Value Enabled", "000002C0")
    told(begin + 670, "firmware", "", "unknown", "Firmware: Wi-Fi half enabled, mobile broadband half enabled", bios)
    line(begin + 700, "TraceIn", "NLMEventHandler::CheckEthernetConnectionStatus", "", "000002C0")
    out = line(begin + 720, "Information", "NLMEventHandler::CheckEthernetConnectionStatus", "An IEEE 802.11 wireless network interface.", "000002C0")
    line(begin + 730, "TraceOut", "NLMEventHandler::CheckEthernetConnectionStatus", "false", "000002C0")

    def cable_in(t, name):
        first = line(t, "Information", "NLMEventHandler::NetworkConnectionConnectivityChanged",
                     f"{name} connectivity: 64", "00000318")
        for step in range(6):
            line(t + 3 + step, "TraceIn" if step % 2 == 0 else "TraceOut", "NLMUtils::PrintAdapterInfo", "", "00000318")
        told(t, "cable", "cable", "user", f"Cable in: {name}", first)
        decided = line(t + 20, "Information", "ServiceUtils::my_service_turnonoff_wifi", "LAN is up: switching WLAN off", "00000318")
        mark(t + 20, "decision", "wifi", "cable in: Wi-Fi and mobile broadband off", decided)
        told(t + 20, "decision", "wifi", "service", "Decision: cable in, so Wi-Fi and mobile broadband go off", decided)
        line(t + 60, "Information", "ServiceUtils::SetWlanPowerStatusInRegistry", "Registry value set: True", "00000318")
        wwan = line(t + 410, "Information", "ServiceUtils::my_service_turnonoff_wwan", "WWAN radio off", "00000318")
        return first, decided, wwan

    dock = "Brook Gigabit Ethernet Controller 1"
    usb = f"USB adapter {MARKUP}"
    morning = at("20 08:12:40.120")
    in1, off1, wwan1 = cable_in(morning, dock)
    noon = at("20 12:01:03.900")
    out1 = line(noon, "Information", "NLMEventHandler::NetworkConnectionConnectivityChanged", f"{dock} connectivity: 0", "00000318")
    on1 = line(noon + 900, "Information", "ServiceUtils::my_service_turnonoff_wifi", "LAN is down: switching WLAN on", "00000318")
    told(noon, "cable", "cable", "user", f"Cable out: {dock}", out1)
    told(noon + 900, "decision", "wifi", "service", "Decision: cable out and Wi-Fi is remembered as on: switch it on", on1)
    mark(noon + 900, "decision", "wifi", "cable out: Wi-Fi back on", on1)

    flight = at("20 12:40:00.000")
    plane = line(flight, "Information", "CMainService::AirplaneModeWatcher", "Airplane mode on", "00000330")
    told(flight, "airplane", "airplane", "user", "Airplane mode on", plane)
    landed = line(flight + 2_700_000, "Information", "CMainService::AirplaneModeWatcher", "Airplane mode off", "00000330")
    told(flight + 2_700_000, "airplane", "airplane", "user", "Airplane mode off", landed)

    tea = at("20 14:02:11.000")
    by_hand = line(tea, "Information", "CMainService::OnWlanNotification", "WLAN radio off, not by the service", "00000344")
    told(tea, "radio", "wifi", "user", "The user switches Wi-Fi off", by_hand)
    by_hand_on = line(tea + 1_500_000, "Information", "CMainService::OnWlanNotification", "WLAN radio on, not by the service", "00000344")
    told(tea + 1_500_000, "radio", "wifi", "user", "The user switches Wi-Fi on", by_hand_on)

    second = at("20 15:20:00.500")
    in2, off2, wwan2 = cable_in(second, usb)
    dark = at("20 16:10:00.000")
    warned = line(dark, "Warning", "CServiceBase::OnContinue", "No status in 0x000005B4", "00000350")
    mark(dark, "warning", "sleep", "the WLAN service answers late after the wake", warned, times=3)
    told(dark, "wake", "sleep", "windows", "The notebook wakes up", warned, severity="warning")
    # An hour and a half of nothing but what a running service notes down.
    t = dark
    while t < at("20 18:00:00.000"):
        t += 41_000
        line(t, "TraceIn", "CMainService::OnWlanNotification", "", "00000344")
        line(t + 2, "TraceOut", "CMainService::OnWlanNotification", "", "00000344")

    pulled = at("20 18:30:02.040")
    out2 = line(pulled, "Information", "NLMEventHandler::NetworkConnectionConnectivityChanged", f"{usb} connectivity: 0", "00000318")
    told(pulled, "cable", "cable", "user", f"Cable out: {usb}", out2)
    on2 = line(pulled + 35, "Information", "ServiceUtils::my_service_turnonoff_wifi", "LAN is down: switching WLAN on", "00000318")
    mark(pulled + 35, "decision", "wifi", "cable out: Wi-Fi back on", on2)
    told(pulled + 35, "decision", "wifi", "service", "Decision: cable out and Wi-Fi is remembered as on: switch it on", on2)
    refused = None
    for attempt in range(486):
        t = pulled + 60 + attempt * 107
        line(t, "TraceIn", "ServiceUtils::WlanSetRadioState", "", "00000318")
        error = line(t + 4, "Error", "ServiceUtils::WlanSetRadioState", "WlanSetInterface failed w/err 0x0000001f", "00000318")
        refused = refused or error
        mark(t + 4, "error", "wifi", "the driver refuses, error 31", error)
    last = error
    told(pulled + 64, "error", "wifi", "service", "The driver refuses to switch Wi-Fi on, error 31", refused,
         severity="fault", times=486, until=t)

    machine.lane("runs", "Service", begin - 20_000, end, (begin, "starting", "windows", "with Windows", started),
                 (begin + 730, "running", "windows", "start complete", out))
    machine.lane("cable", "Cable", begin - 20_000, end, (begin + 720, "out", "unknown", "found so at the start", out),
                 (morning, "in", "user", dock, in1), (noon, "out", "user", dock, out1),
                 (second - 4000, "no-address", "user", usb, in2), (second, "in", "user", usb, in2), (pulled, "out", "user", usb, out2))
    machine.lane("cable:{1}", f"Cable: {dock}", begin - 20_000, end, (begin + 720, "out", "unknown", "", out),
                 (morning, "in", "user", "plugged in", in1), (noon, "out", "user", "pulled", out1))
    machine.lane("cable:{2}", f"Cable: {usb}", begin - 20_000, end,
                 (second - 4000, "no-address", "user", "plugged in", in2), (second, "in", "user", "has its address", in2),
                 (pulled, "out", "user", "pulled", out2))
    machine.lane("wifi", "Wi-Fi", begin - 20_000, end, (begin + 720, "on", "unknown", "found so at the start", out),
                 (morning + 300, "off", "service", "cable in", off1), (noon + 1400, "on", "service", "cable out", on1),
                 (flight, "off", "windows", "airplane mode", plane), (flight + 2_700_000, "on", "windows", "airplane mode ends", landed),
                 (tea, "off", "user", "the user's switch", by_hand), (tea + 1_500_000, "on", "user", "the user's switch", by_hand_on),
                 (second + 300, "off", "service", "cable in", off2))
    machine.lane("remembered-wlan", "Remembered: Wi-Fi", begin - 20_000, end, (begin + 720, "on", "service", "True", out),
                 (tea, "off", "user", "False", by_hand), (tea + 1_500_000, "on", "user", "True", by_hand_on))
    machine.lane("wwan", "Mobile broadband", begin - 20_000, end, (begin + 720, "on", "unknown", "found so at the start", out),
                 (morning + 410, "off", "service", "cable in", wwan1), (noon + 1400, "on", "service", "cable out", on1),
                 (flight, "off", "windows", "airplane mode", plane), (flight + 2_700_000, "on", "windows", "airplane mode ends", landed),
                 (second + 410, "off", "service", "cable in", wwan2), (pulled + 800, "on", "service", "cable out", on2))
    machine.lane("remembered-wwan", "Remembered: mobile broadband", begin - 20_000, end, (begin + 720, "on", "service", "True", out))
    machine.lane("airplane", "Airplane mode", begin - 20_000, end, (begin + 720, "off", "unknown", "found so at the start", out),
                 (flight, "on", "user", "", plane), (flight + 2_700_000, "off", "user", "", landed))
    machine.lane("sleep", "Sleep", begin - 20_000, end, (begin, "awake", "unknown", "", started),
                 (dark - 1_500_000, "unknown", "unknown", "the log does not say when the sleep began", None),
                 (dark, "awake", "windows", "resume", warned))

    machine.finding("driver-refuses", "fault", "wifi",
                    "Wi-Fi did not come back because the WLAN driver refuses to switch the radio on: error 31, 486 times in 52 s.",
                    "Update or reinstall the WLAN adapter's driver; until then switch Wi-Fi on in Windows' settings.",
                    pulled + 64, on2, refused, last)
    machine.finding("wwan-on", "well", "wwan", "Mobile broadband is on: the service switched it on when the cable went.", "",
                    pulled + 800, on2)
    machine.finding("waiting-for-service", "warning", "log", f"After the wake the WLAN service answered late; the adapter was {usb}.",
                    "", dark, warned)
    return machine.report(pulled + 60_000)


def quiet_machine():
    machine = Machine("NB-0099", r"logs\NB-0099\LinkvaneService.log")
    begin = at("19 09:00:00.000")
    started = machine.line(begin, "Information", "CMainService::OnStart", "Linkvane Service (1.0.0.1) in OnStart")
    machine.told(begin, "start", "runs", "windows", "The service starts, version 1.0.0.1", started)
    machine.line(begin + 3_600_000, "Information", "CMainService::OnStop", "Service stopped")
    for name, title, state in (("runs", "Service", "running"), ("cable", "Cable", "out"), ("wifi", "Wi-Fi", "on"),
                               ("remembered-wlan", "Remembered: Wi-Fi", "on"), ("wwan", "Mobile broadband", "unknown"),
                               ("remembered-wwan", "Remembered: mobile broadband", "unknown"),
                               ("airplane", "Airplane mode", "off"), ("sleep", "Sleep", "awake")):
        machine.lane(name, title, begin, begin + 3_600_000, (begin, state, "unknown", "", started))
    machine.finding("wifi-on", "well", "wifi", "Wi-Fi is on, as it should be.", "", begin, started)
    return machine.report(None)


def large():
    """As much as a report carries: two weeks of trouble."""
    chance = random.Random(12)
    machine = Machine("NB-LARGE", "LinkvaneService.log")
    operations = [f"Group{n % 7}::Operation{n}" for n in range(60)]
    begin = at("01 00:00:00.000")
    t = begin
    for number in range(200_000):
        t += chance.choice((0, 1, 2, 15, 40, 300, 20_000, 30_000))
        level = chance.choices(LEVELS[:6], (30, 30, 12, 24, 2, 2))[0]
        machine.line(t, level, chance.choice(operations), f"Something of the kind {number} happened to interface {{{number % 17:08X}-4C1D}}",
                     f"{0x120 + number % 40:08X}")
    end = t
    states = {"runs": ("running", "stopped"), "cable": ("in", "out", "no-address"), "wifi": ("on", "off"),
              "remembered-wlan": ("on", "off"), "wwan": ("on", "off"), "remembered-wwan": ("on", "off"),
              "airplane": ("on", "off"), "sleep": ("awake", "unknown")}
    for name, choices in states.items():
        changes = []
        for number in sorted(chance.sample(range(200_000), 6250)):
            line = machine.lines[number]
            if changes and changes[-1][0] >= line[2]:
                continue
            changes.append((line[2], choices[number % len(choices)], chance.choice(("user", "service", "windows", "unknown")),
                            f"reason {number % 9}", line[:2]))
        machine.lane(name, name, begin, end, *changes)
    for number in sorted(chance.sample(range(200_000), 50_000)):
        line = machine.lines[number]
        machine.mark(line[2], chance.choice(("decision", "warning", "error")), chance.choice(list(states)), f"mark {number}", line[:2])
        machine.told(line[2], "decision", "wifi", "service", f"What happened at {number}", line[:2])
    machine.finding("wifi-on", "well", "wifi", "Wi-Fi is on, as it should be.", "", end, [0, 200_000])
    return machine.report(end)


def main():
    machines = [large()] if "--large" in sys.argv else [refusing_driver(), quiet_machine()]
    moment = machines[0]["at"]
    json.dump({"model": 1, "doctor": "1.0.0.1", "asked": {"time": moment, "since": None, "until": None}, "machines": machines},
              sys.stdout, ensure_ascii=False)


if __name__ == "__main__":
    main()
