// The PIN pad. Keys go to the host one by one; the page only ever knows how many there are.
import { $, make, texts } from "./page.js";

const kLeastDots = 4;
const kDelete = "⌫";

/** What a person answers: the PIN, not now, or not with what this host remembers. */
export const kAnswer = { typed: "typed", cancelled: "cancelled", anew: "anew" };

export class PinPad {
  #client;
  #dialog = $("pin-pad");
  /** @type {(answer: string) => void} */ #answer = () => {};
  /** @type {(error: unknown) => void} */ #fail = () => {};
  #length = 0;
  /** How many characters the host has, once it has the last key. */ #lastKeystroke = Promise.resolve(0);

  /** @param {import("/client/signing-client.js").SigningClient} client */
  constructor(client) {
    this.#client = client;
    for (const key of ["1", "2", "3", "4", "5", "6", "7", "8", "9", "", "0", kDelete]) {
      const button = make(key ? "button" : "span", "", key);
      if (key === kDelete) button.setAttribute("aria-label", texts.of("demo.pin.delete"));
      if (key) {
        button.type = "button";
        button.onclick = () => (key === kDelete ? this.#delete() : this.#type(key));
      }
      $("keys").append(button);
    }
    $("pin-ok").onclick = () => this.#confirm();
    $("pin-cancel").onclick = () => this.#close(kAnswer.cancelled);
    $("pin-anew").onclick = () => this.#close(kAnswer.anew);
    this.#dialog.addEventListener("cancel", (event) => { event.preventDefault(); this.#close(kAnswer.cancelled); });
    this.#dialog.addEventListener("keydown", (event) => this.#onKey(event));
  }

  /**
   * Asks for the PIN; what was typed then waits in the host for the next token command.
   * @param {import("/client/signing-client.js").HostError | null} problem Why, when it was asked before.
   * @returns {Promise<string>} One of `kAnswer`.
   */
  ask(problem) {
    this.#show(0);
    const message = $("pin-message");
    message.className = problem?.invalidPin ? "bad" : "";
    message.textContent = wordsFor(problem);
    $("pin-anew").hidden = problem?.kind !== "pin-not-tried";
    this.#dialog.classList.toggle("shake", message.className === "bad");
    this.#dialog.showModal();
    return new Promise((resolve, reject) => {
      this.#answer = resolve;
      this.#fail = reject;
      this.#lastKeystroke = this.#run(this.#client.setPin(""));
    });
  }

  /** Closes the pad because something else went wrong. @param {unknown} error */
  fail(error) {
    this.#dialog.close();
    this.#fail(error);
  }

  #onKey(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    const { key, target } = event;
    // A key that has the focus is pressed by Enter and the space bar, as buttons are.
    if (target instanceof HTMLButtonElement && (key === "Enter" || key === " ")) return;
    if (key === "Enter") this.#confirm();
    else if (key === "Backspace") this.#delete();
    else if (/^[!-~]$/.test(key)) this.#type(key);
    else return;
    event.preventDefault();
  }

  // The host may still be asking the card: the dots follow the fingers.
  #type(character) {
    this.#lastKeystroke = this.#run(this.#client.typePinCharacter(character));
    this.#show(this.#length + 1);
  }

  #delete() {
    this.#lastKeystroke = this.#run(this.#client.deletePinCharacter());
    this.#show(Math.max(0, this.#length - 1));
  }

  async #run(keystroke) {
    try {
      return await keystroke;
    } catch (error) {
      this.fail(error);
      return 0;
    }
  }

  #show(length) {
    this.#length = length;
    const dots = Array.from({ length: Math.max(length, kLeastDots) }, (_, i) => make("i", i >= length ? "empty" : ""));
    $("dots").replaceChildren(...dots);
    const words = texts.of("demo.pin.typed", { count: length });
    $("dots").setAttribute("aria-label", words);
    $("pin-length").textContent = words;
    $("pin-ok").disabled = length === 0;
  }

  async #confirm() {
    const length = await this.#lastKeystroke; // a quick typist is ahead of the host
    if (length > 0 && this.#dialog.open) this.#close(kAnswer.typed);
  }

  #close(answer) {
    this.#dialog.close();
    if (answer !== kAnswer.typed) this.#client.setPin("").catch(() => {});
    this.#answer(answer);
  }
}

/** @param {import("/client/signing-client.js").HostError | null} problem */
function wordsFor(problem) {
  if (!problem?.invalidPin) return texts.of("demo.pin.why");
  if (problem.kind === "pin-not-tried") return texts.of("demo.pin.not-tried");
  return problem.retries > 1 ? texts.of("demo.pin.wrong-many", { count: problem.retries }) : texts.of("demo.pin.wrong");
}
