# SPDX-License-Identifier: Apache-2.0
# Sourced by the other scripts: the repository root, messages, stages.
# shellcheck shell=bash
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
me=$(basename "$0")

if [[ -t 1 ]]; then bold=$'\e[1m' plain=$'\e[0m'; else bold='' plain=''; fi

say() { printf '%s\n' "$*"; }
head_line() { printf '\n%s== %s ==%s\n' "$bold" "$*" "$plain"; }

# One clear line, then stop.
die() {
  printf '%s: %s\n' "$me" "$*" >&2
  exit 1
}

# A command that fails where nobody looks at its status ends the script with a line that names it.
set -E
trap 'printf "%s: line %d: failed: %s\n" "$me" "$LINENO" "$BASH_COMMAND" >&2' ERR

# retry N COMMAND...: up to N times, a growing pause between two tries.
retry() {
  local tries=$1 try
  shift
  for ((try = 1; try <= tries; try++)); do
    "$@" && return 0
    ((try == tries)) || sleep $((try * 3))
  done
  return 1
}
