"""What scripts/release hands out."""

import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest

from packages import PACKAGE, RELEASE, ROOT, make_msi, product_code, row

EXECUTABLE = RELEASE / "LinkvaneService.exe"
SECONDS = 180


def content(folder):
    return {str(file.relative_to(folder)): file.read_bytes() for file in folder.rglob("*") if file.is_file()}


def digest(data):
    return hashlib.sha256(data).hexdigest()


def release(folder, root=ROOT, *arguments, **environment):
    """Makes another release; gives the seconds that it took."""
    started = time.monotonic()
    subprocess.run([root / "scripts/release", *arguments], check=True, stdout=subprocess.DEVNULL,
                   stdin=subprocess.DEVNULL, env={**os.environ, **environment, "LINKVANE_RELEASE": str(folder)})
    return time.monotonic() - started


class Release(unittest.TestCase):
    def test_holds_all_that_a_deployment_needs(self):
        self.assertEqual(set(content(RELEASE)), {
            "LinkvaneService.exe", "LinkvaneService.exe.debug", "LinkvaneService.msi", "licences.txt",
            "bom.cdx.json", "SHA256SUMS", "policies/LinkvaneService.admx", "policies/en-US/LinkvaneService.adml",
            "policies/de-DE/LinkvaneService.adml", "docs/deployment.md", "docs/operations.md", "docs/logging.md",
            "docs/real-notebooks.md", "docs/CHANGELOG.md"})

    def test_sums_are_right_and_cover_every_file(self):
        lines = (RELEASE / "SHA256SUMS").read_text().splitlines()
        sums = {name: total for total, name in (line.split("  ", 1) for line in lines)}
        files = content(RELEASE)
        del files["SHA256SUMS"]
        self.assertEqual(sums, {name: digest(data) for name, data in files.items()})

    def test_version_is_the_same_everywhere(self):
        version = re.search(r"project\(LinkvaneService VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())[1]
        short = version.rsplit(".", 1)[0]
        self.assertEqual(".".join(map(str, make_msi.file_version(EXECUTABLE))), version)
        self.assertEqual(row("Property", "ProductVersion")["Value"], short)
        self.assertEqual(row("Registry", "InstalledVersion")["Value"], version)
        bill = json.loads((RELEASE / "bom.cdx.json").read_text())
        self.assertEqual(bill["metadata"]["component"]["version"], version)
        self.assertEqual(re.search(r"(?m)^## (.*)$", (RELEASE / "docs/CHANGELOG.md").read_text())[1], short)

    def test_symbols_belong_to_the_executable(self):
        sections = subprocess.run(["x86_64-w64-mingw32-objdump", "-h", RELEASE / "LinkvaneService.exe.debug"],
                                  check=True, capture_output=True, text=True).stdout
        self.assertIn(".debug_info", sections)
        link = subprocess.run(["x86_64-w64-mingw32-objdump", "-s", "-j", ".gnu_debuglink", EXECUTABLE], check=True,
                              capture_output=True, text=True).stdout
        self.assertIn("LinkvaneService", link)

    def test_licences_are_those_of_what_is_linked_in(self):
        bill = json.loads((RELEASE / "bom.cdx.json").read_text())
        libraries = {each["name"]: each["version"] for each in bill["components"] if each["type"] == "library"}
        # C++ runtime; start-up code and threads.
        self.assertLessEqual({"g++-mingw-w64-x86-64-posix", "mingw-w64-x86-64-dev"}, set(libraries))
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
        for page in (RELEASE / "docs").iterdir():
            for target in re.findall(r"\]\(([^)#:]+)\)", page.read_text()):
                self.assertTrue((page.parent / target).exists(), f"{page.name}: {target}")


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

    def test_release_of_a_built_tree_is_quick(self):
        self.assertLess(release(RELEASE.parent / "release again"), SECONDS)


class Signing(unittest.TestCase):
    """With a certificate that is thrown away afterwards."""

    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.certificate = cls.folder / "certificate.pem"
        key, cls.pkcs12 = cls.folder / "key.pem", cls.folder / "signer.p12"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
                        "-subj", "/CN=Thrown away", "-addext", "extendedKeyUsage=codeSigning", "-keyout", key,
                        "-out", cls.certificate],
                       check=True, capture_output=True)
        subprocess.run(["openssl", "pkcs12", "-export", "-passout", "pass:a b$c", "-inkey", key, "-in", cls.certificate,
                        "-out", cls.pkcs12], check=True)

    def verify(self, file):
        done = subprocess.run(["osslsigncode", "verify", "-CAfile", self.certificate, "-in", file], check=False,
                              capture_output=True, text=True)
        return done.returncode == 0 and "Number of verified signatures: 1" in done.stdout

    def test_signed_files_verify_until_a_byte_is_changed(self):
        signed = self.folder / "signed"
        release(signed, ROOT, "--sign", str(self.pkcs12), LINKVANE_SIGN_PASSWORD="a b$c")
        for name in ("LinkvaneService.exe", "LinkvaneService.msi"):
            with self.subTest(name=name):
                self.assertTrue(self.verify(signed / name))
                data = bytearray((signed / name).read_bytes())
                data[len(data) // 2] ^= 1
                changed = self.folder / f"changed-{name}"
                changed.write_bytes(data)
                self.assertFalse(self.verify(changed))
                self.assertFalse(self.verify(RELEASE / name))
        # The package holds the signed executable.
        self.assertEqual(int(row("File", "LinkvaneService.exe", signed / "LinkvaneService.msi")["FileSize"]),
                         (signed / "LinkvaneService.exe").stat().st_size)
        self.assertNotEqual(product_code(signed / "LinkvaneService.msi"), product_code(PACKAGE))

    def test_command_is_given_each_file_to_sign(self):
        note = self.folder / "signed.txt"
        release(self.folder / "by-command", ROOT, "--sign", f"basename >>'{note}'")
        self.assertEqual(note.read_text().split(), ["LinkvaneService.exe", "LinkvaneService.msi"])

    def test_wrong_password_ends_the_release(self):
        with self.assertRaises(subprocess.CalledProcessError):
            release(self.folder / "refused", ROOT, "--sign", str(self.pkcs12), LINKVANE_SIGN_PASSWORD="wrong")
        self.assertFalse((self.folder / "refused").exists())


if __name__ == "__main__":
    unittest.main()
