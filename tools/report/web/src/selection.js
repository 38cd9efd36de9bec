// SPDX-License-Identifier: Apache-2.0
// What a view holds at each site, of the blocks that pass the filters.
import { data, framesOf, kinds, levelOf, momentOf } from "./data.js";
import state from "./state.js";

const rest = -1; // instead of a site: the smaller sites, which the page has only the sum of

function passes(filters, cells, index) {
  const level = levelOf(cells.smallest[index]);
  const moment = momentOf(cells.oldest[index]);
  return (filters.thread === null || cells.thread[index] === filters.thread) &&
    (filters.kind === null || cells.kind[index] === filters.kind) &&
    (filters.smallest === null || level >= filters.smallest) && (filters.largest === null || level <= filters.largest) &&
    (filters.since === null || (moment !== null && moment >= filters.since)) &&
    (filters.until === null || (moment !== null && moment <= filters.until));
}

const siteFrames = (site) => framesOf(data.sites[site]);

function passesModule(module, site) {
  return module === null || siteFrames(site)[0].module === module;
}

const emptySum = () => ({ bytes: 0, count: 0, oldest: 0, newest: 0, smallest: Infinity, largest: 0, kinds: new Set(), threads: new Set() });

function add(sum, cells, index) {
  const { smallest, count, oldest } = { smallest: cells.smallest[index], count: cells.count[index], oldest: cells.oldest[index] };
  sum.bytes += count * smallest + cells.bytes[index];
  sum.count += count;
  sum.smallest = Math.min(sum.smallest, smallest);
  sum.largest = Math.max(sum.largest, smallest + cells.larger[index]);
  sum.kinds.add(kinds[cells.kind[index]]);
  if (cells.thread[index]) sum.threads.add(cells.thread[index]);
  if (!oldest) return;
  sum.oldest = sum.oldest ? Math.min(sum.oldest, oldest) : oldest;
  sum.newest = Math.max(sum.newest, oldest + cells.younger[index]);
}

function forEachPassing({ cells }, visit) {
  const modules = new Map();
  const inModule = (site) => {
    if (!modules.has(site)) modules.set(site, passesModule(state.filters.module, site));
    return modules.get(site);
  };
  cells.site.forEach((site, index) => {
    if (inModule(site) && passes(state.filters, cells, index)) visit(site, index);
  });
}

const filtered = () => Object.values(state.filters).some((value) => value !== null);

// Map from the site to its sum. The rest can be shown, but not filtered.
function sums(part) {
  const bySite = new Map();
  forEachPassing(part, (site, index) => {
    if (!bySite.has(site)) bySite.set(site, emptySum());
    add(bySite.get(site), part.cells, index);
  });
  if (part.rest.count && !filtered()) bySite.set(rest, { ...emptySum(), ...part.rest });
  return bySite;
}

// [site, frames, now, before]: of every site that holds something on either side. Frames are innermost first.
export function chosenSites() {
  const now = sums(state.view);
  const before = state.base ? sums(state.base) : new Map();
  const sites = new Set([...now.keys(), ...before.keys()]);
  const smaller = [{ name: "(smaller sites)", short: "(smaller sites)", place: "", file: "", line: 0, module: "", inlined: false }];
  return [...sites].map((site) => ({
    frames: site === rest ? smaller : siteFrames(site),
    now: now.get(site) ?? emptySum(),
    before: before.get(site) ?? emptySum(),
  }));
}

// [bytes, count] by size level.
export function chosenLevels(part) {
  const levels = data.levels.map(() => ({ bytes: 0, count: 0 }));
  forEachPassing(part, (_site, index) => {
    const level = levels[levelOf(part.cells.smallest[index])];
    level.count += part.cells.count[index];
    level.bytes += part.cells.count[index] * part.cells.smallest[index] + part.cells.bytes[index];
  });
  return levels;
}

export function total(sites, side) {
  return sites.reduce((sum, site) => ({ bytes: sum.bytes + site[side].bytes, count: sum.count + site[side].count }), { bytes: 0, count: 0 });
}
