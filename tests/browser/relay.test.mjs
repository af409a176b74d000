// The host behind websocketd: the same client, the relay's origin check, and no host left behind.
import assert from "node:assert/strict";
import { createHash } from "node:crypto";
import net from "node:net";
import path from "node:path";
import { test } from "node:test";
import { domainList, hostsOf, inPage, kPin, makeHome, servePages, startChromium, startServer, until } from "./support.mjs";

async function freePort() {
  const server = net.createServer().listen(0, "127.0.0.1");
  await new Promise((resolve) => server.on("listening", resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

test("a relay for one site", { timeout: 120_000 }, async (t) => {
  const home = makeHome(t, { register: false });
  const address = await servePages(t);
  const port = await freePort();
  // As docs/relay.md has it.
  await startServer(t, "websocketd", [`--port=${port}`, "--address=127.0.0.1", `--origin=${new URL(address("signer.localhost")).host}`,
    "--maxforks=2", "--passenv=SOFTHSM2_CONF,SIGNING_HOST_PKCS11_MODULE", path.join(home.home, "host/signing-host"), "ws"],
  { env: home.env }, (output) => output.includes("ws://"));
  const browser = await startChromium(t, home, null);
  const relay = [`ws://127.0.0.1:${port}/`, domainList("signer.localhost")];
  const connect = (page) => inPage(page, async ({ SigningClient, WebsocketTransport }, [url, credentials]) => {
    window.client = new SigningClient(new WebsocketTransport(url));
    await client.open();
    await client.initialise(credentials);
  }, relay);
  const page = await browser.newPage();
  await page.goto(address("signer.localhost"));

  await t.test("the whole conversation", async () => {
    await connect(page);
    const [{ id, subject }] = await inPage(page, () => client.list());
    assert.match(subject, /María Núñez Solís/);
    const digest = createHash("sha256").update("x").digest("base64");
    const sign = () => inPage(page, (_, [id, digest]) => client.sign(id, digest), [id, digest]);
    await assert.rejects(sign, { kind: "pin-missing" });
    await inPage(page, (_, pin) => client.setPin(pin), kPin);
    assert.equal(Buffer.from(await sign(), "base64").length, 256);
  });

  await t.test("a page of another origin gets no host", async () => {
    const other = await browser.newPage();
    await other.goto(address("other.localhost"));
    await assert.rejects(connect(other), { kind: "relay-unreachable" });
    assert.equal(hostsOf(home).length, 1);
  });

  await t.test("no host stays when the client closes, or the tab without it", async () => {
    await inPage(page, () => client.close());
    await until("the host ended with its client", () => hostsOf(home).length === 0);
    await connect(page);
    assert.equal(hostsOf(home).length, 1);
    await page.close();
    await until("the host ended with its tab", () => hostsOf(home).length === 0);
  });
});
