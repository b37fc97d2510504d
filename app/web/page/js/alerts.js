// Modal alerts, one at a time. Each alert has a key; asking for an alert
// that is already shown or waiting does nothing, and withdrawing it closes
// it without running any of its buttons. Escape runs the button marked as
// the alert's escape (its cancel, or its only button).

import { h } from "./dom.js";

export class AlertPresenter {
  #dialog;
  #title;
  #message;
  #buttons;
  #queue = [];
  #current = null;

  constructor(dialog) {
    this.#dialog = dialog;
    this.#title = dialog.querySelector(".alert__title");
    this.#message = dialog.querySelector(".alert__message");
    this.#buttons = dialog.querySelector(".alert__buttons");
    dialog.addEventListener("cancel", (event) => {
      event.preventDefault();
      const alert = this.#current;
      if (!alert) return;
      const escape = alert.buttons.find((button) => button.escape) ?? (alert.buttons.length === 1 ? alert.buttons[0] : null);
      if (escape) this.#choose(alert, escape);
    });
  }

  /**
   * Shows an alert, or queues it behind the one on screen.
   * `alert` is {key, title, message?, stacked?, buttons: [{label, role, escape?, action?}]}
   * with role "default", "cancel" or "destructive".
   */
  present(alert) {
    if (this.isPresented(alert.key)) return;
    this.#queue.push(alert);
    this.#showNext();
  }

  /** Whether the alert is on screen or waiting for its turn. */
  isPresented(key) {
    return this.#current?.key === key || this.#queue.some((alert) => alert.key === key);
  }

  /** Takes the alert away, whether shown or waiting, without its actions. */
  withdraw(key) {
    this.#queue = this.#queue.filter((alert) => alert.key !== key);
    if (this.#current?.key === key) this.#close();
  }

  #showNext() {
    if (this.#current || this.#queue.length === 0) return;
    const alert = this.#queue.shift();
    this.#current = alert;
    this.#dialog.dataset.alert = alert.key;
    this.#title.textContent = alert.title;
    this.#message.textContent = alert.message ?? "";
    this.#buttons.classList.toggle("alert__buttons--stacked", Boolean(alert.stacked));
    this.#buttons.replaceChildren(...alert.buttons.map((button) => h("button", {
      type: "button",
      class: "alert__button",
      "data-role": button.role,
      onclick: () => this.#choose(alert, button),
    }, button.label)));
    if (document.activeElement instanceof HTMLElement) document.activeElement.blur();
    this.#dialog.showModal();
    const preferred = alert.buttons.findIndex((button) => button.role !== "destructive");
    this.#buttons.children[Math.max(0, preferred)]?.focus();
  }

  #choose(alert, button) {
    if (this.#current !== alert) return;
    this.#close();
    button.action?.();
  }

  #close() {
    this.#current = null;
    delete this.#dialog.dataset.alert;
    if (this.#dialog.open) this.#dialog.close();
    queueMicrotask(() => this.#showNext());
  }
}
