// SPDX-License-Identifier: Apache-2.0
// What the reader chose, and who is to know of it.

// filters: `thread`, `kind`, `module`: equal to; `smallest`, `largest`: size levels, both included; `since`, `until`:
// stretches of time, both included. null filters nothing.
export const noFilters = { thread: null, kind: null, module: null, smallest: null, largest: null, since: null, until: null };

const state = {
  view: null, // of data.views
  measure: "bytes", // or "count"
  base: null, // of data.bases
  inverted: false,
  callersOf: null, // the name of a function
  whole: false, // names of functions
  filters: noFilters,
};
const listeners = [];

export function onChange(listener) {
  listeners.push(listener);
}

export function change(news) {
  Object.assign(state, news);
  for (const listener of listeners) listener(news);
}

export default state;
