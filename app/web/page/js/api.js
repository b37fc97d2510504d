// The page's side of the app's web contract: actions as JSON requests, and
// the event stream that carries the app's models. Every request carries the
// access token the page was opened with (if any).

export class ApiError extends Error {
  constructor(status, message) {
    super(message);
    this.name = "ApiError";
    this.status = status;
  }
}

/** 32 hex digits that name this page load on the server. */
export function makePageId() {
  const bytes = new Uint8Array(16);
  crypto.getRandomValues(bytes);
  return Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join("");
}

export class Api {
  constructor({ token, pageId }) {
    this.token = token;
    this.pageId = pageId;
  }

  /** An address of the server, with the token and the given parameters. */
  url(path, parameters = {}) {
    const url = new URL(path, window.location.origin);
    for (const [name, value] of Object.entries(parameters)) url.searchParams.set(name, value);
    if (this.token) url.searchParams.set("token", this.token);
    return url.href;
  }

  eventsUrl() {
    return this.url("/events", { page: this.pageId });
  }

  async #send(method, path, body, { keepalive = false } = {}) {
    const init = { method, cache: "no-store", keepalive, headers: { Accept: "application/json" } };
    if (body !== undefined) {
      init.headers["Content-Type"] = "application/json";
      init.body = JSON.stringify(body);
    }
    const response = await fetch(this.url(path), init);
    if (!response.ok) {
      let message = `${method} ${path} answered ${response.status}`;
      try {
        const error = await response.json();
        if (typeof error?.error === "string") message = error.error;
      } catch {
        // The status says enough.
      }
      throw new ApiError(response.status, message);
    }
    if (response.status === 204) return null;
    return response.json();
  }

  setFields(ip, port) {
    return this.#send("POST", "/api/form", { ip, port });
  }

  run(ip, port) {
    return this.#send("POST", "/api/run", { ip, port });
  }

  dismissAlert(alert) {
    return this.#send("POST", "/api/alert/dismiss", { alert });
  }

  addFavourite(ip, port) {
    return this.#send("POST", "/api/favourites", { ip, port });
  }

  deleteFavourite(id) {
    return this.#send("DELETE", `/api/favourites/${encodeURIComponent(id)}`);
  }

  setFeatured(featured) {
    return this.#send("POST", "/api/featured", { featured });
  }

  dismissMessage(key) {
    return this.#send("POST", "/api/message/dismiss", { key });
  }

  reportAppearance(screen) {
    return this.#send("POST", "/api/appear", { page: this.pageId, screen });
  }

  reportScene(visibility, options) {
    return this.#send("POST", "/api/scene", { page: this.pageId, phase: visibility }, options);
  }
}

const FIRST_RETRY_MS = 1000;
const LAST_RETRY_MS = 10000;

/**
 * Reads the server's event stream (text/event-stream) and reconnects when it
 * drops, waiting 1 s and doubling up to 10 s. A 401 ends the retries: the
 * address lacks its token, and asking again won't help.
 */
export class EventStream {
  #url;
  #handlers;
  #retry = FIRST_RETRY_MS;

  constructor(url, { onEvent, onOpen, onDown, onUnauthorized }) {
    this.#url = url;
    this.#handlers = { onEvent, onOpen, onDown, onUnauthorized };
  }

  start() {
    this.#loop();
  }

  async #loop() {
    for (;;) {
      try {
        const response = await fetch(this.#url, { headers: { Accept: "text/event-stream" }, cache: "no-store" });
        if (response.status === 401) {
          this.#handlers.onUnauthorized();
          return;
        }
        if (!response.ok || !response.body) throw new Error(`event stream answered ${response.status}`);
        this.#retry = FIRST_RETRY_MS;
        this.#handlers.onOpen();
        await this.#read(response.body);
      } catch (error) {
        console.warn("ferrylink: event stream:", error);
      }
      this.#handlers.onDown();
      await new Promise((resolve) => setTimeout(resolve, this.#retry));
      this.#retry = Math.min(this.#retry * 2, LAST_RETRY_MS);
    }
  }

  async #read(body) {
    const reader = body.pipeThrough(new TextDecoderStream()).getReader();
    let buffer = "";
    let name = "message";
    let data = [];
    for (;;) {
      const { value, done } = await reader.read();
      if (done) return;
      buffer += value;
      const lines = buffer.split(/\r\n|\r|\n/);
      buffer = lines.pop();
      for (const line of lines) {
        if (line === "") {
          if (data.length > 0) this.#dispatch(name, data.join("\n"));
          name = "message";
          data = [];
        } else if (line.startsWith(":")) {
          // A comment: the server's keepalive.
        } else {
          const colon = line.indexOf(":");
          const field = colon < 0 ? line : line.slice(0, colon);
          let value = colon < 0 ? "" : line.slice(colon + 1);
          if (value.startsWith(" ")) value = value.slice(1);
          if (field === "event") name = value;
          else if (field === "data") data.push(value);
        }
      }
    }
  }

  #dispatch(name, text) {
    let value;
    try {
      value = JSON.parse(text);
    } catch (error) {
      console.warn(`ferrylink: event ${name} is no JSON:`, error);
      return;
    }
    this.#handlers.onEvent(name, value);
  }
}
