# SPDX-License-Identifier: Apache-2.0
# A real program, unmodified, under the checker with its defaults: it must not notice.
# shellcheck shell=bash

write_script() { python3 "$root/tests/programs/inputs.py" 10000 >script.sql; }

run_sqlite() {
  local target=$1 tree=$root/build/sysroot/$2 begin
  item "$target, Debian's sqlite3 through $(grep -c ';' script.sql) statements, without and with the checker"
  python3 "$root/scripts/sysroot.py" "$target" "$tree/usr/bin/sqlite3" -batch <script.sql >bare.out 2>bare.err || true
  begin=$SECONDS
  set +e
  "$quarl" run --sysroot "$tree" -- "$tree/usr/bin/sqlite3" -batch <script.sql >checked.out 2>checked.err
  status=$?
  set -e
  say "    $(wc -c <checked.out) bytes of output, exit status $status, $((SECONDS - begin)) s"
  sed -i '/^quarl: /d' checked.err  # where the tool says that the logs are
  verdict "same output as bare, no fault reported" eval 'test $status = 0 && cmp bare.out checked.out && cmp bare.err checked.err'
}
