// Client of the signing host for web pages: ES modules without dependencies and without a build
// step. SigningClient has a promise per command. It speaks through a transport: ExtensionTransport
// (the browser extension) or WebsocketTransport (a relay that runs `signing-host ws`). Every failure
// is a SigningError with a `kind` for code, and a `summary` and an `advice` for people.
import { bytesOfBase64, parseCertificate } from "./certificate.js";
import { connectionError, HostError, loadTexts, RequestError, SigningError } from "./errors.js";
import { failureKindOf } from "./failure-kind.js";
import { decodeBytes, isBase64, parseListing } from "./listing.js";
import { fits } from "./signature.js";
import { ExtensionTransport } from "./transports.js";

export { ConnectionError, HostError, loadTexts, RequestError, SigningError, useTexts } from "./errors.js";
export { failureKindOf } from "./failure-kind.js";
export { decodeName, parseListing } from "./listing.js";
export { ExtensionTransport, WebsocketTransport } from "./transports.js";

/** @typedef {import("./errors.js").HostState} HostState */
/** @typedef {import("./listing.js").ListedCertificate} ListedCertificate */
/** @typedef {import("./transports.js").Transport} Transport */
/** @typedef {{signal?: AbortSignal}} Cancelling A call is given up when the signal says so. */

/** Codes of the commands, as the host numbers them. */
export const kCommand = {
  initialise: 0, close: 1, list: 2, setPin: 3, certificate: 4, sign: 5,
  typePinCharacter: 6, deletePinCharacter: 7, version: 8,
};
const kDigestLengths = [16, 20, 32];
const kCardPollMs = 2000;

/** @param {string} text */
const byteLength = (text) => new TextEncoder().encode(text).length;
/** @type {(kind: string, values?: Record<string, string | number>) => never} */
const refuse = (kind, values) => { throw new RequestError(kind, values); };

/**
 * A conversation with one signing host. Requests are sent one at a time, in the order of the
 * calls. After a ConnectionError call `restart()`: a new host knows neither page nor PIN.
 *
 * Every call takes `{ signal }`. When it is aborted the call is rejected with the signal's reason,
 * at once. What was not sent yet never is; what was sent goes on in the host, which has no way to be
 * stopped but `close()`, and its answer is dropped.
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
  #verifies;
  #isOpen = false;
  /** Why the connection is not open. */
  #lost = connectionError("closed");
  /** @type {Promise<unknown>} */ #queue = Promise.resolve();
  /** @type {{command: number, timer: any, resolve: (answer: any) => void, reject: (error: Error) => void} | null} */ #underWay = null;
  /** Why the host refuses this page: it says so once and then sends empty successes. */
  /** @type {HostError | null} */ #refusal = null;
  /** @type {{domains: string, signature: string, caSubjectNames?: string} | null} */ #credentials = null;
  /** Names of the certificates in the last listing, by identifier. @type {Map<string, string>} */ #listed = new Map();
  /** Base64 of what was fetched, by identifier. @type {Map<string, string>} */ #fetched = new Map();
  #retries = 0;
  #isPinKnown = false;

  /**
   * @param {Transport} [transport] The browser extension unless given.
   * @param {{timeoutMs?: number, verifies?: boolean}} [options] How long one answer may take, in
   *   milliseconds; generous, as some tokens ask the person to press a button. `verifies: false`
   *   leaves the check of what `sign()` returns to the caller.
   */
  constructor(transport = new ExtensionTransport(), { timeoutMs = 60_000, verifies = true } = {}) {
    this.#transport = transport;
    this.#timeoutMs = timeoutMs;
    this.#verifies = verifies;
    transport.onAnswer = (answer) => this.#settle(answer);
    transport.onRefusal = (error) => this.#finish("reject", error);
    transport.onClosed = (error) => this.#lose(error);
  }

  /**
   * Whether this host has signed with a PIN. While it has not, the next `sign()` fails with
   * "pin-missing" whatever was typed: the host takes a PIN only after it has asked for one.
   */
  get isPinKnown() {
    return this.#isPinKnown;
  }

  /** False before `open()`, and once the connection is lost or closed. */
  get isOpen() {
    return this.#isOpen;
  }

  /** Whether the page asks for the PIN; else the extension's own window does, within `sign()`. */
  get asksForPin() {
    return this.#transport.pinEntry !== "extension";
  }

  /** Connects and so starts a host. @param {Cancelling} [options] @returns {Promise<void>} */
  async open({ signal } = {}) {
    signal?.throwIfAborted();
    if (this.#isOpen) return;
    this.#refusal = null;
    this.#retries = 0;
    this.#isPinKnown = false;
    this.#listed.clear();
    this.#fetched.clear();
    const words = loadTexts();
    try {
      await orAborted(this.#transport.open().then(() => { this.#isOpen = true; }), signal);
    } catch (error) {
      if (signal?.aborted) this.#lose(connectionError("closed"));
      throw error;
    } finally {
      await words;
    }
  }

  /**
   * Tells the host who the page is. The host checks nothing yet; the first token command does.
   * @param {object} credentials
   * @param {string} credentials.domains Authorised domain suffixes, joined by "|", as signed.
   * @param {string} credentials.signature Base64 signature of the operator over `domains`.
   * @param {string} [credentials.caSubjectNames] Names of accepted authorities, joined by "|".
   * @param {Cancelling} [options]
   * @returns {Promise<void>}
   */
  async initialise({ domains, signature, caSubjectNames = "" }, options) {
    const currentDomain = this.#transport.currentDomain;
    await this.#request(kCommand.initialise, { signature, domains, currentDomain, caSubjectNames }, options);
    this.#credentials = { domains, signature, caSubjectNames };
    this.#refusal = null;
  }

  /**
   * A new host for the same page, which forgets every PIN: after a ConnectionError, and where the
   * right PIN is not tried again ("pin-not-tried").
   * @param {Cancelling} [options] @returns {Promise<void>}
   */
  async restart(options) {
    const credentials = this.#credentials;
    await this.close();
    await this.open(options);
    if (credentials) await this.initialise(credentials, options);
  }

  /**
   * Certificates that are fit for signing and valid now. An empty listing is asked for once more:
   * to some modules a card that is taken out or put in meanwhile looks like one without certificates.
   * @param {Cancelling} [options] @returns {Promise<ListedCertificate[]>}
   */
  async list(options) {
    let text = await this.#tokenResult(kCommand.list, {}, "certificates", options);
    if (text === "" && !this.#refusal) text = await this.#tokenResult(kCommand.list, {}, "certificates", options);
    if (text === "" && this.#refusal) throw this.#refusal;
    const listed = parseListing(text);
    const names = new Map(listed.map(({ id, issuer, subject }) => [id, `${issuer}|${subject}`]));
    for (const id of this.#fetched.keys()) {
      if (names.get(id) !== this.#listed.get(id)) this.#fetched.delete(id);
    }
    this.#listed = names;
    return listed;
  }

  /**
   * Lists again every two seconds, while the page is visible, until there is a card.
   * @param {Cancelling} [options] @returns {Promise<ListedCertificate[]>} As of `list()`: empty for a
   *   card without a fit certificate.
   */
  async waitForCard(options) {
    for (;;) {
      try {
        return await this.list(options);
      } catch (error) {
        if (!(error instanceof HostError) || error.kind !== "no-token") throw error;
      }
      await untilNextLook(options?.signal);
    }
  }

  /** @param {string} id From list(). @param {Cancelling} [options] @returns {Promise<string>} Base64 DER, without line breaks. */
  async certificate(id, options) {
    const text = await this.#namedResult(kCommand.certificate, { certId: checkedId(id) }, "certificate", options);
    this.#fetched.set(id, text);
    return text;
  }

  /**
   * RSA PKCS#1 v1.5 signature of a digest: 16 bytes are taken for MD5, 20 for SHA-1, 32 for SHA-256.
   * What the host returns is checked against the certificate of that identifier, as it was fetched
   * before: with a second card in another reader the host may have signed with that one's key.
   *
   * Where the extension's own window asks for the PIN, it also asks for consent; a person who says
   * no ends this with a SigningError "cancelled".
   * @param {string} id From list().
   * @param {string | ArrayBuffer | Uint8Array} digest Base64 text or the bytes.
   * @param {Cancelling & {name?: string}} [options] `name` is what the window calls the document.
   * @returns {Promise<string>} Base64, without line breaks.
   */
  async sign(id, digest, { name = "", ...options } = {}) {
    const document = { digest: checkedDigest(digest), ...this.#shown({ name }) };
    const certificate = await this.#certificateToFit(id, options);
    const signature = await this.#namedResult(kCommand.sign, { certId: id, ...document }, "pkcs1", options);
    this.#isPinKnown = true;
    this.#checkFit(id, certificate, [signature], [document]);
    return signature;
  }

  /**
   * Signs several documents, as `sign()` does: with one consent for all where the operator allows
   * that, else one after the other. The first failure ends it; its `signatures` are those made before.
   * @param {string} id From list().
   * @param {{digest: string | ArrayBuffer | Uint8Array, name?: string}[]} documents
   * @param {Cancelling} [options]
   * @returns {Promise<string[]>} Base64, without line breaks, in the order of the documents.
   */
  async signAll(id, documents, options) {
    const all = documents.map(({ digest, name = "" }) => ({ digest: checkedDigest(digest), ...this.#shown({ name }) }));
    const certificate = await this.#certificateToFit(id, options);
    const signatures = [];
    try {
      if (this.#transport.oneConsentForBatch) {
        const answer = await this.#tokenAnswer(kCommand.sign, { certId: id, documents: all }, options);
        signatures.push(...answer.signatures.map(bare));
        if (signatures.length < all.length) throw new HostError("not-found", { code: 0 });
      } else {
        for (const document of all) {
          signatures.push(await this.#namedResult(kCommand.sign, { certId: id, ...document }, "pkcs1", options));
        }
      }
    } catch (error) {
      if (error instanceof SigningError) {
        Object.assign(error, { signatures: signatures.length > 0 ? signatures : error.signatures?.map(bare) ?? [] });
      }
      throw error;
    }
    this.#isPinKnown = true;
    this.#checkFit(id, certificate, signatures, all);
    return signatures;
  }

  /** The host knows no names; only the extension's window does. @param {{name: string}} members */
  #shown(members) {
    return this.asksForPin ? {} : members;
  }

  /**
   * Before the signing: afterwards it would be the certificate of whatever card is there then.
   * @param {string} id @param {Cancelling} [options] @returns {Promise<string | null>} null when nothing is checked
   */
  async #certificateToFit(id, options) {
    checkedId(id);
    return this.#verifies ? this.#fetched.get(id) ?? await this.certificate(id, options) : null;
  }

  /** @param {string} id @param {string | null} certificate @param {string[]} signatures @param {{digest: string}[]} documents */
  #checkFit(id, certificate, signatures, documents) {
    if (certificate === null) return;
    const parsed = parseCertificate(bytesOfBase64(certificate));
    for (const [index, signature] of signatures.entries()) {
      if (fits(signature, documents[index].digest, parsed)) continue;
      this.#fetched.delete(id);
      throw new HostError("signature-misfit", { code: 0 });
    }
  }

  /**
   * Replaces the PIN being typed. It is used by the next token command after one that failed
   * with "pin-missing" or "wrong-pin".
   * @param {string} pin @param {Cancelling} [options] @returns {Promise<number>} Bytes of the PIN now held.
   */
  async setPin(pin, options) {
    return (await this.#request(kCommand.setPin, { pin }, options)).pinLength;
  }

  /** @param {string} character One ASCII character. @param {Cancelling} [options] @returns {Promise<number>} Bytes of the PIN now held. */
  async typePinCharacter(character, options) {
    if (typeof character !== "string" || byteLength(character) !== 1) refuse("pin-character");
    return (await this.#request(kCommand.typePinCharacter, { pinChar: character }, options)).pinLength;
  }

  /** @param {Cancelling} [options] @returns {Promise<number>} Bytes of the PIN now held. */
  async deletePinCharacter(options) {
    return (await this.#request(kCommand.deletePinCharacter, {}, options)).pinLength;
  }

  /** @param {Cancelling} [options] @returns {Promise<string>} Version of the protocol. */
  async version(options) {
    return (await this.#request(kCommand.version, {}, options)).version;
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
   * @param {Cancelling} [options] @returns {Promise<string>}
   */
  async #namedResult(command, members, resultName, options) {
    const text = await this.#tokenResult(command, members, resultName, options);
    if (text === "") throw this.#refusal ?? new HostError("not-found", { code: 0 });
    return bare(text);
  }

  /**
   * @param {number} command @param {Record<string, string>} members @param {string} resultName
   * @param {Cancelling} [options] @returns {Promise<string>}
   */
  async #tokenResult(command, members, resultName, options) {
    return (await this.#tokenAnswer(command, members, options))[resultName] ?? "";
  }

  /**
   * The answer to a token command that went well.
   * @param {number} command @param {Record<string, any>} members @param {Cancelling} [options] @returns {Promise<any>}
   */
  async #tokenAnswer(command, members, options) {
    const answer = await this.#request(command, members, options);
    if ("message" in answer) throw new HostError("not-initialised");
    if (answer.error) {
      const error = new HostError(failureKindOf(answer, this.#retries), stateOf(answer));
      this.#retries = Math.max(this.#retries, error.retries);
      if (error.code === 9 || error.code === 10) this.#refusal = error;
      if (answer.signatures) Object.assign(error, { signatures: answer.signatures });
      throw error;
    }
    return answer;
  }

  /**
   * Waits for its turn, sends, and resolves with the answer.
   * @param {number} command @param {Record<string, any>} [members] @param {Cancelling} [options]
   * @returns {Promise<any>}
   */
  async #request(command, members = {}, { signal } = {}) {
    const request = { command, ...members };
    // The host gets each document by itself, without its name.
    const { name, documents, ...forHost } = request;
    for (const { digest } of documents ?? [forHost]) this.#check(digest === undefined ? forHost : { ...forHost, digest });
    const turn = this.#queue.then(() => new Promise((resolve, reject) => {
      signal?.throwIfAborted();
      if (!this.#isOpen) return reject(this.#lost);
      // A person who reads what they sign takes their time.
      const isAsked = command === kCommand.sign && !this.asksForPin;
      const timer = isAsked ? undefined : setTimeout(() => this.#lose(connectionError("no-answer")), this.#timeoutMs);
      // One signal may outlive many calls, as while a card is waited for.
      const cancel = () => this.#transport.cancel?.();
      const ended = (/** @type {(value: any) => void} */ settle) => (/** @type {any} */ value) => {
        signal?.removeEventListener("abort", cancel);
        settle(value);
      };
      this.#underWay = { command, resolve: ended(resolve), reject: ended(reject), timer };
      signal?.addEventListener("abort", cancel);
      this.#transport.send(request);
    }));
    this.#queue = turn.catch(() => {});
    return orAborted(turn, signal);
  }

  /** @param {Record<string, any>} request */
  #check(request) {
    for (const [name, value] of Object.entries(request)) {
      // A missing member would end the host.
      if (name !== "command" && typeof value !== "string") refuse("not-text", { name });
    }
    const text = JSON.stringify(request);
    if (/(?<!\\)(?:\\\\)*\\ud[89a-f]/.test(text)) refuse("half-character");
    const bytes = byteLength(text);
    const limit = this.#transport.maxRequestBytes;
    if (bytes > limit) refuse(request.command === kCommand.initialise ? "list-too-long" : "too-long", { bytes, limit });
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
   * @param {import("./errors.js").ConnectionError} error
   */
  #lose(error) {
    this.#isOpen = false;
    this.#lost = connectionError(error.kind, String(error.cause ?? "")); // without what only the call under way is told
    this.#transport.close();
    this.#finish("reject", error);
  }
}

/**
 * @template T @param {Promise<T>} promise @param {AbortSignal} [signal]
 * @returns {Promise<T>} Rejected with the signal's reason when that comes first.
 */
async function orAborted(promise, signal) {
  if (!signal) return promise;
  signal.throwIfAborted();
  /** @type {() => void} */ let onAbort = () => {};
  const abort = new Promise((_, reject) => {
    onAbort = () => reject(signal.reason);
    signal.addEventListener("abort", onAbort);
  });
  try {
    return await Promise.race([promise, /** @type {Promise<never>} */ (abort)]);
  } finally {
    signal.removeEventListener("abort", onAbort);
  }
}

/** Two seconds, and as long as nobody sees the page. @param {AbortSignal} [signal] */
async function untilNextLook(signal) {
  await orAborted(new Promise((resolve) => setTimeout(resolve, kCardPollMs)), signal);
  while (globalThis.document?.visibilityState === "hidden") {
    await orAborted(new Promise((resolve) => document.addEventListener("visibilitychange", resolve, { once: true })), signal);
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

/** Base64 without line breaks. @param {string} text */
const bare = (text) => text.replace(/[\r\n]/g, "");

/** @param {string} id */
function checkedId(id) {
  // The host leaves the token library open after an identifier that it cannot decode.
  if (!isBase64(id)) refuse("cert-id");
  return id;
}

/** @param {string | ArrayBuffer | Uint8Array} digest */
function checkedDigest(digest) {
  const text = typeof digest === "string" ? digest : base64Of(digest);
  // The host looks at the digest only after it has used the PIN.
  if (!isBase64(text)) refuse("digest");
  const { length } = bytesOfBase64(text);
  if (!kDigestLengths.includes(length)) refuse("digest-length", { length });
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
