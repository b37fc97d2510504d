// A launch with the backend away: no message, the partnered list's one
// placeholder row, which can be picked, and Run works all the same.

import assert from "node:assert/strict";
import { test } from "node:test";
import { fields, joinAsConsole, partneredRows, press, useTarget, waitForButton } from "./fixture.mjs";

const app = useTarget({ backend: false });

test("the placeholder row fills the form, no message comes, and Run still sends a console on", async () => {
  const page = await app.open({ dismissMessage: false });
  assert.deepEqual(await partneredRows(page), [
    { title: "Partnered servers", players: "-/-", runs: [["unavailable!", "rgb(255, 255, 255) bold"]] },
  ]);
  await page.fill("#ip", "typed.example.net");
  await page.locator('[data-testid="partnered-row"]').click();
  assert.deepEqual(await fields(page), ["0.0.0.0", "19132"]);
  assert.equal(await page.evaluate(() => document.querySelector("dialog#alert").open), false);

  await press(page, "127.0.0.1");
  await waitForButton(page, "Stop");
  const joined = await joinAsConsole(app.target);
  assert.equal(joined.code, 0, joined.output);
  assert.equal(joined.transfer, "127.0.0.1:19132");
  await page.click("#run");
  await waitForButton(page, "Run");
  assert.deepEqual(page.errors.map(String), []);
});
