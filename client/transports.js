// Two ways to a host, one interface; whole messages, whose meaning they do not know.
import { connectionError, HostError, RequestError, SigningError } from "./errors.js";

/**
 * @typedef {object} Transport
 * @property {string} currentDomain Origin of the page, as the far side will state it.
 * @property {number} maxRequestBytes Longest JSON text of one request, in bytes of UTF-8.
 * @property {() => Promise<void>} open Rejects with a ConnectionError.
 * @property {(request: object) => void} send
 * @property {() => void} close
 * @property {() => void} [cancel] Gives up the signing that a person is being asked about.
 * @property {"page" | "extension"} [pinEntry] Who asks for the PIN; the page unless it says so.
 * @property {boolean} [oneConsentForBatch] Several documents may be sent in one signing.
 * @property {(answer: object) => void} onAnswer Set by the client.
 * @property {(error: SigningError) => void} onRefusal Set by the client: the last request was not passed on, or cancelled.
 * @property {(error: ConnectionError) => void} onClosed Set by the client; never called after `close()`.
 */

/** The host reads a native message into a fixed buffer: a longer one breaks the conversation. */
const kMaxRequestBytes = 999;

/** @type {(what: any) => void} */
const kIgnore = () => {};
const pageOrigin = () => globalThis.location?.origin ?? "";

/**
 * Through the browser extension. Messages are events of an element that only this transport and the
 * extension's content script hold, not of the window, so other listeners of the page do not see a PIN
 * go by; and they never leave the page's process on their way there. The extension replaces
 * "currentDomain" by the origin that the browser vouches for.
 * @implements {Transport}
 */
export class ExtensionTransport {
  maxRequestBytes = kMaxRequestBytes;
  onAnswer = kIgnore;
  onRefusal = kIgnore;
  onClosed = kIgnore;
  /** @type {"page" | "extension"} */ pinEntry = "page";
  oneConsentForBatch = false;
  /** @type {Element | null} */ #line = null;
  #patienceMs;

  /** @param {{patienceMs?: number}} [options] How long an absent extension is waited for. */
  constructor({ patienceMs = 2000 } = {}) {
    this.#patienceMs = patienceMs;
  }

  get currentDomain() {
    return pageOrigin();
  }

  async open() {
    this.close();
    // The extension serves no page that somebody on the network could have altered.
    if (globalThis.isSecureContext === false) throw connectionError("insecure-page");
    const line = document.createElement("span");
    this.#line = line;
    // Nor one that nobody sees yet, however long that takes.
    if ("prerendering" in document && document.prerendering) {
      await new Promise((seen) => document.addEventListener("prerenderingchange", seen, { once: true }));
      if (this.#line !== line) throw connectionError("closed");
    }
    return /** @type {Promise<void>} */ (new Promise((resolve, reject) => {
      /** @param {ConnectionError} error */
      const fail = (error) => {
        clearTimeout(timer);
        const wasOpen = this.#line === line;
        if (wasOpen) this.close();
        reject(error);
        if (wasOpen) this.onClosed(error);
      };
      const timer = setTimeout(() => fail(connectionError("no-extension")), this.#patienceMs);
      line.addEventListener("signing-host-told", (event) => {
        if (this.#line !== line) return;
        const data = JSON.parse(/** @type {CustomEvent} */ (event).detail);
        /** @template {SigningError} T @param {T} error */
        const withMade = (error) => Object.assign(error, { signatures: data.signatures });
        switch (data.type) {
          case "open":
            clearTimeout(timer);
            this.pinEntry = data.pinEntry ?? "page";
            this.oneConsentForBatch = data.oneConsentForBatch ?? false;
            resolve();
            break;
          case "answer": this.onAnswer(data.answer); break;
          case "refused":
            // The reason is in English, for a log.
            this.onRefusal(withMade(Object.assign(data.kind === "signature-misfit" ? new HostError(data.kind, { code: 0 })
              : new RequestError(data.kind ?? "refused"), { cause: data.reason })));
            break;
          case "cancelled": this.onRefusal(withMade(new SigningError("cancelled"))); break;
          case "closed": fail(withMade(connectionError(data.reason, data.detail))); break;
        }
      });
      document.dispatchEvent(new MouseEvent("signing-host-connect", { relatedTarget: line }));
    }));
  }

  /** @param {object} message */
  #tell(message) {
    this.#line?.dispatchEvent(new CustomEvent("signing-host-asked", { detail: JSON.stringify(message) }));
  }

  /** @param {object} request */
  send(request) {
    this.#tell({ type: "request", request });
  }

  cancel() {
    this.#tell({ type: "cancel" });
  }

  close() {
    this.#tell({ type: "close" });
    this.#line = null;
  }
}

/**
 * Through a websocket relay that runs `signing-host ws`. Nobody but the relay's origin check
 * vouches for "currentDomain" here.
 * @implements {Transport}
 */
export class WebsocketTransport {
  onAnswer = kIgnore;
  onRefusal = kIgnore;
  onClosed = kIgnore;
  /** @type {WebSocket | null} */ #socket = null;
  #url;

  /**
   * @param {string} url Such as "ws://localhost:8765/".
   * @param {{currentDomain?: string, maxRequestBytes?: number}} [options] The relay has no limit
   *   of its own; the extension's is kept so that a page works over both.
   */
  constructor(url, { currentDomain = pageOrigin(), maxRequestBytes = kMaxRequestBytes } = {}) {
    this.#url = url;
    this.currentDomain = currentDomain;
    this.maxRequestBytes = maxRequestBytes;
  }

  open() {
    this.close();
    /** @type {WebSocket} */ let socket;
    try {
      socket = new WebSocket(this.#url);
    } catch (error) { // no address of a relay, or one that a page over https may not use
      return Promise.reject(connectionError("relay-unreachable", String(error)));
    }
    this.#socket = socket;
    return /** @type {Promise<void>} */ (new Promise((resolve, reject) => {
      let opened = false;
      socket.onopen = () => { opened = true; resolve(); };
      socket.onmessage = ({ data }) => {
        let answer = null;
        try { answer = JSON.parse(data); } catch { /* null is out of step for the client */ }
        this.onAnswer(answer);
      };
      socket.onclose = () => {
        const error = connectionError(opened ? "host-ended" : "relay-unreachable");
        reject(error);
        if (this.#socket !== socket) return;
        this.#socket = null;
        this.onClosed(error);
      };
    }));
  }

  /** @param {object} request */
  send(request) {
    this.#socket?.send(JSON.stringify(request));
  }

  close() {
    const socket = this.#socket;
    this.#socket = null;
    socket?.close();
  }
}
