// How text that somebody else chose is shown: in its place, with nothing hidden in it.

/** Characters that have no picture of their own, fillers that count as letters too, or turn their neighbours around. */
const kUnseen = /([\p{Cc}\p{Cf}\p{Cs}\p{Co}\p{Cn}\p{Zl}\p{Zp}\u034f\u115f\u1160\u2800\u3164\uffa0])/u;
const kMostWhole = 90;
const kStart = 56;
const kEnd = 24;

/**
 * The text with every unseen character written out, such as U+202E.
 * @param {string} text @returns {Node[]}
 */
export function inert(text) {
  return text.split(kUnseen).filter(Boolean).map((part) => {
    const node = document.createElement(kUnseen.test(part) ? "mark" : "bdi");
    node.textContent = node.localName === "bdi" ? part : `U+${part.codePointAt(0).toString(16).toUpperCase().padStart(4, "0")}`;
    return node;
  });
}

/**
 * Fills an element with a name: beginning and end of a long one, and a button for the whole of it.
 * @param {HTMLElement} element @param {string} name
 * @param {{more: string, less: string}} words
 */
export function showName(element, name, { more, less }) {
  const characters = [...name];
  element.replaceChildren(...inert(name));
  if (characters.length <= kMostWhole) return;
  const button = document.createElement("button");
  button.type = "button";
  button.className = "link";
  let isWhole = true;
  const turn = () => {
    isWhole = !isWhole;
    const cut = [...inert(characters.slice(0, kStart).join("")), " … ", ...inert(characters.slice(-kEnd).join(""))];
    element.replaceChildren(...(isWhole ? inert(name) : cut), " ", button);
    button.textContent = isWhole ? less : more;
    button.setAttribute("aria-expanded", String(isWhole));
  };
  button.addEventListener("click", () => { turn(); button.focus(); });
  turn();
}

/** One label of a host name out of its network form (RFC 3492). @throws {RangeError} for what is none */
function decodeLabel(label) {
  const [base, tMin, tMax, skew, damp, initialBias, initialN] = [36, 1, 26, 38, 700, 72, 128];
  const cut = label.lastIndexOf("-");
  const output = [...label.slice(0, Math.max(0, cut))].map((c) => c.codePointAt(0));
  let [n, i, bias] = [initialN, 0, initialBias];
  for (let at = cut + 1; at < label.length;) {
    const before = i;
    for (let weight = 1, k = base; ; k += base) {
      const digit = "abcdefghijklmnopqrstuvwxyz0123456789".indexOf(label[at++] ?? "?");
      if (digit < 0) throw new RangeError("not a label's network form");
      i += digit * weight;
      const t = Math.min(tMax, Math.max(tMin, k - bias));
      if (digit < t) break;
      weight *= base - t;
    }
    const length = output.length + 1;
    let delta = Math.floor((i - before) / (before === 0 ? damp : 2));
    delta += Math.floor(delta / length);
    let k = 0;
    for (; delta > ((base - tMin) * tMax) / 2; k += base) delta = Math.floor(delta / (base - tMin));
    bias = k + Math.floor(((base - tMin + 1) * delta) / (delta + skew));
    n += Math.floor(i / length);
    i %= length;
    output.splice(i++, 0, n);
  }
  return String.fromCodePoint(...output);
}

/**
 * An origin as people write it; the same text when nothing in it is in network form.
 * @param {string} origin Such as "https://xn--caf-dma.example".
 */
export function readableOrigin(origin) {
  const [scheme, host] = origin.split("://");
  const labels = host.split(".").map((label) => {
    try {
      return label.startsWith("xn--") ? decodeLabel(label.slice(4)) : label;
    } catch {
      return label;
    }
  });
  return `${scheme}://${labels.join(".")}`;
}
