// The partnered list: rows drawn from styled runs, picked into the form,
// hidden and shown by its switch.

import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { launchBrowser, openPage, screenshot, styleOf, startTarget } from "./harness.mjs";

let target;
let browser;
let page;

before(async () => {
  target = await startTarget();
  browser = await launchBrowser();
  page = await openPage(browser.context, target);
  await page.waitForSelector('[data-testid="partnered-row"]');
});

after(async () => {
  await browser?.close();
  await target?.close();
});

/** Each row as title, players and the runs of its subtitle with their computed look. */
async function shownRows() {
  return page.$$eval('[data-testid="partnered-row"]', (rows) => rows.map((row) => ({
    title: row.querySelector('[data-testid="partnered-title"]').textContent,
    players: row.querySelector('[data-testid="partnered-players"]').textContent,
    runs: [...row.querySelectorAll(".run")].map((run) => {
      const style = getComputedStyle(run);
      return {
        text: run.textContent,
        color: style.color,
        weight: style.fontWeight,
        italic: style.fontStyle === "italic",
        line: style.textDecorationLine,
      };
    }),
  })));
}

test("rows show title, styled subtitle and players/maxPlayers in the backend's order", async () => {
  const plain = "none";
  assert.deepEqual(await shownRows(), [
    {
      title: "Example Network",
      players: "128/500",
      runs: [
        { text: "Survival", color: "rgb(85, 255, 85)", weight: "700", italic: false, line: plain },
        { text: " and ", color: "rgb(200, 200, 200)", weight: "400", italic: false, line: plain },
        { text: "SkyBlock", color: "rgb(255, 170, 0)", weight: "400", italic: false, line: plain },
      ],
    },
    {
      title: "Minigames",
      players: "-/-",
      runs: [
        { text: "A", color: "rgb(255, 85, 85)", weight: "400", italic: false, line: plain },
        { text: "B ", color: "rgb(255, 85, 255)", weight: "400", italic: false, line: plain },
        { text: "Italic ", color: "rgb(85, 85, 255)", weight: "400", italic: true, line: plain },
        { text: "Under ", color: "rgb(85, 255, 255)", weight: "400", italic: false, line: "underline" },
        { text: "Gone ", color: "rgb(170, 170, 170)", weight: "400", italic: false, line: "line-through" },
        { text: "Dark", color: "rgb(85, 85, 85)", weight: "400", italic: false, line: "line-through" },
      ],
    },
  ]);
});

test("rows are in the partnered button style, title and subtitle at 17, players at 18", async () => {
  assert.deepEqual(await styleOf(page, '[data-testid="partnered-row"]', ["background-color", "color", "box-shadow", "height"]), {
    "background-color": "rgb(90, 90, 90)",
    color: "rgb(255, 255, 255)",
    "box-shadow": "rgb(70, 70, 70) -2px -2px 0px 0px inset, rgb(120, 120, 120) 2px 2px 0px 0px inset",
    height: "50px",
  });
  assert.deepEqual(await styleOf(page, '[data-testid="partnered-title"]', ["font-size"]), { "font-size": "17px" });
  assert.deepEqual(await styleOf(page, '[data-testid="partnered-subtitle"]', ["font-size"]), { "font-size": "17px" });
  assert.deepEqual(await styleOf(page, '[data-testid="partnered-players"]', ["font-size"]), { "font-size": "18px" });

  const row = await page.locator('[data-testid="partnered-row"]').first().boundingBox();
  await page.mouse.move(row.x + row.width / 2, row.y + row.height / 2);
  await page.mouse.down();
  assert.deepEqual(await styleOf(page, '[data-testid="partnered-row"]', ["background-color", "box-shadow", "outline"]), {
    "background-color": "rgb(0, 140, 0)",
    "box-shadow": "rgb(0, 120, 0) -2px -2px 0px 0px inset, rgb(0, 220, 0) 2px 2px 0px 0px inset",
    outline: "rgb(220, 220, 220) solid 2px",
  });
  await page.mouse.move(2, 2);
  await page.mouse.up();
});

test("picking a row fills the form and dismisses the keyboard", async () => {
  await page.fill("#ip", "typed.example.net");
  await page.focus("#port");
  await page.locator('[data-testid="partnered-row"]').nth(1).click();
  assert.deepEqual([await page.inputValue("#ip"), await page.inputValue("#port")], ["mini.example.org", "19133"]);
  assert.equal(await page.evaluate(() => document.activeElement === document.body), true);
});

test("the switch: heading at 20, track of 35 by 15, knob of 15 by 24 sliding 0.1 s", async () => {
  assert.equal(await page.locator(".mc-toggle__label").textContent(), "Partnered Servers");
  assert.deepEqual(await styleOf(page, ".mc-toggle__label", ["font-size", "color"]), { "font-size": "20px", color: "rgb(255, 255, 255)" });
  assert.deepEqual(await styleOf(page, ".mc-toggle__track", ["width", "height", "background-color", "outline"]), {
    width: "35px",
    height: "15px",
    "background-color": "rgb(0, 160, 0)",
    outline: "rgb(70, 70, 70) solid 2px",
  });
  assert.deepEqual(await styleOf(page, ".mc-toggle__knob", ["width", "height", "background-color", "box-shadow", "transition"]), {
    width: "15px",
    height: "24px",
    "background-color": "rgb(220, 220, 220)",
    "box-shadow": "rgb(120, 120, 120) -2px -2px 0px 0px inset, rgb(255, 255, 255) 2px 2px 0px 0px inset",
    transition: "transform 0.1s linear",
  });
});

test("switching off hides the rows and keeps the heading; on brings them back", async () => {
  const knobOn = await page.locator(".mc-toggle__knob").boundingBox();
  const track = await page.locator(".mc-toggle__track").boundingBox();
  assert.equal(knobOn.x + knobOn.width / 2 - (track.x + track.width / 2), 11);

  await page.click("#featured-toggle");
  await page.waitForFunction(() => document.querySelector("#featured-toggle").getAttribute("aria-checked") === "false");
  assert.equal(await page.locator('[data-testid="partnered-row"]').count(), 0);
  assert.equal(await page.locator(".mc-toggle__label").isVisible(), true);
  assert.deepEqual(await styleOf(page, ".mc-toggle__track", ["background-color"]), { "background-color": "rgb(90, 90, 90)" });
  await page.waitForFunction(() => {
    const knob = document.querySelector(".mc-toggle__knob").getBoundingClientRect();
    const track = document.querySelector(".mc-toggle__track").getBoundingClientRect();
    return knob.x + knob.width / 2 - (track.x + track.width / 2) === -11;
  });
  await screenshot(page, "partnered-off-phone");

  await page.click("#featured-toggle");
  await page.waitForSelector('[data-testid="partnered-row"]');
  assert.equal(await page.locator('[data-testid="partnered-row"]').count(), 2);
  assert.equal(await page.getAttribute("#featured-toggle", "aria-checked"), "true");
});

test("the page logged no error", () => {
  assert.deepEqual(page.errors.map(String), []);
});
