// SPDX-License-Identifier: Apache-2.0
// The page as a reader uses it, in headless Chromium: figures, views, filters, search, zoom, comparison, keyboard alone,
// contrast, without a network. With QUARL_SCREENSHOTS set to a folder, pictures are left there.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { existsSync, mkdtempSync, rmSync, statSync, truncateSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { basename, dirname, join } from "node:path";
import { after, before, test } from "node:test";
import { fileURLToPath, pathToFileURL } from "node:url";

const tool = process.env.QUARL_TOOL;
const packages = createRequire(join(process.env.QUARL_PAGE_PACKAGES, "_"));
const { chromium } = packages("playwright-core");
const here = dirname(fileURLToPath(import.meta.url));
const folder = mkdtempSync(join(tmpdir(), "quarl-page-"));
const browserPath = process.env.QUARL_CHROMIUM ?? "/usr/bin/chromium";
const options = { skip: existsSync(browserPath) ? false : "chromium is not installed" };
const endings = { chain: "quarl_autosnap", records: "quarlAll", peak: "quarlAll", sites: "quarlAll" };
const logOf = (kind) => join(folder, `${kind}_4242_${endings[kind]}.log`);
const grouped = (number) => number.toLocaleString("en");
const number = (text) => Number(text.replaceAll(",", "").replace("+", ""));
let browser;

const report = (...parts) => execFileSync(tool, ["report", ...parts], { stdio: ["ignore", "pipe", "ignore"], maxBuffer: 1 << 28, env: { ...process.env, LC_ALL: "C.UTF-8" } });
const json = (...parts) => JSON.parse(report(...parts, "--format", "json"));

function pageOf(...parts) {
  const html = join(folder, `page-${Math.random()}.html`);
  report(...parts, "--format", "html", "-o", html);
  return html;
}

const made = new Map();
function page(kind) {
  if (!made.has(kind)) {
    execFileSync("python3", [join(here, "make_log.py"), kind, logOf(kind)]);
    made.set(kind, pageOf(logOf(kind)));
  }
  return made.get(kind);
}

before(async () => {
  for (const kind of Object.keys(endings)) page(kind);
  if (options.skip) return;
  browser = await chromium.launch({
    executablePath: browserPath,
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking", "--disable-component-update", "--disable-sync"],
  });
});

after(async () => {
  await browser?.close();
  rmSync(folder, { recursive: true });
});

// Runs `use` with the page open; no script may fail, and nothing may be asked of a network.
async function withPage(html, use, more = {}) {
  const opened = await browser.newPage({ viewport: { width: 1280, height: 900 }, ...more });
  const faults = [];
  opened.on("pageerror", (error) => faults.push(error.message));
  opened.on("console", (message) => message.type() === "error" && faults.push(message.text()));
  opened.on("request", (request) => /^(file|data|blob):/.test(request.url()) || faults.push(request.url()));
  await opened.goto(pathToFileURL(html).href);
  await opened.waitForSelector("body[data-ready]", { state: "attached" });
  await use(opened);
  assert.deepEqual(faults, []);
  await opened.close();
}

const texts = (opened, selector) => opened.locator(selector).allTextContents();
const sums = (text) => text.match(/[\d,]+(?= (bytes|blocks|calls))/g).map(number);
const chosen = async (opened) => sums(await opened.textContent("#chosen"));
const column = async (opened, table, id) => {
  const ids = await opened.locator(`${table} thead button`).evaluateAll((buttons) => buttons.map((button) => button.dataset.column));
  return texts(opened, `${table} tbody tr > td:nth-child(${ids.indexOf(id) + 1})`);
};

async function allRows(opened, table) {
  while (await opened.locator(`${table} .more`).isVisible()) await opened.click(`${table} .more`);
}

async function rowsOfSites(opened) {
  await allRows(opened, "#site-table");
  const [bytes, count] = [(await column(opened, "#site-table", "bytes")).map(number), (await column(opened, "#site-table", "count")).map(number)];
  const names = await opened.locator("#site-table .place > button").evaluateAll((buttons) => buttons.map((button) => button.title));
  return names.map((name, index) => [bytes[index], count[index], name]).sort();
}

const expectedRows = (sites) => sites.map((site) => [site.bytes, site.count, site.name]).sort();
const usage = ({ bytes, count }) => [bytes, count];

test("the figures are those of the text report and of the JSON", options, async () => {
  for (const kind of ["chain", "records"]) {
    const summary = json(logOf(kind));
    const text = String(report(logOf(kind)));
    await withPage(page(kind), async (opened) => {
      const field = (name) => text.match(new RegExp(`^ *${name} +(.*)$`, "m"))[1];
      const total = async (id) => grouped(number(await opened.textContent(id)));
      assert.ok(field("Unfreed").startsWith(`${await total("#unfreed-bytes")} bytes in ${await total("#unfreed-count")} blocks`));
      assert.match(field("Held"), new RegExp(`at most ${await total("#peak")}\\b`));
      assert.equal(field("Faults"), await total("#fault-count"));
      assert.equal(await total("#site-count"), grouped(summary.site_count));
      assert.deepEqual(await rowsOfSites(opened), expectedRows(summary.sites));
      assert.deepEqual(await texts(opened, "#levels .number"), summary.histogram.map((level) =>
        `${grouped(level.count)} block${level.count === 1 ? "" : "s"}, ${grouped(level.bytes)} bytes`));
      const operations = summary.operations.map((row) => [row.operation, grouped(row.calls), grouped(row.failed), grouped(row.bytes)]);
      const rows = await opened.locator("#statistics tbody tr").evaluateAll((lines) => lines.map((line) => [...line.cells].map((cell) => cell.textContent)));
      assert.deepEqual(rows.sort(), operations.sort());
      const mappings = (await column(opened, "#mappings", "bytes")).map(number);
      const held = ["mappings", "files"].map((name) => sums(field(name).replace(/block\b/, "blocks")));
      assert.deepEqual([mappings.reduce((a, b) => a + b, 0), mappings.length], [held[0][0] + held[1][0], held[0][1] + held[1][1]]);
      const head = await opened.textContent("#head");
      for (const part of [logOf(kind), summary.log.program, "2026-01-01 00:", `quarl ${String(execFileSync(tool, ["--version"])).match(/\d+\.\d+\.\d+/)[0]}`]) assert.ok(head.includes(part), part);
    });
  }
});

test("threads, faults and what grows are as their own reports say", options, async () => {
  const threads = json("threads", logOf("records")).threads;
  const [fault] = json("faults", logOf("records")).faults;
  for (const kind of ["chain", "records"]) {
    const grown = json("grow", logOf(kind)).sites;
    await withPage(page(kind), async (opened) => {
      await allRows(opened, "#grow");
      assert.deepEqual((await column(opened, "#grow", "last")).map(number), grown.map((site) => site.points.at(-1)[0]));
      assert.deepEqual(await column(opened, "#grow", "steadiness"), grown.map((site) => site.steadiness.toFixed(2)));
      if (kind !== "records") return;
      for (const [id, key] of [["allocations", "allocations"], ["bytes_allocated", "bytes_allocated"], ["bytes_held", "bytes_held"]])
        assert.deepEqual((await column(opened, "#threads", id)).map(number), threads.map((thread) => thread[key]));
      const told = await opened.textContent("#faults .fault");
      for (const part of [fault.fault, `${grouped(fault.size)} bytes`, `thread ${fault.thread}`, fault.frames[0].text, `${grouped(fault.above.distance)} bytes away`]) assert.ok(told.includes(part), part);
    });
  }
});

test("each view has what its own report has, and a filter what its option lets through", options, async () => {
  const log = logOf("records");
  const members = { leaks: "unfreed", peak: "live", hot: "allocated", temporary: "temporary" };
  await withPage(page("records"), async (opened) => {
    for (const [verb, member] of Object.entries(members)) {
      await opened.click(`#view-${verb}`);
      const whole = json(verb, log);
      assert.deepEqual(await chosen(opened), usage(whole[member]), verb);
      assert.deepEqual(await rowsOfSites(opened), expectedRows(whole.sites), verb);
      assert.match(await opened.textContent("#flame-detail"), new RegExp(`^everything — ${grouped(whole[member].bytes)} bytes, 100.0%$`));
      const filters = [
        [{ thread: "202" }, ["--thread", "202"]],
        [{ smallest: "1,000", largest: "100,000" }, ["--min-size", "1000", "--max-size", "99999"]],
        [{ module: "libdraw.so" }, ["--module", "*libdraw.so"]],
        [{ module: "libdraw.so", thread: "201" }, ["--module", "*libdraw.so", "--thread", "201"]],
      ];
      for (const [choices, parts] of filters) {
        for (const [name, label] of Object.entries(choices)) await opened.selectOption(`select[name=${name}]`, { label });
        const filtered = json(verb, log, ...parts);
        assert.deepEqual(await chosen(opened), usage(filtered[member]), `${verb} ${parts}`);
        assert.deepEqual(await rowsOfSites(opened), expectedRows(filtered.sites), `${verb} ${parts}`);
        await opened.click("#all");
      }
      assert.deepEqual(await chosen(opened), usage(whole[member]), `${verb}, with the filters cleared`);
    }
    // By age: what was asked for before a time is older than the rest of the run.
    await opened.click("#view-leaks");
    const times = await opened.locator("select[name=until] option").allTextContents();
    const time = times[Math.floor(times.length / 2)].match(/^[\d-]+ [\d:]+/)[0];
    const older = json("leaks", log, "--min-age", String(json(log).log.time - Date.parse(`${time.replace(" ", "T")}Z`) / 1000 + 1));
    await opened.selectOption("select[name=until]", { label: times.find((text) => text.startsWith(time)) });
    assert.deepEqual(await chosen(opened), usage(older.unfreed));
    assert.ok(older.unfreed.count > 0 && older.unfreed.count < json(log).unfreed.count);
  });
});

test("the timeline shows the peak that no point falls on, as the text does", options, async () => {
  const top = String(report("timeline", logOf("peak"))).match(/([\d,]+) \|/)[1];
  assert.equal(top, "67,109,012");
  await withPage(page("peak"), async (opened) => {
    assert.equal(await opened.textContent("#plot-detail"), `Highest: ${top} bytes by 2026-01-01 00:39:10 UTC.`);
    await opened.focus("#plot");
    await opened.keyboard.press("Enter");
    assert.match(await opened.textContent("#plot-detail"), new RegExp(`^2026-01-01 00:39:10 UTC: \\d+ bytes held, at most ${top} since the point before`));
    await opened.keyboard.press("Home");
    await opened.keyboard.press("ArrowRight");
    assert.match(await opened.textContent("#plot-detail"), /^2026-01-01 00:00:.*: 100 bytes held, at most 148 since/);
    assert.equal(await opened.textContent("#peak"), top);
  });
  const points = json("timeline", logOf("chain")).points;
  await withPage(page("chain"), async (opened) => {
    await opened.focus("#plot");
    for (const [index, point] of points.entries()) {
      await opened.keyboard.press(index === 0 ? "Home" : "ArrowRight");
      assert.match(await opened.textContent("#plot-detail"), new RegExp(`: ${grouped(point.bytes)} bytes held, at most ${grouped(point.peak)} since.*mappings: ${grouped(point.count)},`));
    }
  });
});

test("the timeline tells the resident memory where an event does", options, async () => {
  const { points } = json("timeline", logOf("chain"));
  const told = join(folder, "told.jsonl");
  const event = (point, index) => ({ v: 1, event: "snapshot", pid: 4242, time: point.time, kind: "auto", path: `/var/log/${basename(logOf("chain"))}`, resident: 1e6 + index });
  writeFileSync(told, points.slice(0, -1).map((point, index) => `${JSON.stringify(event(point, index))}\n`).join(""));
  await withPage(pageOf(logOf("chain"), "--events", told), async (opened) => {
    await opened.focus("#plot");
    for (const index of points.keys()) {
      await opened.keyboard.press(index === 0 ? "Home" : "ArrowRight");
      const text = await opened.textContent("#plot-detail");
      const wanted = index < points.length - 1 ? [`resident memory of the process: ${grouped(1e6 + index)} bytes`] : null;
      assert.deepEqual(text.match(/resident memory.*/)?.slice() ?? null, wanted);
    }
  });
});

test("the table sorts, searches and opens traces", options, async () => {
  const summary = json(logOf("chain"));
  await withPage(page("chain"), async (opened) => {
    const counts = async () => (await column(opened, "#site-table", "count")).map(number);
    await opened.click('#site-table button[data-column="count"]');
    assert.deepEqual(await counts(), (await counts()).sort((a, b) => b - a));
    assert.equal(await opened.getAttribute("#site-table th:nth-child(2)", "aria-sort"), "descending");
    await opened.click('#site-table button[data-column="count"]');
    assert.equal((await counts())[0], Math.min(...summary.sites.map((site) => site.count)));
    await opened.fill("#search", "LIBDRAW");
    const expected = summary.sites.filter((site) => site.frames.some((frame) => frame.module.includes("libdraw")));
    assert.equal(await opened.textContent("#shown"), `${expected.length} of ${summary.site_count} sites`);
    await opened.focus("#site-table tbody tr:first-child .place button");
    await opened.keyboard.press("Enter");
    const [bytes] = (await column(opened, "#site-table", "bytes")).map(number);
    const lines = await texts(opened, "#site-table .trace li");
    const site = expected.find((each) => each.bytes === bytes && each.frames.length === lines.length);
    assert.ok(lines.every((line, index) => line.startsWith(site.frames[index].text)));
    await opened.keyboard.press("Enter");
    assert.equal(await opened.locator("#site-table .trace").count(), 0);
    await opened.fill("#search", "no such place");
    assert.equal(await opened.locator("#site-table tbody tr").count(), 0);
  });
});

const bars = (opened, which = "") => opened.locator(`#flame .bar-of-call${which}`);
const widths = (locator) => locator.evaluateAll((found) => found.map((bar) => bar.getBoundingClientRect().width));
const detail = (opened) => opened.textContent("#flame-detail");

test("the graph zooms, and shares stay those of everything", options, async () => {
  const { unfreed } = json(logOf("chain"));
  await withPage(page("chain"), async (opened) => {
    const full = await opened.locator("#flame").evaluate((box) => box.clientWidth);
    await opened.focus("#flame");
    for (const key of ["ArrowDown", "ArrowDown"]) await opened.keyboard.press(key);
    const share = async () => {
      const [, bytes, percent] = (await detail(opened)).match(/— ([\d,]+) bytes, ([\d.]+)%/);
      assert.equal(percent, ((100 * number(bytes)) / unfreed.bytes).toFixed(1));
      return number(bytes);
    };
    const bytes = await share();
    assert.ok(bytes < unfreed.bytes);
    assert.ok((await widths(bars(opened, ".current")))[0] < full - 2);
    await opened.keyboard.press("Enter");
    assert.equal(await share(), bytes);
    assert.ok((await widths(bars(opened, ".current")))[0] >= full - 2);
    await opened.keyboard.press("ArrowDown");
    const inside = await share();
    assert.match(await detail(opened), new RegExp(`, ${((100 * inside) / bytes).toFixed(1)}% of station`));
    await opened.keyboard.press("Escape");
    assert.match(await detail(opened), new RegExp(`^everything — ${grouped(unfreed.bytes)} bytes, 100.0%$`));
    await bars(opened).nth(3).click();
    assert.equal((await widths(bars(opened))).filter((width) => width >= full - 2).length, 1 + Number(await bars(opened, ':not(.around)').first().getAttribute("aria-level")) - 1);
    await opened.click("#reset");
    await opened.click('.switch >> text="Blocks"');
    assert.match(await detail(opened), new RegExp(`${grouped(unfreed.count)} blocks, 100.0%`));
  });
});

test("find marks what it finds, minds no case, and takes any text", options, async () => {
  const { sites, unfreed } = json(logOf("chain"));
  const holding = sites.filter((site) => site.frames.some((frame) => frame.module.includes("libdraw"))).reduce((sum, site) => sum + site.bytes, 0);
  await withPage(page("chain"), async (opened) => {
    const colors = () => bars(opened).evaluateAll((found) => found.map((bar) => getComputedStyle(bar).backgroundColor));
    const plain = await colors();
    await opened.fill("#find", "LibDraw");
    assert.match(await opened.textContent("#found"), new RegExp(`^\\d+ bars, ${grouped(holding)} bytes, ${((100 * holding) / unfreed.bytes).toFixed(1)}%$`));
    const marked = await colors();
    assert.ok(marked.every((color, index) => color !== plain[index]), "every bar is either marked or faded");
    const [name, around] = [await texts(opened, "#flame .match"), await texts(opened, "#flame .other")];
    assert.ok(name.length > 0 && name.every((text) => text.startsWith("libdraw")) && around.every((text) => !text.startsWith("libdraw")));
    const color = (which) => bars(opened, which).first().evaluate((bar) => getComputedStyle(bar).backgroundColor);
    assert.notEqual(await color(".match"), await color(".other"));
    const visited = new Set();
    for (const key of ["Enter", "Enter", "Shift+Enter"]) {
      await opened.press("#find", key);
      assert.match(await detail(opened), /^libdraw/);
      visited.add(await bars(opened, ".current").getAttribute("id"));
    }
    assert.equal(visited.size, 2);
    for (const term of ["(", "[a-", "\\", "a+0x1.*"]) {
      await opened.fill("#find", term);
      assert.equal(await opened.textContent("#found"), "not found", term);
    }
    await opened.fill("#find", "");
    assert.deepEqual([await colors(), await opened.textContent("#found")], [plain, ""]);
  });
});

test("the graph has the call tree, and turned round the callers of all or of one function", options, async () => {
  const log = logOf("records");
  // What the tree of a report has, level by level, of what is a pixel wide or more.
  let pixels;
  const levels = (tree, whole = tree.bytes, level = 2) => tree.children.filter((node) => node.bytes * pixels >= whole).flatMap((node) =>
    [`${level} ${node.name} — ${grouped(node.bytes)} bytes, ${((100 * node.bytes) / whole).toFixed(1)}%`, ...levels(node, whole, level + 1)]);
  const drawn = async (opened) => (await bars(opened).evaluateAll((found) => found.map((bar) => `${bar.getAttribute("aria-level")} ${bar.getAttribute("aria-label")}`))).slice(1);
  await withPage(page("records"), async (opened) => {
    pixels = await opened.locator("#flame").evaluate((box) => box.clientWidth);
    for (const view of ["leaks", "peak", "hot", "temporary"]) {
      await opened.click(`#view-${view}`);
      assert.deepEqual((await drawn(opened)).sort(), levels(json(view, log, "--tree").tree).sort(), view);
    }
    await opened.click("#view-leaks");
    await opened.click('.switch >> text="Callers"');
    const { sites } = json("leaks", log);
    const innermost = new Map();
    for (const site of sites) innermost.set(site.frames[0].text, (innermost.get(site.frames[0].text) ?? 0) + site.bytes);
    const second = (await drawn(opened)).filter((text) => text.startsWith("2 "));
    for (const [name, bytes] of innermost) if (bytes * pixels < json(log).unfreed.bytes) innermost.delete(name);
    assert.deepEqual(second.map((text) => text.match(/2 (\S+) — ([\d,]+)/).slice(1)).sort(), [...innermost].map(([name, bytes]) => [name, grouped(bytes)]).sort());
    await opened.focus("#flame");
    await opened.keyboard.press("ArrowDown");
    const wanted = (await detail(opened)).split(" — ")[0];
    await opened.click("#callers");
    assert.equal(await opened.textContent("#callers-name"), wanted);
    assert.deepEqual((await drawn(opened)).sort(), levels(json("callers", `^${wanted}$`, log).tree).sort());
    await opened.click("#callers-end");
    assert.match(await detail(opened), new RegExp(`^everything — ${grouped(json(log).unfreed.bytes)} bytes`));
  });
});

test("a comparison has its changes in the table and the graph, and one scale for both sides", options, async () => {
  const [first, last] = [`${logOf("chain")}@1`, `${logOf("chain")}@8`];
  const check = (from, to) => async (opened) => {
    const { changes } = json("diff", from, to);
    const [earlier, later] = [json(from), json(to)];
    const signed = (value) => (value > 0 ? "+" : "") + grouped(value);
    assert.equal(await opened.getAttribute('#site-table th:has(button[data-column="change"])', "aria-sort"), "descending");
    await allRows(opened, "#site-table");
    const shown = await Promise.all(["change", "count-change"].map(async (id) => (await column(opened, "#site-table", id)).map(number)));
    const rows = shown[0].map((bytes, index) => [bytes, shown[1][index]]).filter(([bytes, count]) => bytes !== 0 || count !== 0);
    assert.deepEqual(rows.sort(), changes.map((change) => [change.bytes, change.count]).sort());
    assert.ok((await detail(opened)).includes(`${signed(later.unfreed.bytes - earlier.unfreed.bytes)} bytes (from ${grouped(earlier.unfreed.bytes)} to ${grouped(later.unfreed.bytes)})`));
    const most = Math.max(...[...earlier.histogram, ...later.histogram].map((level) => level.count));
    for (const [side, histogram] of [["now", later.histogram], ["before", earlier.histogram]]) {
      const measured = await opened.locator(`#levels .bar.${side}`).evaluateAll((tracks) => tracks.map((track) => track.firstChild.getBoundingClientRect().width / track.getBoundingClientRect().width));
      histogram.forEach((level, index) => assert.ok(Math.abs(measured[index] - level.count / most) < 0.01, `${side} ${level.size}`));
    }
    const tracks = await widths(opened.locator("#levels .bar"));
    assert.ok(tracks.every((width) => Math.abs(width - tracks[0]) < 0.5));
  };
  await withPage(page("chain"), async (opened) => {
    await opened.selectOption("#base", { label: "snapshot 1" });
    await check(first, last)(opened);
    await opened.selectOption("#base", { label: "nothing" });
    assert.equal(await opened.locator('#site-table button[data-column="change"]').count(), 0);
  });
  await withPage(pageOf("diff", first, last), check(first, last));
  await withPage(pageOf("diff", last, first), check(last, first));
});

test("10,000 sites of long names: all there, none fills the table, under 3 MB", options, async () => {
  const { sites } = json(logOf("sites"));
  assert.equal(sites.length, 10000);
  assert.ok(Math.min(...sites.map((site) => site.name.length)) > 300);
  assert.ok(Math.max(...String(report(logOf("sites"))).split("\n").map((line) => line.length)) < 200, "nor the text's");
  assert.ok(statSync(page("sites")).size < 3e6);
  await withPage(page("sites"), async (opened) => {
    assert.equal(await opened.textContent("#shown"), "10,000 sites");
    assert.match(await detail(opened), new RegExp(grouped(sites.reduce((sum, site) => sum + site.bytes, 0))));
    const heights = await opened.locator("#site-table tbody tr").evaluateAll((rows) => rows.map((row) => row.getBoundingClientRect().height));
    assert.ok(Math.max(...heights) < 80, `rows of ${Math.max(...heights)} pixels`);
    assert.ok((await opened.evaluate(() => document.documentElement.scrollWidth)) <= 1280);
    const shortest = await texts(opened, "#site-table .place > button");
    assert.ok(shortest.every((name) => name.includes("...")));
    await opened.check("#whole");
    assert.ok((await texts(opened, "#site-table .place > button")).every((name) => sites.some((site) => site.name === name)));
    await opened.fill("#search", "policy<int, 777>");
    assert.ok(number((await opened.textContent("#shown")).split(" ")[0]) >= 1);
    // Far fewer than are in the tree are drawn, and one that is too narrow is zoomed to.
    await opened.fill("#find", "policy<int, 9999>");
    await opened.press("#find", "Enter");
    assert.match(await detail(opened), /policy<int, 9999>/);
    assert.equal(await bars(opened, ".current.match").count(), 1);
  });
});

test("what is cut or missing is said on the page", options, async () => {
  const cut = join(folder, "cut_4242_quarlAll.log");
  execFileSync("cp", [logOf("records"), cut]);
  truncateSync(cut, statSync(cut).size - 100);
  const { notes } = json(cut).log;
  assert.ok(notes.some((note) => note.startsWith("Cut short")));
  await withPage(pageOf(cut), async (opened) => assert.deepEqual(await texts(opened, ".notes li"), notes));
});

test("everything can be done by keyboard alone", options, async () => {
  await withPage(page("records"), async (opened) => {
    const reach = async (selector) => {
      for (let steps = 0; steps < 200; ++steps) {
        await opened.keyboard.press("Tab");
        const [there, ring] = await opened.evaluate((wanted) => [document.activeElement.matches(wanted), getComputedStyle(document.activeElement).outlineStyle], selector);
        if (there) return ring;
      }
      return assert.fail(`${selector} is not reached`);
    };
    await reach('#views [role="tab"]');
    await opened.keyboard.press("ArrowRight");
    assert.equal(await opened.getAttribute("#view-peak", "aria-selected"), "true");
    assert.deepEqual(await chosen(opened), usage(json("peak", logOf("records")).live));
    for (const wanted of ["select[name=thread]", "input[name=measure]", "input[name=direction]", "#find", "#whole", "#callers:not(:disabled), #reset", "#flame"]) assert.notEqual(wanted.startsWith("input") ? "" : await reach(wanted), "none", wanted);
    await opened.keyboard.press("ArrowDown");
    assert.equal(await opened.getAttribute("#flame", "aria-activedescendant"), await bars(opened, ".current").getAttribute("id"));
    for (const wanted of ["#search", "#site-table th button", "#site-table .place button", "#plot", "#threads th button", "#statistics th button"]) await reach(wanted);
  });
});

// The contrast of every text with what is behind it, as WCAG 2 measures it.
function lowContrast() {
  const parse = (color) => { const [r, g, b, a = 1] = color.match(/[\d.]+/g).map(Number); return { r, g, b, a }; };
  const light = ({ r, g, b }) => [r, g, b].map((part) => part / 255).map((part) => (part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4))
    .reduce((sum, part, index) => sum + part * [0.2126, 0.7152, 0.0722][index], 0);
  const behind = (node) => { for (let at = node; at; at = at.parentElement) { const color = parse(getComputedStyle(at).backgroundColor); if (color.a > 0) return color; } return { r: 255, g: 255, b: 255 }; };
  const bad = [];
  for (const node of document.querySelectorAll("body *")) {
    const text = [...node.childNodes].filter((child) => child.nodeType === 3 && child.textContent.trim()).length;
    if (!text || !node.checkVisibility() || node.closest("script, option, :disabled")) continue;
    const style = getComputedStyle(node);
    const [front, back] = [light(parse(style.color)), light(behind(node))];
    const ratio = (Math.max(front, back) + 0.05) / (Math.min(front, back) + 0.05);
    const large = parseFloat(style.fontSize) >= 24 || (parseFloat(style.fontSize) >= 18.66 && Number(style.fontWeight) >= 700);
    if (ratio < (large ? 3 : 4.5)) bad.push(`${node.tagName}.${node.className}#${node.id} ${ratio.toFixed(2)} ${node.textContent.slice(0, 30)}`);
  }
  return bad;
}

test("it fits narrow and wide screens, and reads in light and dark", options, async () => {
  const grounds = new Set();
  for (const colorScheme of ["light", "dark"]) {
    for (const width of [1280, 390]) {
      await withPage(page("records"), async (opened) => {
        assert.ok((await opened.evaluate(() => document.documentElement.scrollWidth)) <= width);
        assert.ok((await widths(bars(opened))).every((bar) => bar <= width));
        assert.deepEqual(await opened.evaluate(lowContrast), []);
        await opened.fill("#find", "libdraw");
        await opened.press("#find", "Enter");
        assert.deepEqual(await opened.evaluate(lowContrast), []);
        const times = await opened.locator("td.time").evaluateAll((cells) => cells.filter((cell) => cell.checkVisibility()).map((cell) => {
          const range = document.createRange();
          range.selectNodeContents(cell);
          return range.getClientRects().length;
        }));
        assert.ok(times.every((lines) => lines === 1), "a time stays on one line");
        grounds.add(await opened.evaluate(() => getComputedStyle(document.body).backgroundColor));
        if (process.env.QUARL_SCREENSHOTS) await opened.screenshot({ path: join(process.env.QUARL_SCREENSHOTS, `${colorScheme}-${width}.png`), fullPage: true });
      }, { colorScheme, viewport: { width, height: 900 } });
    }
  }
  assert.equal(grounds.size, 2);
});

test("the charts follow the width of the window", options, async () => {
  await withPage(page("chain"), async (opened) => {
    const width = (selector) => opened.evaluate((chart) => document.querySelector(chart).getBoundingClientRect().width, selector);
    for (const [chart, box] of [["#flame .bar-of-call", "#flame"], ["#plot .uplot", "#plot"]]) {
      const resize = async (pixels) => {
        await opened.setViewportSize({ width: pixels, height: 900 });
        await opened.waitForFunction(([inner, outer]) =>
          document.querySelector(inner)?.getBoundingClientRect().width === document.querySelector(outer).clientWidth, [chart, box]);
      };
      await resize(1280);
      const wide = await width(chart);
      await resize(500);
      assert.ok((await width(chart)) < wide && (await width(box)) < 500, chart);
    }
  });
});

test("a pprof file says the same to an independent reader", async () => {
  const { Profile } = packages("pprof-format");
  const { gunzipSync } = await import("node:zlib");
  const summary = json(logOf("chain"));
  const profile = Profile.decode(gunzipSync(report("leaks", logOf("chain"), "--format", "pprof")));
  const strings = profile.stringTable.strings;
  assert.deepEqual(profile.sampleType.map((type) => `${strings[type.type]}/${strings[type.unit]}`), ["inuse_objects/count", "inuse_space/bytes"]);
  const all = [0, 1].map((value) => profile.sample.reduce((sum, sample) => sum + Number(sample.value[value]), 0));
  assert.deepEqual(all, [summary.unfreed.count, summary.unfreed.bytes]);
  const known = new Set(profile.location.map((location) => location.id));
  assert.ok(profile.sample.every((sample) => sample.locationId.every((id) => known.has(id))));
});
