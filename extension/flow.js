// How many hosts there are. A page needs one; a hostile one must neither fill the machine with
// processes nor take those of other pages. A host counts until its process has ended, which is
// after its page has gone: a count of pages alone lets a page that connects and closes in a loop
// have as many as it can start.
import { operator } from "./operator.js";
import { kEndCommand } from "./protocol.js";

/** Eight with the one that the popup asks for its version. */
const kMaxHosts = 7;
const kMaxHostsOfOrigin = 6;
const kMaxHostsOfTab = 4;
/** Time that a host has to end by itself; one that waits for its token does not hear. */
const kPatienceMs = 1000;
/** Time after which both browsers have killed a host that they were told to disconnect. */
const kKillMs = 4000;

/** Running hosts: each one its tab and its origin. @type {Set<{tab: number, origin: string}>} */
const running = new Set();

const isFull = (tab, origin) => {
  const hosts = [...running];
  return hosts.length >= kMaxHosts || hosts.filter((host) => host.tab === tab).length >= kMaxHostsOfTab
    || hosts.filter((host) => host.origin === origin).length >= kMaxHostsOfOrigin;
};

/**
 * Starts a host.
 * @param {object} api The browser's extension interface.
 * @param {number} tab
 * @param {string} origin
 * @returns {Host | null} null when there are enough.
 */
export function startHost(api, tab, origin) {
  if (isFull(tab, origin)) return null;
  const place = { tab, origin };
  running.add(place);
  return hostIn(api, place);
}

/**
 * @typedef {object} Host
 * @property {object} port
 * @property {() => void} end
 * @property {() => Promise<Host>} replace Ends it, and starts another in its place once its process has ended.
 */

/** @returns {Host} */
function hostIn(api, place) {
  const port = api.runtime.connectNative(operator.hostName);
  let isConnected = true;
  let free = () => running.delete(place);
  const gone = () => {
    if (isConnected) free();
    isConnected = false;
  };
  port.onDisconnect.addListener(gone);
  const end = () => {
    if (!isConnected) return free();
    // Disconnecting would not tell when the process is gone; the host's own end does.
    port.postMessage({ command: kEndCommand });
    setTimeout(() => {
      if (!isConnected) return;
      port.disconnect();
      setTimeout(gone, kKillMs);
    }, kPatienceMs);
  };
  const replace = () => new Promise((resolve) => {
    free = () => resolve(hostIn(api, place));
    end();
  });
  return { port, end, replace };
}
