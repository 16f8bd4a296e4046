"""What scripts/release hands out."""

import hashlib
import http.server
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import threading
import time
import unittest
import zlib

from packages import (PACKAGE, RELEASE, ROOT, alone, make_certificate, make_msi, make_signer, product_code, row,
                      stream)

EXECUTABLE = RELEASE / "LinkvaneService.exe"
PROGRAMS = ("LinkvaneService.exe", "LinkvaneDoctor.exe")
SIGNED = (*PROGRAMS, "LinkvaneService.msi")
SECONDS = 180
PASSWORD = "a b$c"


def content(folder):
    return {str(file.relative_to(folder)): file.read_bytes() for file in folder.rglob("*") if file.is_file()}


def digest(data):
    return hashlib.sha256(data).hexdigest()


def version_texts(executable):
    """The texts of an executable's version resource."""
    image = make_msi.pefile.PE(executable)
    return {name.decode(): text.decode() for info in image.FileInfo[0] if hasattr(info, "StringTable")
            for name, text in info.StringTable[0].entries.items()}


def release(folder, root=ROOT, *arguments, **environment):
    """Makes another release; gives the seconds that it took."""
    started = time.monotonic()
    subprocess.run([root / "scripts/release", *arguments], check=True, stdout=subprocess.DEVNULL,
                   stdin=subprocess.DEVNULL, env={**os.environ, **environment, "LINKVANE_RELEASE": str(folder)})
    return time.monotonic() - started


class Release(unittest.TestCase):
    def test_holds_all_that_a_deployment_needs(self):
        pictures = [picture.name for picture in (ROOT / "docs").glob("doctor-page*")]
        self.assertEqual(set(content(RELEASE)), {
            *PROGRAMS, *(f"{name}.debug" for name in PROGRAMS), "LinkvaneService.msi", "licences.txt", "bom.cdx.json",
            "SHA256SUMS", "policies/LinkvaneService.admx", "policies/en-US/LinkvaneService.adml",
            "policies/de-DE/LinkvaneService.adml", "docs/deployment.md", "docs/operations.md", "docs/logging.md",
            "docs/real-notebooks.md", "docs/doctor.md", "docs/security.md", *(f"docs/{picture}" for picture in pictures),
            "docs/CHANGELOG.md"})

    def test_sums_are_right_and_cover_every_file(self):
        lines = (RELEASE / "SHA256SUMS").read_text().splitlines()
        sums = {name: total for total, name in (line.split("  ", 1) for line in lines)}
        files = content(RELEASE)
        del files["SHA256SUMS"]
        self.assertEqual(sums, {name: digest(data) for name, data in files.items()})

    def test_version_is_the_same_everywhere(self):
        version = re.search(r"project\(LinkvaneService VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
        short = version.rsplit(".", 1)[0]
        for name in PROGRAMS:
            self.assertEqual(".".join(map(str, make_msi.file_version(RELEASE / name))), version)
        self.assertEqual(row("Property", "ProductVersion")["Value"], short)
        self.assertEqual(row("Registry", "InstalledVersion")["Value"], version)
        bill = json.loads((RELEASE / "bom.cdx.json").read_text())
        self.assertEqual(bill["metadata"]["component"]["version"], version)
        self.assertEqual(re.search(r"(?m)^## (.*)$", (RELEASE / "docs/CHANGELOG.md").read_text())[1], short)

    def test_programs_share_one_product_and_have_names_of_their_own(self):
        told = {name: version_texts(RELEASE / name) for name in PROGRAMS}
        for name, texts in told.items():
            self.assertEqual((texts["ProductName"], texts["CompanyName"], texts["OriginalFilename"]),
                             ("Orva Brimlet Support", "Orva", name))
        self.assertEqual([texts["FileDescription"] for texts in told.values()], ["Linkvane Service", "Linkvane Doctor"])

    def test_symbols_belong_to_the_programs(self):
        for name in PROGRAMS:
            with self.subTest(name=name):
                debug = RELEASE / f"{name}.debug"
                sections = subprocess.run(["x86_64-w64-mingw32-objdump", "-h", debug], check=True,
                                          capture_output=True, text=True).stdout
                self.assertIn(".debug_info", sections)
                image = make_msi.pefile.PE(RELEASE / name, fast_load=True)
                # The name of the symbols, filled up to a multiple of four bytes, and the sum of their bytes.
                link = debug.name.encode().ljust(-(-(len(debug.name) + 1) // 4) * 4, b"\0")
                link += zlib.crc32(debug.read_bytes()).to_bytes(4, "little")
                self.assertEqual(sum(link in each.get_data() for each in image.sections), 1)

    def test_licences_are_those_of_what_is_linked_in(self):
        bill = json.loads((RELEASE / "bom.cdx.json").read_text())
        libraries = {each["name"]: each["version"] for each in bill["components"] if each["type"] == "library"}
        # C++ runtime; start-up code and threads; then what the doctor uses.
        self.assertLessEqual({"g++-mingw-w64-x86-64-posix", "mingw-w64-x86-64-dev", "libcli11-dev", "libfmt-dev",
                              "nlohmann-json3-dev", "libz-mingw-w64-dev", "node-d3-scale", "node-d3-zoom",
                              "node-d3-selection"}, set(libraries))
        # Tests are not handed out.
        self.assertNotIn("googletest", libraries)
        licences = (RELEASE / "licences.txt").read_text()
        for name, version in libraries.items():
            installed = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", name], check=True,
                                       capture_output=True, text=True).stdout
            self.assertEqual(version, installed)
            self.assertIn(pathlib.Path("/usr/share/doc", name, "copyright").read_text(), licences)

    def test_bill_of_materials_lists_every_other_file_with_its_sum(self):
        bill = json.loads((RELEASE / "bom.cdx.json").read_text())
        self.assertEqual((bill["bomFormat"], bill["specVersion"]), ("CycloneDX", "1.5"))
        listed = {each["name"]: each["hashes"][0]["content"] for each in bill["components"] if each["type"] == "file"}
        files = content(RELEASE)
        del files["SHA256SUMS"], files["bom.cdx.json"]
        self.assertEqual(listed, {name: digest(data) for name, data in files.items()})

    def test_documents_refer_to_nothing_that_is_not_there(self):
        for page in (RELEASE / "docs").glob("*.md"):
            for target in re.findall(r"\]\(([^)#:]+)\)", page.read_text()):
                self.assertTrue((page.parent / target).exists(), f"{page.name}: {target}")

    def test_tests_that_documents_name_are_there(self):
        page = (ROOT / "docs/security.md").read_text()
        files = {str(file.relative_to(ROOT / "tests")): file for file in (ROOT / "tests").rglob("*_test.*")}
        files["page_test.py"] = ROOT / "doctor/page/tests/page_test.py"
        tests = {(name.rsplit("_test.", 1)[0], found) for name, file in files.items()
                 for found in re.findall(r"(?:TEST(?:_F|_P)?\(\w+,\s*|def )(\w+)", file.read_text())}
        scenarios = {("scenario", file.stem) for file in (ROOT / "notebook/scenarios").glob("*.txt")}
        for text, fewest in ((page, 100), ((ROOT / "docs/architecture.md").read_text(), 20)):
            proofs = set(re.findall(r"`([\w/]+): (\w+)`", text)) - {("folder/file", "name"), ("scenario", "name")}
            self.assertGreater(len(proofs), fewest)
            self.assertEqual(proofs - tests - scenarios, set())
        # Each document that is referred to is listed, and the other way round.
        self.assertEqual(set(re.findall(r"\[(\d+)\]", page)), set(re.findall(r"(?m)^\| (\d+) \|", page)))


class Again(unittest.TestCase):
    def test_same_sources_in_another_folder_give_the_same_bytes(self):
        clone = RELEASE.parent / "another clone"
        shutil.rmtree(clone, ignore_errors=True)
        tracked = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT,
                                 check=True, capture_output=True, text=True).stdout.split("\0")[:-1]
        for name in filter(lambda name: (ROOT / name).is_file(), tracked):
            (clone / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, clone / name)
        # The compiler's cache may give back what was compiled here, but not in another folder.
        release(clone / "build/release", clone, SOURCE_DATE_EPOCH=str(int(PACKAGE.stat().st_mtime)),
                CCACHE_BASEDIR="", CCACHE_HASHDIR="1", TZ="Asia/Kolkata", LC_ALL="C")
        again, first = content(clone / "build/release"), content(RELEASE)
        self.assertEqual([name for name in first if first[name] != again.get(name)], [])

    def test_sources_include_what_they_need(self):
        """Without precompiled headers, and each by itself, they compile without a warning, to the same service."""
        plain = RELEASE.parent / "plain"
        subprocess.run(["cmake", "--preset", "cross", "-B", plain, "-DCMAKE_DISABLE_PRECOMPILE_HEADERS=ON"],
                       cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", plain, "--target", "LinkvaneService"], check=True, stdout=subprocess.DEVNULL)
        stripped = []
        for built in (os.environ["LINKVANE_EXE"], plain / "bin/LinkvaneService.exe"):
            subprocess.run(["x86_64-w64-mingw32-objcopy", "--strip-all", built, plain / "stripped.exe"], check=True)
            stripped.append((plain / "stripped.exe").read_bytes())
        self.assertEqual(*map(digest, stripped))

    def test_release_of_a_built_tree_is_quick(self):
        self.assertLess(release(RELEASE.parent / "release again"), alone(SECONDS))


class TimeStampServer(http.server.BaseHTTPRequestHandler):
    """Answers requests for time stamps (RFC 3161) with the certificate in `folder`."""

    folder = None

    def do_POST(self):
        (self.folder / "request.tsq").write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
        answer = subprocess.run(["openssl", "ts", "-reply", "-config", "stamp.cnf", "-queryfile", "request.tsq"],
                                cwd=self.folder, check=True, capture_output=True).stdout
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    def log_message(self, *_):
        """Silent."""


STAMP_CONFIGURATION = """
[tsa]
default_tsa = stamps
[stamps]
serial = serial
signer_cert = stamp.pem
signer_key = stamp_key.pem
signer_digest = sha256
default_policy = 1.2.3.4
digests = sha256
accuracy = secs:1
"""


class Signing(unittest.TestCase):
    """With a certificate that is thrown away afterwards."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.pkcs12 = make_signer(cls.folder, "signer", PASSWORD)

    def sign(self, name, *arguments, password=PASSWORD):
        """A signed release in a folder of that name."""
        folder = self.folder / name
        release(folder, ROOT, "--sign", str(self.pkcs12), *arguments, LINKVANE_SIGN_PASSWORD=password)
        return folder

    def serve_time_stamps(self):
        """The URL of a time-stamp server, for the length of a test."""
        make_certificate(self.folder, "stamp", "critical,timeStamping")
        (self.folder / "stamp.cnf").write_text(STAMP_CONFIGURATION)
        (self.folder / "serial").write_text("01")
        handler = type("Handler", (TimeStampServer,), {"folder": self.folder})
        server = self.enterContext(http.server.HTTPServer(("127.0.0.1", 0), handler))
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.shutdown)
        return f"http://127.0.0.1:{server.server_port}/"

    def verify(self, file):
        done = subprocess.run(["osslsigncode", "verify", "-CAfile", self.folder / "signer.pem", "-in", file],
                              check=False, capture_output=True, text=True)
        return done.returncode == 0 and "Number of verified signatures: 1" in done.stdout

    def test_signed_files_verify_until_a_byte_is_changed(self):
        signed = self.sign("signed")
        for name in SIGNED:
            with self.subTest(name=name):
                self.assertTrue(self.verify(signed / name))
                data = bytearray((signed / name).read_bytes())
                data[len(data) // 2] ^= 1
                changed = self.folder / f"changed-{name}"
                changed.write_bytes(data)
                self.assertFalse(self.verify(changed))
                self.assertFalse(self.verify(RELEASE / name))
        # The package holds the signed programs, and runs a signed one.
        package = signed / "LinkvaneService.msi"
        for name in PROGRAMS:
            self.assertEqual(int(row("File", name, package)["FileSize"]), (signed / name).stat().st_size)
        check = self.folder / "installer_actions.dll"
        check.write_bytes(stream("Binary.InstallerActions", package))
        self.assertTrue(self.verify(check))
        self.assertNotEqual(product_code(package), product_code(PACKAGE))

    def test_time_stamp_is_that_of_the_server(self):
        stamped = self.sign("stamped", "--timestamp", self.serve_time_stamps())
        for name in SIGNED:
            with self.subTest(name=name):
                done = subprocess.run(["osslsigncode", "verify", "-CAfile", self.folder / "signer.pem", "-TSA-CAfile",
                                       self.folder / "stamp.pem", "-in", stamped / name],
                                      check=False, capture_output=True, text=True)
                self.assertEqual(done.returncode, 0, done.stdout)
                self.assertIn("Timestamp Server Signature verification: ok", done.stdout)

    def test_release_ends_without_its_time_stamp(self):
        with self.assertRaises(subprocess.CalledProcessError):
            self.sign("unstamped", "--timestamp", "http://127.0.0.1:1/")
        self.assertFalse((self.folder / "unstamped").exists())

    def test_command_is_given_each_file_to_sign(self):
        note = self.folder / "signed.txt"
        release(self.folder / "by-command", ROOT, "--sign", f"basename >>'{note}'")
        self.assertEqual(note.read_text().split(),
                         [*PROGRAMS, "installer_actions.dll", "LinkvaneService.msi"])

    def test_wrong_password_ends_the_release(self):
        with self.assertRaises(subprocess.CalledProcessError):
            self.sign("refused", password="wrong")
        self.assertFalse((self.folder / "refused").exists())


if __name__ == "__main__":
    unittest.main()
