// SPDX-License-Identifier: Apache-2.0
// The sites that rise from one snapshot, or moment, to the next.
import { data, framesOf } from "./data.js";
import { counted, element, grouped } from "./format.js";
import { place } from "./place.js";
import { SortedTable } from "./table.js";

const first = (row) => row.points[0][0];
const last = (row) => row.points.at(-1)[0];
const rate = (bytes) => (bytes >= 100 ? grouped(Math.round(bytes)) : String(+bytes.toPrecision(2)));

// The bytes of all points, drawn as one line.
function line(row) {
  const most = Math.max(1, ...row.points.map(([bytes]) => bytes));
  const places = row.points.map(([bytes], index) => `${(100 * index) / (row.points.length - 1)},${20 - (18 * bytes) / most}`);
  const svg = document.createElementNS("http://www.w3.org/2000/svg", "svg");
  const path = document.createElementNS(svg.namespaceURI, "polyline");
  path.setAttribute("points", places.join(" "));
  for (const [name, value] of [["class", "spark"], ["viewBox", "0 0 100 22"], ["preserveAspectRatio", "none"], ["role", "img"], ["aria-label", `from ${grouped(first(row))} to ${grouped(last(row))} bytes, at most ${grouped(most)}`]]) svg.setAttribute(name, value);
  svg.append(path);
  return svg;
}

export function showGrowth() {
  const box = document.getElementById("grow-box");
  const { rows, count, snapshots, every } = data.grow;
  if (snapshots < 3) return box.append(element("p", { class: "empty" }, "Growth is seen in three snapshots with records or more (QUARL_SNAP_DETAIL), or in a record log."));
  if (count === 0) return box.append(element("p", { class: "empty" }, `Nothing rises over the ${snapshots} ${data.peak ? "moments" : "snapshots"}.`));
  const part = rows.length < count ? `The first ${grouped(rows.length)} of ${counted(count, "site")}` : counted(count, "site");
  box.append(element("p", { class: "hint" }, `${part} over ${snapshots} ${data.peak ? "moments" : "snapshots"}; ranked by slope times steadiness, the share of them that hold more than all before.`));
  new SortedTable(box, [
    { id: "slope", header: `Bytes a ${every}`, number: true, value: (row) => row.slope, cell: (row) => `+${rate(row.slope)}` },
    { id: "steadiness", header: "Steadiness", number: true, value: (row) => row.steadiness, cell: (row) => row.steadiness.toFixed(2) },
    { id: "rank", header: "Rank", number: true, wide: true, value: (row) => row.rank, cell: (row) => rate(row.rank) },
    { id: "first", header: "Bytes before", number: true, value: first },
    { id: "last", header: "After", number: true, value: last },
    { id: "line", header: "Course", wide: true, value: (row) => last(row) - first(row), cell: line },
    { id: "place", header: "Site and source", value: (row) => framesOf(row.stack)[0].name, cell: (row) => place(framesOf(row.stack)) },
  ], "rank").show(rows);
}
