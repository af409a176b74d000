// The host behind websocketd: the same client, the relay's origin check, and no host left behind.
import assert from "node:assert/strict";
import net from "node:net";
import path from "node:path";
import { test } from "node:test";
import { call, connect, domainList, hostsOf, openPage, startChromium, startServer, untilHosts } from "./support.mjs";

const freePort = () => new Promise((resolve) => {
  const server = net.createServer().listen(0, "127.0.0.1", () => { const { port } = server.address(); server.close(() => resolve(port)); });
});

test("a relay for one site", { timeout: 120_000 }, async (t) => {
  const { home, address, browser, page } = await openPage(t, startChromium);
  const port = await freePort();
  // As docs/relay.md has it.
  await startServer(t, "websocketd", [`--port=${port}`, "--address=127.0.0.1", `--origin=${new URL(address("signer")).host}`, "--maxforks=2",
    "--passenv=SOFTHSM2_CONF,SIGNING_HOST_PKCS11_MODULE", path.join(home.home, "host/signing-host"), "ws"], home.env, /ws:\/\//);
  const relay = [domainList("signer.localhost"), `ws://127.0.0.1:${port}/`];

  // A page reads the card.
  await connect(page, ...relay);
  const [{ id, subject }] = await call(page, "list");
  assert.match(`${subject} ${await call(page, "certificate", id)}`, /María Núñez Solís.* MII/);

  // A page of another origin gets no host.
  const other = await browser.newPage();
  await other.goto(address("other"));
  await assert.rejects(connect(other, ...relay), { kind: "relay-unreachable" });
  assert.equal(hostsOf(home).length, 1);

  // No host stays when the client closes, or the tab without it.
  await call(page, "close");
  await untilHosts(home, 0);
  await connect(page, ...relay);
  await page.close();
  await untilHosts(home, 0);
});
