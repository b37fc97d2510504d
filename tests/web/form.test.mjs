// The connection form: its three alerts, Run and Stop, the status block,
// and the look of its fields and buttons.

import assert from "node:assert/strict";
import { after, before, describe, test } from "node:test";
import { launchBrowser, noAlert, openAlert, openPage, screenshot, styleOf, startTarget } from "./harness.mjs";

let target;
let browser;
let page;

before(async () => {
  target = await startTarget();
  browser = await launchBrowser();
  page = await openPage(browser.context, target);
});

after(async () => {
  await browser?.close();
  await target?.close();
});

async function press(ip, port) {
  await page.fill("#ip", ip);
  await page.fill("#port", port);
  await page.click("#run");
}

async function pressOk() {
  await page.locator("dialog#alert[open]").getByRole("button", { name: "OK", exact: true }).click();
  await noAlert(page);
}

async function runState() {
  return page.evaluate(() => ({
    label: document.querySelector("#run").textContent,
    server: document.querySelector("#run").dataset.server,
    statusShown: !document.querySelector("#status").hidden,
    serverState: document.querySelector("#server-state").textContent,
  }));
}

async function waitForLabel(label) {
  await page.waitForFunction((text) => document.querySelector("#run").textContent === text, label);
}

describe("alerts of the form", () => {
  test("a host of blanks only presents the empty-host alert, once per press", async () => {
    await press("   ", "19132");
    assert.deepEqual(await openAlert(page), {
      key: "emptyIpAlert",
      title: "Server IP address cannot be empty.",
      message: "",
      buttons: [{ label: "OK", role: "default" }],
    });
    await screenshot(page, "alert-empty-ip-phone");
    await pressOk();
    // The dismissal reset the flag, so the next press presents it again.
    await page.click("#run");
    assert.equal((await openAlert(page)).title, "Server IP address cannot be empty.");
    await pressOk();
  });

  test("a host on the blocklist, after cleaning, gets the Java edition alert", async () => {
    await press("https://Blocked.Example.ORG:19132", "19132");
    assert.deepEqual(await openAlert(page), {
      key: "hypixelAlert",
      title: "This is Java edition server! You cannot connect to it.",
      message: "",
      buttons: [{ label: "OK", role: "default" }],
    });
    await screenshot(page, "alert-java-phone");
    await pressOk();
  });

  test("a host that doesn't resolve gets the invalid-address alert", async () => {
    for (const host of ["nowhere.invalid", ":::"]) {
      await press(host, "19132");
      assert.deepEqual(await openAlert(page), {
        key: "invalidIp",
        title: "Invalid IP address.",
        message: "",
        buttons: [{ label: "OK", role: "default" }],
      });
      await pressOk();
    }
  });

  test("Escape dismisses an alert like its button", async () => {
    await press("", "19132");
    await openAlert(page);
    await page.keyboard.press("Escape");
    await noAlert(page);
    await page.click("#run");
    assert.equal((await openAlert(page)).key, "emptyIpAlert");
    await pressOk();
  });
});

describe("Run and Stop", () => {
  test("Run turns the button into a red Stop and shows the status block", async () => {
    assert.deepEqual(await runState(), { label: "Run", server: "absent", statusShown: false, serverState: "Server is not running!" });
    assert.equal(await page.locator("#status").isVisible(), false);

    await press("127.0.0.1", "19132");
    await waitForLabel("Stop");
    assert.deepEqual(await runState(), {
      label: "Stop",
      server: "present",
      statusShown: true,
      serverState: "Server is running and will transfer to 127.0.0.1:19132!",
    });
    assert.equal(await page.locator("#status").getByText("Keep the app opened!", { exact: true }).isVisible(), true);
    assert.deepEqual(await styleOf(page, "#run", ["background-color", "color", "box-shadow"]), {
      "background-color": "rgb(140, 0, 0)",
      color: "rgb(255, 255, 255)",
      "box-shadow": "rgb(120, 0, 0) -2px -2px 0px 0px inset, rgb(220, 0, 0) 2px 2px 0px 0px inset",
    });
    assert.deepEqual(await styleOf(page, "#server-state", ["font-size"]), { "font-size": "17px" });
    assert.deepEqual(await styleOf(page, ".status__keep", ["font-size"]), { "font-size": "20px" });
    const statusTop = await page.locator("#status").evaluate((element) => parseFloat(getComputedStyle(element).paddingTop));
    assert.equal(statusTop, 40);
    await screenshot(page, "connect-running-phone");

    await page.click("#run");
    await waitForLabel("Run");
    await page.waitForFunction(() => document.querySelector("#server-state").textContent === "Server is not running!");
    assert.deepEqual(await runState(), { label: "Run", server: "absent", statusShown: false, serverState: "Server is not running!" });
    assert.deepEqual(await styleOf(page, "#run", ["background-color", "box-shadow"]), {
      "background-color": "rgb(0, 140, 0)",
      "box-shadow": "rgb(0, 120, 0) -2px -2px 0px 0px inset, rgb(0, 220, 0) 2px 2px 0px 0px inset",
    });
  });

  test("an empty port runs on 19132 while the status line shows it empty", async () => {
    await press("localhost", "");
    await waitForLabel("Stop");
    assert.equal((await runState()).serverState, "Server is running and will transfer to localhost:!");
    await page.click("#run");
    await waitForLabel("Run");
  });

  test("with a server up, an empty host keeps Stop from stopping", async () => {
    await press("127.0.0.1", "19132");
    await waitForLabel("Stop");
    await press("", "19132");
    assert.equal((await openAlert(page)).key, "emptyIpAlert");
    await pressOk();
    assert.equal((await runState()).label, "Stop");
    await press("127.0.0.1", "19132");
    await waitForLabel("Run");
  });

  test("a long host wraps the status line and leaves the buttons where they were", async () => {
    const before = await page.locator("#run").boundingBox();
    const host = "a-rather-long-host-name-for-a-server.subdomain.example.net";
    await press(host, "19132");
    await waitForLabel("Stop");
    const after = await page.locator("#run").boundingBox();
    assert.deepEqual(after, before);
    const lines = await page.locator("#server-state").evaluate((element) => Math.round(element.getBoundingClientRect().height / parseFloat(getComputedStyle(element).lineHeight)));
    assert.ok(lines >= 2, `status line should wrap, got ${lines} line(s)`);
    const width = await page.locator("#server-state").evaluate((element) => element.scrollWidth <= element.clientWidth);
    assert.ok(width, "status line must not overflow sideways");
    await screenshot(page, "connect-running-long-host-phone");
    await page.click("#run");
    await waitForLabel("Run");
  });
});

describe("look of the form", () => {
  test("heading, labels and fields have their sizes, colours and placeholders", async () => {
    const texts = await page.evaluate(() => ({
      heading: document.querySelector("#connection-form .heading").textContent,
      labels: [...document.querySelectorAll(".form__label")].map((label) => label.textContent),
      placeholders: [document.querySelector("#ip").placeholder, document.querySelector("#port").placeholder],
      keyboards: [document.querySelector("#ip").inputMode, document.querySelector("#port").inputMode],
      autocorrect: [document.querySelector("#ip").spellcheck, document.querySelector("#ip").getAttribute("autocorrect")],
      defaultPort: document.querySelector("#port").defaultValue,
    }));
    assert.deepEqual(texts, {
      heading: "Connect",
      labels: ["IP:", "Port:"],
      placeholders: ["Enter ip...", "Enter port..."],
      keyboards: ["url", "decimal"],
      autocorrect: [false, "off"],
      defaultPort: "19132",
    });
    assert.deepEqual(await styleOf(page, "#connection-form .heading", ["font-size"]), { "font-size": "20px" });
    assert.deepEqual(await styleOf(page, ".form__label", ["font-size"]), { "font-size": "17px" });
    assert.deepEqual(await styleOf(page, "#ip", [
      "font-size", "color", "background-color", "border-top", "border-bottom", "padding",
      "outline-color", "outline-width", "outline-style", "caret-color",
    ]), {
      "font-size": "18px",
      color: "rgb(255, 255, 255)",
      "background-color": "rgb(120, 120, 120)",
      "border-top": "2px solid rgb(70, 70, 70)",
      "border-bottom": "2px solid rgb(180, 180, 180)",
      padding: "4px",
      "outline-color": "rgb(220, 220, 220)",
      "outline-width": "2px",
      "outline-style": "solid",
      "caret-color": "rgb(0, 140, 0)",
    });
  });

  test("the two buttons are half the width less 5, 50 high, at size 20", async () => {
    const boxes = await page.evaluate(() => {
      const line = document.querySelector(".form__buttons").getBoundingClientRect();
      const run = document.querySelector("#run").getBoundingClientRect();
      const add = document.querySelector("#add-favourite").getBoundingClientRect();
      return { line: line.width, run: [run.width, run.height, run.top], add: [add.width, add.height, add.top] };
    });
    assert.equal(boxes.run[0], boxes.line / 2 - 5);
    assert.equal(boxes.add[0], boxes.line / 2 - 5);
    assert.equal(boxes.run[1], 50);
    assert.equal(boxes.add[1], 50);
    assert.equal(boxes.run[2], boxes.add[2]);
    assert.deepEqual(await styleOf(page, "#run", ["font-size", "color"]), { "font-size": "20px", color: "rgb(255, 255, 255)" });
    assert.deepEqual(await styleOf(page, "#add-favourite", ["font-size", "background-color", "color", "box-shadow"]), {
      "font-size": "20px",
      "background-color": "rgb(220, 220, 220)",
      color: "rgb(100, 100, 100)",
      "box-shadow": "rgb(120, 120, 120) -2px -2px 0px 0px inset, rgb(255, 255, 255) 2px 2px 0px 0px inset",
    });
  });

  test("pressing a button turns it green with a light stroke; Run only gets the stroke", async () => {
    const add = await page.locator("#add-favourite").boundingBox();
    await page.mouse.move(add.x + add.width / 2, add.y + add.height / 2);
    await page.mouse.down();
    assert.deepEqual(await styleOf(page, "#add-favourite", ["background-color", "color", "box-shadow", "outline"]), {
      "background-color": "rgb(0, 140, 0)",
      color: "rgb(255, 255, 255)",
      "box-shadow": "rgb(0, 120, 0) -2px -2px 0px 0px inset, rgb(0, 220, 0) 2px 2px 0px 0px inset",
      outline: "rgb(220, 220, 220) solid 2px",
    });
    // Let go elsewhere, so that the press adds no favourite.
    await page.mouse.move(5, 5);
    await page.mouse.up();

    const run = await page.locator("#run").boundingBox();
    await page.mouse.move(run.x + run.width / 2, run.y + run.height / 2);
    await page.mouse.down();
    assert.deepEqual(await styleOf(page, "#run", ["background-color", "outline"]), {
      "background-color": "rgb(0, 140, 0)",
      outline: "rgb(220, 220, 220) solid 2px",
    });
    await page.mouse.move(5, 5);
    await page.mouse.up();
  });

  test("a tap outside the fields dismisses the keyboard", async () => {
    await page.focus("#ip");
    assert.equal(await page.evaluate(() => document.activeElement.id), "ip");
    await page.click("#connection-form .heading");
    assert.equal(await page.evaluate(() => document.activeElement === document.body), true);
  });

  test("the page logged no error", () => {
    assert.deepEqual(page.errors.map(String), []);
  });
});
