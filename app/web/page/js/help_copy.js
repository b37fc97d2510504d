// The help pages' copy. Each page is a list of blocks drawn top to bottom:
// headings at 20, lines at 17, links in (0, 160, 0). Apostrophes are kept
// exactly as written, typographic ones (U+2019) included.

import { links, shownAddress } from "./links.js";

const heading = (text) => ({ kind: "heading", text });
const line = (text) => ({ kind: "line", text });
const link = (href, text = shownAddress(href)) => ({ kind: "link", href, text });
const labelled = (label, href) => ({ kind: "labelled-link", label, href, text: shownAddress(href) });

/** `ViewId.id` of each help page, and the menu that leads to them. */
export const menu = [
  { icon: "info.circle.fill", label: "How to use", id: 1 },
  { icon: "ant.circle.fill", label: "Troubleshooting", id: 2 },
  { icon: "star.circle.fill", label: "Became a partner", id: 4 },
  { icon: "person.circle.fill", label: "About", id: 5 },
];

export const pages = new Map([
  [1, {
    name: "HowToUseView",
    blocks: [
      heading("How to use"),
      line("1. Enter your desired server IP and port."),
      line("2. Click the \"Run\" button."),
      line("3. Open Minecraft and navigate to the \"Friends\" tab."),
      line("4. Connect to the server using the LAN tab."),
      line("5. Close the Ferrylink app after the client has joined the server."),
    ],
  }],
  [2, {
    name: "ToubleshootingView",
    blocks: [
      heading("Troubleshooting"),
      line("1. Make sure your gaming console and mobile device are connected to the same LAN network."),
      line("2. Make sure the \"Visible to LAN Players\" setting is turned ON in multiplayer settings."),
      line("3. Make sure that in your iOS device Settings > Privacy > Local Network tab \"Ferrylink\" app has granted permission."),
      line("4. Make sure you don\u2019t use any VPN profile on your iOS device in Settings > General > VPN."),
      heading("Common problems:"),
      line("1. Nothing shows up in the \"Friends\" tab:"),
      line(" - Follow steps above."),
      line(" - Restart your mobile device's WiFi."),
      line(" - Reinstall the app."),
      line(" - Restart your device."),
      line("2. \"Unable to connect to world\" issue:"),
      line(" - Set your skin to Alex/Steve."),
      line(" - Make sure you entered correct IP and Port (most servers use Port 19132)."),
      line(" - PlayStation users: Go to your console Settings > Account management > Restore Licenses"),
      line(" - Restart Minecraft."),
      line(" - Restart your router."),
      line(" - Log in to different Microsoft account."),
      line("3. Infinite locating server:"),
      line(" - Try different server."),
      line("4. \"Sorry, we couldn\u2019t validate your login\" issue:"),
      line(" - Restart Minecraft."),
      line(" - Log in to different Microsoft account."),
      line("If you find any bugs, join the discord to report them in the #bugs channel:"),
      link(links.chatServer),
      line("or contact me on Telegram:"),
      link(links.chatAccount),
    ],
  }],
  [4, {
    name: "BecamePartnerView",
    blocks: [
      heading("Became a partner"),
      line("If you want your server to be displayed as a featured partner, contact me via email for more information. "),
      link(links.contact),
    ],
  }],
  [5, {
    name: "AboutView",
    blocks: [
      heading("About"),
      line("Ferrylink allows any Bedrock Edition server to show up as a LAN server on Xbox/PS4/Win 10/Mobile clients running Minecraft Bedrock Edition and permits a simple connection without the use of DNS rerouting. "),
      line("Realms and compatibility with Nintendo Switch are currently not supported while using Ferrylink."),
      line("Disclaimer: Ferrylink is a third-party application. Ferrylink is not an endorsed extension of or affiliated with Minecraft, its creators or proprietors, Mojang AB, Xbox, or Xbox Live in any way."),
      labelled("Contact: ", links.contact),
      link(links.chatServer),
      link(links.privacyPolicy, "Privacy Policy"),
      link(links.termsAndConditions, "Terms & Conditions"),
    ],
  }],
]);
