# SPDX-License-Identifier: Apache-2.0
"""Reads profile.proto as pprof itself does, without the code that writes it."""

import gzip
from collections import namedtuple

Sample = namedtuple("Sample", "values count bytes stack thread")  # in use are the last two values; the stack innermost first
Location = namedtuple("Location", "mapping address functions")
Mapping = namedtuple("Mapping", "start limit path build_id")


def varint(message, at):
    """The number at `at` and the place behind it."""
    value = shift = 0
    while True:
        value |= (message[at] & 0x7F) << shift
        shift, at = shift + 7, at + 1
        if message[at - 1] < 0x80:
            return value, at


def fields_of(message):
    """The fields of a protocol buffer message as [(number, value)]: numbers, or bytes for what has a length."""
    fields, at = [], 0
    while at < len(message):
        tag, at = varint(message, at)
        value, at = varint(message, at)
        if tag & 7 == 2:
            at += value
            fields.append((tag >> 3, message[at - value:at]))
        else:
            fields.append((tag >> 3, value))
    return fields


def packed(message):
    numbers, at = [], 0
    while at < len(message):
        value, at = varint(message, at)
        numbers.append(value)
    return numbers


class Profile:
    def __init__(self, content):
        self.fields = fields_of(gzip.decompress(content))
        self.strings = [text.decode() for text in self.of(6)]
        text = self.strings
        self.types = [tuple(text[value] for _, value in fields_of(kind)) for kind in self.of(1)]
        self.time = self.of(9)
        self.mappings = []
        for fields in map(dict, map(fields_of, self.of(3))):
            self.mappings.append(Mapping(fields[2], fields[3], text[fields[5]], text[fields.get(6, 0)]))
        functions = {fields[1]: text[fields[2]] for fields in map(dict, map(fields_of, self.of(5)))}
        locations = {}
        for fields in map(fields_of, self.of(4)):
            lines = [functions[dict(fields_of(value))[1]] for key, value in fields if key == 4]
            locations[dict(fields)[1]] = Location(dict(fields)[2], dict(fields)[3], lines)
        self.samples = []
        for fields in map(dict, map(fields_of, self.of(2))):
            values, label = packed(fields[2]), dict(fields_of(fields.get(3, b"")))
            assert not label or text[label[1]] == "thread"
            self.samples.append(Sample(values, *values[-2:], [locations[place] for place in packed(fields.get(1, b""))], label.get(3)))

    def of(self, number):
        return [value for key, value in self.fields if key == number]
