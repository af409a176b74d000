// Starts one host per page connection, passes checked requests and all answers, and ends the host
// when either side goes. No state outlives a connection.
import { Broker } from "./broker.js";
import { startHost } from "./flow.js";
import { HostGone } from "./host-line.js";
import { rememberAnswer, rememberFailure } from "./last-failure.js";
import { operator } from "./operator.js";
import { checkedRequest, endReason, kEndCommand, originOf, RefusedRequest } from "./protocol.js";
import { SigningWindow } from "./windows.js";

const api = globalThis.browser ?? globalThis.chrome;

api.runtime.onConnect.addListener((page) => {
  if (page.name.startsWith("window:")) return SigningWindow.join(page);
  const origin = page.name === "page" ? originOf(page.sender, api.runtime.id) : null;
  if (origin === null) return page.disconnect();
  const start = () => startHost(api, page.sender.tab.id, origin);
  if (operator.pinEntry === "extension") return serveWithWindow(page, origin, start);
  const host = start();
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
  let isEnding = false;

  page.onMessage.addListener((message) => {
    if (message?.type === "cancel") return; // nobody is being asked
    try {
      if (isUnderWay) throw new RefusedRequest("the answer to the one before it has not come yet.");
      const request = checkedRequest(message, origin);
      isEnding = request.command === kEndCommand;
      isUnderWay = !isEnding;
      host.port.postMessage(request);
    } catch (error) {
      const reason = error instanceof RefusedRequest ? error.message : "it could not be sent.";
      page.postMessage({ type: "refused", reason });
    }
  });
  host.port.onMessage.addListener((answer) => {
    isUnderWay = false;
    rememberAnswer(origin, answer);
    page.postMessage({ type: "answer", answer });
  });
  page.onDisconnect.addListener(host.end);
  host.port.onDisconnect.addListener(() => {
    const { reason, detail } = goneOf(host.port);
    if (!isEnding) rememberFailure(origin, reason, { detail });
    endPage(page, reason, detail);
  });
  page.postMessage({ type: "open" });
}

/** The same where the PIN is typed in the extension's own window. */
function serveWithWindow(page, origin, start) {
  const mayBatch = operator.oneConsentForBatch;
  const broker = new Broker(page, origin, {
    start,
    mayBatch,
    reasonOf: goneOf,
    onGone({ reason, detail }, signatures) {
      if (reason !== "closed") rememberFailure(origin, reason, { detail });
      endPage(page, reason, detail, signatures);
    },
  });
  if (broker.isOpen) page.postMessage({ type: "open", pinEntry: operator.pinEntry, oneConsentForBatch: mayBatch });
}

/** Why a host's port closed, from the browser's words. */
function goneOf(port) {
  const detail = api.runtime.lastError?.message ?? port.error?.message ?? "";
  return new HostGone(endReason(detail), detail);
}

function endPage(page, reason, detail, signatures = []) {
  page.postMessage({ type: "closed", reason, detail, signatures });
  page.disconnect();
}
