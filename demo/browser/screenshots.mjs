#!/usr/bin/env node
// Pictures of the demo page in every state, both languages, light and dark, wide and 320 px: what
// to look at after a change. Needs what tests/browser/run has installed, and a built host.
//
//   demo/browser/screenshots.mjs FOLDER [en|es]
import { mkdirSync, rmSync, truncateSync, writeFileSync } from "node:fs";
import path from "node:path";
import { extensionOf, kDomainsKey, makeHome, root, startChromium, startServer, takeCardOut } from "../../tests/browser/support.mjs";

const [folder, only] = process.argv.slice(2);
if (!folder) throw new Error("usage: demo/browser/screenshots.mjs FOLDER [en|es]");
mkdirSync(folder, { recursive: true });
const undo = [];
const t = { after: (one) => undo.push(one) };

async function open(language, isRegistered = true) {
  const home = makeHome();
  if (!isRegistered) for (const file of home.manifests) rmSync(file);
  const insertCard = takeCardOut(home);
  const url = await startServer(t, path.join(root, "demo/browser/serve"), ["--port", "0", "--key", kDomainsKey]);
  const browser = await startChromium(t, home, extensionOf(home.home, { pinEntry: "page" }), { viewport: { width: 800, height: 760 } });
  const page = await browser.newPage();
  await page.goto(`${url.trim()}?lang=${language}`);
  const picture = async (name) => {
    for (const [width, colorScheme] of [[800, "light"], [800, "dark"], [320, "light"]]) {
      await page.emulateMedia({ colorScheme, reducedMotion: "reduce" });
      await page.setViewportSize({ width, height: 760 });
      // As tall as the page: a scroll bar would take from its width.
      const height = name === "demo-pin" ? 760 : await page.evaluate(() => document.documentElement.scrollHeight + 40);
      await page.setViewportSize({ width, height });
      await page.screenshot({ path: path.join(folder, `${name}-${language}-${width === 320 ? "narrow" : colorScheme}.png`) });
    }
    await page.setViewportSize({ width: 800, height: 760 });
  };
  return { home, insertCard, page, picture };
}

try {
  for (const language of only ? [only] : ["en", "es"]) {
    const { home, insertCard, page, picture } = await open(language);
    await page.locator("#waiting").waitFor();
    await page.locator("#cancel").waitFor();
    await picture("demo-waiting");
    insertCard();
    await page.locator(".certificate").waitFor();
    await picture("demo-start");
    await page.locator("#sign").click();
    await page.locator("#pin-pad").waitFor();
    await page.keyboard.type("1111");
    await page.keyboard.press("Enter");
    await page.locator("#pin-message.bad").waitFor();
    await page.keyboard.type("1111");
    await page.keyboard.press("Enter");
    await page.locator("#pin-anew").waitFor();
    await page.keyboard.type("1234");
    await picture("demo-pin");
    await page.keyboard.type("56");
    await page.keyboard.press("Enter");
    await page.locator("#result.good").waitFor();
    await picture("demo-signed");
    await page.locator("#text").fill("…");
    await page.locator("#result.bad").waitFor();
    await picture("demo-changed");
    const big = path.join(home.home, "contract.pdf");
    writeFileSync(big, "");
    truncateSync(big, 2 ** 31);
    await page.locator("label:has([value=file])").click();
    await page.locator("#file").setInputFiles(big);
    await page.locator("#sign").click();
    await page.locator("#problem").waitFor();
    await picture("demo-file");
    const lost = await open(language, false);
    await lost.page.locator("#problem").waitFor();
    await lost.picture("demo-problem");
  }
} finally {
  for (const one of undo) await one();
}
