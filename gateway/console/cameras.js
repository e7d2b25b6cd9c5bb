// The list of all cameras with their health.

import { byId, element, setText } from "./element.js";

/// "ok", "bad" or "off", for its colour.
export const healthOf = ({ link, error }) =>
  link === "lost" || error ? "bad" : link === "up" ? "ok" : "off";

export function holderText({ holder }) {
  if (!holder) return "";
  if (holder.mine) return "you hold it";
  return `held by ${holder.user || "somebody"} at ${holder.from} (${holder.face})`;
}

export function healthText(camera) {
  return [camera.link === "up" ? "connected" : camera.link === "lost" ? "connection lost" : camera.link,
          camera.motion === "unknown" ? "" : camera.motion,
          camera.tour ? `on tour ${camera.tour}` : "", camera.error?.text ?? ""].filter(Boolean).join(" · ");
}

export class CameraList {
  #rows = new Map();
  #list = byId("list");
  #filter = byId("filter");
  #choose;
  #chosen = null;
  #last = "";
  #later = 0;

  constructor(choose) {
    this.#choose = choose;
    this.#filter.addEventListener("input", () => this.#sift());
  }

  clear() {
    this.#rows.clear();
    this.#list.replaceChildren();
    this.#last = "";
  }

  put(camera) {
    let row = this.#rows.get(camera.name);
    if (!row) {
      row = { dot: element("span", { "aria-hidden": "true" }), about: element("span", { class: "about" }) };
      row.button = element("button", { type: "button", click: () => this.#choose(camera.name) }, row.dot,
                           element("span", { class: "name" }, camera.name), row.about);
      row.item = element("li", {}, row.button);
      // They come in the order of their names, but for one that is new to the site.
      const isLast = this.#last <= camera.name;
      const after = isLast ? "" : [...this.#rows.keys()].filter((name) => name > camera.name).sort()[0];
      this.#list.insertBefore(row.item, after ? this.#rows.get(after).item : null);
      this.#rows.set(camera.name, row);
      if (!after) this.#last = camera.name;
      if (camera.name === this.#chosen) row.button.setAttribute("aria-current", "true");
    }
    row.dot.className = "dot " + healthOf(camera);
    row.health = healthOf(camera);
    setText(row.about, [healthText(camera), holderText(camera)].filter(Boolean).join(" · "));
    // Hundreds may change at once.
    this.#later ||= setTimeout(() => this.#sift(), 50);
  }

  remove(name) {
    this.#rows.get(name)?.item.remove();
    this.#rows.delete(name);
    this.#sift();
  }

  /// Which one is shown beside.
  mark(name) {
    this.#chosen = name;
    for (const [each, { button }] of this.#rows)
      each === name ? button.setAttribute("aria-current", "true") : button.removeAttribute("aria-current");
  }

  #sift() {
    clearTimeout(this.#later);
    this.#later = 0;
    const word = this.#filter.value.trim().toLowerCase();
    let shown = 0, ill = 0;
    for (const [name, { item, about, health }] of this.#rows) {
      item.hidden = !`${name} ${about.textContent}`.toLowerCase().includes(word);
      shown += item.hidden ? 0 : 1;
      ill += health === "bad" ? 1 : 0;
    }
    setText(byId("count"), `${word ? `${shown} of ` : ""}${this.#rows.size}${ill ? `, ${ill} with faults` : ""}`);
  }
}
