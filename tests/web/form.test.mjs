// The connection form: its three alerts, and the checks that come before
// Run and Stop alike.

import assert from "node:assert/strict";
import { test } from "node:test";
import { answerAlert, noAlert, openAlert, press, useTarget, waitForButton } from "./fixture.mjs";

const app = useTarget();

const ALERTS = [
  ["a host of blanks", "   ", "Server IP address cannot be empty."],
  ["a blocked host, after cleaning", "https://Blocked.Example.ORG:19132", "This is Java edition server! You cannot connect to it."],
  ["a host that doesn't resolve", "nowhere.invalid", "Invalid IP address."],
  ["a host of colons only", ":::", "Invalid IP address."],
];

test("each refused host presents its alert, again at each press once dismissed", async () => {
  const page = await app.open();
  for (const [what, host, title] of ALERTS) {
    await press(page, host);
    const alert = await openAlert(page);
    assert.equal(alert.title, title, what);
    assert.deepEqual(alert.buttons, [{ label: "OK", role: "default" }]);
    await answerAlert(page, "OK");
    // Escape dismisses like the button; the flag is reset either way.
    await page.click("#run");
    assert.equal((await openAlert(page)).title, title, what);
    await page.keyboard.press("Escape");
    await noAlert(page);
  }
  assert.equal(await page.textContent("#run"), "Run");
  await page.close();
});

test("with a server up, an empty host keeps Stop from stopping", async () => {
  const page = await app.open();
  await press(page, "127.0.0.1");
  await waitForButton(page, "Stop");
  await press(page, "");
  assert.equal((await openAlert(page)).key, "emptyIpAlert");
  await answerAlert(page, "OK");
  assert.equal(await page.textContent("#run"), "Stop");
  await press(page, "127.0.0.1");
  await waitForButton(page, "Run");
  await page.close();
});

test("an empty port runs on 19132 while the status line shows it empty; a long host wraps", async () => {
  const page = await app.open();
  const before = await page.locator("#run").boundingBox();
  await press(page, "localhost", "");
  await waitForButton(page, "Stop");
  assert.equal(await page.textContent("#server-state"), "Server is running and will transfer to localhost:!");
  await page.click("#run");
  await waitForButton(page, "Run");

  await press(page, "a-rather-long-host-name-for-a-server.subdomain.example.net");
  await waitForButton(page, "Stop");
  assert.deepEqual(await page.locator("#run").boundingBox(), before, "the buttons stay put");
  const state = await page.locator("#server-state").evaluate((element) => ({
    lines: Math.round(element.getBoundingClientRect().height / parseFloat(getComputedStyle(element).lineHeight)),
    fits: element.scrollWidth <= element.clientWidth,
  }));
  assert.ok(state.lines >= 2 && state.fits, JSON.stringify(state));
  await page.click("#run");
  await waitForButton(page, "Run");
  assert.deepEqual(page.errors.map(String), []);
  await page.close();
});
