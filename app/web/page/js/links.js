// Where the help pages point. Each address is parsed once, at load: a typo
// here stops the page from starting instead of leaving a dead link behind.

function address(text) {
  return new URL(text).href;
}

export const links = Object.freeze({
  chatServer: address("https://discord.gg/ferrylink"),
  chatAccount: address("https://t.me/ferrylink"),
  contact: address("mailto:contact@ferrylink.app"),
  privacyPolicy: address("https://ferrylink.app/privacy"),
  termsAndConditions: address("https://ferrylink.app/terms"),
});

/** The text a link shows for its own address: no scheme, no trailing slash. */
export function shownAddress(href) {
  const url = new URL(href);
  if (url.protocol === "mailto:") return url.pathname;
  return `${url.host}${url.pathname === "/" ? "" : url.pathname}`;
}
