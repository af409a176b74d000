#!/usr/bin/env node
// Pictures of the extension's window and popup in every state, both languages and schemes, and in
// 320 px with forced colours: what to look at after a change. The pages are the packed extension's;
// what the background would tell them is made up here. Needs what tests/browser/run has installed.
//
//   demo/browser/window-screenshots.mjs FOLDER
import { mkdirSync, readFileSync } from "node:fs";
import http from "node:http";
import path from "node:path";
import { extensionOf, root, startChromium, temporaryFolder } from "../../tests/browser/support.mjs";

const [folder] = process.argv.slice(2);
if (!folder) throw new Error("usage: demo/browser/window-screenshots.mjs FOLDER");
mkdirSync(folder, { recursive: true });
const undo = [];
const t = { after: (one) => undo.push(one) };
const kTypes = { ".js": "text/javascript", ".html": "text/html", ".css": "text/css", ".json": "application/json" };

const digest = { algorithm: "SHA-256", digest: "97c31d83d200f8d4b62d7a6c1a4d3c8e28b35f1ad58a35a3a13a52f3bb3a3e9d" };
const one = {
  type: "request", origin: "https://sign.example.test", needsPin: true,
  subject: { CN: "María Núñez Solís (FIRMA)", serialNumber: "CPF-00-0000-0001", O: "PERSONA FÍSICA" },
  issuer: { CN: "AC de Prueba — Persona Física", C: "CR" }, documents: [{ name: "Contrato 2026.pdf", ...digest }],
};
const name = (i) => (i === 1 ? `safe \u202Efdp.exe${" and on and on".repeat(30)}` : `Factura ${i + 1}.pdf`);
const many = { ...one, origin: "https://xn--caf-dma.example", documents: Array.from({ length: 12 }, (_, i) => ({ name: name(i), ...digest })) };
const states = {
  pin: [one], wrong: [one, { type: "again", kind: "wrong-pin", count: 2 }, { type: "waiting", count: 2 }],
  same: [one, { type: "again", kind: "pin-not-tried", count: 2 }], known: [{ ...one, needsPin: false }], batch: [many],
  working: [{ ...many, needsPin: false }, { type: "working", number: 5 }], locked: [one, { type: "ended", kind: "pin-locked" }],
  part: [many, { type: "ended", kind: "pin-locked", signed: 5 }],
};

/** What the pages ask of the browser. */
function pretend({ language, messages, isWell }) {
  const silent = { addListener() {} };
  const later = (message) => ({ addListener: (told) => { if (message) setTimeout(told, 10, ...message); } });
  globalThis.chrome = {
    i18n: { getUILanguage: () => language },
    tabs: { query: async () => [{ id: 1, url: "https://news.example.test/" }], sendMessage: async () => (isWell ? "http://localhost/" : undefined) },
    storage: { session: { get: async () => (isWell ? {} : { lastFailure: { origin: "https://sign.example.test", kind: "host-not-found", detail: {}, time: 1.79e12 } }) } },
    runtime: {
      getURL: (file) => `/${file}`, getManifest: () => ({ version: "1.1.0" }), lastError: isWell ? undefined : { message: "host not found" },
      connect: () => ({ postMessage() {}, onDisconnect: silent, onMessage: { addListener: (told) => setTimeout(() => messages.forEach(told)) } }),
      connectNative: () => ({ postMessage() {}, disconnect() {}, onMessage: later(isWell && [{ version: "1.1" }]), onDisconnect: later(!isWell && []) }),
    },
  };
}

try {
  const home = temporaryFolder();
  const packed = path.join(extensionOf(home, {}), "chromium");
  const server = http.createServer((request, response) => {
    const file = new URL(request.url, "http://localhost").pathname;
    response.setHeader("Content-Type", kTypes[path.extname(file)] ?? "text/plain");
    try { response.end(readFileSync(path.join(packed, file))); } catch { response.writeHead(404).end(); }
  });
  await new Promise((resolve) => server.listen(0, "127.0.0.1", resolve));
  undo.push(() => { server.closeAllConnections(); server.close(); });
  const browser = await startChromium(t, { home, env: { ...process.env, HOME: home } }, null);
  const take = async (file, name, size, told) => {
    for (const look of [{ colorScheme: "light" }, { colorScheme: "dark" }, { forcedColors: "active", colorScheme: "light" }]) {
      const page = await browser.newPage();
      const isNarrow = Boolean(look.forcedColors);
      await page.emulateMedia(look);
      await page.setViewportSize(isNarrow ? { ...size, width: 320 } : size);
      await page.addInitScript(pretend, told);
      await page.goto(`http://localhost:${server.address().port}/${file}`);
      await page.waitForTimeout(900); // until the button listens
      await page.screenshot({ path: path.join(folder, `${name}-${told.language}-${isNarrow ? "narrow" : look.colorScheme}.png`) });
      await page.close();
    }
  };
  for (const language of ["en", "es"]) {
    for (const [state, messages] of Object.entries(states)) await take("window/window.html", `window-${state}`, { width: 440, height: 750 }, { language, messages });
    for (const isWell of [true, false]) await take("popup/popup.html", isWell ? "popup" : "popup-problem", { width: 352, height: isWell ? 350 : 520 }, { language, isWell });
  }
} finally {
  for (const one of undo) await one();
}
