// Starts one host per page connection, passes checked requests and all answers, and ends the host
// when either side goes. No state outlives a connection.
import { startHost } from "./flow.js";
import { checkedRequest, endReason, kEndCommand, originOf, RefusedRequest } from "./protocol.js";

const api = globalThis.browser ?? globalThis.chrome;

api.runtime.onConnect.addListener((page) => {
  const origin = page.name === "page" ? originOf(page.sender, api.runtime.id) : null;
  if (origin === null) return page.disconnect();
  const host = startHost(api, page.sender.tab.id, origin);
  if (host === null) return endPage(page, "too-many");
  serve(page, origin, host);
});

/**
 * Joins a page to its host until one of them goes.
 * @param {object} page Port of the content script.
 * @param {string} origin What the host is told as "currentDomain".
 * @param {{port: object, end: () => void}} host
 */
function serve(page, origin, host) {
  /** The content script lets one request be under way; a page that has taken it over does not. */
  let isUnderWay = false;

  page.onMessage.addListener((message) => {
    if (message?.type === "cancel") return; // nobody is being asked
    try {
      if (isUnderWay) throw new RefusedRequest("the answer to the one before it has not come yet.");
      const request = checkedRequest(message, origin);
      isUnderWay = request.command !== kEndCommand;
      host.port.postMessage(request);
    } catch (error) {
      const reason = error instanceof RefusedRequest ? error.message : "it could not be sent.";
      page.postMessage({ type: "refused", reason });
    }
  });
  host.port.onMessage.addListener((answer) => {
    isUnderWay = false;
    page.postMessage({ type: "answer", answer });
  });
  page.onDisconnect.addListener(host.end);
  host.port.onDisconnect.addListener(() => {
    const detail = api.runtime.lastError?.message ?? host.port.error?.message ?? "";
    endPage(page, endReason(detail), detail);
  });
  page.postMessage({ type: "open" });
}

function endPage(page, reason, detail) {
  page.postMessage({ type: "closed", reason, detail });
  page.disconnect();
}
