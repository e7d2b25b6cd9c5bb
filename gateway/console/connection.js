// How a camera is reached, for its administrators: a form made of what the driver says of its options.

import { byId, element, setText, show } from "./element.js";
import { pathOf, request } from "./live.js";

export class Connection {
  #section = byId("connection");
  #details = this.#section.querySelector("details");
  #form = this.#section.querySelector("form");
  #note = this.#section.querySelector("p");
  #camera = null;
  #readers = []; // of the fields: what they would change

  constructor() {
    this.#details.addEventListener("toggle", () => this.#details.open && this.#load());
    this.#form.addEventListener("submit", (event) => {
      event.preventDefault();
      this.#save();
    });
  }

  follow(camera) {
    show(this.#section, camera.role === "administrator");
    if (this.#camera === camera.name) return;
    this.#camera = camera.name;
    this.#details.open = false;
    this.#form.replaceChildren();
    setText(this.#note, "");
  }

  async #load() {
    const camera = this.#camera;
    setText(this.#note, "");
    try {
      const connection = await request("GET", pathOf(camera) + "/connection");
      if (camera === this.#camera) this.#build(connection);
    } catch (problem) {
      if (camera === this.#camera) setText(this.#note, problem.message);
    }
  }

  async #save() {
    const camera = this.#camera;
    const change = {}, options = {};
    for (const read of this.#readers) read(change, options);
    if (Object.keys(options).length) change.options = options;
    if (!Object.keys(change).length) return setText(this.#note, "Nothing was changed.");
    setText(this.#note, "Saving …");
    try {
      const connection = await request("PUT", pathOf(camera) + "/connection", change);
      if (camera !== this.#camera) return;
      connection ? this.#build(connection) : await this.#load();
      setText(this.#note, "Saved. The camera is connected anew.");
    } catch (problem) {
      if (camera === this.#camera) setText(this.#note, `Nothing was saved: ${problem.message}`);
    }
  }

  #build({ driver, address, line, user, password, options }) {
    this.#readers = [];
    const own = (label, name, value, attributes = {}) => {
      const input = element("input", { autocomplete: "off", spellcheck: "false", ...attributes });
      input.value = value;
      this.#readers.push((change) => {
        if (input.value !== value) change[name] = input.value;
      });
      return element("label", {}, label, input);
    };
    const fields = [line ? own("Serial line", "line", line)
                         : own("Address", "address", address ?? "", { inputmode: "url" }),
                    own("User", "user", user ?? "", { autocapitalize: "none" }),
                    own("Password", "password", "", { type: "password", autocomplete: "new-password",
                                                      placeholder: password || "as it is" })];
    this.#form.replaceChildren(element("p", { class: "note" }, `Driver ${driver}`), ...fields,
                               ...options.map((option) => this.#field(option)),
                               element("button", {}, "Save and connect anew"));
  }

  #field(option) {
    const { name, description, type, least, greatest, choices, value } = option;
    const now = value ?? option.default;
    const isChoice = choices?.length > 0;
    let input;
    if (isChoice) {
      input = element("select", {}, ...choices.map((choice, i) => element("option", { value: i }, String(choice))));
      input.value = String(choices.findIndex((choice) => choice === now));
    } else if (type === "boolean") {
      input = element("input", { type: "checkbox" });
      input.checked = Boolean(now);
    } else {
      input = element("input", type === "integer" ? { type: "number", step: 1, min: least, max: greatest }
                                                  : { type: "text", autocomplete: "off", spellcheck: "false" });
      input.value = now ?? "";
    }
    const read = () => (isChoice ? choices[input.value] : type === "boolean" ? input.checked
      : input.value === "" && type === "integer" ? null : type === "integer" ? Number(input.value) : input.value);
    const before = read();
    this.#readers.push((_, options) => {
      if (read() !== before) options[name] = read() ?? null;
    });
    const range = type === "integer" && least !== undefined ? ` (${least} to ${greatest})` : "";
    input.id = "option-" + name;
    input.setAttribute("aria-describedby", input.id + "-about");
    return element("div", { class: "option" }, element("label", { for: input.id }, name), input,
                   element("p", { class: "note", id: input.id + "-about" }, (description ?? "") + range));
  }
}
