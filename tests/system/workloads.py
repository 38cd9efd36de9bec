"""What the real programs are given to do. Every input is made from fixed seeds: two runs must not differ.

From the command line: workloads.py N prints an SQL script of N statements.
"""

import random
import re
import sys
from dataclasses import dataclass, field
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "scripts"))
sys.dont_write_bytecode = True

import sysroot

PYTHON_TESTS = ("list", "dict", "collections", "csv", "array", "thread", "configparser")
PYTHON_TESTS_LONG = ("ordered_dict", "deque", "re")  # besides, where nothing is emulated
PYTHON_TESTS_SMALL = ("bisect", "thread")


@dataclass
class Workload:
    program: str
    arguments: list = field(default_factory=list)
    stdin: bytes = b""
    files: dict = field(default_factory=dict)  # name -> content, put into the working directory
    environment: dict = field(default_factory=dict)


def sqlite_script(statements, seed=7):
    """An SQL script of about so many statements: tables, indexes, transactions, joins, text, triggers, queries."""
    pick = random.Random(seed)
    words = [f"{a}{b}" for a in ("red", "oak", "sea", "fir", "sun") for b in ("wood", "stone", "gate", "field", "bird")]
    lines = [
        "PRAGMA journal_mode=wal;",
        "CREATE TABLE part(id INTEGER PRIMARY KEY, name TEXT, weight REAL, note TEXT);",
        "CREATE TABLE stock(part INTEGER REFERENCES part, place TEXT, amount INTEGER);",
        "CREATE TABLE moved(part INTEGER, amount INTEGER);",
        "CREATE INDEX stock_part ON stock(part);",
        "CREATE TRIGGER log_move AFTER UPDATE OF amount ON stock BEGIN "
        "INSERT INTO moved VALUES(new.part, new.amount - old.amount); END;",
    ]
    in_transaction = False
    for i in range(1, statements - len(lines) - 8):
        kind = pick.randrange(10)
        if kind < 4:
            note = " ".join(pick.choices(words, k=pick.randrange(1, 120)))
            lines.append(f"INSERT INTO part VALUES({i}, '{pick.choice(words)}', {pick.random():.6f}, '{note}');")
        elif kind < 7:
            lines.append(f"INSERT INTO stock VALUES({pick.randrange(1, i + 1)}, '{pick.choice(words)}', {i % 97});")
        elif kind < 8:
            lines.append(f"UPDATE stock SET amount = amount + {i % 5} WHERE part = {pick.randrange(1, i + 1)};")
        elif kind < 9:
            lines.append(f"SELECT name, upper(note), length(note) FROM part WHERE id = {pick.randrange(1, i + 1)};")
        else:
            lines.append(f"DELETE FROM part WHERE id = {pick.randrange(1, i + 1)};")
        if i % 50 == 0:
            lines += ["COMMIT;"] * in_transaction + ["BEGIN;"]
            in_transaction = True
    lines += ["COMMIT;"] * in_transaction + [
        "SELECT place, count(*), sum(amount) FROM stock GROUP BY place ORDER BY place;",
        "SELECT p.name, sum(s.amount), group_concat(s.place, '/') FROM part p JOIN stock s ON s.part = p.id "
        "GROUP BY p.id ORDER BY 2 DESC, p.id LIMIT 50;",
        "SELECT count(*), sum(amount) FROM moved;",
        "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000) SELECT sum(i), hex(avg(i)) FROM n;",
        "SELECT json_group_array(json_object('n', name, 'w', round(weight, 3))) FROM (SELECT * FROM part LIMIT 200);",
        "VACUUM;",
        "PRAGMA integrity_check;",
    ]
    return "\n".join(lines).encode() + b"\n"


def text(size, seed=11):
    """Bytes that compress, but not to nothing."""
    pick = random.Random(seed)
    words = [bytes(pick.choices(b"abcdefghijklmnopqrstuvwxyz", k=pick.randrange(2, 12))) for _ in range(4000)]
    out = bytearray()
    while len(out) < size:
        out += b" ".join(pick.choices(words, k=200)) + b"\n"
    return bytes(out[:size])


def schema(messages, seed=13):
    """A protocol description with so many messages that refer to each other."""
    pick = random.Random(seed)
    kinds = ("int32", "string", "double", "bytes", "bool", "sint64")
    lines = ['syntax = "proto3";', "package parts;"]
    for i in range(messages):
        lines.append(f"message Part{i} {{")
        lines += [f"  {pick.choice(kinds)} field_{k} = {k};" for k in range(1, pick.randrange(3, 25))]
        if i:
            lines += [f"  repeated Part{pick.randrange(i)} other = 40;", f"  map<string, Part{i - 1}> by_name = 41;"]
        lines.append("}")
    return "\n".join(lines).encode() + b"\n"


def message():
    """A protocol message: a hundred numbered fields of text."""
    return b"".join(b"\x0a" + bytes([len(word)]) + word for word in text(2000).split()[:100])


def workloads(target, small):
    """The four programs with their input; `small` is for settings that cost a walk over the heap per call."""
    tests = PYTHON_TESTS_SMALL if small else PYTHON_TESTS + (PYTHON_TESTS_LONG if target == "i686" else ())
    python = ["-m", "unittest", "-b", *(f"test.test_{name}" for name in tests)]
    settings = {"PYTHONHOME": str(sysroot.sysroot(target) / "usr"), "PYTHONDONTWRITEBYTECODE": "1"}
    if not small:
        settings["PYTHONMALLOC"] = "malloc"  # every object a block of its own
    return [
        Workload("sqlite3", ["-batch", "work.db"], sqlite_script(300 if small else 10000)),
        Workload("python3.11", python, environment=settings),
        Workload("xz", ["-T4", "-3", "--block-size=131072", "-c", "text"],
                 files={"text": text(400_000 if small else 6_000_000)}),
        Workload("protoc", ["--decode_raw"], message()) if small else
        Workload("protoc", ["--cpp_out=.", "--python_out=.", "parts.proto"], files={"parts.proto": schema(150)}),
    ]


def comparable(output):
    """The text without what differs from run to run: the time that Python's tests took."""
    return re.sub(rb"in \d+\.\d+s", b"in T", output)


if __name__ == "__main__":
    sys.stdout.buffer.write(sqlite_script(int(sys.argv[1])))
