// Run and Stop with the real bridge behind them: a simulated console joins
// the advertised world and is sent on to the form's server; Stop, and the
// app going to the background, end the bridge.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launchBrowser, openPage, screenshot, styleOf, startTarget } from "./harness.mjs";
import { joinAsConsole } from "./launcher.mjs";

let target;
let browser;
let page;

before(async () => {
  target = await startTarget();
  browser = await launchBrowser();
  page = await openPage(browser.context, target);
});

after(async () => {
  await browser?.close();
  await target?.close();
});

async function waitForLabel(label) {
  await page.waitForFunction((text) => document.querySelector("#run").textContent === text, label, { timeout: 15000 });
}

async function waitForScene(phase) {
  await page.waitForFunction((wanted) => document.body.dataset.scene === wanted, phase, { timeout: 15000 });
}

/** A console that finds no bridge gives up; a short wait is enough to tell. */
async function assertNoBridge() {
  const attempt = await joinAsConsole(target, { timeout: 1500 });
  assert.notEqual(attempt.code, 0, attempt.output);
  assert.equal(attempt.transfer, null);
}

test("Run: a red Stop, the status block, a console sent on, the run reported; Stop ends it", async () => {
  await page.fill("#ip", " HTTPS://127.0.0.1:1/ ");
  await page.fill("#port", "port 19133");
  await page.click("#run");
  await waitForLabel("Stop");
  assert.equal(await page.textContent("#server-state"), "Server is running and will transfer to 127.0.0.1:19133!");
  assert.equal(await page.locator("#status").isVisible(), true);
  assert.deepEqual(await styleOf(page, "#run", ["background-color", "color"]), {
    "background-color": "rgb(140, 0, 0)",
    color: "rgb(255, 255, 255)",
  });
  // The fields keep what was typed; only the run uses the cleaned values.
  assert.deepEqual([await page.inputValue("#ip"), await page.inputValue("#port")], [" HTTPS://127.0.0.1:1/ ", "port 19133"]);

  const joined = await joinAsConsole(target);
  assert.equal(joined.code, 0, joined.output);
  assert.equal(joined.transfer, "127.0.0.1:19133");
  // The backend hears of the run.
  await target.backend.waitForRequest("POST /postLog");
  await page.locator("#status").scrollIntoViewIfNeeded();
  await screenshot(page, "bridge-running-phone");

  await page.click("#run");
  await waitForLabel("Run");
  await page.waitForFunction(() => document.querySelector("#server-state").textContent === "Server is not running!");
  assert.equal(await page.locator("#status").isVisible(), false);
  assert.deepEqual(await styleOf(page, "#run", ["background-color"]), { "background-color": "rgb(0, 140, 0)" });
  await assertNoBridge();
});

test("a page hidden for two seconds sends the app to the background, which stops the bridge", async () => {
  await waitForScene("active");
  await page.fill("#ip", "127.0.0.1");
  await page.fill("#port", "19132");
  await page.click("#run");
  await waitForLabel("Stop");
  assert.equal((await joinAsConsole(target)).transfer, "127.0.0.1:19132");

  await page.evaluate(() => {
    Object.defineProperty(document, "visibilityState", { value: "hidden", configurable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  });
  await waitForScene("background");
  await waitForLabel("Run");
  await page.waitForFunction(() => document.querySelector("#server-state").textContent === "Server is not running!");
  await assertNoBridge();

  await page.evaluate(() => {
    Object.defineProperty(document, "visibilityState", { value: "visible", configurable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  });
  await waitForScene("active");
  // Back in front, a new run works on the new event-loop group.
  await page.click("#run");
  await waitForLabel("Stop");
  assert.equal((await joinAsConsole(target)).transfer, "127.0.0.1:19132");
  await page.click("#run");
  await waitForLabel("Run");
});

test("the page logged no error", () => {
  assert.deepEqual(page.errors.map(String), []);
});
