// Numbers, times and elements as the page shows them.

const numbers = new Intl.NumberFormat("en");
export const grouped = (value) => (value === null || value === undefined ? "–" : numbers.format(value));
export const signed = (value) => (value > 0 ? "+" : "") + numbers.format(value);

export function clockTime(seconds) {
  if (!seconds) return "not recorded";
  return new Date(seconds * 1000).toISOString().replace("T", " ").slice(0, 19) + " UTC";
}

// An element with attributes and children; texts are never read as HTML.
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on")) made.addEventListener(key.slice(2), value);
    else if (value !== null && value !== undefined) made.setAttribute(key, value);
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}
