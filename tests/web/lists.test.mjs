// The connection screen's two lists: partnered rows drawn from styled runs;
// favourites added from the form as typed, picked back into it, removed
// through "Are you sure?"; both the rows and the partnered switch kept across
// a restart. (Picking a partnered row: backend_down.test.mjs.)

import assert from "node:assert/strict";
import { before, test } from "node:test";
import { answerAlert, fields, openAlert, partneredRows, useTarget } from "./fixture.mjs";

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

test("partnered rows show title, styled subtitle and players/maxPlayers in the backend's order", async () => {
  const grey = "rgb(200, 200, 200)";
  assert.deepEqual(await partneredRows(page), [
    {
      title: "Example Network",
      players: "128/500",
      runs: [["Survival", "rgb(85, 255, 85) bold"], [" and ", grey], ["SkyBlock", "rgb(255, 170, 0)"]],
    },
    {
      title: "Minigames",
      players: "-/-",
      runs: [
        ["A", "rgb(255, 85, 85)"], ["B ", "rgb(255, 85, 255)"], ["Italic ", "rgb(85, 85, 255) italic"],
        ["Under ", "rgb(85, 255, 255) underline"], ["Gone ", "rgb(170, 170, 170) line-through"],
        ["Dark", "rgb(85, 85, 85) line-through"],
      ],
    },
  ]);
});

test("a favourite is stored as typed, with 19132 for an empty port, the same one twice if added twice", async () => {
  await add("play.example.net", "19133");
  await add("play.example.net", "19133");
  await add("", "");
  await add("http://x:1", "1");
  assert.deepEqual(await rows(), ["play.example.net:19133", "play.example.net:19133", ":19132", "http://x:1:1"]);
  // Adding does not touch the fields.
  assert.deepEqual(await fields(page), ["http://x:1", "1"]);
});

test("picking a row fills the form and scrolls it into view", async () => {
  for (let i = 0; i < 5; i++) await add(`filler-${i}.example.net`, "19132");
  await page.evaluate(() => { document.querySelector("#connect-scroll").scrollTop = 0; });
  await page.fill("#ip", "something else");
  await page.fill("#port", "1");
  assert.equal(await formInView(), false, "with nine rows the form starts below the fold");
  await page.focus("#ip");

  await page.locator('[data-testid="favourite-pick"]', { hasText: "play.example.net:19133" }).first().click();
  assert.deepEqual(await fields(page), ["play.example.net", "19133"]);
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
  await answerAlert(page, "No");
  assert.ok((await rows()).includes(":19132"));

  await row.locator('[data-testid="favourite-delete"]').click();
  await openAlert(page);
  await answerAlert(page, "Yes");
  await page.waitForFunction(() => ![...document.querySelectorAll('[data-testid="favourite-pick"]')].some((b) => b.textContent === ":19132"));
  assert.deepEqual((await rows()).slice(0, 3), ["play.example.net:19133", "play.example.net:19133", "http://x:1:1"]);
});

test("favourites, equal ones included, and the partnered switch are kept across a restart", async () => {
  const kept = await rows();
  await page.click("#featured-toggle");
  await page.waitForFunction(() => document.querySelector("#featured-toggle").getAttribute("aria-checked") === "false");
  assert.deepEqual(page.errors.map(String), []);
  await page.close();

  await app.target.restart();
  page = await app.open();
  assert.deepEqual(await rows(), kept);
  assert.equal(await page.getAttribute("#featured-toggle", "aria-checked"), "false");
  assert.equal(await page.locator('[data-testid="partnered-row"]').count(), 0);
  assert.equal(await page.locator(".mc-toggle__label").isVisible(), true);
  await page.click("#featured-toggle");
  assert.equal((await partneredRows(page)).length, 2);
  assert.deepEqual(page.errors.map(String), []);
});
