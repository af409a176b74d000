// What the extension lets through to the host, and nothing else.

/** The host reads a message into a fixed buffer; a longer one would break its conversation. */
export const kMaxRequestBytes = 999;

/** Command that ends the host; the only one that is not answered. */
export const kEndCommand = 1;

/** Members of each command, by command code, each a text. */
const kMembers = new Map([
  [0, ["signature", "domains", "currentDomain", "caSubjectNames"]],
  [kEndCommand, []],
  [2, []],
  [3, ["pin"]],
  [4, ["certId"]],
  [5, ["certId", "digest"]],
  [6, ["pinChar"]],
  [7, []],
  [8, []],
]);

const byteLength = (text) => new TextEncoder().encode(text).length;

/** A request that is not passed on; its message is told to the page, and its kind where a person is meant. */
export class RefusedRequest extends Error {
  constructor(message, kind = "refused") {
    super(message);
    this.kind = kind;
  }
}

/**
 * The request as the host gets it: a new object with the members of its command in their order,
 * "currentDomain" being the origin that the browser vouches for, whatever the page claims.
 * @param {unknown} message What the page sent.
 * @param {string} origin
 * @returns {object}
 * @throws {RefusedRequest}
 */
export function checkedRequest(message, origin) {
  if (typeof message !== "object" || message === null || Array.isArray(message)) {
    throw new RefusedRequest("a request is an object.");
  }
  const members = kMembers.get(message.command);
  if (!members) throw new RefusedRequest('"command" must be one of the numbers 0 to 8.');
  for (const name of Object.keys(message)) {
    if (name !== "command" && !members.includes(name)) {
      throw new RefusedRequest(`command ${message.command} has no member ${JSON.stringify(name.slice(0, 40))}.`);
    }
  }
  const request = { command: message.command };
  for (const name of members) {
    const value = name === "currentDomain" ? origin : message[name];
    // A missing member would end the host.
    if (typeof value !== "string") throw new RefusedRequest(`"${name}" must be a text.`);
    request[name] = value;
  }
  if ("pinChar" in request && byteLength(request.pinChar) !== 1) {
    throw new RefusedRequest('"pinChar" must be exactly one byte.');
  }
  const bytes = byteLength(JSON.stringify(request));
  if (bytes > kMaxRequestBytes) {
    throw new RefusedRequest(`the request is ${bytes} bytes long; the host reads at most ${kMaxRequestBytes}.`);
  }
  return request;
}

/**
 * True for pages that nobody on the network can alter on their way: https, and this computer's own.
 * @param {URL} url
 */
export function isTrustworthy(url) {
  if (url.protocol === "https:") return true;
  const own = /^(localhost|.+\.localhost|127(\.\d+){3}|\[::1\])$/;
  return url.protocol === "http:" && own.test(url.hostname);
}

/**
 * The origin of a page's connection as the browser states it, or null for one that is not served:
 * only top frames of active https pages (http from this computer itself), so that a page is never
 * spoken for by a frame in it and the address a person sees is the one that is checked.
 * @param {{id?: string, frameId?: number, tab?: object, url?: string, origin?: string, documentLifecycle?: string}} sender
 * @param {string} extensionId
 * @returns {string | null} Scheme, host name and port: no user information, path or fragment.
 */
export function originOf(sender, extensionId) {
  if (sender.id !== extensionId || !sender.tab || sender.frameId !== 0) return null;
  if ((sender.documentLifecycle ?? "active") !== "active") return null;
  let url;
  try {
    url = new URL(sender.url);
  } catch {
    return null;
  }
  if (!isTrustworthy(url)) return null;
  // A sandboxed page has an address like any other but the opaque origin "null".
  if (sender.origin !== undefined && sender.origin !== url.origin) return null;
  return url.origin;
}

/**
 * Why the connection to the host ended, from the browser's own words (Chromium's, then Firefox's).
 * @param {string} text @returns {"host-not-found" | "host-forbidden" | "host-ended"}
 */
export function endReason(text) {
  if (/not found|failed to start|no such native application|does not exist/i.test(text)) return "host-not-found";
  if (/forbidden|permission/i.test(text)) return "host-forbidden";
  return "host-ended";
}
