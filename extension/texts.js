// The words of the extension's own pages, in the browser's language.
import { operator } from "./operator.js";
import { languageOf, Texts } from "./texts/texts.js";

const api = globalThis.browser ?? globalThis.chrome;

/** @returns {Promise<Texts>} */
export async function loadTexts() {
  const language = languageOf(api.i18n.getUILanguage());
  const catalogue = await (await fetch(api.runtime.getURL(`texts/${language}.json`))).json();
  return new Texts(language, catalogue, { product: operator.productName[language] });
}
