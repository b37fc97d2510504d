// The partnered list: rows drawn from styled runs. (Its switch is followed
// across a restart in restarts.test.mjs; picking a row is the same for the
// placeholder: backend_down.test.mjs.)

import assert from "node:assert/strict";
import { before, test } from "node:test";
import { useTarget } from "./fixture.mjs";

const app = useTarget();
let page;

before(async () => {
  page = await app.open();
  await page.waitForSelector('[data-testid="partnered-row"]');
});

/** Each row as title, players and the runs of its subtitle with their computed look. */
async function shownRows() {
  return page.$$eval('[data-testid="partnered-row"]', (rows) => rows.map((row) => ({
    title: row.querySelector('[data-testid="partnered-title"]').textContent,
    players: row.querySelector('[data-testid="partnered-players"]').textContent,
    runs: [...row.querySelectorAll(".run")].map((run) => {
      const style = getComputedStyle(run);
      return {
        text: run.textContent,
        color: style.color,
        weight: style.fontWeight,
        italic: style.fontStyle === "italic",
        line: style.textDecorationLine,
      };
    }),
  })));
}

test("rows show title, styled subtitle and players/maxPlayers in the backend's order", async () => {
  const plain = "none";
  assert.deepEqual(await shownRows(), [
    {
      title: "Example Network",
      players: "128/500",
      runs: [
        { text: "Survival", color: "rgb(85, 255, 85)", weight: "700", italic: false, line: plain },
        { text: " and ", color: "rgb(200, 200, 200)", weight: "400", italic: false, line: plain },
        { text: "SkyBlock", color: "rgb(255, 170, 0)", weight: "400", italic: false, line: plain },
      ],
    },
    {
      title: "Minigames",
      players: "-/-",
      runs: [
        { text: "A", color: "rgb(255, 85, 85)", weight: "400", italic: false, line: plain },
        { text: "B ", color: "rgb(255, 85, 255)", weight: "400", italic: false, line: plain },
        { text: "Italic ", color: "rgb(85, 85, 255)", weight: "400", italic: true, line: plain },
        { text: "Under ", color: "rgb(85, 255, 255)", weight: "400", italic: false, line: "underline" },
        { text: "Gone ", color: "rgb(170, 170, 170)", weight: "400", italic: false, line: "line-through" },
        { text: "Dark", color: "rgb(85, 85, 85)", weight: "400", italic: false, line: "line-through" },
      ],
    },
  ]);
  assert.deepEqual(page.errors.map(String), []);
});
