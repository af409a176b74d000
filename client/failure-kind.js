// Which failure an answer of the host tells.

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
const kTooLongText = "listing too long";
/** CKR_GENERAL_ERROR here is the host's word for a module that is not there or does not load. */
const kNoModule = { text: "C_Initialize failed", returnValue: 5 };

/**
 * The kind of failure of an answer to a token command whose "error" is true.
 * @param {{lastError: number, lastLowLevelError: number, errorMessage: string, pinRetryCount?: number}} answer
 * @param {number} [refusedBefore] PINs that the token had refused before this answer. The host does
 *   not try a refused PIN twice, and the count then stays.
 * @returns {string}
 */
export function failureKindOf({ lastError, lastLowLevelError, errorMessage, pinRetryCount = 0 }, refusedBefore = 0) {
  // The low-level code is only that of a PKCS#11 call when a call's own step failed; the two
  // texts without one leave an earlier failure's code standing.
  if (errorMessage === kNoSlotText) return "no-token";
  if (lastError === 12 && errorMessage === kTooLongText) return "too-many-certificates";
  if (lastError === 12 && errorMessage === kNoModule.text && lastLowLevelError === kNoModule.returnValue) return "no-module";
  let kind = kKindOfCode[lastError] ?? "token-failure";
  if (lastError === 12 || lastError === 5) kind = kKindOfReturnValue[lastLowLevelError] ?? kind;
  return kind === "wrong-pin" && pinRetryCount > 0 && pinRetryCount === refusedBefore ? "pin-not-tried" : kind;
}
