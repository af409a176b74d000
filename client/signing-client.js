// Client of the signing host for web pages: one ES module, no dependencies, no build step.
//
// SigningClient has a promise per command. It speaks through a transport: ExtensionTransport (the
// browser extension) or WebsocketTransport (a relay that runs `signing-host ws`). Every failure is
// a SigningError with a `kind` for code, and a `message` and `advice` for people.

// ---------------------------------------------------------------------------------------------
// Errors

/**
 * Base of every error of this module.
 * `kind` is stable and meant for code; `message` says what happened, `advice` what to do next.
 */
export class SigningError extends Error {
  /** @param {string} kind @param {string} message @param {string} advice */
  constructor(kind, message, advice) {
    super(`${message} ${advice}`.trim());
    this.name = new.target.name;
    this.kind = kind;
    this.advice = advice;
    /** What happened, without the advice. */
    this.summary = message;
  }
}

/** The request was refused before it was sent; the connection is as it was. */
export class RequestError extends SigningError {}

/**
 * There is no conversation with the host any more, or there never was. Every kind but
 * `no-extension` and `host-not-found` can be mended by `open()` and `initialise()` again.
 */
export class ConnectionError extends SigningError {}

/** The host carried the request out and reports that it failed; the conversation goes on. */
export class HostError extends SigningError {
  /**
   * @param {string} kind @param {string} message @param {string} advice
   * @param {Partial<HostState>} [state]
   */
  constructor(kind, message, advice, state = {}) {
    super(kind, message, advice);
    /** Error code of the host: 0 when it reports success with an empty result, -1 without code. */
    this.code = state.code ?? -1;
    /** PKCS#11 return value or NSPR error number underneath, 0 for none. */
    this.lowLevelCode = state.lowLevelCode ?? 0;
    /** The host's own text, for a log. */
    this.hostMessage = state.hostMessage ?? "";
    /** Name of the credential that needs a PIN, "" for none. */
    this.pinModule = state.pinModule ?? "";
    this.missingPin = state.missingPin ?? false;
    this.invalidPin = state.invalidPin ?? false;
    /** How many times the token refused a PIN since the host started. */
    this.retries = state.retries ?? 0;
  }
}

/** @type {Record<string, [message: string, advice: string]>} */
const kWords = {
  "not-initialised": ["The host has no domain list yet.", "Call initialise() first."],
  "not-started": ["The host could not start its cryptographic library.",
    "Reload the page; if it happens again, reinstall the signing host."],
  "undecodable": ["The host could not decode the certificate identifier or the digest.",
    "Take the identifier from list() and the digest from WebCrypto."],
  "wrong-pin": ["The token refused the PIN.",
    "Type it again, with care: a token locks after a few wrong PINs."],
  "pin-locked": ["The token is locked after too many wrong PINs.",
    "Unlock it with its unblocking code, or ask whoever issued it."],
  "pin-expired": ["The PIN of the token has expired.", "Change it with the token's own program."],
  "bad-key": ["The signing host was built with an unusable domains key.", "Reinstall the signing host."],
  "domain-not-authorised": ["This site is not in the list of domains that may use the token.",
    "Check the address; the operator of the site can have it added to the signed list."],
  "domain-list-rejected": ["The site's signed list of domains is out of date or was altered.",
    "Reload the page; if it happens again, the operator of the site must renew the list."],
  "pin-missing": ["The token needs its PIN.", "Type the PIN, then repeat the request."],
  "no-token": ["No token was found.", "Plug in the reader, insert the card and try again."],
  "token-failure": ["The token did not do what was asked.",
    "Take it out, insert it again and repeat the request."],
  "not-found": ["The token no longer holds this certificate or its key.",
    "Perhaps the card was changed: list the certificates again."],
};

/** @type {Record<number, string>} */
const kKindOfCode = {
  1: "not-started", 3: "undecodable", 5: "wrong-pin", 8: "bad-key", 9: "domain-not-authorised",
  10: "domain-list-rejected", 11: "pin-missing", 12: "token-failure",
};
/** PKCS#11 return values that deserve words of their own. @type {Record<number, string>} */
const kKindOfReturnValue = {
  0x32: "no-token", 0xa3: "pin-expired", 0xa4: "pin-locked", 0xe0: "no-token", 0xe1: "no-token",
};
const kNoSlotText = "No se encontro ningun slot";

/**
 * The error that describes a failed request.
 * @param {HostState} state
 * @returns {HostError}
 */
function hostErrorOf(state) {
  let kind = kKindOfCode[state.code] ?? "token-failure";
  // The low-level code is only that of a PKCS#11 call when a call's own step failed; the two
  // texts without one leave an earlier failure's code standing.
  if (state.hostMessage === kNoSlotText) kind = "no-token";
  else if (state.code === 12 || state.code === 5) kind = kKindOfReturnValue[state.lowLevelCode] ?? kind;
  return hostError(kind, state);
}

/** @param {string} kind @param {Partial<HostState>} [state] */
function hostError(kind, state) {
  return new HostError(kind, ...kWords[kind], state);
}

/** @type {Record<string, [message: string, advice: string]>} */
const kConnectionWords = {
  "no-extension": ["The browser extension does not answer on this page.",
    "Install or enable it, check that it serves this address, and reload the page."],
  "host-not-found": ["The signing host is not installed for this browser.",
    "Install it, then reload the page."],
  "host-forbidden": ["The signing host does not accept this browser extension.",
    "Reinstall the host so that its manifest names this extension."],
  "host-ended": ["The signing host ended unexpectedly.", "Try again; your PIN will be asked for anew."],
  "no-answer": ["The signing host did not answer in time, and the connection was closed.",
    "Check the reader, then open the connection again."],
  "out-of-step": ["An answer did not belong to the request, and the connection was closed.",
    "Open the connection again."],
  "too-many": ["This tab has too many connections to signing hosts.", "Close one first."],
  "relay-unreachable": ["The relay cannot be reached or does not accept this site.",
    "Check its address and its list of allowed origins."],
  "closed": ["The connection to the signing host is closed.", "Open it again."],
};

/** @param {string} kind @param {string} [detail] The browser's own text, added for a log. */
function connectionError(kind, detail) {
  const error = new ConnectionError(kind, ...(kConnectionWords[kind] ?? kConnectionWords["host-ended"]));
  if (detail) error.cause = detail;
  return error;
}

// ---------------------------------------------------------------------------------------------
// Names and listings: from the host's bytes to text that people read

/**
 * @typedef {object} ListedCertificate
 * @property {string} issuer Distinguished name, RFC 1485 text.
 * @property {string} subject Distinguished name, RFC 1485 text.
 * @property {string} id Base64 identifier, as certificate() and sign() take it.
 */

const kUtf8 = new TextDecoder("utf-8", { fatal: true });

/**
 * The host sends one character per byte: "\u00C3\u00B1" is the letter n with tilde. Text that is
 * not UTF-8 (an old Latin-1 name) is kept as it came.
 * @param {string} text @returns {string}
 */
function decodeBytes(text) {
  if (/^[\x00-\x7f]*$/.test(text) || /[^\x00-\xff]/.test(text)) return text;
  try {
    return kUtf8.decode(Uint8Array.from(text, (c) => c.charCodeAt(0)));
  } catch {
    return text;
  }
}

/**
 * A name as NSS writes it: bytes, where those outside ASCII may also come as a backslash and two
 * hexadecimal digits. Quotes and other escapes of RFC 1485 stay.
 * @param {string} text @returns {string}
 */
export function decodeName(text) {
  return decodeBytes(text.replace(/\\(\\|[89a-f][0-9a-f])/gi, (escape, code) =>
    code === "\\" ? escape : String.fromCharCode(parseInt(code, 16))));
}

/** @param {unknown} text Base64 with the line breaks NSS puts in. */
function isBase64(text) {
  if (typeof text !== "string") return false;
  const bare = text.replace(/[\r\n]/g, "");
  return bare.length > 0 && bare.length % 4 === 0 && /^[A-Za-z0-9+/]+={0,2}$/.test(bare);
}

/** @param {string} field */
const startsName = (field) => field === "" || /^\s*(?:[A-Za-z][A-Za-z0-9-]*|(?:OID\.)?\d+(?:\.\d+)+)=[^=]/i.test(field);

/**
 * Cuts the flat text, fields joined by "|", into records of three. Names are not escaped, so a
 * name may hold a "|" itself: what closes a record is then its identifier, the first base64 field
 * that is followed by the end or by the start of another name.
 * @param {string} text @returns {ListedCertificate[]}
 */
export function parseListing(text) {
  if (text === "") return [];
  const records = [];
  let names = [];
  const fields = text.split("|");
  for (const [index, field] of fields.entries()) {
    const next = fields[index + 1];
    if (names.length < 2 || !isBase64(field) || (next !== undefined && !startsName(next))) {
      names.push(field);
      continue;
    }
    // Of several names the subject begins at the last but the first that looks like one.
    const split = names.length === 2 ? 1 : Math.max(1, names.findIndex((name, i) => i > 0 && startsName(name)));
    records.push({
      issuer: decodeName(names.slice(0, split).join("|")),
      subject: decodeName(names.slice(split).join("|")),
      id: field,
    });
    names = [];
  }
  return records;
}

// ---------------------------------------------------------------------------------------------
// Transports: two ways to a host, one interface; whole messages, whose meaning they do not know

/**
 * @typedef {object} Transport
 * @property {string} currentDomain Origin of the page, as the far side will state it.
 * @property {number} maxRequestBytes Longest JSON text of one request, in bytes of UTF-8.
 * @property {() => Promise<void>} open Rejects with a ConnectionError.
 * @property {(request: object) => void} send
 * @property {() => void} close
 * @property {(answer: object) => void} onAnswer Set by the client.
 * @property {(error: RequestError) => void} onRefusal Set by the client: the last request was not passed on.
 * @property {(error: ConnectionError) => void} onClosed Set by the client; never called after `close()`.
 */

/** The host reads a native message into a fixed buffer: a longer one breaks the conversation. */
const kMaxRequestBytes = 999;

/** @type {(what: any) => void} */
const kIgnore = () => {};
const pageOrigin = () => globalThis.location?.origin ?? "";

/**
 * Through the browser extension. Messages travel over a private MessageChannel, not as window
 * messages, so other listeners of the page do not see a PIN go by. The extension replaces
 * "currentDomain" by the origin that the browser vouches for.
 * @implements {Transport}
 */
export class ExtensionTransport {
  maxRequestBytes = kMaxRequestBytes;
  onAnswer = kIgnore;
  onRefusal = kIgnore;
  onClosed = kIgnore;
  /** @type {MessagePort | null} */ #port = null;
  #patienceMs;

  /** @param {{patienceMs?: number}} [options] How long an absent extension is waited for. */
  constructor({ patienceMs = 2000 } = {}) {
    this.#patienceMs = patienceMs;
  }

  get currentDomain() {
    return pageOrigin();
  }

  open() {
    this.close();
    const { port1, port2 } = new MessageChannel();
    this.#port = port1;
    return /** @type {Promise<void>} */ (new Promise((resolve, reject) => {
      /** @param {ConnectionError} error */
      const fail = (error) => {
        clearTimeout(timer);
        const wasOpen = this.#port === port1;
        if (wasOpen) this.close();
        reject(error);
        if (wasOpen) this.onClosed(error);
      };
      const timer = setTimeout(() => fail(connectionError("no-extension")), this.#patienceMs);
      port1.onmessage = ({ data }) => {
        switch (data?.type) {
          case "open": clearTimeout(timer); resolve(); break;
          case "answer": this.onAnswer(data.answer); break;
          case "refused":
            this.onRefusal(new RequestError("refused", "The extension refused the request:", String(data.reason)));
            break;
          case "closed": fail(connectionError(data.reason, data.detail)); break;
        }
      };
      window.postMessage({ signingHost: "connect" }, window.location.origin, [port2]);
    }));
  }

  /** @param {object} request */
  send(request) {
    this.#port?.postMessage({ type: "request", request });
  }

  close() {
    this.#port?.postMessage({ type: "close" });
    this.#port?.close();
    this.#port = null;
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
    const socket = new WebSocket(this.#url);
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

// ---------------------------------------------------------------------------------------------
// The client

/**
 * What the host says about itself in an answer.
 * @typedef {object} HostState
 * @property {number} code Error code of the last token command, 0 for none.
 * @property {number} lowLevelCode PKCS#11 return value or NSPR error number underneath.
 * @property {string} hostMessage The host's own text.
 * @property {string} pinModule Credential that needs a PIN, "" for none.
 * @property {boolean} missingPin
 * @property {boolean} invalidPin
 * @property {number} retries PINs refused by the token since the host started.
 */

const kCommand = {
  initialise: 0, close: 1, list: 2, setPin: 3, certificate: 4, sign: 5,
  typePinCharacter: 6, deletePinCharacter: 7, version: 8,
};
const kDigestLengths = [16, 20, 32];

/** @param {string} text */
const byteLength = (text) => new TextEncoder().encode(text).length;
/** @param {string} base64 */
const decodedLength = (base64) => atob(base64).length;
/** @type {(kind: string, message: string, advice: string) => never} */
const refuse = (kind, message, advice) => { throw new RequestError(kind, message, advice); };

/**
 * A conversation with one signing host. Requests are sent one at a time, in the order of the
 * calls. After a ConnectionError, call `open()` and `initialise()` again: a host keeps nothing.
 *
 *     const client = new SigningClient();
 *     await client.open();
 *     await client.initialise({ domains, signature });
 *     const [first] = await client.list();
 *     const signature = await client.sign(first.id, digest);  // HostError "pin-missing" asks for the PIN
 */
export class SigningClient {
  #transport;
  #timeoutMs;
  #isOpen = false;
  /** Why the connection is not open. */
  #lost = connectionError("closed");
  /** @type {Promise<unknown>} */ #queue = Promise.resolve();
  /** @type {{command: number, timer: any, resolve: (answer: any) => void, reject: (error: Error) => void} | null} */ #underWay = null;
  /** Why the host refuses this page: it says so once and then sends empty successes. */
  /** @type {HostError | null} */ #refusal = null;

  /**
   * @param {Transport} [transport] The browser extension unless given.
   * @param {{timeoutMs?: number}} [options] How long one answer may take, in milliseconds; generous,
   *   as some tokens ask the person to press a button.
   */
  constructor(transport = new ExtensionTransport(), { timeoutMs = 60_000 } = {}) {
    this.#transport = transport;
    this.#timeoutMs = timeoutMs;
    transport.onAnswer = (answer) => this.#settle(answer);
    transport.onRefusal = (error) => this.#finish("reject", error);
    transport.onClosed = (error) => this.#lose(error);
  }

  /** Connects and so starts a host. @returns {Promise<void>} */
  async open() {
    if (this.#isOpen) return;
    this.#refusal = null;
    await this.#transport.open();
    this.#isOpen = true;
  }

  /**
   * Tells the host who the page is. The host checks nothing yet; the first token command does.
   * @param {object} credentials
   * @param {string} credentials.domains Authorised domain suffixes, joined by "|", as signed.
   * @param {string} credentials.signature Base64 signature of the operator over `domains`.
   * @param {string} [credentials.caSubjectNames] Names of accepted authorities, joined by "|".
   * @returns {Promise<void>}
   */
  async initialise({ domains, signature, caSubjectNames = "" }) {
    const currentDomain = this.#transport.currentDomain;
    await this.#request(kCommand.initialise, { signature, domains, currentDomain, caSubjectNames });
    this.#refusal = null;
  }

  /** Certificates that are fit for signing and valid now. @returns {Promise<ListedCertificate[]>} */
  async list() {
    const text = await this.#tokenResult(kCommand.list, {}, "certificates");
    if (text === "" && this.#refusal) throw this.#refusal;
    return parseListing(text);
  }

  /** @param {string} id From list(). @returns {Promise<string>} Base64 DER, without line breaks. */
  async certificate(id) {
    return this.#namedResult(kCommand.certificate, { certId: checkedId(id) }, "certificate");
  }

  /**
   * RSA PKCS#1 v1.5 signature of a digest: 16 bytes are taken for MD5, 20 for SHA-1, 32 for SHA-256.
   * @param {string} id From list().
   * @param {string | ArrayBuffer | Uint8Array} digest Base64 text or the bytes.
   * @returns {Promise<string>} Base64, without line breaks.
   */
  async sign(id, digest) {
    return this.#namedResult(kCommand.sign, { certId: checkedId(id), digest: checkedDigest(digest) }, "pkcs1");
  }

  /**
   * Replaces the PIN being typed. It is used by the next token command after one that failed
   * with "pin-missing" or "wrong-pin".
   * @param {string} pin @returns {Promise<number>} Bytes of the PIN now held.
   */
  async setPin(pin) {
    return (await this.#request(kCommand.setPin, { pin })).pinLength;
  }

  /** @param {string} character One ASCII character. @returns {Promise<number>} Bytes of the PIN now held. */
  async typePinCharacter(character) {
    if (typeof character !== "string" || byteLength(character) !== 1) {
      refuse("pin-character", "A PIN character must be exactly one byte.",
        "Type ASCII characters one by one, or give another PIN whole to setPin().");
    }
    return (await this.#request(kCommand.typePinCharacter, { pinChar: character })).pinLength;
  }

  /** @returns {Promise<number>} Bytes of the PIN now held. */
  async deletePinCharacter() {
    return (await this.#request(kCommand.deletePinCharacter)).pinLength;
  }

  /** @returns {Promise<string>} Version of the protocol. */
  async version() {
    return (await this.#request(kCommand.version)).version;
  }

  /** Ends the host. What is waiting or under way is rejected with a ConnectionError. */
  async close() {
    if (!this.#isOpen) return;
    if (!this.#underWay) this.#transport.send({ command: kCommand.close });
    this.#lose(connectionError("closed"));
  }

  /**
   * Result of a command that must find something: an empty success means it did not.
   * @param {number} command @param {Record<string, string>} members @param {string} resultName
   * @returns {Promise<string>}
   */
  async #namedResult(command, members, resultName) {
    const text = await this.#tokenResult(command, members, resultName);
    if (text === "") throw this.#refusal ?? hostError("not-found", { code: 0 });
    return text.replace(/[\r\n]/g, "");
  }

  /** @param {number} command @param {Record<string, string>} members @param {string} resultName @returns {Promise<string>} */
  async #tokenResult(command, members, resultName) {
    const answer = await this.#request(command, members);
    if ("message" in answer) throw hostError("not-initialised");
    if (answer.error) {
      const error = hostErrorOf(stateOf(answer));
      if (error.code === 9 || error.code === 10) this.#refusal = error;
      throw error;
    }
    return answer[resultName] ?? "";
  }

  /**
   * Waits for its turn, sends, and resolves with the answer.
   * @param {number} command @param {Record<string, string>} [members] @returns {Promise<any>}
   */
  async #request(command, members = {}) {
    const request = { command, ...members };
    this.#check(request);
    const turn = this.#queue.then(() => new Promise((resolve, reject) => {
      if (!this.#isOpen) return reject(this.#lost);
      const timer = setTimeout(() => this.#lose(connectionError("no-answer")), this.#timeoutMs);
      this.#underWay = { command, resolve, reject, timer };
      this.#transport.send(request);
    }));
    this.#queue = turn.catch(() => {});
    return turn;
  }

  /** @param {Record<string, any>} request */
  #check(request) {
    for (const [name, value] of Object.entries(request)) {
      if (name !== "command" && typeof value !== "string") {
        refuse("not-text", `"${name}" must be a text.`, "A missing member would end the host.");
      }
    }
    const text = JSON.stringify(request);
    if (/(?<!\\)(?:\\\\)*\\ud[89a-f]/.test(text)) {
      refuse("not-text", "The request holds half a character.", "Do not cut texts inside a surrogate pair.");
    }
    const bytes = byteLength(text);
    const limit = this.#transport.maxRequestBytes;
    if (bytes > limit) {
      refuse("too-long", `The request is ${bytes} bytes long, the host reads at most ${limit}.`,
        request.command === kCommand.initialise
          ? "Sign a shorter list of domains (a suffix covers its subdomains) or leave caSubjectNames out."
          : "Shorten its texts.");
    }
  }

  /** @param {any} answer */
  #settle(answer) {
    if (!this.#underWay) return;
    const { command } = this.#underWay;
    const isObject = typeof answer === "object" && answer !== null;
    // "Not initialized" carries the code of the listing whatever it answers.
    const notInitialised = isObject && answer.command === 2 && answer.message === "Not initialized";
    if (!isObject || (answer.command !== command && !notInitialised)) {
      this.#lose(connectionError("out-of-step", isObject ? answer.message : undefined));
    } else {
      this.#finish("resolve", answer);
    }
  }

  /** @param {"resolve" | "reject"} how @param {any} value */
  #finish(how, value) {
    const underWay = this.#underWay;
    this.#underWay = null;
    clearTimeout(underWay?.timer);
    underWay?.[how](value);
  }

  /**
   * The conversation is over: answers carry no number, so a late one could be taken for another's.
   * @param {ConnectionError} error
   */
  #lose(error) {
    this.#isOpen = false;
    this.#lost = error;
    this.#transport.close();
    this.#finish("reject", error);
  }
}

/** @param {any} answer @returns {HostState} */
function stateOf(answer) {
  return {
    code: answer.lastError,
    lowLevelCode: answer.lastLowLevelError,
    hostMessage: decodeBytes(answer.errorMessage),
    pinModule: decodeBytes(answer.pinModuleName),
    missingPin: answer.missingPin,
    invalidPin: answer.invalidPin,
    retries: answer.pinRetryCount ?? 0,
  };
}

/** @param {string} id */
function checkedId(id) {
  // The host leaves the token library open after an identifier that it cannot decode.
  if (!isBase64(id)) refuse("cert-id", "The certificate identifier is not base64.", "Take it from list() as it is.");
  return id;
}

/** @param {string | ArrayBuffer | Uint8Array} digest */
function checkedDigest(digest) {
  const text = typeof digest === "string" ? digest : base64Of(digest);
  // The host looks at the digest only after it has used the PIN.
  if (!isBase64(text)) refuse("digest", "The digest is not base64.", "Give base64 text or the bytes themselves.");
  const length = decodedLength(text);
  if (!kDigestLengths.includes(length)) {
    refuse("digest", `The digest has ${length} bytes; it must have 16 (MD5), 20 (SHA-1) or 32 (SHA-256).`,
      "Hash the document first, with SHA-256 unless something old demands another.");
  }
  return text;
}

/** @param {ArrayBuffer | Uint8Array} data */
function base64Of(data) {
  const isBytes = data instanceof ArrayBuffer || ArrayBuffer.isView(data);
  if (!isBytes) return "";
  const bytes = ArrayBuffer.isView(data)
    ? new Uint8Array(data.buffer, data.byteOffset, data.byteLength) : new Uint8Array(data);
  return btoa(String.fromCharCode(...bytes));
}
