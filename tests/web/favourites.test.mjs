// Favourites: added from the form as typed, picked back into the form,
// removed through "Are you sure?". Rows are the app's; fields are the page's.

import assert from "node:assert/strict";
import { before, test } from "node:test";
import { noAlert, openAlert, useTarget } from "./fixture.mjs";

const app = useTarget();
let page;

before(async () => {
  page = await app.open();
});

async function rows(on = page) {
  return on.locator('[data-testid="favourite-pick"]').allTextContents();
}

async function add(ip, port) {
  const count = (await rows()).length;
  await page.fill("#ip", ip);
  await page.fill("#port", port);
  await page.click("#add-favourite");
  await page.waitForFunction((n) => document.querySelectorAll('[data-testid="favourite-row"]').length === n, count + 1);
}

/** Whether the form item is fully inside the scrolling area. */
async function formInView() {
  return page.evaluate(() => {
    const scroller = document.querySelector("#connect-scroll").getBoundingClientRect();
    const form = document.querySelector(".form").getBoundingClientRect();
    return form.top >= scroller.top - 1 && form.bottom <= scroller.bottom + 1;
  });
}

test("a favourite is stored as typed, with 19132 for an empty port", async () => {
  await add("play.example.net", "19133");
  await add("", "");
  await add("http://x:1", "1");
  assert.deepEqual(await rows(), ["play.example.net:19133", ":19132", "http://x:1:1"]);
  // Adding does not touch the fields.
  assert.deepEqual([await page.inputValue("#ip"), await page.inputValue("#port")], ["http://x:1", "1"]);
});

test("picking a row fills the form and scrolls it into view", async () => {
  for (let i = 0; i < 5; i++) await add(`filler-${i}.example.net`, "19132");
  await page.evaluate(() => { document.querySelector("#connect-scroll").scrollTop = 0; });
  await page.fill("#ip", "something else");
  await page.fill("#port", "1");
  assert.equal(await formInView(), false, "with eight rows the form starts below the fold");
  await page.focus("#ip");

  await page.locator('[data-testid="favourite-pick"]', { hasText: "play.example.net:19133" }).click();
  assert.deepEqual([await page.inputValue("#ip"), await page.inputValue("#port")], ["play.example.net", "19133"]);
  assert.equal(await formInView(), true);
  assert.equal(await page.evaluate(() => document.activeElement === document.body), true, "keyboard dismissed");
});

test("the trash button asks \"Are you sure?\"; No keeps the row, Yes removes it", async () => {
  await page.evaluate(() => { document.querySelector("#connect-scroll").scrollTop = 0; });
  const row = page.locator('[data-testid="favourite-row"]', { hasText: ":19132" }).first();
  await row.locator('[data-testid="favourite-delete"]').click();
  assert.deepEqual(await openAlert(page), {
    key: "confirmDelete",
    title: "Are you sure?",
    message: "Do you want to remove the server from your favorites list?",
    buttons: [{ label: "No", role: "cancel" }, { label: "Yes", role: "destructive" }],
  });
  await page.locator("dialog#alert[open]").getByRole("button", { name: "No", exact: true }).click();
  await noAlert(page);
  assert.ok((await rows()).includes(":19132"));

  await row.locator('[data-testid="favourite-delete"]').click();
  await openAlert(page);
  await page.locator("dialog#alert[open]").getByRole("button", { name: "Yes", exact: true }).click();
  await noAlert(page);
  await page.waitForFunction(() => ![...document.querySelectorAll('[data-testid="favourite-pick"]')].some((b) => b.textContent === ":19132"));
  assert.deepEqual((await rows()).slice(0, 2), ["play.example.net:19133", "http://x:1:1"]);
});

test("the page logged no error", () => {
  assert.deepEqual(page.errors.map(String), []);
});
