// What was held over time.
import uPlot from "uplot";
import data from "./data.js";
import { clockTime, element, grouped } from "./format.js";
import { onWidth } from "./width.js";

const { axis, points } = data.timeline;
const box = document.getElementById("plot");
const color = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

function axisStyle() {
  return { stroke: color("--soft"), grid: { stroke: color("--line"), width: 1 }, ticks: { stroke: color("--line"), width: 1 } };
}

function short(value) {
  for (const [size, unit] of [[1e9, "G"], [1e6, "M"], [1e3, "k"]]) if (value >= size) return `${+(value / size).toFixed(1)}${unit}`;
  return String(value);
}

// Seconds of the day in UTC, as everywhere on the page.
const clock = (_plot, values, _axis, _space, step) => values.map((value) => clockTime(value).slice(11, step < 60 ? 19 : 16));

function options() {
  const counted = points.some((point) => point[2] !== null);
  const series = [
    { label: axis === "seconds" ? "Time" : "Record", value: (_plot, value) => (value === null ? "–" : axis === "seconds" ? clockTime(value) : grouped(value)) },
    { label: "Bytes", stroke: color("--accent"), fill: color("--accent-soft"), width: 2, value: (_plot, value) => grouped(value), paths: uPlot.paths.stepped({ align: 1 }) },
  ];
  const axes = [{ ...axisStyle(), values: axis === "seconds" ? clock : (_plot, values) => values.map(short) }, { ...axisStyle(), size: 60, values: (_plot, values) => values.map(short) }];
  if (counted) {
    series.push({ label: "Blocks", scale: "blocks", stroke: color("--grow"), width: 1.5, value: (_plot, value) => grouped(value), paths: uPlot.paths.stepped({ align: 1 }) });
    axes.push({ ...axisStyle(), scale: "blocks", side: 1, size: 60, grid: { show: false }, values: (_plot, values) => values.map(short) });
  }
  return { width: box.clientWidth, height: 260, scales: { x: { time: axis === "seconds" }, y: { range: { min: { pad: 0, soft: 0, mode: 1 }, max: { pad: 0.1 } } } }, series, axes, tzDate: (seconds) => uPlot.tzDate(new Date(seconds * 1e3), "Etc/UTC") };
}

function draw() {
  box.replaceChildren();
  const columns = [0, 1, 2].map((column) => points.map((point) => point[column]));
  const chosen = options();
  new uPlot(chosen, columns.slice(0, chosen.series.length), box);
}

export function showTimeline() {
  if (points.length < 2) {
    box.append(element("p", { class: "empty" }, "One moment only: automatic snapshots or a record log tell more."));
    return;
  }
  draw();
  onWidth(box, draw);
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", draw);
}
