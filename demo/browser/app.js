// The page's flow: connect, show the certificates, sign what was chosen, verify it.
import { ConnectionError, HostError, SigningClient, SigningError, WebsocketTransport } from "/client/signing-client.js";
import { bytesOfBase64, parseCertificate } from "/client/certificate.js";
import { PinPad } from "./pin-pad.js";

const $ = (id) => document.getElementById(id);
const kDay = 24 * 60 * 60 * 1000;
const kAlgorithm = { name: "RSASSA-PKCS1-v1_5", hash: "SHA-256" };

// "?relay=ws://localhost:8765/" goes through a websocket relay instead of the extension.
const relay = new URLSearchParams(location.search).get("relay");
const client = new SigningClient(relay ? new WebsocketTransport(relay) : undefined);
const pinPad = new PinPad(client);

/** @type {Map<string, import("./der.js").Certificate>} certificates by identifier */
const certificates = new Map();
/** @type {File | null} */
let file = null;
/** What was signed last, for the check after a change. */
let signed = null;

/** A person closed the PIN pad; nothing is wrong. */
class GivenUp extends Error {}

// ------------------------------------------------------------------------------------ talking

async function connect() {
  await client.open();
  const response = await fetch("/domain-list.json");
  if (!response.ok) throw new Error("The server of this page has no signed domain list.");
  await client.initialise(await response.json());
}

/**
 * Runs a token command, asking for the PIN as often as the host wants one, and once over a new
 * connection when the old one has gone.
 * @template T @param {() => Promise<T>} command @returns {Promise<T>}
 */
async function withToken(command) {
  for (let hasReconnected = false; ;) {
    try {
      return await command();
    } catch (error) {
      const wantsPin = error instanceof HostError && (error.kind === "pin-missing" || error.kind === "wrong-pin");
      if (wantsPin) {
        if (!await pinPad.ask(error)) throw new GivenUp();
        say("Working with the card…");
      } else if (error instanceof ConnectionError && error.kind === "closed" && !hasReconnected) {
        hasReconnected = true;
        await connect();
      } else {
        throw error;
      }
    }
  }
}

/** Runs one thing at a time and puts what goes wrong into words. */
async function attempt(task, again) {
  document.body.setAttribute("aria-busy", "true");
  for (const button of [$("sign"), $("refresh"), $("retry")]) button.disabled = true;
  $("problem").hidden = true;
  try {
    await task();
  } catch (error) {
    if (error instanceof GivenUp) say("Nothing was signed: the PIN was not given.");
    else showProblem(error, again);
  } finally {
    document.body.removeAttribute("aria-busy");
    for (const button of [$("sign"), $("refresh"), $("retry")]) button.disabled = false;
    updateSignButton();
  }
}

// ------------------------------------------------------------------------------------ problems

const kTitles = {
  "no-extension": "The browser extension is missing", "host-not-found": "The signing host is missing",
  "host-forbidden": "The signing host does not know this extension", "no-token": "No card found",
  "domain-not-authorised": "This site may not use your card", "domain-list-rejected": "The site's permission is not valid",
  "pin-locked": "Your card is locked", "pin-expired": "Your PIN has expired", "relay-unreachable": "The relay does not answer",
  "not-found": "The card was changed", "no-certificate": "No valid certificate on this card",
};

function showProblem(error, again) {
  const known = error instanceof SigningError;
  $("problem-title").textContent = (known && kTitles[error.kind]) || "That did not work";
  $("problem-advice").textContent = known ? `${error.summary} ${error.advice}` : error.message;
  const detail = error instanceof HostError && error.code > 0
    ? `For support: code ${error.code}, ${error.lowLevelCode}, ${error.hostMessage || "no text"}` : String(error.cause ?? "");
  $("problem-detail").textContent = detail;
  $("problem").hidden = false;
  $("problem").focus();
  $("retry").onclick = again;
  say("Something needs your attention.");
}

function say(text) {
  $("status").textContent = text;
}

// ------------------------------------------------------------------------------------ certificates

async function readCard() {
  say("Looking for your card…");
  await connect();
  const listed = await withToken(() => client.list());
  certificates.clear();
  for (const { id } of listed) {
    if (certificates.has(id)) continue; // the host could not tell two of one identifier apart
    certificates.set(id, parseCertificate(bytesOfBase64(await withToken(() => client.certificate(id)))));
  }
  $("sign-form").hidden = certificates.size === 0;
  if (certificates.size === 0) {
    throw new SigningError("no-certificate");
  }
  $("certificates").replaceChildren(...[...certificates].map(([id, certificate], i) => card(id, certificate, i === 0)));
  const count = certificates.size;
  say(`Ready. ${count} ${count === 1 ? "certificate" : "certificates"} on your card.`);
}

const dateWords = (date) => date.toLocaleDateString("en", { year: "numeric", month: "long", day: "numeric" });
const nameWords = (name) => name.CN ?? name.O ?? "No name";
const detailWords = (name) => [name.O, name.OU, name.serialNumber, name.C].filter(Boolean).join(", ");

function card(id, certificate, isChecked) {
  const { notBefore, notAfter, subject, issuer } = certificate;
  const label = make("label", "certificate");
  const input = make("input");
  Object.assign(input, { type: "radio", name: "certificate", value: id, checked: isChecked });
  const body = make("span");
  const days = Math.max(0, Math.ceil((notAfter - Date.now()) / kDay));
  const left = days > 730 ? `${Math.floor(days / 365.25)} years` : days === 1 ? "1 day" : `${days} days`;
  const bar = make("span", days < 30 ? "bar soon" : "bar");
  const rest = make("i");
  rest.style.width = `${Math.max(2, Math.min(100, (100 * (notAfter - Date.now())) / (notAfter - notBefore)))}%`;
  bar.append(rest);
  bar.setAttribute("aria-hidden", "true");
  body.append(
    make("strong", "", nameWords(subject)), make("em", "", detailWords(subject)),
    make("em", "", `Issued by ${nameWords(issuer)}`),
    make("small", "", `Valid ${dateWords(notBefore)} to ${dateWords(notAfter)} (${left} left)`), bar);
  label.append(input, body);
  return label;
}

function make(tag, className = "", text = "") {
  const node = document.createElement(tag);
  if (className) node.className = className;
  node.textContent = text;
  return node;
}

// ------------------------------------------------------------------------------------ the document

const chosenKind = () => document.querySelector('input[name="kind"]:checked').value;

async function documentBytes() {
  if (chosenKind() === "text") return new TextEncoder().encode($("text").value);
  return new Uint8Array(await file.arrayBuffer());
}

function updateSignButton() {
  $("sign").disabled = document.body.hasAttribute("aria-busy")
    || (chosenKind() === "text" ? $("text").value === "" : file === null);
}

function chooseFile(chosen) {
  if (!chosen) return;
  file = chosen;
  $("file-name").textContent = `${file.name}, ${file.size.toLocaleString("en")} bytes`;
  updateSignButton();
}

// ------------------------------------------------------------------------------------ signing

async function sign() {
  const data = await documentBytes();
  const id = document.querySelector('input[name="certificate"]:checked').value;
  const digest = new Uint8Array(await crypto.subtle.digest("SHA-256", data));
  say("Working with the card…");
  let start;
  const base64 = await withToken(() => {
    start = performance.now(); // without the time a person takes for the PIN
    return client.sign(id, digest);
  });
  const milliseconds = Math.round(performance.now() - start);
  signed = { data, digest, base64, milliseconds, certificate: certificates.get(id), name: chosenKind() === "text" ? "text.txt" : file.name };
  showSigned(await verify(signed.certificate, base64, data));
  say("Signed.");
  $("result").focus();
  $("result").scrollIntoView({ block: "nearest" });
}

async function verify(certificate, base64, data) {
  const key = await crypto.subtle.importKey("spki", certificate.publicKey, kAlgorithm, true, ["verify"]);
  return {
    isGood: await crypto.subtle.verify(kAlgorithm, key, bytesOfBase64(base64), data),
    bits: key.algorithm.modulusLength,
  };
}

function showVerdict(isGood, verdict, explanation) {
  $("result").className = isGood ? "good" : "bad";
  $("mark").textContent = isGood ? "✓" : "✗";
  $("verdict").textContent = verdict;
  $("explanation").textContent = explanation;
  $("result").hidden = false;
}

function showSigned({ isGood, bits }) {
  const { data, digest, base64, milliseconds, certificate, name } = signed;
  if (isGood) {
    showVerdict(true, "Signed, and the signature is good",
      "This page checked it with the public key of the certificate. Change the text above and watch it stop fitting.");
  } else {
    showVerdict(false, "The signature does not fit", "The key that signed is not the certificate's. Do not use this signature.");
  }
  const facts = {
    "Signed by": nameWords(certificate.subject), "Document": `${name}, ${data.length.toLocaleString("en")} bytes`,
    "SHA-256": Array.from(digest, (byte) => byte.toString(16).padStart(2, "0")).join(""),
    "Algorithm": `RSA ${bits} bits, PKCS #1 v1.5 with SHA-256`, "Time": `${milliseconds} ms`,
  };
  $("facts").replaceChildren(...Object.entries(facts).flatMap(([term, fact]) => [make("dt", "", term), make("dd", "", fact)]));
  $("signature").value = base64;
  offer("save-signature", bytesOfBase64(base64));
  offer("save-certificate", certificate.der);
  offer("save-document", data);
}

function offer(id, bytes) {
  URL.revokeObjectURL($(id).href);
  $(id).href = URL.createObjectURL(new Blob([bytes], { type: "application/octet-stream" }));
}

/** The document was changed after signing: says whether the signature still fits. */
async function checkAgain() {
  if (!signed || $("result").hidden || (chosenKind() === "file" && !file)) return;
  const result = await verify(signed.certificate, signed.base64, await documentBytes());
  if (result.isGood) showSigned(result);
  else showVerdict(false, "The document has changed since it was signed", "The signature does not fit it any more. Sign again to sign what stands there now.");
}

// ------------------------------------------------------------------------------------ events

const start = () => attempt(readCard, start);
const submit = () => attempt(sign, submit);

$("sign-form").addEventListener("submit", (event) => { event.preventDefault(); submit(); });
$("refresh").addEventListener("click", start);
$("text").addEventListener("input", () => { updateSignButton(); checkAgain(); });
$("file").addEventListener("change", () => { chooseFile($("file").files[0]); checkAgain(); });
for (const radio of document.querySelectorAll('input[name="kind"]')) {
  radio.addEventListener("change", () => {
    $("text-panel").hidden = chosenKind() !== "text";
    $("file-panel").hidden = chosenKind() !== "file";
    updateSignButton();
    checkAgain();
  });
}
for (const type of ["dragover", "dragleave", "drop"]) {
  $("drop").addEventListener(type, (event) => {
    event.preventDefault();
    $("drop").classList.toggle("over", type === "dragover");
    if (type === "drop") { chooseFile(event.dataTransfer.files[0]); checkAgain(); }
  });
}

start();
