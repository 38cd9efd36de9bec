// SPDX-License-Identifier: Apache-2.0
// The flame graph: drawn, zoomed, searched, and moved through by keyboard.
import { callTree } from "./call_tree.js";
import { data } from "./data.js";
import { counted, element, grouped, percent, signed } from "./format.js";
import { chosenSites } from "./selection.js";
import state, { change, onChange } from "./state.js";
import { onWidth } from "./width.js";

const rowHeight = 20;
const box = document.getElementById("flame");
const detail = document.getElementById("flame-detail");
const found = document.getElementById("found");
const field = document.getElementById("find");

let tree = null; // the root
let zoomed = null; // the node that fills the width
let current = null; // the node that is told about, and that keys move from
let byKeyboard = false;
let matches = []; // in the order of the graph, from the left
let isFound = new Set(); // the same
let bars = new Map(); // by node, those that are wide enough to be drawn

const nameOf = (node) => (state.whole ? node.data.name : node.data.short);

// One hue a module, so that a library's part of a stack stands out; the same module always has the same hue.
function hueOf(module) {
  let hash = 7;
  for (const letter of module) hash = (hash * 31 + letter.charCodeAt(0)) % 360;
  return module === "" ? 45 : hash;
}

function colorOf(node) {
  if (!state.base) return `hsl(${hueOf(node.data.module)} ${node.data.module ? 52 : 12}% ${78 - (node.depth % 2) * 4}%)`;
  const now = node.data.now[state.measure];
  const before = node.data.before[state.measure];
  const part = (now - before) / Math.max(now, before, 1);
  if (part === 0) return "hsl(45 8% 82%)";
  return `hsl(${part > 0 ? 14 : 210} ${40 + 40 * Math.abs(part)}% ${86 - 18 * Math.abs(part)}%)`;
}

const unit = () => state.view.units[state.measure];

function describe(node) {
  const now = node.data.now[state.measure];
  const before = node.data.before[state.measure];
  const amount = state.base ? `${signed(now - before)} ${unit()} (from ${grouped(before)} to ${grouped(now)})` : `${grouped(now)} ${unit()}, ${percent(node.value, tree.value)}`;
  const inZoom = zoomed !== tree && zoomed !== node && node.ancestors().includes(zoomed) ? `, ${percent(node.value, zoomed.value)} of ${nameOf(zoomed)}` : "";
  return `${node.data.name} — ${amount}${inZoom}`;
}

function mark(node, keyboard = false) {
  bars.get(current)?.classList.remove("current");
  current = node;
  byKeyboard = keyboard;
  const bar = bars.get(node);
  if (keyboard && bar) bar.classList.add("current");
  if (bar) box.setAttribute("aria-activedescendant", bar.id);
  detail.textContent = node ? describe(node) : "";
  document.getElementById("callers").disabled = !node || node.depth === 0;
}

function barOf(node, number) {
  const spread = zoomed.x1 - zoomed.x0;
  const around = zoomed.ancestors().includes(node); // a caller of what is zoomed to
  const left = around ? 0 : (node.x0 - zoomed.x0) / spread;
  const width = around ? 1 : (node.x1 - node.x0) / spread;
  const names = [around && node !== zoomed ? "around" : "", field.value.trim() ? (isFound.has(node) ? "match" : "other") : ""];
  return element("div", {
    class: ["bar-of-call", ...names].filter(Boolean).join(" "), id: `bar-${number}`, role: "treeitem", "aria-level": node.depth + 1, "aria-label": describe(node),
    style: `left:${100 * left}%;width:${100 * width}%;top:${node.depth * rowHeight}px;background-color:${colorOf(node)}`,
    onclick: () => zoomTo(node), onmouseenter: () => byKeyboard || mark(node),
  }, nameOf(node));
}

// Bars less wide than a pixel are left out.
function drawBars() {
  const visible = (node) => (node.x1 - node.x0) * box.clientWidth >= zoomed.x1 - zoomed.x0;
  const shown = zoomed.ancestors().reverse();
  const open = [zoomed];
  while (open.length) {
    const inside = (open.pop().children ?? []).filter((node) => node.value > 0 && visible(node));
    shown.push(...inside);
    open.push(...inside);
  }
  bars = new Map(shown.map((node, number) => [node, barOf(node, number)]));
  box.style.height = `${(Math.max(...shown.map((node) => node.depth)) + 1) * rowHeight}px`;
  box.replaceChildren(...bars.values());
}

function zoomTo(node, keyboard = false) {
  zoomed = node;
  drawBars();
  mark(node, keyboard);
}

function draw() {
  tree = callTree(chosenSites());
  zoomed = tree;
  document.getElementById("callers-of").hidden = state.callersOf === null;
  document.getElementById("callers-name").textContent = state.callersOf ?? "";
  if (tree.value === 0) {
    bars = new Map();
    matches = [];
    box.replaceChildren(element("p", { class: "empty" }, "Nothing is held here."));
    box.style.height = "";
    found.textContent = "";
    return mark(null);
  }
  search();
}

function isMatch(node, term) {
  return node.depth > 0 && node.value > 0 &&
    [node.data.name, node.data.short, node.data.module, ...node.data.files].some((text) => text.toLowerCase().includes(term));
}

// What all matches hold together: one inside of another is in it already.
function search() {
  const term = field.value.trim().toLowerCase();
  matches = term && tree.value ? tree.descendants().filter((node) => isMatch(node, term)) : [];
  matches.sort((a, b) => a.x0 - b.x0 || a.depth - b.depth);
  isFound = new Set(matches);
  const outer = matches.filter((node) => !node.ancestors().slice(1).some((above) => isFound.has(above)));
  const sum = outer.reduce((bytes, node) => bytes + node.value, 0);
  found.textContent = term === "" ? "" : matches.length === 0 ? "not found" : `${counted(matches.length, "bar")}, ${grouped(sum)} ${unit()}, ${percent(sum, tree.value)}`;
  if (tree.value) zoomTo(zoomed);
}

// To the next match or, backwards, to the one before; what is too narrow to be seen is zoomed to.
function goToMatch(step) {
  if (matches.length === 0) return;
  const at = matches.indexOf(current);
  const next = matches[at < 0 ? (step > 0 ? 0 : matches.length - 1) : (at + step + matches.length) % matches.length];
  if (!bars.has(next)) zoomTo(next.parent);
  mark(next, true);
}

function neighbour(node, key) {
  const siblings = (node.parent?.children ?? [node]).filter((other) => other.value > 0);
  const place = siblings.indexOf(node);
  const steps = {
    ArrowDown: () => node.children?.find((child) => child.value > 0),
    ArrowUp: () => node.parent,
    ArrowLeft: () => siblings[place - 1],
    ArrowRight: () => siblings[place + 1],
    Home: () => tree,
  };
  return steps[key]?.();
}

function onKey(event) {
  if (!current || event.ctrlKey || event.metaKey || event.altKey) return;
  const next = neighbour(current, event.key);
  if (next) {
    if (!bars.has(next)) zoomTo(next.depth < zoomed.depth ? next : next.parent);
    mark(next, true);
  } else if (event.key === "Enter") zoomTo(current, true);
  else if (event.key === "Escape") showAll();
  else if (!event.key.startsWith("Arrow")) return;
  event.preventDefault();
}

function showAll() {
  field.value = "";
  if (state.callersOf !== null) return change({ callersOf: null });
  if (!tree.value) return;
  zoomed = tree;
  search();
  mark(tree, true);
}

function offerBases() {
  const chooser = document.getElementById("base");
  data.bases.forEach((base, index) => chooser.append(new Option(base.label, String(index))));
  document.getElementById("every").textContent = data.every > 1 ? `(one of ${data.every} snapshots)` : "";
  if (data.compare) chooser.value = "0";
  chooser.addEventListener("change", () => change({ base: chooser.value === "" ? null : data.bases[Number(chooser.value)] }));
}

export function showFlame() {
  offerBases();
  box.addEventListener("keydown", onKey);
  box.addEventListener("mouseleave", () => byKeyboard || (tree.value && mark(zoomed)));
  box.addEventListener("mousemove", () => { byKeyboard = false; });
  document.getElementById("reset").addEventListener("click", showAll);
  document.getElementById("callers").addEventListener("click", () => change({ callersOf: current.data.name }));
  document.getElementById("callers-end").addEventListener("click", () => change({ callersOf: null }));
  field.addEventListener("input", search);
  field.addEventListener("keydown", (event) => {
    if (event.key === "Enter") goToMatch(event.shiftKey ? -1 : 1);
  });
  for (const choice of document.querySelectorAll("input[name=measure]")) choice.addEventListener("change", () => change({ measure: choice.value }));
  for (const choice of document.querySelectorAll("input[name=direction]")) choice.addEventListener("change", () => change({ inverted: choice.value === "up", callersOf: null }));
  onChange(draw);
  // Bars follow the window by themselves; how many are wide enough to be drawn does not.
  onWidth(box, () => {
    if (!tree.value) return;
    drawBars();
    mark(current, byKeyboard);
  });
}
