// SPDX-License-Identifier: Apache-2.0
// The sites of the view as a table, searched by what is in any of their frames.
import { textOf } from "./data.js";
import { counted, element, grouped, shortTime, signed } from "./format.js";
import { place } from "./place.js";
import { chosenSites } from "./selection.js";
import state, { onChange } from "./state.js";
import { SortedTable } from "./table.js";

const field = document.getElementById("search");
const shown = document.getElementById("shown");
let table = null;
let rows = [];

const latest = (row) => (row.now.count ? row.now : row.before);
const kindOf = (row) => ["heap", "mapping", "file mapping"].filter((kind) => latest(row).kinds.has(kind)).join("+");

function about(row) {
  const { smallest, largest, threads } = latest(row);
  const parts = [];
  if (largest) parts.push(smallest === largest ? `${counted(smallest, "byte")} each` : `${grouped(smallest)} to ${counted(largest, "byte")} each`);
  if (threads.size) parts.push(`by ${threads.size === 1 ? "thread" : "threads"} ${[...threads].sort((a, b) => a - b).join(", ")}`);
  return parts.join("; ");
}

function changeOf(row, measure) {
  const change = row.now[measure] - row.before[measure];
  return element("span", { class: change > 0 ? "grow" : change < 0 ? "shrink" : null }, change ? signed(change) : "0");
}

function columns() {
  const [bytes, count] = [state.view.columns.bytes, state.view.columns.count];
  const compared = state.base === null ? [] : [
    { id: "change", header: `Change of ${bytes.toLowerCase()}`, number: true, value: (row) => row.now.bytes - row.before.bytes, cell: (row) => changeOf(row, "bytes") },
    { id: "count-change", header: `Of ${count.toLowerCase()}`, number: true, value: (row) => row.now.count - row.before.count, cell: (row) => changeOf(row, "count") },
  ];
  return [
    ...compared,
    { id: "bytes", header: bytes, number: true, value: (row) => row.now.bytes },
    { id: "count", header: count, number: true, value: (row) => row.now.count },
    { id: "place", header: "Site and source", value: (row) => textOf(row.frames[0], true), cell: (row) => place(row.frames, about(row)) },
    { id: "kind", header: "Kind", wide: true, value: kindOf },
    { id: "oldest", header: "Oldest, UTC", wide: true, kind: "time", value: (row) => latest(row).oldest, cell: (row) => shortTime(latest(row).oldest) },
    { id: "newest", header: "Newest, UTC", wide: true, kind: "time", value: (row) => latest(row).newest, cell: (row) => shortTime(latest(row).newest) },
  ];
}

function matches(row, term) {
  const texts = [kindOf(row), ...row.frames.flatMap((frame) => [textOf(frame, true), frame.file, frame.module])];
  return texts.some((text) => text.toLowerCase().includes(term));
}

function draw() {
  const term = field.value.trim().toLowerCase();
  const found = term ? rows.filter((row) => matches(row, term)) : rows;
  table.show(found);
  shown.textContent = found.length === rows.length ? counted(found.length, "site") : `${grouped(found.length)} of ${counted(rows.length, "site")}`;
}

export function showSites() {
  table = new SortedTable(document.getElementById("site-table"), columns(), "bytes");
  onChange((news) => {
    rows = chosenSites();
    if ("base" in news || "view" in news) table.arrange(columns(), state.base ? "change" : "bytes");
    draw();
  });
  field.addEventListener("input", draw);
}
