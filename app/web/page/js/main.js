// Starts the page: draws the chrome, opens the event stream and hands each
// model to the screen that shows it.

import { AlertPresenter } from "./alerts.js";
import { Api, ApiError, EventStream, makePageId } from "./api.js";
import { keepBackground } from "./background.js";
import { ConnectView } from "./connect_view.js";
import { trackPress } from "./dom.js";
import { HelpView } from "./help_view.js";
import { placeIcons } from "./icons.js";
import { watchScene } from "./scene.js";

const OFFLINE = "Ferrylink can\u2019t be reached. Reconnecting\u2026";
const UNAUTHORIZED = "This address lacks its access token. Open the address that ferrylink printed when it started.";

const token = new URLSearchParams(window.location.search).get("token") ?? "";
const api = new Api({ token, pageId: makePageId() });
// The app put on a home screen opens with the token of the page that put it there.
if (token) document.getElementById("manifest").href = api.url("/manifest.webmanifest");

keepBackground(document.getElementById("background"));
placeIcons(document);
trackPress(document.body);

const banner = document.getElementById("banner");
let unauthorized = false;

function showBanner(text) {
  banner.textContent = text;
  banner.hidden = false;
}

function reportError(error) {
  if (error instanceof ApiError && error.status === 401) {
    unauthorized = true;
    showBanner(UNAUTHORIZED);
  } else if (error instanceof TypeError) {
    // fetch gives a TypeError when the server can't be reached at all.
    if (!unauthorized) showBanner(OFFLINE);
  } else {
    console.error("ferrylink:", error);
  }
}

const alerts = new AlertPresenter(document.getElementById("alert"));

const connectView = new ConnectView({
  root: document.getElementById("connect-view"),
  api,
  alerts,
  onError: reportError,
});

new HelpView({
  container: document.getElementById("help"),
  scroller: document.getElementById("help-scroll"),
});

// Tabs: the panels stay in the document while hidden, so each keeps its
// state (the form's text, the help page) across switches.
const tabs = [...document.querySelectorAll('[role="tab"]')];

function selectTab(selected) {
  const comesBack = selected.id === "tab-connection" && selected.getAttribute("aria-selected") !== "true";
  for (const tab of tabs) {
    const isSelected = tab === selected;
    tab.setAttribute("aria-selected", isSelected ? "true" : "false");
    tab.tabIndex = isSelected ? 0 : -1;
    document.getElementById(tab.getAttribute("aria-controls")).hidden = !isSelected;
  }
  // The connection screen's first appearance is the stream's opening; each
  // return to it afterwards is reported.
  if (comesBack) api.reportAppearance("ConnectView").catch(reportError);
}

for (const tab of tabs) {
  tab.addEventListener("click", () => selectTab(tab));
  tab.addEventListener("keydown", (event) => {
    const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
    if (!step) return;
    const next = tabs[(tabs.indexOf(tab) + step + tabs.length) % tabs.length];
    selectTab(next);
    next.focus();
  });
}
selectTab(tabs[0]);

// The backend's message: shown once per page load until the user asks not
// to see it again; "Ok" only closes it here.
const answeredMessages = new Set();

function showMessage({ message }) {
  if (!message) {
    alerts.withdraw("message");
    return;
  }
  if (answeredMessages.has(message.key)) return;
  alerts.withdraw("message");
  alerts.present({
    key: "message",
    title: "Important message!",
    message: message.message,
    stacked: true,
    buttons: [
      {
        label: "Don't show this message again",
        role: "default",
        action: () => {
          answeredMessages.add(message.key);
          api.dismissMessage(message.key).catch(reportError);
        },
      },
      {
        label: "Ok",
        role: "destructive",
        escape: true,
        action: () => answeredMessages.add(message.key),
      },
    ],
  });
}

const handlers = {
  scene: ({ phase }) => { document.body.dataset.scene = phase; },
  running: (model) => connectView.showRunning(model),
  form: (flags) => connectView.showForm(flags),
  favourites: (model) => connectView.showFavourites(model),
  featured: (model) => connectView.showFeatured(model),
  message: (model) => {
    showMessage(model);
    // `message` closes the burst of whole state that every stream opens with.
    document.body.dataset.synced = "true";
  },
};

const scene = watchScene((visibility, options) => {
  api.reportScene(visibility, options).catch((error) => {
    if (!options.keepalive) reportError(error);
  });
});

new EventStream(api.eventsUrl(), {
  onEvent: (name, value) => handlers[name]?.(value),
  onOpen: () => {
    document.body.dataset.stream = "open";
    banner.hidden = true;
    scene.resend();
  },
  onDown: () => {
    document.body.dataset.stream = "down";
    showBanner(OFFLINE);
  },
  onUnauthorized: () => {
    document.body.dataset.stream = "unauthorized";
    unauthorized = true;
    showBanner(UNAUTHORIZED);
  },
}).start();
