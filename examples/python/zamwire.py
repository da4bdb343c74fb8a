# SPDX-License-Identifier: Apache-2.0
"""The wire in Python: documents, values and frames, for both ends. Everything about the API comes from wire.json.

Records become data classes whose text leaves out secrets, enumerations become IntEnums that carry numbers without
a member as well, and every exception of the API becomes a class below ServiceError.
"""
import base64
import dataclasses
import enum
import json
import re
import struct
import uuid
from pathlib import Path
from xml.parsers import expat
from xml.sax.saxutils import escape

LIMITS = {"int32": (-2**31, 2**31 - 1), "int64": (-2**63, 2**63 - 1),
          "uint16": (0, 2**16 - 1), "uint32": (0, 2**32 - 1), "uint64": (0, 2**64 - 1)}


class ZamError(Exception):
    """The root of everything that goes wrong with a call."""


class TransportError(ZamError):
    """The connection is of no more use; the outcome of the call is unknown."""


class PeerGone(TransportError):
    """The other end has closed the stream between two messages."""


class InternalError(ZamError):
    """The machinery of the other end failed; the connection goes on."""


class ServiceError(ZamError):
    """The service refused, for a reason of the API; the connection goes on."""


class Malformed(ZamError):
    """A document, or a value in it, is not what the wire allows."""


class Enumeration(enum.IntEnum):
    """Numbers of a newer service are carried though no member has them."""

    @classmethod
    def _missing_(cls, value):
        if not isinstance(value, int):
            return None
        member = int.__new__(cls, value)
        member._name_, member._value_ = f"{cls.__name__}({value})", value
        return member

    def __str__(self):
        return self.name


def read_number(text, low, high):
    """What a text is as a number between the limits; no text fails."""
    found = re.match(r"[ \t-\r]*([+-]?)0*([0-9]*)", text)
    number = int(found[1] + (found[2][:40] or "0"))  # so many digits are over any limit, and int refuses very many
    if low == 0 and -high <= number < 0:
        number += high + 1  # a minus sign before an unsigned number
    return min(max(number, low), high) if low or number >= 0 else high


class Node:
    """One entry of a document: a text, or further entries."""

    def __init__(self, key, text="", children=None):
        self.key, self.text, self.children = key, text, children if children is not None else []

    def all(self, key):
        return [child for child in self.children if child.key == key]

    def find(self, key):
        return next((child for child in self.children if child.key == key), None)

    def get(self, key):
        found = self.find(key)
        if found is None:
            raise Malformed(f"{self.key} has no entry {key}")
        return found

    def value(self):
        if self.children:
            raise Malformed(f"{self.key} holds entries where a text was expected")
        return self.text

    def put(self, key, text):
        self.children.append(Node(key, text))

    def child(self, key):
        self.children.append(Node(key))
        return self.children[-1]

    def written(self):
        if self.children:
            return f"<{self.key}>{''.join(child.written() for child in self.children)}</{self.key}>"
        if self.text is None:
            return f"<{self.key}/>"
        # What is no XML 1.0 goes in base64. Bytes that are no UTF-8 stand as lone surrogates in a Python text.
        if re.search("[\x00-\x08\x0b\x0c\x0e-\x1f\ud800-\udfff\ufffe\uffff]", self.text):
            code = base64.b64encode(self.text.encode("utf-8", "surrogateescape")).decode()
            return f'<{self.key} encoding="base64">{code}</{self.key}>'
        return f"<{self.key}>{escape(self.text, {chr(13): '&#13;'})}</{self.key}>"


def parse(text, levels=256):
    """The root of the document `text`, which comes from a stranger."""
    top = Node("", None)
    path, coded = [top], [False]

    def start(name, attributes):
        if len(path) > levels:
            raise Malformed(f"elements are nested deeper than {levels} levels")
        if len(path) > 1 and not re.fullmatch(r"[A-Za-z_][A-Za-z0-9_.-]*", name):
            raise Malformed(f"{name!r} is no key")
        if attributes.get("encoding", "base64") != "base64":
            raise Malformed("an encoding other than base64")
        path.append(path[-1].child(name))
        path[-1].text = ""
        coded.append("encoding" in attributes)

    def end(_name):
        node = path.pop()
        if coded.pop() and not node.children:
            try:
                data = base64.b64decode(node.text, validate=True)
            except ValueError as error:
                raise Malformed(f"{node.key}: {error}") from None
            if base64.b64encode(data).decode() != node.text:
                raise Malformed(f"{node.key}: bits behind the last byte")
            node.text = data.decode("utf-8", "surrogateescape")

    def data(characters):
        path[-1].text += characters

    def refuse(*_):
        raise Malformed("a document type declaration is not accepted")

    parser = expat.ParserCreate("utf-8")
    parser.StartElementHandler, parser.EndElementHandler, parser.CharacterDataHandler = start, end, data
    parser.StartDoctypeDeclHandler = refuse
    try:
        parser.Parse(text, True)
    except expat.ExpatError as error:
        raise Malformed(f"malformed document: {error}") from None
    return top.children[0]


class Api:
    """What wire.json says, with a class for each record, enumeration and exception as an attribute."""

    def __init__(self, path=None):
        above = Path(__file__).resolve().parents[2]  # the installed folder, or the source's
        path = path or next(file for file in (above / "wire.json", above / "docs/wire.json") if file.exists())
        tables = json.loads(Path(path).read_text())
        self.keys, self.interfaces, self.services = tables["keys"], tables["interfaces"], tables["services"]
        self.records, self.exceptions = tables["records"], tables["exceptions"]
        self.release, self.version = tables["releaseMethod"], tables["protocolVersion"]
        self.max_bytes = tables["limits"]["messageBytes"]
        self.enumerations = {name: Enumeration(name, members)
                             for name, members in tables["enumerations"].items()}
        self.classes = {name: dataclasses.make_dataclass(name, [
            (field["key"], object, self._field(field)) for field in fields]) for name, fields in self.records.items()}
        self.errors = {name: type(name, (ServiceError,), {}) for name in self.exceptions}
        for name, cls in (self.enumerations | self.classes | self.errors).items():
            setattr(self, name, cls)

    def _field(self, field):
        return dataclasses.field(default_factory=lambda: self.default(field["type"]),
                                 repr=not field.get("secret", False))

    def default(self, kind):
        """What a record's field is when nobody sets it."""
        if isinstance(kind, dict):
            return None if "optional" in kind else []
        if kind in self.enumerations:
            return self.enumerations[kind](0)
        if kind in self.classes:
            return self.classes[kind]()
        return {"text": "", "boolean": False, "guid": uuid.UUID(int=0)}.get(kind, 0)

    def write(self, node, key, kind, value):
        """Appends `value` to `node` under `key`."""
        if isinstance(kind, dict) and "optional" in kind:
            if value is not None:
                self.write(node.child(key), self.keys["optional"], kind["optional"], value)
        elif isinstance(kind, dict):
            for element in value:
                self.write(node.child(key), self.keys["item"], kind["list"], element)
        elif kind in self.records:
            child = node.child(key)
            child.text = None
            for field in self.records[kind]:
                self.write(child, field["key"], field["type"], getattr(value, field["key"]))
        elif kind == "boolean":
            node.put(key, "true" if value else "false")
        elif kind == "guid":
            node.put(key, f"{{{value}}}")
        elif kind == "text":
            node.put(key, value)
        else:
            low, high = LIMITS[kind if kind in LIMITS else "int32"]
            if not low <= value <= high:
                raise ValueError(f"{key}: {value} is no {kind}")
            node.put(key, str(int(value)))

    def read(self, node, key, kind):
        """What `node` holds under `key`. Numbers are read as freely as the library does, GUIDs strictly."""
        if isinstance(kind, dict) and "optional" in kind:
            child = node.find(key)
            return None if child is None else self.read(child, self.keys["optional"], kind["optional"])
        if isinstance(kind, dict):
            return [self.read(child, self.keys["item"], kind["list"]) for child in node.all(key)]
        if kind in self.records:
            child = node.get(key)
            return self.classes[kind](*(self.read(child, field["key"], field["type"])
                                        for field in self.records[kind]))
        text = node.get(key).value()
        if kind == "text":
            return text
        if kind == "boolean":
            return text in ("true", "True", "1")
        if kind == "guid":
            try:
                return uuid.UUID(text)
            except ValueError:
                raise Malformed(f"{key}: {text!r} is no GUID") from None
        number = read_number(text, *LIMITS[kind if kind in LIMITS else "int32"])
        return self.enumerations[kind](number) if kind in self.enumerations else number


def frame(text):
    """A message: its length, then the document."""
    data = text.encode()
    return struct.pack("<I", len(data)) + data


def length(header, limit):
    """The length that the four bytes of `header` announce."""
    (size,) = struct.unpack("<I", header)
    if size > limit:
        raise TransportError(f"the peer sent something that is no message: {header!r}")
    return size
