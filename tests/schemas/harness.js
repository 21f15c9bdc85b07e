// What the tests of editors share.
"use strict";
const fs = require("fs");
const path = require("path");

const project = path.join(__dirname, "../..");

/** The text of the settings that docs/editors.md shows, so that what is tried is what people copy. */
function documentedSettings() {
  const text = fs.readFileSync(path.join(project, "docs/editors.md"), "utf8");
  const [, settings] = text.match(/```json\n(\{\n  "files\.associations"[^]*?)```/);
  return settings;
}

/** Runs all tests, prints what is wrong with those that fail, and ends with 0 or 1. */
async function run(tests) {
  let failures = 0;
  for (const [name, test] of Object.entries(tests)) {
    try {
      await test();
    } catch (error) {
      failures += 1;
      console.log(`${name}: ${error.message}`);
    }
  }
  console.log(`${Object.keys(tests).length} tests, ${failures} failed`);
  process.exit(failures === 0 ? 0 : 1);
}

module.exports = { project, documentedSettings, run };
