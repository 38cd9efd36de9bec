// The call tree that the flame graph shows, of one snapshot or of the difference between two.
import { holdings, siteAt, stackOf } from "./data.js";

// A function is one bar whatever line of it calls.
function nameOf(frame) {
  if (!frame.function) return frame.text;
  return frame.text.startsWith("near ") ? `near ${frame.function}` : frame.function;
}

function childOf(node, frame) {
  const name = nameOf(frame);
  let child = node.index.get(name);
  if (!child) {
    child = { name, module: frame.module, value: 0, before: 0, children: [], index: new Map() };
    node.index.set(name, child);
    node.children.push(child);
  }
  return child;
}

// measure: 0 for bytes, 1 for blocks. With a base a node is as wide as the larger of the two sides, so that what went
// can be seen as well.
export function flameTree(snapshot, base, measure) {
  const now = holdings(snapshot);
  const before = base ? holdings(base) : new Map();
  const root = { name: "everything", module: "", value: 0, before: 0, children: [], index: new Map() };
  for (const index of new Set([...now.keys(), ...before.keys()])) {
    const amount = now.get(index)?.[measure] ?? 0;
    const earlier = before.get(index)?.[measure] ?? 0;
    let node = root;
    for (const frame of [null, ...stackOf(siteAt(index))]) {
      if (frame) node = childOf(node, frame);
      node.now = (node.now ?? 0) + amount;
      node.before += earlier;
      node.width = (node.width ?? 0) + (base ? Math.max(amount, earlier) : amount);
    }
  }
  return finished(root);
}

function finished(node) {
  node.value = node.width ?? 0;
  node.now ??= 0;
  node.children.forEach(finished);
  delete node.index;
  return node;
}
