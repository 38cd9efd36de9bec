// SPDX-License-Identifier: Apache-2.0
// What was held over time: how much at each point, and how much at most since the point before.
import uPlot from "uplot";
import { data } from "./data.js";
import { clockTime, element, grouped } from "./format.js";
import { onWidth } from "./width.js";

const box = document.getElementById("plot");
const readout = document.getElementById("plot-detail");
const color = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();
let plot = null;

const [at, bytes, most, entries, mostEntries, resident] = [0, 1, 2, 3, 4, 5]; // of a point
const inSeconds = () => data.timeline.axis === "seconds";
const when = (value) => (inSeconds() ? clockTime(value) : `record ${grouped(value)}`);

function axisStyle() {
  return { stroke: color("--soft"), grid: { stroke: color("--line"), width: 1 }, ticks: { stroke: color("--line"), width: 1 } };
}

function short(value) {
  for (const [size, unit] of [[1e9, "G"], [1e6, "M"], [1e3, "k"]]) if (value >= size) return `${+(value / size).toFixed(1)}${unit}`;
  return String(value);
}

// Seconds of the day in UTC, as everywhere on the page.
const clock = (_plot, values, _axis, _space, step) => values.map((value) => clockTime(value).slice(11, step < 60 ? 19 : 16));

const stepped = uPlot.paths.stepped({ align: 1 });

// The highest of each stretch lies over its end, whose step leads to the next point.
function options(counted) {
  const shorts = (_plot, values) => values.map(short);
  const series = [
    {},
    { stroke: color("--grow"), width: 1, fill: color("--accent-soft"), paths: stepped },
    { stroke: color("--accent"), width: 2, paths: stepped },
  ];
  const axes = [{ ...axisStyle(), values: inSeconds() ? clock : shorts }, { ...axisStyle(), size: 60, values: shorts }];
  if (counted) {
    series.push({ scale: "blocks", stroke: color("--shrink"), width: 1.5, dash: [5, 4], paths: stepped });
    axes.push({ ...axisStyle(), scale: "blocks", side: 1, size: 60, grid: { show: false }, values: shorts });
  }
  const fromZero = { range: { min: { pad: 0, soft: 0, mode: 1 }, max: { pad: 0.1 } } };
  return {
    width: box.clientWidth, height: 260, legend: { show: false }, scales: { x: { time: inSeconds() }, y: fromZero, blocks: fromZero }, series, axes,
    tzDate: (seconds) => uPlot.tzDate(new Date(seconds * 1e3), "Etc/UTC"), hooks: { setCursor: [tell] },
  };
}

function describe(point) {
  const blocks = point[entries] === null ? "" : `; blocks and mappings: ${grouped(point[entries])}, at most ${grouped(point[mostEntries])}`;
  const inMemory = point[resident] === null ? "" : `; resident memory of the process: ${grouped(point[resident])} bytes`;
  return `${when(point[at])}: ${grouped(point[bytes])} bytes held, at most ${grouped(point[most])} since the point before${blocks}${inMemory}`;
}

function highestIndex() {
  const { points } = data.timeline;
  return points.reduce((best, point, index) => (point[most] > points[best][most] ? index : best), 0);
}

function highest() {
  const top = data.timeline.points[highestIndex()];
  return `Highest: ${grouped(top[most])} bytes by ${when(top[at])}.`;
}

function tell({ cursor }) {
  const index = typeof cursor.idx === "number" && cursor.left >= 0 ? cursor.idx : null;
  readout.textContent = index === null ? highest() : describe(data.timeline.points[index]);
  box.setAttribute("aria-valuenow", index ?? highestIndex());
  box.setAttribute("aria-valuetext", readout.textContent);
}

function moveTo(index) {
  const { points } = data.timeline;
  const place = Math.min(Math.max(index, 0), points.length - 1);
  plot.setCursor({ left: plot.valToPos(points[place][at], "x"), top: plot.valToPos(points[place][bytes], "y") });
}

function onKey(event) {
  const last = data.timeline.points.length - 1;
  const now = typeof plot.cursor.idx === "number" ? plot.cursor.idx : -1;
  const steps = { ArrowLeft: now - 1, ArrowRight: now + 1, PageUp: now - 20, PageDown: now + 20, Home: 0, End: last, Enter: highestIndex() };
  if (!(event.key in steps) || event.ctrlKey || event.altKey || event.metaKey) return;
  moveTo(steps[event.key]);
  event.preventDefault();
}

function draw() {
  const { points } = data.timeline;
  const counted = points.some((point) => point[entries] !== null);
  plot?.destroy();
  const columns = [at, most, bytes, ...(counted ? [mostEntries] : [])].map((column) => points.map((point) => point[column]));
  plot = new uPlot(options(counted), columns, box);
  tell(plot);
}

export function showTimeline() {
  if (data.timeline.points.length < 2) {
    box.append(element("p", { class: "empty" }, "One moment only: automatic snapshots or a record log tell more."));
    document.getElementById("plot-help").hidden = true;
    return;
  }
  box.tabIndex = 0;
  box.setAttribute("role", "slider");
  box.setAttribute("aria-valuemin", 0);
  box.setAttribute("aria-valuemax", data.timeline.points.length - 1);
  document.getElementById("plot-key").hidden = false;
  document.getElementById("plot-entries").hidden = data.timeline.points.every((point) => point[entries] === null);
  box.addEventListener("keydown", onKey);
  draw();
  onWidth(box, draw);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", draw);
}
