"""What the rules of a random day allow, and how it is judged."""

import unittest

from notebook.runner.random_day import NotAllowed, judge
from notebook.runner.rules import Radio, World


def after(*actions):
    world = World()
    for action, *arguments in actions:
        action(world, *arguments)
    return world


class Settled(unittest.TestCase):
    """What comes of actions that are settled one by one: whether each radio is on, and what is remembered."""

    plug, unplug, wifi, wwan = (World.plug, 1), (World.unplug, 1), World.wifi, World.turn_wwan
    air, ground, sleep = (World.airplane, True), (World.airplane, False), World.sleep_and_wake
    restart, available = (World.restart,), (World.wifi_available,)
    ROWS = {
        "wlan": (
            (False, True, plug),
            (True, True, plug, unplug),
            # What the user turned off stays off; beside a cable nothing goes on.
            (False, False, (wifi, False), plug, unplug),
            (False, True, plug, (wifi, True)),
            (False, True, plug, (World.plug, 2), unplug),
            (True, True, plug, (World.plug, 2), unplug, (World.unplug, 2)),
            (False, True, plug, available),
            (True, True, air, (wifi, True), available),
            # Airplane mode: what is turned on there is not remembered.
            (False, True, air),
            (True, True, air, ground),
            (False, True, plug, air, unplug),
            (True, True, plug, air, unplug, ground),
            (False, True, plug, air, ground),
            (True, False, (wifi, False), air, (wifi, True)),
            (False, False, (wifi, False), air, (wifi, True), ground),
            # The night and the start.
            (False, True, plug, (sleep,)),
            (False, True, (sleep, "plug", 1)),
            (True, None, plug, (sleep, "unplug", 1)),
            (False, False, (wifi, False), plug, (sleep, "unplug", 1)),
            (False, True, plug, restart),
            (False, False, (wifi, False), restart),
            (False, True, air, restart),
            # The other radio does not matter.
            (True, True, (wwan, False))),
        "wwan": (
            (False, True, plug),
            (True, True, plug, unplug),
            (False, False, (wwan, False), plug, unplug),
            (False, True, plug, (wwan, True)),
            (True, True, plug, air, (wwan, True)),
            (True, True, plug, air, (wwan, True), ground),
            (False, True, plug, air, (wwan, True), (sleep,)),
            (False, False, (wwan, False), (sleep, "plug", 1)),
            # Who leaves airplane mode first: the user's radio or the watcher.
            (None, None, (wwan, False), plug, air, (wwan, True), ground, air, unplug, ground))}

    def test_outcomes(self):
        for half, rows in self.ROWS.items():
            for is_on, remembered, *actions in rows:
                with self.subTest(half=half, actions=actions):
                    radio = getattr(after(*actions), half)
                    self.assertEqual((is_on, remembered), (radio.is_on, radio.remembered))


class Judging(unittest.TestCase):
    SEEN = {"service": "running", "phys": "on,on", "wwan": "on", "stored_wlan": "missing", "stored_wwan": "True"}
    OTHER = ({"service": "stopped"}, {"phys": "off,off"}, {"phys": "on,off"}, {"wwan": "off"},
             {"stored_wlan": "False"}, {"stored_wwan": "False"})

    def test_settled_events_allow_one_state(self):
        judge(World(), self.SEEN, overlapping=False)
        for other in self.OTHER:
            with self.subTest(other), self.assertRaises(NotAllowed):
                judge(World(), self.SEEN | other, overlapping=False)

    def test_what_is_open_becomes_what_is_seen(self):
        world = World()
        world.wwan.is_on = world.wlan.remembered = None
        judge(world, self.SEEN | {"wwan": "off", "stored_wlan": "False"}, overlapping=False)
        self.assertEqual((Radio(True, False), Radio(False, True)), (world.wlan, world.wwan))

    def test_overlapping_events_leave_wifi_off_beside_a_cable_and_the_service_running(self):
        for other in self.OTHER[1:]:
            judge(World(), self.SEEN | other, overlapping=True)
        judge(after((World.plug, 1)), self.SEEN | {"phys": "off,off"}, overlapping=True)
        judge(after((World.airplane, True), (World.plug, 1)), self.SEEN, overlapping=True)
        for world, values in ((World(), {"service": "stopped"}), (after((World.plug, 1)), {})):
            with self.assertRaises(NotAllowed):
                judge(world, self.SEEN | values, overlapping=True)


if __name__ == "__main__":
    unittest.main()
