// The "Background" picture: a block landscape (sky, grass, dirt, stone with
// ores, bedrock), drawn texel by texel from a fixed seed so that it is the
// same picture on every load, then scaled up with hard pixel edges to cover
// the window.

const TEXELS = 16; // texels along one side of a block
const SCALE = 3; // CSS pixels per texel
const SEED = 0x5eed1e55;

function random(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let t = state;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

function shade([r, g, b], amount) {
  return [r * amount, g * amount, b * amount];
}

const DUSK = 0.75; // light on the blocks, against the sky
const DIRT = [134, 96, 67];
const GRASS = [94, 157, 52];
const STONE = [125, 125, 125];
const BEDROCK = [85, 85, 85];
const LOG = [104, 83, 50];
const LEAVES = [60, 122, 36];
const ORES = [
  { colour: [72, 72, 72], depth: 0, chance: 0.06 },
  { colour: [216, 175, 147], depth: 2, chance: 0.05 },
  { colour: [252, 238, 75], depth: 5, chance: 0.025 },
  { colour: [200, 20, 20], depth: 6, chance: 0.03 },
  { colour: [93, 236, 245], depth: 8, chance: 0.015 },
];

/** Fills one block's texels; `put(x, y, rgb)` writes one texel. */
function drawBlock(kind, rnd, put) {
  for (let y = 0; y < TEXELS; y++) {
    for (let x = 0; x < TEXELS; x++) {
      const noise = 0.86 + rnd() * 0.2;
      switch (kind.type) {
        case "grass": {
          const edge = 3 + ((x * 7 + kind.column) % 3 === 0 ? 1 : 0) + (rnd() < 0.2 ? 1 : 0);
          put(x, y, shade(y < edge ? GRASS : DIRT, noise));
          break;
        }
        case "dirt":
          put(x, y, shade(DIRT, noise));
          break;
        case "stone":
          put(x, y, shade(STONE, noise));
          break;
        case "bedrock":
          put(x, y, shade(BEDROCK, 0.5 + rnd() * 0.7));
          break;
        case "log":
          put(x, y, shade(LOG, (x % 4 === 0 ? 0.7 : 1) * noise));
          break;
        case "leaves":
          if (rnd() < 0.12) put(x, y, null);
          else put(x, y, shade(LEAVES, 0.7 + rnd() * 0.45));
          break;
        default:
          break;
      }
    }
  }
  if (kind.ore) {
    // A few 3-by-2 blobs with a darker lower edge.
    const blobs = 3 + Math.floor(rnd() * 2);
    for (let i = 0; i < blobs; i++) {
      const cx = 1 + Math.floor(rnd() * (TEXELS - 4));
      const cy = 1 + Math.floor(rnd() * (TEXELS - 3));
      for (let dy = 0; dy < 2; dy++) {
        for (let dx = 0; dx < 3; dx++) put(cx + dx, cy + dy, shade(kind.ore, dy === 0 ? 1 : 0.72));
      }
    }
  }
}

/** Which block stands at (column, row) of a world `rows` blocks tall. */
function worldOf(columns, rows) {
  const rnd = random(SEED);
  const sky = Math.max(3, Math.round(rows * 0.38));
  const surface = [];
  let height = sky;
  for (let column = 0; column < columns; column++) {
    const step = rnd();
    if (step < 0.22) height -= 1;
    else if (step > 0.78) height += 1;
    height = Math.min(Math.max(height, sky - 2), sky + 2);
    surface.push(height);
  }
  const trees = new Set();
  for (let column = 2; column < columns - 2; column++) {
    if (rnd() < 0.12 && !trees.has(column - 1) && !trees.has(column - 2)) trees.add(column);
  }
  const blocks = new Map();
  for (let column = 0; column < columns; column++) {
    const top = surface[column];
    for (let row = top; row < rows; row++) {
      const depth = row - top;
      let kind;
      if (row === rows - 1) kind = { type: "bedrock" };
      else if (depth === 0) kind = { type: "grass", column };
      else if (depth <= 3) kind = { type: "dirt" };
      else {
        kind = { type: "stone" };
        for (const ore of ORES) {
          if (depth - 4 >= ore.depth && rnd() < ore.chance) {
            kind.ore = ore.colour;
            break;
          }
        }
      }
      blocks.set(`${column},${row}`, kind);
    }
    if (trees.has(column)) {
      for (let t = 1; t <= 3; t++) blocks.set(`${column},${top - t}`, { type: "log" });
      for (const [dx, dy] of [[-1, 3], [1, 3], [-1, 4], [0, 4], [1, 4], [0, 5], [-2, 3], [2, 3]]) {
        const key = `${column + dx},${top - dy}`;
        if (!blocks.has(key)) blocks.set(key, { type: "leaves" });
      }
    }
  }
  return { sky, blocks };
}

// Dusk: deep blue at the top, warmer towards the horizon.
function skyColour(y, height) {
  const t = Math.min(1, y / Math.max(1, height));
  return [22 + 70 * t * t, 28 + 48 * t * t, 62 + 50 * t];
}

/** Draws the landscape into `canvas`, sized to cover the window. */
export function drawBackground(canvas) {
  const width = Math.max(1, window.innerWidth);
  const height = Math.max(1, window.innerHeight);
  const blockSize = TEXELS * SCALE;
  const columns = Math.ceil(width / blockSize);
  const rows = Math.ceil(height / blockSize);
  canvas.width = columns * TEXELS;
  canvas.height = rows * TEXELS;
  canvas.style.width = `${columns * blockSize}px`;
  canvas.style.height = `${rows * blockSize}px`;

  const context = canvas.getContext("2d");
  const image = context.createImageData(canvas.width, canvas.height);
  const data = image.data;
  const write = (x, y, [r, g, b]) => {
    const i = (y * canvas.width + x) * 4;
    data[i] = Math.min(255, r);
    data[i + 1] = Math.min(255, g);
    data[i + 2] = Math.min(255, b);
    data[i + 3] = 255;
  };

  const { sky, blocks } = worldOf(columns, rows);
  for (let y = 0; y < canvas.height; y++) {
    const colour = skyColour(y, sky * TEXELS);
    for (let x = 0; x < canvas.width; x++) write(x, y, colour);
  }
  const stars = random(SEED ^ 0x57a125);
  for (let i = 0; i < columns * 2; i++) {
    const x = Math.floor(stars() * canvas.width);
    const y = Math.floor(stars() * Math.max(1, (sky - 1) * TEXELS));
    const light = 105 + Math.floor(stars() * 60);
    write(x, y, [light, light, light + 10]);
  }

  for (const [key, kind] of blocks) {
    const [column, row] = key.split(",").map(Number);
    if (column < 0 || column >= columns || row < 0 || row >= rows) continue;
    const rnd = random(SEED ^ (column * 73856093) ^ (row * 19349663));
    drawBlock(kind, rnd, (x, y, rgb) => {
      if (rgb) write(column * TEXELS + x, row * TEXELS + y, shade(rgb, DUSK));
    });
  }
  context.putImageData(image, 0, 0);
}

/** Draws now and again whenever the window's size changes. */
export function keepBackground(canvas) {
  let pending = 0;
  const redraw = () => {
    cancelAnimationFrame(pending);
    pending = requestAnimationFrame(() => drawBackground(canvas));
  };
  drawBackground(canvas);
  window.addEventListener("resize", redraw);
}
