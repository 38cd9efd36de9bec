# The planted faults: one program run per fault, its report shown with names and lines.
# shellcheck shell=bash

# Trace lines read "N : 0xADDRESS"; adds function, file and line of the call before each return address.
with_places() {
  local program=$1 line
  while IFS= read -r line; do
    if [[ $line =~ ^[0-9]+\ :\ 0x([0-9a-f]+)$ ]]; then
      place=$(addr2line -psf -e "$program" "$(printf '0x%x' $((0x${BASH_REMATCH[1]} - 1)))")
      [[ $place == '??'* ]] || line+="  $place"
    fi
    printf '%s\n' "$line"
  done
}

# fault | what was planted | what the report must say
readonly faults='
double-free   | a block released twice                                   | double free a same memory block
tail-overrun  | 13 bytes written into a block of 12, then released       | memory slop over at tail
head-overrun  | the word below a block overwritten, then released        | memory slop over at head
freed-realloc | a released pointer handed to realloc                     | double free a same memory block
exit-overrun  | 13 bytes written into a block of 12, never released      | memory slop over at tail
api-overrun   | an overrun present only while quarl_check_mem() is called | memory slop over at tail
'

plant_faults() {
  local target=$1 fault planted expected
  while IFS='|' read -r fault planted expected; do
    read -r fault <<<"$fault" || continue
    read -r expected <<<"$expected"
    item "$target, planted:$planted"
    set +e
    "$quarl" run -- "$programs/$target/planted" "$fault" >found 2>messages </dev/null
    status=$?
    set -e
    with_places "$programs/$target/planted" <found | indent
    indent <messages
    verdict "found: $expected; exit status $status" test "$status" = 86 -a "$(grep -c "$expected" found)" = 1
  done <<<"$faults"
}
