// The page of a recorded boot.

import { aboutPage } from "./about.js";
import { element, section } from "./dom.js";
import { Graph } from "./graph.js";
import { serve } from "./layout.js";
import { readModel } from "./model.js";
import { factsOf, problemsOf } from "./overview.js";
import { PluginPage } from "./plugin_page.js";
import { Search } from "./search.js";
import { allSection, chainSection, executorSection, savingsSection } from "./tables.js";
import { Timeline } from "./timeline.js";

/** The plugin of an address like "#plugin-12". */
function pluginAt(model, address) {
  const match = /^#plugin-(\d+)$/.exec(address);
  return match ? model.plugins[Number(match[1])] : undefined;
}

/** What people would look at first. */
function mostInteresting(model) {
  const failed = model.plugins.find((plugin) => plugin.result === "failed");
  const chain = model.chain.map((link) => model.plugins[link.plugin]);
  const longest = chain.sort((one, other) => other.run - one.run)[0];
  return failed ?? longest ?? model.plugins[0];
}

function linksTo(sections) {
  return sections.map((part) => {
    const title = part.querySelector("h2").textContent;
    return element("a", { href: `#${part.id}` }, title);
  });
}

function isTyping(event) {
  return /^(INPUT|SELECT|TEXTAREA)$/.test(event.target.tagName);
}

function start() {
  const model = readModel(JSON.parse(document.getElementById("data").textContent));
  const open = (plugin) => {
    if (location.hash === plugin.address) show(true);
    else location.hash = plugin.address;
  };
  const timeline = new Timeline(model, (plugin) => choose(plugin), open);
  const graph = new Graph(model);
  const page = new PluginPage(model, {
    showOnTimeline: (plugin) => timeline.show(plugin),
    showInGraph: (plugin) => graph.show(plugin),
  });
  const search = new Search(model, open);

  const choose = (plugin) => {
    page.show(plugin);
    timeline.select(plugin);
    graph.select(plugin);
  };
  /** Shows what the address names; people who followed a link are taken there. */
  const show = (followed) => {
    const plugin = pluginAt(model, location.hash);
    if (!plugin) return;
    choose(plugin);
    if (followed) page.heading.focus();
    page.element.scrollIntoView({ block: "start" });
  };

  const sections = [problemsOf(model)];
  if (model.boot.workers > 0) sections.push(timeline.element);
  if (model.plugins.length > 0) sections.push(page.element);
  if (model.boot.workers > 0) {
    sections.push(
      chainSection(model),
      savingsSection(model),
      executorSection(model),
      graph.element,
    );
  }
  sections.push(allSection(model));

  document.getElementById("summary").textContent = model.summary;
  document.getElementById("search").replaceWith(search.element);
  document.getElementById("sections").append(...linksTo(sections));
  const facts = section("facts", "In short", factsOf(model));
  document.getElementById("content").append(facts, ...sections);
  document.getElementById("about").append(...aboutPage());

  const first = mostInteresting(model);
  if (first) choose(first);
  show(false);
  addEventListener("hashchange", () => show(true));
  addEventListener("keydown", (event) => {
    if (event.key !== "/" || isTyping(event)) return;
    event.preventDefault();
    search.focus();
  });
  const redraw = () => timeline.draw();
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", redraw);
  const print = (printing) => () => {
    document.documentElement.classList.toggle("printing", printing);
    redraw();
  };
  addEventListener("beforeprint", print(true));
  addEventListener("afterprint", print(false));
  requestAnimationFrame(() => performance.mark("usable"));
}

if (typeof document === "undefined") serve(self);
else start();
