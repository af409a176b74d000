// Names and listings: from the host's bytes to text that people read.

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
export function decodeBytes(text) {
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
export function isBase64(text) {
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
