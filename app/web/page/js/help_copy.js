// The help pages' copy. Each page is a list of blocks drawn top to bottom:
// headings at 20, lines at 17, links in (0, 160, 0). Apostrophes are kept
// exactly as written, typographic ones (U+2019) included. Every link leads to
// another page of this help: the app needs nothing from elsewhere to explain
// itself.

const heading = (text) => ({ kind: "heading", text });
const line = (text) => ({ kind: "line", text });
const link = (id, text) => ({ kind: "link", id, text });

const HOW_IT_WORKS = 6;
const NOT_SEEN = 7;
const PRIVACY = 8;
const PARTNERS = 9;

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
      heading("More help:"),
      link(NOT_SEEN, "The console doesn\u2019t see the world"),
      link(HOW_IT_WORKS, "How Ferrylink works"),
    ],
  }],
  [4, {
    name: "BecamePartnerView",
    blocks: [
      heading("Became a partner"),
      line("If you want your server to be displayed as a featured partner, contact me via email for more information. "),
      link(PARTNERS, "Where the partnered list comes from"),
    ],
  }],
  [5, {
    name: "AboutView",
    blocks: [
      heading("About"),
      line("Ferrylink allows any Bedrock Edition server to show up as a LAN server on Xbox/PS4/Win 10/Mobile clients running Minecraft Bedrock Edition and permits a simple connection without the use of DNS rerouting. "),
      line("Realms and compatibility with Nintendo Switch are currently not supported while using Ferrylink."),
      line("Disclaimer: Ferrylink is a third-party application. Ferrylink is not an endorsed extension of or affiliated with Minecraft, its creators or proprietors, Mojang AB, Xbox, or Xbox Live in any way."),
      link(HOW_IT_WORKS, "How Ferrylink works"),
      link(PRIVACY, "Privacy Policy"),
    ],
  }],
  [HOW_IT_WORKS, {
    name: "HowItWorksView",
    blocks: [
      heading("How Ferrylink works"),
      line("A console lists only the worlds that announce themselves on its own network; it has no field to type a server address into."),
      line("When you press \"Run\", Ferrylink answers on UDP port 19132 (19133 when that one is taken) as a small world called \"Ferrylink\", which the console lists in its Friends tab."),
      line("When the console joins that world, Ferrylink takes it through the first steps of a join and then tells it to go to the server in the form. The console connects to that server by itself: no game traffic passes through Ferrylink, and it can leave the app once it has joined."),
      line("Ferrylink answers only while the app is open and in front: a page of it that can be seen in a browser, or the app on your phone\u2019s screen. Two seconds after the last one goes, the world is gone from the console\u2019s list."),
      link(NOT_SEEN, "The console doesn\u2019t see the world"),
    ],
  }],
  [NOT_SEEN, {
    name: "ConsoleDoesNotSeeView",
    blocks: [
      heading("The console doesn\u2019t see the world"),
      line("1. Same network: the console and the machine that runs Ferrylink must be on the same network. A guest Wi-Fi, a second router or a phone\u2019s hotspot is a network of its own."),
      line("2. Client isolation: many Wi-Fi access points (guest networks, hotels, some mesh systems) keep their clients from seeing each other. Turn off \"client isolation\" (or \"AP isolation\") in the router, or connect the console or the machine by cable."),
      line("3. Firewall: the machine that runs Ferrylink must let UDP ports 19132 and 19133 in. With ufw on Linux: sudo ufw allow 19132:19133/udp"),
      line("4. Game version: a console on a newer version than this Ferrylink knows may not list the world, or may stop while it joins. Update Ferrylink; the lines that ferrylink app prints show each console that joins."),
      line("5. Keep the app open and in front until the console has joined: the world goes two seconds after the last page of the app does."),
      link(HOW_IT_WORKS, "How Ferrylink works"),
    ],
  }],
  [PRIVACY, {
    name: "PrivacyView",
    blocks: [
      heading("Privacy Policy"),
      line("Ferrylink keeps your favourites and its settings in its data folder, on the machine that runs it, and nowhere else."),
      line("Each time you press \"Run\", the app tells its backend the server\u2019s address and port and a random number that stands for this install; the backend keeps them with the time and the address they came from."),
      line("The app asks its backend for the partnered list, the blocked servers and messages. It sends nothing else, and it goes on working when the backend can\u2019t be reached."),
      line("No game traffic passes through Ferrylink: the console talks to the server you chose by itself."),
    ],
  }],
  [PARTNERS, {
    name: "PartneredServersView",
    blocks: [
      heading("Where the partnered list comes from"),
      line("The partnered servers come from the backend this app is set to. Whoever runs that backend chooses the servers on it, and can hide a server from the list or show it again."),
      line("On a backend of your own, a server is added with: ferrylink-backend partner add --ip play.example.net --title \"Example\""),
      line("The switch above the list hides it in the app, or shows it again."),
    ],
  }],
]);
