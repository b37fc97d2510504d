// The app around the screens: the backend's message alert and the lost
// stream. (The access token: phone.test.mjs.)

import assert from "node:assert/strict";
import { test } from "node:test";
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

test("the message: \"Ok\" and Escape close it for this page load only, \"Don't show this message again\" on every page for good", async () => {
  const page = await app.open({ dismissMessage: false });
  assert.deepEqual(await openAlert(page), MESSAGE);
  await answerAlert(page, "Ok");
  await reload(page, { dismissMessage: false });
  assert.deepEqual(await openAlert(page), MESSAGE);
  await page.keyboard.press("Escape");
  await noAlert(page);

  const second = await app.open({ dismissMessage: false });
  assert.equal((await openAlert(second)).key, "message");
  await reload(page, { dismissMessage: false });
  await answerAlert(page, "Don't show this message again");
  await noAlert(second);
  await reload(page, { dismissMessage: false });
  assert.equal(await page.evaluate(() => document.querySelector("dialog#alert").open), false);
  await page.close();
  await second.close();
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
