# SPDX-License-Identifier: Apache-2.0
# Objects grouped by name, with what their lists come to.
group_by(.name)[]
| {name: .[0].name, n: length, tags: (map(.tags | add // 0) | add), notes: (map(.inner.note | ascii_upcase) | unique | length),
   w: (map(.inner.weight) | add * 1000 | floor)}
