"""Every program that the tests know, by field.

Not yet seen to pass in a room under the checker with QUARL_CONTRACT=libc: squid, wget, openssh, bind, mosquitto, tor,
openssl, ssh-keygen, gnupg, gawk, mawk, grep, sed, diffutils, bash, zsh, file, vim, ed, findutils, xmllint, graphviz,
imagemagick, ghostscript, gdb, curl.
"""

from catalogue import allocators, archives, building, databases, interpreters, networks, security, texts, tools

PROGRAMS = tuple(program for field in (allocators, archives, building, databases, interpreters, networks, security, texts, tools)
                 for program in field.PROGRAMS)
