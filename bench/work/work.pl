# SPDX-License-Identifier: Apache-2.0
# Records from a table of comma separated lines: grouped in hashes of lists of hashes, and written as text again.
my %groups;
open my $table, "<", "table" or die;
while (my $line = <$table>) {
  chomp $line;
  my ($id, $first, $second, $amount) = split /,/, $line;
  push @{$groups{$first}{$second}}, {id => $id, text => "$first/$second:$id", amount => $amount};
}
for my $first (sort keys %groups) {
  for my $second (sort keys %{$groups{$first}}) {
    my @rows = sort { $a->{amount} <=> $b->{amount} || $a->{id} <=> $b->{id} } @{$groups{$first}{$second}};
    my $text = join ";", map { my $copy = $_->{text}; $copy =~ s/(\d)(\d{3})$/$1.$2/; sprintf "%s=%.1f", $copy, $_->{amount} } @rows;
    print "$first $second ", scalar @rows, " ", length $text, " $rows[0]{text}\n";
  }
}
