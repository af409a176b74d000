// A certificate as a card that a person can choose.
import { make, texts } from "./page.js";

const kDay = 24 * 60 * 60 * 1000;

const dateWords = (date) => date.toLocaleDateString(texts.language, { year: "numeric", month: "long", day: "numeric" });
const detailWords = (name) => [name.O, name.OU, name.serialNumber, name.C].filter(Boolean).join(", ");
export const nameWords = (name) => name.CN ?? name.O ?? texts.of("demo.who.nameless");

function timeLeft(notAfter) {
  const days = Math.max(0, Math.ceil((notAfter - Date.now()) / kDay));
  return days > 730 ? texts.of("demo.who.years", { count: Math.floor(days / 365.25) }) : texts.of("demo.who.days", { count: days });
}

/** @param {string} id @param {import("/client/certificate.js").Certificate} certificate @param {boolean} isChecked */
export function certificateCard(id, { notBefore, notAfter, subject, issuer }, isChecked) {
  const label = make("label", "certificate");
  const input = make("input");
  Object.assign(input, { type: "radio", name: "certificate", value: id, checked: isChecked });
  const body = make("span");
  const share = (100 * (notAfter - Date.now())) / (notAfter - notBefore);
  const bar = make("span", notAfter - Date.now() < 30 * kDay ? "bar soon" : "bar");
  const rest = make("i");
  rest.style.width = `${Math.max(2, Math.min(100, share))}%`;
  bar.append(rest);
  bar.setAttribute("aria-hidden", "true");
  const validity = texts.of("demo.who.validity", { from: dateWords(notBefore), to: dateWords(notAfter) });
  body.append(
    make("strong", "", nameWords(subject)), make("em", "", detailWords(subject)),
    make("em", "", texts.of("demo.who.issuer", { name: nameWords(issuer) })),
    make("small", "", `${validity} (${timeLeft(notAfter)})`), bar);
  label.append(input, body);
  return label;
}
