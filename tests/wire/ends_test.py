# SPDX-License-Identifier: Apache-2.0
"""The example programs in Python against the ends in C++, both ways, and every service against odd input."""
import dataclasses
import fcntl
import json
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import uuid
from pathlib import Path

EXAMPLES = Path(os.environ["WIRE_EXAMPLES"])
sys.path.insert(0, str(EXAMPLES))

from zamclient import Connection, Events, Timeout  # noqa: E402
from zamwire import Api, InternalError, Malformed, Node, ServiceError, TransportError, ZamError, frame, parse  # noqa: E402

AGENT, INSTALLER, DEMO = (os.environ[f"WIRE_{name}"] for name in ("AGENT", "INSTALLER", "DEMO"))
PYTHON_AGENT = str(EXAMPLES / "service.py")
API = Api()
TOOLS = {"the test agent": ("agent", AGENT), "tarvoinstaller": ("installer", INSTALLER),
         "the agent in Python": ("agent", PYTHON_AGENT)}
NIGHTLY = {"repositories": [{"name": "main", "location": "/srv"}],
           "jobs": [{"name": "nightly", "repository": "main", "includeDirs": ["/etc"]}]}


def owner():
    return API.SZamControlOwnerInfo(uuid.uuid4(), "tester", API.ZAMOwnerType.Local, API.ZAMOwnerMode.Exclusive)


class Scripted(unittest.TestCase):
    """A test may tell the test agent how to behave."""

    def script(self, **script):
        file = tempfile.NamedTemporaryFile("w", suffix=".json")
        self.addCleanup(file.close)
        json.dump(script, file)
        file.flush()
        os.environ["ZAM_TESTAGENT_SCRIPT"] = file.name
        self.addCleanup(os.environ.pop, "ZAM_TESTAGENT_SCRIPT", None)

    def connect(self, program=AGENT):
        connection = Connection(API, "agent", program)
        self.addCleanup(connection.close)
        return connection

    def rule(self, method, action, **members):
        self.script(rules=[{"method": method, "action": action, **members}], **NIGHTLY)


def answers(tool, data):
    """What a service makes of `data` on its standard input: exit status and frames behind the greeting."""
    service, program = TOOLS[tool]
    ended = subprocess.run([program, *API.services[service]["serve"]], input=data, capture_output=True, timeout=30)
    output, frames = ended.stdout, []
    while output:
        (size,) = struct.unpack("<I", output[:4])
        frames.append(output[4:4 + size].decode())
        output = output[4 + size:]
    return ended.returncode, frames[1:]


def call(handle, method, more=""):
    return frame(f"<Data>{more}<__handle>{handle}</__handle><__method>{method}</__method></Data>")


class EveryService(unittest.TestCase):
    def each(self, check):
        for tool in TOOLS:
            with self.subTest(tool):
                check(tool)

    def test_answers_what_is_no_call_with_an_internal_error_and_goes_on(self):
        odd = [frame(""), frame("junk"), frame("<Data><a></Data>"), frame("<!DOCTYPE Data><Data/>"),
               frame("<Data>" + "<a>" * 300), frame('<Data><a encoding="base64">?</a></Data>'), frame("<Data/>"),
               frame("<Data><__handle>1</__handle></Data>"), call(7, "__dtr"), call(0, "__dtr"), call(1, "No_1"),
               call("x", "__dtr"), call("9" * 5000, "__dtr")]
        def check(tool):
            status, frames = answers(tool, b"".join(odd) + call(1, "__dtr"))
            self.assertEqual(len(frames), len(odd) + 1)
            for text in frames[:-1]:
                self.assertRegex(text, "^<Data><__api_internal_err><msg>.+</msg></__api_internal_err></Data>$")
            self.assertEqual((frames[-1], status), ("<Data/>", 0))
        self.each(check)

    def test_forgets_an_object_that_was_released(self):
        def check(tool):
            status, frames = answers(tool, call(1, "__dtr", "<ignored>1</ignored>") + call(1, "__dtr"))
            self.assertEqual((status, frames[0]), (0, "<Data/>"))
            self.assertIn("__api_internal_err", frames[1])
        self.each(check)

    def test_ignores_further_entries_and_refuses_missing_ones(self):
        for tool, (service, _) in TOOLS.items():
            with self.subTest(tool):
                method, key = ("RequestControl_6119236697561886250", "owner") if service == "agent" else \
                    ("FindService_15620865180769635232", "serviceName")
                _, frames = answers(tool, call(1, method, f"<{key}><x>1</x></{key}>") + call(1, method))
                for text in frames:
                    self.assertIn("__api_internal_err", text)
                plain = "IsOsxFDAGranted_16988824051704448109" if service == "agent" else \
                    "GetToolVersion_9650153311793924748"
                self.assertIn("<__result>", answers(tool, call(1, plain, "<further>1</further>"))[1][0])

    def test_exits_with_zero_only_when_the_input_ends_between_two_frames(self):
        def check(tool):
            self.assertEqual(answers(tool, b""), (0, []))
            for broken in (b"\x05\x00", frame("<Data/>")[:7], b"\x04\0\0\0", b"\xff\xff\xff\xff", b"hello\n"):
                self.assertEqual(answers(tool, broken), (1, []), broken)
        self.each(check)

    def test_exits_with_zero_when_the_client_left_without_the_last_answers(self):
        def check(tool):
            service, program = TOOLS[tool]
            with subprocess.Popen([program, *API.services[service]["serve"]], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE) as process:
                self.assertTrue(process.stdout.read(4))
                process.stdout.close()
                process.stdin.write(call(7, "__dtr"))
                process.stdin.close()
                self.assertEqual(process.wait(20), 0)
        self.each(check)

    def test_reports_the_version_of_the_protocol_and_refuses_other_words(self):
        texts = set()
        for tool, (service, program) in TOOLS.items():
            with self.subTest(tool):
                asked = subprocess.run([program, *API.services[service]["version"]], capture_output=True)
                self.assertEqual(asked.returncode, 0)
                texts.add(asked.stdout)
                self.assertEqual(subprocess.run([program, "no", "such"], capture_output=True).returncode, 2)
        (text,) = texts
        info = API.read(parse(text), API.keys["version"], "SCompatibilityInfo")
        self.assertEqual(dataclasses.asdict(info.protocolVersion), API.version)

    def test_answers_three_hundred_unread_releases_through_the_smallest_pipe(self):
        for tool, (service, program) in TOOLS.items():
            with self.subTest(tool), Connection(API, service, program) as connection:
                stream = connection.stream
                for pipe in (stream.incoming, stream.outgoing):
                    fcntl.fcntl(pipe, fcntl.F_SETPIPE_SZ, 4096)
                name, words = ("RequestControl", (owner(), True)) if service == "agent" else ("GetPackageManager", ())
                held = [getattr(connection.root, name)(*words)._handle for _ in range(300)]
                for handle in held:
                    stream.send(call(handle, "__dtr"), time.monotonic() + 20)
                for _ in held:
                    self.assertEqual(stream.receive(time.monotonic() + 20).children, [])


class EveryEventSource(Scripted):
    def subscribe(self, program, word=bytes(4)):
        connection = self.connect(program)
        stream = socket.socket(socket.AF_UNIX)
        self.addCleanup(stream.close)
        stream.settimeout(20)
        stream.connect(connection.root.GetEventConfig().v1.socketPath)
        stream.sendall(word)
        return connection, stream

    def cause_an_event(self, connection):
        product = connection.root.RequestControl(owner(), True)
        return product, product.CreateBackupJob(API.SBackupJobConfigurationInfo("nightly"))

    def each(self, check):
        for program in (AGENT, PYTHON_AGENT):
            with self.subTest(program):
                check(program)

    def test_disconnects_one_that_opens_with_another_word_or_says_more(self):
        def check(program):
            for word in (b"\0\0\0\1", bytes(5), b"hello"):
                self.assertEqual(self.subscribe(program, word)[1].recv(1), b"")
        self.each(check)

    def test_takes_the_opening_word_in_parts_and_lets_a_client_close_its_own_direction(self):
        def check(program):
            connection, stream = self.subscribe(program, bytes(1))
            stream.sendall(bytes(3))
            stream.shutdown(socket.SHUT_WR)
            self.cause_an_event(connection)
            self.assertEqual(len(stream.recv(4)), 4)
        self.each(check)

    def test_replays_nothing(self):
        def check(program):
            connection = self.connect(program)
            product, job = self.cause_an_event(connection)
            with Events(API, connection.root.GetEventConfig().v1.socketPath) as events:
                product.DeleteBackupJob(job.GetInfo().Id)
                event = events.read(timeout=20)
                self.assertEqual((event.Id, event.Type), (2, API.EEventType.BackupJobDeleted))
                self.assertTrue(event.eventBackupJobDeleted)
        self.each(check)

    def test_ends_the_stream_with_the_connection(self):
        def check(program):
            connection, stream = self.subscribe(program)
            connection.close()
            try:
                self.assertEqual(stream.recv(1), b"")
            except ConnectionResetError:
                pass  # the service had not read the opening word yet
            self.assertEqual(connection.tool.returncode, 0)
        self.each(check)


class Client(Scripted):
    def run_client(self, *words):
        return subprocess.run([EXAMPLES / "client.py", *words], capture_output=True, text=True, timeout=60)

    def test_prints_the_host(self):
        ended = self.run_client("--tool", INSTALLER, "host")
        self.assertEqual((ended.returncode, ended.stderr), (0, ""))
        self.assertIn(socket.gethostname(), ended.stdout)
        self.assertRegex(ended.stdout, r"\n  lo: Up 127\.0\.0\.1")

    def test_follows_a_job(self):
        self.script(**NIGHTLY)
        ended = self.run_client("--tool", AGENT, "follow", "nightly")
        self.assertEqual((ended.returncode, ended.stderr), (0, ""))
        self.assertRegex(ended.stdout, r"event \d+: BackupJobStarted\nevent \d+: BackupJobFinished\n"
                                       r"Success, \d+ bytes read\n$")

    def test_says_in_one_line_what_went_wrong(self):
        self.rule("Start", "throw", type="CJobIsRunning", message="busy")
        for words, text in (([AGENT, "follow", "nightly"], "CJobIsRunning: busy\n"),
                            (["/no/such/tool", "host"], "FileNotFoundError: .*/no/such/tool'\n"),
                            (["/bin/false", "host"], "PeerGone: the other end has closed the stream\n"),
                            ([INSTALLER, "follow", "x"], "PeerGone: .*; the tool said: .*\n")):
            ended = self.run_client("--tool", *words)
            self.assertEqual((ended.returncode, ended.stdout), (1, ""))
            self.assertRegex(ended.stderr, f"^client.py: {text}$")

    def test_throws_each_exception_of_the_api_by_its_type_and_goes_on(self):
        for name in API.exceptions:
            more = {"missedPackage": "Tar"} if name == "CIndexingUnmetDependencies" else {}
            self.rule("GetProductInfo", "throw", times=1, type=name, message="the <reason>", **more)
            control = self.connect().root
            with self.assertRaises(API.errors[name]) as thrown:
                control.GetProductInfo()
            self.assertIsInstance(thrown.exception, ServiceError)
            self.assertEqual(str(thrown.exception), "the <reason>")
            if more:
                self.assertEqual(thrown.exception.MissedPackage, API.EIndexingDependency.Tar)
            self.assertEqual(control.GetProductInfo().Name, "Test agent")

    def test_throws_an_unknown_exception_as_the_root_and_an_internal_error_as_one(self):
        self.rule("GetProductInfo", "throw", type="CUnheardOf", message="what")
        with self.assertRaises(ZamError) as thrown:
            self.connect().root.GetProductInfo()
        self.assertEqual(type(thrown.exception), ZamError)
        self.rule("GetProductInfo", "internal-error", message="what")
        with self.assertRaises(InternalError):
            self.connect().root.GetProductInfo()

    def test_gives_a_connection_up_whose_stream_can_not_be_trusted(self):
        for error, action in ((TransportError, ("kill", {})), (TransportError, ("garbage", {"message": "oops oops"})),
                              (Malformed, ("malformed", {})), (Timeout, ("delay", {"ms": 60000}))):
            self.rule("GetProductInfo", action[0], **action[1])
            connection = self.connect()
            connection.timeout = 0.2 if error is Timeout else 30  # from here on: the greeting may take its time
            control = connection.root
            with self.assertRaises(error):
                control.GetProductInfo()
            with self.assertRaisesRegex(TransportError, "given up"):
                control.GetSessionId()

    def test_carries_numbers_without_a_member_and_no_object(self):
        self.rule("GetCurrentOwner", "unknown-enum")
        self.assertEqual(self.connect().root.GetCurrentOwner().Mode, 99)
        self.rule("RequestControl", "null-object")
        self.assertIsNone(self.connect().root.RequestControl(owner(), False))

    def test_and_the_agents_agree_on_a_whole_job(self):
        api = API
        config = api.SBackupJobConfigurationInfo(
            JobName="a <b> & \r\n \x00 \udcff", UserData=" two  blanks ", RetriesInfo=api.SRetriesInfo(3, 2**64 - 1),
            ScriptInfo=api.SBackupJobScriptInfo(PreJobScript="/a", ExecutionTimeout=api.STimeSpan(-1, 999)))
        config.Source.IncludeDirs = ["/etc", "", "/häuser"]
        config.Source.Objects = [api.SVolumeBackupObject("/dev/sda", api.EVolumeBackupObjectType.Disk)]
        config.RetentionInfo.RetainDays, config.ScheduleInfo.Calendar.Days = 7, 127
        config.AapInfo.MySQLInfo = api.SMySQLInfo(Credentials=api.SCredentials("me", "", "secret"))
        config.StorageInfo.EncryptionSettings = api.SEncryptionSettings("secret", "hint")
        for program in (AGENT, PYTHON_AGENT):
            with self.subTest(program):
                product = self.connect(program).root.RequestControl(owner(), False)
                with product.CreateBackupJob(config) as job:
                    read = job.GetConfigurationInfo()
                self.assertEqual(read.StorageInfo.EncryptionSettings, api.SEncryptionSettings(None, "hint"))
                self.assertIsNone(read.AapInfo.MySQLInfo.Credentials.Password)
                read.StorageInfo.EncryptionSettings.Password = "secret"
                read.AapInfo.MySQLInfo.Credentials.Password = "secret"
                self.assertEqual(read, config)

    def test_tells_two_methods_of_one_name_apart_by_their_arguments(self):
        for program in (AGENT, PYTHON_AGENT):
            with self.subTest(program):
                connection = self.connect(program)
                product = connection.root.RequestControl(owner(), False)
                repository = product.GetRepositoryManager().CreateRepository(
                    API.SBackupRepositoryInfo(Name="main", Location="/srv"))
                job = product.CreateBackupJob(API.SBackupJobConfigurationInfo("nightly", RepositoryId=repository.Id))
                with Events(API, connection.root.GetEventConfig().v1.socketPath) as events:
                    session = job.Start(API.SJobStartOptions())
                    with self.assertRaises(API.CJobIsRunning):
                        job.Start(API.SJobStartOptions(API.EJobStartRetriesMode.Disabled))
                    while not events.read(timeout=20).eventBackupJobFinished:
                        pass
                info = session.GetInfo()
                self.assertEqual(len(job.GetBackupJobSessions()), 1)
                self.assertEqual(len(job.GetBackupJobSessions(info.Usn - 1)), 1)
                self.assertEqual(job.GetBackupJobSessions(info.Usn), [])
                with self.assertRaises(TypeError):
                    job.GetBackupJobSessions(1, 2)
                with self.assertRaises(AttributeError):
                    job.NoSuchMethod()

    def test_prints_no_secret(self):
        provider = API.SCloudServiceProviderInfo(Name="shown")
        provider.Password = API.SCloudServiceProviderPassword("hidden")
        for record in (provider, provider.Password, API.SCredentials("shown", "", "hidden"),
                       API.SEncryptionSettings("hidden", "shown"), API.SBackupServerInfo(Password="hidden")):
            self.assertNotIn("hidden", f"{record} {record!r}")
        secrets = [field for rows in API.records.values() for field in rows if field.get("secret")]
        self.assertEqual(len(secrets), 6)

    def test_reads_odd_numbers_as_the_page_says(self):
        page = (Path(os.environ["WIRE_SOURCE"]) / "docs/wire.md").read_text()
        table = re.search(r"### Odd numbers\n(?s:.*?)\n((?:\|.*\n)+)", page)[1]
        for line in table.splitlines()[2:]:
            text, *expected = [cell.strip(" ") for cell in line.strip("|").split("|")]
            document = Node("Data", None)
            document.put("K", "" if text == "(empty)" else text.strip("`"))
            document = parse(document.written())
            kinds = ("int32", "int64", "uint16", "uint32", "uint64")
            self.assertEqual([str(API.read(document, "K", kind)) for kind in kinds], expected, text)

    def test_reads_numbers_that_are_longer_than_python_takes(self):
        for text, expected in (("9" * 5000, 2**31 - 1), ("-" + "9" * 5000, -2**31), ("0" * 5000 + "7", 7)):
            self.assertEqual(API.read(Node("Data", None, [Node("K", text)]), "K", "int32"), expected)


class Service(unittest.TestCase):
    def test_is_an_agent_for_the_demo_in_cxx(self):
        with tempfile.TemporaryDirectory() as folder:
            os.symlink(PYTHON_AGENT, os.path.join(folder, "tarvoconfig"))
            temporary = os.path.join(folder, "tmp")
            os.mkdir(temporary)
            ended = subprocess.run([DEMO], capture_output=True, text=True, timeout=60,
                                   env=dict(os.environ, PATH=f"{folder}:{os.environ['PATH']}", TMPDIR=temporary))
            self.assertEqual(os.listdir(temporary), [], "it left its socket behind")
        self.assertEqual((ended.returncode, ended.stderr), (0, ""))
        self.assertRegex(ended.stdout, r"(?s)^agent: Agent in Python\n.*event 3: BackupJobFinished\n"
                                       r"session .*: Stopped, Success.*refused, as expected: There is a job called")

    def test_refuses_what_it_does_not_implement(self):
        with Connection(API, "agent", PYTHON_AGENT) as connection:
            with self.assertRaisesRegex(API.CGenericException, "^GrabLogs is not implemented$"):
                connection.root.GrabLogs("/tmp/x")

    def test_removes_its_socket_when_it_is_told_to_end(self):
        connection = Connection(API, "agent", PYTHON_AGENT)
        path = connection.root.GetEventConfig().v1.socketPath
        connection.tool.terminate()
        self.assertEqual(connection.tool.wait(20), 128 + 15)
        self.assertFalse(os.path.exists(os.path.dirname(path)))
        connection.close()


class Examples(unittest.TestCase):
    def test_are_short(self):
        for file in EXAMPLES.glob("*.py"):
            self.assertLessEqual(len(file.read_text().splitlines()), 250, file.name)


if __name__ == "__main__":
    unittest.main()
