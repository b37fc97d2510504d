// The app around the screens: the backend's message alert, the access token
// and the lost stream.

import assert from "node:assert/strict";
import { describe, test } from "node:test";
import { addressOf, answerAlert, launchBrowser, noAlert, openAlert, openPage, reload, startTarget, useTarget } from "./fixture.mjs";

const app = useTarget();

const MESSAGE = {
  key: "message",
  title: "Important message!",
  message: "Welcome to Ferrylink! Servers may be slow today.",
  buttons: [
    { label: "Don't show this message again", role: "default" },
    { label: "Ok", role: "destructive" },
  ],
};

describe("the message alert", () => {
  test("\"Ok\" closes it for this page load only", async () => {
    const page = await app.open({ dismissMessage: false });
    assert.deepEqual(await openAlert(page), MESSAGE);
    await answerAlert(page, "Ok");
    await reload(page, { dismissMessage: false });
    assert.deepEqual(await openAlert(page), MESSAGE);
    await page.keyboard.press("Escape");
    await noAlert(page);
    await page.close();
  });

  test("\"Don't show this message again\" closes it on every page and for good", async () => {
    const first = await app.open({ dismissMessage: false });
    const second = await app.open({ dismissMessage: false });
    assert.equal((await openAlert(second)).key, "message");
    await answerAlert(first, "Don't show this message again");
    await noAlert(second);
    await reload(first, { dismissMessage: false });
    assert.equal(await first.evaluate(() => document.querySelector("dialog#alert").open), false);
    await first.close();
    await second.close();
  });
});

describe("the access token", () => {
  test("the page carries it on the stream and every action; a restart with a new one says so", async () => {
    const guarded = await startTarget({ token: "00000000000000000000000000000001" });
    const browser = await launchBrowser();
    try {
      const seen = [];
      browser.context.on("request", (outgoing) => {
        const url = new URL(outgoing.url());
        if (url.pathname === "/events" || url.pathname.startsWith("/api/")) seen.push(url);
      });
      const page = await openPage(browser.context, guarded);
      await page.fill("#ip", " ");
      await page.click("#run");
      await answerAlert(page, "OK");
      await page.click("#add-favourite");
      await page.waitForSelector('[data-testid="favourite-row"]');
      for (const pathname of ["/events", "/api/scene", "/api/form", "/api/run", "/api/alert/dismiss", "/api/favourites"]) {
        assert.ok(seen.some((url) => url.pathname === pathname), `no request to ${pathname}`);
      }
      for (const url of seen) assert.equal(url.searchParams.get("token"), guarded.token, url.pathname);

      const oldAddress = addressOf(guarded, "/");
      await guarded.restart({ token: "00000000000000000000000000000002" });
      await page.waitForFunction(() => document.body.dataset.stream === "unauthorized", null, { timeout: 15000 });
      assert.equal(await page.textContent("#banner"), "This address lacks its access token. Open the address that ferrylink printed when it started.");
      const refused = await fetch(oldAddress);
      assert.equal(refused.status, 401);
    } finally {
      await browser.close();
      await guarded.close();
    }
  });
});

test("a lost stream shows a banner, and the page recovers when the app returns", async () => {
  const page = await app.open();
  const port = app.target.port;
  await app.target.stopApp();
  await page.waitForSelector("#banner:not([hidden])");
  assert.equal(await page.textContent("#banner"), "Ferrylink can\u2019t be reached. Reconnecting\u2026");
  await app.target.launch({ port, expectMessage: false });
  await page.waitForSelector("#banner[hidden]", { state: "attached", timeout: 15000 });
  assert.equal(await page.getAttribute("body", "data-stream"), "open");
  await page.close();
});
