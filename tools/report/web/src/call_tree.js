// SPDX-License-Identifier: Apache-2.0
// The call tree that the graph shows: from the outermost caller to the place that asked, or, inverted, from that place to
// its callers.
import { hierarchy, partition } from "d3-hierarchy";
import state from "./state.js";

function newNode(frame, name) {
  return {
    name, short: frame?.short ?? name, module: frame?.module ?? "", files: new Set(), children: [], index: new Map(),
    width: 0, now: { bytes: 0, count: 0 }, before: { bytes: 0, count: 0 },
  };
}

// A function is one bar whatever line of it calls.
function childOf(node, frame) {
  let child = node.index.get(frame.name);
  if (!child) {
    child = newNode(frame, frame.name);
    node.index.set(frame.name, child);
    node.children.push(child);
  }
  if (frame.file) child.files.add(frame.file);
  return child;
}

// The frames of a site in the order of the tree, none where the tree does not hold it. A function that calls itself is
// begun at its innermost call, so that its outer ones are among its callers.
function pathOf(frames) {
  if (state.callersOf !== null) {
    const start = frames.findIndex((frame) => frame.name === state.callersOf);
    return start < 0 ? [] : frames.slice(start);
  }
  return state.inverted ? frames : [...frames].reverse();
}

function add(node, site) {
  const now = site.now[state.measure];
  const before = site.before[state.measure];
  for (const side of ["now", "before"]) {
    node[side].bytes += site[side].bytes;
    node[side].count += site[side].count;
  }
  // With a base a bar is as wide as the larger of the two sides, so that what went can be seen as well.
  node.width += state.base ? Math.max(now, before) : now;
}

// The root, laid out from 0 to 1, holds everything.
export function callTree(sites) {
  const root = newNode(null, "everything");
  for (const site of sites) {
    const path = pathOf(site.frames);
    if (path.length === 0) continue;
    let node = root;
    add(node, site);
    for (const frame of path) {
      node = childOf(node, frame);
      add(node, site);
    }
  }
  const tree = hierarchy(root).each((node) => { node.value = node.data.width; });
  return partition()(tree.sort((a, b) => b.value - a.value));
}
