// Joins the page to the background: opaque messages between a MessagePort of the page and a port
// of the extension. All checking is the background's, which a page cannot reach into.
"use strict";

(() => {
  const api = globalThis.browser ?? globalThis.chrome;
  /** Ports of the extension that are open, to be closed when the page is left. */
  const connections = new Set();

  window.addEventListener("message", (event) => {
    // Only the page itself: a frame in it, or a window that opened it, is another source.
    if (event.source !== window || event.data?.signingHost !== "connect" || event.ports.length !== 1) return;
    // A page that is being prerendered is not what a person sees: it waits until it is.
    if (document.prerendering) {
      document.addEventListener("prerenderingchange", () => join(event.ports[0]), { once: true });
    } else {
      join(event.ports[0]);
    }
  });

  // A page kept for the back button lives on, but its host must not.
  window.addEventListener("pagehide", () => {
    for (const end of [...connections]) end("closed");
  });

  /** @param {MessagePort} page */
  function join(page) {
    let background;
    try {
      background = api.runtime.connect({ name: "page" });
    } catch {
      // The extension was updated or removed since this page was loaded.
      page.postMessage({ type: "closed", reason: "no-extension" });
      return;
    }
    const end = (reason) => {
      if (!connections.delete(end)) return;
      background.disconnect();
      if (reason) page.postMessage({ type: "closed", reason });
      page.close();
    };
    connections.add(end);

    background.onMessage.addListener((message) => {
      if (connections.has(end)) page.postMessage(message);
    });
    background.onDisconnect.addListener(() => end("closed"));
    page.onmessage = ({ data }) => {
      if (data?.type === "close") return end();
      if (data?.type !== "request" || !connections.has(end)) return;
      try {
        background.postMessage(data.request);
      } catch {
        // What a page may send itself is more than what an extension's port carries.
        page.postMessage({ type: "refused", reason: "it is not JSON." });
      }
    };
  }
})();
