// SPDX-License-Identifier: Apache-2.0
// Threads, mappings, operations and faults: tables and texts that no choice changes.
import { data, framesOf } from "./data.js";
import { clockTime, counted, element, grouped, hex, shortTime } from "./format.js";
import { place, trace } from "./place.js";
import { SortedTable } from "./table.js";

const empty = (text) => element("p", { class: "empty" }, text);
const number = (id, header, more = {}) => ({ id, header, number: true, value: (row) => row[id] ?? -1, cell: (row) => grouped(row[id]), ...more });

export function showThreads() {
  const box = document.getElementById("threads-box");
  const { rows, source, seconds } = data.threads;
  if (rows.length === 0) return box.append(empty("No thread was recorded (QUARL_THREAD, or QUARL_HEAD_TID with a record log, records them)."));
  const optional = [number("peak", "Peak", { cell: (row) => (row.peak === null || row.peak_exact ? "" : "at most ") + grouped(row.peak) }), number("in_place", "In place"), number("shrunk", "Shrunk")].filter(({ id }) => rows.some((row) => row[id] !== null));
  box.append(element("p", { class: "hint" }, source === "records" ? "Counted from the records." : "From the thread table.", seconds ? ` Rates over ${counted(seconds, "second")}.` : ""));
  const table = new SortedTable(box, [
    { id: "tid", header: "Thread", value: (row) => row.tid, cell: (row) => String(row.tid) },
    { id: "name", header: "Name", value: (row) => row.name },
    number("allocations", "Allocations"), number("releases", "Releases"), number("failures", "Failures"),
    number("bytes_allocated", "Bytes allocated"), number("bytes_released", "Released"), number("bytes_held", "Held"), ...optional,
    ...(seconds ? [number("allocations_per_second", "Allocations/s", { cell: (row) => row.allocations_per_second.toFixed(1) }),
      number("bytes_per_second", "Bytes/s", { cell: (row) => row.bytes_per_second.toFixed(1) })] : []),
  ], "bytes_allocated");
  table.show(rows);
}

export function showMappings() {
  const box = document.getElementById("mappings-box");
  const { rows, count } = data.mappings;
  if (count === 0) return box.append(empty("No mapping is held."));
  box.append(element("p", { class: "hint" }, rows.length < count ? `The ${grouped(rows.length)} largest of ${grouped(count)}.` : `${counted(count, "mapping")}.`));
  new SortedTable(box, [
    number("bytes", "Bytes"),
    { id: "address", header: "Address", kind: "time", value: (row) => row.address, cell: (row) => hex(row.address) },
    { id: "kind", header: "Of", value: (row) => (row.file ? "a file" : "memory") },
    { id: "thread", header: "Thread", wide: true, value: (row) => row.thread, cell: (row) => (row.thread ? String(row.thread) : "–") },
    { id: "time", header: "Since, UTC", wide: true, kind: "time", value: (row) => row.time, cell: (row) => shortTime(row.time) },
    { id: "place", header: "Asked for by", value: (row) => framesOf(row.stack)[0].name, cell: (row) => place(framesOf(row.stack)) },
  ], "bytes").show(rows);
}

export function showStatistics() {
  const box = document.getElementById("statistics-box");
  if (data.operations.length === 0) return box.append(empty("The statistics were off (QUARL_PROF)."));
  new SortedTable(box, [
    { id: "operation", header: "Operation", value: (row) => row.operation },
    number("calls", "Calls"), number("failed", "Failed"), number("bytes", "Bytes"),
  ], "bytes").show(data.operations);
}

function neighbour(side, block) {
  if (!block) return element("p", {}, `${side}: no held block`);
  return [element("p", {}, `${side}: ${counted(block.size, "byte")} at ${hex(block.address)}, ${counted(block.distance, "byte")} away, asked for by`), place(framesOf(block.stack))];
}

function faultBox(fault) {
  return element("div", { class: "fault", tabindex: "-1" },
    element("b", {}, `${fault.fault} of a block of ${counted(fault.size, "byte")} at ${hex(fault.address)}`),
    element("p", {}, `${fault.operation} by thread ${fault.thread}, number ${fault.sequence}, ${clockTime(fault.time)}; asked for by`), trace(framesOf(fault.stack)),
    neighbour("below", fault.below), neighbour("above", fault.above));
}

const faultsAtOnce = 20;

export function showFaults() {
  const box = document.getElementById("faults-box");
  if (data.fault_list.length === 0) box.append(empty("No overrun was found."));
  if (data.faults > data.fault_list.length) box.append(element("p", { class: "hint" }, `The first ${grouped(data.fault_list.length)} of ${grouped(data.faults)}.`));
  let shown = 0;
  const more = element("button", { type: "button", class: "more", onclick: () => showMore()?.focus() }, "Show more");
  const showMore = () => {
    const next = data.fault_list.slice(shown, shown + faultsAtOnce).map(faultBox);
    shown += next.length;
    more.before(...next);
    more.hidden = shown === data.fault_list.length;
    return next[0];
  };
  box.append(more);
  showMore();
}
