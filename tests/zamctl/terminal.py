# SPDX-License-Identifier: Apache-2.0
"""A program on a pseudo-terminal of a given size, and what a person would see of it."""
import fcntl
import os
import pty
import re
import select
import struct
import subprocess
import termios
import time
import unicodedata

ESCAPE = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|\x1b[()][A-Z0-9]|\x1b[=>]")
PATIENCE = 30


def columns_of(text):
    """The columns that a text takes."""
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


def plain(text):
    return ESCAPE.sub("", text)


def screen(text):
    """The lines as they stand in the end: what a carriage return or an erasure took away is not seen."""
    lines = []
    for raw in text.replace("\r\n", "\n").split("\n"):
        shown = ""
        for part in re.split(r"(\r|\x1b\[[0-9;?]*[A-Za-z])", raw):
            if part == "\r":
                shown, rest = "", shown
            elif part.startswith("\x1b["):
                if part.endswith("K"):
                    rest = ""
            else:
                shown += part
                rest = ""
        lines.append(shown or rest)
    return lines


class Terminal:
    """Runs a program whose standard streams, and controlling terminal, are a terminal of so many columns."""

    def __init__(self, words, environment, columns=80, rows=24, folder=None, pass_fds=()):
        self.master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
        self.seen = ""
        self.expected = 0
        self.process = subprocess.Popen(
            [str(word) for word in words], env=environment, stdin=slave, stdout=slave, stderr=slave, cwd=folder,
            start_new_session=True, pass_fds=pass_fds,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0))
        os.close(slave)

    def read(self, limit):
        """More of the output, or False when there is none within the limit, or at the end."""
        if not select.select([self.master], [], [], limit)[0]:
            return False
        try:
            piece = os.read(self.master, 65536)
        except OSError:  # nobody has the other end any more
            piece = b""
        self.seen += piece.decode(errors="replace")
        return bool(piece)

    def expect(self, text):
        """Waits until the text has come, behind what was expected before."""
        deadline = time.monotonic() + PATIENCE
        while text not in plain(self.seen)[self.expected:]:
            if not self.read(max(0.0, deadline - time.monotonic())):
                raise AssertionError(f"{text!r} does not come; there is {self.seen!r}")
        self.expected = plain(self.seen).index(text, self.expected) + len(text)

    def send(self, text):
        os.write(self.master, text.encode())

    def end(self):
        """The exit status, once the program has ended; what it wrote is in `seen`."""
        deadline = time.monotonic() + PATIENCE
        while self.read(max(0.0, deadline - time.monotonic())):
            pass
        status = self.process.wait(max(1.0, deadline - time.monotonic()))
        self.close()
        return status

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        if self.master >= 0:
            os.close(self.master)
            self.master = -1
