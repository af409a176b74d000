// The window in which a person reads who asks for a signature of what, and types the PIN.
// What it is told comes from the extension's background over one port; closing the window cancels.
import { inert, readableOrigin, showName } from "../shown.js";
import { loadTexts } from "../texts.js";

const api = globalThis.browser ?? globalThis.chrome;
const $ = (id) => document.getElementById(id);

/** "Sign" listens only after the window has been seen for so long: nobody agrees to what was not there yet. */
const kArmingMs = 500;

const texts = await loadTexts();
const port = api.runtime.connect({ name: `window:${location.hash.slice(1)}` });
let needsPin = true;
let isWorking = false;
let count = 1;

// ------------------------------------------------------------------------------------ arming

let isArmed = false;
let armingTimer;

function setArmed(armed) {
  isArmed = armed;
  $("sign").setAttribute("aria-disabled", String(!armed || isWorking));
}

function arm() {
  clearTimeout(armingTimer);
  setArmed(false);
  if (document.hasFocus() && document.visibilityState === "visible") armingTimer = setTimeout(setArmed, kArmingMs, true);
}

for (const type of ["focus", "blur", "resize"]) window.addEventListener(type, arm);
document.addEventListener("visibilitychange", arm);
for (const type of ["keydown", "pointerdown"]) {
  // Whoever was typing elsewhere when the window came is not agreeing, nor giving a PIN: it waits for a pause.
  window.addEventListener(type, () => { if (!isArmed) arm(); }, true);
}

// ------------------------------------------------------------------------------------ the request

function documentItem({ name, algorithm, digest }) {
  const item = document.createElement("li");
  const title = document.createElement("p");
  title.className = "name";
  if (name.trim() === "") title.textContent = texts.of("window.nameless");
  else showName(title, name, { more: texts.of("window.full-name"), less: texts.of("window.less-name") });
  const told = document.createElement("p");
  told.className = "small";
  const bytes = document.createElement("code");
  bytes.textContent = digest;
  told.append(texts.of("window.digest", { algorithm }), " ", bytes);
  item.append(title, told);
  return item;
}

function show({ origin, subject, issuer, documents, needsPin: asksPin }) {
  const readable = readableOrigin(origin);
  $("origin").replaceChildren(...inert(readable));
  $("punycode").hidden = readable === origin;
  $("punycode").textContent = texts.of("window.punycode", { origin });
  const titleOf = (name) => name.CN ?? name.O ?? Object.values(name).join(", ");
  $("holder").replaceChildren(...inert(titleOf(subject)));
  $("holder-more").replaceChildren(...inert([subject.serialNumber, subject.O].filter(Boolean).join(", ")));
  $("issuer").replaceChildren(...inert([titleOf(issuer), issuer.C].filter(Boolean).join(", ")));

  count = documents.length;
  $("what").textContent = count === 1 ? texts.of("window.document") : texts.of("window.documents", { count });
  $("whose").hidden = documents.every(({ name }) => name.trim() === "");
  $("documents").replaceChildren(...documents.map(documentItem));
  $("documents").classList.toggle("single", count === 1);
  $("sign").textContent = count === 1 ? texts.of("window.sign") : texts.of("window.sign-all", { count });
  $("request").hidden = false;
  // What scrolls must be reached by the keyboard.
  if ($("documents").scrollHeight > $("documents").clientHeight) $("documents").tabIndex = 0;
  askPin(asksPin);
  arm();
}

function askPin(asks) {
  needsPin = asks;
  $("pin-part").hidden = !asks;
  $("known").hidden = asks;
  $("pin").value = "";
  $(asks ? "pin" : "sign").focus();
  document.activeElement.scrollIntoView({ block: "nearest" }); // what had the focus before does not move by itself
}

// ------------------------------------------------------------------------------------ the PIN

for (const key of "1234567890⌫") {
  const button = document.createElement("button");
  button.type = "button";
  button.tabIndex = -1; // the keyboard has digits of its own
  button.textContent = key;
  button.setAttribute("aria-label", key === "⌫" ? texts.of("window.delete") : texts.of("window.key", { digit: key }));
  button.addEventListener("click", (event) => {
    if (!event.isTrusted || isWorking) return;
    $("pin").value = key === "⌫" ? $("pin").value.slice(0, -1) : $("pin").value + key;
  });
  $("keys").append(button);
}

$("form").addEventListener("submit", (event) => event.preventDefault());
// Enter in the PIN's field is a click here too. A script's click is told apart, but not what it submits.
$("sign").addEventListener("click", (event) => {
  if (!event.isTrusted || !isArmed || isWorking) return;
  if (needsPin && $("pin").value === "") return $("pin").focus();
  setWorking(1);
  $("message").textContent = "";
  port.postMessage({ type: "consent", pin: needsPin ? $("pin").value : "" });
  $("pin").value = "";
});

// ------------------------------------------------------------------------------------ working

let workingTimer;

/** @param {number} number Which document is being signed, from 1; 0 for none. */
function setWorking(number) {
  clearInterval(workingTimer);
  isWorking = number > 0;
  setArmed(isArmed);
  $("pin").readOnly = isWorking;
  document.body.setAttribute("aria-busy", String(isWorking));
  $("working").textContent = "";
  if (!isWorking) return;
  const start = performance.now();
  const tell = () => {
    const seconds = Math.floor((performance.now() - start) / 1000);
    $("working").textContent = count === 1 ? texts.of("window.working", { seconds }) : texts.of("window.working-all", { seconds, number, count });
  };
  tell();
  workingTimer = setInterval(tell, 1000);
}

function askAgain({ kind, count: refused }) {
  setWorking(0);
  $("message").textContent = kind === "wrong-pin" ? texts.of("window.wrong-pin", { count: refused })
    : kind === "pin-not-tried" ? texts.of("window.same-pin") : texts.error(kind).summary;
  askPin(true);
  arm();
}

function end({ kind, signed }) {
  setWorking(0);
  const { summary, advice } = texts.error(kind);
  if (signed > 0) $("ended-title").textContent = texts.of("window.ended-part", { signed, total: count });
  $("ended-text").textContent = `${summary} ${advice}`;
  $("request").hidden = true;
  $("ended").hidden = false;
  $("close").focus();
}

// ------------------------------------------------------------------------------------ talking

$("cancel").addEventListener("click", () => window.close());
$("close").addEventListener("click", () => window.close());
window.addEventListener("keydown", (event) => { if (event.key === "Escape") window.close(); });

texts.fill(document);
document.title = texts.of("window.title");
port.onMessage.addListener((message) => {
  switch (message.type) {
    case "request": show(message); break;
    case "working": if (message.number > 1) setWorking(message.number); break;
    case "again": askAgain(message); break;
    case "ended": end(message); break;
    case "waiting": $("waiting").textContent = message.count > 0 ? texts.of("window.waiting", { count: message.count }) : ""; break;
  }
});
port.onDisconnect.addListener(() => window.close());
