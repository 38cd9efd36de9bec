# SPDX-License-Identifier: Apache-2.0
"""The compilers and flags that the library is built with, as Buildroot, Yocto and others would call it.

From the command line: variants.py SUITE prints the packages of Debian's SUITE that hold its compilers, one a line.
"""

import sys
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
TRIPLET = {"i686": "i686-linux-gnu", "armhf": "arm-linux-gnueabihf", "armel": "arm-linux-gnueabi"}
SUITE = {10: "bullseye", 11: "bookworm", 12: None, 13: "trixie", 14: "trixie"}  # None: the machine's own

YOCTO = ("-O2 -pipe -fstack-protector-strong -D_FORTIFY_SOURCE=2 -Wformat -Wformat-security -Werror=format-security "
         "-D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64")
YOCTO_LINK = "-Wl,-O1 -Wl,--hash-style=gnu -Wl,--as-needed -Wl,-z,relro,-z,now"
BUILDROOT = "-D_LARGEFILE_SOURCE -D_LARGEFILE64_SOURCE -D_FILE_OFFSET_BITS=64 -Os -g0 -D_FORTIFY_SOURCE=1"


# Where less is inlined, a mapping that a call of realloc makes has one frame more of the checker's in its trace.
NOT_INLINED = ("test_mapping_of_a_large_block_leaves_room_for_its_callers",)


@dataclass(frozen=True)
class Variant:
    name: str
    target: str  # whose C library and victims it runs with
    gcc: int = 12
    flags: str = ""
    link_flags: str = ""
    options: tuple = ()
    processor: str = ""  # the emulated one, when it is not the emulator's best
    makes: str = ""  # the target that is derived, when flags make it another
    old_headers: bool = False  # Debian 11's C library to build with, as a sysroot in a toolchain file
    tests: tuple = ("fault_reports", "call_trace", "record_log", "short_way")
    lacks: tuple = ()  # tests that are known to fail with what the variant makes; docs/building.md says what that means
    check: bool = False  # belongs to `make check`

    @property
    def derived(self):
        return self.makes or self.target


VARIANTS = [
    *(Variant(f"{target}-gcc-{gcc}", target, gcc)
      for gcc in SUITE for target in ("i686", "armhf", "armel") if (gcc, target) != (13, "armel")),
    Variant("armv5te-soft", "armel", flags="-O2 -march=armv5te -mfloat-abi=soft", processor="arm926"),
    Variant("armv5te-thumb", "armel", flags="-O2 -march=armv5te -mthumb", processor="arm926", check=True),
    Variant("armv5te-gcc-10", "armel", 10, flags="-O2 -march=armv5te -mthumb", processor="arm926"),
    Variant("armv6-soft", "armel", flags="-O2 -march=armv6 -mthumb", processor="arm1136"),
    Variant("armv6-softfp", "armel", flags="-O2 -march=armv6+fp -mfloat-abi=softfp", processor="arm1136"),
    Variant("armv7-a-softfp", "armel", flags="-O2 -march=armv7-a -mfpu=neon -mfloat-abi=softfp -mthumb", processor="cortex-a8"),
    Variant("armv6-hard", "armhf", flags="-O2 -march=armv6+fp -marm"),
    Variant("armv7-a-hard", "armhf", flags="-O2 -mcpu=cortex-a7 -mfpu=neon-vfpv4 -mthumb", processor="cortex-a7"),
    Variant("armv8-a-hard", "armhf", flags="-O3 -march=armv8-a+simd -mthumb", check=True),
    Variant("armv8-a-gcc-14", "armhf", 14, flags="-O2 -mcpu=cortex-a53 -mfpu=neon-fp-armv8 -mthumb"),
    Variant("i586", "i686", flags="-O2 -march=i586"),
    Variant("core2", "i686", flags="-O3 -march=core2 -mfpmath=sse"),
    Variant("armhf-debug", "armhf", options=("-DCMAKE_BUILD_TYPE=Debug",), tests=("fault_reports", "record_log")),
    Variant("i686-without-lto", "i686", flags="-O2 -fno-lto", options=("-DQUARL_HAVE_LTO=OFF",), lacks=NOT_INLINED, check=True),
    Variant("armel-without-lto", "armel", options=("-DQUARL_HAVE_LTO=OFF",), lacks=NOT_INLINED),
    Variant("yocto-armhf", "armhf", flags=YOCTO + " -march=armv7ve -mthumb -mfpu=neon -mfloat-abi=hard", link_flags=YOCTO_LINK),
    Variant("yocto-i686-gcc-14", "i686", 14, flags=YOCTO + " -m32 -march=i686", link_flags=YOCTO_LINK),
    Variant("buildroot-armel", "armel", flags=BUILDROOT, lacks=NOT_INLINED),
    Variant("buildroot-i686", "i686", 11, flags=BUILDROOT, lacks=NOT_INLINED, old_headers=True),
    Variant("buildroot-armhf", "armhf", 11, flags=BUILDROOT, lacks=NOT_INLINED, old_headers=True),
    Variant("native-armhf", "armhf", options=("-DQUARL_SEAM=native",), tests=()),
    Variant("native-armel-gcc-10", "armel", 10, options=("-DQUARL_SEAM=native",), tests=()),
    Variant("native-i686-gcc-14", "i686", 14, options=("-DQUARL_SEAM=native",), tests=()),
]


def packages(suite):
    """What has to be unpacked of a suite: the compilers of its versions, and with them their C library; and make, which GCC 10
    starts to optimise in parallel."""
    wanted = {(variant.gcc, TRIPLET[variant.target]) for variant in VARIANTS if SUITE[variant.gcc] == suite}
    return ["make"] + [f"g++-{gcc}-{triplet}" for gcc, triplet in sorted(wanted)]


if __name__ == "__main__":
    print(*packages(sys.argv[1]), sep="\n")
