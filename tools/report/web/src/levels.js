// SPDX-License-Identifier: Apache-2.0
// What the view holds by size; with a base both sides, by one scale.
import { data } from "./data.js";
import { counted, element } from "./format.js";
import { chosenLevels } from "./selection.js";
import state, { onChange } from "./state.js";

function bar(level, most, side) {
  const width = `${(100 * level.count) / most}%`;
  return [
    element("span", { class: `bar ${side}`, "aria-hidden": "true" }, element("i", { style: `width:${width}` })),
    element("span", { class: `number ${side}` }, `${counted(level.count, state.view.noun)}, ${counted(level.bytes, "byte")}`),
  ];
}

function draw() {
  const now = chosenLevels(state.view);
  const before = state.base ? chosenLevels(state.base) : [];
  const most = Math.max(1, ...[...now, ...before].map((level) => level.count));
  document.getElementById("levels").replaceChildren(...data.levels.map(({ name }, index) =>
    element("div", { class: "bar-row" }, element("span", {}, name), bar(now[index], most, "now"),
      before.length ? [element("span", { class: "soft" }, "before"), ...bar(before[index], most, "before")] : null)));
}

export function showLevels() {
  onChange(draw);
}
