# SPDX-License-Identifier: Apache-2.0
"""zamctl by itself: help, completion, man pages, schema, words that it can't understand. No agent is there."""
import json
import os
import shutil
import subprocess
import time
import unittest
from pathlib import Path

from program import DONE, INTERRUPTED, NO_AGENT, REFUSED, USAGE, ZAMCTL, Program
from terminal import columns_of


class Alone(Program):
    def tool(self, text):
        """A tool for --tool, a shell script."""
        path = self.folder / f"tool{len(list(self.folder.iterdir()))}"
        path.write_text("#!/bin/sh\n" + text + "\n")
        path.chmod(0o755)
        return path

    def test_help_tells_of_every_verb_and_needs_no_agent(self):
        general = self.expect(DONE, "--help")
        for verb in self.verbs():
            with self.subTest(verb):
                self.assertIn(verb[-1], general)
                text = self.expect(DONE, *verb, "--help")
                self.assertIn(f"usage: zamctl {' '.join(verb)}", text)
                self.assertIn("For example:", text)
                self.assertEqual(text, self.expect(DONE, "help", *verb))
                self.assertLessEqual(max(map(columns_of, text.split("For example:")[0].splitlines())), 100)
        self.assertNotIn("__complete", general)

    def test_every_verb_has_a_test(self):
        tests = "".join(path.read_text() for path in Path(__file__).parent.glob("*_test.py"))
        for verb in self.verbs():
            words = ", ".join(f'"{word}"' for word in verb)
            self.assertTrue(words in tests or "zamctl " + " ".join(verb) in tests, verb)

    def test_what_can_not_be_understood_is_named_with_what_is_accepted(self):
        cases = [
            (["jbo", "list"], '"jbo"', 'did you mean "job"?'),
            (["frobnicate"], '"frobnicate"', "the commands are "),
            (["job"], "what is to be done with job?", "say one of list, "),
            (["job", "strat", "x"], 'job has no verb "strat"', 'did you mean "start"?'),
            (["job", "frob"], 'job has no verb "frob"', "its verbs are list, show, "),
            (["job", "show"], "job show needs JOB", "usage: zamctl job show JOB"),
            (["job", "list", "surplus"], 'no use for "surplus"', "usage: "),
            (["job", "list", "--otput", "json"], '"--otput"', 'did you mean "--output"?'),
            (["--frob"], '"--frob"', "--help"),
            (["--verson"], '"--verson"', 'did you mean "--version"?'),
            (["job", "list", "--output", "xml"], "job list: --output can't be \"xml\"", "json, jsonl, tsv"),
            (["job", "list", "--output"], "job list: --output needs FORM", ""),
            (["job", "list", "--timeout", "1", "--timeout", "2"], "job list: --timeout can be given once only", ""),
            (["job", "export", "--output", "json"], '"json"', "leave --output out"),
            (["job", "update", "x"], "what is to be changed?", "zamctl job update --help"),
            (["job", "list", "--timeout", "soon"], '"soon"', ""),
            (["job", "list", "--timeout", "-1"], "-1", ""),
            (["job", "list", "--quiet=1"], "--quiet", ""),
            (["session", "follow", "latest", "--output", "json"], "no one document", "--output jsonl"),
            (["events", "--follow", "--output", "json"], "no one document", "--output jsonl"),
            (["job", "start", "x", "--follow", "--output", "json"], "job start --follow shows", "--output jsonl"),
            (["manual", "jbo"], '"jbo"', 'did you mean "job"?'),
            (["completion", "csh"], '"csh"', ""),
            (["completion"], "completion needs SHELL", "usage: zamctl completion SHELL"),
            (["schema", "--output", "tsv"], '"tsv"', ""),
            (["installer", "service", "--start", "--stop"], "at once", "--start or --stop"),
            ([], "what is to be done?", "zamctl --help"),
            (["job", "list", "\x1b[31m"], r"\x1b[31m", ""),
        ]
        for words, why, hint in cases:
            with self.subTest(words):
                errors = self.refused(USAGE, *words)
                self.assertIn(why, errors)
                self.assertIn(hint, errors)
                self.assertLessEqual(len(errors.splitlines()), 3, errors)

    def test_agent_that_is_not_there_is_told_of_in_one_line(self):
        for words in (["status"], ["job", "list", "-o", "json"], ["events", "--follow"], ["check"],
                      ["job", "delete", "x", "--yes"]):
            with self.subTest(words):
                errors = self.refused(NO_AGENT, *words)
                self.assertIn("the agent can't be reached", errors)
                self.assertIn("install the agent, or name its tool with --tool", errors)
                self.assertEqual(len(errors.splitlines()), 2, errors)

    def test_tool_that_hangs_is_waited_for_as_long_as_was_said(self):
        began = time.monotonic()
        errors = self.refused(NO_AGENT, "status", "--timeout", "1", "--tool", self.tool("sleep 60"))
        self.assertIn("--timeout", errors)
        self.assertLess(time.monotonic() - began, 10)

    def test_tool_that_fails_is_told_of(self):
        for script in ("exit 7", "echo nonsense; sleep 9", "echo '<a/>'"):
            with self.subTest(script):
                errors = self.refused(NO_AGENT, "status", "--timeout", "5", "--tool", self.tool(script))
                self.assertIn("the agent can't be reached", errors)

    def test_interrupt_ends_a_command_that_waits(self):
        process = self.start("status", "--tool", self.tool("touch there; sleep 60"))
        self.wait_for((self.folder / "there").exists)
        process.send_signal(2)
        out, errors = process.communicate(timeout=30)
        self.assertEqual(process.returncode, INTERRUPTED, errors)
        self.assertEqual((out, errors), ("", "zamctl: status: interrupted\n"))

    def test_reader_that_leaves_ends_it_without_a_word(self):
        ended = self.shell("set -o pipefail; zamctl schema | head -1")
        self.assertEqual((ended.stdout, ended.stderr), ("{\n", ""))
        # As if the signal had ended it, unless all of it was written before.
        self.assertIn(ended.returncode, (0, 141))
        reader, writer = os.pipe()
        os.close(reader)
        with open(writer, "wb") as closed:
            ended = subprocess.run([ZAMCTL, "manual"], stdout=closed, stderr=subprocess.PIPE, env=self.environment,
                                   check=False, timeout=60)
        self.assertEqual((ended.returncode, ended.stderr), (-13, b""))

    def test_full_disk_is_told_of(self):
        for words in ("--help", "schema", "completion bash", "manual job"):
            with self.subTest(words):
                ended = self.shell(f"zamctl {words} > /dev/full")
                self.assertEqual(ended.returncode, REFUSED)
                self.assertIn("No space left", ended.stderr)

    def test_closed_output_is_told_of(self):
        ended = self.shell("zamctl version >&-")
        self.assertEqual(ended.returncode, REFUSED, ended.stderr)

    def test_version_is_told_without_an_agent(self):
        versions = self.json("version", "--quiet")
        self.assertIsNone(versions["AgentProtocol"])
        self.assertRegex(versions["Program"], r"^\d+\.\d+\.\d+$")
        self.assertEqual(self.expect(DONE, "--version", "-q"), self.expect(DONE, "version", "-q"))

    # completion

    def test_words_are_completed_from_the_table(self):
        self.assertIn("job", self.completions(""))
        self.assertNotIn("__complete", self.completions("_"))
        self.assertEqual(self.completions("jo"), ["job"])
        self.assertEqual(self.completions("job", "sta"), ["start"])
        self.assertEqual(self.completions("help", "job", "sta"), ["start"])
        self.assertEqual(self.completions("job", "start", "--fol"), ["--follow"])
        self.assertEqual(self.completions("job", "list", "-o", "js"), ["json", "jsonl"])
        self.assertEqual(self.completions("job", "list", "--output=js"), ["--output=json", "--output=jsonl"])
        # as bash parts it
        self.assertEqual(self.completions("job", "list", "--output", "=", "js"), ["json", "jsonl"])
        self.assertEqual(self.completions("job", "list", "--output", "="), ["table", "json", "jsonl", "tsv"])
        self.assertEqual(self.completions("completion", ""), ["bash", "zsh", "fish"])
        self.assertEqual(self.completions("job", "create", "--dir", ""), [":folder"])
        self.assertEqual(self.completions("job", "import", ""), [":file"])
        self.assertIn("installer", self.completions("manual", ""))
        # common options may stand before the noun
        self.assertEqual(self.completions("--output", "json", "job", "sta"), ["start"])
        # what was given already, and what can't be
        self.assertNotIn("--quiet", self.completions("job", "list", "--quiet", "--"))
        self.assertNotIn("--output", self.completions("schema", "--"))
        self.assertEqual(self.completions("nonsense", "--frob", ""), [])

    def test_names_are_not_completed_without_an_agent_and_nothing_is_said(self):
        for tool in ("exit 1", "sleep 60"):
            began = time.monotonic()
            ended = self.run_it("__complete", "--", "--tool", self.tool(tool), "job", "show", "")
            self.assertEqual(ended, (DONE, "", ""))
            self.assertLess(time.monotonic() - began, 5)

    def test_shells_understand_their_scripts(self):
        for shell, check in (("bash", "-n"), ("zsh", "-n"), ("fish", "-n")):
            script = self.folder / f"completion.{shell}"
            script.write_text(self.expect(DONE, "completion", shell))
            if shutil.which(shell):
                with self.subTest(shell):
                    subprocess.run([shell, check, script], check=True)

    def complete_in_bash(self, *words):
        """What bash makes of the words, the last of which is to be completed."""
        # Not one of our own: bash has parted them.
        quoted = " ".join("'" + word.replace("'", "'\\''") + "'" for word in ("zamctl", *words))
        ended = self.shell('source <(zamctl completion bash); compopt() { :; }; '
                           f'COMP_WORDS=({quoted}); COMP_CWORD={len(words)}; _zamctl; '
                           'for reply in "${COMPREPLY[@]}"; do echo "$reply"; done')
        self.assertEqual(ended.stderr, "")
        return ended.stdout.splitlines()

    def test_bash_completes_words_and_files(self):
        (self.folder / "defs").mkdir(exist_ok=True)
        (self.folder / "defs" / "a job.json").write_text("{}")
        self.assertEqual(self.complete_in_bash("job", "sta"), ["start"])
        self.assertEqual(self.complete_in_bash("job", "list", "--output", "=", "js"), ["json", "jsonl"])
        self.assertEqual(self.complete_in_bash("job", "list", "--output", "="), ["table", "json", "jsonl", "tsv"])
        self.assertEqual(self.complete_in_bash("job", "import", "defs/"), ["defs/a job.json"])
        self.assertEqual(self.complete_in_bash("job", "create", "--dir", "def"), ["defs"])

    # man pages and schema

    def test_man_pages_have_no_mistakes(self):
        nouns = self.completions("manual", "")
        self.assertIn("job", nouns)
        for noun in ("", *nouns):
            page = self.expect(DONE, "manual", *filter(None, [noun]))
            self.assertIn(".SH EXIT STATUS", page)
            with self.subTest(noun):
                for program in (["groff", "-ww", "-man", "-Tutf8", "-z"], ["mandoc", "-T", "lint", "-W", "error"]):
                    if shutil.which(program[0]):
                        ended = subprocess.run(program, input=page, text=True, capture_output=True, check=False)
                        self.assertEqual((ended.returncode, ended.stderr), (0, ""))
        general = self.expect(DONE, "manual")
        for noun in nouns:
            self.assertIn(f"zamctl\\-{noun} (1)", general)
        for verb in self.verbs():
            page = general if len(verb) == 1 else self.expect(DONE, "manual", verb[0])
            self.assertIn("\\fBzamctl " + " ".join(verb) + "\\fR", page)

    def test_every_form_of_output_is_explained_by_the_schema(self):
        schema = json.loads(self.expect(DONE, "schema"))
        commands = {"-".join(verb): verb for verb in self.verbs()}
        for name, verb in commands.items():
            with self.subTest(name):
                if "--output" not in self.completions(*verb, "--output"):
                    self.assertNotIn(name, schema["$defs"])
                    continue
                shape = schema["$defs"].get(name)
                if shape is None:
                    # Those that tell people what the agent's own command does.
                    self.assertIn(name, ("repo-adopt",))
                    continue
                self.assertNotIn(shape, (True, {}))
                self.assertNotEqual(shape.get("items"), True)

    def test_schema_is_one(self):
        import jsonschema
        jsonschema.Draft202012Validator.check_schema(json.loads(self.expect(DONE, "schema")))

    def test_no_secret_has_a_place_in_the_schema(self):
        definitions = json.loads(self.expect(DONE, "schema"))["$defs"]
        self.assertEqual(definitions["SBackupServerInfo"]["properties"]["Password"]["type"], "null")
        self.assertEqual(definitions["SCloudServiceProviderPassword"]["properties"]["Value"]["type"], "null")

    def test_starting_costs_little(self):
        """Below twice an empty C++ program: counted in what the loader has to map, which no other load disturbs."""
        ended = subprocess.run(["ldd", ZAMCTL], capture_output=True, text=True, check=False)
        libraries = ended.stdout
        with open(ZAMCTL, "rb") as program:
            content = program.read()
        if "lib" not in libraries or b"__asan_init" in content or b"__tsan_init" in content:
            self.skipTest("not a plain build")
        for name in ("libZamClientLib", "libApiGenLib", "libCommonLib", "libstdc++"):
            self.assertNotIn(name, libraries)


if __name__ == "__main__":
    unittest.main()
