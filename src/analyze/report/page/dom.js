// Elements of the page.

import { printable } from "./format.js";

/** An element with attributes ("on..." are listeners, null leaves one out) and children. */
export function element(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (name.startsWith("on")) made.addEventListener(name.slice(2), value);
    else if (value !== null && value !== false) made.setAttribute(name, value);
  }
  made.append(...children.flat().filter((child) => child !== null));
  return made;
}

/** A name as text, whatever it holds; its direction stays its own. */
export function nameText(name) {
  return element("bdi", { class: "name" }, printable(name));
}

/** A link to a plugin's page. */
export function pluginLink(plugin) {
  return element("a", { href: plugin.address }, nameText(plugin.name));
}

/** A titled part of the page, with an entry in the list of sections. */
export function section(id, title, ...children) {
  const heading = element("h2", { id: `${id}-title`, tabindex: "-1" }, title);
  return element("section", { id, "aria-labelledby": `${id}-title` }, heading, ...children);
}

export function button(label, act, attributes = {}) {
  return element("button", { type: "button", onclick: act, ...attributes }, label);
}

/** Tells those who do not see the page what has changed. */
export function announce(text) {
  document.getElementById("announcement").textContent = text;
}
