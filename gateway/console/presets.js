// Presets with their names, and tours.

import { byId, element, show } from "./element.js";

const PAUSE = 5000; // ms between looks at whether others have saved some

export class Presets {
  #live;
  #wish;
  #camera = null;
  #presets = [];
  #version = null;
  #count = null;
  #later = 0;
  #drawn = "";

  /// `wish(label, word, body)` has the camera do something, and tells what came of it.
  constructor(live, wish) {
    this.#live = live;
    this.#wish = wish;
    byId("unnamed").addEventListener("change", () => this.#draw());
    byId("save").addEventListener("submit", (event) => {
      event.preventDefault();
      this.#save(event.target.elements);
    });
  }

  /// To be told of each change of the camera that is shown.
  async follow(camera) {
    const isNew = this.#camera?.name !== camera.name;
    this.#camera = camera;
    show(byId("presets"), camera.can.presets);
    this.#drawTours();
    if (isNew) {
      this.#presets = [];
      this.#draw();
    }
    if (!camera.can.presets) return;
    if (isNew || camera.preset_count !== this.#count) {
      await this.refresh();
    } else {
      // That it changed does not say what did.
      if (camera.version !== this.#version) this.#later ||= setTimeout(() => this.refresh(), PAUSE);
      if (this.#drawn !== camera.role) this.#draw();
    }
  }

  async refresh() {
    const { name, version, preset_count } = this.#camera;
    clearTimeout(this.#later);
    this.#later = 0;
    this.#version = version;
    this.#count = preset_count;
    try {
      const { presets } = await this.#live.ask(name, "presets");
      if (this.#camera.name !== name || JSON.stringify(presets) === JSON.stringify(this.#presets)) return;
      this.#presets = presets;
      this.#draw();
    } catch {
      this.#version = null; // the connection's loss is told by others
    }
  }

  #draw() {
    const { name, role } = this.#camera;
    this.#drawn = role;
    const isAdministrator = role === "administrator";
    const unnamed = this.#presets.filter((preset) => !preset.named);
    const shown = this.#presets.filter((preset) => preset.named || byId("unnamed").checked);
    show(byId("unnamed-label"), unnamed.length > 0);
    const rows = shown.map((preset) => {
      const item = element("li", {}, element("span", { class: "name" }, preset.name),
        element("button", { type: "button", disabled: role === "viewer", "aria-label": `Go to ${preset.name}`,
                            click: () => this.#wish(`go to ${preset.name}`, "go", { preset: preset.token }) }, "Go"));
      if (isAdministrator && preset.named && preset.number !== null)
        item.append(element("button", { type: "button", "aria-label": `Forget the name ${preset.name}`,
                                        click: () => this.#forget(preset) }, "Forget"));
      return item;
    });
    this.#replace(byId("preset-list"), rows.length ? rows : [element("li", { class: "note" }, "None has a name.")]);

    show(byId("save"), isAdministrator);
    const places = byId("save").elements.preset, before = places.value;
    places.replaceChildren(element("option", { value: "" }, "a free one"),
      ...this.#presets.filter((preset) => preset.number !== null).map((preset) =>
        element("option", { value: preset.token }, preset.named ? `${preset.name} (overwritten)` : preset.name)));
    if (places.querySelector(`option[value="${CSS.escape(before)}"]`)) places.value = before;
    places.setAttribute("aria-label", `Preset of ${name}`);
  }

  /// Keeps the focus where it was, which would be lost with its button.
  #replace(list, items) {
    const label = list.contains(document.activeElement) ? document.activeElement.getAttribute("aria-label") : null;
    list.replaceChildren(...items);
    if (label) list.querySelector(`[aria-label="${CSS.escape(label)}"]`)?.focus();
  }

  async #save({ name, preset }) {
    const old = this.#presets.find((each) => each.token === preset.value);
    if (old?.named && !confirm(`Overwrite the preset ${old.name}?`)) return;
    const body = {};
    if (name.value.trim()) body.name = name.value.trim();
    if (old) body.preset = old.token;
    const what = `save ${body.name ?? old?.name ?? "a preset"}`;
    if (await this.#wish(what, "save", body)) name.value = preset.value = "";
    this.refresh();
  }

  async #forget({ name, token }) {
    await this.#wish(`forget the name ${name}`, "forget", { preset: token });
    this.refresh();
  }

  #drawTours() {
    const { tours, tour, role } = this.#camera;
    show(byId("tours"), tours.length > 0);
    const drawn = JSON.stringify([tours, tour, role]);
    const list = byId("tour-list");
    if (list.dataset.drawn === drawn) return;
    list.dataset.drawn = drawn;
    this.#replace(list, tours.map((name) => element("li", {}, element("span", { class: "name" }, name),
      name === tour
        ? element("button", { type: "button", disabled: role === "viewer", "aria-label": `End tour ${name}`,
                              click: () => this.#wish(`end tour ${name}`, "end_tour") }, "End")
        : element("button", { type: "button", disabled: role === "viewer", "aria-label": `Start tour ${name}`,
                              click: () => this.#wish(`start tour ${name}`, "tour", { name }) }, "Start"))));
  }
}
