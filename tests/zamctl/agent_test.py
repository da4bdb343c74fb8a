# SPDX-License-Identifier: Apache-2.0
"""zamctl against the agent itself: what a user does from the first repository to a restored file."""
import json
import os
import select
import signal
import subprocess
import time
import unittest
from pathlib import Path

from program import (PROGRAMS, DONE, FAILED, INTERRUPTED, NOT_FOUND, REFUSED, SECRET, USAGE, WARNINGS, WithAgent)


class Tour(WithAgent):
    """One run of the job, and what there is to be done with it."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.setup("job", "start", "home", "--follow")

    def test_status_tells_how_everything_stands(self):
        shown = self.expect(DONE, "status")
        for part in ("home", "Success", "disk", "no schedule"):
            self.assertIn(part, shown)

    def test_files_of_a_point_are_listed_and_restored(self):
        notes = self.source / "notes.txt"
        files = self.json("point", "files", "latest", "--job", "home")
        self.assertIn(str(notes), [file["path"] for file in files])
        self.assertIn("notes.txt", self.expect(DONE, "point", "files", "latest", notes))
        to = self.folder / "restored"
        self.assertIn("notes.txt", self.expect(DONE, "point", "restore", "latest", notes, "--to", to, "--dry-run"))
        self.assertFalse(to.exists())
        # Relative to where the user is.
        self.expect(DONE, "point", "restore", "latest", "--to", "restored", notes)
        self.assertEqual((to / str(notes)[1:]).read_text(), notes.read_text())
        self.assertFalse((to / str(self.source / "deep")[1:]).exists())
        point = self.json("point", "list")[0]["Id"]
        self.expect(DONE, "point", "restore", point[:10], "--to", self.folder / "all")
        self.assertTrue((self.folder / "all" / str(self.source)[1:] / "deep" / "ünï 包.txt").exists())

    def test_points_are_verified(self):
        self.expect(DONE, "point", "verify", "home")

    def test_point_that_is_not_there_is_told_of(self):
        for words in (["files", "77777777"], ["restore", "77777777", "--to", self.folder / "nowhere"],
                      ["verify", "no-such-job"], ["files", "latest", "--job", "no-such-job"]):
            self.refused(NOT_FOUND, "point", *words)
        self.refused(USAGE, "point", "restore", "latest")

    def test_points_are_completed(self):
        point = self.json("point", "list")[0]["Id"]
        self.assertEqual(self.completions("point", "restore", ""), ["latest", point])
        self.assertEqual(self.completions("point", "restore", point[:5]), [point])
        self.assertEqual(self.completions("point", "restore", "--job", "other", ""), ["latest"])

    def test_points_and_what_is_in_them_fit_the_schema(self):
        for words in (["point", "list"], ["point", "files", "latest"], ["status"], ["job", "show", "home"],
                      ["session", "show", "home"], ["repo", "show", "disk"], ["control", "show"], ["check"]):
            self.fitting(*words, command="-".join(words[:2]))

    def test_definition_goes_out_and_comes_back(self):
        text = self.expect(DONE, "job", "export", "home")
        file = self.folder / "home.json"
        file.write_text(text)
        self.assertEqual(self.json("job", "diff", "home", file), [])
        definition = json.loads(text)
        definition["RetentionInfo"]["RestorePointsCount"] = 99
        definition["JobName"] = "copy"
        file.write_text(json.dumps(definition))
        paths = {difference["Path"] for difference in self.json("job", "diff", "home", file)}
        self.assertEqual(paths, {"JobName", "RetentionInfo.RestorePointsCount"})
        self.expect(DONE, "job", "import", file)
        self.addCleanup(self.expect, DONE, "job", "delete", "copy", "--yes")
        self.assertEqual(self.json("job", "show", "copy")["Configuration"]["RetentionInfo"]["RestorePointsCount"], 99)
        self.refused(USAGE, "job", "import", file)  # would replace it, and nobody is there to be asked
        self.assertEqual(self.expect(DONE, "job", "export", "copy", "home").count("JobName"), 2)

    def test_mistakes_in_a_definition_are_told_by_their_place(self):
        file = self.folder / "mistake.json"
        cases = [
            ('{"JobName": "x", "Sorce": {}}', "Sorce", "Source"),
            ('{"JobName": "x", "Source": {"BackupMode": "FileLvel"}}', "Source.BackupMode", "FileLevel"),
            ('{"JobName": "x", "RetentionInfo": {"RestorePointsCount": "many"}}',
             "RetentionInfo.RestorePointsCount", "number"),
            ('{"JobName": "x",\n  "Source": }', "line 2", ""),
            ('{"JobName": "x", "JobName": "y"}', "JobName", ""),
            ("", "", ""),
            ("[]", "", ""),
        ]
        for text, place, more in cases:
            with self.subTest(text):
                file.write_text(text)
                errors = self.refused(USAGE, "job", "import", file)
                self.assertIn(place, errors)
                self.assertIn(more, errors)
        self.assertEqual(len(self.json("job", "list")), 1)

    def test_definition_is_changed_in_an_editor_until_it_is_right(self):
        editor = self.folder / "editor"
        # First a mistake, then, when the text comes back with it marked, what is right.
        editor.write_text("#!/bin/sh\n"
                          f"cp \"$1\" {self.folder}/seen.$(ls {self.folder} | grep -c seen)\n"
                          "if grep -q RestorePointsCont \"$1\"\n"
                          "then sed -i '/^ *\\(#\\|\\/\\/\\)/d; s/RestorePointsCont/RestorePointsCount/' \"$1\"\n"
                          "else sed -i 's/\"RestorePointsCount\": [0-9]*/\"RestorePointsCont\": 77/' \"$1\"; fi\n")
        editor.chmod(0o755)
        terminal = self.terminal("job", "edit", "home", environment={"EDITOR": str(editor), "VISUAL": ""})
        self.assertEqual(terminal.end(), DONE, terminal.seen)
        self.assertEqual(self.json("job", "show", "home")["Configuration"]["RetentionInfo"]["RestorePointsCount"], 77)
        second = (self.folder / "seen.1").read_text()
        self.assertIn("RestorePointsCont", second)
        self.assertIn("no such field", second)
        self.assertIn("RestorePointsCount", second)

    def test_editor_that_only_changes_the_mark_of_a_mistake_gives_up(self):
        editor = 'sh -c \'echo x >> times; sed -i "s/FileLevel/FooLevel/; s,^//.*,&x," "$1"\' -'
        terminal = self.terminal("job", "edit", "home", environment={"EDITOR": editor, "VISUAL": ""})
        self.assertEqual(terminal.end(), REFUSED, terminal.seen)
        self.assertIn("the mistake is still there; nothing was changed", terminal.seen)
        self.assertEqual((self.folder / "times").read_text().split(), ["x", "x"])

    def test_dry_run_changes_nothing(self):
        before = self.expect(DONE, "job", "export"), self.expect(DONE, "repo", "list", "-o", "json")
        result = self.json("job", "create", "new", "--repo", "disk", "--dir", "/nonexistent", "--dry-run", status=None)
        self.assertEqual(result["Configuration"]["JobName"], "new")
        self.assertTrue(result["Findings"])
        self.expect(DONE, "job", "update", "home", "--keep", "3", "--dry-run")
        self.expect(DONE, "repo", "create", "another", "--path", self.folder / "another", "--dry-run")
        self.assertEqual((self.expect(DONE, "job", "export"), self.expect(DONE, "repo", "list", "-o", "json")), before)
        self.assertFalse((self.folder / "another").exists())

    def json(self, *words, status=DONE, **options):
        if status is not None:
            return super().json(*words, status=status, **options)
        return json.loads(self.run_it(*words, "--output", "json", **options)[1])

    def test_check_tells_of_what_is_wrong(self):
        self.expect(DONE, "check")
        self.expect(DONE, "job", "create", "bad", "--repo", "disk", "--dir", "/nonexistent/folder")
        self.addCleanup(self.expect, DONE, "job", "delete", "bad", "--yes")
        ended, out, _ = self.run_it("check")
        self.assertIn(ended, (REFUSED, WARNINGS))
        self.assertIn("/nonexistent/folder", out)
        self.expect(DONE, "check", "home")

    def test_logs_are_packed(self):
        self.assertEqual(self.expect(DONE, "logs", "packed.tar.gz"), f"{self.folder}/packed.tar.gz\n")
        self.assertGreater((self.folder / "packed.tar.gz").stat().st_size, 100)
        self.refused(REFUSED, "logs", "packed.tar.gz")

    def test_repository_in_use_is_not_deleted(self):
        self.assertIn('"home"', self.refused(REFUSED, "repo", "delete", "disk", "--yes"))
        self.expect(DONE, "repo", "create", "spare", "--path", self.folder / "spare")
        self.expect(DONE, "repo", "delete", "spare", "--yes")
        self.assertTrue((self.folder / "spare").exists())

    def test_schedules_are_told_in_words(self):
        self.expect(DONE, "job", "create", "timed", "--repo", "disk", "--dir", self.source, "--daily", "22:00")
        self.addCleanup(self.expect, DONE, "job", "delete", "timed", "--yes")
        self.assertIn("22:00", self.expect(DONE, "job", "show", "timed"))
        self.assertRegex(self.json("job", "show", "timed")["NextRunTimeUtc"], "T22:00:00")
        for bad in ("25:00", "22", "noon"):
            self.refused(USAGE, "job", "update", "timed", "--daily", bad)

    def test_thousand_readers_that_leave_do_no_harm(self):
        for words in ("job list", "status -o json", "session show home", "point files latest -o jsonl"):
            ended = self.shell(f"set -o pipefail; zamctl {words} | head -c 1 >/dev/null")
            self.assertEqual(ended.stderr, "")
            self.assertIn(ended.returncode, (0, 141))

    def test_output_that_can_not_be_written_is_told_of(self):
        for words in ("job list", "status -o json", "point files latest"):
            ended = self.shell(f"zamctl {words} > /dev/full")
            self.assertEqual(ended.returncode, REFUSED, words)
            self.assertIn("No space left", ended.stderr)


class Adopting(WithAgent):
    @classmethod
    def setUpClass(cls):
        helped = subprocess.run([PROGRAMS / "tarvod", "--help"], capture_output=True, text=True, check=False).stdout
        if "adopt" not in helped:
            raise unittest.SkipTest("this agent's command can't adopt")
        super().setUpClass()

    def test_repository_of_another_agent_is_adopted(self):
        self.expect(DONE, "job", "start", "home", "--follow")
        self.expect(DONE, "job", "delete", "home", "--yes")
        ended, out, errors = self.run_it("repo", "adopt", "disk")
        self.assertEqual(ended, DONE, out + errors)
        self.refused(NOT_FOUND, "repo", "adopt", "no-such-repository")


class Forgetting(WithAgent):
    def test_points_of_deleted_jobs_go_after_a_question(self):
        self.expect(DONE, "job", "start", "home", "--follow")
        self.expect(DONE, "job", "delete", "home", "--yes")
        self.assertIn("/", self.expect(DONE, "point", "files", "latest"))
        self.refused(USAGE, "point", "forget")
        self.expect(DONE, "point", "forget", "--orphans", "--dry-run")
        self.refused(USAGE, "point", "forget", "--orphans")
        self.expect(DONE, "point", "files", "latest")
        self.expect(DONE, "point", "forget", "--orphans", "--yes")
        self.refused(NOT_FOUND, "point", "files", "latest")


class Results(WithAgent):
    """How sessions end."""

    def script(self, name, text):
        path = self.folder / name
        path.write_text("#!/bin/sh\n" + text + "\n")
        path.chmod(0o755)
        return path

    def test_warnings_end_with_5(self):
        self.expect(DONE, "job", "create", "warned", "--repo", "disk", "--dir", self.source,
                    "--after", self.script("after", "exit 1"))
        out = self.expect(WARNINGS, "job", "start", "warned", "--follow")
        self.assertIn("warning", out.lower())
        self.expect(WARNINGS, "session", "follow", "warned")

    def test_failure_ends_with_6_and_its_reason_is_read(self):
        self.expect(DONE, "job", "create", "failing", "--repo", "disk", "--dir", self.source,
                    "--before", self.script("before", "echo no, thanks; exit 3"))
        out = self.expect(FAILED, "job", "start", "failing", "--follow")
        self.assertIn("no, thanks", out)
        # It has made nothing, of whatever kind it was to be.
        self.assertRegex(out.splitlines()[-1], r'^"failing": Failed, in .* m?s$')
        shown = self.expect(DONE, "session", "show", "failing")
        self.assertIn("no, thanks", shown)
        self.assertRegex(shown, r"\nMade: +-\n(.*\n)*Point: +-\n")
        self.assertNotIn("Increment", self.expect(DONE, "session", "list", "failing", environment={"COLUMNS": "200"}))
        self.assertEqual(self.json("session", "show", "failing")["SessionAlgorithm"], "Increment")
        self.assertIn("Failed", self.expect(DONE, "status"))

    def test_agent_that_dies_in_mid_follow_and_comes_back_is_followed_on(self):
        self.expect(DONE, "job", "create", "slow", "--repo", "disk", "--dir", self.source,
                    "--before", self.script("slow", "sleep 60"))
        process = self.start("job", "start", "slow", "--follow")
        self.wait_for(lambda: self.json("session", "list", "--running"))
        # The session has begun to be watched when its first line is there.
        self.assertTrue(process.stdout.readline())
        self.stop_agent(signal.SIGKILL)
        out, errors = process.communicate(timeout=50)
        # The new agent knows of the session that it was interrupted.
        self.assertEqual(process.returncode, FAILED, out + errors)
        self.assertIn("the agent is away", errors)
        self.assertIn("the agent is there again", errors)

    def test_events_are_followed_across_a_restart_of_the_agent(self):
        process = self.start("events", "--follow", "-o", "jsonl", text=False, bufsize=0)

        def has_shown():  # it says nothing when it has subscribed
            self.expect(DONE, "job", "note", "home", "x")
            return os.read(process.stdout.fileno(), 65536) if select.select([process.stdout], [], [], 0)[0] else b""
        self.wait_for(has_shown)
        self.stop_agent()
        self.assertIn(b"events have broken off", process.stderr.readline())
        self.assertIn(b"events come again", process.stderr.readline())
        while select.select([process.stdout], [], [], 0)[0]:  # from before
            os.read(process.stdout.fileno(), 65536)
        self.assertIn(b"BackupJobModified", self.wait_for(has_shown))
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=30)
        self.assertEqual(process.returncode, INTERRUPTED)


class Encrypted(WithAgent):
    def test_password_of_a_job_is_asked_for_twice_and_seen_nowhere(self):
        words = ["job", "create", "secret", "--repo", "disk", "--dir", self.source, "--encrypt"]
        terminal = self.terminal(*words)
        terminal.expect("Password of the backups: ")
        terminal.send(SECRET + "\n")
        terminal.expect("once more: ")
        terminal.send(SECRET + "x\n")
        self.assertEqual(terminal.end(), USAGE)
        self.assertIn("differ", terminal.seen)
        terminal = self.terminal(*words)
        for prompt in ("Password of the backups: ", "once more: "):
            terminal.expect(prompt)
            terminal.send(SECRET + "\n")
        self.assertEqual(terminal.end(), DONE, terminal.seen)
        self.assertNotIn(SECRET, terminal.seen)
        process = self.start("job", "start", "secret", "--follow")
        while process.poll() is None:
            for file in Path("/proc").glob("[0-9]*/cmdline"):
                try:
                    self.assertNotIn(SECRET.encode(), file.read_bytes())
                except OSError:
                    pass
            time.sleep(0.02)
        out, errors = process.communicate()
        self.assertEqual(process.returncode, DONE, out + errors)
        for shown in (["job", "export", "secret"], ["job", "show", "secret", "-o", "json"], ["session", "log", "secret"]):
            self.assertNotIn(SECRET, self.expect(DONE, *shown))
        self.assertIn("notes.txt", self.expect(DONE, "point", "files", "latest", "--job", "secret"))


if __name__ == "__main__":
    unittest.main()
