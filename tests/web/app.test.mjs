// The app around the screens: the backend's message alert and the lost
// stream. (The access token: phone.test.mjs.)

import assert from "node:assert/strict";
import { describe, test } from "node:test";
import { answerAlert, noAlert, openAlert, reload, useTarget } from "./fixture.mjs";

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
