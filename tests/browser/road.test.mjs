// The whole road in real browsers: page, client, extension, browser, host, token and back.
import assert from "node:assert/strict";
import { createHash, verify, X509Certificate } from "node:crypto";
import { test } from "node:test";
import { domainList, extensionFor, hostsOf, inPage, kPin, makeHome, servePages, startChromium, startFirefox, until } from "./support.mjs";

const kDocument = "what is signed";
const digest = createHash("sha256").update(kDocument).digest("base64");

/** Opens a client in the page as `window.client`. */
async function connect(page, credentials) {
  await inPage(page, async ({ SigningClient }, credentials) => {
    window.client = new SigningClient();
    await window.client.open();
    await window.client.initialise(credentials);
  }, credentials);
}

for (const [name, start] of [["Chromium", startChromium], ["Firefox", startFirefox]]) {
  test(name, { timeout: 180_000 }, async (t) => {
    const home = makeHome(t);
    const address = await servePages(t);
    const credentials = domainList("signer.localhost");
    const browser = await start(t, home, extensionFor(home.home, "http://*.localhost/*"));
    const page = await browser.newPage();
    await page.goto(address("signer.localhost"));

    await t.test("list, wrong PIN, right PIN, sign, verify", async () => {
      await connect(page, credentials);
      const [certificate, ...others] = await inPage(page, () => client.list());
      assert.equal(others.length, 0, "the authentication and the expired certificate are not listed");
      assert.match(certificate.subject, /María Núñez Solís \(FIRMA\)/);
      assert.match(certificate.issuer, /Dirección de Demostración/);

      const sign = () => inPage(page, (_, [id, digest]) => client.sign(id, digest), [certificate.id, digest]);
      await assert.rejects(sign, { kind: "pin-missing", code: 11, missingPin: true, pinModule: "Certificado ZORAL" });
      assert.equal(await inPage(page, async () => {
        await client.typePinCharacter("9");
        await client.typePinCharacter("9");
        return client.deletePinCharacter();
      }), 1);
      await inPage(page, () => client.setPin("000000"));
      await assert.rejects(sign, { kind: "wrong-pin", code: 5, invalidPin: true, lowLevelCode: 0xa0, retries: 1 });
      await inPage(page, (_, pin) => client.setPin(pin), kPin);
      const signature = Buffer.from(await sign(), "base64");

      const der = Buffer.from(await inPage(page, (_, id) => client.certificate(id), certificate.id), "base64");
      assert.ok(verify("sha256", Buffer.from(kDocument), new X509Certificate(der).publicKey, signature));
      assert.equal(hostsOf(home).length, 1);
    });

    await t.test("what would harm the conversation is refused on both sides of the page", async () => {
      await assert.rejects(inPage(page, () => client.setPin("1".repeat(1000))), { kind: "too-long" });
      // Past the client: what a hostile page sends itself.
      const refusals = await inPage(page, async () => {
        const { port1, port2 } = new MessageChannel();
        const next = () => new Promise((resolve) => { port1.onmessage = ({ data }) => resolve(data); });
        const opened = next();
        window.postMessage({ signingHost: "connect" }, location.origin, [port2]);
        const reasons = [(await opened).type];
        const bad = [{ command: 3, pin: "1".repeat(1000) }, { command: 8, more: 1 }, { command: "8" }, { command: 9 }, { command: 5 },
          { command: 4, certId: 7 }, { command: 6, pinChar: "12" }, [], null, "{}", 1n, { command: 8n }];
        for (const request of bad) {
          const answer = next();
          port1.postMessage({ type: "request", request });
          reasons.push((await answer).type);
        }
        const answer = next();
        port1.postMessage({ type: "request", request: { command: 8 } });
        reasons.push((await answer).answer.version);
        port1.postMessage({ type: "close" });
        return reasons;
      });
      assert.deepEqual(refusals, ["open", ...Array(12).fill("refused"), "1.1"]);
      assert.equal(await inPage(page, () => client.version()), "1.1", "the page's other host never noticed");
      await until("the second host ended", () => hostsOf(home).length === 1);
    });

    await t.test("a page cannot have hosts without end", async () => {
      const kinds = await inPage(page, async ({ SigningClient }) => {
        const clients = Array.from({ length: 6 }, () => new SigningClient());
        const outcomes = [];
        for (const one of clients) outcomes.push(await one.open().then(() => "open", (error) => error.kind));
        for (const one of clients) await one.close();
        return outcomes;
      });
      assert.deepEqual(kinds, ["open", "open", "open", "too-many", "too-many", "too-many"]);
      await until("the other hosts ended", () => hostsOf(home).length === 1);
    });

    await t.test("an unauthorised page is refused, also when it lies about its domain", async () => {
      const other = await browser.newPage();
      await other.goto(address("other.localhost"));
      await connect(other, credentials);
      await assert.rejects(inPage(other, () => client.list()), { kind: "domain-not-authorised", code: 9 });
      await assert.rejects(inPage(other, () => client.list()), { kind: "domain-not-authorised" }, "also the second time");
      // A transport that claims the authorised page's address.
      await assert.rejects(inPage(other, async ({ SigningClient, ExtensionTransport }, [credentials, lie]) => {
        class Liar extends ExtensionTransport { get currentDomain() { return lie; } }
        const liar = new SigningClient(new Liar());
        await liar.open();
        await liar.initialise(credentials);
        return liar.list();
      }, [credentials, address("signer.localhost")]), { kind: "domain-not-authorised", code: 9 });
      // A frame is not spoken for, and cannot speak for the page around it.
      const framed = await other.evaluate(async (url) => {
        const frame = document.createElement("iframe");
        frame.src = url;
        document.body.append(frame);
        await new Promise((resolve) => { frame.onload = resolve; });
        const { port1, port2 } = new MessageChannel();
        frame.contentWindow.postMessage({ signingHost: "connect" }, "*", [port2]);
        return Promise.race([new Promise((resolve) => { port1.onmessage = () => resolve("answered"); }),
          new Promise((resolve) => setTimeout(resolve, 1000, "silent"))]);
      }, address("signer.localhost"));
      assert.equal(framed, "silent");
      await other.close();
    });

    await t.test("a host that dies is told, and a new one serves the page", async () => {
      const [host] = await until("only the first page's host is left", () => hostsOf(home).length === 1 && hostsOf(home));
      process.kill(Number(host), "SIGKILL");
      await until("the page was told", () => inPage(page, () => client.version().then(() => false, (error) => error.kind === "host-ended")));
      await connect(page, credentials);
      await assert.rejects(inPage(page, (_, digest) => client.sign("AQ==", digest), digest), { kind: "pin-missing" }, "it knows no PIN");
    });

    await t.test("leaving the page or closing the tab ends its host", async () => {
      const [host] = hostsOf(home);
      await page.goto(`${address("signer.localhost")}elsewhere`);
      await until("the host of the page that was left ended", () => !hostsOf(home).includes(host));
      await connect(page, credentials);
      await inPage(page, () => client.version());
      assert.equal(hostsOf(home).length, 1);
      await page.close();
      await until("the host of the closed tab ended", () => hostsOf(home).length === 0);
    });
  });

  test(`${name} without a host or without the extension`, { timeout: 120_000 }, async (t) => {
    const home = makeHome(t, { register: false, token: false });
    const address = await servePages(t);
    const browser = await start(t, home, extensionFor(home.home, "http://signer.localhost/*"));
    const page = await browser.newPage();
    await page.goto(address("signer.localhost"));
    const attempt = ({ SigningClient }) => {
      const client = new SigningClient();
      return client.open().then(() => client.version());
    };
    await assert.rejects(inPage(page, attempt), { kind: "host-not-found" });
    await page.goto(address("unserved.localhost"));
    await assert.rejects(inPage(page, attempt), { kind: "no-extension" });
  });
}
