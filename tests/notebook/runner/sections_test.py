"""What a log section of a scenario matches, and what it must not."""

import unittest

from notebook.runner import sections


def matches(wanted, *lines):
    """Whether a section of these lines holds for a log of those."""
    return not sections.compare({"Operation": wanted}, {"Operation": list(lines)})


class LinePattern(unittest.TestCase):
    def check(self, line, fitting, unfitting):
        for text in fitting:
            with self.subTest(line=line, text=text):
                self.assertTrue(matches([line], text))
        for text in unfitting:
            with self.subTest(line=line, text=text):
                self.assertFalse(matches([line], text))

    def test_plain_text_matches_itself_alone(self):
        self.check("I A::B| Phy: 0 On (a.b)", ["I A::B| Phy: 0 On (a.b)"],
                   ["I A::B| Phy: 0 On (a.b) ", " I A::B| Phy: 0 On (a.b)", "I A::B| Phy: 0 On (axb)",
                    "I A::B| Phy: 0 on (a.b)", "I A::B| Phy: 0", ""])

    def test_star_matches_anything_within_its_place(self):
        self.check("took {*} ms", ["took 5 ms", "took  ms", "took 5 ms or 6 ms", "took \n5 ms"],
                   ["took 5 s", "it took 5 ms", "took 5 ms."])

    def test_choice_matches_one_of_its_texts(self):
        self.check("Phy: {0|1} {On|Off}", ["Phy: 0 On", "Phy: 1 Off"],
                   ["Phy: 2 On", "Phy: 01 On", "Phy:  On", "Phy: 0|1 On", "Phy: 0 OnOff"])

    def test_choice_may_hold_nothing(self):
        self.check("Phy{s|}", ["Phy", "Phys"], ["Phyx"])

    def test_choices_texts_are_no_patterns(self):
        self.check("{a.c|*}", ["a.c", "*"], ["abc", "anything"])

    def test_other_braces_are_text(self):
        self.check("id {5E1F-4B2C} {x*}", ["id {5E1F-4B2C} {x*}"], ["id 5E1F-4B2C x", "id {5E1F-4B2C} {xx}"])


class Section(unittest.TestCase):
    def test_lines_come_all_and_in_order(self):
        self.assertTrue(matches(["a", "b"], "a", "b"))
        for found in (["b", "a"], ["a"], ["b"], [], ["a", "b", "b"], ["a", "x", "b"], ["a", "b", "x"]):
            with self.subTest(found=found):
                self.assertFalse(matches(["a", "b"], *found))

    def test_optional_line_comes_once_or_not(self):
        for found in (["a", "b", "c"], ["a", "c"]):
            with self.subTest(found=found):
                self.assertTrue(matches(["a", "? b", "c"], *found))
        for found in (["a", "b", "b", "c"], ["b", "a", "c"], ["a", "c", "b"], ["a", "x", "c"], ["a", "b"],
                      ["a", "? b", "c"]):
            with self.subTest(found=found):
                self.assertFalse(matches(["a", "? b", "c"], *found))

    def test_optional_line_may_hold_patterns(self):
        self.assertTrue(matches(["? took {*} ms"], "took 5 ms"))
        self.assertFalse(matches(["? took {*} ms"], "took 5 s"))

    def test_optional_line_does_not_eat_the_one_that_must_come(self):
        self.assertTrue(matches(["? a", "a"], "a"))
        self.assertTrue(matches(["? a", "a"], "a", "a"))
        self.assertFalse(matches(["? a", "a"]))
        self.assertFalse(matches(["? a", "a"], "a", "a", "a"))

    def test_dots_stand_for_any_number_of_lines(self):
        for found in (["a", "b"], ["a", "x", "b"], ["a", "x", "b", "y", "b"]):
            with self.subTest(found=found):
                self.assertTrue(matches(["a", "...", "b"], *found))
        for found in (["a"], ["x", "a", "b"], ["a", "b", "x"], ["b", "a"]):
            with self.subTest(found=found):
                self.assertFalse(matches(["a", "...", "b"], *found))

    def test_dots_at_an_end_leave_that_end_open(self):
        self.assertTrue(matches(["...", "b"], "x", "y", "b"))
        self.assertFalse(matches(["...", "b"], "x", "b", "y"))
        self.assertTrue(matches(["a", "..."], "a"))
        self.assertTrue(matches(["a", "..."], "a", "x", "y"))
        self.assertFalse(matches(["a", "..."], "x", "a"))


class Compare(unittest.TestCase):
    def test_nothing_expected_and_nothing_found_is_no_difference(self):
        self.assertEqual([], sections.compare({}, {}))

    def test_operation_that_was_not_expected_is_a_difference(self):
        self.assertEqual(["  under B:", "    @@ -0,0 +1 @@", "    +b"],
                         sections.compare({"A": ["a"]}, {"A": ["a"], "B": ["b"]}))

    def test_operation_that_did_not_come_is_a_difference(self):
        self.assertIn("    -a", sections.compare({"A": ["a"]}, {}))

    def test_operation_of_optional_lines_alone_may_lack(self):
        self.assertEqual([], sections.compare({"A": ["? a", "..."]}, {}))

    def test_line_under_another_operation_does_not_count(self):
        self.assertNotEqual([], sections.compare({"A": ["a"]}, {"B": ["a"]}))

    def test_difference_shows_what_lacks_and_what_is_too_much(self):
        difference = sections.compare({"A": ["a", "took {*} ms", "c"]}, {"A": ["a", "took 5 ms", "d"]})
        self.assertIn("    -c", difference)
        self.assertIn("    +d", difference)
        self.assertIn("     took {*} ms", difference)


if __name__ == "__main__":
    unittest.main()
