# SPDX-License-Identifier: Apache-2.0
"""Programs that read text and write text."""

from inputs import table, text
from program import Program

CHECK = ("defaults",)
TEXT, TABLE = {"text": lambda: text(300_000)}, {"table": lambda: table(8000)}

PROGRAMS = (
    Program("gawk", ("gawk",), files={**TEXT, **TABLE}, alone=("gawk",), emulated=True, work=r"""
gawk '{ for (i = 1; i <= NF; i++) n[$i]++ } END { k = asorti(n, a); for (i = 1; i <= k; i++) print n[a[i]], a[i] }' text
gawk -F, -v OFS=';' '{ s[$2][$3] += $4; $4 = sprintf("%.1f", $4) } 1
  END { for (a in s) for (b in s[a]) t += s[a][b]; printf "%.2f\n", t; print gensub(/(a)(b)/, "\\2\\1", "g", "cabab") }' table >out
[ -n "$TREE" ] || gawk 'BEGIN { while (("sort -r table" | getline line) > 0) n++; print n, length(line) }'
gawk 'BEGIN { printf "%s\n", strftime("%F", 86400, 1) }'
"""),
    Program("mawk", ("mawk",), files=TEXT, alone=("mawk",), emulated=True, work=r"""
mawk '{ gsub(/[aeiou]+/, "<&>"); n += split($0, parts, / /) } NR % 50 == 0 { print substr($0, 1, 90), parts[3] } END { print n }' text
"""),
    Program("grep", ("grep",), files=TEXT, alone=("grep",), emulated=True, work=r"""
grep -c . text
grep -on 'q[a-z]*z\b' text | head -n 50
grep -E '(ab|cd){1,2}.*\b([a-z])\2\b' text >out || echo "none: $?"
grep -P '(?<=x)y\w+' -o text | sort | uniq -c | head -n 20
grep -Fxvf text text || echo "none: $?"
grep 'a\(' text 2>&1 || echo "wrong: $?"
"""),
    Program("sed", ("sed",), files=TEXT, alone=("sed",), emulated=True, work=r"""
sed -n '2~7{s/\([a-z]*\) \([a-z]*\)/\2 \1/g;p}' text | head -n 40
sed -E 'y/abc/xyz/;s/[[:alpha:]]{9,}/(\U&\E)/2;/^z/!{N;s/\n/|/}' text >out
sed -i.old -e '1!G;h;$!d' text
sed 's/a\(/b/' text || echo "wrong: $?"
"""),
    Program("diffutils", ("diffutils", "patch"), files=TEXT, alone=("diff", "cmp", "patch"), emulated=True, work=r"""
sed '3~11d;s/ee/i/;5~40a an added line' text >other
diff -u --label a --label b text other >changes && exit 1
cmp text other || echo differs: $?
sed '1~13s/^/mine /' text >mine
diff3 -m mine text other >merged || echo conflicts: $?
patch -o patched text <changes
cmp patched other
"""),
    Program("sort", ("coreutils",), files=TABLE, alone=("sort", "join", "cut", "uniq", "paste", "fold", "tac", "split", "comm", "nl", "sha256sum", "b2sum", "od", "factor", "seq"),
            slice=CHECK, emulated=True, work=r"""
sort -t, -k2,2 -k4nr,4 --parallel=4 -S 40k table >sorted
sort -R --random-source=table table | sort -c || echo unsorted: $?
join -t, -1 2 -2 2 sorted sorted | wc
cut -d, -f2,3 table | tr , '\n' | sort | uniq -c
paste table sorted | fold -w 40 | tac | split -l 3000 - part.
comm -12 part.aa part.ab | nl | tail -n 3
sha256sum part.* | b2sum; od -c table | head -n 3; factor 600851475143 18446744073709551615; seq -s+ 1 0.25 30
"""),
    Program("bc", ("bc", "dc"), alone=("bc", "dc"), slice=CHECK, emulated=True, work=r"""
printf '%s\n' 'scale=300; 4*a(1)' 'define f(n) {' ' if (n < 2) return (1)' ' return (n*f(n-1)) }' 'f(400); sqrt(2); ibase=16; FF^40' | bc -l
echo '[d1-d1<F*]sF 200lFxp 99k2vp 16o1000p 2 100^3 7|p [x]x z' | dc
"""),
    Program("file", ("file",), files=TEXT, alone=("file",), emulated=True, environment={"MAGIC": ""}, work=r"""
for name in $(command -v file) text /etc/hosts $TREE/usr/share/misc/magic.mgc $TREE/lib; do file -b -m $TREE/usr/lib/file/magic.mgc $name; done
"""),
    Program("vim", ("vim-tiny",), files=TEXT, alone=("vim.tiny",), environment={"TERM": "dumb"}, work=r"""
vim.tiny -u NONE -N -i NONE -n -es -c '%s/\(\w\+\) \(\w\+\)/\2 \1/g' -c 'g/xyz/m0' -c '1,200!sort -r' -c 'wq! out' text
"""),
    Program("ed", ("ed",), files=TEXT, alone=("ed",), emulated=True, work=r"""
printf '%s\n' 'g/ab/s//<>/g' '1,20m$' '1,100j' 'u' '/zz/p' 'w out' 'q' | ed -s text
"""),
)
