// What the app keeps from one launch to the next: favourites, the partnered
// list's switch and a message dismissed for good; and what it doesn't: a
// message answered "Ok" comes back.

import assert from "node:assert/strict";
import { test } from "node:test";
import { answerAlert, openAlert, useTarget } from "./fixture.mjs";

const app = useTarget();

test("a message answered \"Ok\" comes back at the next launch; one dismissed for good doesn't", async () => {
  const first = await app.open({ dismissMessage: false });
  assert.equal((await openAlert(first)).title, "Important message!");
  await answerAlert(first, "Ok");
  await first.close();

  await app.target.restart();
  const second = await app.open({ dismissMessage: false });
  const alert = await openAlert(second);
  assert.equal(alert.title, "Important message!");
  assert.equal(alert.message, "Welcome to Ferrylink! Servers may be slow today.");
  const answered = second.waitForResponse((response) => new URL(response.url()).pathname === "/api/message/dismiss");
  await answerAlert(second, "Don't show this message again");
  assert.equal((await answered).status(), 204);
  await second.close();

  await app.target.restart({ expectMessage: false });
  const third = await app.open({ dismissMessage: false });
  try {
    await assert.rejects(third.locator("dialog#alert[open]").waitFor({ timeout: 1500 }));
  } finally {
    await third.close();
  }
});

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

  await app.target.restart({ expectMessage: false });
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
