// The host behind websocketd: the same client, the relay's origin check, and no host left behind.
import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import net from "node:net";
import path from "node:path";
import { test } from "node:test";
import { call, connect, domainList, hostsOf, kPin, openPage, startChromium, startServer, untilHosts } from "./support.mjs";

const freePort = () => new Promise((resolve) => {
  const server = net.createServer().listen(0, "127.0.0.1", () => { const { port } = server.address(); server.close(() => resolve(port)); });
});

test("a relay for one site", { timeout: 120_000 }, async (t) => {
  const { home, address, browser, page } = await openPage(t, startChromium, { sites: [], register: false });
  const port = await freePort();
  // As docs/relay.md has it.
  await startServer(t, "websocketd", [`--port=${port}`, "--address=127.0.0.1", `--origin=${new URL(address("signer")).host}`, "--maxforks=2",
    "--passenv=SOFTHSM2_CONF,SIGNING_HOST_PKCS11_MODULE", path.join(home.home, "host/signing-host"), "ws"], home.env, /ws:\/\//);
  const relay = [domainList("signer.localhost"), `ws://127.0.0.1:${port}/`];

  await t.test("the whole conversation", async () => {
    await connect(page, ...relay);
    const [{ id, subject }] = await call(page, "list");
    assert.match(subject, /María Núñez Solís/);
    const sign = () => call(page, "sign", id, createHash("sha256").update("x").digest("base64"));
    await assert.rejects(sign, { kind: "pin-missing" });
    await call(page, "setPin", kPin);
    assert.equal(Buffer.from(await sign(), "base64").length, 256);
  });

  await t.test("a page of another origin gets no host", async () => {
    const other = await browser.newPage();
    await other.goto(address("other"));
    await assert.rejects(connect(other, ...relay), { kind: "relay-unreachable" });
    assert.equal(hostsOf(home).length, 1);
  });

  await t.test("no host stays when the client closes, or the tab without it", async () => {
    await call(page, "close");
    await untilHosts(home, 0);
    await connect(page, ...relay);
    assert.equal(hostsOf(home).length, 1);
    await page.close();
    await untilHosts(home, 0);
  });
});
