// The demo page as a person meets it, in Chromium. demo/browser/screenshots.mjs takes pictures of it.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { generateKeyPairSync } from "node:crypto";
import { readFileSync, truncateSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { extensionOf, hostsOf, kDomainsKey, kPin, makeHome, root, startChromium, startServer, temporaryFolder } from "./support.mjs";

/** Starts the demo's server and a browser, and opens the demo in it. */
async function openDemo(t, home, { key = kDomainsKey, domains = "localhost", extension = extensionOf(home.home, { pinEntry: "page" }), height = 500, locale = "en-US" } = {}) {
  const url = await startServer(t, path.join(root, "demo/browser/serve"), ["--port", "0", "--key", key, "--domains", domains]);
  const browser = await startChromium(t, home, extension, { viewport: { width: 800, height }, acceptDownloads: true, locale });
  const [page, wrong] = [await browser.newPage(), []];
  page.on("pageerror", (error) => wrong.push(error.message));
  page.on("console", (message) => { if (message.type() === "error") wrong.push(message.text()); });
  await page.goto(url.trim());
  return { page, wrong };
}

test("signing a text and a file", { timeout: 180_000 }, async (t) => {
  const home = makeHome(t);
  const { page, wrong } = await openDemo(t, home);
  const signButton = page.locator("#sign");
  const pad = page.getByRole("dialog", { name: "PIN of your card" });
  const verdict = page.getByRole("heading", { name: "Signed, and the signature is good" });
  const says = (text) => page.getByText(text).first().waitFor();
  const type = async (pin) => { await page.keyboard.type(pin); await page.keyboard.press("Enter"); };

  await t.test("the certificate is a card that a screen reader can name, and nothing is wider than a narrow window", async () => {
    const card = page.getByRole("radio", { name: /María Núñez Solís \(FIRMA\).*Issued by AC de Prueba.*Valid .* years left/ });
    await card.waitFor();
    assert.ok(await card.isChecked());
    await says("Ready. One certificate on your card.");
    await page.setViewportSize({ width: 320, height: 700 });
    assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= document.documentElement.clientWidth));
  });

  await t.test("a wrong PIN is said in words, by keyboard alone", async () => {
    await page.getByLabel("Text to sign").press("Control+A");
    await page.keyboard.type("Paid in full.");
    for (let i = 0; i < 3; ++i) await page.keyboard.press("Tab"); // refresh, card, sign
    await page.keyboard.press("Enter");
    await pad.waitFor();
    await page.getByRole("button", { name: "1", exact: true }).press("Enter"); // presses the key, and submits nothing
    await page.keyboard.type("1112");
    await says("5 characters typed");
    await page.keyboard.press("Backspace");
    await says("4 characters typed");
    await pad.getByRole("button", { name: "Sign" }).press("Enter");
    await pad.getByText("The card refused the PIN. Most cards lock after three.").waitFor();
  });

  await t.test("the same PIN again costs no try, and a new start forgets it", async () => {
    await type("1111");
    await pad.getByText("This PIN was not tried again").waitFor();
    await pad.getByRole("button", { name: "Start anew" }).click();
    await pad.getByText("Your card asks for it").waitFor();
    await type("1111");
    await pad.getByText("The card refused the PIN. Most cards lock after three.").waitFor();
  });

  await t.test("the right PIN on the pad signs, and the verdict is only ever on what was signed", async () => {
    for (const key of kPin.slice(0, 4)) await page.getByRole("button", { name: key, exact: true }).click();
    await says("4 characters typed");
    await page.keyboard.type(kPin.slice(4));
    await pad.getByRole("button", { name: "Sign" }).click();
    await verdict.waitFor();
    await page.getByText("A file", { exact: true }).click();
    await verdict.waitFor({ state: "hidden" });
    await page.getByText("A text", { exact: true }).click();
    await verdict.waitFor();
    await page.getByLabel("Text to sign").fill("Paid in part.");
    await page.getByRole("heading", { name: "The document has changed since it was signed" }).waitFor();
  });

  await t.test("a file is signed without asking again, and openssl agrees; one that is too big is refused at once", async () => {
    const document = path.join(home.home, "contract.pdf");
    writeFileSync(document, Buffer.from(Array.from({ length: 300_000 }, (_, i) => i * 7)));
    await page.getByText("A file", { exact: true }).click();
    assert.ok(await signButton.isDisabled(), "there is nothing to sign yet");
    await page.locator("#file").setInputFiles(document);
    await says("contract.pdf, 300,000 bytes");
    await signButton.click();
    await verdict.waitFor();
    const [signature, certificate, key] = ["signature", "certificate", "key.pem"].map((name) => path.join(home.home, name));
    for (const file of [signature, certificate]) {
      const link = page.getByRole("link", { name: `Save the ${path.basename(file)}` });
      const [download] = await Promise.all([page.waitForEvent("download"), link.click()]);
      await download.saveAs(file);
    }
    writeFileSync(key, execFileSync("openssl", ["x509", "-inform", "der", "-in", certificate, "-pubkey", "-noout"]));
    execFileSync("openssl", ["dgst", "-sha256", "-verify", key, "-signature", signature, document]);
    const big = path.join(home.home, "film");
    writeFileSync(big, "");
    truncateSync(big, 2 ** 31);
    await page.locator("#file").setInputFiles(big);
    await signButton.click();
    await page.getByRole("heading", { name: "film is too big for this page." }).waitFor();
    await verdict.waitFor({ state: "hidden" });
  });

  await t.test("a host that ended is replaced, and giving up leaves the page usable", async () => {
    await page.getByText("A text", { exact: true }).click();
    process.kill(Number(hostsOf(home)[0]), "SIGKILL");
    await page.getByRole("button", { name: "Read the card again" }).click();
    await says("Ready. One certificate on your card.");
    await signButton.click();
    await pad.waitFor();
    await page.keyboard.press("Escape");
    await says("Cancelled. Nothing was signed.");
    await page.locator("#sign:focus").waitFor();
    await page.keyboard.press("Enter");
    await pad.waitFor();
    await type(kPin);
    await verdict.waitFor();
  });
  assert.deepEqual(wrong, []);
});

test("the page waits for a card, in the language of the browser, and goes on by itself", { timeout: 60_000 }, async (t) => {
  const home = makeHome(t, { token: false });
  const { page } = await openDemo(t, home, { locale: "es-CR" });
  await page.getByRole("heading", { name: "Inserte su tarjeta" }).waitFor();
  await page.getByText(/Esperando su tarjeta… [1-9] s/).waitFor();
  await page.getByRole("button", { name: "Cancelar" }).click();
  await page.getByText("Cancelado. No se firmó nada.").waitFor();
  await page.reload();
  await page.getByRole("heading", { name: "Inserte su tarjeta" }).waitFor();
  const token = path.join(home.home, "token");
  execFileSync(path.join(root, "demo/make-token"), [token]);
  writeFileSync(home.env.SOFTHSM2_CONF, readFileSync(JSON.parse(readFileSync(path.join(token, "token.json"))).softhsm2Conf));
  await page.getByRole("radio", { name: /Emitido por AC de Prueba.*Válido del \d+ de [a-z]+ de \d+/ }).waitFor();
});

test("every failure says what to do next", { timeout: 180_000 }, async (t) => {
  const strangerKey = path.join(temporaryFolder(t), "key.pem");
  writeFileSync(strangerKey, generateKeyPairSync("rsa", { modulusLength: 1024 }).privateKey.export({ type: "pkcs1", format: "pem" }));
  const cases = [
    ["The browser extension does not answer on this page.", /Install or enable it/, { extension: null }],
    ["The signing host is not installed for this browser.", /Install it, then reload/, { register: false }],
    ["The card's program (its PKCS#11 module) is missing or cannot be loaded.", /Install the program/, { module: "/absent.so" }],
    ["This site is not in the list of domains that may use the card.", /operator of the site/, { domains: "example.test" }],
    ["The site's signed list of domains is out of date or was altered.", /renew the list/, { key: strangerKey }],
  ];
  for (const [title, advice, { register = true, module, ...options }] of cases) {
    await t.test(title, async (t) => {
      const home = makeHome(t, { register, token: false });
      if (module) home.env.SIGNING_HOST_PKCS11_MODULE = module;
      const { page } = await openDemo(t, home, options);
      const problem = page.getByRole("alert");
      await problem.getByRole("heading", { name: title }).waitFor();
      assert.match(await problem.innerText(), advice);
      // Trying again gives the same answer, not a worse one.
      await problem.getByRole("button", { name: "Try again" }).click();
      await page.locator("body[aria-busy]").waitFor({ state: "detached" });
      await problem.getByRole("heading", { name: title }).waitFor();
    });
  }
});
