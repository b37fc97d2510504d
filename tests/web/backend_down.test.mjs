// A launch with the backend away: no message, the partnered list's one
// placeholder row, and Run works all the same.

import assert from "node:assert/strict";
import { before, test } from "node:test";
import { joinAsConsole, useTarget } from "./fixture.mjs";

const app = useTarget({ backend: false });
let page;

before(async () => {
  page = await app.open({ dismissMessage: false });
});

test("the partnered list shows its placeholder, which can be picked", async () => {
  await page.waitForSelector('[data-testid="partnered-row"]');
  const rows = await page.$$eval('[data-testid="partnered-row"]', (elements) => elements.map((row) => ({
    title: row.querySelector('[data-testid="partnered-title"]').textContent,
    players: row.querySelector('[data-testid="partnered-players"]').textContent,
    runs: [...row.querySelectorAll(".run")].map((run) => ({
      text: run.textContent,
      color: getComputedStyle(run).color,
      weight: getComputedStyle(run).fontWeight,
    })),
  })));
  assert.deepEqual(rows, [{
    title: "Partnered servers",
    players: "-/-",
    runs: [{ text: "unavailable!", color: "rgb(255, 255, 255)", weight: "700" }],
  }]);

  await page.fill("#ip", "typed.example.net");
  await page.locator('[data-testid="partnered-row"]').click();
  assert.deepEqual([await page.inputValue("#ip"), await page.inputValue("#port")], ["0.0.0.0", "19132"]);
});

test("no message is presented, and Run still sends a console on", async () => {
  assert.equal(await page.evaluate(() => document.querySelector("dialog#alert").open), false);
  await page.fill("#ip", "127.0.0.1");
  await page.fill("#port", "19132");
  await page.click("#run");
  await page.waitForFunction(() => document.querySelector("#run").textContent === "Stop", null, { timeout: 15000 });
  const joined = await joinAsConsole(app.target);
  assert.equal(joined.code, 0, joined.output);
  assert.equal(joined.transfer, "127.0.0.1:19132");
  await page.click("#run");
  await page.waitForFunction(() => document.querySelector("#run").textContent === "Run");
  assert.deepEqual(page.errors.map(String), []);
});
