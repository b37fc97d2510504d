// Run and Stop with the real bridge behind them, and the rule that keeps it
// alive: a page that can be seen is in the foreground, whatever has the
// focus; only no page seen for two seconds sends the app to the background.
// A simulated console joins the advertised world to tell whether the bridge
// really answers.

import assert from "node:assert/strict";
import dgram from "node:dgram";
import { once } from "node:events";
import { test } from "node:test";
import { joinAsConsole, openAlert, press, reload, setVisibility, useTarget, waitForButton, waitForScene } from "./fixture.mjs";

const app = useTarget();

async function assertBridgeSendsTo(transfer) {
  const joined = await joinAsConsole(app.target);
  assert.equal(joined.code, 0, joined.output);
  assert.equal(joined.transfer, transfer);
}

/** A console that finds no bridge gives up; a short wait is enough to tell. */
async function assertNoBridge() {
  const attempt = await joinAsConsole(app.target, { timeout: 1500 });
  assert.notEqual(attempt.code, 0, attempt.output);
  assert.equal(attempt.transfer, null);
}

async function fields(page) {
  return [await page.inputValue("#ip"), await page.inputValue("#port")];
}

/** Waits for `ferrylink app` to print a time-stamped line that ends in `text`. */
function logged(text) {
  const escaped = text.replace(/[.*+?^${}()|[\]\\]/g, "\\$&");
  return app.target.app.child.waitForLine(new RegExp(`^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d ${escaped}$`), { timeout: 5000 });
}

test("Run sends a joining console on to the cleaned target and reports the run; Stop ends the bridge", async () => {
  const page = await app.open();
  await press(page, " HTTPS://127.0.0.1:1/ ", "port 19133");
  await waitForButton(page, "Stop");
  assert.equal(await page.textContent("#server-state"), "Server is running and will transfer to 127.0.0.1:19133!");
  assert.equal(await page.locator("#status").isVisible(), true);
  // The fields keep what was typed; only the run uses the cleaned values.
  assert.deepEqual(await fields(page), [" HTTPS://127.0.0.1:1/ ", "port 19133"]);
  await assertBridgeSendsTo("127.0.0.1:19133");
  await app.target.backend.waitForRequest("POST /postLog");
  await logged("Run started: consoles are sent on to 127.0.0.1:19133");
  await logged("Console handed over to 127.0.0.1:19133");
  assert.ok(app.target.app.child.lines.some((line) => / Console joined from 127\.0\.0\.1:\d+$/.test(line)));

  await page.click("#run");
  await waitForButton(page, "Run");
  await page.waitForFunction(() => document.querySelector("#server-state").textContent === "Server is not running!");
  assert.equal(await page.locator("#status").isVisible(), false);
  await assertNoBridge();
  await logged("Run stopped");
  assert.deepEqual(page.errors.map(String), []);
  await page.close();
});

test("losing the focus, to another window or a second tab, never stops a running bridge", async () => {
  const page = await app.open();
  await press(page, "127.0.0.1");
  await waitForButton(page, "Stop");
  await page.evaluate(() => {
    document.hasFocus = () => false;
    window.dispatchEvent(new Event("blur"));
  });
  const other = await app.open();
  await other.bringToFront();
  // Longer than the grace before the background.
  await new Promise((resolve) => setTimeout(resolve, 2500));
  await page.evaluate(() => {
    document.hasFocus = () => true;
    window.dispatchEvent(new Event("focus"));
  });
  await page.bringToFront();
  await waitForScene(page, "active");
  assert.equal(await page.textContent("#run"), "Stop");
  await assertBridgeSendsTo("127.0.0.1:19132");
  await other.close();
  await page.click("#run");
  await waitForButton(page, "Run");
  await page.close();
});

test("a reload and a second tab show the app's fields and status, and Stop stops from either", async () => {
  const page = await app.open();
  await press(page, "127.0.0.1", "19140");
  await waitForButton(page, "Stop");
  await reload(page);
  assert.deepEqual(await fields(page), ["127.0.0.1", "19140"]);
  assert.equal(await page.textContent("#run"), "Stop");
  // The bridge went on through the reload: its event-loop group was kept.
  await assertBridgeSendsTo("127.0.0.1:19140");

  const second = await app.open();
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
