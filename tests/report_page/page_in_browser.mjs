// Opens a round's page (report.html) in headless Chromium through the
// DevTools protocol (puppeteer-core, with Debian's chromium) and checks it as
// a reader would meet it: no script error, no request leaving the page's own
// folder, every expected plot drawn and every picture decoded. Saves a
// screenshot of the whole page and one of the picture viewer, and prints how
// long the page took to draw: from the start of navigation to the first
// screen drawn (the plots and pictures in view; the page makes the others as
// the reader scrolls to them), and to everything drawn; the page is opened
// twice, and the time is the second's, as a running browser opens it (the
// first, in the browser just started, is printed too). Measured, not judged.
//
// usage: node page_in_browser.mjs --page FILE --modules DIR --screenshot PNG
//          [--plots a,b,...] [--pictures N] [--marks N] [--text STRING]
//          [--unreadable N] [--browser PATH]
// --modules is the folder whose node_modules holds puppeteer-core; --text a
// string the page must show as text (and --unreadable the number of
// pictures it must name as not shown). Exit codes: 0 the page is as
// expected, 1 it is not (each finding on a line), 2 bad usage, 77 no browser
// here (ctest counts the test as skipped), saying so.
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import { createRequire } from "node:module";
import { pathToFileURL } from "node:url";

const args = {};
for (let i = 2; i < process.argv.length; i += 2) {
  const key = process.argv[i];
  if (!key.startsWith("--") || i + 1 >= process.argv.length) {
    console.error("page_in_browser: bad argument " + key);
    process.exit(2);
  }
  args[key.slice(2)] = process.argv[i + 1];
}
for (const needed of ["page", "modules", "screenshot"]) {
  if (!args[needed]) {
    console.error("page_in_browser: --" + needed + " is needed");
    process.exit(2);
  }
}

// Debian's Chromium, or the one named.
function findBrowser() {
  const names = args.browser ? [args.browser] : ["chromium", "chromium-browser"];
  for (const name of names) {
    if (name.includes("/")) {
      if (fs.existsSync(name)) return name;
      continue;
    }
    for (const dir of (process.env.PATH || "").split(":")) {
      const candidate = path.join(dir, name);
      if (dir && fs.existsSync(candidate)) return candidate;
    }
  }
  return null;
}
const browserPath = findBrowser();
if (!browserPath) {
  console.log("SKIPPED: no Chromium here (Debian's package 'chromium'; scripts/test.sh installs it): the page was not opened in a browser");
  process.exit(77);
}
let puppeteer;
try {
  puppeteer = createRequire(path.join(path.resolve(args.modules), "package.json"))("puppeteer-core");
} catch (e) {
  console.error("page_in_browser: puppeteer-core is not installed in " + args.modules +
    "/node_modules (run 'npm ci' there; the set-up scripts do): " + e.message);
  process.exit(1);
}

const pageFile = path.resolve(args.page);
const pageUrl = pathToFileURL(pageFile).href;
const folderUrl = pathToFileURL(path.dirname(pageFile)).href + "/";
const findings = [];
const profile = fs.mkdtempSync(path.join(os.tmpdir(), "round-page-browser-"));
const browser = await puppeteer.launch({
  executablePath: browserPath,
  headless: true,
  userDataDir: profile,
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
    "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});
try {
  const page = await browser.newPage();
  await page.setViewport({ width: 1400, height: 1000 });
  page.on("pageerror", (error) => findings.push("script error: " + error.message));
  page.on("console", (message) => {
    if (message.type() === "error") findings.push("console error: " + message.text());
  });
  page.on("dialog", async (dialog) => {
    findings.push("the page opened a dialog: " + dialog.message());
    await dialog.dismiss();
  });
  await page.setRequestInterception(true);
  page.on("request", (request) => {
    const url = request.url();
    if (url.startsWith("data:") || url.startsWith("blob:") || url.startsWith(folderUrl)) {
      request.continue();
    } else {
      findings.push("request outside the page's folder: " + url);
      request.abort();
    }
  });
  // Opened twice: first in the browser just started (it starts its page
  // process and compiles the scripts for the first time), then again, as a
  // reader's running browser opens it. The second is the page's draw time.
  async function open() {
    await page.goto(pageUrl, { waitUntil: "load" });
    await page.waitForFunction(() => window.roundPage !== undefined, { timeout: 60000 });
    return page.evaluate(() => window.roundPage);
  }
  const coldScreen = await open();
  const firstScreen = await open();
  // The plots and pictures further down are made as the reader scrolls to them.
  const everythingMs = await page.evaluate(() => window.roundPageAll());
  const seen = await page.evaluate(() => {
    // A plot is drawn when its canvas has pixels that are not blank.
    const plots = {};
    for (const holder of document.querySelectorAll("[data-plot]")) {
      const canvas = holder.querySelector("canvas");
      let inked = 0;
      if (canvas && canvas.width > 0) {
        const pixels = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height).data;
        for (let i = 3; i < pixels.length; i += 4) if (pixels[i] > 0) inked++;
      }
      plots[holder.dataset.plot] = inked;
    }
    const cards = [...document.querySelectorAll(".card")];
    const decoded = cards.filter((c) => {
      const img = c.querySelector("img.picture");
      return img && img.complete && img.naturalWidth > 0;
    }).length;
    const marks = document.querySelectorAll(".card img.overlay").length;
    return {
      plots, cards: cards.length, decoded, marks,
      text: document.body.innerText, scripts: document.scripts.length,
      unreadable: document.querySelectorAll("#unreadable li").length,
    };
  });
  for (const name of (args.plots || "").split(",").filter(Boolean)) {
    if (!(name in seen.plots)) findings.push("no plot " + name);
    else if (seen.plots[name] < 200) findings.push("plot " + name + " is blank (" + seen.plots[name] + " pixels drawn)");
  }
  if (args.pictures !== undefined) {
    const want = Number(args.pictures);
    if (seen.cards !== want) findings.push(seen.cards + " pictures on the page, " + want + " expected");
    const readable = want - Number(args.unreadable || 0);
    if (seen.decoded !== readable) findings.push(seen.decoded + " pictures decoded, " + readable + " expected");
  }
  if (args.marks !== undefined && seen.marks !== Number(args.marks)) {
    findings.push(seen.marks + " pictures with the stripe cut's marks, " + args.marks + " expected");
  }
  if (args.unreadable !== undefined && seen.unreadable !== Number(args.unreadable)) {
    findings.push(seen.unreadable + " pictures named as not shown, " + args.unreadable + " expected");
  }
  if (args.text !== undefined && !seen.text.includes(args.text)) {
    findings.push("the page does not show the text " + JSON.stringify(args.text));
  }
  if (seen.scripts !== 3) findings.push(seen.scripts + " script elements, 3 expected");
  await page.screenshot({ path: args.screenshot, fullPage: true });
  // The viewer, zoomed to the cut line of the first picture that has one.
  const withCut = await page.evaluate(() => {
    const data = JSON.parse(document.getElementById("round-data").textContent);
    return data.pictures.findIndex((p) => p.cut && p.cut.cut_line >= 0);
  });
  if (withCut >= 0) {
    await page.evaluate((i) => document.querySelector('.card[data-picture="' + i + '"]').click(), withCut);
    await page.click("#to-cut");
    await page.screenshot({ path: args.screenshot.replace(/\.png$/, "") + "-viewer.png" });
  }
  const stages = firstScreen.stages;
  console.log("draw time: " + firstScreen.drawnMs.toFixed(0) + " ms from the start of navigation to the first " +
    "screen drawn (" + firstScreen.plotsInView + " plots and " + firstScreen.picturesInView + " pictures in view; script " +
    "started at " + stages.script.toFixed(0) + " ms, data read by " + stages.parsed.toFixed(0) + ", page built by " +
    stages.built.toFixed(0) + ", plots in view drawn by " + stages.plotted.toFixed(0) + "); all " +
    Object.keys(seen.plots).length + " plots drawn and " + seen.decoded + " pictures decoded by " +
    everythingMs.toFixed(0) + " ms; in the browser just started, first screen drawn by " +
    coldScreen.drawnMs.toFixed(0) + " ms (script started at " + coldScreen.stages.script.toFixed(0) +
    "); plots: " + Object.keys(seen.plots).join(", ") +
    "; screenshot: " + args.screenshot);
} finally {
  await browser.close();
  fs.rmSync(profile, { recursive: true, force: true });
}
if (findings.length) {
  for (const f of findings) console.log("FAILED: " + f);
  process.exit(1);
}
console.log("the page is as expected");
