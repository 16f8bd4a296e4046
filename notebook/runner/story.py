"""An evening and a night of a notebook's user, as the demonstration tells them."""

import dataclasses


@dataclasses.dataclass(frozen=True)
class Step:
    happened: str
    """what a person would say has happened"""
    commands: tuple
    """how the notebook is told"""
    outcome: str
    """what it must come to, as conditions of the controller"""
    said: str
    """what the service must have said in its log, meanwhile"""


EVENING = (
    Step("The service starts", ("start",), "service=running wifi=on wwan=on com_sinks!=0",
         "LAN connection not available when service start. starting WWAN service..."),
    Step("Cable in", ("plug",), "wifi=off wwan=off stored_wlan=True stored_wwan=True",
         "Connecting to Ethernet. Stop WLAN service..."),
    Step("The user tries Wi-Fi", ("wifi on",), "wifi=off stored_wlan=True", "New WIFI state : 0"),
    Step("Cable out", ("unplug",), "wifi=on wwan=on",
         "The disconnecting connection was Ethernet. Start WLAN service..."),
    Step("The user turns Wi-Fi off", ("wifi off",), "wifi=off stored_wlan=False",
         "Setting WLAN registry status with WiFi Status = 0"),
    Step("Cable in", ("plug",), "wifi=off wwan=off", "Connecting to Ethernet. Stop WLAN service..."),
    Step("Cable out: Wi-Fi stays off", ("unplug",), "wifi=off wwan=on stored_wlan=False",
         "WLAN Registry Status = False"),
    Step("The user turns Wi-Fi on", ("wifi on",), "wifi=on stored_wlan=True",
         "Setting WLAN registry status with WiFi Status = 1"),
    Step("Cable in, address after 3 s", ("plug dhcp 3000",), "wifi=off wwan=off",
         "CheckEthernetConnectionStatus failed in try 0"),
    Step("Cable out", ("unplug",), "wifi=on wwan=on",
         "The disconnecting connection was Ethernet. Start WWAN service..."),
    Step("Airplane mode on", ("airplane on",), "wifi=off wwan=off", "Airplane Mode ON , setting default"),
    Step("Cable in and out", ("plug", "settle within 60000", "unplug"), "wifi=off wwan=off",
         "SwitchWlanStatus not needed for New status = 1"),
    Step("Airplane mode off", ("airplane off",), "wifi=on wwan=on", "Airplane mode is OFF"),
    Step("Cable in", ("plug",), "wifi=off wwan=off", "Connecting to Ethernet. Stop WWAN service..."),
    Step("Asleep; the cable is pulled", ("suspend", "unplug"), "asleep=yes cable=out", ""),
    Step("The notebook wakes", ("resume",), "asleep=no wifi=on wwan=on",
         "Service resume handler starting WLAN service.."),
    Step("The service stops", ("stop",), "service=stopped wifi=on wwan=on", "Linkvane Service in OnStop"),
)
