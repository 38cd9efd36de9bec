// The page as a reader uses it, in headless Chromium: figures, search, sort, zoom, keyboard, without a network.
// With QUARL_SCREENSHOTS set to a folder, pictures are left there: wide and narrow, light and dark.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { existsSync, mkdtempSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { after, before, test } from "node:test";
import { fileURLToPath, pathToFileURL } from "node:url";

const tool = process.env.QUARL_TOOL;
const packages = createRequire(join(process.env.QUARL_PAGE_PACKAGES, "_"));
const { chromium } = packages("playwright-core");
const here = dirname(fileURLToPath(import.meta.url));
const folder = mkdtempSync(join(tmpdir(), "quarl-page-"));
const browserPath = process.env.QUARL_CHROMIUM ?? "/usr/bin/chromium";
const options = { skip: existsSync(browserPath) ? false : "chromium is not installed" };
const log = join(folder, "sample_4242_quarl_autosnap.log");
const html = join(folder, "report.html");
const grouped = (number) => number.toLocaleString("en");
let browser, summary, requests;

const report = (...parts) => execFileSync(tool, ["report", ...parts], { stdio: ["ignore", "pipe", "ignore"], maxBuffer: 1 << 28 });

before(async () => {
  execFileSync("python3", [join(here, "make_log.py"), log]);
  report(log, "--format", "html", "-o", html);
  summary = JSON.parse(report(log, "--format", "json"));
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

async function open(more = {}) {
  const page = await browser.newPage({ viewport: { width: 1280, height: 900 }, ...more });
  const faults = [];
  requests = [];
  page.on("pageerror", (error) => faults.push(error.message));
  page.on("console", (message) => message.type() === "error" && faults.push(message.text()));
  page.on("request", (request) => requests.push(request.url()));
  await page.goto(pathToFileURL(html).href);
  await page.waitForSelector("#site-table tbody tr");
  return { page, faults };
}

const texts = (page, selector) => page.locator(selector).allTextContents();
const number = (text) => Number(text.replaceAll(",", ""));

test("the figures are those of the JSON, and nothing is fetched", options, async () => {
  const { page, faults } = await open();
  assert.equal(await page.textContent("#unfreed-bytes"), grouped(summary.unfreed.bytes));
  assert.equal(await page.textContent("#unfreed-count"), grouped(summary.unfreed.count));
  assert.equal(await page.textContent("#site-count"), grouped(summary.site_count));
  assert.equal(await page.textContent("#peak"), grouped(summary.held.peak));
  const rows = await texts(page, "#site-table tbody tr td:first-child");
  assert.deepEqual(rows.map(number), summary.sites.slice(0, rows.length).map((site) => site.bytes));
  assert.match(await page.textContent("#flame-detail"), new RegExp(`everything — ${grouped(summary.unfreed.bytes)} bytes, 100.0%`));
  const bars = await texts(page, "#histogram .number");
  assert.deepEqual(bars, summary.histogram.map((level) => `${grouped(level.count)} blocks, ${grouped(level.bytes)} bytes`));
  assert.equal(await page.locator("#plot canvas").count(), 1);
  assert.deepEqual(requests.filter((url) => !url.startsWith("file:") && !url.startsWith("data:")), []);
  assert.deepEqual(faults, []);
  await page.close();
});

test("the table sorts, searches and opens traces", options, async () => {
  const { page, faults } = await open();
  await page.click('button[data-column="count"]');
  const counts = (await texts(page, "#site-table tbody tr td:nth-child(2)")).map(number);
  assert.deepEqual(counts, [...counts].sort((a, b) => b - a));
  assert.equal(await page.getAttribute("#site-table th:nth-child(2)", "aria-sort"), "descending");
  await page.click('button[data-column="count"]');
  assert.equal((await texts(page, "#site-table tbody tr td:nth-child(2)")).map(number)[0], Math.min(...summary.sites.map((site) => site.count)));
  await page.fill("#search", "LIBDRAW");
  const expected = summary.sites.filter((site) => site.frames.some((frame) => frame.module.includes("libdraw")));
  assert.match(await page.textContent("#shown"), new RegExp(`^${expected.length} of ${summary.site_count} sites$`));
  await page.focus("#site-table tbody tr:first-child .place button");
  await page.keyboard.press("Enter");
  const [bytes] = (await texts(page, "#site-table tbody tr:first-child td:first-child")).map(number);
  const opened = await texts(page, ".trace li");
  const site = expected.find((each) => each.bytes === bytes && each.frames.length === opened.length);
  assert.ok(opened.every((line, index) => line.startsWith(site.frames[index].text)));
  await page.fill("#search", "no such place");
  assert.equal(await page.locator("#site-table tbody tr").count(), 0);
  assert.deepEqual(faults, []);
  await page.close();
});

const widest = (page) => page.locator("#flame g.frame rect").evaluateAll((bars) => bars.map((bar) => bar.getBoundingClientRect().width));

test("the flame graph zooms, finds, switches and compares", options, async () => {
  const { page, faults } = await open({ reducedMotion: "reduce" });
  const detail = () => page.textContent("#flame-detail");
  await page.focus("#flame");
  await page.keyboard.press("ArrowDown");
  await page.keyboard.press("ArrowDown");
  const chosen = await detail();
  assert.notEqual(chosen.split(" — ")[0], "everything");
  const full = await page.locator("#flame").evaluate((box) => box.clientWidth);
  const small = () => page.locator("#flame g.frame.current rect").evaluate((bar) => bar.getBoundingClientRect().width);
  assert.ok((await small()) < full - 2);
  await page.keyboard.press("Enter");
  await page.waitForFunction((width) => [...document.querySelectorAll("#flame g.frame rect")].filter((bar) => bar.getBoundingClientRect().width >= width - 2).length >= 3, full);
  await page.keyboard.press("Escape");
  await page.waitForFunction((width) => [...document.querySelectorAll("#flame g.frame rect")].filter((bar) => bar.getBoundingClientRect().width >= width - 2).length < 3, full);
  assert.match(await detail(), /^everything/);
  await page.fill("#find", "draw");
  await page.waitForFunction(() => [...document.querySelectorAll("#flame rect")].some((bar) => bar.getAttribute("fill") === "#E600E6" || bar.parentNode.__data__.highlight));
  await page.click("#reset");
  await page.click('.switch >> text="Blocks"');
  assert.match(await detail(), new RegExp(`${grouped(summary.unfreed.count)} blocks, 100.0%`));
  await page.click('.switch >> text="Bytes"');
  await page.selectOption("#base", { index: 1 });
  const first = JSON.parse(report(`${log}@1`, "--format", "json"));
  assert.ok((await detail()).includes(`+${grouped(summary.unfreed.bytes - first.unfreed.bytes)} bytes (from ${grouped(first.unfreed.bytes)} to ${grouped(summary.unfreed.bytes)})`));
  assert.deepEqual(faults, []);
  await page.close();
});

test("it fits narrow and wide screens, in light and dark", options, async () => {
  const grounds = new Set();
  for (const colorScheme of ["light", "dark"]) {
    for (const width of [1280, 390]) {
      const { page, faults } = await open({ colorScheme, viewport: { width, height: 900 } });
      assert.ok((await page.evaluate(() => document.documentElement.scrollWidth)) <= width);
      assert.ok((await widest(page)).every((bar) => bar <= width));
      grounds.add(await page.evaluate(() => getComputedStyle(document.body).backgroundColor));
      if (process.env.QUARL_SCREENSHOTS) await page.screenshot({ path: join(process.env.QUARL_SCREENSHOTS, `${colorScheme}-${width}.png`), fullPage: true });
      assert.deepEqual(faults, []);
      await page.close();
    }
  }
  assert.equal(grounds.size, 2);
});

test("the charts follow the width of the window", options, async () => {
  const { page } = await open();
  const width = (selector) => page.evaluate((chart) => document.querySelector(chart).getBoundingClientRect().width, selector);
  for (const [chart, box] of [["#flame svg", "#flame"], ["#plot .uplot", "#plot"]]) {
    const resize = async (pixels) => {
      await page.setViewportSize({ width: pixels, height: 900 });
      await page.waitForFunction(([inner, outer]) =>
        document.querySelector(inner)?.getBoundingClientRect().width === document.querySelector(outer).clientWidth, [chart, box]);
    };
    await resize(1280);
    const wide = await width(chart);
    await resize(500);
    assert.ok((await width(chart)) < wide && (await width(box)) < 500, chart);
  }
  await page.close();
});

test("a pprof file says the same to an independent reader", async () => {
  const { Profile } = packages("pprof-format");
  const { gunzipSync } = await import("node:zlib");
  const profile = Profile.decode(gunzipSync(report("leaks", log, "--format", "pprof")));
  const strings = profile.stringTable.strings;
  assert.deepEqual(profile.sampleType.map((type) => `${strings[type.type]}/${strings[type.unit]}`), ["inuse_objects/count", "inuse_space/bytes"]);
  const sums = [0, 1].map((column) => profile.sample.reduce((sum, sample) => sum + Number(sample.value[column]), 0));
  assert.deepEqual(sums, [summary.unfreed.count, summary.unfreed.bytes]);
  const known = new Set(profile.location.map((location) => location.id));
  assert.ok(profile.sample.every((sample) => sample.locationId.every((id) => known.has(id))));
});
