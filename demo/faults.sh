# SPDX-License-Identifier: Apache-2.0
# The planted faults: one program run per fault, and the story that is told of it.
# shellcheck shell=bash

# fault | what was planted | what the story must say
readonly faults='double-free|a block released twice|released twice
tail-overrun|13 bytes written into a block of 12, then released|1 byte written behind a block of 12 bytes
head-overrun|the word below a block overwritten, then released|1 word written in front of a block of 40 bytes
freed-realloc|a released pointer handed to realloc|resized after its release
exit-overrun|13 bytes written into a block of 12, never released|1 byte written behind a block of 12 bytes
api-overrun|an overrun that is there only while quarl_check_mem() is called|1 byte written behind a block of 12 bytes'

plant_faults() {
  local target=$1 program=$programs/$1/planted fault planted expected status
  while IFS='|' read -r fault planted expected; do
    item "$target, planted: $planted"
    status=0
    "$quarl" run -- "$program" "$fault" >output 2>story </dev/null || status=$?
    indent <story
    verdict "told: $expected; exit status $status" eval '((status == 86)) && grep -q "$expected" story && [[ ! -s output ]]'
  done <<<"$faults"
}
