"""What the executable file says of itself: its version and what it runs on."""

import re
import unittest

from rig import EXECUTABLE, file_version


class Executable(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.content = EXECUTABLE.read_bytes()

    def expect_content(self, wanted):
        # Not assertIn, which would print the whole file.
        self.assertTrue(wanted in self.content, f"{wanted!r} is not in the executable")

    def test_version_is_the_first_release_line_as_numbers_and_as_text(self):
        version = file_version()
        self.assertEqual(version[:3], (1, 0, 0))
        text = ".".join(str(part) for part in version)
        for name in ("FileVersion", "ProductVersion"):
            with self.subTest(name=name):
                # Name and text stand behind a head of six bytes, the text at a multiple of four.
                padding = "\0" * (len(name) % 2)
                self.expect_content(f"{name}\0{padding}{text}\0".encode("utf-16-le"))

    def test_manifest_names_every_supported_system(self):
        # Windows 8, 8.1, 10 and 11.
        supported = {
            b"{4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38}", b"{1f676c76-80e1-4239-95bb-83d0f6d0da78}",
            b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}",
        }
        named = re.findall(rb'<supportedOS Id="([^"]*)"', self.content)
        self.assertEqual(set(named), supported)

    def test_carries_version_and_manifest(self):
        self.expect_content("ProductName\0".encode("utf-16-le"))
        self.expect_content("Orva Brimlet Support\0".encode("utf-16-le"))
        self.expect_content("040904B0".encode("utf-16-le"))
        # Language 0x0409 and code page 1200 behind the aligned name.
        self.expect_content("Translation\0".encode("utf-16-le") + b"\0\0" + b"\x09\x04\xb0\x04")
        self.expect_content(b'<requestedExecutionLevel level="asInvoker"')


if __name__ == "__main__":
    unittest.main()
