# A running program is steered from outside.
# shellcheck shell=bash

steer() {
  local target=$1 port output
  item "$target, a running program told over TCP to check its heap, to print and to reset its statistics"
  : >output
  mkfifo stdin
  "$quarl" run --agent -- "$programs/$target/station" <stdin >output 2>messages &
  running=$!
  exec 3>stdin
  await messages 'port [0-9]+' || { indent <messages; die "the agent did not tell its port"; }
  port=$(sed -nE 's/.*port ([0-9]+).*/\1/p' messages | head -1)
  for order in check stats reset stats; do
    say "    \$ quarl ctl 127.0.0.1:$port $order"
    "$quarl" ctl "127.0.0.1:$port" $order 2>&1 | indent
  done
  await output 'unfree mem peak from file' || true
  exec 3>&-
  wait "$running" || true
  indent <output
  verdict "the program printed its statistics and ran on" grep -q 'Program memory prof info' output
}
