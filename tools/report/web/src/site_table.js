// The leak sites: sorted, searched, and opened to their traces.
import {
  createTable, getCoreRowModel, getFilteredRowModel, getPaginationRowModel, getSortedRowModel,
} from "@tanstack/table-core";
import data, { holdings, siteAt } from "./data.js";
import { clockTime, element, grouped } from "./format.js";

const pageSize = 25;

const sourceOf = (site) => (site.frames?.[0]?.file ? `${site.frames[0].file}:${site.frames[0].line}` : "");

const columns = [
  { id: "bytes", header: "Bytes", accessorFn: (row) => row.bytes, sortDescFirst: true, meta: { number: true } },
  { id: "count", header: "Blocks", accessorFn: (row) => row.count, sortDescFirst: true, meta: { number: true } },
  { id: "place", header: "Site and source", accessorFn: (row) => row.site.name, sortDescFirst: false },
  { id: "kind", header: "Kind", accessorFn: (row) => row.site.kind, sortDescFirst: false, meta: { wide: true } },
  { id: "oldest", header: "Oldest", accessorFn: (row) => row.site.oldest ?? 0, sortDescFirst: false, meta: { wide: true } },
  { id: "newest", header: "Newest", accessorFn: (row) => row.site.newest ?? 0, sortDescFirst: true, meta: { wide: true } },
];

const rows = [...holdings(data.snapshots[0])].map(([index, [bytes, count]]) => ({ site: siteAt(index), bytes, count }));

function matches(row, term) {
  const { site } = row.original;
  const texts = [site.name, site.kind, ...site.frames.flatMap((frame) => [frame.text, frame.file, frame.module])];
  return texts.some((text) => text && text.toLowerCase().includes(term));
}

let state = { sorting: [{ id: "bytes", desc: true }], globalFilter: "", pagination: { pageIndex: 0, pageSize } };

const table = createTable({
  data: rows,
  columns,
  get state() {
    return { ...table?.initialState, ...state };
  },
  onStateChange: () => {},
  renderFallbackValue: null,
  globalFilterFn: (row, _column, term) => matches(row, term),
  getColumnCanGlobalFilter: () => true,
  getCoreRowModel: getCoreRowModel(),
  getFilteredRowModel: getFilteredRowModel(),
  getSortedRowModel: getSortedRowModel(),
  getPaginationRowModel: getPaginationRowModel(),
});

function update(change) {
  state = { ...state, ...change };
  table.setOptions((options) => ({ ...options, state: { ...table.initialState, ...state } }));
  draw();
}

function toggleSort(column) {
  const [sorted] = state.sorting;
  const desc = sorted?.id === column.id ? !sorted.desc : column.sortDescFirst;
  update({ sorting: [{ id: column.id, desc }] });
}

function classOf(column) {
  return [column.meta?.number ? "number" : "", column.meta?.wide ? "wide" : ""].join(" ").trim() || null;
}

function drawHead() {
  const [sorted] = state.sorting;
  const cells = columns.map((column) => {
    const order = sorted.id === column.id ? (sorted.desc ? "descending" : "ascending") : null;
    const button = element("button", { type: "button", "data-column": column.id, onclick: () => toggleSort(column) }, column.header);
    return element("th", { class: classOf(column), scope: "col", "aria-sort": order }, button);
  });
  const focused = document.activeElement?.dataset?.column;
  document.querySelector("#site-table thead").replaceChildren(element("tr", {}, ...cells));
  if (focused) document.querySelector(`#site-table button[data-column="${focused}"]`).focus();
}

function trace(site) {
  const lines = site.frames.map((frame) =>
    element("li", {}, frame.text, frame.inlined ? " [inlined]" : "", frame.module ? element("span", { class: "soft" }, `  ${frame.module}`) : null));
  return element("ol", { class: "trace", start: "0" }, ...lines);
}

function placeCell(site) {
  const cell = element("td", { class: "place" });
  const open = () => {
    const opened = cell.querySelector(".trace");
    if (opened) opened.remove();
    else cell.append(trace(site));
    button.setAttribute("aria-expanded", String(!opened));
  };
  const button = element("button", { type: "button", "aria-expanded": "false", onclick: open }, site.name);
  button.addEventListener("keydown", (event) => event.key === "Enter" && (event.preventDefault(), open()));
  cell.append(button, element("div", { class: "soft" }, sourceOf(site)));
  return cell;
}

function row({ site, bytes, count }) {
  const time = (seconds) => (seconds ? clockTime(seconds).slice(0, 19) : "–");
  return element("tr", {}, element("td", { class: "number" }, grouped(bytes)), element("td", { class: "number" }, grouped(count)),
    placeCell(site), element("td", { class: "wide" }, site.kind),
    element("td", { class: "wide" }, time(site.oldest)), element("td", { class: "wide" }, time(site.newest)));
}

function draw() {
  drawHead();
  const found = table.getFilteredRowModel().rows.length;
  const shown = table.getRowModel().rows;
  document.querySelector("#site-table tbody").replaceChildren(...shown.map((each) => row(each.original)));
  document.getElementById("shown").textContent = found === rows.length ? `${grouped(found)} sites` : `${grouped(found)} of ${grouped(rows.length)} sites`;
  document.getElementById("more").hidden = shown.length >= found;
}

export function showSites() {
  table.setOptions((options) => ({ ...options, state: { ...table.initialState, ...state } }));
  draw();
  const pagination = { pageIndex: 0, pageSize };
  document.getElementById("search").addEventListener("input", (event) =>
    update({ globalFilter: event.target.value.trim().toLowerCase(), pagination }));
  document.getElementById("more").addEventListener("click", () =>
    update({ pagination: { pageIndex: 0, pageSize: state.pagination.pageSize + 100 } }));
}
