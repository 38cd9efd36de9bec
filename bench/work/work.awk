# SPDX-License-Identifier: Apache-2.0
# Words of a text counted, with the lines that they stand in; then sorted by how many there are.
{
  for (i = 1; i <= NF; i++) {
    count[$i]++
    if (last[$i] != NR) lines[$i] = lines[$i] " " NR
    last[$i] = NR
  }
  sub(/[aeiou]+/, "<&>")
  total += length(toupper($0))
}
END {
  for (word in count) rows[++n] = sprintf("%06d %s %d", count[word], word, split(lines[word], parts, " "))
  asort(rows)
  for (i = n; i > n - 20 && i > 0; i--) print rows[i]
  print n, total
}
