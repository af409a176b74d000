// The whole road in real browsers: page, client, extension or relay, browser, host, token and back.
import assert from "node:assert/strict";
import { createHash, verify, X509Certificate } from "node:crypto";
import { rmSync } from "node:fs";
import net from "node:net";
import path from "node:path";
import { test } from "node:test";
import { call, connect, domainList, hostsOf, inPage, kBrowsers, kPin, openPage, startChromium, startServer, untilHosts, visit } from "./support.mjs";

const kDocument = "what is signed";
const digest = createHash("sha256").update(kDocument).digest("base64");
const credentials = domainList("signer.localhost");

/** What a hostile page sends itself as often as it can, over today's line or a port: a request over one connection, or else connections, closed after a while. */
async function flood({ count, request, pauseMs, usesPort }) {
  const open = usesPort ? () => {
    const { port1, port2 } = new MessageChannel();
    window.postMessage({ signingHost: "connect" }, location.origin, [port2]);
    return (message) => port1.postMessage(message);
  } : () => {
    const line = document.createElement("span");
    document.dispatchEvent(new MouseEvent("signing-host-connect", { relatedTarget: line }));
    return (message) => line.dispatchEvent(new CustomEvent("signing-host-asked", { detail: JSON.stringify(message) }));
  };
  for (let i = 0, tell; i < count; ++i) {
    if (!tell || !request) tell = open();
    if (request) tell({ type: "request", request });
    else if (pauseMs) await new Promise((resolve) => setTimeout(resolve, pauseMs, tell({ type: "close" })));
  }
}
/** The longest that the page's host took for a version, in milliseconds. */
const slowestVersion = (page, milliseconds) => inPage(page, async (_, milliseconds) => {
  const times = [performance.now()];
  while (times.at(-1) - times[0] < milliseconds) times.push(await client.version().then(() => performance.now()));
  return Math.max(...times.slice(1).map((time, i) => time - times[i]));
}, milliseconds);

for (const [name, start] of kBrowsers) {
  test(name, { timeout: 400_000 }, async (t) => {
    const { home, address, browser, page } = await openPage(t, start, { sites: ["signer", "other"] });

    await t.test("list, wrong PIN, right PIN, sign, verify", async () => {
      await connect(page, credentials);
      const [{ id, subject, issuer }, ...others] = await call(page, "list");
      assert.equal(others.length, 0, "the authentication and the expired certificate are not listed");
      assert.match(`${subject}|${issuer}`, /María Núñez Solís \(FIRMA\).*\|.*Dirección de Demostración/);
      const sign = () => call(page, "sign", id, digest);
      await assert.rejects(sign, { kind: "pin-missing", code: 11, missingPin: true, pinModule: "Certificado ZORAL" });
      for (const character of "99") await call(page, "typePinCharacter", character);
      assert.equal(await call(page, "deletePinCharacter"), 1);
      for (const [pin, retries] of [["000000", 1], ["111111", 2]]) {
        await call(page, "setPin", pin);
        await assert.rejects(sign, { kind: "wrong-pin", code: 5, invalidPin: true, lowLevelCode: 0xa0, retries });
      }
      await call(page, "setPin", kPin);
      const [signature, certificate] = [await sign(), await call(page, "certificate", id)].map((text) => Buffer.from(text, "base64"));
      assert.ok(verify("sha256", Buffer.from(kDocument), new X509Certificate(certificate).publicKey, signature));
    });

    await t.test("what would harm the conversation is refused", async () => {
      // Past the client: what a hostile page sends itself.
      const answers = await inPage(page, async () => {
        const { port1, port2 } = new MessageChannel();
        const answerTo = (send) => new Promise((resolve) => { port1.onmessage = ({ data }) => resolve(data); send(); });
        const told = [await answerTo(() => window.postMessage({ signingHost: "connect" }, location.origin, [port2]))];
        for (const request of [{ command: 3, pin: "1".repeat(1000) }, { command: 8, more: 1 }, { command: "8" }, { command: 9 }, { command: 5 },
          { command: 4, certId: 7 }, { command: 6, pinChar: "12" }, [], null, "{}", 1n, { command: 8n }, { command: 8 }]) {
          told.push(await answerTo(() => port1.postMessage({ type: "request", request })));
        }
        port1.postMessage({ type: "close" });
        return told.map(({ type, answer }) => answer?.version ?? type);
      });
      assert.deepEqual(answers, ["open", ...Array(12).fill("refused"), "1.1"]);
      assert.equal(await call(page, "version"), "1.1", "the page's other host never noticed");
      await untilHosts(home, 1);
    });

    await t.test("a page cannot have hosts without end", async () => {
      assert.equal(await inPage(page, async ({ SigningClient }) => {
        const clients = Array.from({ length: 5 }, () => new SigningClient());
        const outcomes = await Promise.all(clients.map((one) => one.open().then(() => "open", ({ kind }) => kind)));
        for (const one of clients) await one.close();
        return outcomes.join();
      }), "open,open,open,too-many,too-many");
      await untilHosts(home, 1);
    });

    await t.test("an unauthorised page is refused, also when it lies about its domain", async () => {
      const other = await visit(browser, address("other"));
      await connect(other, credentials);
      const refusal = { kind: "domain-not-authorised", code: 9 };
      for (let i = 0; i < 2; ++i) await assert.rejects(call(other, "list"), refusal); // the host tells it once
      await inPage(other, ({ ExtensionTransport }, lie) => {
        Object.defineProperty(ExtensionTransport.prototype, "currentDomain", { get: () => lie });
      }, address("signer"));
      await connect(other, credentials);
      await assert.rejects(call(other, "list"), refusal);
      await connect(other, { ...credentials, domains: "other.localhost" });
      await assert.rejects(call(other, "list"), { kind: "domain-list-rejected", code: 10 });
      // A frame is not spoken for, and cannot speak for the page around it.
      assert.equal(await other.evaluate(async (url) => {
        const frame = document.createElement("iframe");
        await new Promise((onload) => document.body.append(Object.assign(frame, { src: url, onload })));
        const { port1, port2 } = new MessageChannel();
        frame.contentWindow.postMessage({ signingHost: "connect" }, "*", [port2]);
        return new Promise((resolve) => { port1.onmessage = () => resolve("answered"); setTimeout(resolve, 1000, "silent"); });
      }, address("signer")), "silent");
      await other.close();
      await untilHosts(home, 1);
    });

    await t.test("a page that floods keeps no other waiting and starts few hosts", async () => {
      let most = 0;
      const watch = setInterval(() => { most = Math.max(most, hostsOf(home).length); }, 20);
      const rows = [{ count: 100_000 }, { count: 100_000, request: { command: 8 } },
        { count: 100_000, request: { command: 3, pin: "1".repeat(10_000) } }, { count: 300, pauseMs: 5 }];
      // A port's messages cross Firefox's main process: a gigabyte of them ends the browser itself.
      const overPort = rows.map((row) => ({ ...row, count: name === "Firefox" && row.request?.pin ? 20_000 : row.count, usesPort: true }));
      for (const row of [...rows, ...overPort]) {
        const hostile = await visit(browser, address("other"));
        const calm = Math.max(60, await slowestVersion(page, 1000)); // beside the same page, before it floods
        const flooding = hostile.evaluate(flood, row);
        const slowest = await slowestVersion(page, 4000);
        await flooding;
        await hostile.close();
        const told = `${JSON.stringify(row).replace(/1{9,}/, "…")}: ${Math.round(slowest)} ms, before the flood ${Math.round(calm)} ms`;
        assert.ok(slowest < 50 * calm, told);
        t.diagnostic(told);
      }
      clearInterval(watch);
      assert.ok(most >= 1 && most <= 8, `${most} hosts`);
      await untilHosts(home, 1, 90); // a browser may take its time to close a page that has so much to throw away
    });

    await t.test("leaving the page or closing the tab ends its host", async () => {
      const left = await visit(browser, address("signer"));
      // document.open() takes the window's listeners away, the extension's too.
      await left.evaluate(() => { document.open(); document.write("<title>anew</title>"); document.close(); });
      await connect(left, credentials);
      await left.goto(`${address("signer")}elsewhere`);
      await untilHosts(home, 1);
      await page.close();
      await untilHosts(home, 0);
    });

    await t.test("without a host or without the extension a page is told so", async () => {
      for (const file of home.manifests) rmSync(file);
      const lost = await browser.newPage();
      for (const [site, kind] of [["signer", "host-not-found"], ["unserved", "no-extension"]]) {
        await lost.goto(address(site));
        await assert.rejects(connect(lost, credentials), { kind });
      }
    });
  });
}

const freePort = () => new Promise((resolve) => {
  const server = net.createServer().listen(0, "127.0.0.1", () => { const { port } = server.address(); server.close(() => resolve(port)); });
});

test("a relay for one site", { timeout: 120_000 }, async (t) => {
  const { home, address, browser, page } = await openPage(t, startChromium);
  const port = await freePort();
  // As docs/relay.md has it.
  await startServer(t, "websocketd", [`--port=${port}`, "--address=127.0.0.1", `--origin=${new URL(address("signer")).host}`, "--maxforks=2",
    "--passenv=SOFTHSM2_CONF,SIGNING_HOST_PKCS11_MODULE", path.join(home.home, "host/signing-host"), "ws"], home.env, /ws:\/\//);
  const relay = [credentials, `ws://127.0.0.1:${port}/`];

  // A page reads the card.
  await connect(page, ...relay);
  const [{ id, subject }] = await call(page, "list");
  assert.match(`${subject} ${await call(page, "certificate", id)}`, /María Núñez Solís.* MII/);

  // A page of another origin gets no host.
  const other = await visit(browser, address("other"));
  await assert.rejects(connect(other, ...relay), { kind: "relay-unreachable" });
  assert.equal(hostsOf(home).length, 1);

  // No host stays when the client closes, or the tab without it.
  await call(page, "close");
  await untilHosts(home, 0);
  await connect(page, ...relay);
  await page.close();
  await untilHosts(home, 0);
});
