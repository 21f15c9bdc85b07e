// What the numbers mean, and whose work is in the page.

import libraries from "libraries.json";
import texts from "./licences.txt";
import { element } from "./dom.js";

const MEANINGS = [
  [
    "Waited for milestones",
    "from the earliest start until the last of what it waits for had ended",
  ],
  ["Waited for a worker", "from then until it started: every worker was busy with something else"],
  ["Run", "from its start to its end"],
  ["Queue for the CLI executor", "the part of its run in which others had the CLI executor"],
  ["Work", "the rest of its run: what it would have taken alone"],
  ["Slack", "by how much its end could be later without the boot's being later"],
];

export function aboutPage() {
  const meanings = MEANINGS.flatMap(([name, text]) => [
    element("dt", {}, name),
    element("dd", {}, text),
  ]);
  const names = libraries.map(({ name, version, license }) =>
    element("li", {}, `${name} ${version} (${license})`),
  );
  return [
    element("h2", {}, "About this page"),
    element(
      "p",
      {},
      "Made by bootforge-analyze report. It loads nothing, and holds all that it shows.",
    ),
    element(
      "details",
      {},
      element("summary", {}, "What the numbers mean"),
      element("dl", {}, meanings),
    ),
    element(
      "details",
      {},
      element("summary", {}, "Libraries in this page, and their licences"),
      element("ul", {}, names),
      element("pre", { tabindex: "0" }, texts),
    ),
  ];
}
