// All about one plugin.

import { button, element, nameText, section } from "./dom.js";
import { counted, duration, printable } from "./format.js";
import { waitedFor, waitedForBy } from "./model.js";
import { SortedTable, nameColumn, timeColumn } from "./table.js";

const KINDS = {
  json: "JSON description",
  native: "native plugin",
  debug: "debug injection",
  script: "init script",
};

export const RESULTS = {
  activated: "activated",
  failed: "failed",
  skipped: "skipped by the operator",
  never: "never ran",
  unknown: "not known",
};

function factsOf(plugin) {
  const kind = plugin.kind === null ? "no description" : KINDS[plugin.kind];
  const facts = [["Kind", kind + (plugin.executor ? ", with commands" : "")]];
  facts.push(["Result", RESULTS[plugin.result]]);
  if (!plugin.ran) return facts;
  return facts.concat([
    ["Worker", String(plugin.worker)],
    ["Started", duration(plugin.start)],
    ["Ended", duration(plugin.end)],
    ["Ran", duration(plugin.run)],
    ["Waited for milestones", duration(plugin.wait_milestones)],
    ["Waited for a worker", duration(plugin.wait_worker)],
    ["Queue for the CLI executor", duration(plugin.wait_executor)],
    ["Work of its own", duration(plugin.work)],
    ["Slack", duration(plugin.slack)],
  ]);
}

/** "12 ms sooner". */
function effect(microseconds) {
  if (microseconds === 0) return "no sooner";
  return `${duration(Math.abs(microseconds))} ${microseconds > 0 ? "sooner" : "later"}`;
}

function savingsOf(plugin) {
  if (!plugin.ran) return null;
  if (plugin.saves === null) {
    return element(
      "p",
      {},
      "What a faster one would save was not worked out: the boot is large, and that was done only for " +
        "the critical chain and for those with most work.",
    );
  }
  const { half, none, native } = plugin.saves;
  const items = [
    `with half of its work (${duration(Math.floor(plugin.work / 2))}): ${effect(half)}`,
    `with nothing to do: ${effect(none)}`,
  ];
  if (native !== null) items.push(`as a native plugin of the same work: ${effect(native)}`);
  return element(
    "div",
    {},
    element("p", {}, "By simulation with the recorded number of workers, the boot would end"),
    element(
      "ul",
      { class: "savings" },
      items.map((item) => element("li", {}, item)),
    ),
  );
}

function messagesOf(model, plugin) {
  if (!model.has_messages) return element("p", {}, "No messages were given (--messages FILE).");
  if (plugin.messages.length === 0) return element("p", {}, "The messages do not mention it.");
  const lines = plugin.messages.map(([time, text]) =>
    element("li", {}, element("time", {}, printable(time)), " ", nameText(text)),
  );
  return element("ol", { class: "messages" }, lines);
}

function dependencies(caption, rows, columns) {
  if (rows.length === 0) return element("p", {}, `${caption}: nothing.`);
  const options = {
    caption: `${caption}: ${counted(rows.length, "row")}`,
    columns,
    rows,
    step: 10,
  };
  return new SortedTable(options).element;
}

const milestoneColumn = {
  title: "Milestone",
  value: (row) => row.gate.name,
  cell: (row) => nameText(row.gate.name),
};

function waitedForTable(model, plugin) {
  const rows = waitedFor(model, plugin);
  rows.sort((one, other) => other.last - one.last);
  return dependencies("What it waited for", rows, [
    nameColumn("Name", (row) => row.plugin),
    milestoneColumn,
    timeColumn("Ended", (row) => row.plugin?.end ?? null),
    { title: "Ended last", value: (row) => (row.last ? "yes" : "") },
  ]);
}

function waitedForByTable(model, plugin) {
  return dependencies("What waited for it", waitedForBy(model, plugin), [
    nameColumn("Name", (row) => row.plugin),
    milestoneColumn,
    timeColumn("Started", (row) => row.plugin.start),
    timeColumn("Slack", (row) => row.plugin.slack),
  ]);
}

export class PluginPage {
  /** actions: {showOnTimeline, showInGraph}, each called with the plugin. */
  constructor(model, actions) {
    this.model = model;
    this.actions = actions;
    this.content = element("div");
    const title = model.is_daemon_run ? "One script" : "One plugin";
    this.element = section("plugin", title, this.content);
    this.heading = this.element.querySelector("h2");
  }

  show(plugin) {
    const { model, actions } = this;
    const badge = element("span", { class: `badge ${plugin.result}` }, RESULTS[plugin.result]);
    this.heading.replaceChildren(nameText(plugin.name), plugin.result === "unknown" ? "" : badge);
    const facts = factsOf(plugin).map(([name, value]) =>
      element("div", {}, element("dt", {}, name), element("dd", {}, value)),
    );
    this.content.replaceChildren(
      ...[
        this.#controls(plugin, actions),
        plugin.reason === null ? null : element("p", { class: "bad" }, nameText(plugin.reason)),
        element("dl", { class: "facts" }, facts),
        plugin.onChain ? element("p", {}, "It is a link of the critical chain.") : null,
        savingsOf(plugin),
        waitedForTable(model, plugin),
        waitedForByTable(model, plugin),
        element("h3", {}, "Messages"),
        messagesOf(model, plugin),
      ].filter((part) => part !== null),
    );
  }

  #controls(plugin, actions) {
    const { plugins } = this.model;
    const step = (label, other) =>
      other ? element("a", { class: "button", href: other.address }, label) : null;
    return element(
      "div",
      { class: "controls" },
      step("Previous by start", plugins[plugin.number - 1]),
      step("Next by start", plugins[plugin.number + 1]),
      plugin.ran ? button("Show on the time line", () => actions.showOnTimeline(plugin)) : null,
      button("Show in the graph", () => actions.showInGraph(plugin)),
    );
  }
}
