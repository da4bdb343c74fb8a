# SPDX-License-Identifier: Apache-2.0
"""What the tests of zamctl share: the program, agents for it, and its output made comparable.

The environment names what was built: ZAMCTL_PROGRAMS, the folder of zamctl, tarvod and tarvoconfig; ZAMCTL_TESTAGENT,
that of the test agent; ZAMCTL_INSTALLER, the installer tool.
"""
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import jsonschema

from terminal import Terminal

PROGRAMS, TESTAGENT, INSTALLER = (
    Path(os.environ[f"ZAMCTL_{name}"]) for name in ("PROGRAMS", "TESTAGENT", "INSTALLER"))
ZAMCTL = PROGRAMS / "zamctl"
SYSTEM_PATH = "/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"
SECRET = "a-password-of-more-than-a-few-letters"
NIGHTLY = {"repositories": [{"name": "main", "location": "/srv/backup"}],
           "jobs": [{"name": "nightly", "repository": "main", "includeDirs": ["/etc"]}]}

# A shell starts what runs in its background with interrupts ignored, which what we start would inherit.
signal.signal(signal.SIGINT, signal.default_int_handler)

DONE, REFUSED, USAGE, NOT_FOUND, NO_AGENT, WARNINGS, FAILED, INTERRUPTED = 0, 1, 2, 3, 4, 5, 6, 130


def normalised(text, *folders, is_table=False):
    """Ids, points in time, and the folders of a test, in words of the same length."""
    for folder in folders:
        text = text.replace(str(folder), "<folder>")
    text = re.sub(r"[0-9a-f]{8}-([0-9a-f]{4}-){3}[0-9a-f]{12}", "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", text)
    if is_table:
        text = re.sub(r"\b[0-9a-f]{8}\b", "xxxxxxxx", text)
        text = re.sub(r"(< 1|\b\d+) s +", lambda ago: "(ago)".ljust(len(ago[0])), text)
    text = re.sub(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z", "YYYY-MM-DDTHH:MM:SSZ", text)
    text = re.sub(r"\b\d\d:\d\d:\d\d\b", "HH:MM:SS", text)
    return re.sub(r"\b\d\d:\d\d\b", "HH:MM", text)


class Program(unittest.TestCase):
    """Runs zamctl. There is no agent unless a class below brings one."""
    maxDiff = None
    environment = {}

    @classmethod
    def setUpClass(cls):
        cls.folder = Path(tempfile.mkdtemp(prefix="zamctl"))
        cls.addClassCleanup(shutil.rmtree, cls.folder, True)
        # Nothing of whoever runs the tests.
        cls.environment = {"PATH": SYSTEM_PATH, "LC_ALL": "C.UTF-8", "TZ": "UTC", "TERM": "xterm",
                           "HOME": str(cls.folder), "TMPDIR": str(cls.folder)}
        for name in ("ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                cls.environment[name] = os.environ[name]

    def start(self, *words, environment=None, **streams):
        process = subprocess.Popen([str(word) for word in (ZAMCTL, *words)],
                                   env=self.environment | (environment or {}), start_new_session=True,
                                   **{"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE,
                                      "stderr": subprocess.PIPE, "text": True, "cwd": self.folder} | streams)

        def end():
            if process.poll() is None:
                process.kill()
            process.communicate()
        self.addCleanup(end)
        return process

    def run_it(self, *words, text=None, **options):
        """Exit status, output and errors of zamctl, without a terminal."""
        if text is not None:
            options["stdin"] = subprocess.PIPE
        process = self.start(*words, **options)
        out, errors = process.communicate(text, timeout=60)
        return process.returncode, out, errors

    def expect(self, status, *words, **options):
        """Its output, when it ends as it is to."""
        ended, out, errors = self.run_it(*words, **options)
        self.assertEqual(ended, status, f"zamctl {' '.join(map(str, words))}: {out}{errors}")
        return out

    def refused(self, status, *words, **options):
        """What it says when it ends as it is to, which is one complaint and perhaps a hint."""
        ended, out, errors = self.run_it(*words, **options)
        self.assertEqual(ended, status, f"zamctl {' '.join(map(str, words))}: {out}{errors}")
        self.assertTrue(errors.startswith("zamctl: "), errors)
        self.assertEqual(out, "")
        return errors

    def json(self, *words, status=DONE, **options):
        return json.loads(self.expect(status, *words, "--output", "json", **options))

    def fitting(self, *words, command, **options):
        """As `json`, of what fits the schema of the command, "job-list" for instance."""
        document = self.json(*words, **options)
        schema = json.loads(self.expect(DONE, "schema"))
        jsonschema.Draft202012Validator(schema | {"$ref": f"#/$defs/{command}"}).validate(document)
        return document

    def terminal(self, *words, columns=80, rows=24, environment=None, **options):
        terminal = Terminal([ZAMCTL, *words], self.environment | (environment or {}), columns, rows, self.folder,
                            **options)
        self.addCleanup(terminal.close)
        return terminal

    def shell(self, command, **options):
        """A line for bash, with zamctl in its PATH."""
        # By a link of its own: beside the program are the agent's.
        links = self.folder / "links"
        if not links.exists():
            links.mkdir()
            (links / "zamctl").symlink_to(ZAMCTL)
        environment = self.environment | {"PATH": f"{links}:{self.environment['PATH']}"}
        return subprocess.run(["bash", "-c", command], env=environment, text=True, capture_output=True, timeout=60,
                              cwd=self.folder, **options)

    def wait_for(self, what, limit=30):
        """What a function answers, once that is something."""
        deadline = time.monotonic() + limit
        while time.monotonic() < deadline:
            answer = what()
            if answer:
                return answer
            time.sleep(0.02)
        self.fail("it does not come to pass")

    def completions(self, *words):
        out = self.expect(DONE, "__complete", "--", *words)
        return [line.partition("\t")[0] for line in out.splitlines()]

    def verbs(self):
        """Every verb, as its words."""
        for first in self.completions(""):
            if first == "help":
                continue
            names = [name for name in self.completions(first, "") if not name.startswith(":")]
            helped = self.expect(DONE, first, "--help")
            if f"usage: zamctl {first} VERB" in helped:
                yield from ((first, name) for name in names)
            else:
                yield (first,)


class WithTestAgent(Program):
    """One test agent for each test, shared by all that the test starts."""

    def setUp(self):
        self.environment = self.environment | {"PATH": f"{TESTAGENT}:{SYSTEM_PATH}"}
        self.script()
        shared = tempfile.mkdtemp(dir=self.folder)
        self.environment["ZAM_TESTAGENT_SHARED"] = shared
        self.addCleanup(self.stop_agent)

    def stop_agent(self):
        subprocess.run([str(TESTAGENT / "tarvoconfig"), "extended", "shutdown"], env=self.environment, check=False,
                       timeout=30, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def script(self, **members):
        """To be called before the agent is."""
        path = self.folder / "script.json"
        path.write_text(json.dumps(NIGHTLY | members))
        self.environment["ZAM_TESTAGENT_SCRIPT"] = str(path)

    def owner(self):
        return self.json("control", "show")["Owner"]


class WithAgent(Program):
    """The agent itself, one for a class, with a repository and a job; its home is new."""

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.home = cls.folder / "home"
        cls.home.mkdir()
        cls.environment |= {"PATH": f"{PROGRAMS}:{SYSTEM_PATH}", "TARVO_HOME": str(cls.home)}
        cls.addClassCleanup(cls.stop_agent)
        cls.source = cls.folder / "source"
        (cls.source / "deep").mkdir(parents=True)
        (cls.source / "notes.txt").write_text("what is to be kept\n")
        (cls.source / "deep" / "ünï 包.txt").write_text("wide\n")
        cls.setup("repo", "create", "disk", "--path", cls.folder / "repository")
        cls.setup("job", "create", "home", "--repo", "disk", "--dir", cls.source)

    @classmethod
    def setup(cls, *words):
        subprocess.run([str(word) for word in (ZAMCTL, *words)], env=cls.environment, check=True, timeout=60,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    @classmethod
    def agent_pid(cls):
        try:
            return int((cls.home / "run" / "tarvod.lock").read_text())
        except (OSError, ValueError):
            return 0

    @classmethod
    def stop_agent(cls, with_signal=signal.SIGTERM):
        pid = cls.agent_pid()
        if pid:
            try:
                os.kill(pid, with_signal)
                # One that nobody has waited for has no command line any more.
                while Path(f"/proc/{pid}/cmdline").read_bytes():
                    time.sleep(0.02)
            except OSError:
                pass
