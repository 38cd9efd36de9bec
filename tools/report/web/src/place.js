// SPDX-License-Identifier: Apache-2.0
// A place in the program that opens to its call trace.
import { textOf } from "./data.js";
import { element } from "./format.js";
import state from "./state.js";

export function trace(frames) {
  const lines = frames.map((frame) =>
    element("li", {}, textOf(frame, true), frame.inlined ? " [inlined]" : "", frame.module ? element("span", { class: "soft" }, `  ${frame.module}`) : null));
  return element("ol", { class: "trace", start: "0" }, lines);
}

// `more`: what else is to be read above the trace.
export function place(frames, more = "") {
  const [first] = frames;
  const box = element("div", { class: "place" });
  const button = element("button", { type: "button", "aria-expanded": "false", title: textOf(first, true), onclick: () => {
    const opened = box.querySelector(".opened");
    if (opened) opened.remove();
    else box.append(element("div", { class: "opened" }, more ? element("p", {}, more) : null, trace(frames)));
    button.setAttribute("aria-expanded", String(!opened));
  } }, textOf(first, state.whole));
  box.append(button, element("div", { class: "soft source" }, first.file ? `${first.file}:${first.line}` : ""));
  return box;
}
