# SPDX-License-Identifier: Apache-2.0
"""Programs that build programs, and keep their sources."""

import random

from inputs import c_source, message, schema, table, text
from program import Program

CHECK = ("defaults",)
DATES = {f"GIT_{who}_{what}": value for who in ("AUTHOR", "COMMITTER")
         for what, value in (("NAME", "Worker"), ("EMAIL", "worker@room"), ("DATE", "1600000000 +0000"))}
MAKEFILE = b"""SHELL = /bin/sh
parts := $(foreach i,$(shell seq 60),part$(i))
all: whole
part%: ; @echo $* >$@
define rule =
sum$(1): part$(1) ; @cat $$< >$$@; echo $(1) >>$$@
endef
$(foreach i,$(shell seq 60),$(eval $(call rule,$(i))))
whole: $(parts:part%=sum%) ; @cat $(sort $^) >$@; echo $(words $^) $(patsubst sum%,%,$(lastword $^))
"""
COMPILING = b"""CC = gcc-12
objects := $(patsubst %.c,%.o,$(sort $(wildcard unit*.c)))
program: $(objects) ; $(CC) -o $@ $^
clean: ; rm $(objects)
"""
LEXER = b"""%{
#include <stdio.h>
%}
%option noyywrap
%%
[0-9]+(\\.[0-9]+)? { printf("number "); }
[a-z_][a-z0-9_]* { printf("name "); }
"\\""([^"\\\\]|\\\\.)*"\\"" { printf("text "); }
[ \\t\\n]+ { }
. { printf("%c ", *yytext); }
%%
int main(void) { return yylex(); }
"""
GRAMMAR = b"""%code top {
#include <ctype.h>
#include <stdio.h>
#include <string.h>
}
%code {
static unsigned names[26];
int yylex(void); void yyerror(const char* text);
}
%define parse.error verbose
%define api.value.type {unsigned}
%token NUMBER NAME IF ELSE
%left '+' '-'
%left '*' '/'
%right '^'
%%
program: %empty | program statement ;
statement: expression ';' { printf("%u\\n", $1); } | NAME '=' expression ';' { names[$1] = $3; }
  | IF '(' expression ')' statement | IF '(' expression ')' statement ELSE statement ;
expression: NUMBER | NAME { $$ = names[$1]; } | expression '+' expression { $$ = $1 + $3; }
  | expression '-' expression { $$ = $1 - $3; } | expression '*' expression { $$ = $1 * $3; }
  | expression '/' expression { $$ = $1 / ($3 | 1); } | expression '^' expression { $$ = $1 ^ $3; }
  | '(' expression ')' { $$ = $2; } | NAME '(' arguments ')' { $$ = $3; } ;
arguments: %empty { $$ = 0; } | list ; list: expression | list ',' expression { $$ = $1 * 3 + $3; } ;
%%
int yylex(void) {
  int c;
  while (isspace(c = getchar())) { }
  if (isdigit(c)) { ungetc(c, stdin); return scanf("%u", &yylval) == 1 ? NUMBER : YYerror; }
  if (islower(c)) { yylval = c - 'a'; return NAME; }
  return c == EOF ? 0 : c == '?' ? IF : c == ':' ? ELSE : c;
}
void yyerror(const char* text) { puts(text); }
int main(void) { return yyparse(); }
"""


def sums(seed=37):
    """What the grammar's program calculates."""
    pick = random.Random(seed)

    def nested(depth):
        if depth == 0:
            return pick.choice((str(pick.randrange(1000)), pick.choice("abcxyz")))
        inner = nested(depth - 1), nested(depth - pick.randrange(1, depth + 1))
        return pick.choice(("({} + {})", "{} * {}", "{} - {}", "{} / {}", "f({}, {})", "{} ^ ({})")).format(*inner)

    lines = [f"{pick.choice('abcxyz')} = {nested(4)}; {nested(7)}; ?({nested(2)}) {nested(1)}; : {nested(2)};" for _ in range(150)]
    return "\n".join(lines).encode() + b"\n"


PROGRAMS = (
    Program("make", ("make", "gcc-12", "libc6-dev"), files={"Makefile": MAKEFILE, "compile.mk": COMPILING}, work="""
make -j 6; touch -d @1 part*; make -n part3 | wc -l; make -j2 missing || echo missing: $?; make -p -n whole | grep -c '^sum'
for i in $(seq 12); do echo "int step$i(int n) { return n * $i + 1; }" >unit$i.c; done; { seq 12 | sed 's/.*/int step&(int n);/'; echo '#include <stdio.h>'; echo 'int main(void) { int n = 1;'; seq 12 | sed 's/.*/n ^= step&(n);/'; printf '%s\\n' 'printf("%d\\n", n); }'; } >unit13.c
make -s -f compile.mk -j; ./program; touch unit7.c; make -f compile.mk -j 3; make -f compile.mk clean
"""),
    Program("m4", ("m4",), files={"text": lambda: text(50_000)}, alone=("m4",), slice=CHECK, emulated=True, work=r"""
m4 <<'M'
define(`loop', `ifelse(`$1', `$2', `', `pushdef(`i', `$1')$3`'popdef(`i')loop(incr($1), $2, `$3')')')dnl
loop(1, 300, `<eval(i * i)>')
define(`fact', `ifelse($1, 0, 1, `eval($1 * fact(decr($1)))')')fact(12) patsubst(`abcabc', `b\(c\)', `\1') len(include(`text')) format(`%08.3f', 2.5)
translit(`hello', `a-z', `A-Z') regexp(`xyz', `y') substr(`abcdef', 2, 3)
M
"""),
    Program("flex", ("flex", "m4", "gcc-12", "libc6-dev"), files={"lexer.l": LEXER, "table": lambda: table(3000)}, work="""
flex -o lexer.c lexer.l; flex -Cf -o full.c lexer.l; flex -v -T lexer.l 2>trace || true; wc -l trace; echo '%%' '[' | flex -t || echo wrong: $?
for made in lexer full; do gcc-12 -O1 -o $made $made.c; ./$made <table >$made.out; ./$made <lexer.l; done; cmp lexer.out full.out
""", ignore=("trace",)),
    Program("bison", ("bison", "m4", "gcc-12", "libc6-dev"), files={"grammar.y": GRAMMAR, "sums": sums}, work="""
bison -v -d -o grammar.c grammar.y; bison --xml=grammar.xml -o other.c grammar.y; bison -Wcounterexamples grammar.y -o third.c; echo '%% a: b' | bison /dev/stdin || echo wrong: $?
bison -t -o sum.c grammar.y -Wno-conflicts-sr; gcc-12 -o sum sum.c; ./sum <sums; echo '1 + ;' | ./sum || echo wrong: $?; bison -S glr.c -o glr.c grammar.y -Wno-conflicts-sr; gcc-12 -o glr glr.c; ./glr <sums | tail -n 1
""", normalise=((r"ime limit exceeded[^\n]*", ""),)),
    Program("gcc", ("gcc-12", "libc6-dev"), files={"full.c": lambda: c_source(300), "small.c": lambda: c_source(20)}, work="""
gcc-12 -O2 -g -Wall -c -o a.o $SIZE.c; gcc-12 -O0 -S -o - $SIZE.c | md5sum; gcc-12 -o a a.o; ./a; objdump -d a.o | md5sum; readelf -SW a.o | wc -l
strip a; nm -C a.o | tail -n 2; ar rcsD a.a a.o; gcc-12 -flto -O2 -o b $SIZE.c; ./b; echo 'int f( {' | gcc-12 -xc - -c -o /dev/null || echo wrong: $?
"""),
    Program("cc1", ("gcc-12", "libc6-dev"), files={"full.c": lambda: c_source(120), "small.c": lambda: c_source(20)}, alone=("cc1",),
            emulated=True, work="""
PATH=$PATH:$(echo /usr/lib/gcc/*/12); set -- -quiet -nostdinc; case $TREE in *armhf) set -- "$@" -mfloat-abi=hard -mfpu=vfpv3-d16 ;; esac; for i in $TREE/usr/lib/gcc/*/12/include $TREE/usr/include/*-linux-gnu* $TREE/usr/include; do set -- "$@" -isystem $i; done
printf '#define A(x) #x\\n#if 1 + 1 == 2\\nA(b c)\\n#endif\\n' | cc1 -E -P -quiet -; cc1 "$@" -O2 -Wall -o fast.s $SIZE.c; cc1 "$@" -O0 -o plain.s $SIZE.c; echo 'int f( {' | cc1 "$@" -o wrong.s - || echo wrong: $?
"""),
    Program("g++", ("g++-12", "libc6-dev"), work=r"""
cat >a.cpp <<'C'
#include <algorithm>
#include <iostream>
#include <map>
#include <regex>
#include <thread>
#include <vector>
int main() {
  std::map<std::string, std::vector<int>> m;
  std::vector<std::thread> all;
  for (int i = 0; i < 4; ++i) all.emplace_back([] { std::vector<std::string> v; for (int k = 0; k < 9000; ++k) v.push_back(std::to_string(k)); });
  for (auto& one : all) one.join();
  for (int i = 0; i < 5000; ++i) m[std::to_string(i % 97)].push_back(i);
  try { m.at("none"); } catch (const std::exception& e) { std::cout << e.what() << '\n'; }
  std::cout << m.size() << std::regex_replace("abcab", std::regex("b(.)?"), "<$1>") << '\n';
}
C
g++-12 -O1 -o a a.cpp; ./a
"""),
    Program("protoc", ("protobuf-compiler",), files={"parts.proto": lambda: schema(150), "message": message}, alone=("protoc",),
            slice=("defaults", "checks"), emulated=True, work="""
if [ $SIZE = full ]; then protoc --cpp_out=. --python_out=. parts.proto; else protoc --decode_raw <message; fi
"""),
    Program("ninja", ("ninja-build",), work="""
{ echo 'rule copy'; echo ' command = cp $in $out'; for i in $(seq 40); do echo "build o$i: copy i$i"; done; } >build.ninja
for i in $(seq 40); do echo $i >i$i; done; ninja -j 3 >log; ninja; touch -d @2000000000 i7; ninja -n; ninja -t targets all | sort | head -n 3
""", ignore=("log", ".ninja_log", ".ninja_deps")),
    Program("git", ("git",), files={"text": lambda: text(60_000)}, environment=DATES, work=r"""
git config --global init.defaultBranch main; git config --global gc.auto 0; printf '*.log\n.gitconfig\n' >/tmp/ignored; git config --global core.excludesFile /tmp/ignored
git init -q one; cd one; split -l 4 ../text part.; git add part.*; git commit -q -m first
git switch -q -c side; for p in part.a[a-d]; do sed -i '2s/^/side /' $p; git commit -q -am "side $p"; done
git switch -q main; for p in part.a[e-h]; do sed -i '3s/$/E/' $p; git commit -q -am "main $p"; done
git rebase -q main side; git log --format='%h %s' | head -n 12; git merge -q --no-ff -m merged main || true; git diff --stat main~2 side
git tag -a -m tagged v1; git repack -adq; git fsck --strict; cd ..
git clone -q --no-local one two; git -C two log --oneline | wc -l; cd two; git blame -s part.aa | head -n 5; sed -i '1s/^/clash /' part.ae; git stash -q; git stash pop -q; git diff --word-diff part.ae | head -n 9
git checkout -q -b clash HEAD~4; sed -i '2s/^/other /' part.a[a-d]; git commit -q -am clash; git rebase origin/side >/dev/null 2>&1 || git status --short | head -n 4; git rebase --abort || true; git bundle create -q ../b HEAD; git -C ../one bundle verify -q ../b
""", ignore=("one/.git/*", "two/.git/*", "b")),
    Program("hg", ("mercurial",), files={"text": lambda: text(60_000)}, environment={"HGUSER": "worker", "HGRCPATH": ""}, work="""
mkdir one; cd one; hg init; split -l 4 ../text part.; hg add -q part.*; hg commit -q -d '0 0' -m first; for p in part.aa part.ab; do sed -i 's/a/b/' $p; hg commit -q -d '1 0' -m $p; done
hg log --template '{rev} {node|short} {desc}\\n'; cd ..; hg clone -q one two; cd two; hg update -q 0; sed -i 's/e/f/' part.ac; hg commit -q -d '2 0' -m other; hg heads; hg verify -q; hg annotate part.aa | head -n 3
""", ignore=("*/.hg/*",)),
)
