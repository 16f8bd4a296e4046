"""The list of lines that no unit test executes still fits the sources, and what compares it with a report sees
every difference."""

import json
import pathlib
import tempfile
import unittest

from executed_lines import LIST, Report, SourceTexts, list_problems, read_list, read_report, report_problems

BRACE = "a/a.cpp: }\n    two of them end alike\n"


def report(unexecuted, lines=1000, branches=100, taken=100):
    return Report(lines, lines - len(unexecuted), branches, taken, unexecuted)


class List(unittest.TestCase):
    def test_lines_of_the_list_stand_in_the_sources(self):
        self.assertEqual(list_problems(LIST.read_text(), SourceTexts()), [])

    def test_line_that_is_gone_is_told(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "a").mkdir()
            pathlib.Path(folder, "a/a.cpp").write_text("void F() {\n    G();\n}\n")
            sources = SourceTexts(pathlib.Path(folder))
            self.assertEqual(list_problems("# all\n\na/a.cpp: G();\n    never called\n" + BRACE, sources), [])
            self.assertEqual(list_problems(BRACE * 2, sources), ["listed, but gone: a/a.cpp: }"])
            self.assertEqual(list_problems("a/b.cpp: G();\n    x\n", sources), ["listed, but gone: a/b.cpp: G();"])
            self.assertEqual(list_problems("a/a.cpp: H();\n    x\n", sources), ["listed, but gone: a/a.cpp: H();"])

    def test_line_without_a_reason_is_told(self):
        for text in ("a/a.cpp: G();\n" + BRACE, BRACE + "a/a.cpp: G();\n", "a/a.cpp: G();\n    \n" + BRACE):
            self.assertEqual([each[:2] for each in sorted(read_list(text))], [("a/a.cpp", "G();"), ("a/a.cpp", "}")])
            self.assertIn("listed without a reason: a/a.cpp: G();", list_problems(text, SourceTexts()))
            self.assertNotIn("listed without a reason: a/a.cpp: }", list_problems(text, SourceTexts()))


class Comparison(unittest.TestCase):
    def test_report_that_fits_has_no_problems(self):
        self.assertEqual(report_problems(report([("a/a.cpp", "}")] * 2), BRACE * 2), [])
        self.assertEqual(report_problems(report([], taken=96), ""), [])

    def test_differences_are_told(self):
        self.assertEqual(report_problems(report([("a/a.cpp", "}")] * 2), BRACE),
                         ["not executed, and not listed: a/a.cpp: }"])
        self.assertEqual(report_problems(report([("a/a.cpp", "}")]), BRACE * 2), ["listed, but executed: a/a.cpp: }"])

    def test_figures_below_their_bounds_are_told(self):
        few = "only 997 of 1000 lines were executed, which is less than 99.8 %"
        self.assertEqual(report_problems(report([("a/a.cpp", "}")] * 3), BRACE * 3), [few])
        few = "only 95 of 100 branches were executed, which is less than 96.0 %"
        self.assertEqual(report_problems(report([], taken=95), ""), [few])
        self.assertEqual(len(report_problems(Report(), "")), 2, "a report of nothing")

    def test_reports_are_understood(self):
        def line(number, count, *branches, noncode=False):
            return {"line_number": number, "count": count, "gcovr/noncode": noncode,
                    "branches": [{"count": each} for each in branches]}

        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "a.cpp").write_text("void F() {\n    G();\n}\n")
            text = json.dumps({"files": [{"file": "a.cpp", "lines": [
                line(1, 5, 3, 0), line(2, 0, 0), line(3, 0, noncode=True)]}]})
            self.assertEqual(read_report(text, SourceTexts(pathlib.Path(folder))),
                             Report(2, 1, 3, 1, [("a.cpp", "G();")]))


if __name__ == "__main__":
    unittest.main()
