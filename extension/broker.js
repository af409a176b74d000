// Between a page and its host where the PIN is typed in the extension's own window. Lists, fetched
// certificates and the version pass as they are. A signing asks the person first: no signing
// request reaches the host before the consent, and the PIN never comes near the page.
import { bytesOfBase64, parseCertificate } from "./certificate.js";
import { failureKindOf } from "./failure-kind.js";
import { HostGone, HostLine } from "./host-line.js";
import { rememberAnswer, rememberFailure } from "./last-failure.js";
import { checkedRequest, kEndCommand, RefusedRequest } from "./protocol.js";
import { fits } from "./signature.js";
import { Cancelled, isSilenced, SigningWindow } from "./windows.js";

const kCredentials = 0;
const kSetPin = 3;
const kFetch = 4;
const kSign = 5;
const kPinCommands = [kSetPin, 6, 7];
/** Failures after which the window asks for another PIN. */
const kAskedAgain = ["pin-missing", "wrong-pin", "pin-not-tried"];
/** Time that the host has for what no person waits for: generous, as some cards are slow. */
const kPatienceMs = 60_000;
const kMaxNameLength = 1000;
const kMaxDocuments = 200;
const kAlgorithmOfLength = { 16: "MD5", 20: "SHA-1", 32: "SHA-256" };

/** A digest as people compare it. @throws {RefusedRequest} */
function shownDigest(base64) {
  let bytes = [];
  try { bytes = bytesOfBase64(base64); } catch { /* refused below */ }
  const algorithm = kAlgorithmOfLength[bytes.length];
  if (!algorithm) throw new RefusedRequest('"digest" must be base64 of 16, 20 or 32 bytes.');
  return { algorithm, digest: Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join("") };
}

/** @param {string} certificate Base64. @returns {import("./certificate.js").Certificate} @throws {RefusedRequest} */
function readCertificate(certificate) {
  try {
    return parseCertificate(bytesOfBase64(certificate));
  } catch {
    throw new RefusedRequest("the card's certificate cannot be read.");
  }
}

/**
 * What a page's signing request asks: the host's requests, and what the window shows of them.
 * Names are for the person; the host knows no such member.
 * @param {object} message {command, certId, digest, name?}, or with {documents: [{digest, name?}...]}.
 * @param {boolean} mayBatch
 * @returns {{requests: object[], documents: {name: string, algorithm: string, digest: string}[], isBatch: boolean}}
 * @throws {RefusedRequest}
 */
export function signingOf({ documents, name, digest, ...message }, origin, mayBatch) {
  const isBatch = documents !== undefined;
  if (isBatch && !mayBatch) throw new RefusedRequest("one consent for several documents is not allowed here.");
  const asked = isBatch ? documents : [{ name, digest }];
  if (!Array.isArray(asked) || asked.length < 1 || asked.length > kMaxDocuments) {
    throw new RefusedRequest(`"documents" must be 1 to ${kMaxDocuments} documents.`);
  }
  const requests = asked.map((one) => checkedRequest({ ...message, digest: one?.digest }, origin));
  const shown = asked.map(({ name = "", digest }) => {
    if (typeof name !== "string" || name.length > kMaxNameLength) {
      throw new RefusedRequest(`"name" must be a text of at most ${kMaxNameLength} characters.`);
    }
    return { name, ...shownDigest(digest) };
  });
  return { requests, documents: shown, isBatch };
}

/**
 * Serves a page until it or its host goes.
 * @param {object} page Port of the content script.
 * @param {string} origin
 * @param {object} options
 * @param {() => object | null} options.start Starts a host.
 * @param {(port: object) => HostGone} options.reasonOf
 * @param {(gone: HostGone, signatures: string[]) => void} options.onGone Ends the page's connection, and tells what a
 *   batch had signed.
 * @param {boolean} options.mayBatch
 */
export class Broker {
  #page;
  #origin;
  #mayBatch;
  #onGone;
  #line;
  #isUnderWay = false;
  /** The window of the signing under way, or one that tells how the last one ended. */
  /** @type {SigningWindow | null} */ #window = null;
  #isCancelled = false;
  /** What the signing under way has made: a batch that ends early hands it on. @type {string[]} */
  #signatures = [];
  /** The host holds a PIN that the card took. */
  #isPinKnown = false;
  /** An answer named the PIN's module: the host hands a PIN on from then. */
  #isModuleNamed = false;
  /** Refused PINs: as the host counts them, and those of hosts before it. */
  #refusedHere = 0;
  #refusedBefore = 0;

  constructor(page, origin, { start, reasonOf, onGone, mayBatch }) {
    this.#page = page;
    this.#origin = origin;
    this.#mayBatch = mayBatch;
    this.#onGone = onGone;
    this.#line = new HostLine(start, reasonOf, (gone) => {
      this.#window?.close();
      onGone(gone, this.#signatures);
    });
    page.onMessage.addListener((message) => this.#onMessage(message));
    page.onDisconnect.addListener(() => {
      this.#line.end();
      this.#window?.giveUp();
    });
  }

  /** False when there were too many hosts to start one. */
  get isOpen() {
    return this.#line.isOpen;
  }

  async #onMessage(message) {
    if (message?.type === "cancel") {
      this.#isCancelled = this.#isUnderWay;
      return this.#window?.giveUp();
    }
    if (this.#isUnderWay) return this.#tell({ type: "refused", reason: "the answer to the one before it has not come yet." });
    this.#isUnderWay = true;
    this.#isCancelled = false;
    const told = await this.#answerTo(message).catch((error) => {
      if (error instanceof HostGone) return null; // the page hears of it by the end of its connection
      const { message: reason, kind } = error instanceof RefusedRequest ? error : new RefusedRequest("it could not be sent.");
      return { type: "refused", reason, kind, signatures: this.#signatures };
    });
    this.#isUnderWay = false;
    this.#signatures = [];
    if (told?.type === "answer") rememberAnswer(this.#origin, told.answer);
    if (told) this.#tell(told);
  }

  #tell(message) {
    try {
      this.#page.postMessage(message);
    } catch {
      // The page has gone meanwhile.
    }
  }

  async #answerTo(message) {
    if (kPinCommands.includes(message?.command)) throw new RefusedRequest("the PIN is typed in the extension's own window.");
    if (message?.command === kSign) return this.#sign(signingOf(message, this.#origin, this.#mayBatch));
    const request = checkedRequest(message, this.#origin);
    if (request.command === kEndCommand) {
      this.#line.end();
      this.#onGone(new HostGone("closed", ""));
      throw new HostGone("closed", "");
    }
    return { type: "answer", answer: await this.#line.ask(request) };
  }

  /** @param {ReturnType<typeof signingOf>} signing */
  async #sign({ requests, documents, isBatch }) {
    const tab = this.#page.sender.tab.id;
    this.#window?.close();
    if (isSilenced(tab)) throw new RefusedRequest("three signings in a row were cancelled; it is asked again after a minute.", "asked-too-often");
    // Also where a page that may not use the card ends, before anybody is bothered.
    const fetched = await this.#inTime(this.#line.ask({ command: kFetch, certId: requests[0].certId }));
    if (this.#isCancelled) return { type: "cancelled" };
    if ("message" in fetched) return { type: "answer", answer: fetched };
    const { certificate, ...state } = fetched;
    if (state.error || !certificate) return { type: "answer", answer: { ...state, command: kSign, pkcs1: "" } };

    const shown = readCertificate(certificate);
    const { subject, issuer } = shown;
    const window = new SigningWindow(tab, { origin: this.#origin, subject, issuer, documents, needsPin: !this.#isPinKnown });
    this.#window = window;
    const signatures = this.#signatures;
    try {
      const answer = await this.#signWith(window, requests, shown);
      if (answer.error && failureKindOf(answer) === "pin-locked") window.leave("pin-locked", signatures.length);
      else window.finish();
      if (answer.missingPin || answer.invalidPin) this.#forget();
      return { type: "answer", answer: isBatch ? { ...answer, signatures } : answer };
    } catch (error) {
      if (error instanceof RefusedRequest) window.finish();
      if (!(error instanceof Cancelled)) throw error;
      if (this.#isModuleNamed && !this.#isPinKnown) this.#forget();
      return { type: "cancelled", ...(isBatch && { signatures }) };
    }
  }

  /** @template T @param {Promise<T>} answer @returns {Promise<T>} */
  async #inTime(answer) {
    let timer;
    const late = new Promise((_, reject) => {
      timer = setTimeout(() => {
        const gone = new HostGone("no-answer", "");
        this.#line.end();
        this.#onGone(gone, []);
        reject(gone);
      }, kPatienceMs);
    });
    return Promise.race([answer, late]).finally(() => clearTimeout(timer));
  }

  /**
   * Signs one after the other, asking again for a PIN that the card refused.
   * @param {import("./certificate.js").Certificate} shown
   * @returns {Promise<object>} The last answer.
   * @throws {RefusedRequest} for a signature of another key: a second card, in another reader, may have made it.
   */
  async #signWith(window, requests, shown) {
    const signatures = this.#signatures;
    for (;;) {
      const pin = await window.consent();
      let answer;
      do {
        window.tell({ type: "working", number: signatures.length + 1 });
        // A host whose signing was given up may still be signing: nothing else can be asked of it.
        answer = await Promise.race([window.cancelled, this.#tryPin(requests[signatures.length], pin)])
          .catch((error) => { if (error instanceof Cancelled) this.#forget(); throw error; });
        if (answer.error || !answer.pkcs1) break;
        if (!fits(answer.pkcs1, requests[signatures.length].digest, shown)) {
          rememberFailure(this.#origin, "signature-misfit");
          throw new RefusedRequest("the signature does not fit the certificate that was shown.", "signature-misfit");
        }
        signatures.push(answer.pkcs1);
      } while (signatures.length < requests.length);
      const kind = answer.error ? failureKindOf(answer, this.#refusedHere) : "";
      if (!kAskedAgain.includes(kind)) return answer;
      this.#refusedHere = answer.pinRetryCount;
      window.tell({ type: "again", kind, count: this.#refusedBefore + this.#refusedHere });
    }
  }

  /** The host asks for a PIN by failing; it hands one on only after that. */
  async #tryPin(request, pin) {
    const giveAndSign = async () => {
      await this.#line.ask({ command: kSetPin, pin });
      return this.#line.ask(request);
    };
    const wantsPin = pin !== "" && !this.#isPinKnown;
    let answer = await (wantsPin && this.#isModuleNamed ? giveAndSign() : this.#line.ask(request));
    if (answer.missingPin && wantsPin) answer = await giveAndSign();
    this.#isModuleNamed = answer.missingPin || answer.invalidPin;
    this.#isPinKnown = !this.#isModuleNamed;
    return answer;
  }

  /** A host that misses a PIN or holds a wrong one lists nothing, and the page has no PIN to give. */
  #forget() {
    this.#isPinKnown = this.#isModuleNamed = false;
    this.#refusedBefore += this.#refusedHere;
    this.#refusedHere = 0;
    this.#line.renew();
  }
}
