// Drives uhfd's web page in Debian's Chromium: node page_check.mjs URL OUTDIR TOKEN.
// Each step waits for what the page should come to show; the first that
// never does fails the run with its name. test_page.py checks the gateway side.
import fs from "node:fs";
import path from "node:path";
import puppeteer from "puppeteer-core";

const [url, outDir, token] = process.argv.slice(2);
const browser = await puppeteer.launch({
  executablePath: "/usr/bin/chromium",
  userDataDir: fs.mkdtempSync(path.join(outDir, "chromium-")),
  args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
         "--disable-background-networking", "--disable-component-update", "--disable-sync"],
});
const page = await browser.newPage();
const errors = [];
page.on("pageerror", e => errors.push(e.message));

async function step(name, fn) {
  try {
    await fn();
    console.log("ok:", name);
  } catch (e) {
    console.log("FAILED:", name, "-", e.message, "| message bar:", await page.$eval("#msg", m => m.textContent));
    await browser.close();
    process.exit(1);
  }
}
const until = (fn, ...args) => page.waitForFunction(fn, { timeout: 20000, polling: 100 }, ...args);
const text = (id, want) => until((i, w) => document.getElementById(i).textContent === w, id, want);
const card = "#readers article", power = `${card} [name=power]`;
const epcs = () => page.$$eval("#tags td.epc", tds => tds.map(td => td.textContent));
const rows = "document.querySelectorAll('#tags tr').length";
const detailsFetched = () => page.waitForResponse(r => r.url().endsWith("/api/v1/readers/sim") &&
                                                       r.request().method() === "GET", { timeout: 20000 });
await page.setViewport({ width: 1280, height: 900 });
await page.goto(url, { waitUntil: "domcontentloaded" });

await step("the five simulated EPCs, the reader, its settings and the broker show", async () => {
  await until(() => new Set([...document.querySelectorAll("#tags td.epc")].map(td => td.textContent)).size === 5);
  for (const [id, want] of [["s-stream", "live"], ["s-tags", "5"], ["s-readers", "1/1"], ["s-broker", "connected"]])
    await text(id, want);
  await until(c => document.querySelector(c + " [name=power]").value === "30" &&
                   document.querySelector(c + " [name=antennas]").value === "1,2", card);
});

await step("read counts grow from the stream alone", async () => {
  const sum = `[...document.querySelectorAll("#tags tr")].reduce((a, tr) => a + Number(tr.cells[3].textContent), 0)`;
  await until(`${sum} > ${await page.evaluate(sum)}`);
});

await step("without the token a write says one is needed, and the edit stays", async () => {
  await page.$eval(power, i => { i.value = ""; });
  await page.type(power, "20");
  await page.click(`${card} button.apply`);
  await text("msg", "sim settings: this needs a token; enter it above");
  await detailsFetched();
  await detailsFetched();  // the refresh loop is sequential: the first answer has been applied by now
  const v = await page.$eval(power, i => i.value);
  if (v !== "20") throw new Error(`the power box holds ${JSON.stringify(v)}`);
});

await step("the token is taken, never shown back, and power 20 goes through", async () => {
  await page.type("#token", token);
  await page.keyboard.press("Enter");
  await text("token-state", "(set for this tab)");
  if (await page.evaluate(t => document.body.innerText.includes(t) ||
                               [...document.querySelectorAll("input")].some(i => i.value.includes(t)), token))
    throw new Error("the token is on the page");
  await page.click(`${card} button.apply`);
  await text("msg", "sim settings: done");
  await until(p => !document.querySelector(p).classList.contains("dirty"), power);
});

await step("the filter keeps only matching rows", async () => {
  const part = (await epcs())[0].slice(-6);
  await page.type("#filter", part.toLowerCase());
  const shown = await epcs();
  if (!shown.length || shown.some(e => !e.includes(part))) throw new Error(`rows ${shown}`);
  await page.$eval("#filter", f => { f.value = ""; f.dispatchEvent(new Event("input")); });
});

await step("stop: the tags depart, into the log and out of the table", async () => {
  await page.click(`${card} button.stop`);
  await until(`${rows} === 0 && document.querySelectorAll("#log .kind.depart").length >= 5`);
  await text("s-tags", "0");
});

await step("start: they arrive again, newest first in the log", async () => {
  await page.click(`${card} button.start`);
  await until(`document.querySelector("#log li .kind").textContent === "arrive" && ${rows} >= 5`);
});

await step("no horizontal overflow at 375 px; screenshots", async () => {
  await page.setViewport({ width: 375, height: 800 });
  await page.evaluate(() => new Promise(r => requestAnimationFrame(() => requestAnimationFrame(r))));
  const [wide, window] = await page.evaluate(() => [document.documentElement.scrollWidth, document.documentElement.clientWidth]);
  if (wide > window) throw new Error(`the page is ${wide} px wide in a ${window} px window`);
  for (const [name, width] of [["page-375.png", 375], ["page.png", 1280]]) {
    await page.setViewport({ width, height: 900 });
    await page.screenshot({ path: path.join(outDir, name), fullPage: true });
    console.log("screenshot:", path.join(outDir, name));
  }
  if (errors.length) throw new Error("script errors: " + errors.join("; "));
});
await browser.close();
