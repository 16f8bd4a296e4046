"""What the rules of a random day allow, and what they do not."""

import unittest

from notebook.runner import rules
from notebook.runner.random_day import visible
from notebook.runner.rules import airplane, fresh, outcomes, plug, restart, sleep_and_wake, unplug, wifi, wwan

ON, OFF = (True, True), (False, False)


def after(world, *actions):
    """What a user may see when each action is settled before the next."""
    worlds = {world}
    for action in actions:
        worlds = outcomes(worlds, [action])
    return {visible(world) for world in worlds}


def together(world, *actions):
    """What a user may see when the actions happen one right after another."""
    return {visible(world) for world in outcomes({world}, actions)}


class Settled(unittest.TestCase):
    """What comes of actions that are settled one by one: the radio and what is remembered of it."""

    ROWS = {
        "wlan": (
            ((OFF, True), (plug, 1)),
            ((ON, True), (plug, 1), (unplug, 1)),
            # What the user turned off stays off; beside a cable nothing goes on.
            ((OFF, False), (wifi, False), (plug, 1), (unplug, 1)),
            ((OFF, True), (plug, 1), (wifi, True)),
            ((OFF, True), (plug, 1), (plug, 2), (unplug, 1)),
            ((ON, True), (plug, 1), (plug, 2), (unplug, 1), (unplug, 2)),
            ((OFF, None), (airplane, True)),
            ((OFF, True), (plug, 1), (airplane, True), (unplug, 1)),
            # The night and the start.
            ((OFF, True), (plug, 1), (sleep_and_wake,)),
            ((OFF, False), (wifi, False), (plug, 1), (sleep_and_wake, (unplug, 1))),
            ((OFF, True), (plug, 1), (restart,)),
            ((OFF, False), (wifi, False), (restart,)),
            # The other radio does not matter.
            ((ON, None), (wwan, False))),
        "wwan": (
            (((False,), True), (plug, 1)),
            (((True,), True), (plug, 1), (unplug, 1)),
            (((False,), False), (wwan, False), (plug, 1), (unplug, 1)),
            (((False,), True), (plug, 1), (wwan, True)),
            # A switch that changes nothing is remembered, too.
            (((True,), True), (wwan, True)))}

    def test_outcomes(self):
        for half, rows in self.ROWS.items():
            for expected, *actions in rows:
                with self.subTest(half=half, actions=actions):
                    self.assertEqual({expected}, after(fresh(half), *actions))

    def test_disabled_half_follows_the_user_alone(self):
        self.assertEqual({(ON, None)}, after(fresh("wlan", is_enabled=False), (plug, 1)))
        self.assertEqual({((True,), None)}, after(fresh("wwan", is_enabled=False), (plug, 1)))
        self.assertEqual({((False,), False)}, after(fresh("wwan", is_enabled=False), (plug, 1), (wwan, False)))

    def test_wifi_comes_back_after_airplane_mode_and_after_a_night_without_the_cable(self):
        for actions in ([(airplane, True), (airplane, False)], [(plug, 1), (sleep_and_wake, (unplug, 1))]):
            with self.subTest(actions=actions):
                seen = after(fresh("wlan"), *actions)
                self.assertIn((ON, True), seen)
                self.assertNotIn(OFF, {radio for radio, _ in seen})


class Together(unittest.TestCase):
    def test_cable_put_in_and_pulled_at_once_may_have_been_missed(self):
        seen = together(fresh("wlan"), (plug, 1), (unplug, 1))
        self.assertLessEqual({(ON, True), (ON, None)}, seen)
        self.assertNotIn((OFF, None), seen)

    def test_quick_actions_allow_all_that_slow_ones_do(self):
        for actions in ([(plug, 1), (unplug, 1)], [(wifi, False), (plug, 1)], [(plug, 1), (airplane, True)]):
            with self.subTest(actions=actions):
                self.assertLessEqual(after(fresh("wlan"), *actions), together(fresh("wlan"), *actions))


class Turns(unittest.TestCase):
    @staticmethod
    def marks(world, thread, mark):
        return [world.but(cables=world.cables | {(len(world.cables), mark)})]

    def test_every_order_of_two_threads_is_tried(self):
        world = fresh("wlan").then("a", (self.marks, "a1"), (self.marks, "a2")).then("b", (self.marks, "b"))
        orders = {"".join(mark for _, mark in sorted(found.cables)) for found in outcomes({world}, [])}
        self.assertEqual({"a1a2b", "a1ba2", "ba1a2"}, orders)

    def test_step_that_must_wait_is_taken_later(self):
        def waits(world, thread):
            return [world if world.airplane else None]

        def allows(world, thread):
            return [world.but(airplane=True)]

        world = fresh("wlan").then("a", (waits,), (self.marks, "a")).then("b", (allows,))
        [found] = outcomes({world}, [])
        self.assertEqual((frozenset({(0, "a")}), True), (found.cables, found.airplane))

    def test_nothing_remembered_counts_as_on(self):
        self.assertEqual([True, True, False], [rules.remembered(stored) for stored in (None, True, False)])


if __name__ == "__main__":
    unittest.main()
