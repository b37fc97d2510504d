// The app's icons, drawn here rather than taken from an image set. They are
// 24-unit squares filled with currentColor, so they follow the text colour of
// the button or tab they sit in. The ".circle.fill" ones are a disc with the
// glyph cut out of it.

const SVG = "http://www.w3.org/2000/svg";
let maskCount = 0;

function node(tag, attributes = {}) {
  const element = document.createElementNS(SVG, tag);
  for (const [name, value] of Object.entries(attributes)) element.setAttribute(name, String(value));
  return element;
}

function frame(name) {
  return node("svg", { viewBox: "0 0 24 24", "aria-hidden": "true", focusable: "false", "data-icon": name });
}

/** A disc of radius 10 with the glyph's shapes cut out. */
function circleFill(name, drawGlyph) {
  const svg = frame(name);
  const id = `ferrylink-icon-mask-${++maskCount}`;
  const mask = node("mask", { id, maskUnits: "userSpaceOnUse", x: 0, y: 0, width: 24, height: 24 });
  mask.append(node("rect", { x: 0, y: 0, width: 24, height: 24, fill: "white" }));
  const glyph = node("g", { fill: "black", stroke: "black", "stroke-width": 0 });
  drawGlyph(glyph);
  mask.append(glyph);
  const defs = node("defs");
  defs.append(mask);
  svg.append(defs, node("circle", { cx: 12, cy: 12, r: 10, fill: "currentColor", mask: `url(#${id})` }));
  return svg;
}

const drawers = {
  "list.dash": () => {
    const svg = frame("list.dash");
    for (const y of [6, 12, 18]) {
      svg.append(node("rect", { x: 2.5, y: y - 1, width: 3, height: 2, rx: 1, fill: "currentColor" }));
      svg.append(node("rect", { x: 8, y: y - 1, width: 13.5, height: 2, rx: 1, fill: "currentColor" }));
    }
    return svg;
  },

  "info.circle.fill": () => circleFill("info.circle.fill", (g) => {
    g.append(node("circle", { cx: 12, cy: 7.6, r: 1.5 }));
    g.append(node("rect", { x: 10.9, y: 10.3, width: 2.2, height: 7, rx: 0.6 }));
    g.append(node("rect", { x: 9.6, y: 10.3, width: 3.5, height: 1.6, rx: 0.5 }));
    g.append(node("rect", { x: 9.6, y: 15.9, width: 4.8, height: 1.6, rx: 0.5 }));
  }),

  "ant.circle.fill": () => circleFill("ant.circle.fill", (g) => {
    g.append(node("ellipse", { cx: 12, cy: 7.4, rx: 1.5, ry: 1.4 }));
    g.append(node("ellipse", { cx: 12, cy: 10.6, rx: 1.3, ry: 1.6 }));
    g.append(node("ellipse", { cx: 12, cy: 15, rx: 2.2, ry: 2.8 }));
    const legs = node("g", { fill: "none", stroke: "black", "stroke-width": 0.9, "stroke-linecap": "round" });
    for (const [x1, y1, x2, y2] of [
      [11, 6.4, 9.6, 4.6], [13, 6.4, 14.4, 4.6],
      [11, 10, 7.6, 8.6], [13, 10, 16.4, 8.6],
      [11, 11, 7.4, 12.2], [13, 11, 16.6, 12.2],
      [11, 11.8, 8.4, 15.6], [13, 11.8, 15.6, 15.6],
    ]) legs.append(node("line", { x1, y1, x2, y2 }));
    g.append(legs);
  }),

  "star.circle.fill": () => circleFill("star.circle.fill", (g) => {
    const points = [];
    for (let i = 0; i < 10; i++) {
      const radius = i % 2 === 0 ? 6.2 : 2.7;
      const angle = -Math.PI / 2 + (i * Math.PI) / 5;
      points.push(`${(12 + radius * Math.cos(angle)).toFixed(2)},${(12.5 + radius * Math.sin(angle)).toFixed(2)}`);
    }
    g.append(node("polygon", { points: points.join(" ") }));
  }),

  "person.circle.fill": () => circleFill("person.circle.fill", (g) => {
    g.append(node("circle", { cx: 12, cy: 9.2, r: 3.3 }));
    g.append(node("path", { d: "M5.6 18.6C7 15.6 9.3 14.2 12 14.2s5 1.4 6.4 4.4C16.7 20.3 14.5 21.2 12 21.2s-4.7-0.9-6.4-2.6z" }));
  }),

  trash: () => {
    const svg = frame("trash");
    const outline = node("g", { fill: "none", stroke: "currentColor", "stroke-width": 1.7, "stroke-linecap": "round", "stroke-linejoin": "round" });
    outline.append(node("path", { d: "M3.5 6h17" }));
    outline.append(node("path", { d: "M9 6V4.2c0-.7.5-1.2 1.2-1.2h3.6c.7 0 1.2.5 1.2 1.2V6" }));
    outline.append(node("path", { d: "M5.5 6l1 13.6c.1 1 .9 1.9 2 1.9h7c1.1 0 1.9-.9 2-1.9l1-13.6" }));
    outline.append(node("path", { d: "M10 10v7.5M14 10v7.5" }));
    svg.append(outline);
    return svg;
  },
};

/** A fresh SVG element for the named icon. */
export function icon(name) {
  const draw = drawers[name];
  if (!draw) throw new Error(`no icon named ${name}`);
  return draw();
}

/** Puts its icon in front of every element that names one in data-icon. */
export function placeIcons(root) {
  for (const element of root.querySelectorAll("[data-icon]")) {
    if (element instanceof SVGElement) continue;
    element.prepend(icon(element.dataset.icon));
  }
}
