// What the extension knows of its own state, for the person and for whoever helps.
import { lastFailure } from "../last-failure.js";
import { operator } from "../operator.js";
import { pageState } from "../page-state.js";
import { endReason } from "../protocol.js";
import { loadTexts } from "../texts.js";

const api = globalThis.browser ?? globalThis.chrome;
const $ = (id) => document.getElementById(id);
const kVersion = 8;
/** A host that does not answer for so long is not working. */
const kPatienceMs = 5000;

const texts = await loadTexts();
const { version } = api.runtime.getManifest();
const report = { extension: `${operator.hostName} ${version}`, browser: navigator.userAgent };

function say(id, words, isGood) {
  $(id).textContent = words;
  if (isGood !== undefined) $(id).dataset.good = String(isGood);
}

async function showPage() {
  const [tab] = await api.tabs.query({ active: true, currentWindow: true });
  const told = await api.tabs.sendMessage(tab.id, { type: "address" }).catch(() => undefined);
  const address = told ?? tab.url;
  const state = pageState(address, operator.sites, told !== undefined);
  const origin = state === "no-web" ? "" : new URL(address).origin;
  Object.assign(report, { page: state, origin });
  say("page", texts.of(`popup.page-${state}`, { origin }), state === "served");
}

/** Starts a host and asks for its version. @returns {Promise<string>} @throws {Error} whose message is a kind */
function askHost() {
  return new Promise((resolve, reject) => {
    const port = api.runtime.connectNative(operator.hostName);
    port.onMessage.addListener((answer) => { resolve(answer.version); port.disconnect(); });
    port.onDisconnect.addListener(() => {
      const told = api.runtime.lastError?.message ?? port.error?.message ?? "";
      report.hostDetail = told;
      reject(new Error(endReason(told)));
    });
    port.postMessage({ command: kVersion });
    setTimeout(() => { reject(new Error("host-ended")); port.disconnect(); }, kPatienceMs);
  });
}

async function showHost() {
  try {
    report.host = await askHost();
    say("host", texts.of("popup.host-found", { version: report.host }), true);
  } catch ({ message: kind }) {
    report.host = kind;
    say("host", Object.values(texts.error(kind)).join(" "), false);
    $("install").href = operator.installPage;
    $("install").hidden = false;
  }
}

async function showFailure() {
  const failure = await lastFailure();
  if (!failure) return;
  report.lastFailure = { ...failure, time: new Date(failure.time).toISOString() };
  const { summary, advice } = texts.error(failure.kind, failure.detail);
  say("failure", `${summary} ${advice}`);
  const time = new Intl.DateTimeFormat(texts.language, { dateStyle: "medium", timeStyle: "short" }).format(failure.time);
  say("failure-when", texts.of("popup.error-when", { origin: failure.origin, time }));
}

$("copy").addEventListener("click", async () => {
  try {
    await navigator.clipboard.writeText(JSON.stringify(report, null, 2));
    say("copied", texts.of("popup.copied"));
  } catch {
    say("copied", texts.of("popup.copy-failed"));
  }
});

texts.fill(document);
document.title = texts.of("popup.title");
$("support").href = operator.supportAddress;
say("extension", texts.of("popup.version", { version }), true);
showPage();
showHost();
showFailure();
