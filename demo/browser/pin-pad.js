// The PIN pad. Keys go to the host one by one; the page only ever knows how many there are.

const $ = (id) => document.getElementById(id);
const kLeastDots = 4;

export class PinPad {
  #client;
  #dialog = $("pin-pad");
  /** @type {((confirmed: boolean) => void) | null} */ #answer = null;
  /** @type {((error: Error) => void) | null} */ #fail = null;
  #length = 0;
  #lastKeystroke = Promise.resolve();

  /** @param {import("/client/signing-client.js").SigningClient} client */
  constructor(client) {
    this.#client = client;
    for (const key of ["1", "2", "3", "4", "5", "6", "7", "8", "9", "", "0", "⌫"]) {
      const button = document.createElement(key ? "button" : "span");
      button.textContent = key;
      if (key === "⌫") button.setAttribute("aria-label", "Delete the last character");
      if (key) {
        button.type = "button";
        button.onclick = () => (key === "⌫" ? this.#delete() : this.#type(key));
      }
      $("keys").append(button);
    }
    $("pin-ok").onclick = () => this.#confirm();
    $("pin-cancel").onclick = () => this.#close(false);
    this.#dialog.addEventListener("cancel", (event) => { event.preventDefault(); this.#close(false); });
    this.#dialog.addEventListener("keydown", (event) => this.#onKey(event));
  }

  /**
   * Asks for the PIN; what was typed then waits in the host for the next token command.
   * @param {import("/client/signing-client.js").HostError} reason
   * @returns {Promise<boolean>} false when the person gave up
   */
  async ask(reason) {
    this.#show(await this.#client.setPin(""));
    const message = $("pin-message");
    message.className = reason.invalidPin ? "bad" : "";
    message.textContent = reason.invalidPin ? wrongPinWords(reason.retries) : "Your card asks for it before it signs.";
    this.#dialog.classList.toggle("shake", reason.invalidPin);
    this.#dialog.showModal();
    $("keys").firstElementChild.focus();
    return new Promise((resolve, reject) => { this.#answer = resolve; this.#fail = reject; });
  }

  #onKey(event) {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key === "Enter" && event.target !== $("pin-cancel")) this.#confirm();
    else if (event.key === "Backspace") this.#delete();
    else if (/^[!-~]$/.test(event.key)) this.#type(event.key);
    else return;
    event.preventDefault();
  }

  #type(character) {
    this.#lastKeystroke = this.#run(this.#client.typePinCharacter(character));
  }

  #delete() {
    this.#lastKeystroke = this.#run(this.#client.deletePinCharacter());
  }

  async #run(keystroke) {
    try {
      this.#show(await keystroke);
    } catch (error) {
      this.#dialog.close();
      this.#fail?.(error);
    }
  }

  #show(length) {
    this.#length = length;
    const dots = Array.from({ length: Math.max(length, kLeastDots) }, (_, i) => {
      const dot = document.createElement("i");
      dot.classList.toggle("empty", i >= length);
      return dot;
    });
    $("dots").replaceChildren(...dots);
    $("pin-length").textContent = `${length} ${length === 1 ? "character" : "characters"} typed`;
    $("pin-ok").disabled = length === 0;
  }

  async #confirm() {
    await this.#lastKeystroke; // a quick typist is ahead of the host
    if (this.#length > 0) this.#close(true);
  }

  #close(confirmed) {
    this.#dialog.close();
    if (!confirmed) this.#client.setPin("").catch(() => {});
    this.#answer?.(confirmed);
  }
}

function wrongPinWords(retries) {
  const count = retries === 1 ? "The PIN was wrong." : `The PIN was wrong ${retries} times.`;
  return `${count} Most cards lock after three.`;
}
