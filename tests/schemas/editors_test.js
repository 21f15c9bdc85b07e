// What an editor makes of the schemas, by the JSON language service that several editors share:
// node editors_test.js PACKAGES DRAWN, where PACKAGES is the folder of get_packages and DRAWN the
// file that agreement_test.py wrote. Exit status 0, or 1 with what is wrong.
"use strict";
const assert = require("assert");
const fs = require("fs");
const path = require("path");

const modules = path.join(path.resolve(process.argv[2]), "node_modules");
const service = require(path.join(modules, "vscode-json-languageservice"));
const { project, documentedSettings, run } = require("./harness.js");
const { DiagnosticSeverity } = service;

const settings = JSON.parse(documentedSettings());

/** The other editors' settings are for the same files. */
function checkOtherEditors() {
  const text = fs.readFileSync(path.join(project, "docs/editors.md"), "utf8");
  for (const language of ["vim", "elisp"]) {
    const [, block] = text.match(new RegExp("```" + language + "\\n([^]*?)```"));
    const quoted = [...block.matchAll(/["'](\/[^"']*\*\.json|file:[^"']*)["']/g)].map(([, one]) => one);
    const same = settings["json.schemas"].flatMap(({ fileMatch, url }) => [...fileMatch, url]);
    assert.deepStrictEqual(quoted, same, language);
  }
}

checkOtherEditors();
const languages = service.getLanguageService({
  clientCapabilities: service.ClientCapabilities.LATEST,
  // What is installed there stands here.
  schemaRequestService: async (uri) => {
    assert(uri.startsWith("file:///usr/share/bootforge/schemas/"), uri);
    return fs.readFileSync(path.join(project, "share/schemas", path.basename(uri)), "utf8");
  },
});
languages.configure({
  schemas: settings["json.schemas"].map(({ fileMatch, url }) => ({ fileMatch, uri: url })),
});

const PLUGIN = "file:///image/usr/libexec/bootforge/plugins/net.json";
const COMMANDS = "file:///image/usr/lib/nimbus/hypcli/net.json";

function open(uri, text) {
  const document = service.TextDocument.create(uri, "jsonc", 1, text);
  return { document, json: languages.parseJSONDocument(document) };
}

/** What an editor says about a file with comments. */
async function diagnose(uri, text) {
  const { document, json } = open(uri, text);
  const options = { comments: "ignore", trailingCommas: "warning" };
  const found = await languages.doValidation(document, json, options);
  return found.map((one) => ({
    severity: one.severity === DiagnosticSeverity.Error ? "error" : "warning",
    code: one.code,
    message: one.message,
    text: document.getText(one.range),
    line: one.range.start.line + 1,
  }));
}

/** The text without its "|", and where that was. */
function marked(uri, text) {
  const at = text.indexOf("|");
  const { document, json } = open(uri, text.slice(0, at) + text.slice(at + 1));
  return { document, json, position: document.positionAt(at) };
}

async function labels(uri, text) {
  const { document, json, position } = marked(uri, text);
  const list = await languages.doComplete(document, position, json);
  return list.items.map((item) => item.label).sort();
}

async function hover(uri, text) {
  const { document, json, position } = marked(uri, text);
  const shown = await languages.doHover(document, position, json);
  return shown === null ? "" : [].concat(shown.contents).join("\n");
}

/** Every description in a schema, with the path to it. */
function members(node, place = "") {
  const found = [];
  for (const [key, entry] of Object.entries(node)) {
    if (key === "properties" && !/\/(if|then)(\/|$)|metadata_(from|below)/.test(place)) {
      for (const [name, member] of Object.entries(entry)) found.push([`${place}/${name}`, member]);
    }
    if (typeof entry === "object" && key !== "defaultSnippets") {
      found.push(...members(entry, `${place}/${key}`));
    }
  }
  return found;
}

const METADATA =
  '"version": 3, "requires": [], "provides": [], "run_once": false, "plugin_version": "1"';
const whole = (metadata, operations = '"start": []') =>
  `{"metadata": {${metadata}}, "operations": {${operations}}}`;
const commandFile = (command) => `{"namespace": "net", "commands": {"up": ${command}}}`;

const tests = {
  async KeysOfMetadataAreOffered() {
    assert.deepStrictEqual(await labels(PLUGIN, whole("|")), [
      "disabling_flags", "plugin_version", "provides", "required_flags", "requires", "run_once",
      "version",
    ]);
  },
  async KeysThatStandThereAreNotOfferedAgain() {
    assert.deepStrictEqual(await labels(PLUGIN, whole(METADATA, '"start": [], |')), [
      "apply_host_profile",
    ]);
  },
  async VersionsAreOffered() {
    assert.deepStrictEqual(await labels(PLUGIN, whole('"version": |')), ["1", "2", "3", "4"]);
  },
  async TrueAndFalseAreOfferedForRunOnce() {
    assert.deepStrictEqual(await labels(PLUGIN, whole('"version": 3, "run_once": |')), [
      "false", "true",
    ]);
  },
  async AnEmptyFileIsFilledByASnippet() {
    const offered = await labels(PLUGIN, "|");
    for (const label of ["plugin", "plugin with flags and run-once"]) {
      assert(offered.includes(label), offered);
    }
  },
  async SnippetsAreSoundFiles() {
    for (const [uri, name] of [[PLUGIN, "plugin-description"], [COMMANDS, "command-file"]]) {
      const schema = JSON.parse(
        fs.readFileSync(path.join(project, `share/schemas/${name}.schema.json`), "utf8"));
      for (const snippet of schema.defaultSnippets) {
        const text = JSON.stringify(snippet.body).replace(/\$\d/g, "x");
        assert.deepStrictEqual(await diagnose(uri, text), [], snippet.label);
      }
    }
  },
  async KeysOfACommandAreOffered() {
    assert.deepStrictEqual(await labels(COMMANDS, commandFile("{|}")), [
      "exec", "parameters", "summary", "timeout",
    ]);
  },
  async KeysOfAParameterAreOffered() {
    const file = commandFile('{"parameters": {"mtu": {|}}, "exec": ["/bin/true"]}');
    assert.deepStrictEqual(await labels(COMMANDS, file), ["flag", "required", "short", "summary"]);
  },
  async FoldersBelowTheFirstHaveTheSameSchema() {
    const uri = COMMANDS.replace("hypcli/", "hypcli/int/ext/");
    assert.deepStrictEqual(await labels(uri, "{|}"), ["commands", "namespace"]);
  },
  async OtherFilesHaveNone() {
    assert.deepStrictEqual(await diagnose("file:///image/etc/nimbus/net.json", '{"a": 1}'), []);
  },
  async HoverTellsWhatAKeyMeans() {
    const text = await hover(PLUGIN, whole('"version": 1, "requi|res": []'));
    assert.match(text, /milestones that must be reached before the plugin runs/);
  },
  async HoverTellsOfFlagsInEachVersion() {
    for (const version of [1, 3]) {
      const text = await hover(PLUGIN, whole(`"version": ${version}, "required|_flags": []`));
      assert.match(text, /given every one of these flags/);
    }
  },
  async HoverTellsWhatACommandMayHold() {
    const line = await hover(PLUGIN, whole(METADATA, '"start": ["boot |x"]'));
    assert.match(line, /at most 1023 bytes/);
    const text = await hover(COMMANDS, commandFile('{"exec": ["/bin/true"], "time|out": 3}'));
    assert.match(text, /holds up the boot for ever/);
  },
  async EveryMemberHasATitleAndADescription() {
    for (const name of fs.readdirSync(path.join(project, "share/schemas"))) {
      const schema = JSON.parse(fs.readFileSync(path.join(project, "share/schemas", name), "utf8"));
      const all = members(schema);
      assert(all.length >= 10, `${name} has only ${all.length} members`);
      for (const [place, member] of all) {
        const said = member.$ref ? schema.definitions[member.$ref.split("/").pop()] : member;
        assert(said.title && said.description, `${name}${place}`);
      }
    }
  },
  async ASoundFileWithCommentsIsPassedOver() {
    const file = `// why\n${whole(METADATA, '"start": ["a" /* first */]')}`;
    assert.deepStrictEqual(await diagnose(PLUGIN, file), []);
  },
  async AWrongTypeIsMarkedAtTheValue() {
    const [found, ...others] = await diagnose(
      PLUGIN, '{"metadata": {\n  "version": 1,\n  "requires": "fs-ready",\n  "provides": []},\n' +
        '  "operations": {"start": []}}');
    assert.deepStrictEqual(others, []);
    assert.strictEqual(found.text, '"fs-ready"');
    assert.strictEqual(found.line, 3);
    assert.match(found.message, /Expected "array"/);
  },
  async AMissingKeyIsTold() {
    const found = await diagnose(PLUGIN, whole('"version": 3, "requires": [], "provides": []'));
    assert.deepStrictEqual(found.map((one) => one.message).sort(), [
      'Missing property "plugin_version".', 'Missing property "run_once".',
    ]);
  },
  async AnUnknownKeyIsAWarningAtTheKey() {
    const [found, ...others] = await diagnose(PLUGIN, whole(`${METADATA}, "requird_flags": []`));
    assert.deepStrictEqual(others, []);
    assert.deepStrictEqual([found.severity, found.text, found.message], [
      "warning", '"requird_flags": []', "This key is not known: the boot ignores it.",
    ]);
  },
  async AKeyOfALaterVersionIsAWarning() {
    const [found, ...others] = await diagnose(
      PLUGIN, whole('"version": 1, "requires": [], "provides": [], "run_once": true'));
    assert.deepStrictEqual(others, []);
    assert.deepStrictEqual([found.severity, found.text], ["warning", '"run_once": true']);
  },
  async ABadShortNameIsMarked() {
    const [found, ...others] = await diagnose(COMMANDS, commandFile(
      '{"parameters": {"mtu": {"short": "-"}}, "exec": ["/bin/true", "{mtu}"]}'));
    assert.deepStrictEqual(others, []);
    assert.deepStrictEqual([found.text, found.message.slice(0, 11)], ['"-"', "One letter:"]);
  },
  async AProgramWithoutItsPathIsMarked() {
    const [found, ...others] = await diagnose(COMMANDS, commandFile('{"exec": ["ip", "a b"]}'));
    assert.deepStrictEqual(others, []);
    assert.strictEqual(found.text, '"ip"');
  },
  async AnOpenBraceIsMarked() {
    const [found, ...others] = await diagnose(COMMANDS, commandFile('{"exec": ["/bin/ip", "{a"]}'));
    assert.deepStrictEqual(others, []);
    assert.strictEqual(found.text, '"{a"');
  },
  // Keys that are ignored have a code of their own.
  async DrawnFilesAreJudgedAsTheProgramDoes() {
    const files = JSON.parse(fs.readFileSync(process.argv[3], "utf8"));
    assert(files.length > 100, "too few files");
    for (const { name, text, good, ignored, number } of files) {
      const uri = name.startsWith("plugin") ? PLUGIN : COMMANDS;
      const found = await diagnose(uri, text);
      const remarks = found.filter((one) => one.code === service.ErrorCode.Deprecated);
      assert.strictEqual(found.length === remarks.length, good,
        `--only ${number}: ${JSON.stringify(found)}`);
      assert.strictEqual(remarks.length, ignored, `--only ${number}: ignored keys`);
    }
  },
};

run(tests);
