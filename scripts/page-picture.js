// SPDX-License-Identifier: Apache-2.0
// Draws the top of a report's page. Usage: page-picture.js NODE_MODULES HTML PNG
const { createRequire } = require("node:module");
const { join, resolve } = require("node:path");
const { pathToFileURL } = require("node:url");

const [modules, html, png] = process.argv.slice(2).map((path) => resolve(path));
const { chromium } = createRequire(join(modules, "_"))("playwright-core");

async function draw() {
  const browser = await chromium.launch({ executablePath: process.env.QUARL_CHROMIUM ?? "/usr/bin/chromium", args: ["--no-sandbox", "--disable-gpu"] });
  const page = await browser.newPage({ viewport: { width: 1280, height: 1000 } });
  await page.goto(pathToFileURL(html).href);
  await page.waitForSelector("body[data-ready]", { state: "attached" });
  await page.click("#view-peak");
  await page.screenshot({ path: png, clip: { x: 0, y: 0, width: 1280, height: 1000 }, fullPage: true });
  await browser.close();
}

draw();
