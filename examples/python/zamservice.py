# SPDX-License-Identifier: Apache-2.0
"""The service's end of the wire: answers calls over the standard streams, and publishes events."""
import asyncio
import os
import shutil
import signal
import socket
import sys
import tempfile
import traceback

from zamwire import Api, InternalError, Malformed, Node, ServiceError, TransportError, frame, length, parse

FALLBACK = "CGenericException"


class Base:
    """What every object of a service is: a method that it lacks is refused, and nothing worse."""
    interface = None

    def close(self):
        """The connection has ended."""


class Service:
    """The objects of one client, and the calls on them."""

    def __init__(self, api, root):
        self.api, self.objects, self.last = api, {}, 0
        self.root = self.add(root)

    def add(self, thing):
        """The handle of an object; None has the handle 0. Every time an object is handed out it has a new one."""
        if thing is None:
            return 0
        self.last += 1
        self.objects[self.last] = thing
        return self.last

    def document(self):
        return Node(self.api.keys["root"], None)

    def greeting(self):
        response = self.document()
        response.put(self.api.keys["handle"], str(self.root))
        return response.written()

    def answer(self, text):
        """The answer to one request, whatever the client sends."""
        try:
            return self.carry_out(parse(text))
        except (InternalError, Malformed) as error:
            response = self.document()
            response.child(self.api.keys["internalError"]).put(self.api.keys["internalErrorMessage"], str(error))
            return response.written()

    def carry_out(self, request):
        handle = self.api.read(request, self.api.keys["handle"], "uint64")
        method_id = self.api.read(request, self.api.keys["method"], "text")
        if handle not in self.objects:
            raise InternalError(f"No object has the handle {handle}")
        target, response = self.objects[handle], self.document()
        if method_id == self.api.release:
            del self.objects[handle]
            return response.written()
        method = next((row for row in self.api.interfaces[target.interface] if row["id"] == method_id), None)
        if method is None:
            raise InternalError(f"The object with the handle {handle} has no method {method_id}")
        arguments = [self.api.read(request, argument["key"], argument["type"]) for argument in method["arguments"]]
        try:
            function = getattr(target, method["name"], None)
            if function is None:
                raise ServiceError(f"{method['name']} is not implemented")
            self.write_result(response, method["result"], function(*arguments))
        except Exception as error:
            if not isinstance(error, ServiceError):
                traceback.print_exc()
            return self.failure(error).written()
        return response.written()

    def write_result(self, response, kind, value):
        keys, element = self.api.keys, kind.get("list") if isinstance(kind, dict) else kind
        if element not in self.api.interfaces:
            if kind is not None:
                self.api.write(response, keys["result"], kind, value)
        elif element == kind:
            response.put(keys["handle"], str(self.add(value)))
        else:
            for each in value:
                response.child(keys["handle"]).put(keys["item"], str(self.add(each)))

    def failure(self, error):
        """A ServiceError of the API keeps its type; every other becomes the general one, with its text."""
        response, keys = self.document(), self.api.keys
        name = type(error).__name__ if type(error).__name__ in self.api.exceptions else FALLBACK
        described = response.child(keys["exception"])
        described.put(keys["exceptionType"], name)
        content = described.child(keys["exceptionContent"])
        content.child(keys["exceptionBase"]).put(keys["exceptionMessage"], str(error))
        for field in self.api.exceptions[name]:
            value = getattr(error, field["key"], self.api.default(field["type"]))
            self.api.write(content, field["key"], field["type"], value)
        return response


class EventSource:
    """A socket on which events are published, in a folder that only this user may enter."""

    def __init__(self, api):
        self.api, self.newcomers, self.subscribers = api, {}, set()
        self.folder = tempfile.mkdtemp(prefix="events-")
        self.path = os.path.join(self.folder, "events.sock")
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen()
        self.listener.setblocking(False)
        self.loop = asyncio.get_running_loop()
        self.loop.add_reader(self.listener, self.take_in)

    def take_in(self):
        while True:
            try:
                client, _ = self.listener.accept()
            except BlockingIOError:
                return
            client.setblocking(False)
            self.newcomers[client] = 4  # bytes of the opening word that are still to come
            self.loop.add_reader(client, self.listen_to, client)

    def listen_to(self, client):
        """A client sends four zeros, its opening word, and nothing else ever."""
        left = self.newcomers.get(client, 0)
        try:
            some = client.recv(left + 1)
        except BlockingIOError:
            return
        except OSError:
            return self.drop(client)
        if not some and not left:
            return self.loop.remove_reader(client)  # it may have closed its own direction and read on
        if not some or any(some) or len(some) > left:
            return self.drop(client)
        self.newcomers[client] = left - len(some)
        if not self.newcomers[client]:
            del self.newcomers[client]
            self.subscribers.add(client)

    def drop(self, client):
        self.loop.remove_reader(client)
        self.newcomers.pop(client, None)
        self.subscribers.discard(client)
        client.close()

    def publish(self, event):
        # Whoever connected before this moment is to see the event, however late the loop looks.
        self.take_in()
        for client in list(self.newcomers):
            self.listen_to(client)
        document = Node(self.api.keys["root"], None)
        self.api.write(document, self.api.keys["event"], "SBaseEvent", event)
        data = frame(document.written())
        for client in list(self.subscribers):
            try:
                behind = client.send(data) != len(data)
            except OSError:
                behind = True
            if behind:
                self.drop(client)  # its buffer is full: it is to know that it has missed something

    def close(self):
        self.loop.remove_reader(self.listener)
        self.listener.close()
        for client in [*self.newcomers, *self.subscribers]:
            self.drop(client)
        shutil.rmtree(self.folder, ignore_errors=True)


async def serve(api, make_root):
    """Serves one client until it closes the stream; the exit status is returned."""
    loop, output = asyncio.get_running_loop(), os.dup(1)
    os.dup2(2, 1)  # what is printed from now on must not go into the stream
    reader = asyncio.StreamReader()
    await loop.connect_read_pipe(lambda: asyncio.StreamReaderProtocol(reader), sys.stdin.buffer)
    transport, protocol = await loop.connect_write_pipe(asyncio.streams.FlowControlMixin, os.fdopen(output, "wb"))
    writer = asyncio.StreamWriter(transport, protocol, None, loop)
    loop.add_signal_handler(signal.SIGTERM, asyncio.current_task().cancel)
    root = make_root(api)
    try:
        service = Service(api, root)
        answer = service.greeting()
        while True:
            writer.write(frame(answer))
            await writer.drain()
            try:
                header = await reader.readexactly(4)
            except asyncio.IncompleteReadError as error:
                return 1 if error.partial else 0  # between two messages the end is an orderly one
            answer = service.answer(await reader.readexactly(length(header, api.max_bytes)))
    except asyncio.IncompleteReadError:
        return 1
    except asyncio.CancelledError:
        return 128 + signal.SIGTERM
    except ConnectionError:
        return 0  # the client did not wait for the last answer
    except TransportError as error:
        print(error, file=sys.stderr)
        return 1
    finally:
        root.close()


def main(service, make_root):
    """The command line of the tool of `service`, "agent" or "installer"."""
    api = Api()
    described = api.services[service]
    if sys.argv[1:] == described["version"]:
        document = Node(api.keys["root"], None)
        api.write(document, api.keys["version"], "SCompatibilityInfo",
                  api.SCompatibilityInfo(api.SVersion(**api.version)))
        print(document.written(), end="")
        return 0
    if sys.argv[1:-1] == described["serve"][:-1]:
        return asyncio.run(serve(api, make_root))
    print(f"Usage: {' '.join(described['serve'])}\n   or: {' '.join(described['version'])}", file=sys.stderr)
    return 2
