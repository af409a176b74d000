// What the tests share: a home folder with the host registered, a token, pages, and browsers.
import { execFileSync, spawn } from "node:child_process";
import { sign, X509Certificate } from "node:crypto";
import { copyFileSync, cpSync, existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import http from "node:http";
import { tmpdir } from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

export const root = path.resolve(fileURLToPath(import.meta.url), "../../..");
export const build = path.resolve(root, process.env.SIGNING_HOST_BUILD ?? "build/test");
export const operator = JSON.parse(readFileSync(path.join(root, "operator/example/operator.json")));
export const hostProgram = path.join(build, "host/signing-host");
export const kPin = "123456";
export const kDomainsKey = path.join(build, "development-key/domains-private.pem");
const kManifests = [".config/chromium/NativeMessagingHosts", ".mozilla/native-messaging-hosts"].map((folder) => `${folder}/${operator.hostName}.json`);
const kFirefox = ["/usr/bin/firefox-esr", "/usr/bin/firefox"].find((file) => existsSync(file));

/** A folder that goes at the very end: browsers that end with their test still write into theirs. */
export function temporaryFolder() {
  const folder = mkdtempSync(path.join(tmpdir(), "signing-host-"));
  process.on("exit", () => rmSync(folder, { recursive: true, force: true, maxRetries: 5, retryDelay: 200 }));
  return folder;
}

/** A home whose browsers find the host, under a name of its own, and a token with one signing certificate. */
export function makeHome() {
  const home = temporaryFolder();
  const host = path.join(home, "host/signing-host");
  mkdirSync(path.dirname(host));
  copyFileSync(hostProgram, host);
  execFileSync(path.join(root, "demo/make-token"), [path.join(home, "token")], { stdio: "inherit" });
  const { softhsm2Conf, module } = JSON.parse(readFileSync(path.join(home, "token/token.json")));
  const env = { PATH: process.env.PATH, LANG: "C.UTF-8", HOME: home, XDG_RUNTIME_DIR: home, SOFTHSM2_CONF: softhsm2Conf, SIGNING_HOST_PKCS11_MODULE: process.env.SIGNING_HOST_CARD ?? module };
  execFileSync(path.join(root, "script/install-user"), [host], { env }); // as a person would
  return { home, env, manifests: kManifests.map((file) => path.join(home, file)) };
}

/** Leaves the reader of a home without a card, until the function that it returns is called. */
export function takeCardOut({ home, env }) {
  const inserted = env.SOFTHSM2_CONF;
  env.SOFTHSM2_CONF = path.join(home, "reader.conf");
  writeFileSync(env.SOFTHSM2_CONF, `directories.tokendir = ${path.join(home, "host")}\n`);
  return () => copyFileSync(inserted, env.SOFTHSM2_CONF);
}

/** Processes of the hosts of one home. */
export function hostsOf({ home }) {
  return readdirSync("/proc").filter((pid) => {
    try {
      return readFileSync(`/proc/${pid}/cmdline`, "utf8").startsWith(path.join(home, "host/signing-host"));
    } catch { return false; } // no process, or gone meanwhile
  });
}

/** Waits until the condition gives something true, and returns it. */
export async function until(what, condition, seconds = 15) {
  for (const end = Date.now() + 1000 * seconds; Date.now() < end;) {
    const result = await condition();
    if (result) return result;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  throw new Error(`It did not happen in time: ${what}`);
}

export const untilHosts = (home, count, seconds) => until(`as many hosts as pages with one: ${count}`, () => hostsOf(home).length === count, seconds);

/** A key as PEM and a certificate for it as base64, of nobody. */
export function makeCertificate() {
  const args = ["req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Ana", "-keyout", "-", "-out", "-"];
  const key = execFileSync("openssl", args, { stdio: ["ignore", "pipe", "ignore"] });
  return { key, certificate: new X509Certificate(key.subarray(key.indexOf("-----BEGIN CERT"))).raw.toString("base64") };
}

/** The domain list, signed with the development key of the build. */
export function domainList(domains) {
  const signature = sign("sha1", Buffer.from(domains), readFileSync(kDomainsKey)).toString("base64");
  return { domains, signature };
}

/** The extension of the example operator with other members of its file, packed for both browsers. */
export function extensionOf(folder, members) {
  const own = path.join(folder, "operator");
  cpSync(path.join(root, "operator/example"), own, { recursive: true });
  writeFileSync(path.join(own, "operator.json"), JSON.stringify({ ...operator, ...members }));
  execFileSync(path.join(root, "operator/make-extension"), [path.join(folder, "extension"), "--operator", own]);
  return path.join(folder, "extension");
}

/** Serves an empty page, the client and its texts on every localhost name; gives the address of a page. */
export async function servePages(t) {
  const server = http.createServer(({ url }, response) => {
    const [, , type] = url.match(/^\/(client|texts)\/[\w-]+\.(json|js)$/) ?? [];
    response.setHeader("Content-Type", { json: "application/json", js: "text/javascript" }[type] ?? "text/html");
    response.end(type ? readFileSync(path.join(root, url)) : "<!doctype html><html lang=en><title>page</title>");
  });
  await new Promise((resolve) => server.listen(0, resolve));
  t.after(() => { server.closeAllConnections(); server.close(); });
  return (name) => `http://${name}.localhost:${server.address().port}/`;
}

/** Starts a program, waits until its output has a line that matches, and returns the output. */
export function startServer(t, program, args, env = process.env, ready = /\n/) {
  const child = spawn(program, args, { stdio: ["ignore", "pipe", "pipe"], env });
  t.after(() => { child.kill(); });
  let output = "";
  return new Promise((resolve, reject) => {
    for (const stream of [child.stdout, child.stderr]) {
      stream.on("data", (data) => { output += data; if (ready.test(output)) resolve(output); });
    }
    child.on("exit", (code) => reject(new Error(`${program} ended with ${code}: ${output}`)));
  });
}

/** Starts a browser. Both drivers' browsers have `newPage`; their pages `goto`, `evaluate` and `close`. */
export async function startChromium(t, { home, env }, extension, options = {}) {
  const { chromium } = await import("playwright-core");
  const browser = await chromium.launchPersistentContext(path.join(home, ".config/chromium"), {
    executablePath: "/usr/bin/chromium", env,
    headless: false, // the driver's headless is an older kind without extensions; the flag asks for the new one
    // Without a folder, the extensions are those of a policy, which the driver would switch off with their updater.
    ignoreDefaultArgs: extension ? [] : ["--disable-extensions", "--disable-background-networking", "--disable-component-update"],
    args: ["--headless=new", "--disable-gpu", "--disable-quic", ...(process.getuid() === 0 ? ["--no-sandbox"] : []),
      ...(extension ? ["--disable-extensions-except", "--load-extension"].map((flag) => `${flag}=${extension}/chromium`) : [])],
    ...options,
  });
  t.after(() => browser.close());
  return browser;
}

export async function startFirefox(t, { home, env }, extension) {
  if (!kFirefox) throw new Error("Firefox is missing: script/setup browser installs it");
  const puppeteer = await import("puppeteer-core");
  const browser = await puppeteer.launch({
    browser: "firefox", executablePath: kFirefox, headless: true, env, userDataDir: path.join(home, "firefox-profile"),
    extraPrefsFirefox: { "network.captive-portal-service.enabled": false, "network.connectivity-service.enabled": false, "toolkit.telemetry.server": "data:," },
  });
  t.after(() => browser.close());
  if (extension) await browser.installExtension(path.join(extension, "firefox"));
  return browser;
}

/** A new page at an address. */
export async function visit(browser, address) {
  const page = await browser.newPage();
  await page.goto(address);
  return page;
}

/** A browser with a home of its own, on signer.localhost; its extension serves the sites named, and its pages ask for the PIN if the operator's members do not say otherwise. */
export async function openPage(t, start, { sites = ["signer"], ...members } = {}) {
  const home = makeHome();
  const address = await servePages(t);
  const patterns = sites.map((site) => `http://${site}.localhost/*`);
  const browser = await start(t, home, extensionOf(home.home, { sites: patterns, pinEntry: "page", ...members }));
  return { home, address, browser, page: await visit(browser, address("signer")) };
}

/** Runs a function with the client's module in the page. An error comes back as its kind and codes. */
export async function inPage(page, body, argument) {
  const { value, error } = await page.evaluate(async ({ source, argument }) => {
    const module = await import("/client/signing-client.js");
    return (async () => (0, eval)(`(${source})`)(module, argument))()
      .then((value) => ({ value }), (error) => ({ error: { ...error, message: error.message, stack: error.stack } }));
  }, { source: body.toString(), argument });
  if (error) throw Object.assign(new Error(error.message), error);
  return value;
}

/** Opens a client in the page as `window.client`: over a relay, or else over the extension. */
export const connect = (page, credentials, relay = "") => inPage(page, async ({ SigningClient, WebsocketTransport }, [credentials, relay]) => {
  window.client = new SigningClient(relay ? new WebsocketTransport(relay) : undefined);
  await client.open();
  await client.initialise(credentials);
}, [credentials, relay]);

/** Calls a method of the page's client. */
export const call = (page, method, ...args) => inPage(page, (_, [method, args]) => client[method](...args), [method, args]);

/** Each with what starts it, for the tests that hold in both, or in the one that SIGNING_HOST_BROWSER names. */
export const kBrowsers = [["Chromium", startChromium], ["Firefox", startFirefox]].filter(([name]) => (process.env.SIGNING_HOST_BROWSER ?? name) === name);
