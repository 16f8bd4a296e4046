"""What a log section of a scenario matches, and what it must not."""

import unittest

from notebook.runner import sections

# Lines of a section, logs that are what it wants, and logs that are not.
ROWS = (
    # Plain text stands for itself alone, in its order.
    (["I A::B| Phy: 0 On (a.b)"], [["I A::B| Phy: 0 On (a.b)"]],
     [["I A::B| Phy: 0 On (a.b) "], [" I A::B| Phy: 0 On (a.b)"], ["I A::B| Phy: 0 On (axb)"],
      ["I A::B| Phy: 0 on (a.b)"], ["I A::B| Phy: 0"], [""], []]),
    (["a", "b"], [["a", "b"]], [["b", "a"], ["a"], ["b"], [], ["a", "b", "b"], ["a", "x", "b"], ["a", "b", "x"]]),
    # A star is anything in its place, a choice one of its texts, which are no patterns; other braces are text.
    (["took {*} ms"], [["took 5 ms"], ["took  ms"], ["took 5 ms or 6 ms"], ["took \n5 ms"]],
     [["took 5 s"], ["it took 5 ms"], ["took 5 ms."]]),
    (["Phy: {0|1} {On|Off}"], [["Phy: 0 On"], ["Phy: 1 Off"]],
     [["Phy: 2 On"], ["Phy: 01 On"], ["Phy:  On"], ["Phy: 0|1 On"], ["Phy: 0 OnOff"]]),
    (["Phy{s|}"], [["Phy"], ["Phys"]], [["Phyx"]]),
    (["{a.c|*}"], [["a.c"], ["*"]], [["abc"], ["anything"]]),
    (["id {5E1F-4B2C} {x*}"], [["id {5E1F-4B2C} {x*}"]], [["id 5E1F-4B2C x"], ["id {5E1F-4B2C} {xx}"]]),
    # An optional line comes once or not, and eats none that must come.
    (["a", "? b", "c"], [["a", "b", "c"], ["a", "c"]],
     [["a", "b", "b", "c"], ["b", "a", "c"], ["a", "c", "b"], ["a", "x", "c"], ["a", "b"], ["a", "? b", "c"]]),
    (["? took {*} ms"], [["took 5 ms"], []], [["took 5 s"]]),
    (["? a", "a"], [["a"], ["a", "a"]], [[], ["a", "a", "a"]]),
    # Dots are any number of lines; at an end they leave it open.
    (["a", "...", "b"], [["a", "b"], ["a", "x", "b"], ["a", "x", "b", "y", "b"]],
     [["a"], ["x", "a", "b"], ["a", "b", "x"], ["b", "a"]]),
    (["...", "b"], [["x", "y", "b"]], [["x", "b", "y"]]),
    (["a", "..."], [["a"], ["a", "x", "y"]], [["x", "a"]]),
)


class Section(unittest.TestCase):
    def test_log_is_what_a_section_wants_or_is_not(self):
        for wanted, fitting, unfitting in ROWS:
            for lines in (*fitting, *unfitting):
                with self.subTest(wanted=wanted, lines=lines):
                    difference = sections.compare({"Operation": wanted}, {"Operation": lines})
                    self.assertEqual(lines in fitting, not difference)


class Compare(unittest.TestCase):
    def test_operations_are_told_apart(self):
        for expected, found, same in (
                ({}, {}, True), ({"A": ["? a", "..."]}, {}, True), ({"A": ["a"]}, {"B": ["a"]}, False)):
            with self.subTest(expected=expected, found=found):
                self.assertEqual(same, not sections.compare(expected, found))

    def test_difference_shows_what_lacks_and_what_is_too_much(self):
        self.assertEqual(["  under B:", "    @@ -0,0 +1 @@", "    +b"],
                         sections.compare({"A": ["a"]}, {"A": ["a"], "B": ["b"]}))
        difference = sections.compare({"A": ["a", "took {*} ms", "c"]}, {"A": ["a", "took 5 ms", "d"]})
        self.assertIn("    -c", difference)
        self.assertIn("    +d", difference)
        self.assertIn("     took {*} ms", difference)


if __name__ == "__main__":
    unittest.main()
