// The Info tab: the menu, "< Back", the page that stays chosen while the
// other tab is shown, and links that all lead to pages of the help itself.

import assert from "node:assert/strict";
import { before, test } from "node:test";
import { useTarget } from "./fixture.mjs";

// The menu's rows; each leads to a page headed by the row's text.
const MENU = ["How to use", "Troubleshooting", "Became a partner", "About"];

const app = useTarget();
let page;

before(async () => {
  page = await app.open();
  await page.click("#tab-info");
});

test("the menu leads to the four pages; leaving the tab keeps the page shown", async () => {
  assert.deepEqual(await page.locator(".menu__row").allTextContents(), MENU);
  await page.getByRole("button", { name: "Troubleshooting", exact: true }).click();
  await page.click("#tab-connection");
  assert.equal(await page.locator("#help-view").isVisible(), false);
  await page.click("#tab-info");
  assert.equal(await page.locator('[data-testid="help-page"]').getAttribute("data-page"), "ToubleshootingView");
  await page.click('[data-testid="help-back"]');
  assert.equal(await page.locator("#help").getAttribute("data-view-id"), "0");
});

test("every link opens a page of the help whose heading it names; none leads elsewhere", async () => {
  const requests = [];
  page.on("request", (outgoing) => requests.push(outgoing.url()));
  const links = () => page.locator('[data-testid="help-page"] a').allTextContents();
  // Follows `path` from a menu row, two links deep at most.
  async function follow(menu, path) {
    await page.getByRole("button", { name: menu, exact: true }).click();
    assert.equal(await page.locator('[data-testid="help-page"] h2').first().textContent(), menu);
    assert.equal(await page.locator('[data-testid="help-back"]').textContent(), "< Back");
    for (const text of path) {
      await page.locator('[data-testid="help-page"] a', { hasText: text }).first().click();
      assert.equal(await page.locator('[data-testid="help-page"] h2').first().textContent(), text, `${menu} > ${path.join(" > ")}`);
      assert.ok((await page.locator('[data-testid="help-page"] p').count()) >= 2, text);
    }
  }
  for (const menu of MENU) {
    await follow(menu, []);
    const first = await links();
    await page.click('[data-testid="help-back"]');
    for (const text of first) {
      await follow(menu, [text]);
      const second = await links();
      await page.click('[data-testid="help-back"]');
      for (const next of second) {
        await follow(menu, [text, next]);
        await page.click('[data-testid="help-back"]');
      }
    }
  }
  assert.deepEqual(page.errors.map(String), []);
  assert.deepEqual(requests, [], "no link left the page");
});
