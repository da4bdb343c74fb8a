# SPDX-License-Identifier: Apache-2.0
"""docs/wire.json is what the code says today, and the tables of docs/wire.md say the same, line by line."""
import json
import os
import re
import subprocess
import unittest
from pathlib import Path

SOURCE = Path(os.environ["WIRE_SOURCE"])
PAGE = (SOURCE / "docs/wire.md").read_text()
TEXT = (SOURCE / "docs/wire.json").read_text()
TABLES = json.loads(TEXT)

WORDS = {None: "", "guid": "GUID", "text": "text", "boolean": "boolean",
         "int32": "signed 32-bit number", "int64": "signed 64-bit number", "uint16": "unsigned 16-bit number",
         "uint32": "unsigned 32-bit number", "uint64": "unsigned 64-bit number"}


def words(kind):
    """A type of the JSON as the page writes it."""
    if isinstance(kind, dict) and "optional" in kind:
        return "optional " + words(kind["optional"])
    if isinstance(kind, dict):
        return "list of texts" if kind["list"] == "text" else "list of " + words(kind["list"])
    if kind in WORDS:
        return WORDS[kind]
    return f"enumeration `{kind}`" if kind in TABLES["enumerations"] else f"`{kind}`"


def fields(rows):
    return "; ".join(f"`{row['key']}`: {words(row['type'])}" + (", secret" if row.get("secret") else "")
                     for row in rows)


def section(number):
    return re.search(rf"^## {number}\..*?(?=^## |\Z)", PAGE, re.M | re.S)[0]


def cells(text):
    """The rows of the tables in `text`, without their heads."""
    rows = [[cell.strip() for cell in line.strip("|").split("|")] for line in text.splitlines()
            if line.startswith("|")]
    heads = {at - 1 for at, row in enumerate(rows) if set(row[0]) == {"-"}}
    return [row for at, row in enumerate(rows) if at not in heads and at - 1 not in heads]


class Json(unittest.TestCase):
    def test_is_what_the_code_says(self):
        fresh = subprocess.run([os.environ["WIRE_TABLES"]], capture_output=True, text=True, check=True).stdout
        self.assertEqual(TEXT, fresh, "build the target update_wire_json")

    def test_names_no_type_that_it_does_not_describe(self):
        known = set(WORDS) | TABLES["records"].keys() | TABLES["enumerations"].keys() | TABLES["interfaces"].keys()

        def check(kind):
            if isinstance(kind, dict):
                (kind,) = kind.values()
                return check(kind)
            self.assertIn(kind, known)

        rows = [row for record in TABLES["records"].values() for row in record]
        for methods in TABLES["interfaces"].values():
            for method in methods:
                check(method["result"])
                rows += method["arguments"]
        for row in rows:
            check(row["type"])
        self.assertGreater(len(rows), 200)


class Page(unittest.TestCase):
    maxDiff = None

    def test_has_every_method_with_its_arguments_and_result(self):
        described = {}
        for name, table in re.findall(r"^`(I\w+)`[^\n]*:\n\n((?:\|.*\n)+)", section(9) + section(11), re.M):
            described[name] = [row[:3] for row in cells(table)]
            self.assertTrue(all(row[3] for row in cells(table)), f"a method of {name} is not explained")
        expected = {name: [[f"`{method['id']}`", fields(method["arguments"]), words(method["result"])]
                           for method in methods] for name, methods in TABLES["interfaces"].items()}
        self.assertEqual(described, expected)

    def test_has_every_record_with_its_fields(self):
        rows = cells(section(10)) + cells(section(12))
        described = {row[0]: row[1] for row in rows}
        self.assertEqual(described, {f"`{name}`": fields(rows) for name, rows in TABLES["records"].items()})
        self.assertEqual(len(rows), len(described))

    def test_has_every_enumeration_with_its_members(self):
        described = [row[:2] for row in cells(section(13))]
        expected = [[f"`{name}`", ", ".join(f"{number} `{member}`" for member, number in members.items())]
                    for name, members in TABLES["enumerations"].items()]
        self.assertEqual(described, expected)

    def test_explains_only_fields_that_the_record_has(self):
        for row in cells(section(10)) + cells(section(12)):
            keys = set(re.findall(r"`(\w+)`:", row[1]))
            explained = set(re.findall(r"`(\w+)`(?=[^:;.]*:)", re.sub(r": [^;]*", ":", row[2])))
            self.assertLessEqual(explained, keys, row[0])

    def test_tells_how_the_tools_are_started(self):
        for service, described in TABLES["services"].items():
            serve = " ".join(f"`{word}`" for word in described["serve"])
            version = " ".join(f"`{word}`" for word in described["version"])
            self.assertRegex(section(5), rf"\| {service} \|[^|]*`{described['program']}`[^|]*\| {serve} \|")
            self.assertIn(f"| {service} | {version} |", section(6))

    def test_has_every_exception_and_every_reserved_key(self):
        rows = {row[0]: row[1] for row in cells(section(5))}
        for name, more in TABLES["exceptions"].items():
            self.assertEqual(rows[f"`{name}`"], "; ".join(["`ApiException`"] + ([fields(more)] if more else [])))
        for word in [*TABLES["keys"].values(), TABLES["releaseMethod"]]:
            self.assertRegex(PAGE, rf"[`<]{word}[`>]")

    def test_shows_lines_of_the_json(self):
        lines = re.search(r"```json\n(.*?)```", section(14), re.S)[1].splitlines()
        self.assertEqual(len(lines), 2)
        for line in lines:
            self.assertIn(line, TEXT)


if __name__ == "__main__":
    unittest.main()
