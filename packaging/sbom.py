# SPDX-License-Identifier: MIT
"""The software bill of materials of a release: an SPDX 2.3 document in JSON.

It lists every file of the tarball, and as packages what the library runs with, what the command is
built with, and the tools that the library runs, all as packaging/debian/control names them.
"""

import hashlib
import json
import re
import tarfile

from project import MAINTAINER, NAME, control_names

# Of libkestrova-system1's programs: Debian computes these, a test compares them with the packages.
RUNTIME = ("libc6", "libgcc-s1", "libstdc++6")
LICENCE_MARK = re.compile(rb"SPDX-License-Identifier: ([\w.+-]+)")
COPYRIGHT = re.compile(r"^Copyright \(c\) .*", re.M)


def spdx_id(kind, name):
    return f"SPDXRef-{kind}-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)


def files_of(tarball):
    """(name, content) of the regular files, without the tarball's top folder."""
    with tarfile.open(tarball) as archive:
        for member in archive:
            if member.isfile():
                yield member.name.partition("/")[2], archive.extractfile(member).read()


def file_entry(number, name, content):
    mark = LICENCE_MARK.search(content[:2000])
    found = mark[1].decode() if mark else "NONE"
    return {
        "fileName": f"./{name}",
        "SPDXID": f"SPDXRef-File-{number}",
        "checksums": [
            {"algorithm": "SHA1", "checksumValue": hashlib.sha1(content).hexdigest()},
            {"algorithm": "SHA256", "checksumValue": hashlib.sha256(content).hexdigest()}],
        "licenseConcluded": "MIT",
        "licenseInfoInFiles": [found],
        "copyrightText": "NOASSERTION",
    }


def verification_code(files):
    """SHA-1 of the files' sorted SHA-1s, as SPDX defines it."""
    digests = sorted(entry["checksums"][0]["checksumValue"] for entry in files)
    return hashlib.sha1("".join(digests).encode()).hexdigest()


def foreign_package(name):
    return {
        "name": name,
        "SPDXID": spdx_id("Package", name),
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": False,
        "licenseConcluded": "NOASSERTION",
        "licenseDeclared": "NOASSERTION",
        "copyrightText": "NOASSERTION",
        "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                          "referenceLocator": f"pkg:deb/debian/{name.replace('+', '%2B')}"}],
    }


def document(tarball, version, created):
    """The text of the document; created is a time in UTC."""
    digest = hashlib.sha256(tarball.read_bytes()).hexdigest()
    contents = sorted(files_of(tarball))
    files = [file_entry(number, *entry) for number, entry in enumerate(contents, 1)]
    own = {
        "name": NAME,
        "SPDXID": spdx_id("Package", NAME),
        "versionInfo": version,
        "packageFileName": tarball.name,
        "supplier": f"Organization: {MAINTAINER.partition(' <')[0]}",
        "downloadLocation": "NOASSERTION",
        "filesAnalyzed": True,
        "packageVerificationCode": {"packageVerificationCodeValue": verification_code(files)},
        "checksums": [{"algorithm": "SHA256", "checksumValue": digest}],
        "licenseConcluded": "MIT",
        "licenseDeclared": "MIT",
        "licenseInfoFromFiles": sorted({entry["licenseInfoInFiles"][0] for entry in files} - {"NONE"}),
        "copyrightText": COPYRIGHT.search(dict(contents)["LICENSE"].decode())[0],
        "primaryPackagePurpose": "LIBRARY",
    }
    groups = (("RUNTIME_DEPENDENCY_OF", RUNTIME),
              ("BUILD_DEPENDENCY_OF", control_names("Build-Depends")),
              ("OPTIONAL_DEPENDENCY_OF", control_names("Recommends")))
    foreign = sorted({name for _, names in groups for name in names})

    def relation(first, kind, second):
        return {"spdxElementId": first, "relationshipType": kind, "relatedSpdxElement": second}

    relations = [relation("SPDXRef-DOCUMENT", "DESCRIBES", own["SPDXID"])]
    relations += [relation(own["SPDXID"], "CONTAINS", entry["SPDXID"]) for entry in files]
    relations += [relation(spdx_id("Package", name), kind, own["SPDXID"])
                  for kind, names in groups for name in names]
    return json.dumps({
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{NAME}-{version}",
        "documentNamespace": f"https://kestrova.invalid/spdx/{NAME}-{version}-{digest}",
        "creationInfo": {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"),
                         "creators": [f"Tool: {NAME}-release-{version}",
                                      f"Organization: {MAINTAINER.partition(' <')[0]}"]},
        "packages": [own, *map(foreign_package, foreign)],
        "files": files,
        "relationships": relations,
    }, indent=1) + "\n"
