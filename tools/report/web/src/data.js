// SPDX-License-Identifier: Apache-2.0
// The report that the tool put into the page: JSON, packed by gzip, in base64. load() must have ended before the rest is
// used.

let data;
let frameList, stackFrames;

async function unpacked(text) {
  const bytes = Uint8Array.from(atob(text), (letter) => letter.charCodeAt(0));
  const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream("gzip"));
  return JSON.parse(await new Response(stream).text());
}

export async function load() {
  data = await unpacked(document.getElementById("data").textContent.trim());
  const { strings, frames } = data;
  frameList = frames.name.map((name, index) => ({
    name: strings[name], short: strings[frames.short[index]], place: strings[frames.place[index]],
    file: strings[frames.file[index]], line: frames.line[index], module: strings[frames.module[index]],
    inlined: frames.inlined[index] === 1,
  }));
  stackFrames = new Map();
  return data;
}

// The frames of a call trace, innermost first.
export function framesOf(stack) {
  let frames = stackFrames.get(stack);
  if (frames) return frames;
  frames = [];
  for (let at = stack; at !== 0; at = data.stacks.caller[at]) frames.push(frameList[data.stacks.frame[at]]);
  stackFrames.set(stack, frames);
  return frames;
}

export const textOf = (frame, whole) => (whole ? frame.name : frame.short) + frame.place;
export const baseName = (path) => path.slice(path.lastIndexOf("/") + 1);

export const kinds = ["heap", "mapping", "file mapping"];

// The index of the size level that a block of `size` bytes falls into.
export function levelOf(size) {
  let level = data.levels.length - 1;
  while (data.levels[level].from > size) level -= 1;
  return level;
}

// The index of the stretch of time, of data.moments, that `time` falls into; nothing for a time that is not known.
export function momentOf(time) {
  if (!time || data.moments.length === 0) return null;
  let moment = data.moments.length - 1;
  while (moment > 0 && data.moments[moment] > time) moment -= 1;
  return moment;
}

export { data };
