// SPDX-License-Identifier: Apache-2.0
// By thread, kind, module, size and time: the choices above the graph, which the graph, the table and the sizes follow.
import { baseName, data, kinds } from "./data.js";
import { clockTime, duration, element, grouped } from "./format.js";
import { chosenSites, total } from "./selection.js";
import state, { change, noFilters, onChange } from "./state.js";

const choosers = [];

// options: [text, value]. One that would leave no choice is not offered.
function offer(name, label, options) {
  if (options.length < 2 && name !== "module") return;
  const chooser = element("select", { name });
  chooser.append(new Option("any", ""), ...options.map(([text], index) => new Option(text, String(index))));
  chooser.addEventListener("change", () =>
    change({ filters: { ...state.filters, [name]: chooser.value === "" ? null : options[Number(chooser.value)][1] } }));
  choosers.push(chooser);
  document.getElementById("filters").append(element("label", { class: "field" }, `${label} `, chooser));
}

function threadOptions() {
  const names = new Map(data.threads.rows.map((row) => [row.tid, row.name]));
  const ids = new Set(data.views.flatMap((view) => view.cells.thread).filter((thread) => thread !== 0));
  return [...ids].sort((a, b) => a - b).map((id) => [names.get(id) ? `${id} ${names.get(id)}` : String(id), id]);
}

function moduleOptions() {
  const used = new Set(data.frames.module.map((index) => data.strings[index]));
  used.delete("");
  return [...used].sort().map((path) => [baseName(path), path]);
}

function offerTimes() {
  const end = data.log.time;
  const age = (time) => (end > time ? ` (${duration(end - time)} before the end)` : "");
  const begins = data.moments.map((time, index) => [`${clockTime(time).slice(0, 19)}${age(time)}`, index]);
  offer("since", "Asked for from", begins.slice(1));
  offer("until", "before", begins.slice(1).map(([text, index]) => [text, index - 1]));
}

function showChosen() {
  const sum = total(chosenSites(), "now");
  const chosen = Object.values(state.filters).some((value) => value !== null);
  document.getElementById("chosen").textContent = `${grouped(sum.bytes)} ${state.view.units.bytes}, ${grouped(sum.count)} ${state.view.units.count}${chosen ? " pass the filters" : ""}`;
  document.getElementById("all").hidden = !chosen;
}

function clear() {
  for (const chooser of choosers) chooser.value = "";
  change({ filters: noFilters });
  choosers[0]?.focus();
}

export function showFilters() {
  offer("thread", "Thread", threadOptions());
  offer("module", "Module", moduleOptions());
  offer("kind", "Kind", kinds.map((kind, index) => [kind, index]));
  offer("smallest", "Size from", data.levels.map(({ from }, index) => [grouped(from), index]).slice(1));
  offer("largest", "below", data.levels.slice(1).map(({ from }, index) => [grouped(from), index]));
  offerTimes();
  document.getElementById("all").addEventListener("click", clear);
  document.getElementById("whole").addEventListener("change", (event) => change({ whole: event.target.checked }));
  onChange(showChosen);
}
