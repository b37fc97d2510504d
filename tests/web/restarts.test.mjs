// What the app keeps from one launch to the next: favourites and the
// partnered list's switch. (A message dismissed for good is kept in the same
// store; app.test.mjs follows it across page loads.)

import assert from "node:assert/strict";
import { test } from "node:test";
import { useTarget } from "./fixture.mjs";

const app = useTarget();

test("favourites and the partnered switch are kept across a restart", async () => {
  const before = await app.open();
  await before.waitForSelector('[data-testid="partnered-row"]');
  await before.fill("#ip", "kept.example.net");
  await before.fill("#port", "19140");
  await before.click("#add-favourite");
  await before.waitForFunction(() => [...document.querySelectorAll('[data-testid="favourite-pick"]')].some((row) => row.textContent === "kept.example.net:19140"));
  await before.click("#featured-toggle");
  await before.waitForFunction(() => document.querySelector("#featured-toggle").getAttribute("aria-checked") === "false");
  await before.close();

  await app.target.restart();
  const page = await app.open();
  try {
    assert.deepEqual(await page.locator('[data-testid="favourite-pick"]').allTextContents(), ["kept.example.net:19140"]);
    assert.equal(await page.getAttribute("#featured-toggle", "aria-checked"), "false");
    assert.equal(await page.locator('[data-testid="partnered-row"]').count(), 0);
    assert.equal(await page.locator(".mc-toggle__label").isVisible(), true);

    await page.click("#featured-toggle");
    await page.waitForSelector('[data-testid="partnered-row"]');
    assert.equal(await page.locator('[data-testid="partnered-row"]').count(), 2);
    assert.deepEqual(page.errors.map(String), []);
  } finally {
    await page.close();
  }
});
