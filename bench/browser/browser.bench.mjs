// What a page waits for: client, extension and host against the least that could stand in their
// place, an extension that forwards and a host that answers, in the same browser and in turns.
//
//   BENCH_RESULTS=FILE BENCH_QUICK=1 tests/browser/run ../../bench/browser/browser.bench.mjs
import { createHash } from "node:crypto";
import { appendFileSync, cpSync, mkdirSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import {
  build, domainList, extensionOf, inPage, kPin, makeHome, root, servePages, startChromium, startFirefox,
} from "../../tests/browser/support.mjs";

const isQuick = Boolean(process.env.BENCH_QUICK);
/** Samples of each, and calls that are timed together: Firefox's clock has whole milliseconds. */
const kPlan = { samples: isQuick ? 5 : 25, versions: 50, signings: 5, opens: isQuick ? 5 : 15 };

/** Chromium's id of an extension that is loaded from a folder without a key. */
const idOf = (folder) => [...createHash("sha256").update(folder).digest("hex").slice(0, 32)]
  .map((digit) => String.fromCharCode(97 + parseInt(digit, 16))).join("");

/** The minimal extension and its two hosts, known to the browsers of a home. */
function addMinimal({ home, env }) {
  const folder = path.join(home, "minimal");
  for (const browser of ["chromium", "firefox"]) cpSync(path.join(root, "bench/browser/minimal"), path.join(folder, browser), { recursive: true });
  const hosts = {
    "bench.version": `exec ${build}/bench/process/minimal_host`,
    "bench.token": `exec ${build}/bench/token/bare_token ${env.SIGNING_HOST_PKCS11_MODULE} ${kPin}`,
  };
  for (const [name, command] of Object.entries(hosts)) {
    const program = path.join(folder, name);
    writeFileSync(program, `#!/bin/sh\n${command}\n`, { mode: 0o755 });
    const manifest = { name, description: name, path: program, type: "stdio" };
    for (const [where, callers] of [
      [".config/chromium/NativeMessagingHosts", { allowed_origins: [`chrome-extension://${idOf(path.join(folder, "chromium"))}/`] }],
      [".mozilla/native-messaging-hosts", { allowed_extensions: ["minimal@bench.test"] }],
    ]) {
      mkdirSync(path.join(home, where), { recursive: true });
      writeFileSync(path.join(home, where, `${name}.json`), JSON.stringify({ ...manifest, ...callers }));
    }
  }
  return folder;
}

/** Runs in the page. Milliseconds of one call, in samples of host and minimal in turns. */
async function measure({ SigningClient }, { plan, credentials, pin, digest }) {
  function minimal(host) {
    const { port1, port2 } = new MessageChannel();
    window.postMessage({ minimal: host }, location.origin, [port2]);
    const ask = (message) => new Promise((resolve) => { port1.onmessage = resolve; port1.postMessage(message); });
    return { ask, close: () => port1.postMessage("close") };
  }
  async function open(host) {
    const started = minimal(host);
    await started.ask({ command: 8 });
    return started;
  }
  async function each(count, call) {
    const start = performance.now();
    for (let i = 0; i < count; ++i) await call();
    return (performance.now() - start) / count;
  }
  const times = { version: [], sign: [], "first answer": [] };
  async function turns(name, samples, count, host, peer, after = async () => {}) {
    for (let i = 0; i < samples; ++i) {
      // Whoever comes first may warm something for the other.
      const [first, second] = i % 2 ? [peer, host] : [host, peer];
      const one = await each(count, first);
      await after();
      const two = await each(count, second);
      await after();
      times[name].push(i % 2 ? { host: two, minimal: one } : { host: one, minimal: two });
    }
  }
  const client = new SigningClient();
  await client.open();
  await client.initialise(credentials);
  const [{ id }] = await client.list();
  await client.sign(id, digest).catch(() => {}); // asks for the PIN by failing
  await client.setPin(pin);
  const sign = () => client.sign(id, digest);
  const [version, token] = [await open("bench.version"), await open("bench.token")];
  await each(20, sign);
  await turns("version", plan.samples, plan.versions, () => client.version(), () => version.ask({ command: 8 }));
  await turns("sign", plan.samples, plan.signings, sign, () => token.ask("sign"));
  await client.close();
  version.close();
  token.close();

  let opened;
  // The extension starts two hosts a second for a page, and counts them until they have ended.
  const pause = async () => { await opened.close(); await new Promise((resolve) => setTimeout(resolve, 700)); };
  await turns("first answer", plan.opens, 1,
    async () => { opened = new SigningClient(); await opened.open(); await opened.version(); },
    async () => { opened = await open("bench.version"); }, pause);
  return times;
}

for (const [browserName, start] of [["chromium", startChromium], ["firefox", startFirefox]]) {
  test(browserName, { timeout: 600_000 }, async (t) => {
    const home = makeHome();
    const address = await servePages(t);
    const ours = extensionOf(home.home, { sites: ["http://signer.localhost/*"], pinEntry: "page" });
    const minimal = addMinimal(home);
    // Chromium takes several folders, separated by commas; Firefox is given them one by one.
    const browser = await start(t, home, browserName === "chromium" ? `${minimal}/chromium,${ours}` : ours);
    if (browserName === "firefox") await browser.installExtension(path.join(minimal, "firefox"));
    const page = await browser.newPage();
    await page.goto(address("signer"));
    const digest = createHash("sha256").update("what is signed").digest("base64");
    const times = await inPage(page, measure, { plan: kPlan, credentials: domainList("signer.localhost"), pin: kPin, digest });
    for (const [name, samples] of Object.entries(times)) {
      for (const subject of ["host", "minimal"]) {
        for (const sample of samples) {
          const record = { group: "browser", name: `${browserName}, ${name}`, subject, metric: "ns", value: sample[subject] * 1e6 };
          appendFileSync(process.env.BENCH_RESULTS ?? "/dev/stdout", `${JSON.stringify(record)}\n`);
        }
      }
    }
  });
}
