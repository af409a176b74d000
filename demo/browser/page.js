// What every part of the page uses: its elements, its words, and the line that says what goes on.
import { loadTexts } from "/client/signing-client.js";

/** @param {string} id @returns {any} */
export const $ = (id) => document.getElementById(id);

// "?lang=es" instead of the browser's language.
const chosen = new URLSearchParams(location.search).get("lang");
export const texts = /** @type {import("/texts/texts.js").Texts} */ (await loadTexts(chosen ?? navigator.language));
texts.fill(document);

/** @param {string} tag */
export function make(tag, className = "", text = "") {
  const node = document.createElement(tag);
  if (className) node.className = className;
  node.textContent = text;
  return node;
}

/** A number of things in the reader's way of writing. @param {number} number */
export const numberWords = (number) => number.toLocaleString(texts.language);

export const say = (text) => { $("status").textContent = text; };

const kPatienceMs = 500;

/**
 * Runs a task, and says after half a second that it runs, for how long, and how to give it up.
 * @template T
 * @param {string} what In words.
 * @param {() => Promise<T>} task
 * @returns {Promise<T>}
 */
export async function working(what, task) {
  const start = performance.now();
  say(texts.of("demo.status.begun", { what }));
  const timer = setInterval(() => {
    const seconds = Math.floor((performance.now() - start) / 1000);
    $("elapsed").textContent = seconds > 0 ? texts.of("demo.status.elapsed", { seconds }) : "";
    $("cancel").hidden = false;
  }, kPatienceMs);
  try {
    return await task();
  } finally {
    clearInterval(timer);
    $("elapsed").textContent = "";
    $("cancel").hidden = true;
  }
}
