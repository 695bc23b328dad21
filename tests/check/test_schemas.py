# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
"""The schemas of the settings, by two validators, and pynx-watchdog-check beside them."""

from __future__ import annotations

import json
import os
import re
import subprocess
from pathlib import Path
from typing import Any

import jsonschema  # type: ignore[import]
import pytest

from checked import Check
from markers import MARK, enveloped
from test_documents import CONTENTS, DOCUMENTS, MEMORY

ROOT = Path(__file__).resolve().parents[2]
SCHEMAS = {path.name.replace(".schema.json", ".json"): json.loads(path.read_text("utf-8"))
           for path in (ROOT / "schemas").glob("*.schema.json")}
FACTORY = sorted((ROOT / "settings-default").glob("*.json"))


def by_node(pairs: list[tuple[str, Any]]) -> list[bool]:
    """Whether the documents fit, as node's validator says."""
    given = json.dumps([(SCHEMAS[name], document) for name, document in pairs])
    # Where Debian has node's libraries; a node from elsewhere does not look there by itself.
    environment = {**os.environ, "NODE_PATH": "/usr/share/nodejs"}
    result = subprocess.run(["node", Path(__file__).parent / "validate.js"], input=given,
                            stdout=subprocess.PIPE, check=True, encoding="utf-8", env=environment)
    verdicts: list[bool] = json.loads(result.stdout)
    return verdicts


def by_python(name: str, document: Any) -> bool:
    """Whether the document fits, as Python's validator says."""
    return bool(jsonschema.Draft7Validator(SCHEMAS[name]).is_valid(document))


def table() -> list[tuple[str, str]]:
    """The documents of the other tests that every reader of JSON can read, with their names."""
    texts = [(name, enveloped(content)) for name, wrong, right, *_ in CONTENTS
             for content in (wrong, right)]
    texts += [(MEMORY, text) for text, *_ in DOCUMENTS]
    readable = []
    for name, marked in texts:
        text = marked.replace(MARK, "")
        try:
            json.loads(text)
        except json.JSONDecodeError:
            continue
        readable.append((name, text))
    return readable


def test_each_document_has_a_schema() -> None:
    assert sorted(SCHEMAS) == [path.name for path in FACTORY]


@pytest.mark.parametrize("name", sorted(SCHEMAS))
def test_the_schema_is_right_by_the_draft_that_it_names(name: str) -> None:
    schema = SCHEMAS[name]
    assert jsonschema.validators.validator_for(schema) is jsonschema.Draft7Validator
    jsonschema.Draft7Validator.check_schema(schema)
    # what it uses means the same in the newest draft
    newest = jsonschema.Draft202012Validator
    newest.check_schema({**schema, "$schema": newest.META_SCHEMA["$schema"]})


@pytest.mark.parametrize("document", FACTORY, ids=[path.stem for path in FACTORY])
def test_the_factory_document_names_its_schema_and_fits(document: Path) -> None:
    content = json.loads(document.read_text("utf-8"))
    assert (document.parent / content["$schema"]).resolve() == \
        ROOT / "schemas" / f"{document.stem}.schema.json"
    assert by_python(document.name, content)
    assert by_node([(document.name, content)]) == [True]


def test_both_validators_say_the_same(check: Check, tmp_path: Path) -> None:
    texts = table()
    pairs = [(name, json.loads(text)) for name, text in texts]
    verdicts = [by_python(name, document) for name, document in pairs]
    assert by_node(pairs) == verdicts
    assert {True, False} == set(verdicts)
    # What the schemas refuse, the tool tells of.
    for (name, text), fits in zip(texts, verdicts, strict=True):
        if not fits:
            document = tmp_path / name
            document.write_text(text, "utf-8")
            assert check("--strict", document).status == 1, text


# What a schema can tell of a value alone.
RULES_OF_VALUE = {"missing-member", "size-empty", "size-number", "size-range", "size-suffix",
                  "size-zero", "unknown-member", "unusual-value", "upload-prefix", "wrong-type"}


@pytest.mark.parametrize("name, wrong", [
    pytest.param(name, wrong, id=f"{name[:-5]}-{wrong}") for name, wrong, _, *rules in CONTENTS
    if RULES_OF_VALUE.intersection(" ".join(rules).split())])
def test_the_schema_refuses_what_the_tool_tells_of_a_value(name: str, wrong: str) -> None:
    assert not by_python(name, json.loads(enveloped(wrong).replace(MARK, "")))


def every_member(schema: dict[str, Any]) -> list[dict[str, Any]]:
    """The schemas of all members below a schema."""
    members = [*schema.get("properties", {}).values(), schema.get("additionalProperties")]
    members = [member for member in members if isinstance(member, dict)]
    below = [*members, *([schema["items"]] if "items" in schema else [])]
    return members + [member for part in below for member in every_member(part)]


@pytest.mark.parametrize("name", sorted(SCHEMAS))
def test_every_member_is_described(name: str) -> None:
    members = every_member(SCHEMAS[name])
    assert members
    assert all(member["description"].endswith(".") for member in members)


def guides() -> list[Path]:
    """The documents that show settings, or might one day."""
    return [*sorted((ROOT / "docs").glob("*.md")), ROOT / "README.md",
            *sorted((ROOT / "packaging").glob("**/*.md")),
            *sorted((ROOT / "packaging/man").glob("*.in"))]


def settings_in(guide: Path) -> list[str]:
    """The settings documents that a guide shows."""
    text = guide.read_text("utf-8")
    if guide.suffix == ".in":  # a man page, in which a hyphen has a backslash
        text = text.replace("\\-", "-")
    found = []
    for start in re.finditer(r"\{\s*\"", text):
        try:
            document, length = json.JSONDecoder().raw_decode(text[start.start():])
        except json.JSONDecodeError:
            continue
        if "value" in document:
            found.append(text[start.start():start.start() + length])
    return found


def test_the_settings_in_the_documents_are_right(check: Check, tmp_path: Path) -> None:
    shown = [(guide, text) for guide in guides() for text in settings_in(guide)]
    assert {guide.name for guide, _ in shown} >= {"pynx-watchdog-settings.5.in"}
    for guide, text in shown:
        # Which document it is, its content tells: it fits one of the schemas.
        names = [name for name in SCHEMAS if by_python(name, json.loads(text))]
        assert names, f"{guide.name} shows settings that fit no schema: {text}"
        document = tmp_path / names[0]
        document.write_text(text, "utf-8")
        assert check("--strict", document).text == "", guide
