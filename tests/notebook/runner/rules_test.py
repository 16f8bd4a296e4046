"""What the rules of a random day allow, and what they do not."""

import unittest

from notebook.runner import rules
from notebook.runner.random_day import visible
from notebook.runner.rules import World, airplane, outcomes, plug, restart, sleep_and_wake, unplug, wifi, wwan

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


class Wlan(unittest.TestCase):
    def setUp(self):
        self.world = World(half="wlan")

    def check(self, expected, *actions):
        self.assertEqual({expected}, after(self.world, *actions))

    def test_cable_switches_off_and_remembers_what_was_on(self):
        self.check((OFF, True), (plug, 1))

    def test_pulled_cable_gives_back_what_was_remembered(self):
        self.check((ON, True), (plug, 1), (unplug, 1))

    def test_radio_that_the_user_turned_off_stays_off(self):
        self.check((OFF, False), (wifi, False), (plug, 1), (unplug, 1))

    def test_user_cannot_turn_it_on_beside_a_cable(self):
        self.check((OFF, True), (plug, 1), (wifi, True))

    def test_second_cable_keeps_it_off(self):
        self.check((OFF, True), (plug, 1), (plug, 2), (unplug, 1))
        self.check((ON, True), (plug, 1), (plug, 2), (unplug, 1), (unplug, 2))

    def test_disabled_half_leaves_it_alone(self):
        self.world = World(half="wlan", lan_wlan=False)
        self.check((ON, None), (plug, 1))

    def test_airplane_mode_gives_back_what_was_on(self):
        self.check((OFF, None), (airplane, True))
        self.assertIn((ON, True), after(self.world, (airplane, True), (airplane, False)))
        self.assertNotIn(OFF, {phys for phys, _ in after(self.world, (airplane, True), (airplane, False))})

    def test_nothing_goes_on_in_airplane_mode_by_pulling_a_cable(self):
        self.check((OFF, True), (plug, 1), (airplane, True), (unplug, 1))

    def test_cable_pulled_in_the_night_gives_it_back_in_the_morning(self):
        seen = after(self.world, (plug, 1), (sleep_and_wake, (unplug, 1)))
        self.assertIn((ON, True), seen)
        self.assertEqual({ON}, {phys for phys, _ in seen})
        self.check((OFF, True), (plug, 1), (sleep_and_wake,))
        self.check((OFF, False), (wifi, False), (plug, 1), (sleep_and_wake, (unplug, 1)))

    def test_start_follows_cable_and_memory(self):
        self.check((OFF, True), (plug, 1), (restart,))
        self.check((OFF, False), (wifi, False), (restart,))

    def test_cable_put_in_and_pulled_at_once_may_have_been_missed(self):
        seen = together(self.world, (plug, 1), (unplug, 1))
        self.assertLessEqual({(ON, True), (ON, None)}, seen)
        self.assertNotIn((OFF, None), seen)

    def test_quick_actions_allow_all_that_slow_ones_do(self):
        for actions in ([(plug, 1), (unplug, 1)], [(wifi, False), (plug, 1)], [(plug, 1), (airplane, True)]):
            with self.subTest(actions=actions):
                self.assertLessEqual(after(self.world, *actions), together(self.world, *actions))

    def test_other_radio_does_not_matter(self):
        self.check((ON, None), (wwan, False))


class Wwan(unittest.TestCase):
    def setUp(self):
        self.world = World(half="wwan")

    def check(self, expected, *actions):
        self.assertEqual({expected}, after(self.world, *actions))

    def test_cable_switches_off_and_gives_back(self):
        self.check((False, True), (plug, 1))
        self.check((True, True), (plug, 1), (unplug, 1))

    def test_radio_that_the_user_turned_off_stays_off(self):
        self.check((False, False), (wwan, False), (plug, 1), (unplug, 1))

    def test_user_cannot_turn_it_on_beside_a_cable(self):
        self.check((False, True), (plug, 1), (wwan, True))

    def test_a_switch_that_changes_nothing_is_remembered_too(self):
        self.check((True, True), (wwan, True))

    def test_disabled_half_follows_the_user_alone(self):
        self.world = World(half="wwan", lan_wwan=False)
        self.check((True, None), (plug, 1))
        self.check((False, False), (plug, 1), (wwan, False))


class Turns(unittest.TestCase):
    @staticmethod
    def marks(world, thread, mark):
        return [world.but(cables=world.cables | {(len(world.cables), mark)})]

    def test_every_order_of_two_threads_is_tried(self):
        world = World().then("a", (self.marks, "a1"), (self.marks, "a2")).then("b", (self.marks, "b"))
        orders = {"".join(mark for _, mark in sorted(found.cables)) for found in outcomes({world}, [])}
        self.assertEqual({"a1a2b", "a1ba2", "ba1a2"}, orders)

    def test_step_that_must_wait_is_taken_later(self):
        def waits(world, thread):
            return [world if world.airplane else None]

        def allows(world, thread):
            return [world.but(airplane=True)]

        world = World().then("a", (waits,), (self.marks, "a")).then("b", (allows,))
        [found] = outcomes({world}, [])
        self.assertEqual((frozenset({(0, "a")}), True), (found.cables, found.airplane))

    def test_nothing_remembered_counts_as_on(self):
        self.assertEqual([True, True, False], [rules.remembered(stored) for stored in (None, True, False)])


if __name__ == "__main__":
    unittest.main()
