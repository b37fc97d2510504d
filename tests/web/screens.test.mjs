// The screens as a whole: background, black layer and frame, the stack of
// ConnectView, and a screenshot of each screen at phone and desktop size.

import assert from "node:assert/strict";
import { after, before, describe, test } from "node:test";
import { DESKTOP, launchBrowser, openPage, PHONE, screenshot, styleOf, startTarget } from "./harness.mjs";

let target;
let browser;
let page;

before(async () => {
  target = await startTarget();
  browser = await launchBrowser();
  page = await openPage(browser.context, target);
  await page.waitForSelector('[data-testid="partnered-row"]');
  for (const [ip, port] of [["play.example.net", "19132"], ["127.0.0.1", "19133"]]) {
    await page.fill("#ip", ip);
    await page.fill("#port", port);
    await page.click("#add-favourite");
  }
  await page.waitForFunction(() => document.querySelectorAll('[data-testid="favourite-row"]').length === 2);
  await page.fill("#ip", "");
  await page.fill("#port", "19132");
});

after(async () => {
  await browser?.close();
  await target?.close();
});

describe("chrome shared by both tabs", () => {
  test("the background is drawn by the page and covers the window; the black layer is 0.45", async () => {
    const cover = await page.evaluate(() => {
      const canvas = document.querySelector("#background");
      const box = canvas.getBoundingClientRect();
      const pixel = canvas.getContext("2d").getImageData(canvas.width / 2, canvas.height - 1, 1, 1).data;
      return { covers: box.left <= 0 && box.top <= 0 && box.right >= innerWidth && box.bottom >= innerHeight, drawn: pixel[3] === 255 };
    });
    assert.deepEqual(cover, { covers: true, drawn: true });
    assert.deepEqual(await styleOf(page, ".shade", ["background-color", "position"]), {
      "background-color": "rgba(0, 0, 0, 0.45)",
      position: "fixed",
    });
  });

  test("the frame: padding 10, bars of 4, a stroke of 12, bars of 4 the other way", async () => {
    assert.deepEqual(await styleOf(page, "#connect-view", ["padding"]), { padding: "10px" });
    assert.deepEqual(await styleOf(page, "#connect-view .frame", ["padding", "box-shadow"]), {
      padding: "4px",
      "box-shadow": "rgb(120, 120, 120) -4px -4px 0px 0px inset, rgb(255, 255, 255) 4px 4px 0px 0px inset",
    });
    assert.deepEqual(await styleOf(page, "#connect-view .frame__stroke", ["border"]), { border: "12px solid rgb(220, 220, 220)" });
    assert.deepEqual(await styleOf(page, "#connect-view .frame__inner", ["padding", "box-shadow"]), {
      padding: "4px",
      "box-shadow": "rgb(255, 255, 255) -4px -4px 0px 0px inset, rgb(120, 120, 120) 4px 4px 0px 0px inset",
    });
    // The Info tab wears the same frame.
    await page.click("#tab-info");
    assert.deepEqual(await styleOf(page, "#help-view .frame__stroke", ["border"]), { border: "12px solid rgb(220, 220, 220)" });
    assert.deepEqual(await styleOf(page, "#help", ["padding-left", "padding-right"]), { "padding-left": "15px", "padding-right": "15px" });
    await page.click("#tab-connection");
  });

  test("the page is dark and its text is in the Minecraft family", async () => {
    const look = await page.evaluate(() => ({
      scheme: getComputedStyle(document.documentElement).colorScheme,
      family: getComputedStyle(document.body).fontFamily,
      color: getComputedStyle(document.body).color,
    }));
    assert.equal(look.scheme, "dark");
    assert.match(look.family, /^Minecraft,/);
    assert.equal(look.color, "rgb(255, 255, 255)");
  });
});

describe("ConnectView", () => {
  test("three items in order, spaced 20, the form padded 50 below and 15 at the sides", async () => {
    const items = await page.$$eval(".stack > [data-item]", (elements) => elements.map((element) => element.id));
    assert.deepEqual(items, ["featured-servers", "favourite-servers", "connection-form"]);
    assert.deepEqual(await styleOf(page, ".stack", ["row-gap", "padding-bottom"]), { "row-gap": "20px", "padding-bottom": "10px" });
    assert.deepEqual(await styleOf(page, "#connect-scroll", ["overflow-y"]), { "overflow-y": "auto" });
    assert.deepEqual(await styleOf(page, '[data-item="2"]', ["padding-bottom"]), { "padding-bottom": "50px" });
    assert.deepEqual(await styleOf(page, ".form", ["padding", "row-gap"]), { padding: "0px 15px 25px", "row-gap": "5px" });
  });

  test("nothing runs off the side at phone width", async () => {
    const overflow = await page.evaluate(() => {
      const scroller = document.querySelector("#connect-scroll");
      return scroller.scrollWidth - scroller.clientWidth;
    });
    assert.equal(overflow, 0);
  });
});

describe("screenshots", () => {
  for (const [size, viewport] of [["phone", PHONE], ["desktop", DESKTOP]]) {
    test(`each screen at ${size} size`, async () => {
      await page.setViewportSize(viewport);
      await page.click("#tab-connection");
      await page.evaluate(() => { document.querySelector("#connect-scroll").scrollTop = 0; });
      await screenshot(page, `connect-${size}`);

      await page.fill("#ip", "play.example.net");
      await page.click("#run");
      await page.waitForFunction(() => document.querySelector("#run").textContent === "Stop");
      await page.locator("#status").scrollIntoViewIfNeeded();
      await screenshot(page, `connect-running-${size}`);
      await page.click("#run");
      await page.waitForFunction(() => document.querySelector("#run").textContent === "Run");

      await page.fill("#ip", "");
      await page.click("#run");
      await page.locator("dialog#alert[open]").waitFor();
      await screenshot(page, `alert-empty-ip-${size}`);
      await page.locator("dialog#alert[open]").getByRole("button", { name: "OK", exact: true }).click();

      await page.click("#tab-info");
      await screenshot(page, `help-menu-${size}`);
      await page.getByRole("button", { name: "How to use", exact: true }).click();
      await screenshot(page, `help-how-to-use-${size}`);
      await page.click('[data-testid="help-back"]');
      await page.click("#tab-connection");
    });
  }

  test("the page logged no error", async () => {
    await page.setViewportSize(PHONE);
    assert.deepEqual(page.errors.map(String), []);
  });
});
