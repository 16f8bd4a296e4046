#!/usr/bin/python3
"""What the toolchain's libraries contribute to the programs, told by the linker's maps:

    linked_in.py licences MAP...                  prints the licences of what was linked in
    linked_in.py bill FOLDER VERSION MAP...       prints a bill of materials (CycloneDX 1.5) of the files in
                                                  FOLDER; its time comes from SOURCE_DATE_EPOCH
"""

import datetime
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import uuid

# Archives of which a member was needed, and the start-up objects.
LINKED = re.compile(r"^(/\S+\.a)\(|^LOAD (/\S+\.o)$", re.MULTILINE)


def packages(maps):
    """The Debian packages that own what was linked in, with their versions."""
    files = {os.path.realpath(archive or start_up)
             for each in maps for archive, start_up in LINKED.findall(pathlib.Path(each).read_text())}
    if not files:
        sys.exit("linked_in.py: nothing is linked in, say the maps")
    owners = subprocess.run(["dpkg-query", "--search", *files], check=True, stdout=subprocess.PIPE, text=True).stdout
    names = sorted({line.split(": ")[0] for line in owners.splitlines()})
    found = subprocess.run(["dpkg-query", "--show", *names], check=True, stdout=subprocess.PIPE, text=True).stdout
    return [tuple(line.split("\t")) for line in found.splitlines()]


def licences(maps):
    """Each different text once, with the packages that it is for."""
    texts = {}
    for name, _ in packages(maps):
        text = pathlib.Path("/usr/share/doc", name, "copyright").read_text(encoding="utf-8")
        texts.setdefault(text, []).append(name)
    return "".join(f"{'=' * 100}\n{', '.join(names)}\n{'=' * 100}\n\n{text}\n" for text, names in texts.items())


def bill(folder, version, maps):
    files = [{"type": "file", "name": str(file.relative_to(folder)),
              "hashes": [{"alg": "SHA-256", "content": hashlib.sha256(file.read_bytes()).hexdigest()}]}
             for file in sorted(folder.rglob("*")) if file.is_file()]
    libraries = [{"type": "library", "name": name, "version": debian, "purl": f"pkg:deb/debian/{name}@{debian}",
                  "bom-ref": name, "description": "linked in, as far as the programs use it; licence in licences.txt"}
                 for name, debian in packages(maps)]
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
        case ["licences", _, *_]:
            print(licences(sys.argv[2:]), end="")
        case ["bill", where, wanted, _, *_]:
            print(json.dumps(bill(pathlib.Path(where), wanted, sys.argv[4:]), indent=2))
        case _:
            sys.exit(__doc__)
