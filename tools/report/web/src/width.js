// SPDX-License-Identifier: Apache-2.0
// Charts are drawn as wide as their box.

// Calls `draw` when the box has another width than before; its height changes with what is drawn.
export function onWidth(box, draw) {
  let width = box.clientWidth;
  new ResizeObserver(() => {
    if (box.clientWidth === width) return;
    width = box.clientWidth;
    draw();
  }).observe(box);
}
