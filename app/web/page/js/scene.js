// Tells the server how this page is seen: "active" while visible and
// focused, "inactive" while visible without focus, "hidden" otherwise. The
// server makes the app's scene phase out of all pages' reports.

export function currentPhase() {
  if (document.visibilityState !== "visible") return "hidden";
  return document.hasFocus() ? "active" : "inactive";
}

/**
 * Calls `report(phase, {keepalive})` at once and on every change. Returns
 * {resend}, which reports the current phase again (after a reconnect the
 * server may have forgotten it).
 */
export function watchScene(report) {
  let last = null;
  const update = () => {
    const phase = currentPhase();
    if (phase === last) return;
    last = phase;
    report(phase, { keepalive: false });
  };
  document.addEventListener("visibilitychange", update);
  window.addEventListener("focus", (event) => { if (event.target === window) update(); });
  window.addEventListener("blur", (event) => { if (event.target === window) update(); });
  window.addEventListener("pageshow", update);
  window.addEventListener("pagehide", () => {
    last = "hidden";
    report("hidden", { keepalive: true });
  });
  update();
  return {
    resend() {
      last = currentPhase();
      report(last, { keepalive: false });
    },
  };
}
