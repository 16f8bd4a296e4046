"""The templates for group policy say what the service reads, and all that it reads."""

import re
import unittest
import xml.etree.ElementTree as ElementTree

from packages import RELEASE, ROOT

POLICIES = RELEASE / "policies"
NAMESPACE = {"": "http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions"}
LANGUAGES = ("en-US", "de-DE")


def constant(pattern, file):
    """What the code says; exactly once."""
    [found] = re.findall(pattern, (ROOT / file).read_text())
    return found


def wide_text(name, file="logging/policy.cpp"):
    return constant(rf'constexpr wchar_t {name}\[\] = L"([^"]*)";', file).replace("\\\\", "\\")


def number(name, file="logging/policy.cpp"):
    return int(constant(rf"constexpr [\w:]+ {name} = (\d+);", file))


def template(path):
    return ElementTree.parse(POLICIES / path).getroot()


class Code:
    """The constants of the policy reader."""

    product = constant(r'VALUE "ProductName", "([^"]*)"', "resources/program.rc.in")
    keys = {wide_text("kPolicyRoot") + product, wide_text("kPolicyRoot") + product + r"\LinkvaneService"}
    texts = {wide_text(name) for name in ("kLoggingType", "kMinLogLevel", "kMaxLogLevel")}
    numbers = {wide_text(name) for name in ("kMaxLogSize", "kQueuedWrites")}
    # Every text that is no name of a level means "Never", which has none in the table.
    levels = {"Never", *re.findall(r'L"(\w+)"', constant(r"kNames\[\] = \{([^}]*)\}", "logging/level.cpp"))}
    words = set(re.findall(r'\{L"(\w+)", ListenerType::k\w+\}', (ROOT / "logging/policy.cpp").read_text()))
    all_names = set(re.findall(r'L"(\w+)";', (ROOT / "logging/policy.cpp").read_text()))


class Template(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.definitions = template("LinkvaneService.admx")
        cls.policies = cls.definitions.findall("policies/policy", NAMESPACE)

    def values(self, kind):
        """The value names of all elements of a kind."""
        return {each.get("valueName") for each in self.definitions.iterfind(f".//{kind}", NAMESPACE)}

    def choices(self, name):
        """The texts of an enumeration, the same at both keys."""
        found = [tuple(text.text for text in each.iterfind("item/value/string", NAMESPACE))
                 for each in self.definitions.iterfind(".//enum", NAMESPACE) if each.get("valueName") == name]
        self.assertEqual(len(found), len(Code.keys))
        self.assertEqual(len(set(found)), 1)
        return found[0]

    def test_code_was_understood(self):
        self.assertEqual(Code.texts | Code.numbers, Code.all_names)
        self.assertIn("TraceIn", Code.levels)
        self.assertIn("FILE", Code.words)

    def test_each_value_is_offered_for_the_product_and_for_the_service_and_no_other(self):
        offered = {(policy.get("key"), value.get("valueName"))
                   for policy in self.policies for value in policy.iter() if value.get("valueName")}
        self.assertEqual(offered, {(key, name) for key in Code.keys for name in Code.texts | Code.numbers})
        self.assertEqual({policy.get("class") for policy in self.policies}, {"Machine"})

    def test_types_are_what_the_service_expects(self):
        switches = {policy.get("valueName") for policy in self.policies if policy.get("valueName")}
        self.assertEqual(self.values("enum"), Code.texts)
        self.assertEqual((self.values("decimal") | switches) - {None}, Code.numbers)

    def test_levels_are_those_that_the_service_knows(self):
        lowest, highest = self.choices("MinLogLevel"), self.choices("MaxLogLevel")
        self.assertEqual(set(lowest) | set(highest), Code.levels)
        limit = number("kLevelNameBytes")
        self.assertTrue(all(2 * (len(level) + 1) <= limit for level in lowest + highest))

    def test_outputs_are_those_that_the_service_finds_in_the_text(self):
        offered = self.choices("LoggingType")
        self.assertEqual({word for text in offered for word in text.upper().split(", ")}, Code.words)
        # As one word may stand in another, each text must select just its own words.
        for text in offered:
            self.assertEqual({word for word in Code.words if word in text.upper()}, set(text.upper().split(", ")))
            self.assertLessEqual(2 * (len(text) + 1), number("kLoggingTypeBytes"))

    def test_size_keeps_within_what_the_service_can_count(self):
        for each in self.definitions.iterfind(".//decimal[@valueName='MaxLogSize']", NAMESPACE):
            # 0 counts as absent; a file of 4 GB is set aside whatever the policy says.
            self.assertEqual(int(each.get("minValue")), 1)
            self.assertLess(int(each.get("maxValue")) * number("kBytesPerKilobyte", "logging/log_file.cpp"), 2**32)

    def test_switch_writes_0_and_1(self):
        for policy in self.policies:
            if policy.get("valueName") == "QueuedWrites":
                values = [policy.find(f"{state}Value/decimal", NAMESPACE).get("value")
                          for state in ("enabled", "disabled")]
                self.assertEqual(values, ["1", "0"])

    def test_every_reference_leads_somewhere_and_nothing_is_left_over(self):
        referred = {}
        for element in self.definitions.iter():
            for text in element.attrib.values():
                for kind, name in re.findall(r"\$\((string|presentation)\.(\w+)\)", text):
                    referred.setdefault(kind, set()).add(name)
        ids = {each.get("id") for each in self.definitions.iter() if each.get("id")}
        for language in LANGUAGES:
            with self.subTest(language=language):
                resources = template(f"{language}/LinkvaneService.adml")
                for kind in ("string", "presentation"):
                    found = [each.get("id") for each in resources.iterfind(f".//{kind}", NAMESPACE)]
                    self.assertEqual(sorted(found), sorted(referred[kind]))
                self.assertEqual({each.get("refId") for each in resources.iter() if each.get("refId")}, ids)
        names = [each.get("name") for each in self.definitions.iter() if each.get("name")]
        self.assertEqual(len(names), len(set(names)))
        self.assertLessEqual({each.get("ref") for each in self.definitions.iter() if each.get("ref")}, set(names))

    def test_presentations_show_the_service_s_defaults(self):
        for language in LANGUAGES:
            resources = template(f"{language}/LinkvaneService.adml")
            [size] = resources.iterfind(".//decimalTextBox", NAMESPACE)
            self.assertEqual(int(size.get("defaultValue")), number("kDefaultMaxLogSizeKilobytes"))
            for each in resources.iterfind(".//dropdownList", NAMESPACE):
                self.assertLess(int(each.get("defaultItem")), len(self.choices(each.get("refId"))))
            self.assertTrue(all((each.text or "").strip() for each in resources.iterfind(".//string", NAMESPACE)))

    def test_version_is_the_release_s(self):
        version = constant(r"project\(LinkvaneService VERSION (\d+\.\d+)\.", "CMakeLists.txt")
        self.assertEqual(self.definitions.get("revision"), version)
        self.assertEqual(self.definitions.find("resources", NAMESPACE).get("minRequiredRevision"), version)
        for language in LANGUAGES:
            self.assertEqual(template(f"{language}/LinkvaneService.adml").get("revision"), version)


if __name__ == "__main__":
    unittest.main()
