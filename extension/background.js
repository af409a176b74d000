// Starts one host per page connection, passes checked requests and all answers, and ends the host
// when either side goes. No state outlives a connection.
import { operator } from "./operator.js";
import { checkedRequest, endReason, kEndCommand, originOf, RefusedRequest } from "./protocol.js";

const api = globalThis.browser ?? globalThis.chrome;

/** A page needs one; a hostile one must not fill the machine with processes. */
const kMaxConnectionsPerTab = 4;
/** @type {Map<number, number>} */
const connectionsOfTab = new Map();

api.runtime.onConnect.addListener((page) => {
  const origin = page.name === "page" ? originOf(page.sender, api.runtime.id) : null;
  if (origin === null) return page.disconnect();
  const tab = page.sender.tab.id;
  const count = connectionsOfTab.get(tab) ?? 0;
  if (count >= kMaxConnectionsPerTab) return endPage(page, "too-many");
  connectionsOfTab.set(tab, count + 1);
  serve(page, origin, () => {
    const left = connectionsOfTab.get(tab) - 1;
    if (left > 0) connectionsOfTab.set(tab, left);
    else connectionsOfTab.delete(tab);
  });
});

/**
 * Joins a page to a new host until one of them goes.
 * @param {object} page Port of the content script.
 * @param {string} origin What the host is told as "currentDomain".
 * @param {() => void} onEnd Called once.
 */
function serve(page, origin, onEnd) {
  const host = api.runtime.connectNative(operator.hostName);
  /** One request at a time: the host works on one, and answers carry no number. */
  let isUnderWay = false;

  page.onMessage.addListener((message) => {
    try {
      if (isUnderWay) throw new RefusedRequest("the answer to the one before it has not come yet.");
      const request = checkedRequest(message, origin);
      isUnderWay = request.command !== kEndCommand;
      host.postMessage(request);
    } catch (error) {
      const reason = error instanceof RefusedRequest ? error.message : "it could not be sent.";
      page.postMessage({ type: "refused", reason });
    }
  });
  host.onMessage.addListener((answer) => {
    isUnderWay = false;
    page.postMessage({ type: "answer", answer });
  });
  page.onDisconnect.addListener(() => {
    host.disconnect();
    onEnd();
  });
  host.onDisconnect.addListener(() => {
    const detail = api.runtime.lastError?.message ?? host.error?.message ?? "";
    onEnd();
    endPage(page, endReason(detail), detail);
  });
  page.postMessage({ type: "open" });
}

function endPage(page, reason, detail) {
  page.postMessage({ type: "closed", reason, detail });
  page.disconnect();
}
