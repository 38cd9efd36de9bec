# SPDX-License-Identifier: Apache-2.0
"""What programs are given to work on. Every input is made from fixed seeds: two runs must not differ.

From the command line: inputs.py N prints an SQL script of N statements.
"""

import random
import sys


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


def c_source(functions, seed=17):
    """A C program of so many functions that call each other; it prints one number."""
    pick = random.Random(seed)
    lines = ["#include <stdio.h>", "#include <stdlib.h>", "#include <string.h>"]
    for i in range(functions):
        lines += [f"struct part{i} {{ int a, b; char name[{pick.randrange(4, 40)}]; double weight; struct part{i}* next; }};",
                  f"static unsigned step{i}(unsigned n) {{", f"  struct part{i} one = {{{i}, {pick.randrange(99)}, \"x\", 1.5, 0}};",
                  f"  for (unsigned k = 0; k < n % {pick.randrange(2, 30)}; ++k) {{",
                  f"    switch ((one.a + k) % 4) {{ case 0: one.b ^= k * {pick.randrange(1, 999)}u; break;",
                  "      case 1: one.weight += one.b; break; case 2: one.a += 3; break;",
                  f"      default: one.b += (int)strlen(one.name) << {pick.randrange(8)}; }}", "  }",
                  f"  return {f'step{pick.randrange(i)}(n + one.b)' if i else 'n'} + (unsigned)one.a + (unsigned)one.weight;", "}"]
    lines.append(f"int main(void) {{ printf(\"%u\\n\", step{functions - 1}(7)); return 0; }}")
    return "\n".join(lines).encode() + b"\n"


def table(rows, seed=19):
    """Comma separated lines: number, two words, an amount."""
    pick = random.Random(seed)
    words = [f"{a}{b}" for a in ("red", "oak", "sea", "fir", "sun") for b in ("wood", "stone", "gate", "field", "bird")]
    return "".join(f"{i},{pick.choice(words)},{pick.choice(words)},{pick.randrange(100000) / 100:.2f}\n"
                   for i in range(rows)).encode()


def document(items, seed=23):
    """A JSON document: a list of so many objects with lists of numbers."""
    pick = random.Random(seed)
    rows = [f'{{"id": {i}, "name": "part{pick.randrange(500)}", "tags": {[pick.randrange(99) for _ in range(pick.randrange(9))]}, '
            f'"inner": {{"weight": {pick.random():.6f}, "note": "\\u00e4{i}"}}}}' for i in range(items)]
    return ("[" + ",\n".join(rows) + "]\n").encode()


def markup(items, seed=29):
    """An XML document of so many elements."""
    pick = random.Random(seed)
    rows = "".join(f'<part id="p{i}" kind="{pick.choice("abcd")}"><name>n{pick.randrange(500)}</name><w>{pick.randrange(999)}</w></part>\n'
                   for i in range(items))
    return f"<?xml version='1.0'?>\n<parts>\n{rows}</parts>\n".encode()


if __name__ == "__main__":
    sys.stdout.buffer.write(sqlite_script(int(sys.argv[1])))
