// The app around the screens: the backend's message alert and the scene
// phase that the pages' reports make.

import assert from "node:assert/strict";
import { after, before, describe, test } from "node:test";
import { launchBrowser, noAlert, openAlert, openPage, screenshot, startTarget } from "./harness.mjs";
import { joinAsConsole } from "./launcher.mjs";

let target;
let browser;

before(async () => {
  target = await startTarget();
  browser = await launchBrowser();
});

after(async () => {
  await browser?.close();
  await target?.close();
});

const MESSAGE = {
  key: "message",
  title: "Important message!",
  message: "Welcome to Ferrylink! Servers may be slow today.",
  buttons: [
    { label: "Don't show this message again", role: "default" },
    { label: "Ok", role: "destructive" },
  ],
};

async function scene(page) {
  return page.evaluate(() => document.body.dataset.scene);
}

async function waitForScene(page, phase) {
  await page.waitForFunction((wanted) => document.body.dataset.scene === wanted, phase, { timeout: 10000 });
}

async function pressInAlert(page, label) {
  await page.locator("dialog#alert[open]").getByRole("button", { name: label, exact: true }).click();
  await noAlert(page);
}

describe("the message alert", () => {
  test("\"Ok\" closes it for this page load only", async () => {
    const page = await openPage(browser.context, target, { dismissMessage: false });
    try {
      assert.deepEqual(await openAlert(page), MESSAGE);
      await screenshot(page, "alert-message-phone");
      await pressInAlert(page, "Ok");
      await page.reload();
      await page.waitForSelector('body[data-synced="true"]');
      assert.deepEqual(await openAlert(page), MESSAGE);
      await page.keyboard.press("Escape");
      await noAlert(page);
    } finally {
      await page.close();
    }
  });

  test("\"Don't show this message again\" closes it on every page and for good", async () => {
    const first = await openPage(browser.context, target, { dismissMessage: false });
    const second = await openPage(browser.context, target, { dismissMessage: false });
    try {
      assert.equal((await openAlert(first)).key, "message");
      assert.equal((await openAlert(second)).key, "message");
      await pressInAlert(first, "Don't show this message again");
      await noAlert(second);
      await first.reload();
      await first.waitForSelector('body[data-synced="true"]');
      assert.equal(await first.evaluate(() => document.querySelector("dialog#alert").open), false);
    } finally {
      await first.close();
      await second.close();
    }
  });
});

describe("scene phase", () => {
  test("a focused page makes the app active; an unfocused one, inactive", async () => {
    const page = await openPage(browser.context, target);
    try {
      await waitForScene(page, "active");
      // Headless windows always have focus; take it away the way a blur does.
      await page.evaluate(() => {
        document.hasFocus = () => false;
        window.dispatchEvent(new Event("blur"));
      });
      await waitForScene(page, "inactive");
      await page.evaluate(() => {
        document.hasFocus = () => true;
        window.dispatchEvent(new Event("focus"));
      });
      await waitForScene(page, "active");
    } finally {
      await page.close();
    }
  });

  test("a reload is no trip to the background: the server keeps running", async () => {
    const page = await openPage(browser.context, target);
    try {
      await page.fill("#ip", "127.0.0.1");
      await page.click("#run");
      await page.waitForFunction(() => document.querySelector("#run").textContent === "Stop");
      await page.reload();
      await page.waitForSelector('body[data-synced="true"]');
      assert.equal(await page.textContent("#run"), "Stop");
      await waitForScene(page, "active");
      // The bridge itself went on: its event-loop group was not replaced.
      const joined = await joinAsConsole(target);
      assert.equal(joined.code, 0, joined.output);
      assert.equal(joined.transfer, "127.0.0.1:19132");
      // The fields are the page's own: a reload starts them afresh.
      assert.deepEqual([await page.inputValue("#ip"), await page.inputValue("#port")], ["", "19132"]);
      await page.fill("#ip", "127.0.0.1");
      await page.click("#run");
      await page.waitForFunction(() => document.querySelector("#run").textContent === "Run");
    } finally {
      await page.close();
    }
  });

  test("no page visible for two seconds is the background, which stops the server", async () => {
    const page = await openPage(browser.context, target);
    try {
      await page.fill("#ip", "127.0.0.1");
      await page.click("#run");
      await page.waitForFunction(() => document.querySelector("#run").textContent === "Stop");
      await page.evaluate(() => {
        Object.defineProperty(document, "visibilityState", { value: "hidden", configurable: true });
        document.dispatchEvent(new Event("visibilitychange"));
      });
      // Within the grace the phase stays; after it the server is stopped.
      assert.equal(await scene(page), "active");
      await waitForScene(page, "background");
      await page.waitForFunction(() => document.querySelector("#run").textContent === "Run");
      await page.waitForFunction(() => document.querySelector("#server-state").textContent === "Server is not running!");
      assert.equal(await page.inputValue("#ip"), "127.0.0.1", "the fields keep their text");

      await page.evaluate(() => {
        Object.defineProperty(document, "visibilityState", { value: "visible", configurable: true });
        document.dispatchEvent(new Event("visibilitychange"));
      });
      await waitForScene(page, "active");
    } finally {
      await page.close();
    }
  });
});

describe("appearances", () => {
  test("coming back to the Connection tab reports the connection screen's appearance", async () => {
    const page = await openPage(browser.context, target);
    const reports = [];
    page.on("request", (outgoing) => {
      if (new URL(outgoing.url()).pathname === "/api/appear") reports.push(outgoing.postDataJSON());
    });
    try {
      await page.click("#tab-connection");
      await page.click("#tab-info");
      const answered = page.waitForResponse((response) => new URL(response.url()).pathname === "/api/appear");
      await page.click("#tab-connection");
      assert.equal((await answered).status(), 204);
      assert.deepEqual(reports.map((report) => report.screen), ["ConnectView"]);
      assert.match(reports[0].page, /^[0-9a-f]{32}$/);
    } finally {
      await page.close();
    }
  });
});

describe("connection to the server", () => {
  test("a lost stream shows a banner, and the page recovers when it returns", async () => {
    const own = await startTarget();
    const page = await openPage(browser.context, own);
    try {
      assert.equal(await page.locator("#banner").isVisible(), false);
      const port = own.port;
      await own.stopApp();
      await page.waitForSelector("#banner:not([hidden])");
      assert.equal(await page.textContent("#banner"), "Ferrylink can\u2019t be reached. Reconnecting\u2026");
      await screenshot(page, "banner-offline-phone");
      await own.launch({ port });
      await page.waitForSelector("#banner[hidden]", { state: "attached", timeout: 15000 });
      assert.equal(await page.getAttribute("body", "data-stream"), "open");
    } finally {
      await page.close();
      await own.close();
    }
  });
});
