// The demo page as a person meets it, in Chromium. SCREENSHOTS=folder keeps pictures of it.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { generateKeyPairSync } from "node:crypto";
import { writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { kDomainsKey, kExtension, makeHome, root, startChromium, startServer, temporaryFolder } from "./support.mjs";

/** Starts the demo's server and a browser, and opens the demo in it. */
async function openDemo(t, home, { key = kDomainsKey, domains = "localhost", extension = kExtension, height = 500 } = {}) {
  const url = await startServer(t, path.join(root, "demo/browser/serve"), ["--port", "0", "--key", key, "--domains", domains]);
  const browser = await startChromium(t, home, extension, { viewport: { width: 800, height }, acceptDownloads: true });
  const page = await browser.newPage();
  const wrong = [];
  page.on("pageerror", (error) => wrong.push(error.message));
  page.on("console", (message) => { if (message.type() === "error") wrong.push(message.text()); });
  await page.goto(url.trim());
  return { page, wrong };
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
  const { page, wrong } = await openDemo(t, home, { height: 760 });
  const signButton = page.getByRole("button", { name: "Sign", exact: true });
  const pad = page.getByRole("dialog", { name: "PIN of your card" });
  const says = (text) => page.getByText(text).first().waitFor();
  const isTitled = (name) => page.getByRole("heading", { name }).waitFor();

  await t.test("the certificate is a card that a screen reader can name", async () => {
    const card = page.getByRole("radio", { name: /María Núñez Solís \(FIRMA\).*Issued by AC de Prueba.*Valid .* years left/ });
    await card.waitFor();
    assert.ok(await card.isChecked());
    await says("Ready. 1 certificate on your card.");
    await picture(page, "demo-start");
  });

  await t.test("a wrong PIN is said in words, by keyboard alone", async () => {
    await page.getByLabel("Text to sign").focus();
    await page.keyboard.press("Control+A");
    await page.keyboard.type("Paid in full.");
    for (let i = 0; i < 3; ++i) await page.keyboard.press("Tab"); // refresh, card, sign
    await page.keyboard.press("Enter");
    await pad.waitFor();
    await page.keyboard.type("11112");
    await says("5 characters typed");
    await page.keyboard.press("Backspace");
    await says("4 characters typed");
    await page.keyboard.press("Enter");
    await pad.getByText("The PIN was wrong. Most cards lock after three.").waitFor();
  });

  await t.test("the right PIN on the pad signs, and the page verifies", async () => {
    for (const key of "1234") await page.getByRole("button", { name: key, exact: true }).click();
    await says("4 characters typed");
    await picture(page, "demo-pin");
    await page.keyboard.type("56");
    await pad.getByRole("button", { name: "Sign" }).click();
    await isTitled("Signed, and the signature is good");
    await picture(page, "demo-signed");
    await page.getByLabel("Text to sign").fill("Paid in part.");
    await isTitled("The document has changed since it was signed");
  });

  await t.test("a file is signed without asking again, and openssl agrees", async () => {
    const document = path.join(home.home, "contract.pdf");
    writeFileSync(document, Buffer.from(Array.from({ length: 300_000 }, (_, i) => i * 7)));
    await page.getByText("A file", { exact: true }).click();
    assert.ok(await signButton.isDisabled(), "there is nothing to sign yet");
    await page.locator("#file").setInputFiles(document);
    await says("contract.pdf, 300,000 bytes");
    await signButton.click();
    await isTitled("Signed, and the signature is good");
    const [signature, certificate, key] = ["signature", "certificate", "key.pem"].map((name) => path.join(home.home, name));
    for (const file of [signature, certificate]) {
      const link = page.getByRole("link", { name: `Save the ${path.basename(file)}` });
      const [download] = await Promise.all([page.waitForEvent("download"), link.click()]);
      await download.saveAs(file);
    }
    writeFileSync(key, execFileSync("openssl", ["x509", "-inform", "der", "-in", certificate, "-pubkey", "-noout"]));
    execFileSync("openssl", ["dgst", "-sha256", "-verify", key, "-signature", signature, document]);
  });

  await t.test("giving up leaves the page usable", async () => {
    await page.reload();
    await signButton.click();
    await pad.waitFor();
    await page.keyboard.press("Escape");
    await says("Nothing was signed: the PIN was not given.");
    assert.ok(await signButton.isEnabled());
  });
  assert.deepEqual(wrong, []);
});

test("every failure says what to do next", { timeout: 180_000 }, async (t) => {
  const strangerKey = path.join(temporaryFolder(t), "key.pem");
  writeFileSync(strangerKey, generateKeyPairSync("rsa", { modulusLength: 1024 }).privateKey.export({ type: "pkcs1", format: "pem" }));
  const cases = [
    ["The browser extension is missing", /Install or enable it/, { extension: null }],
    ["The signing host is missing", /Install it, then reload/, { register: false }],
    ["No card found", /insert the card/, {}],
    ["This site may not use your card", /operator of the site/, { domains: "example.test" }],
    ["The site's permission is not valid", /renew the list/, { key: strangerKey }],
  ];
  for (const [title, advice, { register = true, ...options }] of cases) {
    await t.test(title, async (t) => {
      const { page } = await openDemo(t, makeHome(t, { register, token: false }), options);
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
