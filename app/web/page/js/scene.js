// Tells the server whether this page can be seen: "visible" or "hidden".
// Focus plays no part: a page that can be seen is in the foreground, as an
// app on a phone's screen is, and the server makes the app's scene phase out
// of all pages' reports.

export function currentVisibility() {
  return document.visibilityState === "visible" ? "visible" : "hidden";
}

/**
 * Calls `report(visibility, {keepalive})` at once and on every change.
 * Returns {resend}, which reports the current visibility again (after a
 * reconnect the server may have forgotten it).
 */
export function watchScene(report) {
  let last = null;
  const update = () => {
    const visibility = currentVisibility();
    if (visibility === last) return;
    last = visibility;
    report(visibility, { keepalive: false });
  };
  document.addEventListener("visibilitychange", update);
  window.addEventListener("pageshow", update);
  window.addEventListener("pagehide", () => {
    last = "hidden";
    report("hidden", { keepalive: true });
  });
  update();
  return {
    resend() {
      last = currentVisibility();
      report(last, { keepalive: false });
    },
  };
}
