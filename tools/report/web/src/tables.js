// The histogram, the operations and the faults.
import data from "./data.js";
import { element, grouped } from "./format.js";

export function showHistogram() {
  const most = Math.max(1, ...data.histogram.map((level) => level.count));
  const rows = data.histogram.map((level) =>
    element("div", { class: "bar-row" }, element("span", {}, level.size),
      element("span", { class: "bar", "aria-hidden": "true" }, element("i", { style: `width:${(100 * level.count) / most}%` })),
      element("span", { class: "number" }, `${grouped(level.count)} blocks, ${grouped(level.bytes)} bytes`)));
  document.getElementById("histogram").append(...rows);
}

export function showStatistics() {
  const box = document.getElementById("statistics");
  if (data.operations.length === 0) {
    box.append(element("p", { class: "empty" }, "The statistics were off (QUARL_PROF)."));
    return;
  }
  const head = ["Operation", "Calls", "Failed", "Bytes"].map((name, index) => element("th", { scope: "col", class: index ? "number" : null }, name));
  const rows = data.operations.map((row) =>
    element("tr", {}, element("td", {}, row.operation), ...["calls", "failed", "bytes"].map((key) => element("td", { class: "number" }, grouped(row[key])))));
  box.append(element("div", { class: "scroll" }, element("table", {}, element("thead", {}, element("tr", {}, ...head)), element("tbody", {}, ...rows))));
}

const hex = (address) => `0x${address.toString(16).padStart(8, "0")}`;

function trace(frames) {
  return element("ol", { class: "trace", start: "0" }, ...frames.map((frame) => element("li", {}, frame.text)));
}

function neighbour(side, block) {
  return element("p", {}, block ? `${side}: ${grouped(block.size)} bytes at ${hex(block.address)}, ${grouped(block.distance)} bytes away` : `${side}: no held block`);
}

export function showFaults() {
  const box = document.getElementById("faults");
  if (data.fault_list.length === 0) box.append(element("p", { class: "empty" }, "No overrun was found."));
  for (const fault of data.fault_list) {
    box.append(element("div", { class: "fault" },
      element("b", {}, `${fault.fault} of a block of ${grouped(fault.size)} bytes at ${hex(fault.address)}`),
      element("p", {}, `${fault.operation} by thread ${fault.thread}, number ${fault.sequence}`), trace(fault.frames),
      neighbour("below", fault.below), neighbour("above", fault.above)));
  }
}
