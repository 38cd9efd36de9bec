# SPDX-License-Identifier: Apache-2.0
# A JSON document read, turned into objects, grouped, and written again; a table read and written as CSV.
import collections
import csv
import io
import json


class Part:
    def __init__(self, row):
        self.id, self.name, self.tags, self.inner = row["id"], row["name"], list(row["tags"]), dict(row["inner"])

    def as_row(self):
        return {"key": f"{self.name}/{self.id}", "tags": sorted(set(self.tags)), **self.inner}


with open("document") as document:
    parts = [Part(row) for row in json.load(document)]
groups = collections.defaultdict(list)
for part in parts:
    groups[part.name].append(part.as_row())
text = json.dumps(groups, sort_keys=True, indent=1)
with open("table") as table:
    rows = sorted(csv.reader(table), key=lambda row: (row[1], float(row[3])))
out = io.StringIO()
csv.writer(out, delimiter=";").writerows([row[1], row[2].upper(), row[3]] for row in rows)
print(len(parts), len(groups), len(text), len(rows), len(out.getvalue()))
