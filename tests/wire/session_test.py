# SPDX-License-Identifier: Apache-2.0
"""The session that docs/wire.md shows is one that the test agent holds. `session_test.py show` prints it anew."""
import json
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PAGE = Path(os.environ["WIRE_SOURCE"]) / "docs/wire.md"
AGENT = os.environ["WIRE_AGENT"]

OWNER = ("<owner><Id>{%s}</Id><Name>%s</Name><Type>1</Type><Mode>3</Mode></owner>"
         % ("11111111-2222-3333-4444-555555555555", "console"))
OTHER = OWNER.replace("11111111", "99999999").replace("console", "another")


def request(handle, method, arguments=""):
    return f"<Data>{arguments}<__handle>{handle}</__handle><__method>{method}</__method></Data>"


# Who sends what; an answer is what the agent makes of it.
CALLS = [
    ("the agent: its greeting", None),
    ("the client: GetEventConfig", request(1, "GetEventConfig_5380351184835268402")),
    ("the event socket, the client: its opening word", "open"),
    ("the client: RequestControl", request(1, "RequestControl_6119236697561886250", OWNER + "<force>false</force>")),
    ("the client: GetBackupJobs", request(2, "GetBackupJobs_4756417812929473734")),
    ("the client: Disable", request(3, "Disable_5301774791616433387")),
    ("the event socket, the agent: an event", "event"),
    ("the client: the release of the job", request(3, "__dtr")),
    ("the client: Disable once more", request(3, "Disable_5301774791616433387")),
    ("the client: ReleaseControl for another owner", request(1, "ReleaseControl_7339060124436734195", OTHER)),
]


def frame(text):
    data = text.encode()
    return struct.pack("<I", len(data)) + data


def read_frame(read):
    header = read(4)
    return header + read(struct.unpack("<I", header)[0])


def held_session():
    """The session as it goes today: who sends, and the bytes of the frame."""
    frames, events = [], socket.socket(socket.AF_UNIX)
    with tempfile.NamedTemporaryFile("w", suffix=".json") as script:
        json.dump({"jobs": [{"name": "nightly"}]}, script)
        script.flush()
        tool = subprocess.Popen([AGENT, "extended", "startCommandInvoker", "--logFileName", "tarvoconfig_api.log"],
                                stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                env=dict(os.environ, ZAM_TESTAGENT_SCRIPT=script.name))
        with tool, events:
            stream = events.makefile("rb")
            for title, text in CALLS:
                if text == "open":
                    path = re.search("<socketPath>(.*)</socketPath>", frames[-1][1].decode())[1]
                    events.connect(path)
                    events.sendall(bytes(4))
                    frames.append((title, bytes(4)))
                elif text == "event":
                    frames.append((title, read_frame(stream.read)))
                elif text is None:
                    frames.append((title, read_frame(tool.stdout.read)))
                else:
                    tool.stdin.write(frame(text))
                    tool.stdin.flush()
                    frames.append((title, frame(text)))
                    frames.append(("the agent", read_frame(tool.stdout.read)))
            tool.stdin.close()
            rest, status = tool.stdout.read(), tool.wait(20)
    assert rest == b"" and status == 0, (rest, status)
    return frames


def shown(frames):
    lines = []
    for title, data in frames:
        lines.append(f"# {title}")
        for at in range(0, len(data), 16):
            row = data[at:at + 16]
            text = "".join(chr(byte) if 32 <= byte < 127 else "." for byte in row)
            lines.append(f"{row.hex(' '):<48} {text}")
    return "```text\n" + "\n".join(lines) + "\n```"


def documented():
    """The frames of the page."""
    block = re.search(r"## 15\..*?```text\n(.*?)```", PAGE.read_text(), re.S)[1]
    frames = []
    for line in block.splitlines():
        if line.startswith("# "):
            frames.append((line[2:], b""))
        else:
            frames[-1] = (frames[-1][0], frames[-1][1] + bytes.fromhex(line[:48]))
    return frames


def masked(data):
    """The frame's text without what differs from run to run: identifiers, times, the path of the socket."""
    text = re.sub(r"\{[0-9a-f-]{36}\}", "{GUID}", data[4:].decode())
    return re.sub(r"<(seconds|milliseconds|socketPath)>[^<]*", r"<\1>...", text)


class Session(unittest.TestCase):
    def test_is_on_the_page_as_the_agent_holds_it(self):
        page, real = documented(), held_session()
        self.assertEqual([title for title, _ in page], [title for title, _ in real])
        for (title, data), (_, today) in zip(page, real):
            self.assertEqual(data[:4], struct.pack("<I", len(data) - 4), title)
            self.assertEqual(masked(data), masked(today), title)

    def test_shows_the_text_beside_the_bytes(self):
        block = re.search(r"## 15\..*?(```text\n.*?```)", PAGE.read_text(), re.S)[1]
        self.assertEqual(block, shown(documented()))


if __name__ == "__main__":
    if sys.argv[1:] == ["show"]:
        print(shown(held_session()))
    else:
        unittest.main()
