// SPDX-License-Identifier: Apache-2.0
// Numbers, times and elements as the page shows them.

const numbers = new Intl.NumberFormat("en");
export const grouped = (value) => (value === null || value === undefined ? "–" : numbers.format(value));
export const signed = (value) => (value > 0 ? "+" : "") + numbers.format(value);
export const counted = (value, noun) => `${grouped(value)} ${noun}${value === 1 ? "" : "s"}`;
export const hex = (address) => `0x${address.toString(16).padStart(8, "0")}`;
export const percent = (part, whole) => `${((100 * part) / (whole || 1)).toFixed(1)}%`;

export function clockTime(seconds) {
  if (!seconds) return "not recorded";
  return new Date(seconds * 1000).toISOString().replace("T", " ").slice(0, 19) + " UTC";
}

// For a column of times, whose zone its head says.
export const shortTime = (seconds) => (seconds ? clockTime(seconds).slice(0, 19) : "–");

export function duration(seconds) {
  for (const [length, unit] of [[86400, "d"], [3600, "h"], [60, "min"]]) {
    if (seconds >= length) return `${+(seconds / length).toFixed(1)} ${unit}`;
  }
  return `${seconds} s`;
}

// An element with attributes and children; texts are never read as HTML.
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on")) made.addEventListener(key.slice(2), value);
    else if (value !== null && value !== undefined) made.setAttribute(key, value);
  }
  made.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return made;
}
