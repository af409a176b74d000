// The words of one language, for everything written in JavaScript: pages of the extension, the demo.

/** A catalogue is one flat object: key → text with {placeholders}. */
export class Texts {
  /**
   * @param {string} language Such as "es": the catalogue's own.
   * @param {Record<string, string>} catalogue
   * @param {Record<string, string | number>} [common] Values that every text may use, such as the product's name.
   */
  constructor(language, catalogue, common = {}) {
    this.language = language;
    this.catalogue = catalogue;
    this.common = common;
    this.plural = new Intl.PluralRules(language);
  }

  /**
   * The text of a key. With a `count`, "KEY.one" or "KEY.other" where the catalogue has them.
   * @param {string} key @param {Record<string, string | number>} [values]
   */
  of(key, values = {}) {
    const text = this.catalogue[key] ?? this.catalogue[`${key}.${this.plural.select(Number(values.count))}`] ?? this.catalogue[`${key}.other`];
    if (text === undefined) throw new Error(`There is no text ${key}.`);
    const all = { ...this.common, ...values };
    return text.replace(/\{([a-z]+)\}/g, (placeholder, name) => {
      const value = all[name] ?? placeholder;
      return typeof value === "number" ? value.toLocaleString(this.language) : value;
    });
  }

  /** What happened and what to do, for a kind of failure that the client tells. @param {string} kind */
  error(kind, values = {}) {
    const known = `error.${kind}.summary` in this.catalogue ? kind : "host-ended";
    return { summary: this.of(`error.${known}.summary`, values), advice: this.of(`error.${known}.advice`, values) };
  }

  /** Puts texts where the page's elements name them: data-text for content, data-label for a name that is heard. */
  fill(document) {
    document.documentElement.lang = this.language;
    for (const element of document.querySelectorAll("[data-text]")) element.textContent = this.of(element.dataset.text);
    for (const element of document.querySelectorAll("[data-label]")) element.setAttribute("aria-label", this.of(element.dataset.label));
  }
}

/**
 * The catalogue for a language tag as browsers and systems give it, such as "es-CR"; English for what has none.
 * @param {string} tag @returns {"en" | "es"}
 */
export const languageOf = (tag) => (/^es\b/i.test(tag) ? "es" : "en");
