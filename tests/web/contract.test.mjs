// The web contract seen from outside the page: the stream's first burst,
// each action's answers to good and bad requests, the access token, and the
// headers of the document.

import assert from "node:assert/strict";
import http from "node:http";
import { after, before, describe, test } from "node:test";
import { addressOf, launchBrowser, openPage, request, startTarget } from "./harness.mjs";

const PAGE = "contract0test0page";

let target;

before(async () => {
  target = await startTarget();
});

after(async () => {
  await target?.close();
});

/** Opens /events and collects events until `until(events)` holds. */
async function collectEvents(on, page, until) {
  const controller = new AbortController();
  const response = await fetch(addressOf(on, "/events", { page }), { signal: controller.signal });
  assert.equal(response.status, 200);
  assert.match(response.headers.get("content-type"), /^text\/event-stream/);
  const events = [];
  const decoder = new TextDecoder();
  let buffer = "";
  try {
    for await (const chunk of response.body) {
      buffer += decoder.decode(chunk, { stream: true });
      let end;
      while ((end = buffer.indexOf("\n\n")) >= 0) {
        const block = buffer.slice(0, end);
        buffer = buffer.slice(end + 2);
        const name = /^event: (.*)$/m.exec(block)?.[1];
        const data = /^data: (.*)$/m.exec(block)?.[1];
        if (name && data) events.push({ name, data: JSON.parse(data) });
      }
      if (until(events)) break;
    }
  } finally {
    controller.abort();
  }
  return events;
}

describe("event stream", () => {
  test("opens with every model once, in the contract's order", async () => {
    const events = await collectEvents(target, PAGE, (list) => list.length >= 6);
    assert.deepEqual(events.slice(0, 6).map((event) => event.name), ["scene", "running", "form", "favourites", "featured", "message"]);
    const byName = Object.fromEntries(events.slice(0, 6).map((event) => [event.name, event.data]));
    assert.ok(["active", "inactive", "background"].includes(byName.scene.phase));
    assert.deepEqual(Object.keys(byName.running).sort(), ["server", "serverState"]);
    assert.deepEqual(byName.form, { emptyIpAlert: false, hypixelAlert: false, invalidIp: false });
    assert.ok(Array.isArray(byName.favourites.servers));
    assert.equal(typeof byName.featured.featured, "boolean");
    assert.ok(Array.isArray(byName.featured.servers));
    assert.ok("message" in byName.message);
  });

  test("partnered rows carry their subtitle as runs of text, style and colour", async () => {
    const events = await collectEvents(target, PAGE, (list) => list.some((e) => e.name === "featured" && e.data.servers.length > 0));
    const featured = events.findLast((event) => event.name === "featured").data;
    for (const row of featured.servers) {
      assert.deepEqual(Object.keys(row).sort(), ["ip", "maxPlayers", "players", "port", "status", "subtitleRuns", "title"]);
      for (const run of row.subtitleRuns) {
        assert.equal(typeof run.text, "string");
        assert.ok(["none", "obfuscated", "bold", "strikethrough", "underline", "italic", "reset"].includes(run.style));
        assert.equal(run.color.length, 3);
        assert.ok(run.color.every((component) => Number.isInteger(component) && component >= 0 && component <= 255));
      }
    }
  });

  test("a form event goes only to the page whose run raised it", async () => {
    const other = "contract0other0page";
    const marker = "marker.example.net";
    const hasMarker = (list) => list.some((e) => e.name === "favourites" && e.data.servers.some((row) => row.ip === marker));
    // Both streams stay open until a favourite, which goes to everyone, comes
    // after the run: the stream is ordered, so a stray form event would be
    // in front of it.
    const theirs = collectEvents(target, other, hasMarker);
    const mine = collectEvents(target, PAGE, hasMarker);
    await new Promise((resolve) => setTimeout(resolve, 200));
    assert.equal((await request(target, "POST", "/api/run", { body: { page: PAGE, ip: " ", port: "19132" } })).status, 204);
    const added = await request(target, "POST", "/api/favourites", { body: { ip: marker, port: "1" } });
    assert.equal(added.status, 201);

    const raised = { emptyIpAlert: true, hypixelAlert: false, invalidIp: false };
    assert.deepEqual((await mine).findLast((event) => event.name === "form").data, raised);
    assert.deepEqual((await theirs).filter((event) => event.name === "form").map((event) => event.data),
      [{ emptyIpAlert: false, hypixelAlert: false, invalidIp: false }]);

    assert.equal((await request(target, "POST", "/api/alert/dismiss", { body: { page: PAGE, alert: "emptyIpAlert" } })).status, 204);
    const after = await collectEvents(target, PAGE, (list) => list.length >= 6);
    assert.deepEqual(after.find((event) => event.name === "form").data, { emptyIpAlert: false, hypixelAlert: false, invalidIp: false });
    assert.equal((await request(target, "DELETE", `/api/favourites/${encodeURIComponent(added.body.id)}`)).status, 204);
  });
});

describe("actions", () => {
  test("favourites: 201 with the new row, 204 on delete, 404 for an unknown row", async () => {
    const added = await request(target, "POST", "/api/favourites", { body: { ip: "Play.Example.NET ", port: "" } });
    assert.equal(added.status, 201);
    assert.deepEqual({ ip: added.body.ip, port: added.body.port }, { ip: "Play.Example.NET ", port: "19132" });
    assert.equal(typeof added.body.id, "string");
    const removed = await request(target, "DELETE", `/api/favourites/${encodeURIComponent(added.body.id)}`);
    assert.equal(removed.status, 204);
    const again = await request(target, "DELETE", `/api/favourites/${encodeURIComponent(added.body.id)}`);
    assert.equal(again.status, 404);
    assert.equal(typeof again.body.error, "string");
  });

  test("the switch, the appearance and the scene reports answer 204", async () => {
    assert.equal((await request(target, "POST", "/api/featured", { body: { featured: true } })).status, 204);
    assert.equal((await request(target, "POST", "/api/appear", { body: { page: PAGE, screen: "ConnectView" } })).status, 204);
    for (const phase of ["active", "inactive", "hidden"]) {
      assert.equal((await request(target, "POST", "/api/scene", { body: { page: PAGE, phase } })).status, 204);
    }
  });

  test("a message dismissal with another key is a 409", async () => {
    const answer = await request(target, "POST", "/api/message/dismiss", { body: { key: "bm90IHRoZSBtZXNzYWdl" } });
    assert.equal(answer.status, 409);
    assert.equal(typeof answer.body.error, "string");
  });
});

describe("malformed requests", () => {
  const cases = [
    ["body that is no JSON", "/api/run", "{not json", false],
    ["body that is an array", "/api/run", [1], true],
    ["missing ip", "/api/run", { page: PAGE, port: "1" }, true],
    ["ip that is a number", "/api/run", { page: PAGE, ip: 5, port: "1" }, true],
    ["port that is null", "/api/run", { page: PAGE, ip: "a", port: null }, true],
    ["missing page", "/api/run", { ip: "a", port: "1" }, true],
    ["page id with a slash", "/api/run", { page: "a/b", ip: "a", port: "1" }, true],
    ["unknown alert flag", "/api/alert/dismiss", { page: PAGE, alert: "otherAlert" }, true],
    ["favourite without port", "/api/favourites", { ip: "a" }, true],
    ["featured as text", "/api/featured", { featured: "false" }, true],
    ["message key as number", "/api/message/dismiss", { key: 1 }, true],
    ["scene phase of the server's own", "/api/scene", { page: PAGE, phase: "background" }, true],
    ["appearance of an unknown screen", "/api/appear", { page: PAGE, screen: "HelpView" }, true],
  ];
  for (const [name, pathname, body, json] of cases) {
    test(`${name} is a 400 with an error text`, async () => {
      const answer = await request(target, "POST", pathname, {
        body: json ? body : String(body),
        json,
        headers: json ? {} : { "Content-Type": "application/json" },
      });
      assert.equal(answer.status, 400);
      assert.match(answer.headers.get("content-type"), /^application\/json/);
      assert.equal(typeof answer.body.error, "string");
      assert.ok(answer.body.error.length > 0);
    });
  }

  test("a body of another type is a 415", async () => {
    const answer = await request(target, "POST", "/api/run", {
      body: JSON.stringify({ page: PAGE, ip: "a", port: "1" }),
      json: false,
      headers: { "Content-Type": "text/plain" },
    });
    assert.equal(answer.status, 415);
    assert.equal(typeof answer.body.error, "string");
  });

  test("the stream without a page id is a 400", async () => {
    const answer = await request(target, "GET", "/events");
    assert.equal(answer.status, 400);
  });

  test("an unknown path is a 404, a wrong method a 405 with Allow", async () => {
    const missing = await request(target, "GET", "/api/nothing");
    assert.equal(missing.status, 404);
    assert.equal(typeof missing.body.error, "string");
    const wrong = await request(target, "GET", "/api/run");
    assert.equal(wrong.status, 405);
    assert.equal(wrong.headers.get("allow"), "POST");
  });

  test("a Host that is not loopback is a 403", async () => {
    const base = new URL(target.base);
    const status = await new Promise((resolve, reject) => {
      const outgoing = http.request({
        host: base.hostname,
        port: base.port,
        path: new URL(addressOf(target, "/")).pathname + new URL(addressOf(target, "/")).search,
        headers: { Host: `attacker.example:${base.port}` },
      }, (response) => {
        response.resume();
        resolve(response.statusCode);
      });
      outgoing.on("error", reject);
      outgoing.end();
    });
    assert.equal(status, 403);
  });
});

describe("the document", () => {
  test("is served with its security headers", async () => {
    const response = await fetch(addressOf(target, "/"));
    assert.equal(response.status, 200);
    assert.match(response.headers.get("content-type"), /^text\/html/);
    assert.match(response.headers.get("content-security-policy"), /default-src 'self'/);
    assert.equal(response.headers.get("referrer-policy"), "no-referrer");
    assert.equal(response.headers.get("x-content-type-options"), "nosniff");
  });

  test("static files are served with their types; paths outside the page are not", async () => {
    const css = await fetch(new URL("/style.css", target.base));
    assert.equal(css.status, 200);
    assert.match(css.headers.get("content-type"), /^text\/css/);
    const js = await fetch(new URL("/js/main.js", target.base));
    assert.equal(js.status, 200);
    assert.match(js.headers.get("content-type"), /^text\/javascript/);
    for (const pathname of ["/js/../../API.md", "/js/%2e%2e/%2e%2e/API.md", "/js/..%2f..%2fAPI.md", "/API.md", "/js/"]) {
      const response = await fetch(new URL(pathname, target.base));
      assert.equal(response.status, 404, pathname);
    }
  });
});

describe("access token", () => {
  let guarded;

  before(async () => {
    guarded = await startTarget({ token: "0123456789abcdef0123456789abcdef" });
  });

  after(async () => {
    await guarded?.close();
  });

  test("without it, the document, the stream and the actions are a 401", async () => {
    const withoutToken = { ...guarded, token: "" };
    const wrongToken = { ...guarded, token: "ffffffffffffffffffffffffffffffff" };
    for (const on of [withoutToken, wrongToken]) {
      const document = await fetch(addressOf(on, "/"));
      assert.equal(document.status, 401);
      const stream = await request(on, "GET", "/events", { parameters: { page: PAGE } });
      assert.equal(stream.status, 401);
      assert.equal(typeof stream.body.error, "string");
      const run = await request(on, "POST", "/api/run", { body: { page: PAGE, ip: "a", port: "1" } });
      assert.equal(run.status, 401);
      const favourite = await request(on, "POST", "/api/favourites", { body: { ip: "a", port: "1" } });
      assert.equal(favourite.status, 401);
    }
    assert.equal((await fetch(new URL("/style.css", guarded.base))).status, 200);
  });

  test("the page carries it on every action and on the stream", async () => {
    const browser = await launchBrowser();
    try {
      const seen = [];
      browser.context.on("request", (outgoing) => {
        const url = new URL(outgoing.url());
        if (url.pathname === "/events" || url.pathname.startsWith("/api/")) seen.push(url);
      });
      const page = await openPage(browser.context, guarded);
      await page.fill("#ip", "");
      await page.click("#run");
      await page.locator("dialog#alert[open]").getByRole("button", { name: "OK", exact: true }).click();
      await page.click("#add-favourite");
      await page.waitForSelector('[data-testid="favourite-row"]');
      await page.click("#featured-toggle");
      await page.waitForFunction(() => document.querySelector("#featured-toggle").getAttribute("aria-checked") === "false");
      const paths = new Set(seen.map((url) => url.pathname));
      for (const pathname of ["/events", "/api/scene", "/api/run", "/api/alert/dismiss", "/api/favourites", "/api/featured"]) {
        assert.ok(paths.has(pathname), `no request to ${pathname}`);
      }
      for (const url of seen) assert.equal(url.searchParams.get("token"), guarded.token, url.pathname);
      assert.equal(await page.locator("#banner").isVisible(), false);
    } finally {
      await browser.close();
    }
  });

  test("a page whose server came back with a new token says so and stops retrying", async () => {
    const browser = await launchBrowser();
    const restarted = await startTarget({ token: "00000000000000000000000000000001" });
    try {
      const page = await openPage(browser.context, restarted);
      const oldAddress = addressOf(restarted, "/");
      await restarted.restart({ token: "00000000000000000000000000000002" });
      await page.waitForFunction(() => document.body.dataset.stream === "unauthorized", null, { timeout: 15000 });
      assert.equal(await page.textContent("#banner"), "This address lacks its access token. Open the address that ferrylink printed when it started.");
      assert.equal(await page.locator("#banner").isVisible(), true);
      const refused = await fetch(oldAddress);
      assert.equal(refused.status, 401);
      assert.match(await refused.text(), /access token/);
    } finally {
      await browser.close();
      await restarted.close();
    }
  });
});
