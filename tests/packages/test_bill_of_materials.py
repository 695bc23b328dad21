# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The bill of materials beside each package: SPDX 2.3."""

from __future__ import annotations

import hashlib
import json
import re
from collections.abc import Callable
from pathlib import Path
from typing import Any

import pytest

from tools import files_below, run


@pytest.fixture(params=["amd64", "arm64"])
def architecture(request: pytest.FixtureRequest) -> str:
    return str(request.param)


@pytest.fixture
def bill(packages: dict[str, Path], architecture: str) -> dict[str, Any]:
    path = packages[architecture].with_suffix(".spdx.json")
    content = json.loads(path.read_text("utf-8"))
    assert isinstance(content, dict)
    return content


def test_it_names_the_package(bill: dict[str, Any], packages: dict[str, Path], version: str,
                              architecture: str) -> None:
    assert (bill["spdxVersion"], bill["dataLicense"]) == ("SPDX-2.3", "CC0-1.0")
    assert re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", bill["creationInfo"]["created"])
    package = bill["packages"][0]
    assert package["name"] == "pynx-watchdog"
    assert package["versionInfo"] == version
    assert package["licenseDeclared"] == "MIT"
    digest = hashlib.sha256(packages[architecture].read_bytes()).hexdigest()
    assert package["checksums"] == [{"algorithm": "SHA256", "checksumValue": digest}]
    assert digest in bill["documentNamespace"]


def test_it_has_every_file(bill: dict[str, Any], unpacked: Callable[[str], Path],
                           architecture: str) -> None:
    root = unpacked(architecture)
    listed = {}
    for entry in bill["files"]:
        for checksum in entry["checksums"]:
            listed[entry["fileName"], checksum["algorithm"]] = checksum["checksumValue"]
    expected = {}
    for name, target in files_below(root).items():
        if not target:
            content = (root / name).read_bytes()
            expected[f"./{name}", "SHA1"] = hashlib.sha1(content).hexdigest()
            expected[f"./{name}", "SHA256"] = hashlib.sha256(content).hexdigest()
    assert listed == expected
    sums = "".join(sorted(value for (_, kind), value in expected.items() if kind == "SHA1"))
    assert bill["packages"][0]["packageVerificationCode"] == {
        "packageVerificationCodeValue": hashlib.sha1(sums.encode()).hexdigest()}


@pytest.mark.parametrize(("field", "kind"), [
    ("Depends", "DEPENDS_ON"), ("Built-Using", "STATIC_LINK")])
def test_it_has_every_other_package(bill: dict[str, Any], packages: dict[str, Path],
                                    architecture: str, field: str, kind: str) -> None:
    named = run("dpkg-deb", "--field", packages[architecture], field).strip()
    related = {entry["relatedSpdxElement"] for entry in bill["relationships"]
               if entry["relationshipType"] == kind}
    listed = [f"{entry['name']} ({entry['versionInfo']})" if "versionInfo" in entry
              else entry["name"] for entry in bill["packages"] if entry["SPDXID"] in related]
    assert listed == named.split(", ")


def test_its_elements_are_related(bill: dict[str, Any]) -> None:
    elements = [entry["SPDXID"] for entry in bill["packages"] + bill["files"]]
    assert len(set(elements)) == len(elements)
    for element in elements:
        assert re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", element)
    assert sorted(entry["relatedSpdxElement"] for entry in bill["relationships"]) \
        == sorted(elements)
    assert {entry["spdxElementId"] for entry in bill["relationships"]} \
        == {"SPDXRef-DOCUMENT", "SPDXRef-Package"}
