// The extension's window for signings: one at a time for the whole browser, the others wait in a queue.
// A window talks over a port whose name only it was told; closing the window closes the port.

const api = globalThis.browser ?? globalThis.chrome;

const kPage = "window/window.html";
const kSize = { width: 440, height: 780 };
/** A page whose signings were cancelled so often in a row gets no window for a while. */
const kMaxCancelled = 3;
const kSilenceMs = 60_000;

/** Windows that are open or wait to be, the open one first. @type {SigningWindow[]} */
const queue = [];
/** @type {Map<number, {cancelled: number, until: number}>} by tab */
const patience = new Map();

/** The person, the page or its tab gave the signing up. */
export class Cancelled extends Error {}

/** True while a tab has no more windows to expect. @param {number} tab */
export const isSilenced = (tab) => (patience.get(tab)?.until ?? 0) > Date.now();

function countCancelled(tab) {
  const cancelled = (patience.get(tab)?.cancelled ?? 0) + 1;
  const isTooMuch = cancelled >= kMaxCancelled;
  patience.set(tab, isTooMuch ? { cancelled: 0, until: Date.now() + kSilenceMs } : { cancelled, until: 0 });
}

export class SigningWindow {
  #tab;
  #request;
  #token = crypto.randomUUID();
  #windowId = null;
  /** @type {object | null} */ #port = null;
  #isOver = false;
  /** Messages for a window that is not there yet. */
  #waiting = [];
  #consent = null;
  /** Rejects once the signing was given up. @type {Promise<never>} */
  cancelled;
  #cancel;

  /** @param {number} tab @param {object} request What the window shows, see window/window.js. */
  constructor(tab, request) {
    this.#tab = tab;
    this.#request = request;
    this.cancelled = new Promise((_, reject) => { this.#cancel = () => reject(new Cancelled()); });
    this.cancelled.catch(() => {});
    queue.push(this);
    if (queue.length === 1) this.#open();
    else queue[0].#countWaiting();
  }

  /**
   * Waits until the person agrees.
   * @returns {Promise<string>} The PIN, "" where none was asked for.
   */
  consent() {
    return Promise.race([this.cancelled, new Promise((resolve) => { this.#consent = resolve; })]);
  }

  /** @param {object} message */
  tell(message) {
    if (this.#port) this.#port.postMessage(message);
    else this.#waiting.push(message);
  }

  /** The signing is done. */
  finish() {
    patience.delete(this.#tab);
    this.close();
  }

  /** Leaves the window to the person, who reads there why it is over. @param {string} kind @param {number} signed Documents that were signed. */
  leave(kind, signed) {
    this.tell({ type: "ended", kind, signed });
    this.#isOver = true;
  }

  /** Closes the window, or takes it out of the queue. A signing that is not done is cancelled. */
  close() {
    const at = queue.indexOf(this);
    if (at < 0) return;
    queue.splice(at, 1);
    this.#cancel();
    this.#port?.disconnect();
    if (this.#windowId !== null) api.windows.remove(this.#windowId).catch(() => {});
    if (at === 0) queue[0]?.#open();
    else queue[0].#countWaiting();
  }

  async #open() {
    try {
      const url = api.runtime.getURL(`${kPage}#${this.#token}`);
      const made = await api.windows.create({ url, type: "popup", ...kSize });
      this.#windowId = made.id;
      if (!queue.includes(this)) await api.windows.remove(made.id);
    } catch {
      this.close();
    }
  }

  #countWaiting() {
    this.tell({ type: "waiting", count: queue.length - 1 });
  }

  /** The person or the page gave it up. A page that does so itself, on and on, would make windows flicker. */
  giveUp() {
    if (queue.includes(this) && !this.#isOver) countCancelled(this.#tab);
    this.close();
  }

  #join(port) {
    this.#port = port;
    port.onDisconnect.addListener(() => { this.#port = null; this.giveUp(); });
    port.onMessage.addListener((message) => {
      if (message.type === "consent") this.#consent?.(String(message.pin));
    });
    port.postMessage({ type: "request", ...this.#request });
    for (const message of this.#waiting.splice(0)) port.postMessage(message);
    if (queue.length > 1) this.#countWaiting();
  }

  /** The port of a window to the window's signing; any other is turned away. @param {object} port */
  static join(port) {
    const open = queue[0];
    const isOurs = port.sender.id === api.runtime.id && port.sender.url?.startsWith(api.runtime.getURL(kPage));
    if (isOurs && open && !open.#port && port.name === `window:${open.#token}`) open.#join(port);
    else port.disconnect();
  }

  static {
    // A window that was closed before it connected.
    api.windows.onRemoved.addListener((id) => {
      const open = queue[0];
      if (open && open.#windowId === id) open.giveUp();
    });
  }
}
