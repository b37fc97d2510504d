// What every browser test shares: the app under test (the real
// `ferrylink app` with its backend, started by launcher.mjs), Debian's
// Chromium in a fresh profile, page helpers and screenshots.
//
// Environment:
//   FERRYLINK_BIN       the folder of the programs (default build/default/bin)
//   CHROMIUM            the browser binary (default /usr/bin/chromium)
//   FERRYLINK_TEST_VERBOSE=1  echo the programs' output

import { mkdir, mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";
import { startTarget as launchTarget } from "./launcher.mjs";

const here = path.dirname(fileURLToPath(import.meta.url));
export const OUTPUT_DIR = path.join(here, "test-output");

export const PHONE = { width: 390, height: 844 };
export const DESKTOP = { width: 1280, height: 800 };

export const CHROMIUM_ARGS = [
  "--headless",
  "--no-sandbox",
  "--disable-gpu",
  "--disable-quic",
  "--no-first-run",
  "--disable-background-networking",
  "--disable-component-update",
  "--disable-sync",
  "--disable-features=DnsOverHttps,NetworkTimeServiceQuerying,OptimizationHints,MediaRouter",
  // No name is ever looked up: every host but localhost resolves to nothing,
  // so not even a link's prefetch can ask a name server.
  "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE 127.0.0.1",
];

/** A fresh app with its own backend and data; see launcher.mjs for the options. */
export function startTarget(options = {}) {
  return launchTarget(options);
}

/** An address of the target, with its token if it has one. */
export function addressOf(target, pathname = "/", parameters = {}) {
  const url = new URL(pathname, target.base);
  for (const [name, value] of Object.entries(parameters)) url.searchParams.set(name, value);
  if (target.token) url.searchParams.set("token", target.token);
  return url.href;
}

/** Chromium with a profile of its own, removed again by close(). */
export async function launchBrowser() {
  const profile = await mkdtemp(path.join(tmpdir(), "ferrylink-chromium-"));
  const context = await chromium.launchPersistentContext(profile, {
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    headless: true,
    args: CHROMIUM_ARGS,
    viewport: PHONE,
    reducedMotion: "no-preference",
  });
  // Keep every request on loopback: nothing leaves the machine.
  await context.route(/^(?!https?:\/\/(127\.0\.0\.1|localhost|\[::1\])[:/])/, (route) => route.abort());
  return {
    context,
    async close() {
      await context.close();
      await rm(profile, { recursive: true, force: true });
    },
  };
}

/**
 * Opens the page in a new tab of `context` and waits until the first whole
 * state has arrived (the `message` event closes the first burst).
 */
export async function openPage(context, target, { viewport = PHONE, dismissMessage = true } = {}) {
  const page = await context.newPage();
  await page.setViewportSize(viewport);
  const errors = [];
  page.on("pageerror", (error) => errors.push(error));
  page.on("console", (message) => {
    if (message.type() === "error") errors.push(new Error(message.text()));
  });
  page.errors = errors;
  await page.goto(addressOf(target));
  await page.waitForSelector('body[data-synced="true"]');
  if (dismissMessage) await closeAlertIf(page, "message", "Ok");
  return page;
}

/** If the alert with this key is up (now or within a moment), presses `button` on it. */
export async function closeAlertIf(page, key, button) {
  const dialog = page.locator(`dialog#alert[open][data-alert="${key}"]`);
  try {
    await dialog.waitFor({ timeout: 500 });
  } catch {
    return false;
  }
  await dialog.getByRole("button", { name: button, exact: true }).click();
  await page.locator(`dialog#alert[data-alert="${key}"]`).waitFor({ state: "detached", timeout: 5000 }).catch(() => {});
  return true;
}

/** The open alert's key, title, message and buttons, once one is up. */
export async function openAlert(page) {
  const dialog = page.locator("dialog#alert[open]");
  await dialog.waitFor();
  return dialog.evaluate((element) => ({
    key: element.dataset.alert,
    title: element.querySelector(".alert__title").textContent,
    message: element.querySelector(".alert__message").textContent,
    buttons: [...element.querySelectorAll(".alert__button")].map((button) => ({ label: button.textContent, role: button.dataset.role })),
  }));
}

/** Waits until no alert is open. */
export async function noAlert(page) {
  await page.waitForFunction(() => !document.querySelector("dialog#alert").open);
}

/** Computed style values of the first element that matches. */
export async function styleOf(page, selector, properties) {
  return page.locator(selector).first().evaluate((element, names) => {
    const style = getComputedStyle(element);
    return Object.fromEntries(names.map((name) => [name, style.getPropertyValue(name)]));
  }, properties);
}

/** Saves a PNG of the page under test-output/. */
export async function screenshot(page, name) {
  await mkdir(OUTPUT_DIR, { recursive: true });
  await page.evaluate(() => document.fonts.ready);
  await page.screenshot({ path: path.join(OUTPUT_DIR, `${name}.png`) });
}

/** One JSON request to the target, for tests of the contract itself. */
export async function request(target, method, pathname, { body, json = true, parameters = {}, headers = {}, token = true } = {}) {
  const url = token ? addressOf(target, pathname, parameters) : new URL(pathname, target.base).href + query(parameters);
  const init = { method, headers: { ...headers } };
  if (body !== undefined) {
    init.body = json ? JSON.stringify(body) : body;
    if (json && !("Content-Type" in init.headers)) init.headers["Content-Type"] = "application/json";
  }
  const response = await fetch(url, init);
  const text = await response.text();
  let value = null;
  try {
    value = text ? JSON.parse(text) : null;
  } catch {
    value = text;
  }
  return { status: response.status, headers: response.headers, body: value };
}

function query(parameters) {
  const search = new URLSearchParams(parameters).toString();
  return search ? `?${search}` : "";
}
