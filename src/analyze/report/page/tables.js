// The sections that are tables.

import { element, nameText, pluginLink, section } from "./dom.js";
import { counted, duration, percent } from "./format.js";
import { executorLoad } from "./model.js";
import { RESULTS } from "./plugin_page.js";
import { SortedTable, nameColumn, timeColumn } from "./table.js";

/** What the start of a link waited for, in words. */
function reasonOf(model, link) {
  if (link.after === null) return "the start of the boot";
  const before = pluginLink(model.plugins[link.after.plugin]);
  if (link.after.kind === "worker") {
    return element("span", {}, `worker ${model.plugins[link.plugin].worker}, held by `, before);
  }
  return element("span", {}, nameText(link.after.milestone), ", from ", before);
}

export function chainSection(model) {
  const links = model.chain.map((link, step) => ({ ...link, step: step + 1 }));
  const running = links.reduce((sum, link) => sum + link.run, 0);
  const columns = [
    { title: "Step", value: (link) => link.step, numeric: true },
    nameColumn("Name", (link) => model.plugins[link.plugin]),
    timeColumn("Start", (link) => link.start),
    timeColumn("Gap before", (link) => link.gap),
    timeColumn("Run", (link) => link.run),
    {
      title: "Because it waited for",
      value: (link) => link.after?.milestone ?? link.after?.kind ?? null,
      cell: (link) => reasonOf(model, link),
    },
  ];
  const text =
    `What kept it from ending sooner: ${duration(running)} of ${duration(model.boot.makespan)} in ` +
    `${counted(links.length, "step")} that had to follow one another. Links through a worker say that ` +
    "another worker would have helped; links through a milestone say that it would not.";
  const caption = "The critical chain, first to last";
  const table = new SortedTable({ caption, columns, rows: links, sort: 0, step: 100 });
  return section("chain", "Critical chain", element("p", {}, text), table.element);
}

function modelText(model) {
  const { error } = model.model;
  if (error === null) return "";
  const amount = (100 * Math.abs(error)).toFixed(1);
  if (amount === "0.0") return " The simulated boot takes as long as the recorded one.";
  return (
    ` The simulation of the unchanged boot is ${amount} % too ${error < 0 ? "fast" : "slow"}: trust ` +
    "the other numbers no further than that."
  );
}

export function savingsSection(model) {
  const rows = model.plugins.filter((plugin) => plugin.saves !== null);
  const columns = [
    nameColumn("Name"),
    timeColumn("Work", (plugin) => plugin.work),
    timeColumn("Slack", (plugin) => plugin.slack),
    timeColumn("Half of its work saves", (plugin) => plugin.saves.half),
    timeColumn("None of it saves", (plugin) => plugin.saves.none),
  ];
  const left = model.plugins.filter((plugin) => plugin.ran && plugin.saves === null).length;
  const text =
    "By how much the boot would end sooner if one of them did half of its work, or none: simulated " +
    "with the orchestrator's own choice and the recorded number of workers, the others unchanged. " +
    "Less than 0: another order would suit the workers less." +
    modelText(model) +
    (left > 0
      ? ` Worked out for the critical chain and those with most work; ${counted(left, "other")} left out.`
      : "");
  const caption = "What a faster one would save";
  const table = new SortedTable({ caption, columns, rows, sort: 3, descending: true, step: 10 });
  return section("savings", "Worth making faster", element("p", {}, text), table.element);
}

export function executorSection(model) {
  const users = model.plugins.filter((plugin) => plugin.executor && plugin.ran);
  const load = executorLoad(users);
  const busy = load.reduce((sum, part) => sum + part.end - part.start, 0);
  const queue = users.reduce((sum, plugin) => sum + plugin.wait_executor, 0);
  const share = model.boot.makespan > 0 ? percent(busy / model.boot.makespan) : "0 %";
  const text =
    "One process carries out all commands, one at a time. It was busy for " +
    `${duration(busy)} (${share}) with ${counted(users.length, "plugin")}, which queued ` +
    `${duration(queue)} in all. Where it is busy most of the time, more workers cannot help: shorten ` +
    "commands, or turn what stands at the top of this table into native plugins.";
  const rows = users.filter((plugin) => plugin.wait_executor > 0);
  const columns = [
    nameColumn("Name"),
    timeColumn("Run", (plugin) => plugin.run),
    timeColumn("Queue", (plugin) => plugin.wait_executor),
    timeColumn("Work", (plugin) => plugin.work),
    timeColumn("As a native plugin saves", (plugin) => plugin.saves?.native ?? null),
  ];
  const caption = "Plugins that queued for the CLI executor";
  const table = new SortedTable({ caption, columns, rows, sort: 4, descending: true, step: 10 });
  return section("executor", "Commands", element("p", {}, text), table.element);
}

function choice(label, id, values, onchange) {
  const options = values.map((value) => element("option", { value }, value || "all"));
  return [element("label", { for: id }, label), element("select", { id, onchange }, options)];
}

/** Every plugin, filtered as people want. */
export function allSection(model) {
  const columns = [
    nameColumn("Name"),
    { title: "Result", value: (plugin) => RESULTS[plugin.result] },
    { title: "Kind", value: (plugin) => plugin.kind },
    timeColumn("Start", (plugin) => plugin.start),
    timeColumn("Waited", (plugin) => plugin.wait_milestones),
    timeColumn("For worker", (plugin) => plugin.wait_worker),
    timeColumn("Run", (plugin) => plugin.run),
    timeColumn("Executor", (plugin) => plugin.wait_executor),
    timeColumn("Work", (plugin) => plugin.work),
    timeColumn("Slack", (plugin) => plugin.slack),
    { title: "Worker", value: (plugin) => plugin.worker, numeric: true },
  ];
  const title = model.is_daemon_run ? "All scripts" : "All plugins";
  const table = new SortedTable({
    caption: `${title}, with their times`,
    columns,
    rows: model.plugins,
    sort: 3,
    step: 50,
  });
  const count = element("p", { role: "status" });
  const value = (id) => document.getElementById(id)?.value ?? "";
  const filter = () => {
    const wanted = value("filter-name").toLowerCase();
    const rows = model.plugins.filter(
      (plugin) =>
        plugin.name.toLowerCase().includes(wanted) &&
        (value("filter-result") === "" || plugin.result === value("filter-result")) &&
        (value("filter-kind") === "" || plugin.kind === value("filter-kind")),
    );
    table.setRows(rows);
    count.textContent = `${rows.length.toLocaleString("en")} of ${counted(model.plugins.length, model.noun)}`;
  };
  const present = (key) => ["", ...new Set(model.plugins.map((plugin) => plugin[key] ?? ""))];
  const distinct = (key) => [...new Set(present(key))];
  const controls = element(
    "div",
    { class: "controls" },
    element("label", { for: "filter-name" }, "Name contains"),
    element("input", { id: "filter-name", type: "search", oninput: filter }),
    choice("Result", "filter-result", distinct("result"), filter),
    choice("Kind", "filter-kind", distinct("kind"), filter),
  );
  count.textContent = counted(model.plugins.length, model.noun);
  return section("all", title, controls, count, table.element);
}
