# SPDX-License-Identifier: Apache-2.0
# A running program is steered from outside.
# shellcheck shell=bash

# Trace lines read "N : 0xADDRESS"; adds function, file and line of the call before each return address.
with_places() {
  local program=$1 line place
  while IFS= read -r line; do
    if [[ $line =~ ^[0-9]+\ :\ 0x([0-9a-f]+)$ ]]; then
      place=$(addr2line -psf -e "$program" "$(printf '0x%x' $((0x${BASH_REMATCH[1]} - 1)))")
      [[ $place == '??'* ]] || line+="  $place"
    fi
    printf '%s\n' "$line"
  done
}

# What the program has printed since the last call; waits for PATTERN in it first.
shown=0
show_new() {
  local pattern=$1 deadline=$((SECONDS + 20))
  until tail -c "+$((shown + 1))" output | grep -qE "$pattern"; do
    ((SECONDS < deadline)) || { verdict "the program prints '$pattern'" false; break; }
    sleep 0.1
  done
  tail -c "+$((shown + 1))" output >news
  shown=$((shown + $(wc -c <news)))
  sed -E '/Waiting for connect|Remote connected|connection broken|^$/d' news | with_places "$program" | indent
}

tell() { # tell ORDER PATTERN: gives an order over TCP and shows what the program prints
  printf '\n    $ quarl ctl 127.0.0.1:%s %s\n' "$port" "$1"
  "$quarl" ctl "127.0.0.1:$port" "$1" 2>&1 | indent
  show_new "$2"
}

malloc_calls() { sed -n 's/^malloc *\([0-9]*\) .*/\1/p' output; }

steer() {
  local target=$1 program=$programs/$1/station port running
  item "$target, a running program told over TCP to check its heap, to print and to reset its statistics"
  : >output
  mkfifo input
  "$quarl" run --agent --raw -- "$program" <input >output 2>messages &
  running=$!
  exec 3>input
  show_new 'station: measuring'
  await messages 'port [0-9]+' || die "the agent did not tell its port"
  port=$(sed -nE 's/.*port ([0-9]+).*/\1/p' messages | head -1)
  echo spoil >&3
  show_new spoil
  tell check 'call trace'
  echo mend >&3
  show_new mend
  tell stats 'peak from file'
  tell reset 'Waiting for connect'
  tell stats 'peak from file'
  exec 3>&-
  wait "$running" || true
  verdict "the check found the overrun" grep -q 'memory slop over at tail' output
  verdict "the statistics began anew after the reset" eval \
    '(($(malloc_calls | wc -l) == 2 && $(malloc_calls | tail -1) < $(malloc_calls | head -1)))'
}
