// The flame graph, its controls, and its keyboard.
import flamegraph from "d3-flame-graph";
import { select } from "d3-selection";
import data from "./data.js";
import { flameTree } from "./flame_tree.js";
import { grouped, signed } from "./format.js";
import { onWidth } from "./width.js";

const box = document.getElementById("flame");
const detail = document.getElementById("flame-detail");
const names = ["bytes", "blocks"];
let chart = null;
let current = null; // the node that the keyboard is on
let measure = 0;
let base = null;

// One hue a module, so that a library's part of a stack stands out; the same module always has the same hue.
function hueOf(module) {
  let hash = 7;
  for (const letter of module) hash = (hash * 31 + letter.charCodeAt(0)) % 360;
  return module === "" ? 45 : hash;
}

function colorOf(node) {
  if (!base) return `hsl(${hueOf(node.data.module)} ${node.data.module ? 52 : 12}% ${76 - (node.depth % 2) * 4}%)`;
  const change = (node.data.now - node.data.before) / Math.max(node.data.now, node.data.before, 1);
  if (change === 0) return "hsl(45 8% 80%)";
  return `hsl(${change > 0 ? 14 : 210} ${40 + 40 * Math.abs(change)}% ${84 - 20 * Math.abs(change)}%)`;
}

function describe(node) {
  const share = ((100 * node.value) / (node.ancestors().at(-1).value || 1)).toFixed(1);
  const { name, now, before } = node.data;
  if (!base) return `${name} — ${grouped(now)} ${names[measure]}, ${share}%`;
  return `${name} — ${signed(now - before)} ${names[measure]} (from ${grouped(before)} to ${grouped(now)})`;
}

const frames = () => select(box).selectAll("g.frame");

function mark(node, reason) {
  current = node;
  frames().classed("current", (other) => reason === "keyboard" && other === node);
  frames().attr("role", "treeitem").attr("aria-label", describe).attr("aria-selected", (other) => other === node);
  detail.textContent = node ? describe(node) : "";
}

function draw() {
  const tree = flameTree(data.snapshots[0], base, measure);
  box.replaceChildren();
  if (tree.value === 0) {
    box.append("Nothing is unfreed.");
    return;
  }
  chart = flamegraph().width(box.clientWidth).cellHeight(19).minFrameSize(1).transitionDuration(reduced() ? 0 : 250)
    .inverted(true).sort(true).selfValue(false).title("").getName((node) => node.data.name)
    .setLabelHandler(describe).setColorMapper(colorOf).onHover((node) => mark(node)).onClick((node) => mark(node, "keyboard"));
  select(box).datum(tree).call(chart);
  mark(rootNode());
}

const reduced = () => matchMedia("(prefers-reduced-motion: reduce)").matches;
const rootNode = () => frames().data().find((node) => node.depth === 0);

function neighbour(node, key) {
  const siblings = node.parent ? node.parent.children.filter((other) => other.value > 0) : [node];
  siblings.sort((a, b) => a.x0 - b.x0);
  const place = siblings.indexOf(node);
  const steps = {
    ArrowDown: () => node.children?.slice().sort((a, b) => b.value - a.value)[0],
    ArrowUp: () => node.parent,
    ArrowLeft: () => siblings[place - 1],
    ArrowRight: () => siblings[place + 1],
    Home: () => node.ancestors().at(-1),
  };
  return steps[key]?.();
}

function onKey(event) {
  if (!current || event.ctrlKey || event.metaKey || event.altKey) return;
  const next = neighbour(current, event.key);
  if (next) mark(next, "keyboard");
  else if (event.key === "Enter") chart.zoomTo(current);
  else if (event.key === "Escape") showAll();
  else if (!event.key.startsWith("Arrow")) return;
  event.preventDefault();
}

function showAll() {
  chart?.resetZoom();
  document.getElementById("find").value = "";
  chart?.clear();
  mark(rootNode(), "keyboard");
}

function onFind(event) {
  const term = event.target.value.trim().toLowerCase();
  if (!chart) return;
  if (term === "") chart.clear();
  else chart.search(term);
}

function offerBases() {
  const chooser = document.getElementById("base");
  data.snapshots.slice(1).forEach((snapshot, index) => chooser.append(new Option(snapshot.label, String(index + 1))));
  chooser.closest("label").hidden = data.snapshots.length < 2;
  if (data.compare) chooser.value = "1";
  base = data.snapshots[Number(chooser.value)] && chooser.value ? data.snapshots[Number(chooser.value)] : null;
  chooser.addEventListener("change", () => {
    base = chooser.value ? data.snapshots[Number(chooser.value)] : null;
    draw();
  });
}

export function showFlame() {
  offerBases();
  draw();
  box.addEventListener("keydown", onKey);
  document.getElementById("reset").addEventListener("click", showAll);
  document.getElementById("find").addEventListener("input", onFind);
  document.querySelectorAll("input[name=measure]").forEach((choice, index) =>
    choice.addEventListener("change", () => {
      measure = index;
      draw();
    }));
  onWidth(box, draw);
}
