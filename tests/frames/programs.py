# SPDX-License-Identifier: Apache-2.0
"""Unmodified programs of Debian's, each with work that ends by itself; most allocate some hundred times."""

from dataclasses import dataclass, field

TEXT = "".join(f"line {i} foo bar {i * 7} {'x' * (i % 60)}\n" for i in range(400))
JSON = "[" + ",".join(f'{{"k{i}":["{"x" * (i % 50)}",{i},null,true]}}' for i in range(200)) + "]"
LUA = """local t = {} for i = 1, 800 do t[i] = string.format("%d:%s", i, ("x"):rep(i % 40)) end
table.sort(t) print(#table.concat(t, ","), pcall(string.rep)) print(require and 1)"""
PYTHON = "import json, re; print(len(json.dumps([{str(i): i} for i in range(99)])), re.findall('a+', 'baab'))"
SQL = "create table t(a, b); insert into t values (1, 'x'), (2, 'y'); select a, upper(b) from t order by b desc;"
PACKAGES = "".join(f"Package: p{i}\nStatus: install ok installed\nVersion: {i}\nArchitecture: all\n"
                   "Maintainer: m\nDescription: d\n\n" for i in range(60))
GRAMMAR = "%token A B\n%%\ns: A s | B ;\n%%\n"
SCANNER = "%%\n[a-z]+ { return 1; }\n[0-9]+ { return 2; }\n%%\n"


@dataclass(frozen=True)
class Program:
    name: str
    arguments: tuple
    targets: tuple = ("i686", "armhf")
    files: dict = field(default_factory=dict)
    environment: dict = field(default_factory=dict)
    slice: tuple = ()  # targets for which `make check` runs it


PROGRAMS = (
    Program("jq", ("map(to_entries)|length", "a.json"), ("i686",), {"a.json": JSON}, slice=("i686",)),
    Program("gawk", ('{n[$2 $5]++; gsub(/o/, "00")} END {for (k in n) print k, n[k]}', "a.txt"), files={"a.txt": TEXT},
            slice=("i686", "armhf")),
    Program("lua5.4", ("a.lua",), ("i686",), {"a.lua": LUA}),
    Program("sqlite3", (":memory:", SQL)),
    Program("python3.11", ("-S", "-c", PYTHON)),
    Program("xz", ("-9kc", "a.txt"), files={"a.txt": TEXT}),
    Program("bison", ("-o", "a.c", "a.y"), files={"a.y": GRAMMAR}),
    Program("flex", ("-o", "a.c", "a.l"), files={"a.l": SCANNER}),
    Program("m4", ("a.m4",), files={"a.m4": "define(`f', `ifelse($1, 0, , `$1 f(decr($1))')')f(60)\n"}),
    Program("diff", ("-u", "a.txt", "b.txt"), files={"a.txt": TEXT, "b.txt": TEXT.replace("foo", "fee")}),
    Program("dpkg-query", ("--admindir=.", "-W"), files={"status": PACKAGES}),
    Program("cmp", ("a.txt", "a.txt"), files={"a.txt": TEXT}),
    Program("sort", ("-k5", "a.txt"), ("i686",), {"a.txt": TEXT}),
)
