# SPDX-License-Identifier: Apache-2.0
"""The programs of docs/programs.md, built from the installed tree, against the installed test agent.

The environment names them: GUIDE_PROGRAMS, the folder of the built programs; GUIDE_PYTHON, that of the examples in
Python; GUIDE_TESTAGENT, that of the test agent; GUIDE_INSTALLER, the installer tool.
"""
import json
import os
import select
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

PROGRAMS, PYTHON, TESTAGENT, INSTALLER = (
    Path(os.environ[f"GUIDE_{name}"]) for name in ("PROGRAMS", "PYTHON", "TESTAGENT", "INSTALLER"))
NIGHTLY = {"repositories": [{"name": "main", "location": "/srv/backup"}],
           "jobs": [{"name": "nightly", "repository": "main", "includeDirs": ["/etc"]}]}
SECRET = "a-password-of-more-than-a-few-letters"
FOLLOWERS = {"C++": [str(PROGRAMS / "follow_job")], "Python": [sys.executable, str(PYTHON / "follow_job.py")]}


class Guide(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.environment = os.environ | {"PATH": f"{TESTAGENT}:{os.environ['PATH']}", "TMPDIR": folder.name}
        self.script()

    def script(self, **members):
        path = self.folder / "script.json"
        path.write_text(json.dumps(NIGHTLY | members))
        self.environment["ZAM_TESTAGENT_SCRIPT"] = str(path)

    def share(self):
        """One agent for everybody, empty and new."""
        shared = tempfile.mkdtemp(dir=self.folder)
        self.environment["ZAM_TESTAGENT_SHARED"] = shared
        end = [str(TESTAGENT / "tarvoconfig"), "extended", "shutdown"]
        self.addCleanup(subprocess.run, end, env=dict(self.environment), check=True, timeout=30)

    def start(self, *words):
        program = subprocess.Popen([str(word) for word in words], env=self.environment, text=True,
                                   stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)

        def end():
            program.kill()
            program.communicate()
        self.addCleanup(end)
        return program

    def run_program(self, *words, text=""):
        program = self.start(*words)
        out, errors = program.communicate(text, timeout=60)
        return program.returncode, out, errors

    def line(self, program):
        self.assertTrue(select.select([program.stdout], [], [], 30)[0], "the program prints nothing")
        return os.read(program.stdout.fileno(), 65536).decode()

    def all_followers(self):
        for language, words in FOLLOWERS.items():
            with self.subTest(language):
                yield words

    # host, connect

    def test_host_is_asked(self):
        self.environment["PATH"] = f"{INSTALLER.parent}:{os.environ['PATH']}"
        status, out, errors = self.run_program(PROGRAMS / "host")
        self.assertEqual(status, 0, errors)
        self.assertIn(" runs ", out)

    def test_host_without_a_tool_is_told_of(self):
        self.environment["PATH"] = str(self.folder)
        status, _, errors = self.run_program(PROGRAMS / "host")
        self.assertEqual(status, 1)
        self.assertIn("The tool can't be started", errors)

    def test_connecting_prints_the_product(self):
        status, out, errors = self.run_program(PROGRAMS / "connect")
        self.assertEqual(status, 0, errors)
        self.assertIn("InstanceGuid: {", out)

    def test_connecting_tells_each_failure_from_the_others(self):
        self.assertIn("There is no agent here", self.run_program(PROGRAMS / "connect", "/nonexistent")[2])
        self.script(protocolVersion="3.1.0.0")
        self.assertIn("The agent speaks version 3.1.0.0, this program 2.", self.run_program(PROGRAMS / "connect")[2])
        self.script(rules=[{"method": "greeting", "action": "exit", "code": 3}])
        self.assertIn("The agent can't be reached", self.run_program(PROGRAMS / "connect")[2])
        self.script(rules=[{"method": "GetProductInfo", "action": "throw", "message": "not today"}])
        self.assertIn("The agent refuses: not today", self.run_program(PROGRAMS / "connect")[2])

    def test_own_agent_is_connected_to(self):
        status, out, errors = self.run_program(PROGRAMS / "connect", PROGRAMS / "agent" / "tarvoconfig")
        self.assertEqual(status, 0, errors)
        self.assertIn("Name: \"\"", out)

    # follow_job

    def test_job_is_followed_to_its_end(self):
        for words in self.all_followers():
            status, out, errors = self.run_program(*words, "nightly", 60, text=SECRET + "\n")
            self.assertEqual(status, 0, out + errors)
            self.assertIn("Stopped 100%", out)
            self.assertIn("nightly", out)
            self.assertIn("EncryptionSettings", out)
            self.assertNotIn(SECRET, out + errors)

    def test_job_that_fails_is_told_from_one_that_succeeds(self):
        self.script(clock={"failedAttempts": 1})
        for words in self.all_followers():
            self.assertEqual(self.run_program(*words, "nightly", 60, text=SECRET + "\n")[0], 1)

    def test_run_is_found_again_after_the_connection_was_lost(self):
        for words in self.all_followers():
            self.script(clock={"stepMs": 50, "steps": 10},
                        rules=[{"method": "GetInfo", "skip": 3, "times": 1, "action": "disconnect"}])
            self.share()
            status, out, errors = self.run_program(*words, "nightly", 60, text=SECRET + "\n")
            self.assertEqual(status, 0, out + errors)
            self.assertEqual(out.count("again: "), 1, out)
            self.assertEqual(out.count("JobName"), 1, "it has started a second run: " + out)

    def test_script_of_the_guide_cuts_the_connection_once(self):
        self.environment["ZAM_TESTAGENT_SCRIPT"] = str(PYTHON.parent / "programs/script.json")
        self.share()
        status, out, errors = self.run_program(*FOLLOWERS["C++"], "nightly", 60, text="password\n")
        self.assertEqual(status, 0, out + errors)
        self.assertEqual(out.count("again: "), 1, out)

    def test_run_is_begun_anew_after_the_agent_died(self):
        for words in self.all_followers():
            self.script(clock={"mode": "held"})
            self.share()
            follower = self.start(*words, "nightly", 60)
            follower.stdin.write(SECRET + "\n")
            follower.stdin.flush()
            out = ""
            while "Starting" not in out:
                out += self.line(follower)
            # The script of the agent that comes next.
            self.script(clock={"stepMs": 20})
            self.kill_agent()
            rest, errors = follower.communicate(timeout=60)
            self.assertEqual(follower.returncode, 0, out + rest + errors)
            self.assertIn("again: ", rest)
            self.assertIn("Stopped 100%", rest)

    def kill_agent(self):
        shared = self.environment["ZAM_TESTAGENT_SHARED"].encode()
        program = (TESTAGENT / "tarvoconfig").resolve()
        for process in Path("/proc").glob("[0-9]*"):
            try:
                is_ours = (b"ZAM_TESTAGENT_SHARED=" + shared in (process / "environ").read_bytes().split(b"\0")
                           and (process / "exe").resolve() == program
                           and os.getsid(int(process.name)) == int(process.name))
            except OSError:
                continue
            if is_ours:  # the agent itself: the tools are in their clients' session
                os.kill(int(process.name), signal.SIGKILL)
                return
        self.fail("there is no shared agent")

    def test_call_whose_answer_was_lost_starts_no_second_run(self):
        for words in self.all_followers():
            # The run goes on in the agent; nobody has got its id.
            self.script(clock={"stepMs": 50, "steps": 10},
                        rules=[{"method": "GetInfo", "skip": 1, "times": 1, "action": "disconnect"}])
            self.share()
            status, out, errors = self.run_program(*words, "nightly", 60, text=SECRET + "\n")
            self.assertEqual(status, 0, out + errors)
            self.assertEqual(out.count("Stopped 100%"), 1, out)

    def test_deadline_bounds_everything(self):
        for clock, rules in (({"mode": "held"}, []), ({}, [{"method": "GetBackupJobs", "action": "delay", "ms": 60000}]),
                             ({}, [{"method": "GetBackupJobs", "action": "kill"}])):
            self.script(clock=clock, rules=rules)
            for words in self.all_followers():
                began = time.monotonic()
                status, out, errors = self.run_program(*words, "nightly", 2, text=SECRET + "\n")
                self.assertGreaterEqual(time.monotonic() - began, 1.9)
                self.assertLess(time.monotonic() - began, 30)
                self.assertNotIn(status, (0, -signal.SIGKILL), out)
                self.assertIn("follow_job", errors)

    def test_missing_words_are_asked_for(self):
        for words in self.all_followers():
            status, _, errors = self.run_program(*words, "nightly")
            self.assertNotEqual(status, 0)
            self.assertIn("JOB SECONDS <PASSWORD_FILE", errors)
            self.assertNotIn("Traceback", errors)

    def test_refusal_is_not_tried_again(self):
        for words in self.all_followers():
            for job, rules in (("nonsense", []), ("nightly", [{"method": "Start", "action": "throw"}]),
                               ("nightly", [{"method": "RequestControl", "action": "throw"}])):
                self.script(rules=rules)
                status, out, errors = self.run_program(*words, job, 60, text=SECRET + "\n")
                self.assertNotEqual(status, 0)
                self.assertNotIn("again: ", out)
                self.assertNotIn("Traceback", errors)
                self.assertIn("follow_job", errors)

    # The others

    def test_event_loop_prints_events_and_ends_with_its_input(self):
        self.share()
        loop = self.start(PROGRAMS / "event_loop")
        self.assertEqual(self.line(loop), "listening\n")
        self.assertEqual(self.run_program(*FOLLOWERS["C++"], "nightly", 60, text=SECRET + "\n")[0], 0)
        out = ""
        while "finished: {" not in out:
            out += self.line(loop)
        self.assertIn("BackupJobModified\n", out)
        self.assertIn("started: {", out)
        loop.stdin.close()
        self.assertEqual(loop.wait(30), 0)
        loop.stdin = None

    def test_event_loop_ends_with_the_agent(self):
        self.share()
        loop = self.start(PROGRAMS / "event_loop")
        self.assertEqual(self.line(loop), "listening\n")
        self.kill_agent()
        self.assertEqual(loop.wait(30), 1)

    def test_interrupt_cancels_a_call(self):
        self.script(rules=[{"method": "GetProductInfo", "action": "delay", "ms": 60000}])
        program = self.start(PROGRAMS / "cancelling")
        self.assertEqual(self.line(program), "connected\n")
        program.send_signal(signal.SIGINT)
        out, _ = program.communicate(timeout=30)
        self.assertIn("cancelled, and ", out)  # the call was under way by then, or it fails alone
        self.assertEqual(program.returncode, 1 if "connect anew" in out else 0, out)

    def test_call_with_a_short_time_ends_early(self):
        self.script(rules=[{"method": "GetCurrentOwner", "action": "delay", "ms": 60000}])
        status, _, errors = self.run_program(PROGRAMS / "cancelling")
        self.assertEqual(status, 1)
        self.assertIn("with a limit of 500 ms", errors)

    def test_cancelling_is_not_needed_when_all_is_well(self):
        status, out, errors = self.run_program(PROGRAMS / "cancelling")
        self.assertEqual(status, 0, errors)
        self.assertIn("Mode: ", out)

    def test_child_leaves_the_connection_of_its_parent_alone(self):
        status, out, errors = self.run_program(PROGRAMS / "forking")
        self.assertEqual(status, 0, errors)
        lines = out.splitlines()
        self.assertEqual([line.split(":")[0] for line in lines], ["child", "child", "parent"])
        self.assertIn("fork", lines[0])

    def test_logs_tell_of_every_call(self):
        status, out, errors = self.run_program(PROGRAMS / "logging", self.folder)
        self.assertEqual(status, 0, errors)
        self.assertIn("info: ", errors)
        self.assertIn("GetProductInfo", errors)
        self.assertIn("GetProductInfo", Path(out.strip()).read_text())

    def test_log_that_cannot_be_written_hinders_nobody(self):
        status, _, errors = self.run_program(PROGRAMS / "logging", self.folder / "missing")
        self.assertEqual(status, 0, errors)
        self.assertIn("no log: No such file", errors)

    def test_password_is_not_shown(self):
        status, out, errors = self.run_program(PROGRAMS / "secrets", "host.example", text=SECRET + "\n")
        self.assertEqual(status, 0, errors)
        self.assertIn("Password: ***", out)
        self.assertIn("Password: none", out)
        self.assertNotIn(SECRET, out + errors)

    def test_password_is_not_shown_when_the_agent_refuses_it(self):
        self.script(rules=[{"method": "AddBackupServer", "action": "throw", "message": "no such place"}])
        status, out, errors = self.run_program(PROGRAMS / "secrets", "host.example", text=SECRET + "\n")
        self.assertEqual(status, 1)
        self.assertIn("no such place", errors)
        self.assertNotIn(SECRET, out + errors)


if __name__ == "__main__":
    unittest.main()
