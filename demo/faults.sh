# The planted faults: one program run per fault, its report shown with names and lines.
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

# The first report; the check at exit and the final snapshot repeat it, for the block is still there.
first_report() {
  awk '/slop over occurs|double free/ { reports++ } reports == 1 || /exit!!/
    END { if (reports > 1) print "(" reports " such reports: " (reports > 2 ? "the release, " : "") "the check and the snapshot at exit)" }'
}

# fault | what was planted | what the report must say
readonly faults='double-free|a block released twice|double free a same memory block
tail-overrun|13 bytes written into a block of 12, then released|memory slop over at tail
head-overrun|the word below a block overwritten, then released|memory slop over at head
freed-realloc|a released pointer handed to realloc|double free a same memory block
exit-overrun|13 bytes written into a block of 12, never released|memory slop over at tail
api-overrun|an overrun that is there only while quarl_check_mem() is called|memory slop over at tail'

plant_faults() {
  local target=$1 program=$programs/$1/planted fault planted expected status
  while IFS='|' read -r fault planted expected; do
    item "$target, planted: $planted"
    status=0
    "$quarl" run -- "$program" "$fault" >found 2>messages </dev/null || status=$?
    first_report <found | with_places "$program" | indent
    indent <messages
    verdict "found: $expected; exit status $status" eval '((status == 86)) && grep -q "$expected" found'
  done <<<"$faults"
}
