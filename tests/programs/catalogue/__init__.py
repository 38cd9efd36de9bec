"""Every program that the tests know, by field.

Seen once to do under QUARL_CONTRACT=libc what they do bare: all but squid, openssh, bind, mosquitto, tor, ssh-keygen and
gnupg, which were not run there yet, and curl, whose meter of progress, which tells speeds, differs from run to run.
"""

from catalogue import allocators, archives, building, databases, interpreters, networks, security, texts, tools

PROGRAMS = tuple(program for field in (allocators, archives, building, databases, interpreters, networks, security, texts, tools)
                 for program in field.PROGRAMS)
