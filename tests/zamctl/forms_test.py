# SPDX-License-Identifier: Apache-2.0
"""What zamctl's commands show, in every form and width: against golden texts, and against the schema.

ZAMCTL_GOLDEN=write in the environment writes the golden texts anew.
"""
import json
import os
import unittest
from pathlib import Path

import jsonschema

from program import DONE, FAILED, REFUSED, USAGE, WithTestAgent, normalised
from terminal import columns_of, plain

GOLDEN = Path(__file__).parent / "golden"
FORMS = ("table", "json", "jsonl", "tsv")
COLUMNS = (40, 41, 60, 80, 100, 120, 139, 140, 160, 200)

# Everything that is shown of an agent with a few things in it, by the name of its golden text.
SHOWN = {
    "job-list": ["job", "list"],
    "job-show": ["job", "show", "nightly"],
    "job-note": ["job", "note", "nightly"],
    "job-resolve": ["job", "resolve", "/etc"],
    "session-list": ["session", "list"],
    "session-show": ["session", "show", "nightly"],
    "session-log": ["session", "log", "nightly"],
    "point-list": ["point", "list"],
    "repo-list": ["repo", "list"],
    "repo-list-sizes": ["repo", "list", "--sizes"],
    "repo-show": ["repo", "show", "main"],
    "server-list": ["server", "list"],
    "server-show": ["server", "show", "central"],
    "provider-list": ["provider", "list"],
    "provider-show": ["provider", "show", "cloud"],
    "provider-gateways": ["provider", "gateways", "cloud"],
    "control-show": ["control", "show"],
    "control-scheduler": ["control", "scheduler"],
    "check": ["check"],
    "status": ["status"],
    "version": ["version"],
}
NOTHING = {
    "empty-job-list": ["job", "list"],
    "empty-session-list": ["session", "list"],
    "empty-point-list": ["point", "list"],
    "empty-repo-list": ["repo", "list"],
    "empty-server-list": ["server", "list"],
    "empty-provider-list": ["provider", "list"],
    "empty-status": ["status"],
    "empty-check": ["check"],
}
STATUS = {"check": (DONE, REFUSED)}


class Forms(WithTestAgent):
    def fill(self):
        """Some of everything, long and wide names among them."""
        jobs = [{"name": name, "repository": "main", "includeDirs": ["/etc", "/home/somebody"], "userData": "a note\n"}
                for name in ("nightly", "包 wide", "a-job-with-a-name-that-is-far-too-long-for-any-terminal-" + "x" * 150)]
        self.script(jobs=jobs + [{"name": "tab\tand\nline\\", "enabled": False}], clock={"stepMs": 2})
        self.expect(DONE, "job", "start", "nightly", "--follow")
        self.expect(DONE, "server", "add", "central", "--address", "backup.example:9392", "--address", "[2001:db8::1]:9392")
        self.expect(DONE, "provider", "add", "cloud", "--address", "cloud.example:6180")

    def every(self, shown):
        schema = json.loads(self.expect(DONE, "schema"))
        for name, words in shown.items():
            for form in FORMS:
                with self.subTest(name, form=form):
                    ended, out, errors = self.run_it(*words, "--output", form, environment={"COLUMNS": "100"})
                    self.assertIn(ended, STATUS.get(name, (DONE,)), errors)
                    self.compare(f"{name}.{form}", out + (f"--- on standard error:\n{errors}" if errors else ""))
                    command = "-".join(words[:2]) if words[0] not in ("check", "status", "version") else words[0]
                    self.check(form, out, schema, command)

    def compare(self, name, text):
        text = normalised(text, self.folder, is_table=name.endswith(".table"))
        path = GOLDEN / name
        if os.environ.get("ZAMCTL_GOLDEN") == "write":
            path.write_text(text)
        self.assertEqual(text, path.read_text())

    def check(self, form, out, schema, command):
        if form == "json":
            self.validate(json.loads(out), schema, {"$ref": f"#/$defs/{command}"})
        elif form == "jsonl":
            shape = schema["$defs"][command]
            is_list = shape.get("type") == "array"
            lines = out.splitlines()
            self.assertTrue(is_list or len(lines) == 1)
            for line in lines:
                self.validate(json.loads(line), schema, shape["items"] if is_list else shape)
        elif form == "tsv":
            lines = out.split("\n")
            self.assertEqual(lines.pop(), "")
            self.assertEqual({line.count("\t") for line in lines}, {lines[0].count("\t")})

    def validate(self, document, schema, shape):
        validator = jsonschema.Draft202012Validator({"$schema": schema["$schema"], "$defs": schema["$defs"]} | shape)
        self.assertEqual([f"{list(error.path)}: {error.message}" for error in validator.iter_errors(document)], [])

    def test_every_form_is_as_it_was(self):
        self.fill()
        self.every(SHOWN)

    def test_every_form_of_nothing_is_as_it_was(self):
        self.script(repositories=[], jobs=[])
        self.every(NOTHING)

    def test_every_line_fits_into_the_terminal(self):
        self.fill()
        for name, words in SHOWN.items():
            for columns in COLUMNS:
                with self.subTest(name, columns=columns):
                    if name in ("job-show", "session-show"):
                        words = words[:-1] + ["a-job" if name == "job-show" else "nightly"]
                    terminal = self.terminal(*words, "--no-pager", columns=columns)
                    self.assertIn(terminal.end(), STATUS.get(name, (DONE,)), terminal.seen)
                    for line in plain(terminal.seen).splitlines():
                        self.assertLessEqual(columns_of(line), columns, line)

    def test_pipes_have_the_width_that_is_said_in_columns(self):
        self.fill()
        for columns in COLUMNS:
            for name in ("job-list", "session-list", "status"):
                out = self.expect(DONE, *SHOWN[name], environment={"COLUMNS": str(columns)})
                self.assertLessEqual(max(map(columns_of, out.splitlines())), columns)
        self.assertLessEqual(max(map(columns_of, self.expect(DONE, "job", "list").splitlines())), 80)

    def test_tsv_can_be_read_back(self):
        self.fill()
        lines = self.expect(DONE, "job", "list", "-o", "tsv").splitlines()
        keys = lines[0].split("\t")
        names = [line.split("\t")[keys.index("Name")] for line in lines[1:]]
        self.assertIn(r"tab\tand\nline\\", names)

    def test_quiet_leaves_what_was_asked_for(self):
        self.fill()
        self.assertEqual(self.expect(DONE, "job", "list", "--quiet"), self.expect(DONE, "job", "list"))
        self.assertEqual(self.run_it("job", "disable", "nightly", "--quiet"), (DONE, "", ""))

    def test_changes_show_the_thing_as_it_is_now(self):
        schema = json.loads(self.expect(DONE, "schema"))
        definition = {"JobName": "from a file", "Source": {"BackupMode": "FileLevel", "IncludeDirs": ["/srv"]}}
        cases = [
            ["repo", "create", "two", "--path", "/srv/two"],
            ["repo", "update", "two", "--name", "second"],
            ["job", "create", "new", "--repo", "second", "--dir", "/etc"],
            ["job", "create", "dry", "--repo", "second", "--dir", "/etc", "--dry-run"],
            ["job", "update", "new", "--keep", "3"],
            ["job", "update", "new", "--keep", "4", "--dry-run"],
            ["job", "disable", "new"],
            ["job", "enable", "new"],
            ["job", "note", "new", "a text"],
            ["job", "note", "new"],
            ["job", "import", "definition.json"],
            ["job", "diff", "new", "definition.json"],
            ["job", "delete", "from a file", "nightly", "--yes"],
            ["job", "delete", "new", "--yes"],
            ["repo", "delete", "second", "--yes"],
            ["server", "add", "dry", "--address", "h", "--dry-run"],
            ["server", "add", "central", "--address", "h"],
            ["server", "update", "central", "--user", "u", "--dry-run"],
            ["server", "update", "central", "--user", "u"],
            ["server", "resync", "central"],
            ["server", "delete", "central", "--yes"],
            ["provider", "add", "dry", "--address", "h", "--dry-run"],
            ["provider", "add", "cloud", "--address", "h"],
            ["provider", "update", "cloud", "--user", "u", "--dry-run"],
            ["provider", "update", "cloud", "--user", "u"],
            ["provider", "resync", "cloud"],
            ["provider", "delete", "cloud", "--yes"],
            ["control", "take"],
            ["control", "mode", "shared"],
            ["control", "release"],
            ["control", "scheduler", "off"],
            ["logs", "logs.txt"],
        ]
        self.script(clock={"stepMs": 5})
        (self.folder / "definition.json").write_text(json.dumps(definition | {"RepositoryName": "main"}))
        for words in cases:
            with self.subTest(words):
                out = self.expect(DONE, *words, "--output", "json")
                command = words[0] if words[0] == "logs" else "-".join(words[:2])
                self.check("json", out, schema, command)
                self.assertNotIn("dry", self.expect(DONE, "job", "list"))

    def test_run_that_is_followed_is_a_line_each_time_it_has_changed(self):
        self.script(clock={"stepMs": 5})
        # Refused before anything is done: a program that reads one document would wait for its end.
        self.assertIn("--output jsonl", self.refused(USAGE, "job", "start", "nightly", "--follow", "-o", "json"))
        self.assertEqual(self.json("session", "list"), [])
        schema = json.loads(self.expect(DONE, "schema"))
        for words in (["job", "start", "nightly", "--follow"], ["session", "follow", "nightly"]):
            with self.subTest(words):
                lines = self.expect(DONE, *words, "--output", "jsonl").splitlines()
                for line in lines:
                    self.validate(json.loads(line), schema, {"$ref": "#/$defs/SBackupJobSessionInfo"})
                self.assertEqual(json.loads(lines[-1])["State"], "Stopped")
                self.check("tsv", self.expect(DONE, *words, "--output", "tsv"), schema, "-".join(words[:2]))

    def test_what_is_started_and_stopped_shows_its_session(self):
        self.script(clock={"mode": "held"})
        self.fitting("job", "start", "nightly", command="job-start")
        self.fitting("session", "show", "nightly", command="session-show")
        self.assertEqual(self.fitting("job", "stop", "nightly", command="job-stop")["State"], "Stopping")


if __name__ == "__main__":
    unittest.main()
