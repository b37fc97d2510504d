// ConnectView, the Connection tab: the partnered list with its switch, the
// favourites, and the form. Everything is drawn from the app's models as the
// event stream brings them, the form's fields (`FormServerInfo`) included:
// what is typed here goes to the app, so a reload or another tab shows the
// same fields, status and button.

import { dismissKeyboard, h } from "./dom.js";
import { icon } from "./icons.js";

/** Titles of the form's alerts, by the flag that presents them. */
export const formAlertTitles = Object.freeze({
  emptyIpAlert: "Server IP address cannot be empty.",
  hypixelAlert: "This is Java edition server! You cannot connect to it.",
  invalidIp: "Invalid IP address.",
});

const RUN_STYLES = new Set(["bold", "italic", "underline", "strikethrough"]);

export class ConnectView {
  #api;
  #alerts;
  #onError;
  #featured = true;
  #running = false;
  #busy = false;
  /** The favourite that the open confirmation speaks of (`toDelete`). */
  #toDelete = null;
  /** The fields as the app last told them. */
  #model = { ip: "", port: "19132" };
  /** Field updates go one at a time; a newer one waits here. */
  #sending = false;
  #unsent = false;

  constructor({ root, api, alerts, onError }) {
    this.#api = api;
    this.#alerts = alerts;
    this.#onError = onError;
    const find = (id) => root.querySelector(`#${id}`);
    this.ip = find("ip");
    this.port = find("port");
    this.runButton = find("run");
    this.addButton = find("add-favourite");
    this.status = find("status");
    this.serverState = find("server-state");
    this.toggle = find("featured-toggle");
    this.featuredList = find("featured-list");
    this.favouriteList = find("favourite-list");
    this.formItem = root.querySelector('[data-item="2"]');

    this.runButton.addEventListener("click", () => this.#runOrStop());
    this.addButton.addEventListener("click", () => this.#addToFavorites());
    this.toggle.addEventListener("click", () => this.#tapSwitch());
    for (const field of [this.ip, this.port]) {
      field.addEventListener("keydown", (event) => {
        if (event.key === "Enter") dismissKeyboard();
      });
      field.addEventListener("input", () => this.#sendFields());
      // What another page wrote while this one held the field shows now.
      field.addEventListener("blur", () => {
        if (!this.#sending && !this.#unsent) this.#showFields();
      });
    }
    // A tap anywhere outside the fields dismisses the keyboard.
    root.addEventListener("click", (event) => {
      if (!event.target.closest?.("input")) dismissKeyboard();
    });
  }

  /** `FormServerInfo` of this page. */
  get formServerInfo() {
    return { ip: this.ip.value, port: this.port.value };
  }

  #fill(ip, port) {
    this.ip.value = ip;
    this.port.value = port;
    this.#sendFields();
  }

  async #sendFields() {
    if (this.#sending) {
      this.#unsent = true;
      return;
    }
    this.#sending = true;
    try {
      do {
        this.#unsent = false;
        const { ip, port } = this.formServerInfo;
        await this.#api.setFields(ip, port);
      } while (this.#unsent);
    } catch (error) {
      this.#onError(error);
    } finally {
      this.#sending = false;
    }
  }

  /** The app's fields, except in a field this page is typing into. */
  #showFields() {
    for (const [name, field] of [["ip", this.ip], ["port", this.port]]) {
      if (document.activeElement !== field && field.value !== this.#model[name]) field.value = this.#model[name];
    }
  }

  #scrollToForm() {
    this.formItem.scrollIntoView({ block: "nearest", inline: "nearest" });
  }

  async #runOrStop() {
    if (this.#busy) return;
    this.#busy = true;
    this.runButton.setAttribute("aria-busy", "true");
    try {
      const { ip, port } = this.formServerInfo;
      await this.#api.run(ip, port);
    } catch (error) {
      this.#onError(error);
    } finally {
      this.#busy = false;
      this.runButton.removeAttribute("aria-busy");
    }
  }

  async #addToFavorites() {
    dismissKeyboard();
    const { ip, port } = this.formServerInfo;
    try {
      await this.#api.addFavourite(ip, port);
    } catch (error) {
      this.#onError(error);
    }
  }

  async #tapSwitch() {
    try {
      await this.#api.setFeatured(!this.#featured);
    } catch (error) {
      this.#onError(error);
    }
  }

  #askToDelete(server) {
    this.#toDelete = server;
    this.#alerts.present({
      key: "confirmDelete",
      title: "Are you sure?",
      message: "Do you want to remove the server from your favorites list?",
      buttons: [
        { label: "No", role: "cancel", escape: true },
        { label: "Yes", role: "destructive", action: () => this.#deleteConfirmed() },
      ],
    });
  }

  async #deleteConfirmed() {
    const server = this.#toDelete;
    if (!server) return;
    this.#toDelete = null;
    try {
      await this.#api.deleteFavourite(server.id);
    } catch (error) {
      // Another page may have removed it first; the list will say so.
      if (error.status !== 404) this.#onError(error);
    }
  }

  /** `running` event: the Run button and the status block. */
  showRunning({ server, serverState }) {
    this.#running = server !== null && server !== undefined;
    this.runButton.dataset.server = this.#running ? "present" : "absent";
    this.runButton.textContent = this.#running ? "Stop" : "Run";
    this.serverState.textContent = serverState ?? "";
    this.status.hidden = !this.#running;
  }

  /** `form` event: the fields and the alert flags. */
  showForm(flags) {
    this.#model = { ip: flags.ip, port: flags.port };
    if (!this.#sending && !this.#unsent) this.#showFields();
    // A Run that found no port to listen on says why in its alert's title.
    const titles = { ...formAlertTitles, bindFailedAlert: flags.bindFailure };
    for (const [flag, title] of Object.entries(titles)) {
      if (flags[flag] === true) {
        this.#alerts.present({
          key: flag,
          title,
          buttons: [{
            label: "OK",
            role: "default",
            escape: true,
            action: () => this.#api.dismissAlert(flag).catch(this.#onError),
          }],
        });
      } else {
        this.#alerts.withdraw(flag);
      }
    }
  }

  /** `favourites` event: one row per stored `Server`. */
  showFavourites({ servers }) {
    this.favouriteList.replaceChildren(...servers.map((server) => h("div", {
      class: "favourite-row",
      "data-testid": "favourite-row",
      "data-id": server.id,
    },
    h("button", {
      type: "button",
      class: "mc-button favourite-row__pick",
      "data-testid": "favourite-pick",
      onclick: () => {
        dismissKeyboard();
        this.#fill(server.ip, server.port);
        this.#scrollToForm();
      },
    }, h("span", { text: `${server.ip}:${server.port}` })),
    h("button", {
      type: "button",
      class: "mc-button mc-button--delete favourite-row__delete",
      "data-testid": "favourite-delete",
      "aria-label": `Remove ${server.ip}:${server.port}`,
      onclick: () => this.#askToDelete(server),
    }, icon("trash")))));
  }

  /** `featured` event: the switch, and the rows while it is on. */
  showFeatured({ featured, servers }) {
    this.#featured = featured;
    this.toggle.setAttribute("aria-checked", featured ? "true" : "false");
    if (!featured) {
      this.featuredList.replaceChildren();
      return;
    }
    this.featuredList.replaceChildren(...servers.map((server, index) => h("button", {
      type: "button",
      class: "mc-button mc-button--featured partnered-row",
      "data-testid": "partnered-row",
      "data-index": index,
      onclick: () => {
        this.#fill(server.ip, server.port);
        this.#scrollToForm();
        dismissKeyboard();
      },
    },
    h("span", { class: "partnered-row__lines" },
      h("span", { class: "partnered-row__title", "data-testid": "partnered-title", text: server.title }),
      h("span", { class: "partnered-row__subtitle", "data-testid": "partnered-subtitle" },
        (server.subtitleRuns ?? []).map(styledRun))),
    h("span", {
      class: "partnered-row__players",
      "data-testid": "partnered-players",
      text: `${server.players}/${server.maxPlayers}`,
    }))));
  }
}

/** One run of a styled text: its text in its style and colour. */
function styledRun(run) {
  const span = h("span", {
    class: RUN_STYLES.has(run.style) ? `run run--${run.style}` : "run",
    "data-style": run.style,
    text: run.text,
  });
  const [red, green, blue] = run.color;
  span.style.color = `rgb(${red}, ${green}, ${blue})`;
  return span;
}
