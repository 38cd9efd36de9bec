// SPDX-License-Identifier: Apache-2.0
// What the graph and the table show: one tab each.
import { data } from "./data.js";
import { clockTime, counted, element } from "./format.js";
import state, { change } from "./state.js";

const blocks = { units: { bytes: "bytes", count: "blocks" }, noun: "block", columns: { bytes: "Bytes", count: "Blocks" } };
const calls = { units: { bytes: "bytes", count: "calls" }, noun: "call", columns: { bytes: "Bytes", count: "Calls" } };

function peakAbout({ bytes, sequence, time }) {
  const when = [sequence ? `with record ${sequence}` : "", time ? clockTime(time) : ""].filter(Boolean).join(", ");
  return `What was held at the highest point, ${counted(bytes, "byte")}${when ? ` reached ${when}` : ""}.`;
}

// What the default rules and the reader's own left out.
function leftOut({ suppressed, suppressed_by_default: kept }) {
  const usage = ({ bytes, count }) => `${counted(bytes, "byte")} in ${counted(count, "block")}`;
  return (suppressed.count ? ` ${usage(suppressed)} suppressed.` : "") +
    (kept.count ? ` Left out: ${usage(kept)} that the C and C++ libraries keep by design.` : "");
}

// The views that the log can tell of; `compared`: whether with other snapshots.
function viewList() {
  const views = [{ id: "leaks", title: "Unfreed", about: `What is held at the end, by who asked for it.${leftOut(data)}`, ...blocks, compared: true, ...data.held_now }];
  if (!data.peak) return views;
  return [...views,
    { id: "peak", title: "Peak", ...blocks, about: peakAbout(data.peak), ...data.peak },
    { id: "hot", title: "Hot", about: "Everything that was ever allocated: who asked for most bytes, and most often.", ...calls, ...data.hot },
    { id: "temporary", title: "Temporary", ...blocks, ...data.temporary,
      about: `Released by the thread that asked before its next allocation, of ${counted(data.temporary.released.count, "block")} that were released.` },
  ];
}

function tabOf(view) {
  return element("button", { type: "button", role: "tab", id: `view-${view.id}`, "aria-controls": "view", onclick: () => choose(view) }, view.title);
}

function choose(view) {
  for (const each of data.views) {
    const tab = document.getElementById(`view-${each.id}`);
    tab.setAttribute("aria-selected", String(each === view));
    tab.tabIndex = each === view ? 0 : -1;
  }
  document.getElementById("about").textContent = view.about;
  document.getElementById("base").closest("label").hidden = !view.compared || data.bases.length === 0;
  document.getElementById("count-name").textContent = view.columns.count;
  document.getElementById("bytes-name").textContent = view.columns.bytes;
  const base = document.getElementById("base").value;
  change({ view, base: view.compared && base !== "" ? data.bases[Number(base)] : null, callersOf: null });
}

function onKey(event) {
  const steps = { ArrowLeft: -1, ArrowRight: 1, Home: -Infinity, End: Infinity };
  if (!(event.key in steps)) return;
  const place = data.views.indexOf(state.view);
  const next = Math.min(Math.max(place + steps[event.key], 0), data.views.length - 1);
  choose(data.views[next]);
  document.getElementById(`view-${data.views[next].id}`).focus();
  event.preventDefault();
}

export function listViews() {
  data.views = viewList();
  state.view = data.views[0];
}

// To be called last: it draws what the others made ready.
export function showViews() {
  const tabs = document.getElementById("views");
  tabs.append(...data.views.map(tabOf));
  tabs.addEventListener("keydown", onKey);
  choose(data.views[0]);
}
