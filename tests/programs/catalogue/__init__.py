"""Every program that the tests know, by field."""

from catalogue import allocators, archives, building, databases, interpreters, networks, security, texts, tools

PROGRAMS = tuple(program for field in (allocators, archives, building, databases, interpreters, networks, security, texts, tools)
                 for program in field.PROGRAMS)
