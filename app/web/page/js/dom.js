// A small element builder, so the views read as the tree they make.

/**
 * h("button", {class: "mc-button", onclick: f}, "Run") makes the element,
 * sets its attributes and listeners, and appends the children (strings become
 * text nodes; null, undefined and false are skipped).
 */
export function h(tag, props = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(props)) {
    if (value === null || value === undefined || value === false) continue;
    if (name === "class") element.className = value;
    else if (name === "text") element.textContent = value;
    else if (name === "dataset") Object.assign(element.dataset, value);
    else if (name.startsWith("on") && typeof value === "function") element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? "" : String(value));
  }
  append(element, children);
  return element;
}

function append(parent, children) {
  for (const child of children) {
    if (child === null || child === undefined || child === false) continue;
    if (Array.isArray(child)) append(parent, child);
    else parent.append(child);
  }
}

/** Removes the on-screen keyboard: whatever holds the focus lets go of it. */
export function dismissKeyboard() {
  const focused = document.activeElement;
  if (focused && focused !== document.body && typeof focused.blur === "function") focused.blur();
}

/** Keeps pressed styling on touch screens that don't report :active reliably. */
export function trackPress(root) {
  const release = () => {
    for (const pressed of root.querySelectorAll(".is-pressed")) pressed.classList.remove("is-pressed");
  };
  root.addEventListener("pointerdown", (event) => {
    const button = event.target.closest?.(".mc-button");
    if (button && event.pointerType === "touch") button.classList.add("is-pressed");
  });
  for (const type of ["pointerup", "pointercancel", "pointerleave", "scroll"]) {
    root.addEventListener(type, release, true);
  }
}
