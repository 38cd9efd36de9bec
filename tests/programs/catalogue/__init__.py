# SPDX-License-Identifier: Apache-2.0
"""Every program that the tests know, by field."""

from catalogue import allocators, archives, building, databases, interpreters, networks, security, texts, tools

# Those that run under other C libraries as well (scripts/fetch-programs --suite), and in which settings: packages of the
# same names in all Debians. Some need a block for a request of 0 bytes, which their own C library gives them.
SEVERAL, PROMISED = ("defaults", "record", "ends", "events"), ("ends",)
UNDER_OTHER_LIBC = {"i686": {"gawk": SEVERAL, "jq": SEVERAL, "sqlite3": SEVERAL, "bc": SEVERAL, "grep": PROMISED,
                             "sed": PROMISED, "sort": PROMISED, "xz": PROMISED, "tar": PROMISED, "m4": PROMISED,
                             "perl": PROMISED},
                    "armhf": {"gawk": PROMISED, "grep": PROMISED, "sqlite3": PROMISED, "jq": PROMISED}}

PROGRAMS = tuple(program for field in (allocators, archives, building, databases, interpreters, networks, security, texts, tools)
                 for program in field.PROGRAMS)
