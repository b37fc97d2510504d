// HelpView, the Info tab: the menu at `id` 0, otherwise "< Back" over the
// page of the current `id`. The `id` lives as long as the page does, so
// leaving the tab and coming back shows the same help page.

import { dismissKeyboard, h } from "./dom.js";
import { menu, pages } from "./help_copy.js";
import { icon } from "./icons.js";

export class HelpView {
  /** `ViewId`: which help page is shown. */
  #viewId = { id: 0 };

  constructor({ container, scroller }) {
    this.container = container;
    this.scroller = scroller;
    this.render();
  }

  get id() {
    return this.#viewId.id;
  }

  set id(value) {
    if (value !== 0 && !pages.has(value)) throw new Error(`no help page ${value}`);
    if (value === this.#viewId.id) return;
    this.#viewId.id = value;
    this.render();
    this.scroller.scrollTop = 0;
  }

  render() {
    const id = this.#viewId.id;
    this.container.dataset.viewId = String(id);
    if (id === 0) {
      this.container.replaceChildren(
        h("h2", { class: "heading", text: "Info" }),
        h("nav", { class: "menu", "data-testid": "help-menu" },
          menu.map((item) => h("button", {
            type: "button",
            class: "mc-button menu__row",
            "data-testid": `help-menu-${item.id}`,
            onclick: () => { this.id = item.id; },
          }, icon(item.icon), h("span", { text: item.label })))),
      );
      return;
    }
    const page = pages.get(id);
    this.container.replaceChildren(
      h("button", {
        type: "button",
        class: "mc-button help__back",
        "data-testid": "help-back",
        onclick: () => {
          dismissKeyboard();
          this.id = 0;
        },
      }, "< Back"),
      h("article", { class: "page", "data-testid": "help-page", "data-page": page.name },
        page.blocks.map((block) => this.#renderBlock(block))),
    );
  }

  #renderBlock(block) {
    switch (block.kind) {
      case "heading":
        return h("h2", { class: "heading", text: block.text });
      case "line":
        return h("p", { text: block.text });
      case "link":
        return h("p", {}, h("a", {
          class: "link",
          href: `#help-${block.id}`,
          text: block.text,
          onclick: (event) => {
            event.preventDefault();
            this.id = block.id;
          },
        }));
      default:
        throw new Error(`unknown help block ${block.kind}`);
    }
  }
}
