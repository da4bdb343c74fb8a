# SPDX-License-Identifier: Apache-2.0
"""zamctl against the test agent, which does as its script says: control, following, failures, terminals."""
import json
import os
import re
import select
import signal
import unittest
from pathlib import Path

from program import (DONE, FAILED, INTERRUPTED, NO_AGENT, NOT_FOUND, REFUSED, SECRET, USAGE, WithTestAgent)
from terminal import columns_of, plain, screen

CONSOLE = {"id": "{11111111-2222-3333-4444-555555555555}", "name": "the console", "type": "ManagementConsole"}


class Finding(WithTestAgent):
    """What objects are called."""

    def setUp(self):
        super().setUp()
        job = {"repository": "main", "includeDirs": ["/etc"]}
        self.script(jobs=[{"name": name} | job for name in ("nightly", "nightly-two", "weekly", "été", "a b")])

    def test_names_and_their_unique_beginnings_are_taken(self):
        for word, name in (("weekly", "weekly"), ("w", "weekly"), ("nightly", "nightly"), ("nightly-", "nightly-two"),
                           ("été", "été"), ("a b", "a b")):
            self.assertEqual(self.json("job", "show", word)["Name"], name)

    def test_ids_are_taken_in_any_form(self):
        job = self.json("job", "show", "weekly")["Id"]
        for word in (job, job.upper(), "{" + job + "}", job[:13]):
            self.assertEqual(self.json("job", "show", word)["Name"], "weekly")

    def test_word_that_means_several_lists_them_and_nothing_is_done(self):
        errors = self.refused(USAGE, "job", "disable", "night")
        self.assertIn('"night"', errors)
        self.assertIn("nightly", errors)
        self.assertIn("nightly-two", errors)
        self.assertTrue(all(job["Enabled"] for job in self.json("job", "list")))

    def test_misspelt_name_is_told_the_nearest(self):
        for kind, word in (("job", "weeklyy"), ("repo", "mian")):
            errors = self.refused(NOT_FOUND, kind, "show", word)
            self.assertIn(f'"{word}"', errors)
            self.assertIn("did you mean", errors)

    def test_words_are_taken_as_they_are(self):
        """One in brackets is no list, and behind -- a dash is no option's."""
        for name in ("[x,y]", "[]", "-5", "--repo", "--", "=", "{}", "%%", "'a' \"b\"", "a\\b"):
            with self.subTest(name):
                self.expect(DONE, "job", "create", "--repo", "main", "--dir", "/" + name, "--", name)
                job = json.loads(self.expect(DONE, "job", "show", "-o", "json", "--", name))
                self.assertEqual(job["Name"], name)
                self.assertEqual(job["Configuration"]["Source"]["IncludeDirs"], ["/" + name])
        self.expect(DONE, "job", "create", "[a,b]", "--repo", "main", "--dir", "[c,d]")
        folders = self.json("job", "show", "[a,b]")["Configuration"]["Source"]["IncludeDirs"]
        self.assertEqual(folders, [str(self.folder / "[c,d]")])
        self.assertIn('no use for "--repo"', self.refused(USAGE, "job", "create", "--", "--odd", "--repo", "main"))
        self.assertIn("--dir names no folder", self.refused(USAGE, "job", "create", "x", "--repo", "main", "--dir", ""))

    def test_members_of_an_enumeration_are_taken_in_any_writing(self):
        for word, member in (("none", "None"), ("dedupefriendly", "DedupeFriendly"), ("Dedupe-Friendly", "DedupeFriendly"),
                             ("optimal", "Optimal"), ("HIGH", "High"), ("extreme", "Extreme")):
            with self.subTest(word):
                self.expect(DONE, "job", "update", "weekly", "--compression", word)
                storage = self.json("job", "show", "weekly")["Configuration"]["StorageInfo"]
                self.assertEqual(storage["CompressionLevel"], member)
        self.expect(DONE, "job", "update", "weekly", "--keep", "3")  # and stays where nothing is said of it
        storage = self.json("job", "show", "weekly")["Configuration"]["StorageInfo"]
        self.assertEqual(storage["CompressionLevel"], "Extreme")
        self.assertIn("it is one of none, dedupefriendly",
                      self.refused(USAGE, "job", "update", "weekly", "--compression", "best"))
        self.expect(DONE, "control", "take", "--mode", "read-only")
        self.assertEqual(self.owner()["Mode"], "ReadOnly")

    def test_folders_are_those_of_where_one_is(self):
        (self.folder / "mnt").mkdir(exist_ok=True)
        given = [row["SourceInput"] for row in self.json("job", "resolve", ".", "./mnt/", "/etc", "label")]
        self.assertEqual(given, [str(self.folder), str(self.folder / "mnt"), "/etc", "label"])
        self.expect(DONE, "job", "create", "volumes", "--repo", "main", "--volume", "./mnt", "--volume", "label")
        source = self.json("job", "show", "volumes")["Configuration"]["Source"]
        self.assertEqual([row["Object"] for row in source["Objects"]], [str(self.folder / "mnt"), "label"])

    def test_everything_that_can_be_named_is_refused_when_it_is_not_there(self):
        for words in (["job", "show", "x"], ["job", "start", "x"], ["session", "show", "x"], ["session", "show", "latest"],
                      ["repo", "show", "x"], ["server", "show", "x"], ["provider", "show", "x"],
                      ["job", "update", "weekly", "--repo", "x"], ["job", "create", "n", "--repo", "x", "--dir", "/"]):
            with self.subTest(words):
                self.refused(NOT_FOUND, *words)

    def test_names_and_ids_are_completed(self):
        self.assertEqual(self.completions("job", "show", ""), ["nightly", "nightly-two", "weekly", "été", "a b"])
        self.assertEqual(self.completions("job", "show", "nightly-"), ["nightly-two"])
        self.assertEqual(self.completions("job", "create", "x", "--repo="), ["--repo=main"])
        job = self.json("job", "show", "weekly")["Id"]
        self.assertEqual(self.completions("job", "show", job[:8]), [job])
        self.expect(DONE, "job", "start", "weekly")
        session = self.json("session", "show", "weekly")["Uid"]
        self.assertIn(session, self.completions("session", "show", ""))
        self.assertEqual(self.completions("session", "show", "lat"), ["latest"])
        # They only look: nobody controls the agent afterwards.
        self.assertIsNone(self.owner())

    def test_bash_quotes_what_it_completes(self):
        ended = self.shell('source <(zamctl completion bash); COMP_WORDS=(zamctl job show a); COMP_CWORD=3; '
                           '_zamctl; printf "%s\\n" "${COMPREPLY[@]}"')
        # An id may begin with an "a", too.
        self.assertIn("a\\ b", ended.stdout.splitlines(), ended.stderr)


class Control(WithTestAgent):
    """Who may change things."""

    def test_commands_take_control_and_give_it_back(self):
        for words in (["job", "disable", "nightly"], ["job", "note", "nightly", "a note"],
                      ["repo", "create", "two", "--path", "/srv/two"], ["job", "start", "nightly", "--follow"],
                      ["job", "delete", "nightly", "--yes"], ["control", "scheduler", "off"]):
            self.expect(DONE, *words)
            self.assertIsNone(self.owner(), words)

    def test_control_is_given_back_by_a_command_that_fails(self):
        self.script(rules=[{"method": "Disable", "action": "throw", "message": "not today"}])
        self.assertIn("not today", self.refused(REFUSED, "job", "disable", "nightly"))
        self.assertIsNone(self.owner())

    def test_control_is_given_back_by_a_command_that_is_interrupted(self):
        self.script(rules=[{"method": "Disable", "action": "delay", "ms": 30000}])
        process = self.start("job", "disable", "nightly")
        self.wait_for(self.owner)
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=30)
        self.assertEqual(process.returncode, INTERRUPTED, errors)
        self.assertIsNone(self.owner())

    def test_control_of_a_killed_command_is_taken_over(self):
        self.script(rules=[{"method": "Disable", "times": 1, "action": "delay", "ms": 30000}])
        process = self.start("job", "disable", "nightly")
        owner = self.wait_for(self.owner)
        self.assertIn(f"process {process.pid}", owner["Name"])
        process.kill()
        process.wait()
        self.expect(DONE, "job", "enable", "nightly")
        self.assertIsNone(self.owner())

    def test_two_commands_at_once_take_turns(self):
        processes = [self.start("job", "note", "nightly", str(number)) for number in range(8)]
        for process in processes:
            _, errors = process.communicate(timeout=60)
            self.assertEqual(process.returncode, DONE, errors)

    def test_exclusive_owner_is_named_and_overruled_only_by_force(self):
        self.script(owner=CONSOLE | {"mode": "Exclusive"})
        for words in (["job", "list"], ["job", "disable", "nightly"]):
            errors = self.refused(REFUSED, *words)
            self.assertIn("the console", errors)
        self.assertIn("--force", errors)
        self.assertEqual(self.owner()["Name"], "the console")
        errors = self.refused(USAGE, "job", "disable", "nightly", "--force")
        self.assertIn("the console", errors)
        self.assertIn("--yes", errors)
        terminal = self.terminal("job", "disable", "nightly", "--force")
        terminal.expect("the console")
        terminal.expect("[y/N]")
        terminal.send("n\n")
        self.assertEqual(terminal.end(), REFUSED)
        self.assertEqual(self.owner()["Name"], "the console")
        self.expect(DONE, "job", "disable", "nightly", "--force", "--yes")
        self.assertIsNone(self.owner())

    def test_looking_leaves_control_where_it_is(self):
        self.script(owner=CONSOLE | {"mode": "ReadOnly"})
        self.expect(DONE, "job", "list")
        self.expect(DONE, "status")
        self.assertEqual(self.owner()["Name"], "the console")
        self.refused(REFUSED, "job", "disable", "nightly")

    def test_control_is_kept_by_who_takes_it(self):
        self.expect(DONE, "control", "take", "--mode", "exclusive", "--name", "maintenance")
        self.expect(DONE, "job", "disable", "nightly")
        self.assertEqual((self.owner()["Name"], self.owner()["Mode"]), ("maintenance", "Exclusive"))
        self.expect(DONE, "control", "mode", "shared")
        self.assertEqual(self.owner()["Mode"], "Shared")
        self.expect(DONE, "control", "release")
        self.assertIsNone(self.owner())
        self.refused(REFUSED, "control", "release")


class Following(WithTestAgent):
    """Sessions and events as they come."""

    def test_run_that_succeeds_ends_with_0_and_one_that_fails_with_6(self):
        self.script(clock={"failedAttempts": 1, "stepMs": 5})
        self.assertIn("Failed", self.expect(FAILED, "job", "start", "nightly", "--follow"))
        self.assertEqual(self.expect(FAILED, "job", "start", "nightly", "--follow", "--quiet"), "")
        self.stop_agent()
        self.script(clock={"stepMs": 5})
        self.assertIn("Success", self.expect(DONE, "job", "start", "nightly", "--follow"))

    def test_what_is_completed_for_an_enumeration_is_taken(self):
        self.script(clock={"stepMs": 1})
        for words in (["job", "update", "nightly", "--compression"], ["job", "start", "nightly", "--follow", "--priority"]):
            choices = self.completions(*words, "")
            self.assertGreaterEqual(len(choices), 3)
            for word in choices:
                with self.subTest(word):
                    self.expect(DONE, *words, word)
        self.refused(USAGE, "job", "start", "nightly", "--priority", "default")

    def test_retries_are_followed(self):
        self.script(clock={"failedAttempts": 2, "stepMs": 5},
                    jobs=[NIGHTLY_WITH_RETRIES])
        out = self.expect(DONE, "job", "start", "nightly", "--follow", "-o", "jsonl")
        rows = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(rows[-1]["Result"], "Success")
        self.assertEqual(len({row["Uid"] for row in rows}), 3)

    def test_session_is_followed_by_another_command(self):
        self.script(clock={"stepMs": 50})
        session = self.json("job", "start", "nightly")["Uid"]
        rows = [json.loads(line) for line in self.expect(DONE, "session", "follow", session[:8], "-o", "jsonl").splitlines()]
        self.assertEqual({row["Uid"] for row in rows}, {session})
        self.assertEqual((rows[-1]["State"], rows[-1]["PercentCompleted"]), ("Stopped", 100))

    def test_session_is_stopped(self):
        self.script(clock={"mode": "held"})
        self.refused(NOT_FOUND, "session", "stop", "nightly")
        self.expect(DONE, "job", "start", "nightly")
        self.assertEqual(self.json("session", "stop", "latest", "--message", "not now")["State"], "Stopping")
        self.expect(FAILED, "session", "follow", "nightly")
        self.assertIn("not now", self.expect(DONE, "session", "log", "nightly"))
        self.refused(REFUSED, "session", "stop", "nightly")

    def test_lost_connection_is_made_anew(self):
        self.script(clock={"stepMs": 100}, rules=[{"method": "GetInfo", "skip": 3, "times": 1, "action": "disconnect"}])
        for form in ("table", "jsonl"):
            with self.subTest(form):
                ended, out, errors = self.run_it("job", "start", "nightly", "--follow", "--output", form)
                self.assertEqual(ended, DONE, errors)
                self.assertIn("Success", out)
                self.assertRegex(errors, r"^the agent is away \(.*\); waiting for it\nthe agent is there again\n$")
                self.stop_agent()

    def test_agent_that_stays_away_is_waited_for_until_an_interrupt(self):
        tool = self.folder / "tool"
        tool.write_text(f"#!/bin/sh\n[ -e {self.folder}/gone ] && exit 1\nexec tarvoconfig \"$@\"\n")
        tool.chmod(0o755)
        self.script(clock={"mode": "held"})
        process = self.start("job", "start", "nightly", "--follow", "--tool", tool)
        self.wait_for(lambda: self.json("session", "list", "--running"))
        (self.folder / "gone").touch()
        self.addCleanup((self.folder / "gone").unlink)
        self.stop_agent()
        line = process.stderr.readline()
        self.assertIn("the agent is away", line)
        process.send_signal(signal.SIGINT)
        _, errors = process.communicate(timeout=30)
        self.assertEqual(process.returncode, INTERRUPTED, errors)

    def test_agent_that_was_restarted_and_knows_nothing_of_the_session_is_told_of(self):
        self.script(clock={"stepMs": 100}, rules=[{"method": "GetInfo", "skip": 3, "times": 1, "action": "kill"}])
        ended, _, errors = self.run_it("job", "start", "nightly", "--follow")
        self.assertEqual(ended, NOT_FOUND, errors)

    def test_broken_event_stream_does_not_end_the_watching(self):
        for rule in ({"action": "half-frame"}, {"action": "garbage", "message": "?"}, {"action": "malformed"}):
            with self.subTest(rule):
                self.script(clock={"stepMs": 100}, events=[{"times": 1} | rule])
                self.assertIn("Success", self.expect(DONE, "job", "start", "nightly", "--follow"))
                self.stop_agent()

    def test_answers_that_make_no_sense_are_told_of(self):
        for action, part in (("malformed", ""), ("internal-error", ""), ("null-object", ""), ("throw", "odd")):
            with self.subTest(action):
                member = {"message": "odd\x1b[31m"} if action == "throw" else {}
                if action == "internal-error":
                    member = {"message": "odd"}
                self.script(rules=[{"method": "GetBackupJobs" if action != "null-object" else "RequestControl",
                                    "action": action} | member])
                ended, _, errors = self.run_it("job", "list", "--timeout", "5")
                self.assertIn(ended, (REFUSED, NO_AGENT))
                self.assertTrue(errors.startswith("zamctl: job list: "), errors)
                self.assertIn(part, errors)
                self.assertNotIn("\x1b", errors)
                self.stop_agent()

    def test_agent_that_dies_in_a_call_is_told_of_in_one_line(self):
        self.script(rules=[{"method": "GetBackupJobs", "action": "kill"}])
        errors = self.refused(NO_AGENT, "job", "list")
        self.assertIn("the agent has gone", errors)
        self.assertLessEqual(len(errors.splitlines()), 2)

    def test_call_that_takes_too_long_is_told_of(self):
        self.script(rules=[{"method": "GetBackupJobs", "action": "delay", "ms": 30000}])
        self.assertIn("--timeout", self.refused(NO_AGENT, "job", "list", "--timeout", "1"))

    def test_members_without_a_name_are_numbers(self):
        self.script(rules=[{"method": "GetInfo", "action": "unknown-enum"}])
        self.expect(DONE, "job", "start", "nightly")
        self.assertEqual(self.json("session", "show", "nightly")["State"], 99)

    def test_events_are_shown_as_they_come(self):
        process = self.start("events", "--count", "2", "-o", "jsonl")
        # It says nothing when it has subscribed: until it has, these are repeated.
        def ended():
            self.expect(DONE, "job", "disable", "nightly")
            self.expect(DONE, "job", "enable", "nightly")
            return process.poll() is not None
        self.wait_for(ended)
        out, errors = process.communicate()
        self.assertEqual(process.returncode, DONE, errors)
        rows = [json.loads(line) for line in out.splitlines()]
        self.assertEqual([(row["Type"], row["JobName"]) for row in rows], [("BackupJobModified", "nightly")] * 2)

    def test_events_go_on_behind_one_that_can_not_be_read(self):
        for rule, part in (({"action": "malformed"}, "an event that can't be read is left out: "),
                           ({"action": "half-frame"}, "events have broken off ("),
                           ({"action": "garbage", "message": "\x1b[31m?" * 9}, "events have broken off (")):
            with self.subTest(rule):
                self.script(events=[{"skip": 1, "times": 1} | rule])
                process = self.start("events", "--count", "3", "-o", "jsonl")
                def ended():
                    self.expect(DONE, "job", "note", "nightly", "x")
                    return process.poll() is not None
                self.wait_for(ended)
                out, errors = process.communicate()
                self.assertEqual(process.returncode, DONE, errors)
                self.assertEqual([json.loads(line)["Type"] for line in out.splitlines()], ["BackupJobModified"] * 3)
                self.assertIn(part, errors)
                self.assertNotIn("\x1b", errors)
                self.assertEqual(len(errors.splitlines()), 1 if rule["action"] == "malformed" else 2, errors)
                self.stop_agent()

    def test_events_are_followed_until_an_interrupt(self):
        process = self.start("events", "--follow")
        def line():
            self.expect(DONE, "job", "note", "nightly", "x")
            return os.read(process.stdout.fileno(), 9999).decode() if self.readable(process.stdout) else ""
        self.assertIn('job "nightly" changed', self.wait_for(line))
        process.send_signal(signal.SIGINT)
        process.communicate(timeout=30)
        self.assertEqual(process.returncode, INTERRUPTED)

    def readable(self, stream):
        return bool(select.select([stream], [], [], 0.05)[0])


NIGHTLY_WITH_RETRIES = {"name": "nightly", "repository": "main", "includeDirs": ["/etc"], "retries": {"attempts": 3}}


class OnATerminal(WithTestAgent):
    """What a person sees."""

    def test_progress_is_drawn_and_taken_away(self):
        self.script(clock={"stepMs": 60})
        terminal = self.terminal("job", "start", "nightly", "--follow")
        terminal.expect("%")
        self.assertEqual(terminal.end(), DONE, terminal.seen)
        lines = [line for line in screen(terminal.seen) if line.strip()]
        self.assertIn("Success", lines[-1])
        self.assertFalse([line for line in lines if "[#" in line], lines)

    def test_progress_fits_into_any_width(self):
        self.script(clock={"stepMs": 30})
        for columns in (40, 80, 200):
            terminal = self.terminal("job", "start", "nightly", "--follow", columns=columns)
            self.assertEqual(terminal.end(), DONE, terminal.seen)
            for line in re.split(r"[\r\n]", plain(terminal.seen)):
                if "%" in line:
                    self.assertLess(columns_of(line), columns)

    def interrupted(self, answer):
        self.script(clock={"mode": "held"})
        terminal = self.terminal("job", "start", "nightly", "--follow")
        self.wait_for(lambda: self.json("session", "list", "--running"))
        terminal.expect("%")
        terminal.send("\x03")
        terminal.expect("Stop the session (y), or only stop watching (n)? [y/N] ")
        self.assertNotIn("\\n", plain(terminal.seen))
        terminal.send(answer)
        return terminal

    def test_ctrl_c_asks_and_stops_the_session(self):
        terminal = self.interrupted("y\n")
        terminal.expect("asked the session to stop")
        self.assertEqual(terminal.end(), FAILED)
        self.assertEqual(self.json("session", "list")[0]["State"], "Stopped")
        self.assertIsNone(self.owner())

    def test_ctrl_c_asks_and_only_stops_watching(self):
        terminal = self.interrupted("n\n")
        terminal.expect("the session goes on")
        self.assertEqual(terminal.end(), INTERRUPTED)
        self.assertNotEqual(self.json("session", "list")[0]["State"], "Stopped")

    def test_second_ctrl_c_stops_watching(self):
        self.assertEqual(self.interrupted("\x03").end(), INTERRUPTED)

    def test_nobody_is_asked_without_a_terminal(self):
        for words in (["job", "delete", "nightly"], ["server", "add", "s", "--address", "h", "--user", "u"]):
            ended, out, errors = self.run_it(*words, text="yes\n")
            self.assertEqual((ended, out), (USAGE, ""), errors)
            self.assertEqual(len(self.json("job", "list")), 1)

    def test_deleting_is_asked_for(self):
        for answer, status, left in (("\n", REFUSED, 1), ("nonsense\n", REFUSED, 1), ("yes\n", DONE, 0)):
            terminal = self.terminal("job", "delete", "nightly")
            terminal.expect('Delete the job "nightly"?')
            terminal.expect("[y/N] ")
            terminal.send(answer)
            self.assertEqual(terminal.end(), status, terminal.seen)
            self.assertEqual(len(self.json("job", "list")), left)

    def test_colours_are_for_terminals_and_those_who_want_them(self):
        self.expect(DONE, "job", "start", "nightly", "--follow")
        words = ["session", "list"]
        def seen(*more, environment=None):
            terminal = self.terminal(*words, *more, environment=environment)
            self.assertEqual(terminal.end(), DONE, terminal.seen)
            return terminal.seen
        self.assertIn("\x1b[", seen())
        self.assertNotIn("\x1b[", seen(environment={"NO_COLOR": "1"}))
        self.assertNotIn("\x1b[", seen(environment={"TERM": "dumb"}))
        self.assertNotIn("\x1b[", seen("--color", "never"))
        self.assertIn("\x1b[", seen("--color", "always", environment={"NO_COLOR": "1"}))
        self.assertNotIn("\x1b[", self.expect(DONE, *words))
        self.assertIn("\x1b[", self.expect(DONE, *words, "--color", "always"))

    def test_long_tables_go_through_the_pager(self):
        names = [f"job-{number}" for number in range(60)]
        self.script(jobs=[{"name": name, "repository": "main", "includeDirs": ["/etc"]} for name in names])
        pager = self.folder / "pager"
        pager.write_text("#!/bin/sh\nsed 's/^/PAGED /'\n")
        pager.chmod(0o755)
        def seen(*more, rows=24):
            terminal = self.terminal("job", "list", *more, rows=rows, environment={"PAGER": str(pager)})
            self.assertEqual(terminal.end(), DONE, terminal.seen)
            return terminal.seen
        self.assertIn("PAGED", seen())
        self.assertNotIn("PAGED", seen("--no-pager"))
        self.assertNotIn("PAGED", seen(rows=100))
        self.assertNotIn("PAGED", seen("-o", "json"))

    def test_names_can_not_garble_the_terminal(self):
        self.script(jobs=[{"name": "evil\x1b]0;owned\x07\x1b[2J", "repository": "main", "includeDirs": ["/etc"]}])
        for words in (["job", "list"], ["job", "show", "evil"], ["status"]):
            terminal = self.terminal(*words, "--color", "never")
            self.assertEqual(terminal.end(), DONE, terminal.seen)
            self.assertNotIn("\x1b", terminal.seen)
            self.assertNotIn("\x07", terminal.seen)


class Passwords(WithTestAgent):
    """They are seen nowhere."""
    ADD = ["server", "add", "main", "--address", "backup.example:9392", "--user", "somebody"]

    def check_nowhere(self, *texts):
        for text in texts:
            self.assertNotIn(SECRET, text)
        for words in (["server", "list", "-o", "json"], ["server", "show", "main"]):
            self.assertNotIn(SECRET, self.expect(DONE, *words))

    def test_password_is_asked_for_without_echo(self):
        self.script(rules=[{"method": "AddBackupServer", "action": "delay", "ms": 500}])
        terminal = self.terminal(*self.ADD)
        terminal.expect('Password of somebody: ')
        terminal.send(SECRET + "\n")
        # While it is at work: neither it nor what it starts has the password among its words.
        seen = set()
        while terminal.process.poll() is None and terminal.read(0.02) is not None:
            seen |= self.command_lines()
            if "created" in terminal.seen or "added" in terminal.seen:
                break
        self.assertTrue(any("zamctl" in words for words in seen))
        self.assertEqual(terminal.end(), DONE, terminal.seen)
        self.check_nowhere(terminal.seen, *seen)
        self.assertNotIn(": : ", terminal.seen)

    def command_lines(self):
        lines = set()
        for process in Path("/proc").iterdir():
            if process.name.isdigit():
                try:
                    lines.add((process / "cmdline").read_bytes().replace(b"\0", b" ").decode(errors="replace"))
                except OSError:
                    pass
        return lines

    def test_password_comes_from_a_file_or_a_descriptor(self):
        file = self.folder / "password"
        file.write_text(SECRET + "\nanother line\n")
        self.check_nowhere(self.expect(DONE, *self.ADD, "--password-file", file))
        with open(file, "rb") as opened:
            out = self.expect(DONE, "server", "update", "main", "--password-file", f"fd:{opened.fileno()}",
                              pass_fds=(opened.fileno(),))
        self.check_nowhere(out)

    def test_file_that_can_not_be_read_is_told_of(self):
        for path, why in (("/nonexistent", "No such file"), ("fd:77", "Bad file descriptor"), ("fd:x", "descriptor")):
            self.assertIn(why, self.refused(USAGE, *self.ADD, "--password-file", path))
        self.assertEqual(self.json("server", "list"), [])

    def test_ctrl_c_at_the_prompt_leaves_the_terminal_as_it_was(self):
        terminal = self.terminal(*self.ADD)
        terminal.expect("Password")
        terminal.send("abc\x03")
        self.assertEqual(terminal.end(), INTERRUPTED)
        self.assertEqual(self.json("server", "list"), [])
        self.assertIsNone(self.owner())

    def test_agents_words_hold_no_password(self):
        file = self.folder / "password"
        file.write_text(SECRET)
        self.script(rules=[{"method": "AddBackupServer", "action": "malformed"}])
        errors = self.run_it(*self.ADD, "--password-file", file, "--timeout", "5")[2]
        self.assertNotIn(SECRET, errors)


if __name__ == "__main__":
    unittest.main()
