// The few fields of an X.509 certificate (RFC 5280) that the page shows or verifies with.

/**
 * @typedef {object} Certificate
 * @property {Uint8Array} der
 * @property {Uint8Array[] | null} rsaKey Modulus and exponent, big-endian without a zero in front; null for another key.
 * @property {Date} notBefore
 * @property {Date} notAfter
 * @property {Record<string, string>} subject First value of each attribute: CN, O, OU, C …
 * @property {Record<string, string>} issuer
 */

const kAttribute = {
  "2.5.4.3": "CN", "2.5.4.4": "SN", "2.5.4.5": "serialNumber", "2.5.4.6": "C", "2.5.4.7": "L",
  "2.5.4.10": "O", "2.5.4.11": "OU", "2.5.4.42": "GN",
};

const kRsaKey = "1.2.840.113549.1.1.1";

/** @param {string} base64 @returns {Uint8Array} */
export function bytesOfBase64(base64) {
  return Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
}

/**
 * One element: its tag, its whole encoding and its content.
 * @param {Uint8Array} bytes @param {number} at
 */
function element(bytes, at) {
  const tag = bytes[at];
  let length = bytes[at + 1];
  let content = at + 2;
  if (length & 0x80) {
    const count = length & 0x7f;
    length = 0;
    for (let i = 0; i < count; ++i) length = length * 256 + bytes[content++];
  }
  const end = content + length;
  if (!(end <= bytes.length)) throw new RangeError("The certificate is cut short.");
  return { tag, whole: bytes.subarray(at, end), content: bytes.subarray(content, end) };
}

/** Elements inside a content. @param {Uint8Array} bytes */
function children(bytes) {
  const list = [];
  for (let at = 0; at < bytes.length; at += list.at(-1).whole.length) list.push(element(bytes, at));
  return list;
}

function oidText(bytes) {
  const arcs = [Math.min(2, Math.floor(bytes[0] / 40))];
  arcs.push(bytes[0] - arcs[0] * 40);
  let arc = 0;
  for (const byte of bytes.subarray(1)) {
    arc = arc * 128 + (byte & 0x7f);
    if (!(byte & 0x80)) { arcs.push(arc); arc = 0; }
  }
  return arcs.join(".");
}

function text({ tag, content }) {
  const encoding = { 0x0c: "utf-8", 0x1e: "utf-16be" }[tag] ?? "latin1";
  return new TextDecoder(encoding).decode(content);
}

/** UTCTime has two digits of the year, below 50 for the years from 2000. */
function time({ tag, content }) {
  const digits = new TextDecoder().decode(content);
  const full = tag === 0x17 ? (digits < "50" ? "20" : "19") + digits : digits;
  const [, year, month, day, hour, minute, second] = full.match(/^(\d{4})(\d\d)(\d\d)(\d\d)(\d\d)(\d\d)Z$/);
  return new Date(Date.UTC(year, month - 1, day, hour, minute, second));
}

function name(content) {
  const attributes = {};
  for (const set of children(content)) {
    for (const pair of children(set.content)) {
      const [type, value] = children(pair.content);
      const key = kAttribute[oidText(type.content)];
      if (key && !(key in attributes)) attributes[key] = text(value);
    }
  }
  return attributes;
}

/** Of a SubjectPublicKeyInfo; the numbers as RFC 8017, appendix A.1.1, has them. */
function rsaKey(content) {
  const [algorithm, bits] = children(content);
  if (oidText(children(algorithm.content)[0].content) !== kRsaKey) return null;
  // Before the bits stands how many of the last ones are unused: none.
  return children(element(bits.content, 1).content).map(({ content }) => content.subarray(content[0] === 0 ? 1 : 0));
}

/** @param {Uint8Array} der @returns {Certificate} @throws when it is not a certificate */
export function parseCertificate(der) {
  const [toBeSigned] = children(element(der, 0).content);
  const fields = children(toBeSigned.content);
  if (fields[0].tag === 0xa0) fields.shift(); // the version, absent in version 1
  const [, , issuer, validity, subject, publicKey] = fields;
  const [notBefore, notAfter] = children(validity.content).map(time);
  return { der, rsaKey: rsaKey(publicKey.content), notBefore, notAfter, subject: name(subject.content), issuer: name(issuer.content) };
}
