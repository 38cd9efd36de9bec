# SPDX-License-Identifier: Apache-2.0
"""Programs that pack and unpack."""

from inputs import text
from program import Program

CHECK = ("defaults",)
THOROUGH = ("defaults", "checks", "record", "snapshots", "events")
TEXT = {"text": lambda: text(2_000_000)}

PROGRAMS = (
    Program("xz", ("xz-utils",), files={"full": lambda: text(6_000_000), "small": lambda: text(400_000)}, alone=("xz",),
            slice=THOROUGH, armhf=THOROUGH, emulated=True, work="""
xz -T4 -3 --block-size=131072 -c $SIZE
"""),
    Program("tar", ("tar",), files=TEXT, alone=("tar",), slice=CHECK, emulated=True, work="""
mkdir -p a/b; split -b 100000 text a/b/part.; ln -s b a/link; cp text a/text; chmod 640 a/text
tar --sort=name --mtime=@0 -cf a.tar a; tar -tvf a.tar; tar --delete -f a.tar a/b/part.ac
mkdir out; tar -C out -xf a.tar; rm -r a; tar -df a.tar -C out && echo same; tar -cf - out | tar -tf - | sort | tail -n 2
tar -xf text || echo wrong: $?
"""),
    Program("cpio", ("cpio",), files=TEXT, alone=("cpio",), slice=CHECK, emulated=True, work="""
split -b 90000 text part.; touch -d @1 part.*; ls part.* | cpio -o --reproducible -H newc >a.cpio; cpio -itF a.cpio; mkdir out; cd out; cpio -idF ../a.cpio
"""),
    Program("gzip", ("gzip", "bzip2"), files=TEXT, alone=("gzip", "bzip2"), slice=CHECK, emulated=True, work="""
gzip -n9k text; gzip -t text.gz; gzip -dc text.gz | cmp - text; head -c 5000 text.gz >torn.gz; gzip -dc torn.gz | wc -c; gzip -t torn.gz || echo torn: $?
bzip2 -k text; bzip2 -tv text.bz2; bzip2 -dc text.bz2 | cmp - text; head -c 900 text.bz2 >torn.bz2; bzip2 -d torn.bz2 || echo torn: $?
"""),
    Program("zstd", ("zstd",), files=TEXT, alone=("zstd",), slice=CHECK, emulated=True, work="""
zstd -q -T2 -9 -k text; zstd -q -19 --long -c text | zstd -dc | cmp - text; split -b 2000 text s.; zstd -q --train s.* -o words --maxdict=4096
zstd -q -D words s.aa -o s.zst; zstd -q -D words -d s.zst -o s.back; cmp s.aa s.back; zstd -q -b1e2i0 text | wc -l; zstd -dc s.aa || echo wrong: $?
"""),
    Program("pigz", ("pigz",), files=TEXT, alone=("pigz",), emulated=True, work="""
pigz -n -p 4 -b 128 -k text; pigz -dc text.gz | cmp - text; pigz -t text.gz; pigz -z -c -p 3 text | md5sum
"""),
    Program("rsync", ("rsync",), files=TEXT, work="""
mkdir -p a/b c; split -b 100000 text a/b/part.; touch -d @1 a/b/part.*; rsync -rlO --times a/ c/; sed -i 's/abc/cba/' a/b/part.ac; rm a/b/part.ad
rsync -rlOc --times --delete -i --no-whole-file a/ c/; rsync -rnc --out-format=%n a/ c/; diff -r a c
""", normalise=((r"\S+\.\d+ files/sec", "F files/sec"),)),
)
