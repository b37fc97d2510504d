// A stand-in for `ferrylink app` while the core is being written: it serves
// the page and speaks the web contract (app/web/API.md) over in-memory
// models, so the page can be driven and photographed. It binds loopback only.
// There is no bridge behind Run: starting and stopping only move the models,
// and the name check is a fixed rule that asks no resolver.
//
//   node dev_server.mjs [--port 8080] [--token <hex>] [--grace-ms 2000]

import { Buffer } from "node:buffer";
import { timingSafeEqual } from "node:crypto";
import { readFile } from "node:fs/promises";
import http from "node:http";
import path from "node:path";
import { fileURLToPath } from "node:url";

const here = path.dirname(fileURLToPath(import.meta.url));
export const PAGE_ROOT = path.resolve(here, "../../app/web/page");
export const FIXTURE_PATH = path.join(here, "fixtures/backend.json");

const NOT_RUNNING = "Server is not running!";
const BODY_LIMIT = 64 * 1024;
const PAGE_ID = /^[A-Za-z0-9_-]{1,64}$/;
const ALERT_FLAGS = ["emptyIpAlert", "hypixelAlert", "invalidIp"];
const REPORTS = ["active", "inactive", "hidden"];
const PLACEHOLDER = {
  status: true, ip: "0.0.0.0", port: "19132", title: "Partnered servers",
  subtitle: "§l§funavailable!", players: "-", maxPlayers: "-",
};

// ---------------------------------------------------------------- styled text

const STYLE_CODES = { "§k": "obfuscated", "§l": "bold", "§m": "strikethrough", "§n": "underline", "§o": "italic" };
const COLOURS = [
  ["§4", [170, 0, 0]], ["§c", [255, 85, 85]], ["§6", [255, 170, 0]], ["§e", [255, 255, 85]],
  ["§2", [0, 170, 0]], ["§a", [85, 255, 85]], ["§3", [0, 170, 170]], ["§b", [85, 255, 255]],
  ["§1", [0, 0, 170]], ["§9", [85, 85, 255]], ["§5", [170, 0, 170]], ["§d", [255, 85, 255]],
  ["§8", [170, 170, 170]], ["§7", [85, 85, 85]], ["§0", [0, 0, 0]],
];

function colorForCode(code) {
  return COLOURS.find(([candidate]) => candidate === code)?.[1] ?? [255, 255, 255];
}

/** The section-sign text of a server list as runs: style codes first, then colours. */
export function styledRuns(text) {
  const chars = Array.from(text);
  const slice = (from, to) => chars.slice(from, Math.min(to, chars.length)).join("");
  const pieces = [];
  let style = "none";
  let start = 0;
  for (let i = 0; i < chars.length; i++) {
    if (chars[i] !== "§") continue;
    const pair = slice(i, i + 2);
    if (pair < "§k") continue;
    if (i > start) pieces.push({ text: slice(start, i), style });
    style = STYLE_CODES[pair] ?? "reset";
    start = i + 2;
  }
  if (start < chars.length) pieces.push({ text: slice(start, chars.length), style });

  const runs = [];
  for (const piece of pieces) {
    const pc = Array.from(piece.text);
    const part = (from, to) => pc.slice(from, Math.min(to, pc.length)).join("");
    let color = [200, 200, 200];
    let runStart = 0;
    for (let j = 0; j < pc.length; j++) {
      if (pc[j] !== "§") continue;
      if (j > runStart) runs.push({ text: part(runStart, j), style: piece.style, color });
      runStart = j + 2;
      color = colorForCode(part(j, j + 2));
    }
    if (runStart < pc.length) runs.push({ text: part(runStart, pc.length), style: piece.style, color });
  }
  return runs;
}

// --------------------------------------------------------------- HTTP helpers

class HttpError extends Error {
  constructor(status, message, headers = {}) {
    super(message);
    this.status = status;
    this.headers = headers;
  }
}

function sendJson(response, status, value, headers = {}) {
  const body = JSON.stringify(value);
  response.writeHead(status, {
    "Content-Type": "application/json",
    "Content-Length": Buffer.byteLength(body),
    "Cache-Control": "no-store",
    ...headers,
  });
  response.end(body);
}

function noContent(response) {
  response.writeHead(204, { "Cache-Control": "no-store" });
  response.end();
}

async function readJsonBody(request) {
  const type = (request.headers["content-type"] ?? "").split(";")[0].trim().toLowerCase();
  if (type !== "application/json") throw new HttpError(415, "expected a body of type application/json");
  const chunks = [];
  let size = 0;
  for await (const chunk of request) {
    size += chunk.length;
    if (size > BODY_LIMIT) throw new HttpError(413, "body over 64 KiB");
    chunks.push(chunk);
  }
  let value;
  try {
    value = JSON.parse(Buffer.concat(chunks).toString("utf8"));
  } catch {
    throw new HttpError(400, "body is not valid JSON");
  }
  if (value === null || typeof value !== "object" || Array.isArray(value)) throw new HttpError(400, "body is not a JSON object");
  return value;
}

function field(body, name, type) {
  if (!(name in body)) throw new HttpError(400, `missing member '${name}'`);
  if (typeof body[name] !== type) throw new HttpError(400, `member '${name}' must be a ${type}`);
  return body[name];
}

function oneOf(body, name, values) {
  const value = field(body, name, "string");
  if (!values.includes(value)) throw new HttpError(400, `member '${name}' must be one of ${values.join(", ")}`);
  return value;
}

function pageId(value) {
  if (typeof value !== "string" || !PAGE_ID.test(value)) throw new HttpError(400, "missing or malformed page id");
  return value;
}

function sameToken(given, expected) {
  const a = Buffer.from(given ?? "");
  const b = Buffer.from(expected);
  return a.length === b.length && timingSafeEqual(a, b);
}

// ---------------------------------------------------------------- the models

class App {
  constructor({ fixture, graceMs, forgetMs, backendHost, javaFragment }) {
    this.fixture = fixture;
    this.graceMs = graceMs;
    this.forgetMs = forgetMs;
    this.backendHost = backendHost;
    this.javaFragment = javaFragment;
    this.server = null;
    this.serverState = NOT_RUNNING;
    this.favourites = [];
    this.nextFavouriteId = 1;
    this.defaults = new Map();
    this.featured = true;
    this.partnered = [];
    this.blacklist = [];
    this.messages = [];
    this.phase = "background";
    this.pages = new Map();
    this.appeared = false;
    this.graceTimer = null;
    this.timers = new Set();
    this.closed = false;
  }

  later(ms, task) {
    // Streams that close while the server shuts down must not start new timers.
    if (this.closed) return null;
    const timer = setTimeout(() => {
      this.timers.delete(timer);
      task();
    }, ms);
    this.timers.add(timer);
    return timer;
  }

  cancel(timer) {
    if (!timer) return;
    clearTimeout(timer);
    this.timers.delete(timer);
  }

  page(id) {
    let page = this.pages.get(id);
    if (!page) {
      page = { phase: null, streams: new Set(), flags: { emptyIpAlert: false, hypixelAlert: false, invalidIp: false }, forget: null };
      this.pages.set(id, page);
    }
    return page;
  }

  // Models as the stream carries them.
  snapshot(name, page) {
    switch (name) {
      case "scene": return { phase: this.phase };
      case "running": return { server: this.server, serverState: this.serverState };
      case "form": return { ...page.flags };
      case "favourites": return { servers: this.favourites.map((server) => ({ ...server })) };
      case "featured": return {
        featured: this.featured,
        servers: this.partnered.map(({ subtitle, ...row }) => ({ ...row, subtitleRuns: styledRuns(subtitle) })),
      };
      case "message": return { message: this.pendingMessage() };
      default: throw new Error(`no model ${name}`);
    }
  }

  publish(name) {
    for (const page of this.pages.values()) {
      for (const stream of page.streams) stream.send(name, this.snapshot(name, page));
    }
  }

  publishForm(page) {
    for (const stream of page.streams) stream.send("form", this.snapshot("form", page));
  }

  // Backend, served from the fixture.
  fetchStatus() {
    const rows = this.fixture.getStatus;
    this.partnered = Array.isArray(rows) ? rows.map((row) => ({ ...row })) : [{ ...PLACEHOLDER }];
    this.publish("featured");
  }

  pendingMessage() {
    const first = this.messages[0];
    if (!first) return null;
    const key = Buffer.from(first.message, "utf8").toString("base64");
    if (this.defaults.has(key)) return null;
    return { id: first.id, version: first.version, message: first.message, key };
  }

  firstAppearance() {
    if (this.appeared) return;
    this.appeared = true;
    this.messages = [...(this.fixture.messages ?? [])];
    this.blacklist = [...(this.fixture.blacklist ?? [])];
    if (this.featured) this.fetchStatus();
    this.publish("message");
  }

  // runOrStop and its helpers.
  runOrStop(page, ip, portText) {
    let host = ip.replaceAll(" ", "").toLowerCase();
    let port = Array.from(portText).filter((c) => "0123456789".includes(c)).join("");
    if (host.startsWith("http://")) host = host.replaceAll("http://", "");
    if (host.startsWith("https://")) host = host.replaceAll("https://", "");
    const pieces = host.split(":").filter((piece) => piece !== "");
    if (pieces.length > 0) host = pieces[0];
    if (host === "") return this.toggle(page, "emptyIpAlert");
    if (port.length >= 7) port = port.slice(0, 6);
    if (this.javaFragment && host.includes(this.javaFragment)) return this.toggle(page, "hypixelAlert");
    if (this.blacklist.some((entry) => entry.ip === host)) return this.toggle(page, "hypixelAlert");
    if (this.backendHost && host.includes(this.backendHost)) return undefined;
    if (!resolves(host)) return this.toggle(page, "invalidIp");
    if (this.server === null) this.startServer(host, port);
    else this.stopServer();
    return undefined;
  }

  toggle(page, flag) {
    page.flags[flag] = !page.flags[flag];
    this.publishForm(page);
  }

  startServer(host, port) {
    const transferPort = port === "" ? 19132 : Number.parseInt(port, 10);
    this.server = { transferHost: host, transferPort };
    this.serverState = `Server is running and will transfer to ${host}:${port}!`;
    this.publish("running");
  }

  stopServer() {
    this.server = null;
    this.publish("running");
    // The bridge reports its close a moment later, from its own queue.
    this.later(0, () => this.serverClosed());
  }

  serverClosed() {
    this.server = null;
    this.serverState = NOT_RUNNING;
    this.publish("running");
  }

  // Scene phase out of the pages' reports.
  updatePhase() {
    const visible = [...this.pages.values()].filter((page) => page.streams.size > 0 && page.phase !== "hidden");
    if (visible.length > 0) {
      this.cancel(this.graceTimer);
      this.graceTimer = null;
      this.setPhase(visible.some((page) => page.phase === "active") ? "active" : "inactive");
    } else if (this.phase !== "background" && !this.graceTimer) {
      this.graceTimer = this.later(this.graceMs, () => {
        this.graceTimer = null;
        this.setPhase("background");
      });
    }
  }

  setPhase(phase) {
    if (phase === this.phase) return;
    this.phase = phase;
    if (phase === "background" && this.server !== null) {
      this.server = null;
      this.publish("running");
      this.later(0, () => this.serverClosed());
    }
    if (phase === "active") this.fetchStatus();
    this.publish("scene");
  }

  close() {
    this.closed = true;
    for (const timer of this.timers) clearTimeout(timer);
    this.timers.clear();
    for (const page of this.pages.values()) for (const stream of page.streams) stream.end();
  }
}

/** The dev server's name check: plain host names and IPv4 literals pass, ".invalid" names fail. */
function resolves(host) {
  if (host.endsWith(".invalid") || host === "invalid") return false;
  return /^[a-z0-9]([a-z0-9-]*[a-z0-9])?(\.[a-z0-9]([a-z0-9-]*[a-z0-9])?)*\.?$/.test(host);
}

// ---------------------------------------------------------------- the server

const STATIC = new Map([
  ["/style.css", "text/css; charset=utf-8"],
]);

const ROUTES = {
  "/api/run": ["POST"],
  "/api/alert/dismiss": ["POST"],
  "/api/favourites": ["POST"],
  "/api/featured": ["POST"],
  "/api/message/dismiss": ["POST"],
  "/api/scene": ["POST"],
  "/api/appear": ["POST"],
  "/events": ["GET"],
};

export async function startDevServer({
  port = 0,
  token = null,
  graceMs = 2000,
  forgetMs = 30000,
  fixture = null,
  backendHost = "backend.ferrylink.invalid",
  javaFragment = "java-only.invalid",
  keepaliveMs = 15000,
} = {}) {
  const data = fixture ?? JSON.parse(await readFile(FIXTURE_PATH, "utf8"));
  const app = new App({ fixture: data, graceMs, forgetMs, backendHost, javaFragment });
  let listeningPort = 0;

  const loopbackHosts = () => new Set([`127.0.0.1:${listeningPort}`, `localhost:${listeningPort}`, `[::1]:${listeningPort}`]);

  async function serveFile(response, file, type, headers = {}) {
    let body;
    try {
      body = await readFile(path.join(PAGE_ROOT, file));
    } catch {
      throw new HttpError(404, "not found");
    }
    response.writeHead(200, { "Content-Type": type, "Content-Length": body.length, "X-Content-Type-Options": "nosniff", "Cache-Control": "no-cache", ...headers });
    response.end(body);
  }

  function openStream(request, response, id) {
    const page = app.page(id);
    app.cancel(page.forget);
    page.forget = null;
    response.writeHead(200, {
      "Content-Type": "text/event-stream",
      "Cache-Control": "no-store",
      Connection: "keep-alive",
      "X-Accel-Buffering": "no",
    });
    const stream = {
      send(name, value) {
        response.write(`event: ${name}\ndata: ${JSON.stringify(value)}\n\n`);
      },
      end() {
        response.end();
      },
    };
    const keepalive = setInterval(() => response.write(": keepalive\n\n"), keepaliveMs);
    keepalive.unref();
    page.streams.add(stream);
    for (const name of ["scene", "running", "form", "favourites", "featured", "message"]) stream.send(name, app.snapshot(name, page));
    app.firstAppearance();
    app.updatePhase();
    request.on("close", () => {
      clearInterval(keepalive);
      page.streams.delete(stream);
      if (page.streams.size === 0) {
        page.forget = app.later(app.forgetMs, () => {
          if (page.streams.size === 0) app.pages.delete(id);
        });
      }
      app.updatePhase();
    });
  }

  async function handle(request, response) {
    const url = new URL(request.url, "http://placeholder");
    const pathname = url.pathname;

    if (!loopbackHosts().has(request.headers.host ?? "")) throw new HttpError(403, "forbidden host");

    if (STATIC.has(pathname)) {
      if (request.method !== "GET" && request.method !== "HEAD") throw new HttpError(405, "method not allowed", { Allow: "GET" });
      return serveFile(response, pathname.slice(1), STATIC.get(pathname));
    }
    if (/^\/js\/[a-z_]+\.js$/.test(pathname)) {
      if (request.method !== "GET" && request.method !== "HEAD") throw new HttpError(405, "method not allowed", { Allow: "GET" });
      return serveFile(response, pathname.slice(1), "text/javascript; charset=utf-8");
    }

    const guarded = pathname === "/" || pathname === "/index.html" || pathname === "/events" || pathname.startsWith("/api/");
    if (!guarded) throw new HttpError(404, "not found");
    if (token !== null && !sameToken(url.searchParams.get("token"), token)) {
      if (pathname.startsWith("/api/") || pathname === "/events") throw new HttpError(401, "missing or wrong access token");
      response.writeHead(401, { "Content-Type": "text/plain; charset=utf-8" });
      response.end("This address lacks its access token. Open the address that ferrylink printed when it started.\n");
      return undefined;
    }

    if (pathname === "/" || pathname === "/index.html") {
      if (request.method !== "GET" && request.method !== "HEAD") throw new HttpError(405, "method not allowed", { Allow: "GET" });
      return serveFile(response, "index.html", "text/html; charset=utf-8", {
        "Content-Security-Policy": "default-src 'self'; img-src 'self' data:; style-src 'self'; script-src 'self'; connect-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'",
        "Referrer-Policy": "no-referrer",
        "Cache-Control": "no-store",
      });
    }

    const favourite = /^\/api\/favourites\/([^/]+)$/.exec(pathname);
    if (favourite) {
      if (request.method !== "DELETE") throw new HttpError(405, "method not allowed", { Allow: "DELETE" });
      const id = decodeURIComponent(favourite[1]);
      const index = app.favourites.findIndex((server) => server.id === id);
      if (index < 0) throw new HttpError(404, "no such favourite");
      app.favourites.splice(index, 1);
      app.publish("favourites");
      return noContent(response);
    }

    const methods = ROUTES[pathname];
    if (!methods) throw new HttpError(404, "not found");
    if (!methods.includes(request.method)) throw new HttpError(405, "method not allowed", { Allow: methods.join(", ") });

    if (pathname === "/events") return openStream(request, response, pageId(url.searchParams.get("page")));

    const body = await readJsonBody(request);
    switch (pathname) {
      case "/api/run": {
        const page = app.page(pageId(body.page));
        app.runOrStop(page, field(body, "ip", "string"), field(body, "port", "string"));
        return noContent(response);
      }
      case "/api/alert/dismiss": {
        const page = app.page(pageId(body.page));
        const flag = oneOf(body, "alert", ALERT_FLAGS);
        if (page.flags[flag]) {
          page.flags[flag] = false;
          app.publishForm(page);
        }
        return noContent(response);
      }
      case "/api/favourites": {
        const ip = field(body, "ip", "string");
        const port = field(body, "port", "string");
        const server = { id: String(app.nextFavouriteId++), ip, port: port === "" ? "19132" : port };
        app.favourites.push(server);
        app.publish("favourites");
        return sendJson(response, 201, server);
      }
      case "/api/featured": {
        const featured = field(body, "featured", "boolean");
        if (featured !== app.featured) {
          app.featured = featured;
          app.defaults.set("featuredHide", featured);
          if (featured) app.fetchStatus();
          else app.publish("featured");
        }
        return noContent(response);
      }
      case "/api/message/dismiss": {
        const key = field(body, "key", "string");
        if (app.pendingMessage()?.key !== key) throw new HttpError(409, "no pending message with that key");
        app.defaults.set(key, true);
        app.publish("message");
        return noContent(response);
      }
      case "/api/appear": {
        app.page(pageId(body.page));
        oneOf(body, "screen", ["ConnectView"]);
        if (app.featured) app.fetchStatus();
        return noContent(response);
      }
      case "/api/scene": {
        const page = app.page(pageId(body.page));
        page.phase = oneOf(body, "phase", REPORTS);
        app.updatePhase();
        return noContent(response);
      }
      default:
        throw new HttpError(404, "not found");
    }
  }

  const server = http.createServer((request, response) => {
    handle(request, response).catch((error) => {
      if (!(error instanceof HttpError)) {
        console.error(error);
        error = new HttpError(500, "internal error");
      }
      if (response.headersSent) {
        response.destroy();
        return;
      }
      sendJson(response, error.status, { error: error.message }, error.headers);
    });
  });

  await new Promise((resolve, reject) => {
    server.once("error", reject);
    server.listen(port, "127.0.0.1", resolve);
  });
  listeningPort = server.address().port;
  const base = `http://127.0.0.1:${listeningPort}`;

  return {
    url: token ? `${base}/?token=${token}` : `${base}/`,
    base,
    port: listeningPort,
    token,
    app,
    async close() {
      app.close();
      server.closeAllConnections();
      await new Promise((resolve) => server.close(resolve));
    },
  };
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const options = {};
  const args = process.argv.slice(2);
  for (let i = 0; i < args.length; i += 2) {
    const [name, value] = [args[i], args[i + 1]];
    if (name === "--port") options.port = Number(value);
    else if (name === "--token") options.token = value;
    else if (name === "--grace-ms") options.graceMs = Number(value);
    else {
      console.error(`unknown option ${name}`);
      process.exit(2);
    }
  }
  const running = await startDevServer({ port: 8080, ...options });
  console.log(`Open ${running.url}`);
}
