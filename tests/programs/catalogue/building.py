"""Programs that build programs, and keep their sources."""

from inputs import c_source, message, schema, text
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
GRAMMAR = b"""%{
#include <stdio.h>
int yylex(void); void yyerror(const char* text);
%}
%define parse.error verbose
%token NUMBER NAME IF ELSE
%left '+' '-'
%left '*' '/'
%right '^'
%%
program: %empty | program statement ;
statement: expression ';' | NAME '=' expression ';' | IF '(' expression ')' statement | IF '(' expression ')' statement ELSE statement ;
expression: NUMBER | NAME | expression '+' expression | expression '-' expression | expression '*' expression
  | expression '/' expression | expression '^' expression | '(' expression ')' | NAME '(' arguments ')' ;
arguments: %empty | list ; list: expression | list ',' expression ;
%%
"""

PROGRAMS = (
    Program("make", ("make",), files={"Makefile": MAKEFILE}, work="""
make -j 6; touch -d @1 part*; make -n part3 | wc -l; make -j2 missing || echo missing: $?; make -p -n whole | grep -c '^sum'
"""),
    Program("m4", ("m4",), files={"text": lambda: text(50_000)}, alone=("m4",), slice=CHECK, work=r"""
m4 <<'M'
define(`loop', `ifelse(`$1', `$2', `', `$3`'pushdef(`i', `$1')loop(incr($1), $2, `$3')')')dnl
loop(1, 300, `<eval(i + 0)>')
define(`fact', `ifelse($1, 0, 1, `eval($1 * fact(decr($1)))')')fact(12) patsubst(`abcabc', `b\(c\)', `\1') len(include(`text')) format(`%08.3f', 2.5)
translit(`hello', `a-z', `A-Z') regexp(`xyz', `y') substr(`abcdef', 2, 3)
M
"""),
    Program("flex", ("flex", "m4"), files={"lexer.l": LEXER}, work="""
flex -o lexer.c lexer.l; flex -Cf -o full.c lexer.l; flex -v -T lexer.l 2>trace || true; wc -l trace; echo '%%' '[' | flex -t || echo wrong: $?
""", ignore=("trace",)),
    Program("bison", ("bison", "m4"), files={"grammar.y": GRAMMAR}, work="""
bison -v -d -o grammar.c grammar.y; bison --xml=grammar.xml -o other.c grammar.y; bison -Wcounterexamples grammar.y -o third.c; echo '%% a: b' | bison /dev/stdin || echo wrong: $?
""", normalise=((r"ime limit exceeded[^\n]*", ""),)),
    Program("gcc", ("gcc-12", "libc6-dev"), files={"full.c": lambda: c_source(300), "small.c": lambda: c_source(20)}, work="""
gcc-12 -O2 -g -Wall -c -o a.o $SIZE.c; gcc-12 -O0 -S -o - $SIZE.c | md5sum; gcc-12 -o a a.o; ./a; objdump -d a.o | md5sum; readelf -SW a.o | wc -l
strip a; nm -C a.o | tail -n 2; ar rcsD a.a a.o; gcc-12 -flto -O2 -o b $SIZE.c; ./b; echo 'int f( {' | gcc-12 -xc - -c -o /dev/null || echo wrong: $?
"""),
    Program("cc1", ("gcc-12", "libc6-dev"), files={"small.c": lambda: c_source(20)}, alone=("cpp-12",), work="""
printf '#define A(x) #x\\n#if 1 + 1 == 2\\nA(b c)\\n#endif\\n' | cpp-12 -P -
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
            slice=("defaults", "checks"), work="""
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
git checkout -q -b clash HEAD~3; sed -i 's/E$/F/' part.a[e-h]; git commit -q -am clash; git rebase origin/side >/dev/null 2>&1 || git status --short | head -n 4; git rebase --abort || true; git bundle create -q ../b HEAD; git -C ../one bundle verify -q ../b
""", ignore=("one/.git/*", "two/.git/*", "b")),
    Program("hg", ("mercurial",), files={"text": lambda: text(60_000)}, environment={"HGUSER": "worker", "HGRCPATH": ""}, work="""
mkdir one; cd one; hg init; split -l 4 ../text part.; hg add -q part.*; hg commit -q -d '0 0' -m first; for p in part.aa part.ab; do sed -i 's/a/b/' $p; hg commit -q -d '1 0' -m $p; done
hg log --template '{rev} {node|short} {desc}\\n'; cd ..; hg clone -q one two; cd two; hg update -q 0; sed -i 's/e/f/' part.ac; hg commit -q -d '2 0' -m other; hg heads; hg verify -q; hg annotate part.aa | head -n 3
""", ignore=("*/.hg/*",)),
)
