# SPDX-License-Identifier: Apache-2.0
"""The client's end of the wire: a tool of one's own, calls to it, and the agent's events.

One thread at a time. Objects that nobody releases live as long as their connection.
"""
import contextlib
import os
import select
import socket
import subprocess
import tempfile
import time

from zamwire import (LIMITS, InternalError, Malformed, Node, PeerGone, TransportError, ZamError, frame, length, parse,
                     read_number)


class Timeout(TransportError):
    """The answer did not come in time."""


class Stream:
    """Frames on two descriptors, or on one socket. Waits in poll, never longer than the deadline."""

    def __init__(self, api, incoming, outgoing):
        self.api, self.incoming, self.outgoing, self.received = api, incoming, outgoing, bytearray()
        os.set_blocking(incoming, False)
        os.set_blocking(outgoing, False)

    @staticmethod
    def wait(descriptor, event, deadline):
        poll = select.poll()
        poll.register(descriptor, event)
        left = None if deadline is None else max(0, deadline - time.monotonic()) * 1000
        if not poll.poll(left):
            raise Timeout("the other end did not respond in time")

    def send(self, data, deadline=None):
        view = memoryview(data)
        while view:
            try:
                view = view[os.write(self.outgoing, view):]
            except BlockingIOError:
                self.wait(self.outgoing, select.POLLOUT, deadline)
            except OSError as error:
                raise TransportError(f"the other end takes no more: {error.strerror}") from None

    def fill(self, count, deadline):
        """Waits until `count` bytes are there; what has come stays when time is up."""
        while len(self.received) < count:
            try:
                some = os.read(self.incoming, 65536)
            except BlockingIOError:
                self.wait(self.incoming, select.POLLIN, deadline)
                continue
            except ConnectionResetError:
                some = b""
            if not some:
                raise TransportError("the stream ended within a message") if self.received else \
                    PeerGone("the other end has closed the stream")
            self.received += some

    def receive(self, deadline=None):
        self.fill(4, deadline)
        end = 4 + length(self.received[:4], self.api.max_bytes)
        self.fill(end, deadline)
        text = bytes(self.received[4:end])
        del self.received[:end]
        return parse(text)


class Object:
    """An object of the service. Its methods are those of its interface; `with` or `release` lets it go."""

    def __init__(self, connection, interface, handle):
        self._connection, self._interface, self._handle = connection, interface, handle

    def __getattr__(self, name):
        methods = [row for row in self._connection.api.interfaces[self._interface] if row["name"] == name]
        if not methods:
            raise AttributeError(f"{self._interface} has no method {name}")

        def call(*arguments):
            for row in methods:  # one name may stand for two methods, of different numbers of arguments
                if len(row["arguments"]) == len(arguments):
                    return self._connection.call(self, row, arguments)
            raise TypeError(f"{self._interface}.{name} takes other arguments")
        return call

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.release()

    def release(self):
        if self._handle:
            self._connection.release(self._handle)
            self._handle = 0


class Connection:
    """A tool of one's own, and the calls to it.

    A call may take `timeout` seconds, and all calls end by `deadline`, as `time.monotonic()` counts; None is no limit.
    """

    def __init__(self, api, service, program=None, timeout=30.0, deadline=None):
        described = api.services[service]
        self.api, self.timeout, self.deadline, self.lost = api, timeout, deadline, None
        self.errors = tempfile.TemporaryFile()  # a file never fills up, as a pipe that nobody reads would
        self.tool = subprocess.Popen([program or described["program"], *described["serve"]], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, stderr=self.errors, process_group=0)
        self.stream = Stream(api, self.tool.stdout.fileno(), self.tool.stdin.fileno())
        try:
            self.root = self.made(described["root"], self.answer(None).get(api.keys["handle"]))
            if self.root is None:
                raise TransportError("the tool hands out no root object")
        except BaseException:
            self.close()
            raise

    def answer(self, request):
        """Sends the document `request`, unless there is none, and takes the answer."""
        if self.lost:
            raise TransportError(f"the connection was given up: {self.lost}")
        limits = [self.deadline, None if self.timeout is None else time.monotonic() + self.timeout]
        deadline = min((limit for limit in limits if limit is not None), default=None)
        try:
            if request is not None:
                self.stream.send(frame(request.written()), deadline)
            response = self.stream.receive(deadline)
        except (TransportError, Malformed) as error:
            # Nobody knows any more what the next byte belongs to.
            self.lost = str(error)
            raise type(error)(f"{error}{self.last_words()}") from None
        except BaseException:
            self.lost = "a call was cut off"
            raise
        self.raise_failure(response)
        return response

    def raise_failure(self, response):
        keys = self.api.keys
        if failure := response.find(keys["exception"]):
            kind = failure.get(keys["exceptionType"]).value()
            content = failure.get(keys["exceptionContent"])
            text = content.get(keys["exceptionBase"]).get(keys["exceptionMessage"]).value()
            error = self.api.errors.get(kind, ZamError)(text)
            for field in self.api.exceptions.get(kind, []):
                setattr(error, field["key"], self.api.read(content, field["key"], field["type"]))
            raise error
        if failure := response.find(keys["internalError"]):
            raise InternalError(failure.get(keys["internalErrorMessage"]).value())

    def last_words(self):
        self.errors.seek(max(0, self.errors.seek(0, os.SEEK_END) - 2000))
        lines = self.errors.read().decode(errors="replace").splitlines()[-5:]
        return "; the tool said: " + " | ".join(lines) if lines else ""

    def call(self, target, method, arguments):
        request = Node(self.api.keys["root"], None)
        for argument, value in zip(method["arguments"], arguments):
            self.api.write(request, argument["key"], argument["type"], value)
        response = self.send(request, target._handle, method["id"])
        kind, keys = method["result"], self.api.keys
        element = kind.get("list") if isinstance(kind, dict) else kind
        if element in self.api.interfaces:
            if element == kind:
                return self.made(kind, response.get(keys["handle"]))
            return [self.made(element, item.get(keys["item"])) for item in response.all(keys["handle"])]
        return None if kind is None else self.api.read(response, keys["result"], kind)

    def send(self, request, handle, method):
        request.put(self.api.keys["handle"], str(handle))
        request.put(self.api.keys["method"], method)
        return self.answer(request)

    def made(self, interface, entry):
        handle = read_number(entry.value(), *LIMITS["uint64"])
        return Object(self, interface, handle) if handle else None

    def release(self, handle):
        with contextlib.suppress(ZamError):  # there is nothing left to release it from
            self.send(Node(self.api.keys["root"], None), handle, self.api.release)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        """Ends the tool as the library does: by its input's end, then by signals."""
        self.tool.stdin.close()
        for end, patience in ((None, 0 if self.lost else 2), (self.tool.terminate, 1), (self.tool.kill, None)):
            if end is not None:
                end()
            with contextlib.suppress(subprocess.TimeoutExpired):
                self.tool.wait(patience)
                break
        self.tool.stdout.close()
        self.errors.close()


class Events:
    """The agent's events. `fileno` is for an event loop of one's own."""

    def __init__(self, api, path):
        self.api, self.socket = api, socket.socket(socket.AF_UNIX)
        self.socket.settimeout(5)
        self.socket.connect(path)
        self.socket.sendall(bytes(4))  # an empty frame opens the stream
        self.stream = Stream(api, self.socket.fileno(), self.socket.fileno())

    def fileno(self):
        return self.socket.fileno()

    def read(self, timeout=None):
        deadline = None if timeout is None else time.monotonic() + timeout
        return self.api.read(self.stream.receive(deadline), self.api.keys["event"], "SBaseEvent")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.socket.close()
