// Finding a plugin by a part of its name, or by a milestone that it provides.

import { element, nameText } from "./dom.js";

const MOST = 12;

/** The best matches: {plugin, milestone}; a milestone only where that is what matches. */
export function matches(model, text) {
  const wanted = text.toLowerCase();
  if (wanted === "") return [];
  const found = [];
  for (const plugin of model.plugins) {
    const place = plugin.name.toLowerCase().indexOf(wanted);
    if (place >= 0) found.push({ plugin, milestone: null, rank: place === 0 ? 0 : 1 });
    for (const gate of place >= 0 ? [] : plugin.provides) {
      const milestone = model.gates[gate].name;
      if (milestone.toLowerCase().includes(wanted)) found.push({ plugin, milestone, rank: 2 });
    }
  }
  const size = (entry) => entry.plugin.name.length;
  found.sort((one, other) => one.rank - other.rank || size(one) - size(other));
  return found.slice(0, MOST);
}

export class Search {
  constructor(model, open) {
    this.model = model;
    this.open = open;
    this.found = [];
    this.current = -1;
    this.list = element("ul", {
      id: "found",
      role: "listbox",
      "aria-label": "Matches",
      hidden: "",
    });
    this.input = element("input", {
      id: "wanted",
      type: "search",
      role: "combobox",
      autocomplete: "off",
      spellcheck: "false",
      "aria-autocomplete": "list",
      "aria-expanded": "false",
      "aria-controls": "found",
      "aria-keyshortcuts": "/",
      oninput: () => this.#find(),
      onkeydown: (event) => this.#key(event),
      onblur: () => this.#show([]),
    });
    const label = element("label", { for: "wanted" }, `Find a ${model.noun} (key /)`);
    this.element = element("div", { class: "search" }, label, this.input, this.list);
  }

  focus() {
    this.input.focus();
    this.input.select();
  }

  #find() {
    this.#show(matches(this.model, this.input.value));
  }

  #show(found) {
    this.found = found;
    this.list.replaceChildren(...found.map((entry, number) => this.#option(entry, number)));
    this.list.hidden = found.length === 0;
    this.input.setAttribute("aria-expanded", String(found.length > 0));
    this.#mark(found.length > 0 ? 0 : -1);
  }

  #option({ plugin, milestone }, number) {
    const option = element("li", { id: `found-${number}`, role: "option" }, nameText(plugin.name));
    if (milestone !== null) option.append(" provides ", nameText(milestone));
    // Before the field loses the focus, and with it the list.
    option.addEventListener("pointerdown", (event) => {
      event.preventDefault();
      this.#choose(number);
    });
    return option;
  }

  #mark(number) {
    this.current = number;
    [...this.list.children].forEach((option, index) => {
      option.setAttribute("aria-selected", String(index === number));
    });
    if (number < 0) this.input.removeAttribute("aria-activedescendant");
    else this.input.setAttribute("aria-activedescendant", `found-${number}`);
    this.list.children[number]?.scrollIntoView({ block: "nearest" });
  }

  #choose(number) {
    const entry = this.found[number];
    if (!entry) return;
    this.input.value = "";
    this.#show([]);
    this.open(entry.plugin);
  }

  #key(event) {
    const count = this.found.length;
    if (event.key === "ArrowDown" && count > 0) this.#mark((this.current + 1) % count);
    else if (event.key === "ArrowUp" && count > 0) this.#mark((this.current + count - 1) % count);
    else if (event.key === "Enter") this.#choose(this.current);
    else if (event.key === "Escape") {
      this.input.value = "";
      this.#show([]);
    } else return;
    event.preventDefault();
  }
}
