// What can go wrong, as errors with a `kind` for code and words for people. The words come from the
// catalogue of the reader's language.
import { languageOf, Texts } from "../texts/texts.js";

/** @type {Texts | null} */
let texts = null;

/** Sets the words of all errors, in place of those that `loadTexts()` takes. @param {Texts} chosen */
export function useTexts(chosen) {
  texts = chosen;
}

/**
 * Loads the words for a language, once; the client does so when it is opened. Where they cannot be
 * had, the errors say their kind.
 * @param {string} [tag] Language tag; the page's, or else the browser's.
 * @returns {Promise<Texts | null>}
 */
export async function loadTexts(tag = globalThis.document?.documentElement.lang || globalThis.navigator?.language || "en") {
  const language = languageOf(tag);
  if (texts?.language === language) return texts;
  try {
    const response = await fetch(new URL(`../texts/${language}.json`, import.meta.url));
    if (response.ok) texts = new Texts(language, await response.json());
  } catch { /* the kinds remain */ }
  return texts;
}

/**
 * Base of every error of this module.
 * `kind` is stable and meant for code; `summary` says what happened, `advice` what to do next, and
 * `message` both.
 */
export class SigningError extends Error {
  #values;

  /** @param {string} kind @param {Record<string, string | number>} [values] What its words name. */
  constructor(kind, values = {}) {
    super();
    this.name = new.target.name;
    this.kind = kind;
    this.#values = values;
  }

  get #words() {
    return texts?.error(this.kind, this.#values) ?? { summary: this.kind, advice: "" };
  }

  get summary() {
    return this.#words.summary;
  }

  get advice() {
    return this.#words.advice;
  }

  get message() {
    return `${this.summary} ${this.advice}`.trim();
  }
}

/** The request was refused before it was sent; the connection is as it was. */
export class RequestError extends SigningError {}

/**
 * There is no conversation with the host any more, or there never was. Every kind but
 * `no-extension`, `insecure-page` and `host-not-found` can be mended by `restart()`.
 */
export class ConnectionError extends SigningError {}

/** @param {string} kind @param {string} [detail] The browser's own text, added for a log. */
export function connectionError(kind, detail) {
  const error = new ConnectionError(kind);
  if (detail) error.cause = detail;
  return error;
}

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

/** The host carried the request out and reports that it failed; the conversation goes on. */
export class HostError extends SigningError {
  /** @param {string} kind @param {Partial<HostState>} [state] */
  constructor(kind, state = {}) {
    super(kind);
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
