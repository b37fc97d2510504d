// The Info tab: the menu, "< Back", the four pages word for word, the page
// that stays chosen while the other tab is shown, and links that all lead to
// pages of the help itself.

import assert from "node:assert/strict";
import { before, describe, test } from "node:test";
import { useTarget } from "./fixture.mjs";

// Each page as [kind, text]: "h" a heading, "p" a line, "a" a link.
const PAGES = [
  {
    menu: "How to use",
    icon: "info.circle.fill",
    name: "how-to-use",
    blocks: [
      ["h", "How to use"],
      ["p", "1. Enter your desired server IP and port."],
      ["p", "2. Click the \"Run\" button."],
      ["p", "3. Open Minecraft and navigate to the \"Friends\" tab."],
      ["p", "4. Connect to the server using the LAN tab."],
      ["p", "5. Close the Ferrylink app after the client has joined the server."],
    ],
  },
  {
    menu: "Troubleshooting",
    icon: "ant.circle.fill",
    name: "troubleshooting",
    blocks: [
      ["h", "Troubleshooting"],
      ["p", "1. Make sure your gaming console and mobile device are connected to the same LAN network."],
      ["p", "2. Make sure the \"Visible to LAN Players\" setting is turned ON in multiplayer settings."],
      ["p", "3. Make sure that in your iOS device Settings > Privacy > Local Network tab \"Ferrylink\" app has granted permission."],
      ["p", "4. Make sure you don\u2019t use any VPN profile on your iOS device in Settings > General > VPN."],
      ["h", "Common problems:"],
      ["p", "1. Nothing shows up in the \"Friends\" tab:"],
      ["p", " - Follow steps above."],
      ["p", " - Restart your mobile device's WiFi."],
      ["p", " - Reinstall the app."],
      ["p", " - Restart your device."],
      ["p", "2. \"Unable to connect to world\" issue:"],
      ["p", " - Set your skin to Alex/Steve."],
      ["p", " - Make sure you entered correct IP and Port (most servers use Port 19132)."],
      ["p", " - PlayStation users: Go to your console Settings > Account management > Restore Licenses"],
      ["p", " - Restart Minecraft."],
      ["p", " - Restart your router."],
      ["p", " - Log in to different Microsoft account."],
      ["p", "3. Infinite locating server:"],
      ["p", " - Try different server."],
      ["p", "4. \"Sorry, we couldn\u2019t validate your login\" issue:"],
      ["p", " - Restart Minecraft."],
      ["p", " - Log in to different Microsoft account."],
      ["h", "More help:"],
      ["a", "The console doesn\u2019t see the world"],
      ["a", "How Ferrylink works"],
    ],
  },
  {
    menu: "Became a partner",
    icon: "star.circle.fill",
    name: "became-a-partner",
    blocks: [
      ["h", "Became a partner"],
      ["p", "If you want your server to be displayed as a featured partner, contact me via email for more information. "],
      ["a", "Where the partnered list comes from"],
    ],
  },
  {
    menu: "About",
    icon: "person.circle.fill",
    name: "about",
    blocks: [
      ["h", "About"],
      ["p", "Ferrylink allows any Bedrock Edition server to show up as a LAN server on Xbox/PS4/Win 10/Mobile clients running Minecraft Bedrock Edition and permits a simple connection without the use of DNS rerouting. "],
      ["p", "Realms and compatibility with Nintendo Switch are currently not supported while using Ferrylink."],
      ["p", "Disclaimer: Ferrylink is a third-party application. Ferrylink is not an endorsed extension of or affiliated with Minecraft, its creators or proprietors, Mojang AB, Xbox, or Xbox Live in any way."],
      ["a", "How Ferrylink works"],
      ["a", "Privacy Policy"],
    ],
  },
];

const app = useTarget();
let page;

before(async () => {
  page = await app.open();
  await page.click("#tab-info");
});

async function shownPage() {
  return page.$$eval('[data-testid="help-page"] > *', (elements) => elements.map((element) => {
    const link = element.querySelector("a");
    return {
      kind: element.tagName === "H2" ? "h" : link ? "a" : "p",
      text: element.textContent,

    };
  }));
}

test("the menu leads to the four pages; leaving the tab keeps the page shown", async () => {
  assert.deepEqual(await page.locator(".menu__row").allTextContents(), PAGES.map(({ menu }) => menu));
  await page.getByRole("button", { name: "Troubleshooting", exact: true }).click();
  await page.click("#tab-connection");
  assert.equal(await page.locator("#help-view").isVisible(), false);
  await page.click("#tab-info");
  assert.equal(await page.locator('[data-testid="help-page"]').getAttribute("data-page"), "ToubleshootingView");
  await page.click('[data-testid="help-back"]');
  assert.equal(await page.locator("#help").getAttribute("data-view-id"), "0");
});

describe("pages", () => {
  for (const expected of PAGES) {
    test(`"${expected.menu}" shows its copy word for word`, async () => {
      await page.getByRole("button", { name: expected.menu, exact: true }).click();
      assert.equal(await page.locator('[data-testid="help-back"]').textContent(), "< Back");
      const shown = await shownPage();
      assert.equal(shown.length, expected.blocks.length);
      shown.forEach((block, index) => {
        const [kind, text] = expected.blocks[index];
        assert.equal(block.kind, kind, `block ${index} of ${expected.menu}`);
        assert.equal(block.text, text);
      });
      await page.click('[data-testid="help-back"]');
      await page.waitForSelector(".menu__row");
    });
  }
});

test("every link opens a page of the help whose heading it names; none leads elsewhere", async () => {
  const requests = [];
  page.on("request", (outgoing) => requests.push(outgoing.url()));
  const links = () => page.locator('[data-testid="help-page"] a').allTextContents();
  // Follows `path` from a menu row, two links deep at most.
  async function follow(menu, path) {
    await page.getByRole("button", { name: menu, exact: true }).click();
    for (const text of path) {
      await page.locator('[data-testid="help-page"] a', { hasText: text }).first().click();
      assert.equal(await page.locator('[data-testid="help-page"] h2').first().textContent(), text, `${menu} > ${path.join(" > ")}`);
      assert.ok((await page.locator('[data-testid="help-page"] p').count()) >= 2, text);
    }
  }
  for (const { menu } of PAGES) {
    await follow(menu, []);
    const first = await links();
    await page.click('[data-testid="help-back"]');
    for (const text of first) {
      await follow(menu, [text]);
      const second = await links();
      await page.click('[data-testid="help-back"]');
      for (const next of second) {
        await follow(menu, [text, next]);
        await page.click('[data-testid="help-back"]');
      }
    }
  }
  assert.deepEqual(page.errors.map(String), []);
  assert.deepEqual(requests, [], "no link left the page");
});
