# SPDX-License-Identifier: Apache-2.0
# The front door: each target is one script in scripts/, and prints what it does.
.DEFAULT_GOAL := help
.PHONY: help setup build install packages dist quick demo check soak bench format clean

TARGET ?= i686 armhf armel host
TEST ?=
DESTDIR ?=
PREFIX ?= /usr/local

help: ## this list
	@awk -F ':.*## ' '/^[a-z]+:.*## / { printf "  make %-8s %s\n", $$1, $$2 }' $(MAKEFILE_LIST)

setup: ## install the Debian packages that are missing
	@scripts/setup

build: setup ## build/<target>/libquarl.so and build/host/quarl; TARGET=armhf for one target
	@scripts/build $(TARGET)

install: build ## the desk's tool and libraries, and for boards those of TARGET; PREFIX=/usr/local DESTDIR=
	@DESTDIR='$(DESTDIR)' PREFIX='$(PREFIX)' scripts/install $(TARGET)

packages: setup ## Debian packages of the tool and of the library for boards, in build/packages
	@scripts/build
	@scripts/packages

dist: ## build/dist: the source archive of what is committed, and what Buildroot and Yocto take to build it
	@scripts/dist

quick: ## after a change of the library: what i686 needs and its quick tests; TEST=regex for those that match
	@scripts/quick '$(TEST)'

demo: build ## plant faults on i686 and armhf, show what was found; then a real program under the checker
	@demo/run

check: setup ## format, builds, static analysis, all tests, real programs; up to 20 minutes
	@scripts/check

soak: setup ## after make check: every program of tests/programs, random damage, an hour of stress
	@scripts/build i686 armhf host
	@scripts/soak

bench: setup ## what the checker costs, beside the bare program, the least that must be done, and other checkers
	@scripts/build i686 armhf host
	@bench/run

format: ## clang-format over every C and C++ file
	@scripts/format

clean: ## remove build/ but keep the downloaded programs
	@find build -mindepth 1 -maxdepth 1 ! -name debs ! -name sysroot -exec rm -rf {} + 2>/dev/null || true
