#!/usr/bin/python3
"""Which Debian packages became part of the programs:

    linked_in.py licences BUILD PROGRAM...            prints the licences of what was linked in
    linked_in.py bill BUILD FOLDER VERSION PROGRAM... prints a bill of materials (CycloneDX 1.5) of the
                                                      files in FOLDER; its time is SOURCE_DATE_EPOCH

BUILD is the build folder. The linker's map of a program names its libraries, the compiler's record of what
it read the headers, and the bundler's the scripts of the doctor's page.
"""

import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import urllib.parse
import uuid

# Archives of which a member was needed, and objects. A path that is not absolute is our own.
LINKED = re.compile(r"^(\S+\.a)\(|^LOAD (\S+\.o(?:bj)?)$", re.MULTILINE)
LIBRARY_OF_ARCHIVE = re.compile(r"lib([^/]+)\.a$")
PAGE, PAGE_SOURCES = "linkvane_page", pathlib.Path(__file__).resolve().parents[1] / "doctor/page"


def linked(build, program):
    """The archives and objects that the program's map names."""
    found = LINKED.findall((build / f"bin/{program}.exe.map").read_text())
    if not found:
        sys.exit(f"linked_in.py: nothing is linked into {program}, says its map")
    return {archive or thing for archive, thing in found}


def headers_of(build):
    """The headers that were read for each target of ours."""
    record = subprocess.run(["ninja", "-C", build, "-t", "deps"], check=True, stdout=subprocess.PIPE, text=True).stdout
    headers = {}
    for entry in record.split("\n\n"):
        made, *read = entry.split("\n")
        if target := re.search(r"CMakeFiles/([^/]+)\.dir/", made):
            headers.setdefault(target[1], set()).update(line.strip() for line in read)
    return headers


def scripts(build):
    """The JavaScript files of which something came into the page."""
    record = json.loads((build / "doctor/page/bundle/inputs.json").read_text())
    return {str(PAGE_SOURCES / name) for output in record["outputs"].values()
            for name, share in output["inputs"].items() if share["bytesInOutput"]}


def sources(build, program):
    """Every file of others that became part of the program."""
    files, targets = set(), set()
    for path in linked(build, program):
        if path.startswith("/"):
            files.add(path)
        elif target := LIBRARY_OF_ARCHIVE.search(path) or re.search(r"CMakeFiles/([^/]+)\.dir/", path):
            targets.add(target[1])
    headers = headers_of(build)
    files.update(*(headers.get(target, ()) for target in targets))
    return files | (scripts(build) if PAGE in targets else set())


def packages(build, programs):
    """The Debian packages that own what became part of the programs, with their versions."""
    ours = str(PAGE_SOURCES.parents[1]) + "/"
    files = {os.path.realpath(build / file) for program in programs for file in sources(build, program)}
    files = sorted(file for file in files if not file.startswith(ours))
    owners = subprocess.run(["dpkg-query", "--search", *files], check=True, stdout=subprocess.PIPE, text=True).stdout
    names = sorted({line.split(":")[0] for line in owners.splitlines()})
    found = subprocess.run(["dpkg-query", "--show", "--showformat=${Package}\t${Version}\n", *names], check=True,
                           stdout=subprocess.PIPE, text=True).stdout
    return [tuple(line.split("\t")) for line in found.splitlines()]


def licences(build, programs):
    """Each different text once, with the packages that it is for."""
    texts = {}
    for name, _ in packages(build, programs):
        text = pathlib.Path("/usr/share/doc", name, "copyright").read_text(encoding="utf-8")
        texts.setdefault(text, []).append(name)
    return "".join(f"{'=' * 100}\n{', '.join(names)}\n{'=' * 100}\n\n{text}\n" for text, names in texts.items())


def bill(build, folder, version, programs):
    files = [{"type": "file", "name": str(file.relative_to(folder)),
              "hashes": [{"alg": "SHA-256", "content": hashlib.sha256(file.read_bytes()).hexdigest()}]}
             for file in sorted(folder.rglob("*")) if file.is_file()]
    libraries = [{"type": "library", "name": name, "version": debian,
                  "purl": f"pkg:deb/debian/{name}@{urllib.parse.quote(debian, safe='')}",
                  "bom-ref": name, "description": "linked in, as far as the programs use it; licence in licences.txt"}
                 for name, debian in packages(build, programs)]
    time = datetime.datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), datetime.timezone.utc)
    content = json.dumps([version, files, libraries])
    return {
        "bomFormat": "CycloneDX", "specVersion": "1.5", "version": 1,
        "serialNumber": f"urn:uuid:{uuid.uuid5(uuid.NAMESPACE_OID, content)}",
        "metadata": {
            "timestamp": time.strftime("%Y-%m-%dT%H:%M:%SZ"),
            "component": {"type": "application", "name": "Linkvane Service", "version": version,
                          "publisher": "Orva", "bom-ref": "linkvane"}},
        "components": files + libraries,
        "dependencies": [{"ref": "linkvane", "dependsOn": [each["bom-ref"] for each in libraries]}],
    }


if __name__ == "__main__":
    match sys.argv[1:]:
        case ["licences", where, *wanted] if wanted:
            print(licences(pathlib.Path(where), wanted), end="")
        case ["bill", where, handed_out, number, *wanted] if wanted:
            print(json.dumps(bill(pathlib.Path(where), pathlib.Path(handed_out), number, wanted), indent=2))
        case _:
            sys.exit(__doc__)
