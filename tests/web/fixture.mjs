// The one fixture of the browser tests: the real programs on loopback, Debian's
// Chromium in a fresh profile, and the page helpers every test file uses.
// README.md tells what runs where and the environment it reads.

import { spawn } from "node:child_process";
import dgram from "node:dgram";
import { once } from "node:events";
import { mkdtemp, readFile, rm, writeFile } from "node:fs/promises";
import net from "node:net";
import { tmpdir } from "node:os";
import path from "node:path";
import { createInterface } from "node:readline";
import { after, before } from "node:test";
import { fileURLToPath } from "node:url";
import { chromium } from "playwright-core";

const here = path.dirname(fileURLToPath(import.meta.url));
const REPO = path.resolve(here, "../..");
export const BACKEND_HOST = "127.0.0.2";
export const APP_HOST = "127.0.0.1";

/** Where the programs are: $FERRYLINK_BIN (relative to the working folder) or the default build. */
function program(name) {
  const given = process.env.FERRYLINK_BIN;
  return path.join(given ? path.resolve(process.cwd(), given) : path.join(REPO, "build/default/bin"), name);
}

// ------------------------------------------------------------ child programs

/**
 * A running program whose standard output is read line by line. `lines`
 * keeps every line; `waitForLine(pattern)` resolves with the first match,
 * past or future, and rejects when the program ends first.
 */
class Child {
  constructor(file, args, { env = {}, name = path.basename(file) } = {}) {
    this.name = name;
    this.lines = [];
    this.errors = "";
    this.waiters = new Set();
    this.process = spawn(file, args, { env: { ...process.env, ...env }, stdio: ["ignore", "pipe", "pipe"] });
    this.exited = new Promise((resolve) => {
      this.process.once("exit", (code, signal) => resolve({ code, signal }));
      this.process.once("error", (error) => resolve({ code: null, signal: null, error }));
    });
    this.exited.then((status) => {
      for (const waiter of this.waiters) waiter.reject(new Error(`${this.name} ended (${JSON.stringify(status)}) before printing ${waiter.pattern}; stderr: ${this.errors}`));
      this.waiters.clear();
    });
    createInterface({ input: this.process.stdout }).on("line", (line) => this.#line(line));
    this.process.stderr.setEncoding("utf8");
    this.process.stderr.on("data", (chunk) => {
      this.errors += chunk;
      if (process.env.FERRYLINK_TEST_VERBOSE) process.stderr.write(`[${this.name}] ${chunk}`);
    });
  }

  #line(line) {
    this.lines.push(line);
    if (process.env.FERRYLINK_TEST_VERBOSE) process.stderr.write(`[${this.name}] ${line}\n`);
    for (const waiter of this.waiters) {
      const match = waiter.pattern.exec(line);
      if (match) {
        this.waiters.delete(waiter);
        waiter.resolve(match);
      }
    }
  }

  waitForLine(pattern, { timeout = 30000 } = {}) {
    for (const line of this.lines) {
      const match = pattern.exec(line);
      if (match) return Promise.resolve(match);
    }
    return new Promise((resolve, reject) => {
      const waiter = { pattern, resolve, reject };
      const timer = setTimeout(() => {
        this.waiters.delete(waiter);
        reject(new Error(`${this.name} printed no line like ${pattern} within ${timeout} ms; stderr: ${this.errors}`));
      }, timeout);
      waiter.resolve = (value) => { clearTimeout(timer); resolve(value); };
      waiter.reject = (error) => { clearTimeout(timer); reject(error); };
      this.waiters.add(waiter);
    });
  }

  /** `signal`, then SIGKILL if the program hasn't ended after `patience` ms. */
  async stop({ signal = "SIGTERM", patience = 15000 } = {}) {
    if (this.process.exitCode !== null || this.process.signalCode !== null) return this.exited;
    this.process.kill(signal);
    const timer = setTimeout(() => this.process.kill("SIGKILL"), patience);
    const status = await this.exited;
    clearTimeout(timer);
    return status;
  }
}

/** Runs a program to its end; rejects with its output unless it exits 0. */
async function run(file, args, options = {}) {
  const child = new Child(file, args, options);
  const { code, error } = await child.exited;
  if (code !== 0) throw new Error(`${path.basename(file)} ${args.join(" ")} failed (${error ?? code}): ${child.errors}`);
  return child.lines;
}

// ---------------------------------------------------------------- addresses

/** A TCP port of `host` that nobody listens on right now. */
async function freeTcpPort(host) {
  const server = net.createServer();
  server.listen(0, host);
  await once(server, "listening");
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

/** A UDP port of 127.0.0.1, with the one after it, that nobody holds right now. */
async function freeUdpPort() {
  for (;;) {
    const socket = dgram.createSocket("udp4");
    socket.bind(0, APP_HOST);
    await once(socket, "listening");
    const { port } = socket.address();
    socket.close();
    // The bridge falls back to the next port when its own is taken.
    if (port < 65535) return port;
  }
}

// ------------------------------------------------------------- certificates

/** A certificate authority and a server certificate for 127.0.0.2, made in `dir`. */
async function makeCertificates(dir) {
  const file = (name) => path.join(dir, name);
  // A configuration of our own, so that the machine's openssl.cnf plays no part.
  await writeFile(file("openssl.cnf"), "[req]\ndistinguished_name = dn\n[dn]\n");
  const request = ["req", "-x509", "-config", file("openssl.cnf"), "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
    "-nodes", "-days", "2"];
  await run("openssl", [...request, "-keyout", file("ca.key"), "-out", file("ca.pem"), "-subj", "/CN=Ferrylink Browser Test CA",
    "-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign"]);
  await run("openssl", [...request, "-keyout", file("server.key"), "-out", file("server.pem"),
    "-CA", file("ca.pem"), "-CAkey", file("ca.key"), "-subj", `/CN=${BACKEND_HOST}`,
    "-addext", "basicConstraints=critical,CA:FALSE", "-addext", "keyUsage=critical,digitalSignature",
    "-addext", "extendedKeyUsage=serverAuth", "-addext", `subjectAltName=IP:${BACKEND_HOST}`]);
  return { ca: file("ca.pem"), certificate: file("server.pem"), key: file("server.key") };
}

// ------------------------------------------------------------------ backend

/** Fills the backend's database from the fixture, through its own commands. */
async function seedBackend(database, fixture) {
  const backend = program("ferrylink-backend");
  for (const partner of fixture.getStatus ?? []) {
    await run(backend, ["partner", "add", "--db", database, "--ip", partner.ip, "--title", partner.title,
      "--port", partner.port, "--subtitle", partner.subtitle, "--players", partner.players,
      "--max-players", partner.maxPlayers, "--status", partner.status ? "on" : "off"]);
  }
  const blocked = (fixture.blacklist ?? []).map((entry) => entry.ip);
  if (blocked.length > 0) await run(backend, ["block", "add", "--db", database, ...blocked]);
  // Newest first on the wire: put them in from the last to the first.
  for (const message of [...(fixture.messages ?? [])].reverse()) {
    await run(backend, ["message", "add", "--db", database, "--version", message.version, message.message]);
  }
}

/**
 * `ferrylink-backend serve` on 127.0.0.2, filled while it serves: it answers
 * from what its database holds at each request. `waitForRequest("GET
 * /getStatus")` waits for its log to show one; stop(signal) fails unless it
 * ends cleanly on that signal and says so.
 */
async function startBackend({ dir, certificates, fixture }) {
  const database = path.join(dir, "backend.db");
  const child = new Child(program("ferrylink-backend"), ["serve", "--cert", certificates.certificate, "--key", certificates.key,
    "--listen", BACKEND_HOST, "--port", "0", "--db", database], { name: "ferrylink-backend" });
  const [, port] = await child.waitForLine(/serving https:\/\/[^\s]+:(\d+)/);
  await seedBackend(database, fixture);
  return {
    port: Number(port),
    waitForRequest: (text, options) => child.waitForLine(new RegExp(`"${text.replace(/[.*+?^${}()|[\]\\/]/g, "\\$&")}`), options),
    async stop(signal) {
      const { code } = await child.stop({ signal });
      if (code !== 0 || !child.lines.some((line) => line.endsWith(`stopping on ${signal}`))) {
        throw new Error(`ferrylink-backend did not stop cleanly on ${signal} (exit ${code}): ${child.errors}`);
      }
    },
  };
}

// ---------------------------------------------------------------------- app

/**
 * `ferrylink app` on 127.0.0.1. `backendPort` null points it at a port of
 * 127.0.0.2 where nothing listens: the backend is down.
 */
async function startApp({ dataDir, certificates, backendPort, bridgePort, port = 0, token = null }) {
  const backendAt = backendPort ?? await freeTcpPort(BACKEND_HOST);
  const env = {
    FERRYLINK_TEST_NAME_CHECK: "offline",
    FERRYLINK_TEST_LOCAL_ADDRESSES: "",
    // Nothing of the user's own settings may leak into a test.
    FERRYLINK_BACKEND_HOST: "",
    FERRYLINK_BACKEND_PORT: "",
    FERRYLINK_BACKEND_CA: "",
    FERRYLINK_DATA_DIR: "",
  };
  if (token) env.FERRYLINK_TEST_TOKEN = token;
  const child = new Child(program("ferrylink"), ["app",
    "--listen", `${APP_HOST}:${port}`,
    "--backend-host", BACKEND_HOST, "--backend-port", String(backendAt), "--backend-ca", certificates.ca,
    "--data-dir", dataDir,
    "--bridge-host", APP_HOST, "--bridge-port", String(bridgePort)], { env, name: "ferrylink app" });
  const [, url] = await child.waitForLine(/^Open (http:\/\/\S+)/);
  const address = new URL(url);
  return { base: address.origin, port: Number(address.port), token: address.searchParams.get("token") ?? "", child, stop: () => child.stop() };
}

// ------------------------------------------------------------ whole targets

/**
 * Opens a stream as a page of its own that reports itself hidden, so that
 * the app makes its first appearance (message, blocklist, partnered list)
 * before a test's page comes; then closes it again. With the backend up it
 * waits until the backend has answered the message and the blocklist, and,
 * when `expectMessage`, until the message is published: a test's page then
 * gets it in its first burst instead of in the middle of the test.
 */
async function warmUp(app, backend, expectMessage) {
  const page = "launcher0warm0up";
  const controller = new AbortController();
  const response = await fetch(addressOf(app, "/events", { page }), { signal: controller.signal });
  if (response.status !== 200) throw new Error(`the app's stream answered ${response.status}`);
  const reported = await fetch(addressOf(app, "/api/scene"), {
    method: "POST",
    headers: { "Content-Type": "application/json" },
    body: JSON.stringify({ page, phase: "hidden" }),
  });
  if (reported.status !== 204) throw new Error(`the app refused the warm-up's scene report: ${reported.status}`);
  try {
    if (!backend) return;
    await backend.waitForRequest("GET /message/by-version");
    await backend.waitForRequest("GET /blacklist/all");
    if (!expectMessage) return;
    const decoder = new TextDecoder();
    let buffer = "";
    for await (const chunk of response.body) {
      buffer += decoder.decode(chunk, { stream: true });
      if (/event: message\ndata: \{"message":\{/.test(buffer)) return;
    }
    throw new Error("the app's stream ended before the backend's message came");
  } finally {
    controller.abort();
  }
}

/**
 * The app under test with its backend. Options: `token`, a token the app asks
 * for even on loopback; `backend: false`, no backend at all (the app's
 * requests are refused); `backendStop`, the signal that ends the backend.
 *
 * launch() starts the app (`expectMessage`: whether it will present the
 * fixture's message at start; by default when the backend is up); restart()
 * ends it and starts it again on the same data folder and backend (and,
 * unless told otherwise, the same port and token).
 */
async function startTarget(options = {}) {
  const fixture = JSON.parse(await readFile(path.join(here, "fixtures/backend.json"), "utf8"));
  const dir = await mkdtemp(path.join(tmpdir(), "ferrylink-web-test-"));
  const certificates = await makeCertificates(dir);
  const dataDir = path.join(dir, "data");
  const bridgePort = await freeUdpPort();
  const backend = options.backend === false ? null : await startBackend({ dir, certificates, fixture });

  const target = { dir, dataDir, bridgePort, backend, certificates, fixture, app: null };
  target.launch = async ({ token = options.token ?? null, port = 0, expectMessage } = {}) => {
    const app = await startApp({ dataDir, certificates, backendPort: backend?.port ?? null, bridgePort, port, token });
    target.app = app;
    target.base = app.base;
    target.port = app.port;
    target.token = app.token;
    const wantsMessage = expectMessage ?? (backend !== null && (fixture.messages ?? []).length > 0);
    await warmUp(app, backend, wantsMessage);
    return target;
  };
  target.stopApp = async () => {
    const status = await target.app?.stop();
    target.app = null;
    return status;
  };
  target.restart = async (launchOptions = {}) => {
    const port = target.port;
    const token = target.token || null;
    await target.stopApp();
    return target.launch({ port, token, ...launchOptions });
  };
  target.close = async () => {
    await target.stopApp();
    await backend?.stop(options.backendStop ?? "SIGTERM");
    await rm(dir, { recursive: true, force: true });
  };

  try {
    await target.launch();
  } catch (error) {
    await target.close().catch(() => {});
    throw error;
  }
  return target;
}

// ------------------------------------------------------- simulated console

/**
 * Joins the bridge of `target` as a console would and reports where it was
 * sent: { code, transfer: "host:port" | null, output }.
 */
export async function joinAsConsole(target, { timeout = 20000 } = {}) {
  const child = new Child(program("ferrylink-simconsole"), ["--host", APP_HOST, "--port", String(target.bridgePort),
    "--timeout", String(timeout)], { name: "ferrylink-simconsole" });
  const { code } = await child.exited;
  const transfer = child.lines.map((line) => /^Transfer: (\S+)$/.exec(line)?.[1]).find(Boolean) ?? null;
  return { code, transfer, output: [...child.lines, child.errors].join("\n") };
}

// ------------------------------------------------------------------ browser

const PHONE = { width: 390, height: 844 };

const CHROMIUM_ARGS = [
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

/** An address of the target (or of an app), with its token if it has one. */
export function addressOf(target, pathname = "/", parameters = {}) {
  const url = new URL(pathname, target.base);
  for (const [name, value] of Object.entries(parameters)) url.searchParams.set(name, value);
  if (target.token) url.searchParams.set("token", target.token);
  return url.href;
}

/** Chromium with a profile of its own, removed again by close(). */
async function launchBrowser() {
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
async function openPage(context, target, { viewport = PHONE, dismissMessage = true } = {}) {
  const page = await context.newPage();
  await page.setViewportSize(viewport);
  const errors = [];
  page.on("pageerror", (error) => errors.push(error));
  page.on("console", (message) => {
    if (message.type() === "error") errors.push(new Error(message.text()));
  });
  page.errors = errors;
  await page.goto(addressOf(target));
  await synced(page, dismissMessage);
  return page;
}

/** Reloads the page and waits for its first whole state, as openPage does. */
export async function reload(page, { dismissMessage = true } = {}) {
  await page.reload();
  await synced(page, dismissMessage);
}

/** Waits for the page's first whole state; then presses "Ok" on the message if it is up (now or within a moment). */
async function synced(page, dismissMessage) {
  await page.waitForSelector('body[data-synced="true"]');
  if (!dismissMessage) return;
  const dialog = page.locator('dialog#alert[open][data-alert="message"]');
  if (!await dialog.waitFor({ timeout: 500 }).then(() => true, () => false)) return;
  await dialog.getByRole("button", { name: "Ok", exact: true }).click();
  await page.locator('dialog#alert[data-alert="message"]').waitFor({ state: "detached", timeout: 5000 }).catch(() => {});
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


/**
 * The app with its backend, and a browser, for one test file: started before
 * its first test and ended after its last. `open()` opens a page of it.
 */
export function useTarget(options = {}) {
  const shared = {};
  // Node runs a file's before hooks side by side: the file's own wait for this one.
  let started;
  const ready = new Promise((resolve) => { started = resolve; });
  before(async () => {
    try {
      shared.target = await startTarget(options);
      shared.browser = await launchBrowser();
    } finally {
      started();
    }
  });
  after(async () => {
    await shared.browser?.close();
    await shared.target?.close();
  });
  shared.open = async (openOptions) => {
    await ready;
    return openPage(shared.browser.context, shared.target, openOptions);
  };
  return shared;
}

/** Waits until the Run button reads `label` ("Run" or "Stop"). */
export async function waitForButton(page, label, { timeout = 15000 } = {}) {
  await page.waitForFunction((text) => document.querySelector("#run").textContent === text, label, { timeout });
}

/** Types the target into the form and presses Run (or Stop). */
export async function press(page, ip, port = "19132") {
  await page.fill("#ip", ip);
  await page.fill("#port", port);
  await page.click("#run");
}

/** What the form's host and port fields hold. */
export async function fields(page) {
  return [await page.inputValue("#ip"), await page.inputValue("#port")];
}

/** Each partnered row as title, players and the runs of its subtitle with their computed look. */
export async function partneredRows(page) {
  await page.waitForSelector('[data-testid="partnered-row"]');
  return page.$$eval('[data-testid="partnered-row"]', (rows) => rows.map((row) => ({
    title: row.querySelector('[data-testid="partnered-title"]').textContent,
    players: row.querySelector('[data-testid="partnered-players"]').textContent,
    runs: [...row.querySelectorAll(".run")].map((run) => {
      const style = getComputedStyle(run);
      const look = [style.color, style.fontWeight === "700" && "bold", style.fontStyle === "italic" && "italic",
        style.textDecorationLine !== "none" && style.textDecorationLine];
      return [run.textContent, look.filter(Boolean).join(" ")];
    }),
  })));
}

/** Makes the page report itself seen or not, as a switch of tabs or a locked phone does. */
export async function setVisibility(page, visibility) {
  await page.evaluate((state) => {
    Object.defineProperty(document, "visibilityState", { value: state, configurable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  }, visibility);
}

export async function waitForScene(page, phase) {
  await page.waitForFunction((wanted) => document.body.dataset.scene === wanted, phase, { timeout: 15000 });
}

/** Presses a button of the open alert and waits until it has gone. */
export async function answerAlert(page, label) {
  await page.locator("dialog#alert[open]").getByRole("button", { name: label, exact: true }).click();
  await noAlert(page);
}
