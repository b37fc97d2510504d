// The app on a phone: its own font, nothing that scrolls sideways from 320 to
// 430 px wide, taps of at least 44 px, what a phone needs to put it on its
// home screen as an app of its own, and the access token that lets it in.

import assert from "node:assert/strict";
import { test } from "node:test";
import { addressOf, answerAlert, useTarget, waitForButton } from "./fixture.mjs";

// The operator's Ctrl-C ends its backend; the other files' end on SIGTERM.
const app = useTarget({ token: "0123456789abcdef0123456789abcdef", backendStop: "SIGINT" });

test("the text is drawn in the app's own font, loaded from ferrylink (the browser reaches nothing else)", async () => {
  const page = await app.open();
  const fonts = await page.evaluate(async () => {
    await document.fonts.ready;
    await document.fonts.load('17px "Minecraft"');
    return {
      loaded: [...document.fonts].filter((face) => face.family.replace(/"/g, "") === "Minecraft" && face.status === "loaded").map((face) => face.weight),
      check: document.fonts.check('17px "Minecraft"'),
      family: getComputedStyle(document.body).fontFamily,
    };
  });
  assert.ok(fonts.loaded.includes("400"), JSON.stringify(fonts));
  assert.equal(fonts.check, true);
  assert.match(fonts.family, /^Minecraft,/);
  await page.close();
});

for (const width of [320, 430]) {
  test(`at ${width} px wide nothing scrolls sideways, every tap target is at least 44 px and a long host wraps`, async () => {
    const page = await app.open({ viewport: { width, height: 740 } });
    // Rows in every list, a long host in the status line, each tab shown.
    await page.fill("#ip", "a-rather-long-host-name-for-a-server.subdomain.example.net");
    await page.click("#add-favourite");
    await page.waitForSelector('[data-testid="favourite-row"]');
    await page.waitForSelector('[data-testid="partnered-row"]');
    const buttons = await page.locator("#run").boundingBox();
    await page.click("#run");
    await waitForButton(page, "Stop");
    assert.deepEqual(await page.locator("#run").boundingBox(), buttons, "the buttons stay put");
    const state = await page.locator("#server-state").evaluate((element) =>
      Math.round(element.getBoundingClientRect().height / parseFloat(getComputedStyle(element).lineHeight)));
    assert.ok(state >= 2, `the status line takes ${state} line(s)`);
    const measure = () => page.evaluate(() => {
      const sideways = [document.documentElement, document.body, ...document.querySelectorAll(".scroll")]
        .filter((element) => element.scrollWidth > element.clientWidth + 0.5)
        .map((element) => element.id || element.tagName);
      const small = [...document.querySelectorAll("button, a, input, [role=switch]")]
        .filter((element) => element.getClientRects().length > 0)
        .map((element) => ({ element, box: element.getBoundingClientRect() }))
        .filter(({ box }) => box.width < 44 || box.height < 44)
        .map(({ element, box }) => `${element.id || element.className || element.textContent} ${box.width}x${box.height}`);
      return { sideways, small };
    });
    assert.deepEqual(await measure(), { sideways: [], small: [] });
    await page.click("#tab-info");
    for (const row of ["Troubleshooting", "About"]) {
      await page.getByRole("button", { name: row, exact: true }).click();
      assert.deepEqual(await measure(), { sideways: [], small: [] }, row);
      await page.click('[data-testid="help-back"]');
    }
    await page.click("#tab-connection");
    await page.click("#run");
    await waitForButton(page, "Run");
    await page.close();
  });
}

test("a phone can put it on its home screen: manifest, icons, and the tags for full screen", async () => {
  const page = await app.open();
  const head = await page.evaluate(() => ({
    manifest: document.querySelector('link[rel="manifest"]').href,
    appleIcon: document.querySelector('link[rel="apple-touch-icon"]').href,
    tags: Object.fromEntries([...document.querySelectorAll("meta[name]")].map((meta) => [meta.name, meta.content])),
  }));
  assert.deepEqual(
    [head.tags["apple-mobile-web-app-capable"], head.tags["mobile-web-app-capable"], head.tags["theme-color"]],
    ["yes", "yes", "#000000"]);
  assert.match(head.tags.viewport, /width=device-width/);

  const response = await fetch(head.manifest);
  assert.equal(response.headers.get("content-type"), "application/manifest+json");
  const manifest = await response.json();
  assert.equal(manifest.name, "Ferrylink");
  assert.equal(manifest.display, "standalone");
  // The app on the home screen opens with the token of the page it was added from.
  assert.equal(new URL(manifest.start_url, head.manifest).href, addressOf(app.target, "/"));
  assert.equal((await (await fetch(new URL("/manifest.webmanifest", app.target.base))).json()).start_url, "/");

  const sizes = [];
  for (const icon of [...manifest.icons, { src: head.appleIcon, sizes: "180x180", type: "image/png" }]) {
    const image = await fetch(new URL(icon.src, head.manifest));
    assert.equal(image.status, 200, icon.src);
    assert.equal(image.headers.get("content-type"), icon.type, icon.src);
    if (icon.type !== "image/png") continue;
    // A PNG's width and height stand in its header.
    const bytes = Buffer.from(await image.arrayBuffer());
    sizes.push(`${bytes.readUInt32BE(16)}x${bytes.readUInt32BE(20)}`);
    assert.equal(sizes.at(-1), icon.sizes, icon.src);
  }
  assert.ok(sizes.includes("192x192") && sizes.includes("512x512") && sizes.includes("180x180"));
  await page.close();
});

// Last: it restarts the app with another token.
test("the page carries the token on the stream and every action; a restart with a new one says so", async () => {
  const seen = [];
  app.browser.context.on("request", (outgoing) => {
    const url = new URL(outgoing.url());
    if (url.pathname === "/events" || url.pathname.startsWith("/api/")) seen.push(url);
  });
  const page = await app.open();
  await page.fill("#ip", " ");
  await page.click("#run");
  await answerAlert(page, "OK");
  await page.click("#add-favourite");
  await page.waitForSelector('[data-testid="favourite-row"]');
  for (const pathname of ["/events", "/api/scene", "/api/form", "/api/run", "/api/alert/dismiss", "/api/favourites"]) {
    assert.ok(seen.some((url) => url.pathname === pathname), `no request to ${pathname}`);
  }
  for (const url of seen) assert.equal(url.searchParams.get("token"), app.target.token, url.pathname);

  const oldAddress = addressOf(app.target, "/");
  await app.target.restart({ token: "00000000000000000000000000000002" });
  await page.waitForFunction(() => document.body.dataset.stream === "unauthorized", null, { timeout: 15000 });
  assert.equal(await page.textContent("#banner"), "This address lacks its access token. Open the address that ferrylink printed when it started.");
  assert.equal((await fetch(oldAddress)).status, 401);
});
