// What the tests share: a home folder with the host registered, a token, pages, and browsers.
import { execFileSync, spawn } from "node:child_process";
import { cpSync, existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, symlinkSync, writeFileSync } from "node:fs";
import http from "node:http";
import { tmpdir } from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

export const root = path.resolve(fileURLToPath(import.meta.url), "../../..");
export const build = path.resolve(root, process.env.SIGNING_HOST_BUILD ?? "build/release");
export const hostProgram = path.join(build, "host/signing-host");
export const isRoot = process.getuid() === 0;
export const kPin = "123456";
export const kChromium = "/usr/bin/chromium";
const kFirefox = ["/usr/bin/firefox-esr", "/usr/bin/firefox"].find((file) => existsSync(file));

const cleanUps = new WeakMap();
/** Has something undone when the test ends, the last made first: browsers before their folders. */
function afterwards(t, undo) {
  if (!cleanUps.has(t)) {
    cleanUps.set(t, []);
    t.after(async () => { for (const one of cleanUps.get(t).reverse()) await one(); });
  }
  cleanUps.get(t).push(undo);
}

/** A folder that goes when the test ends. @param {import("node:test").TestContext} t */
export function temporaryFolder(t) {
  const folder = mkdtempSync(path.join(tmpdir(), "signing-host-"));
  afterwards(t, () => rmSync(folder, { recursive: true, force: true, maxRetries: 5, retryDelay: 200 }));
  return folder;
}

/**
 * A home folder of its own whose browsers find the host under a name that no other test's host has,
 * and a fresh token with one signing certificate.
 * @param {import("node:test").TestContext} t
 */
export function makeHome(t, { register = true, token = true } = {}) {
  const home = temporaryFolder(t);
  const env = { PATH: process.env.PATH, LANG: "C.UTF-8", HOME: home, XDG_RUNTIME_DIR: home };
  const host = path.join(home, "host");
  mkdirSync(host);
  symlinkSync(hostProgram, path.join(host, "signing-host"));
  if (token) {
    execFileSync(path.join(root, "demo/make-token"), [path.join(home, "token")], { stdio: "inherit" });
    const told = JSON.parse(readFileSync(path.join(home, "token/token.json")));
    Object.assign(env, { SOFTHSM2_CONF: told.softhsm2Conf, SIGNING_HOST_PKCS11_MODULE: told.module });
  } else {
    writeFileSync(path.join(home, "empty.conf"), `directories.tokendir = ${home}\n`);
    env.SOFTHSM2_CONF = path.join(home, "empty.conf");
  }
  if (register) registerHost(home, env, path.join(host, "signing-host"));
  return { home, env };
}

/** Registers a host as a person would; the script resolves links, so a copy keeps its own name. */
function registerHost(home, env, host) {
  execFileSync(path.join(root, "script/install-user"), [hostProgram], { env });
  for (const folder of [".config/chromium/NativeMessagingHosts", ".mozilla/native-messaging-hosts"]) {
    const manifest = path.join(home, folder, "org.signing_host.host.json");
    writeFileSync(manifest, readFileSync(manifest, "utf8").replace(hostProgram, host));
  }
}

/** Processes of the hosts of one home. */
export function hostsOf({ home }) {
  return readdirSync("/proc").filter((pid) => {
    if (!/^\d+$/.test(pid)) return false;
    try {
      return readFileSync(`/proc/${pid}/cmdline`, "utf8").startsWith(path.join(home, "host/signing-host"));
    } catch {
      return false; // gone meanwhile
    }
  });
}

/** Waits until the condition gives something true, and returns it. */
export async function until(what, condition, milliseconds = 15_000) {
  for (const end = Date.now() + milliseconds; Date.now() < end;) {
    const result = await condition();
    if (result) return result;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  throw new Error(`It did not happen in time: ${what}`);
}

/** The domain list, signed with the development key of the build. */
export function domainList(domains) {
  const key = process.env.SIGNING_HOST_DOMAINS_KEY ?? path.join(build, "development-key/domains-private.pem");
  const signature = execFileSync("openssl", ["dgst", "-sha1", "-sign", key], { input: domains }).toString("base64");
  return { domains, signature };
}

/** The extension with other pages to serve than the committed ones. */
export function extensionFor(folder, ...matches) {
  const copy = path.join(folder, "extension");
  cpSync(path.join(root, "extension"), copy, { recursive: true });
  const file = path.join(copy, "manifest.json");
  const manifest = JSON.parse(readFileSync(file));
  manifest.content_scripts[0].matches = matches;
  writeFileSync(file, JSON.stringify(manifest));
  return copy;
}

/** Serves an empty page and the client on every localhost name; gives the address of a page. */
export async function servePages(t) {
  const server = http.createServer((request, response) => {
    const isScript = request.url === "/client/signing-client.js";
    response.setHeader("Content-Type", isScript ? "text/javascript" : "text/html");
    response.end(isScript ? readFileSync(path.join(root, request.url)) : "<!doctype html><title>page</title>");
  });
  await new Promise((resolve) => server.listen(0, resolve));
  afterwards(t, () => { server.closeAllConnections(); server.close(); });
  return (name) => `http://${name}:${server.address().port}/`;
}

/** Starts a program and waits for its first line on the given stream. */
export async function startServer(t, program, args, options = {}, isReady = () => true) {
  const child = spawn(program, args, { stdio: ["ignore", "pipe", "pipe"], ...options });
  afterwards(t, () => { child.kill(); });
  let output = "";
  await new Promise((resolve, reject) => {
    for (const stream of [child.stdout, child.stderr]) {
      stream.on("data", (data) => { output += data; if (output.includes("\n") && isReady(output)) resolve(); });
    }
    child.on("exit", (code) => reject(new Error(`${program} ended with ${code}: ${output}`)));
  });
  return { child, output };
}

/**
 * A page of either browser. Both drivers' pages have `goto`, `evaluate` and `close`.
 * @typedef {{newPage: () => Promise<any>, close: () => Promise<void>}} Browser
 */

/** @returns {Promise<Browser>} */
export async function startChromium(t, { home, env }, extension, options = {}) {
  const { chromium } = await import("playwright-core");
  const browser = await chromium.launchPersistentContext(path.join(home, ".config/chromium"), {
    executablePath: kChromium,
    env,
    headless: false, // the driver's headless is an older kind without extensions; the flag asks for the new one
    args: ["--headless=new", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync", ...(isRoot ? ["--no-sandbox"] : []),
      ...(extension ? [`--disable-extensions-except=${extension}`, `--load-extension=${extension}`] : [])],
    ...options,
  });
  afterwards(t, () => browser.close());
  return browser;
}

/** @returns {Promise<Browser>} */
export async function startFirefox(t, { home, env }, extension) {
  if (!kFirefox) throw new Error("Firefox is missing: script/setup browser installs it");
  const puppeteer = await import("puppeteer-core");
  const browser = await puppeteer.launch({
    browser: "firefox",
    executablePath: kFirefox,
    headless: true,
    userDataDir: path.join(home, "firefox-profile"),
    env,
    extraPrefsFirefox: {
      "network.captive-portal-service.enabled": false, "network.connectivity-service.enabled": false,
      "app.update.enabled": false, "browser.safebrowsing.malware.enabled": false, "browser.safebrowsing.phishing.enabled": false,
      "services.settings.server": "data:,", "datareporting.healthreport.uploadEnabled": false, "toolkit.telemetry.server": "data:,",
    },
  });
  afterwards(t, () => browser.close());
  if (extension) await browser.installExtension(extension);
  return browser;
}

/**
 * Runs a function with the client's module in the page. An error comes back as its kind and codes.
 * @param {(module: typeof import("../../client/signing-client.js"), argument: any) => Promise<any>} body
 */
export async function inPage(page, body, argument) {
  const outcome = await page.evaluate(async ({ source, argument }) => {
    const module = await import("/client/signing-client.js");
    try {
      return { value: await (0, eval)(`(${source})`)(module, argument) };
    } catch (error) {
      return { error: { ...error, message: error.message, stack: error.stack } };
    }
  }, { source: body.toString(), argument });
  if (outcome.error) throw Object.assign(new Error(outcome.error.message), outcome.error);
  return outcome.value;
}
