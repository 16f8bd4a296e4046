"""What comes of actions that are settled one by one, by the rules alone: the radios, and what is remembered of them.

It knows nothing of the service's code, and nothing of threads: those take their turns in tests/hunt/.
"""

import dataclasses


@dataclasses.dataclass
class Radio:
    is_on: bool | None = True
    """None: either"""
    remembered: bool | None = True
    """nothing remembered counts as on; None: either"""
    before: bool = True
    """what airplane mode gives back"""


class World:
    """A notebook with the service on it, fresh: Wi-Fi, a modem, no cable in. Each action is one of the user's."""

    def __init__(self):
        self.cables = set()
        self.in_airplane = False
        self.wlan, self.wwan = self.radios = Radio(), Radio()

    def plug(self, cable):
        self.cables.add(cable)
        for radio in self.radios:
            if radio.is_on:
                radio.is_on, radio.remembered = False, True

    def unplug(self, cable):
        self.cables.discard(cable)
        if not self.cables:
            self._bring_back()

    def _bring_back(self):
        for radio in self.radios:
            radio.is_on = radio.is_on or (radio.remembered and not self.in_airplane)

    def wifi(self, on):
        if on == self.wlan.is_on:
            return
        self.wlan.is_on = on and not self.cables
        if not self.cables and not self.in_airplane:
            self.wlan.remembered = on

    def wifi_available(self):
        if self.cables:
            self.wlan.is_on = False
        elif self.wlan.is_on:
            self.wlan.remembered = True

    def turn_wwan(self, on):
        """The end of a request is told also where it has changed nothing; in airplane mode nobody listens."""
        self.wwan.is_on = on and (self.in_airplane or not self.cables)
        if not self.cables and not self.in_airplane:
            self.wwan.remembered = on

    def airplane(self, on):
        self.in_airplane = on
        for radio in self.radios:
            if on:
                radio.before, radio.is_on = radio.is_on, False
            elif not self.cables:
                self._leave_airplane_mode(radio)

    @staticmethod
    def _leave_airplane_mode(radio):
        if radio.before and not radio.remembered:
            # Airplane mode gives it back, which is remembered; the watcher turns it off: who is first wins.
            radio.is_on = radio.remembered = None
        else:
            radio.is_on = radio.remembered

    def restart(self):
        """The service stops and starts again."""
        for radio in self.radios:
            radio.is_on = not self.cables and radio.remembered and (radio.is_on or not self.in_airplane)

    def sleep_and_wake(self, move=None, cable=None):
        """The cable may move while the notebook sleeps; Windows tells of it after the resume, which sees it already."""
        was_on = self.wlan.is_on
        if move == "unplug":
            self.cables.discard(cable)
        if self.cables or move == "plug":
            self.wwan.is_on = False
        else:
            self._bring_back()
        if move == "plug":
            self.plug(cable)
        elif move == "unplug" and self.wlan.is_on != was_on:
            # With one of its PHYs on it is not on; the cable's event may hide that the other one follows.
            self.wlan.remembered = None
