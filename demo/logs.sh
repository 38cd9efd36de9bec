# SPDX-License-Identifier: Apache-2.0
# What a program's statistics and logs tell: the tables that it prints, the files, the leaks by place.
# shellcheck shell=bash

show_statistics() {
  local target=$1
  item "$target, a program with two leaks on three threads: its statistics and what it never gave back"
  mkdir -p "logs-$target"
  "$quarl" run --raw --set QUARL_PRINT_PROFINFO=1 --logs "logs-$target" -- "$programs/$target/station" 500 \
    >table 2>messages </dev/null || true
  indent <table
  indent <messages
  say "    log files:"
  ls -l "logs-$target" | awk 'NR > 1 { printf "    | %10d bytes  %s\n", $5, $9 }'
  verdict "statistics, histogram and a snapshot log are there" \
    eval 'grep -q "unfree mem peak" table && grep -q "Large           1" table && ls logs-$target/*_quarl.log >/dev/null'
}

show_leaks() {
  local target=$1 log
  log=$(ls -t "logs-$target"/*_quarl.log | head -1)
  item "$target, the leaks by where they were allocated"
  "$quarl" report leaks "$log" >leaks 2>&1 || true
  head -40 leaks | indent
  "$quarl" report "$log" --format html >"$programs/leaks-$target.html"
  say "    the same as a page: build/demo/leaks-$target.html"
  verdict "the forgotten labels are named" grep -q label leaks
}
