"""What the programs that are handed out, and the library that the package runs, give to nobody who would attack."""

import pathlib
import re
import unittest

from packages import RELEASE, ROOT, make_msi, stream

# All libraries that each of them names, be it to load them at once or later. Windows has every one of them, and
# by none of them does a program itself speak or listen to a network, as by ws2_32.dll, winhttp.dll or rpcrt4.dll.
COMMON = {"advapi32.dll", "kernel32.dll", "msvcrt.dll"}
OF_BOTH_PROGRAMS = COMMON | {"iphlpapi.dll", "ole32.dll", "oleaut32.dll", "shell32.dll", "version.dll", "wlanapi.dll"}
LIBRARIES = {
    "LinkvaneService.exe": OF_BOTH_PROGRAMS | {"sensapi.dll"},
    "LinkvaneDoctor.exe": OF_BOTH_PROGRAMS | {"user32.dll"},
    "installer_actions.dll": COMMON | {"msi.dll"},
}
# What a library's name looks like, in one byte or two a letter. In two it stands behind a zero: a text in one
# byte a letter may end right before it.
NAMES_OF_LIBRARIES = (re.compile(rb"[\w.-]+\.dll\b", re.IGNORECASE),
                      re.compile(rb"(?<=\0)(?:[\w.-]\0)+\.\0d\0l\0l\0(?!\w)", re.IGNORECASE))

# What Windows Installer calls.
ACTIONS = [b"MeasureFolder", b"StartInstalledService", b"WaitForEnd"]

# By these others come in: pipes, mail slots, shared memory, classes that can be asked for, windows.
WAYS_IN = {"CreateNamedPipeA", "CreateNamedPipeW", "CreateMailslotA", "CreateMailslotW", "CreateFileMappingA",
           "CreateFileMappingW", "CoRegisterClassObject", "CreateWindowExA", "CreateWindowExW"}

# Where compilers and Debian's packages were built, and where a home folder would be told of.
PLACES = [str(ROOT), "/build/", "/home/", f"{pathlib.Path.home()}/", "/usr/"]


def content(name):
    return stream("Binary.InstallerActions") if name == "installer_actions.dll" else (RELEASE / name).read_bytes()


def libraries_named(data):
    """Every library whose name stands in the bytes, in small letters."""
    found = {each.replace(b"\0", b"") for pattern in NAMES_OF_LIBRARIES for each in pattern.findall(data)}
    return {name.decode().lower() for name in found}


def of_each(judge):
    """A test of each file, by its name, bytes and image."""
    def test(self):
        for name, image in self.images.items():
            with self.subTest(name=name):
                judge(self, name, self.contents[name], image)
    return test


class Hardening(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.contents = {name: content(name) for name in LIBRARIES}
        cls.images = {name: make_msi.pefile.PE(data=data) for name, data in cls.contents.items()}

    @of_each
    def test_is_for_64_bit_windows(self, _name, _data, image):
        self.assertEqual(image.FILE_HEADER.Machine, make_msi.pefile.MACHINE_TYPE["IMAGE_FILE_MACHINE_AMD64"])

    @of_each
    def test_stands_at_another_place_in_memory_each_time(self, _name, _data, image):
        self.assertTrue(image.OPTIONAL_HEADER.IMAGE_DLLCHARACTERISTICS_DYNAMIC_BASE)
        self.assertTrue(image.OPTIONAL_HEADER.IMAGE_DLLCHARACTERISTICS_HIGH_ENTROPY_VA)
        # Windows moves only what has relocations; a stripped file may have lost them.
        self.assertFalse(image.FILE_HEADER.IMAGE_FILE_RELOCS_STRIPPED)
        self.assertGreater(sum(len(block.entries) for block in getattr(image, "DIRECTORY_ENTRY_BASERELOC", ())), 0)

    @of_each
    def test_runs_no_data_and_writes_no_code(self, _name, _data, image):
        self.assertTrue(image.OPTIONAL_HEADER.IMAGE_DLLCHARACTERISTICS_NX_COMPAT)
        runnable = [section for section in image.sections if section.IMAGE_SCN_MEM_EXECUTE]
        self.assertEqual([section.Name.rstrip(b"\0") for section in runnable], [b".text"])
        self.assertFalse(runnable[0].IMAGE_SCN_MEM_WRITE)

    @of_each
    def test_guards_its_stack(self, _name, data, _image):
        # What the runtime says before it ends a process whose stack was overwritten.
        self.assertEqual(data.count(b"stack smashing detected"), 1)

    @of_each
    def test_names_no_library_but_those_of_windows(self, name, data, image):
        imported = {entry.dll.decode().lower() for entry in image.DIRECTORY_ENTRY_IMPORT}
        self.assertLessEqual(COMMON, imported)
        # A library that exports names itself, too.
        self.assertEqual(libraries_named(data) | imported, LIBRARIES[name] | ({name} & {"installer_actions.dll"}))

    def test_doctor_looks_for_libraries_in_no_folder_of_its_callers(self):
        entries = self.images["LinkvaneDoctor.exe"].DIRECTORY_ENTRY_IMPORT
        imported = {each.name.decode() for entry in entries for each in entry.imports}
        self.assertIn("SetDefaultDllDirectories", imported)

    @of_each
    def test_offers_nothing_that_others_could_call(self, name, _data, image):
        imported = {each.name.decode() for entry in image.DIRECTORY_ENTRY_IMPORT for each in entry.imports}
        self.assertIn("GetLastError", imported)
        self.assertEqual(imported & WAYS_IN, set())
        exported = getattr(image, "DIRECTORY_ENTRY_EXPORT", None)
        self.assertEqual([each.name for each in exported.symbols] if exported else [],
                         ACTIONS if name == "installer_actions.dll" else [])

    @of_each
    def test_tells_nobody_where_it_was_built(self, _name, data, image):
        self.assertFalse(hasattr(image, "DIRECTORY_ENTRY_DEBUG"))
        for place in PLACES:
            for encoding in ("utf-8", "utf-16-le"):
                # Not assertNotIn, which would print the whole file.
                self.assertFalse(place.encode(encoding) in data, place)

    @of_each
    def test_asks_for_no_more_rights_than_its_caller_has(self, name, data, _image):
        levels = re.findall(rb'<requestedExecutionLevel level="(\w+)" uiAccess="(\w+)"', data)
        self.assertEqual(levels, [] if name == "installer_actions.dll" else [(b"asInvoker", b"false")])


if __name__ == "__main__":
    unittest.main()
