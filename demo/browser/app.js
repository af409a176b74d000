// The page's flow: connect, wait for the card, show the certificates, sign what was chosen.
import { bytesOfBase64, parseCertificate } from "/client/certificate.js";
import { HostError, SigningClient, SigningError, WebsocketTransport } from "/client/signing-client.js";
import { fits } from "/client/signature.js";
import { certificateCard, nameWords } from "./certificates.js";
import { chosenKind, chooseFile, chosenSize, isChosen, readDocument } from "./document.js";
import { $, make, numberWords, say, texts, working } from "./page.js";
import { kAnswer, PinPad } from "./pin-pad.js";

// "?relay=ws://localhost:8765/" goes through a websocket relay instead of the extension.
const relay = new URLSearchParams(location.search).get("relay");
const client = new SigningClient(relay ? new WebsocketTransport(relay) : undefined);
const pinPad = new PinPad(client);

/** @type {Map<string, import("/client/certificate.js").Certificate>} certificates by identifier */
const certificates = new Map();
/** What was signed last, for the check after a change. */
let signed = null;
/** Gives up what is under way. */
let running = new AbortController();

const kPinKinds = ["pin-missing", "wrong-pin", "pin-not-tried"];
const wantsPin = (error) => error instanceof HostError && kPinKinds.includes(error.kind);

// ------------------------------------------------------------------------------------ one thing at a time

/** Runs one thing and puts what goes wrong into words. @param {(signal: AbortSignal) => Promise<void>} task */
async function attempt(task, again) {
  running = new AbortController();
  const { signal } = running;
  const began = document.activeElement;
  document.body.setAttribute("aria-busy", "true");
  for (const button of [$("sign"), $("refresh"), $("retry")]) button.disabled = true;
  for (const part of ["problem", "result", "waiting"]) $(part).hidden = true;
  try {
    await task(signal);
  } catch (error) {
    if (!signal.aborted && error.kind !== "cancelled") showProblem(error, again);
    else if ($("sign-form").hidden) showProblem({ summary: texts.of("demo.status.cancelled"), advice: "" }, again);
    else say(texts.of("demo.status.cancelled"));
  } finally {
    document.body.removeAttribute("aria-busy");
    $("waiting").hidden = true;
    for (const button of [$("refresh"), $("retry")]) button.disabled = false;
    updateSignButton();
    // The button that began it could not keep the focus while it was disabled.
    if ($("problem").hidden && $("result").hidden) began?.focus();
  }
}

function showProblem(error, again) {
  const { summary = texts.of("demo.problem.unexpected"), advice = error.message } = error;
  $("problem-title").textContent = summary;
  $("problem-advice").textContent = advice;
  const detail = error instanceof HostError && error.code > 0
    ? [error.code, error.lowLevelCode, error.hostMessage].filter(Boolean).join(", ") : String(error.cause ?? "");
  $("problem-detail").textContent = detail && texts.of("demo.problem.support", { detail });
  // What this host remembers, such as a PIN that locked the card, must not come back.
  const isStuck = ["pin-locked", "pin-expired", "signature-misfit", "not-found"].includes(error.kind);
  $("retry").textContent = texts.of(isStuck ? "demo.problem.anew" : "demo.problem.again");
  $("retry").onclick = isStuck ? startAnew : again;
  $("problem").hidden = false;
  $("problem").focus();
  say(texts.of("demo.status.problem"));
}

/** A host that knows this page; a new one where the last has gone. @param {AbortSignal} signal */
async function connect(signal) {
  if (client.isOpen) return;
  const response = await fetch("/domain-list.json", { signal });
  if (!response.ok) throw new Error(texts.of("demo.problem.no-list"));
  const list = await response.json();
  await client.open({ signal });
  await client.initialise(list); // not given up half-way: a client that is open knows the page
}

// ------------------------------------------------------------------------------------ the card

/** The listing after a first one that failed: where there is no card, a picture of what to do. */
async function listOtherwise(error, signal) {
  // A host that waits for a PIN lists nothing; a new one does.
  if (wantsPin(error)) return working(texts.of("demo.status.reading"), () => client.restart({ signal }).then(() => client.list({ signal })));
  if (error.kind !== "no-token") throw error;
  $("sign-form").hidden = true;
  $("waiting").hidden = false;
  const listed = await working(texts.of("demo.status.waiting"), () => client.waitForCard({ signal }));
  $("waiting").hidden = true;
  return listed;
}

async function readCard(signal) {
  const reading = texts.of("demo.status.reading");
  const listed = await working(reading, () => connect(signal).then(() => client.list({ signal })))
    .catch((error) => listOtherwise(error, signal));
  certificates.clear();
  await working(reading, async () => {
    for (const { id } of listed) {
      if (certificates.has(id)) continue; // the host could not tell two of one identifier apart
      certificates.set(id, parseCertificate(bytesOfBase64(await client.certificate(id, { signal }))));
    }
  });
  const count = certificates.size;
  $("sign-form").hidden = count === 0;
  if (count === 0) throw new SigningError("no-certificate");
  $("certificates").replaceChildren(...[...certificates].map(([id, certificate], i) => certificateCard(id, certificate, i === 0)));
  say(texts.of("demo.status.ready", { count }));
}

// ------------------------------------------------------------------------------------ signing

/**
 * Signs, and asks for the PIN where the page does that. A host takes a PIN only after it has asked
 * for one, by failing: it asks while the person types, so that nobody waits for the card twice.
 */
async function signWithPin(id, { digest, name }, signal) {
  const what = texts.of(client.asksForPin ? "demo.status.signing" : "demo.status.consent");
  let start = performance.now();
  const sign = () => client.sign(id, digest, { name, signal });
  let underWay = sign();
  let mustAsk = client.asksForPin && !client.isPinKnown;
  for (let problem = null; ;) {
    if (mustAsk) {
      underWay.catch((error) => { if (!wantsPin(error)) pinPad.fail(error); });
      const answer = await pinPad.ask(problem);
      if (answer === kAnswer.cancelled) running.abort();
      signal.throwIfAborted();
      if (answer === kAnswer.anew) await client.restart({ signal });
      start = performance.now(); // without the time a person takes for the PIN
      underWay = sign();
    }
    try {
      const base64 = await working(what, () => underWay);
      // Where the extension's window asks, most of the time is the person's.
      return { base64, milliseconds: client.asksForPin ? Math.round(performance.now() - start) : null };
    } catch (error) {
      if (!wantsPin(error)) throw error;
      problem = error;
      mustAsk = true;
    }
  }
}

async function sign(signal) {
  const chosen = await working(texts.of("demo.status.preparing"), () => readDocument(say, signal));
  const id = document.querySelector('input[name="certificate"]:checked').value;
  await connect(signal);
  const made = await signWithPin(id, chosen, signal);
  signed = { ...chosen, ...made, certificate: certificates.get(id) };
  showSigned();
  say(texts.of("demo.status.signed"));
  $("result").focus();
  $("result").scrollIntoView({ block: "nearest" });
}

function showVerdict(isGood, verdict, explanation) {
  $("result").className = isGood ? "good" : "bad";
  $("mark").textContent = isGood ? "✓" : "✗";
  $("verdict").textContent = texts.of(verdict);
  $("explanation").textContent = texts.of(explanation);
  $("result").hidden = false;
}

function showSigned() {
  const { name, size, blob, digest, base64, milliseconds, certificate } = signed;
  // The client has verified it: a signature that does not fit never gets here.
  showVerdict(true, "demo.result.good", "demo.result.good-advice");
  const facts = {
    "demo.result.by": nameWords(certificate.subject),
    "demo.result.document": texts.of("demo.what.file", { name, bytes: numberWords(size) }),
    "demo.result.digest": Array.from(digest, (byte) => byte.toString(16).padStart(2, "0")).join(""),
    ...(milliseconds !== null && { "demo.result.time": texts.of("demo.result.milliseconds", { count: milliseconds }) }),
  };
  $("facts").replaceChildren(...Object.entries(facts).flatMap(([key, fact]) => [make("dt", "", texts.of(key)), make("dd", "", fact)]));
  $("signature").value = base64;
  offer("save-signature", new Blob([bytesOfBase64(base64)]));
  offer("save-certificate", new Blob([certificate.der]));
  offer("save-document", blob);
}

function offer(id, blob) {
  URL.revokeObjectURL($(id).href);
  $(id).href = URL.createObjectURL(blob.slice(0, blob.size, "application/octet-stream"));
}

/** The document may have been changed after signing: says whether the signature still fits. */
async function checkAgain() {
  updateSignButton();
  if (!signed || document.body.hasAttribute("aria-busy") || !$("problem").hidden) return;
  // Of the other kind of document nothing was signed, so there is nothing to say.
  $("result").hidden = chosenKind() !== signed.kind || !isChosen();
  if ($("result").hidden) return;
  const { base64, certificate, size } = signed;
  const digest = chosenSize() === size ? (await readDocument()).digest : null;
  if (digest && fits(base64, btoa(String.fromCharCode(...digest)), certificate)) showSigned();
  else showVerdict(false, "demo.result.changed", "demo.result.changed-advice");
}

// ------------------------------------------------------------------------------------ events

function updateSignButton() {
  $("sign").disabled = document.body.hasAttribute("aria-busy") || !isChosen();
}

const start = () => attempt(readCard, start);
const startAnew = () => attempt(async (signal) => {
  await client.close();
  await readCard(signal);
}, start);
const submit = () => attempt(sign, submit);

$("sign-form").addEventListener("submit", (event) => { event.preventDefault(); submit(); });
$("refresh").addEventListener("click", start);
$("cancel").addEventListener("click", () => running.abort());
$("text").addEventListener("input", checkAgain);
$("file").addEventListener("change", () => { chooseFile($("file").files[0]); checkAgain(); });
for (const radio of document.querySelectorAll('input[name="kind"]')) {
  radio.addEventListener("change", () => {
    $("text-panel").hidden = chosenKind() !== "text";
    $("file-panel").hidden = chosenKind() !== "file";
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
$("commands").textContent = `openssl x509 -inform der -in certificate.cer -pubkey -noout > key.pem
openssl dgst -sha256 -verify key.pem -signature document.sig document`;

start();
