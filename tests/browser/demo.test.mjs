// The demo page as a person meets it, in Chromium. demo/browser/screenshots.mjs takes pictures of it.
import assert from "node:assert/strict";
import { verify, X509Certificate } from "node:crypto";
import { readFileSync, writeFileSync } from "node:fs";
import path from "node:path";
import { test } from "node:test";
import { extensionOf, hostsOf, kDomainsKey, kPin, makeHome, root, startChromium, startServer, takeCardOut } from "./support.mjs";

/** Starts the demo's server and a browser, and opens the demo in it. */
async function openDemo(t, home, members, locale = "en-US") {
  const url = await startServer(t, path.join(root, "demo/browser/serve"), ["--port", "0", "--key", kDomainsKey]);
  const browser = await startChromium(t, home, extensionOf(home.home, members), { acceptDownloads: true, locale });
  const [page, wrong] = [await browser.newPage(), []];
  page.on("pageerror", (error) => wrong.push(error.message));
  page.on("console", (message) => { if (message.type() === "error") wrong.push(message.text()); });
  await page.goto(url.trim());
  return { page, wrong };
}

test("signing a text and a file", { timeout: 180_000 }, async (t) => {
  const home = makeHome();
  const { page, wrong } = await openDemo(t, home, { pinEntry: "page" });
  const signButton = page.locator("#sign");
  const pad = page.getByRole("dialog", { name: "PIN of your card" });
  const verdict = page.getByRole("heading", { name: "Signed, and the signature is good" });
  const says = (text) => page.getByText(text).first().waitFor();
  const refused = () => pad.getByText("The card refused the PIN. Most cards lock after three.").waitFor();
  const type = async (pin) => { await page.keyboard.type(pin); await page.keyboard.press("Enter"); };

  // The certificate is a card that a screen reader can name, and nothing is wider than a narrow window.
  const card = page.getByRole("radio", { name: /María Núñez Solís \(FIRMA\).*Issued by AC de Prueba.*Valid .* years left/ });
  await card.waitFor();
  assert.ok(await card.isChecked());
  await page.setViewportSize({ width: 320, height: 700 });
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= document.documentElement.clientWidth));

  // A wrong PIN is said in words, by keyboard alone.
  await page.getByLabel("Text to sign").press("Control+A");
  await page.keyboard.type("Paid in full.");
  for (let i = 0; i < 3; ++i) await page.keyboard.press("Tab"); // refresh, card, sign
  await page.keyboard.press("Enter");
  await pad.waitFor();
  await page.getByRole("button", { name: "1", exact: true }).press("Enter"); // presses the key, and submits nothing
  await page.keyboard.type("1112");
  await page.keyboard.press("Backspace");
  await says("4 characters typed");
  await pad.getByRole("button", { name: "Sign" }).press("Enter");
  await refused();
  // The same again costs no try, and a new start forgets it.
  await type("1111");
  await pad.getByText("This PIN was not tried again").waitFor();
  await pad.getByRole("button", { name: "Start anew" }).click();
  await pad.getByText("Your card asks for it").waitFor();
  await type("1111");
  await refused();

  // The right PIN on the pad signs, and the verdict is only ever on what was signed.
  for (const key of kPin.slice(0, 4)) await page.getByRole("button", { name: key, exact: true }).click();
  await page.keyboard.type(kPin.slice(4));
  await pad.getByRole("button", { name: "Sign" }).click();
  await verdict.waitFor();
  await page.getByText("A file", { exact: true }).click();
  await verdict.waitFor({ state: "hidden" });
  await page.getByText("A text", { exact: true }).click();
  await verdict.waitFor();
  await page.getByLabel("Text to sign").fill("Paid in part.");
  await page.getByRole("heading", { name: "The document has changed since it was signed" }).waitFor();

  // A file is signed without asking again, and what is saved fits.
  const document = path.join(home.home, "contract.pdf");
  writeFileSync(document, Buffer.from(Array.from({ length: 300_000 }, (_, i) => i * 7)));
  await page.getByText("A file", { exact: true }).click();
  assert.ok(await signButton.isDisabled(), "there is nothing to sign yet");
  await page.locator("#file").setInputFiles(document);
  await says("contract.pdf, 300,000 bytes");
  await signButton.click();
  await verdict.waitFor();
  const saved = {};
  for (const what of ["signature", "certificate"]) {
    const [download] = await Promise.all([page.waitForEvent("download"), page.getByRole("link", { name: `Save the ${what}` }).click()]);
    saved[what] = readFileSync(await download.path());
  }
  assert.ok(verify("sha256", readFileSync(document), new X509Certificate(saved.certificate).publicKey, saved.signature));

  // A host that ended is replaced, and giving up leaves the page usable.
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
  assert.deepEqual(wrong, []);
});

test("the page waits for a card, in the language of the browser, goes on by itself and signs in the extension's window", { timeout: 60_000 }, async (t) => {
  const home = makeHome();
  const insertCard = takeCardOut(home);
  const { page } = await openDemo(t, home, {}, "es-CR");
  await page.getByRole("heading", { name: "Inserte su tarjeta" }).waitFor();
  await page.getByText(/Esperando su tarjeta… [1-9] s/).waitFor();
  await page.getByRole("button", { name: "Cancelar" }).click();
  await page.getByText("Cancelado. No se firmó nada.").waitFor();
  await page.getByRole("alert").getByRole("button", { name: "Intentar de nuevo" }).click();
  await page.getByRole("heading", { name: "Inserte su tarjeta" }).waitFor();
  insertCard();
  await page.getByRole("radio", { name: /Emitido por AC de Prueba.*Válido del \d+ de [a-z]+ de \d+/ }).waitFor();
  const [window] = await Promise.all([page.context().waitForEvent("page"), page.locator("#sign").click()]);
  await window.locator("#sign[aria-disabled=false]").waitFor();
  await window.locator("#pin").pressSequentially(kPin);
  await window.keyboard.press("Enter").catch(() => {}); // the driver may miss the answer of a window that closes
  await page.locator("#result.good").waitFor();
});
