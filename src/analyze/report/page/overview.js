// What one wants to know first: how long it took, and what went wrong.

import { element, nameText, pluginLink, section } from "./dom.js";
import { counted, duration, percent, printable } from "./format.js";
import { executorLoad } from "./model.js";

const MOST_FAILURES = 20; // that are not folded

const total = (entries, value) => entries.reduce((sum, entry) => sum + value(entry), 0);

/** The boot in a few numbers. */
export function factsOf(model) {
  const ran = model.plugins.filter((plugin) => plugin.ran);
  const { makespan, workers, kernel_us: kernel } = model.boot;
  const facts = [
    [model.is_daemon_run ? "The run took" : "The boot took", duration(makespan)],
    ["Workers", String(workers)],
  ];
  if (kernel !== null) facts.push(["The kernel, before", duration(kernel)]);
  facts.push([`${model.is_daemon_run ? "Scripts" : "Plugins"} that ran`, String(ran.length)]);
  if (makespan > 0) {
    const load = executorLoad(ran);
    const executorBusy = total(load, (part) => part.end - part.start);
    const busy = total(ran, (plugin) => plugin.run);
    facts.push(["Workers busy", percent(busy / (workers * makespan))]);
    facts.push(["CLI executor busy", percent(executorBusy / makespan)]);
  }
  const entries = facts.map(([name, value]) =>
    element("div", {}, element("dt", {}, name), element("dd", {}, value)),
  );
  return element("dl", { class: "facts" }, entries);
}

function list(items) {
  return element(
    "ul",
    {},
    items.map((item) => element("li", {}, item)),
  );
}

function withResult(model, result) {
  return model.plugins.filter((plugin) => plugin.result === result);
}

/** A title and a list that is folded when it is long. */
function folded(title, items) {
  const open = items.length <= 10 ? "" : null;
  return element("details", { open }, element("summary", {}, title), list(items));
}

function failures(model) {
  const failed = withResult(model, "failed");
  if (failed.length > 0) {
    const items = failed.map((plugin) => [pluginLink(plugin), ": ", nameText(plugin.reason)]);
    const title = counted(failed.length, `failed ${model.noun}`);
    const more = items.slice(MOST_FAILURES);
    const rest = more.length > 0 ? folded(`${more.length} more`, more) : null;
    const first = list(items.slice(0, MOST_FAILURES));
    return element("div", { class: "bad" }, element("h3", {}, title), first, rest);
  }
  const known = model.has_messages;
  return element(
    "p",
    {},
    known
      ? `The messages tell of no ${model.noun} that failed.`
      : "Whether anything failed is not known: no messages were given (--messages FILE).",
  );
}

/** Failures, and what did not run. */
export function problemsOf(model) {
  const parts = [failures(model)];
  const skipped = withResult(model, "skipped");
  const never = withResult(model, "never");
  if (skipped.length > 0) {
    const title = `${counted(skipped.length, model.noun)} skipped by the operator`;
    parts.push(folded(title, skipped.map(pluginLink)));
  }
  if (never.length > 0) {
    parts.push(folded(`${counted(never.length, model.noun)} never ran`, never.map(pluginLink)));
  }
  if (model.absent.length > 0) {
    const items = model.absent.map(({ name, reason }) => [
      nameText(name),
      ": " + printable(reason),
    ]);
    parts.push(folded(`${counted(items.length, model.noun)} had no part in it`, items));
  }
  if (model.notes.length > 0) {
    parts.push(folded("What is odd about the log", model.notes.map(printable)));
  }
  return section("problems", "Failures", parts);
}
