// Whether an RSA signature over a digest fits a certificate (RFC 8017, sections 8.2.2 and 9.2).
// WebCrypto verifies documents, not digests, and knows no MD5, so the public operation stands here;
// nothing in it is secret.
import { bytesOfBase64 } from "./certificate.js";

/** DER before the digest, by the digest's length: MD5, SHA-1, SHA-256. @type {Record<number, string>} */
const kDigestInfo = {
  16: "3020300c06082a864886f70d020505000410",
  20: "3021300906052b0e03021a05000414",
  32: "3031300d060960864801650304020105000420",
};

/** @param {Uint8Array} bytes */
const hexOf = (bytes) => Array.from(bytes, (byte) => byte.toString(16).padStart(2, "0")).join("");

/** @param {bigint} base @param {bigint} exponent @param {bigint} modulus */
function power(base, exponent, modulus) {
  let result = 1n;
  for (let square = base; exponent > 0n; exponent >>= 1n, square = (square * square) % modulus) {
    if (exponent & 1n) result = (result * square) % modulus;
  }
  return result;
}

/**
 * @param {string} signature Base64.
 * @param {string} digest Base64 of 16, 20 or 32 bytes.
 * @param {import("./certificate.js").Certificate} certificate
 * @returns {boolean} false also for a key that is not RSA.
 */
export function fits(signature, digest, { rsaKey }) {
  const digestBytes = bytesOfBase64(digest);
  const info = kDigestInfo[digestBytes.length] + hexOf(digestBytes);
  const signed = bytesOfBase64(signature);
  if (signed.length !== rsaKey?.[0].length) return false;
  const [n, e, s] = [...rsaKey, signed].map((bytes) => BigInt(`0x${hexOf(bytes)}`));
  const expected = `0001${`00${info}`.padStart(signed.length * 2 - 4, "f")}`;
  return s < n && power(s, e, n) === BigInt(`0x${expected}`);
}
