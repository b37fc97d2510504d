// Run and Stop with the real bridge behind them: the hosts the form refuses,
// and the rule that keeps the bridge alive: a page that can be seen is in the
// foreground, whatever has the focus; only no page seen for two seconds sends
// the app to the background. A simulated console joins the advertised world
// to tell whether the bridge really answers.

import assert from "node:assert/strict";
import dgram from "node:dgram";
import { once } from "node:events";
import { test } from "node:test";
import {
  answerAlert, fields, joinAsConsole, noAlert, openAlert, press, reload, setVisibility, useTarget, waitForButton, waitForScene,
} from "./fixture.mjs";

const app = useTarget();

async function assertBridgeSendsTo(transfer) {
  const joined = await joinAsConsole(app.target);
  assert.equal(joined.code, 0, joined.output);
  assert.equal(joined.transfer, transfer);
  return joined;
}

/** A console that finds no bridge gives up; a short wait is enough to tell. */
async function assertNoBridge() {
  const attempt = await joinAsConsole(app.target, { timeout: 1500 });
  assert.notEqual(attempt.code, 0, attempt.output);
  assert.equal(attempt.transfer, null);
}

/** Waits for `ferrylink app` to print a time-stamped line that ends in `text`. */
function logged(text) {
  const escaped = text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
  return app.target.app.child.waitForLine(new RegExp(`^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d ${escaped}$`), { timeout: 5000 });
}

const REFUSED = [
  ["a host of blanks", "   ", "Server IP address cannot be empty."],
  ["a blocked host, after cleaning", "https://Blocked.Example.ORG:19132", "This is Java edition server! You cannot connect to it."],
  ["a host that doesn't resolve", "nowhere.invalid", "Invalid IP address."],
];

test("each refused host presents its alert, again at each press once dismissed", async () => {
  const page = await app.open();
  for (const [what, host, title] of REFUSED) {
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

test("Run sends a joining console on to the cleaned target and reports the run; Stop, past the same checks, ends the bridge", async () => {
  const page = await app.open();
  await press(page, " HTTPS://127.0.0.1:1/ ", "port 19133");
  await waitForButton(page, "Stop");
  assert.equal(await page.textContent("#server-state"), "Server is running and will transfer to 127.0.0.1:19133!");
  assert.equal(await page.locator("#status").isVisible(), true);
  // The fields keep what was typed; only the run uses the cleaned values.
  assert.deepEqual(await fields(page), [" HTTPS://127.0.0.1:1/ ", "port 19133"]);
  const joined = await assertBridgeSendsTo("127.0.0.1:19133");
  assert.match(joined.output, /^Advert: MCPE;Ferrylink;560;1\.19\.50;0;99;-?\d+;Join me!;Creative$/m);
  await app.target.backend.waitForRequest("POST /postLog");
  await logged("Run started: consoles are sent on to 127.0.0.1:19133");
  await logged("Console handed over to 127.0.0.1:19133");
  assert.ok(app.target.app.child.lines.some((line) => / Console joined from 127\.0\.0\.1:\d+$/.test(line)));

  await press(page, "");
  assert.equal((await openAlert(page)).key, "emptyIpAlert");
  await answerAlert(page, "OK");
  assert.equal(await page.textContent("#run"), "Stop");
  await press(page, "127.0.0.1", "19133");
  await waitForButton(page, "Run");
  await page.waitForFunction(() => document.querySelector("#server-state").textContent === "Server is not running!");
  assert.equal(await page.locator("#status").isVisible(), false);
  await assertNoBridge();
  await logged("Run stopped");
  assert.deepEqual(page.errors.map(String), []);
  await page.close();
});

test("a reload, lost focus and a second tab keep the bridge, show the app's fields and status; Stop stops from either", async () => {
  const page = await app.open();
  await press(page, "127.0.0.1", "19140");
  await waitForButton(page, "Stop");
  await reload(page);
  assert.deepEqual(await fields(page), ["127.0.0.1", "19140"]);
  assert.equal(await page.textContent("#run"), "Stop");

  // Losing the focus, to another window or a second tab, for longer than the
  // grace before the background.
  await page.evaluate(() => {
    document.hasFocus = () => false;
    window.dispatchEvent(new Event("blur"));
  });
  const second = await app.open();
  await second.bringToFront();
  await new Promise((resolve) => setTimeout(resolve, 2500));
  await page.evaluate(() => {
    document.hasFocus = () => true;
    window.dispatchEvent(new Event("focus"));
  });
  await page.bringToFront();
  await waitForScene(page, "active");
  assert.equal(await page.textContent("#run"), "Stop");
  // The bridge went on through all of it: its event-loop group was kept.
  await assertBridgeSendsTo("127.0.0.1:19140");

  assert.deepEqual(await fields(second), ["127.0.0.1", "19140"]);
  assert.equal(await second.textContent("#server-state"), "Server is running and will transfer to 127.0.0.1:19140!");
  await second.fill("#port", "19141");
  await page.waitForFunction(() => document.querySelector("#port").value === "19141");
  await page.click("#run");
  await waitForButton(second, "Run");
  await assertNoBridge();
  await second.close();
  await page.close();
});

test("no page seen for two seconds is the background, which stops the bridge; back in front, Run works", async () => {
  const page = await app.open();
  await press(page, "127.0.0.1");
  await waitForButton(page, "Stop");
  await setVisibility(page, "hidden");
  // Within the grace the phase stays; after it the bridge is stopped.
  assert.equal(await page.evaluate(() => document.body.dataset.scene), "active");
  await waitForScene(page, "background");
  await waitForButton(page, "Run");
  await assertNoBridge();
  assert.deepEqual(await fields(page), ["127.0.0.1", "19132"], "the fields keep their text");

  await setVisibility(page, "visible");
  await waitForScene(page, "active");
  await page.click("#run");
  await waitForButton(page, "Stop");
  await assertBridgeSendsTo("127.0.0.1:19132");
  await page.click("#run");
  await waitForButton(page, "Run");
  assert.deepEqual(page.errors.map(String), []);
  await page.close();
});

test("a Run that finds its port and the next one taken says why and shows the bridge stopped", async () => {
  const held = await Promise.all([0, 1].map(async (next) => {
    const socket = dgram.createSocket("udp4").bind(app.target.bridgePort + next, "127.0.0.1");
    await once(socket, "listening");
    return socket;
  }));
  const page = await app.open();
  const seen = app.target.app.child.lines.length;
  try {
    await press(page, "127.0.0.1");
    const alert = await openAlert(page);
    assert.match(alert.title, new RegExp(`^Could not listen on UDP port ${app.target.bridgePort} or ${app.target.bridgePort + 1}: `));
    assert.equal(await page.textContent("#run"), "Run");
    assert.equal(await page.textContent("#server-state"), "Server is not running!");
    await logged("Failure: bind: Address already in use (errno: 98)");
    assert.ok(!app.target.app.child.lines.slice(seen).some((line) => / Run (started|stopped)/.test(line)), "no run was told");
  } finally {
    for (const socket of held) socket.close();
    await page.close();
  }
});
