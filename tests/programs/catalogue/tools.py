# SPDX-License-Identifier: Apache-2.0
"""Shells and the tools around them."""

from inputs import document, markup, text
from program import Program

CHECK = ("defaults",)

PROGRAMS = (
    Program("busybox", ("busybox",), files={"text": lambda: text(200_000)}, slice=(*CHECK, "ends"), alone=("busybox",), emulated=True, work=r"""
busybox awk '{ n += NF } END { print n }' text
busybox sort text | busybox md5sum
busybox tar -cf - text | busybox gzip | busybox gunzip | busybox tar -xOf - | busybox cmp - text
busybox vi --help 2>&1 | busybox head -n 1
busybox sh -c 'f() { local n=$1; [ $n -lt 2 ] && echo 1 && return; echo $((n * $(f $((n - 1))))); }; f 7'
mkdir -p a/b/c; echo a >a/b/wanted; busybox find a -name 'w*'; busybox find a -type d
busybox bc -l -e '4*a(1)' 2>/dev/null || busybox dc -e '3 5 * p'
"""),
    Program("bash", ("bash",), work=r"""
bash -c 'declare -A n; for ((i = 0; i < 3000; i++)); do k=$((i * 7919 % 101)); n[$k]+=x; done; echo ${#n[@]} ${n[5]}
  f() { (($1 < 2)) && echo 1 || echo $(($1 * $(f $(($1 - 1))))); }; f 6
  mapfile -t lines < <(seq 500); printf "%s\n" "${lines[@]/%5/five}" | sort | tail -n 3
  trap "echo trapped" USR1; kill -USR1 $BASHPID; (exit 3); echo $?; [[ abc =~ (b)(c) ]] && echo ${BASH_REMATCH[@]}
  for i in 1 2 3 4; do (echo $i; exit $i) & done | sort; wait; exit 7' || echo $?
"""),
    Program("zsh", ("zsh",), work=r"""
zsh -f -c 'typeset -A n; for i in {1..2000}; do n[$((i % 97))]+=$i; done; print ${#n} ${(o)${(k)n}[1,5]}
  print -l ${(s:,:)$(seq -s, 50)} | sort -rn | head -3; setopt extendedglob; print /(#i)W*(/N); x=(a b c); print ${(U)x[2,-1]}'
"""),
    Program("findutils", ("findutils",), work=r"""
mkdir -p a/b/c d/e; seq 200 | xargs -n 20 -P 2 sh -c 'for i; do echo $i >a/b/c/$i; done' x
find a d -name '*7' -printf '%p %s\n' | sort | head -n 30
find a -type f -print0 | xargs -0 grep -l 99 | sort; find a -name '1*' -exec rm '{}' + ; find a -regex '.*/2.?' -delete; find a | wc -l
"""),
    Program("jq", ("jq",), files={"document": lambda: document(2500)}, alone=("jq",), slice=CHECK, emulated=True, work=r"""
jq -c 'group_by(.name)[] | {name: .[0].name, n: length, tags: (map(.tags | add // 0) | add), w: (map(.inner.weight) | add * 1000 | floor)}' document
jq -r 'map(select(.inner.note | test("7$"))) | .[] | [.id, .name, .inner.note] | @csv' document >out
jq --stream -c 'select(length == 2 and .[0][1] == "id" and .[1] % 500 == 0)' document; jq '.[' document || echo wrong: $?
"""),
    Program("xmllint", ("libxml2-utils", "xsltproc"), files={"markup": lambda: markup(4000), "sheet": (
        b"<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'><xsl:key name='k' match='part' use='@kind'/>"
        b"<xsl:template match='/'><all><xsl:for-each select='//part'><xsl:sort select='w' data-type='number'/><p n='{name}' "
        b"c='{count(key(\"k\",@kind))}'><xsl:value-of select='w'/></p></xsl:for-each></all></xsl:template></xsl:stylesheet>")},
        alone=("xmllint", "xsltproc"), emulated=True, work=r"""
xmllint --format markup | md5sum
xmllint --xpath 'sum(//part[@kind="b"]/w)' markup; xmllint --c14n markup >canonical
xsltproc sheet markup >out; head -c 1000 markup >torn; xmllint --recover torn || echo torn: $?
"""),
    Program("graphviz", ("graphviz", "file"), work=r"""
{ echo 'digraph g {'; for i in $(seq 90); do echo "n$i -> n$((i * 7 % 91)) [label=\"e$i\"]; n$i -> n$((i / 2));"; done; echo '}'; } >in.dot
export GVBINDIR=/tmp/plugins; mkdir $GVBINDIR; ln -s /usr/lib/i386-linux-gnu/graphviz/* $GVBINDIR; dot -c
dot -Tdot in.dot >out.dot; neato -Tsvg in.dot | md5sum; dot -Tpng in.dot | file -; tred in.dot | sort >reduced; gvpr 'N { print($.name, " ", $.degree) }' in.dot
""", normalise=((r"Warning: [^\n]*", "a warning"),)),
    Program("imagemagick", ("imagemagick",), work=r"""
convert-im6.q16 -size 240x180 gradient:red-blue -swirl 90 -blur 0x2 -resize 75% -depth 8 out.ppm
convert-im6.q16 out.ppm -colorspace Gray -edge 1 -negate -depth 8 edges.pgm; compare-im6.q16 -metric MAE out.ppm out.ppm null: 2>&1; echo
identify-im6.q16 -format '%m %w %h %k\n' out.ppm edges.pgm
"""),
    Program("jpeg-xl", ("libjxl-tools",), alone=("cjxl", "djxl"), slice=("defaults",), emulated=True, work=r"""
{ printf 'P6 120 90 255\n'; seq 100000 | head -c 32400; } >in.ppm; cjxl in.ppm out.jxl -d 1 -e 4 --num_threads=2 >o 2>&1; djxl out.jxl back.ppm >o 2>&1; wc -c <back.ppm; cjxl none x.jxl >o 2>&1 || echo $?
""", ignore=("o",)),
    Program("qemu-img", ("qemu-utils",), work=r"""
seq 400000 >raw; qemu-img convert -f raw -O qcow2 -c raw a.qcow2; qemu-img create -q -f qcow2 -b a.qcow2 -F qcow2 b.qcow2; qemu-io -c 'write -P 7 64k 256k' -c 'read -v 63k 2k' b.qcow2 | grep -v 'ops;'; qemu-img snapshot -c one b.qcow2; qemu-img check b.qcow2; qemu-img commit -q b.qcow2; qemu-img compare -f qcow2 -F raw a.qcow2 raw || echo differs: $?; qemu-img convert -O vmdk a.qcow2 c.vmdk; qemu-img convert -m 4 -W -O raw c.vmdk back; qemu-img compare -F raw a.qcow2 back; rm *.vmdk
""", ignore=("*.qcow2",)),
    Program("squashfs", ("squashfs-tools",), files={"text": lambda: text(600_000)}, work=r"""
mkdir a; split -b 20000 text a/part.; mksquashfs a a.sq -quiet -no-progress -processors 3 -mkfs-time 0 -all-time 0 -all-root; unsquashfs -q -n -p 3 -d out a.sq; diff -r a out; unsquashfs -lls a.sq | wc -l; head -c 9000 a.sq >torn; unsquashfs -q -n -d torn.out torn >o 2>&1 || echo torn: $?
"""),
    Program("e2fsprogs", ("e2fsprogs",), files={"text": lambda: text(600_000)}, work=r"""
mkdir a; split -b 20000 text a/part.; truncate -s 8M image; mke2fs -q -t ext4 -U 11111111-2222-3333-4444-555555555555 -E hash_seed=11111111-2222-3333-4444-555555555555 -d a image; e2fsck -fn image | tail -n 1; printf 'ls -l /
cat part.aa
rm part.ab
' | debugfs -w image 2>/dev/null | md5sum; e2fsck -fy image >o 2>&1 || echo mended: $?; dumpe2fs image 2>/dev/null | grep -c Group; resize2fs image 12M >o 2>&1; e2fsck -fn image >o 2>&1
""", ignore=("image", "o")),
    Program("ghostscript", ("ghostscript",), work=r"""
cat >in.ps <<'PS'
%!PS
/Courier findfont 12 scalefont setfont 1 1 40 { /i exch def 20 i 18 mul moveto i 20 string cvs show i 5 mul 300 i 2 mul 0 360 arc stroke } for
0 1 3000 { dup dup mul 7 mod pop } for showpage
PS
gs -q -dBATCH -dNOPAUSE -dSAFER -sDEVICE=pgmraw -r72 -sOutputFile=out.pgm in.ps; md5sum out.pgm
echo '/f { dup 2 lt { pop 1 } { dup 1 sub f mul } ifelse } def 20 f == [3 1 2] { 2 mul == } forall' | gs -q -dNODISPLAY -dBATCH - </dev/stdin
"""),
    Program("gdb", ("gdb", "gcc-12", "libc6-dev"), work=r"""
printf 'int f(int n) { return n < 2 ? 1 : n * f(n - 1); }\nint main(void) { return f(5) - 120; }\n' >a.c
gcc-12 -g -o a a.c
gdb -q -nx -batch -ex 'info line f' -ex 'ptype main' -ex 'disassemble /r f' -ex 'python print(sum(range(100)))' ./a
""", ignore=("a",)),
)
