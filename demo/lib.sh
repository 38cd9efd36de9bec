# SPDX-License-Identifier: Apache-2.0
# Sourced by the parts of the demo: verdicts, indented output, waiting.
# shellcheck shell=bash
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib.sh"

quarl=$root/build/host/quarl
programs=$root/build/demo
failures=0

verdict() { # verdict TEXT COMMAND...: prints whether the command holds
  local text=$1
  shift
  if "$@"; then say "    => $text"; else
    say "    => NOT SO: $text"
    failures=$((failures + 1))
  fi
}

item() { printf '\n  %s\n' "$*"; }
indent() { sed 's/^/    | /'; }

# A line of the agent's or the program's output, waited for up to 20 s.
await() {
  local file=$1 pattern=$2 deadline=$((SECONDS + 20))
  until grep -qE "$pattern" "$file"; do
    ((SECONDS < deadline)) || return 1
    sleep 0.1
  done
}
