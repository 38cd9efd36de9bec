// SPDX-License-Identifier: Apache-2.0
// Bundles src/ and its packages into one HTML file.
// Usage: node build.js NODE_MODULES OUTPUT
import { readFile, writeFile } from "node:fs/promises";
import { createRequire } from "node:module";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

const [modules, output] = process.argv.slice(2).map((path) => resolve(path));
const contained = ["d3-hierarchy", "uplot"];
const source = join(dirname(fileURLToPath(import.meta.url)), "src");
const esbuild = createRequire(join(modules, "_"))("esbuild");

// Packages that import their own style sheets from scripts: the page has its own instead.
async function bundle(entry, loader = {}) {
  const result = await esbuild.build({
    entryPoints: [join(source, entry)],
    bundle: true,
    minify: true,
    write: false,
    format: "iife",
    target: "es2020",
    legalComments: "inline",
    nodePaths: [modules],
    loader,
  });
  return result.outputFiles[0].text;
}

// The page goes to others: it carries the licences of what it contains.
const licence = async (name) => `${name}\n\n${(await readFile(join(modules, name, "LICENSE"), "utf8")).trim()}`;
const banner = `/*!\n${(await Promise.all(contained.map(licence))).join("\n\n")}\n*/\n`;

// A closing tag inside a script or style would end it.
const inline = (text) => text.replaceAll("</script", "<\\/script").replaceAll("</style", "<\\/style");

const page = await readFile(join(source, "page.html"), "utf8");
const [script, style] = await Promise.all([bundle("main.js", { ".css": "empty" }), bundle("style.css")]);
const whole = page.replace("/*style*/", () => inline(style)).replace("/*script*/", () => banner + inline(script));
await writeFile(output, whole);
