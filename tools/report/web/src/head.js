// SPDX-License-Identifier: Apache-2.0
// The title, what the page was made from, and the totals.
import { data } from "./data.js";
import { clockTime, element, grouped } from "./format.js";

function fact(name, value) {
  return element("div", {}, element("dt", {}, name), element("dd", {}, value));
}

export function showHead() {
  const { log } = data;
  document.title = `Memory report: ${log.process}`;
  const notes = [...log.notes, ...data.warnings];
  if (data.held_now.rest.count)
    notes.push(`The page holds the ${grouped(data.sites.length)} largest sites of ${grouped(data.site_count)}; the others are summed up as (smaller sites).`);
  document.getElementById("head").append(
    element("h1", {}, `${log.process} (process ${log.pid})`),
    element("dl", {}, fact("Written", clockTime(log.time)), fact("Log", log.file), fact("Kind", log.kind),
      log.snapshots > 1 ? fact("Snapshot", `${log.snapshot} of ${log.snapshots}`) : null,
      log.program ? fact("Program", log.program) : null, fact("Records", grouped(log.records)),
      fact("Made by", `quarl ${data.tool}`)),
    notes.length ? element("ul", { class: "notes", "aria-label": "What is missing or odd" }, ...notes.map((note) => element("li", {}, note))) : "");
}

function total(id, value, name) {
  return element("div", { class: "total" }, element("b", { id }, value), element("span", {}, name));
}

export function showTotals() {
  const counted = data.held !== null && data.log.kind !== "record log"; // else the records know it, and better
  const peak = counted ? data.held.peak : data.recorded.peak ?? data.held?.peak;
  const doubtful = counted && data.held.peak_exact === false ? " (a large block counts twice for a moment)" : "";
  document.getElementById("totals").append(
    total("unfreed-bytes", grouped(data.unfreed.bytes), "bytes unfreed"),
    total("unfreed-count", grouped(data.unfreed.count), "blocks and mappings"),
    total("site-count", grouped(data.site_count), "leak sites"),
    total("peak", peak == null ? "?" : grouped(peak), `bytes held at most${doubtful}`),
    total("fault-count", grouped(data.faults), data.faults === 1 ? "fault" : "faults"));
}
