// The demo page as a person meets it, in Chromium. SCREENSHOTS=folder keeps pictures of it.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { generateKeyPairSync } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { build, makeHome, root, startChromium, startServer } from "./support.mjs";

const kDomainsKey = process.env.SIGNING_HOST_DOMAINS_KEY ?? path.join(build, "development-key/domains-private.pem");
const kExtension = path.join(root, "extension");

async function serveDemo(t, { key = kDomainsKey, domains = "localhost" } = {}) {
  const { output } = await startServer(t, path.join(root, "demo/browser/serve"), ["--port", "0", "--key", key, "--domains", domains]);
  return output.trim();
}

async function picture(page, name) {
  if (!process.env.SCREENSHOTS) return;
  for (const colorScheme of ["light", "dark"]) {
    await page.emulateMedia({ colorScheme, reducedMotion: "reduce" });
    await page.screenshot({ path: path.join(process.env.SCREENSHOTS, `${name}-${colorScheme}.png`), fullPage: name !== "demo-pin" });
  }
  await page.emulateMedia({ colorScheme: "light" });
}

test("signing a text and a file", { timeout: 120_000 }, async (t) => {
  const home = makeHome(t);
  const url = await serveDemo(t);
  const browser = await startChromium(t, home, kExtension, { viewport: { width: 800, height: 760 }, acceptDownloads: true });
  const page = await browser.newPage();
  const wrong = [];
  page.on("pageerror", (error) => wrong.push(error.message));
  page.on("console", (message) => { if (message.type() === "error") wrong.push(message.text()); });
  await page.goto(url);

  await t.test("the certificate is a card that a screen reader can name", async () => {
    const card = page.getByRole("radio", { name: /María Núñez Solís \(FIRMA\).*Issued by AC de Prueba.*Valid .* years left/ });
    await card.waitFor();
    assert.ok(await card.isChecked());
    await page.getByText("Ready. 1 certificate on your card.").waitFor();
    await picture(page, "demo-start");
  });

  await t.test("a wrong PIN is said in words, by keyboard alone", async () => {
    await page.getByLabel("Text to sign").focus();
    await page.keyboard.press("Control+A");
    await page.keyboard.type("Paid in full.");
    for (let i = 0; i < 3; ++i) await page.keyboard.press("Tab"); // refresh, card, sign
    await page.keyboard.press("Enter");
    const pad = page.getByRole("dialog", { name: "PIN of your card" });
    await pad.waitFor();
    await page.keyboard.type("11112");
    await page.getByText("5 characters typed").waitFor();
    await page.keyboard.press("Backspace");
    await page.getByText("4 characters typed").waitFor();
    await page.keyboard.press("Enter");
    await pad.getByText("The PIN was wrong. Most cards lock after three.").waitFor();
  });

  await t.test("the right PIN on the pad signs, and the page verifies", async () => {
    for (const key of "1234") await page.getByRole("button", { name: key, exact: true }).click();
    await page.getByText("4 characters typed").waitFor();
    await picture(page, "demo-pin");
    await page.keyboard.type("56");
    await page.getByRole("dialog").getByRole("button", { name: "Sign" }).click();
    await page.getByRole("heading", { name: "Signed, and the signature is good" }).waitFor();
    await picture(page, "demo-signed");
    await page.getByLabel("Text to sign").fill("Paid in part.");
    await page.getByRole("heading", { name: "The document has changed since it was signed" }).waitFor();
  });

  await t.test("a file is signed without asking again, and openssl agrees", async () => {
    const document = path.join(home.home, "contract.pdf");
    writeFileSync(document, Buffer.from(Array.from({ length: 300_000 }, (_, i) => i * 7)));
    await page.getByText("A file", { exact: true }).click();
    assert.ok(await page.getByRole("button", { name: "Sign", exact: true }).isDisabled(), "there is nothing to sign yet");
    await page.locator("#file").setInputFiles(document);
    await page.getByText("contract.pdf, 300,000 bytes").first().waitFor();
    await page.getByRole("button", { name: "Sign", exact: true }).click();
    await page.getByRole("heading", { name: "Signed, and the signature is good" }).waitFor();
    const saved = {};
    for (const [what, link] of [["signature", "Save the signature"], ["certificate", "Save the certificate"]]) {
      const [download] = await Promise.all([page.waitForEvent("download"), page.getByRole("link", { name: link }).click()]);
      saved[what] = path.join(home.home, what);
      await download.saveAs(saved[what]);
    }
    const key = path.join(home.home, "key.pem");
    writeFileSync(key, execFileSync("openssl", ["x509", "-inform", "der", "-in", saved.certificate, "-pubkey", "-noout"]));
    execFileSync("openssl", ["dgst", "-sha256", "-verify", key, "-signature", saved.signature, document]);
    assert.ok(!readFileSync(saved.certificate).equals(readFileSync(saved.signature)));
  });

  await t.test("giving up leaves the page usable", async () => {
    await page.reload();
    await page.getByRole("button", { name: "Sign", exact: true }).click();
    await page.getByRole("dialog").waitFor();
    await page.keyboard.press("Escape");
    await page.getByText("Nothing was signed: the PIN was not given.").waitFor();
    assert.ok(await page.getByRole("button", { name: "Sign", exact: true }).isEnabled());
  });
  assert.deepEqual(wrong, []);
});

test("every failure says what to do next", { timeout: 180_000 }, async (t) => {
  const strangerKey = path.join(makeHome(t, { register: false, token: false }).home, "key.pem");
  writeFileSync(strangerKey, generateKeyPairSync("rsa", { modulusLength: 1024 }).privateKey.export({ type: "pkcs1", format: "pem" }));
  const cases = [
    { title: "The browser extension is missing", advice: /Install or enable it/, extension: null },
    { title: "The signing host is missing", advice: /Install it, then reload/, home: { register: false } },
    { title: "No card found", advice: /insert the card/, home: { token: false } },
    { title: "This site may not use your card", advice: /operator of the site/, list: { domains: "example.test" } },
    { title: "The site's permission is not valid", advice: /renew the list/, list: { key: strangerKey } },
  ];
  for (const { title, advice, extension = kExtension, home: homeOptions = {}, list } of cases) {
    await t.test(title, async (t) => {
      const home = makeHome(t, { token: homeOptions.token ?? false, ...homeOptions });
      const browser = await startChromium(t, home, extension, { viewport: { width: 800, height: 500 } });
      const page = await browser.newPage();
      await page.goto(await serveDemo(t, list));
      const problem = page.getByRole("alert");
      await problem.getByRole("heading", { name: title }).waitFor();
      assert.match(await problem.innerText(), advice);
      // Trying again gives the same answer, not a worse one.
      await problem.getByRole("button", { name: "Try again" }).click();
      await page.getByText("Looking for your card…").waitFor({ state: "detached" });
      await problem.getByRole("heading", { name: title }).waitFor();
      if (title.startsWith("No card")) await picture(page, "demo-problem");
    });
  }
});
