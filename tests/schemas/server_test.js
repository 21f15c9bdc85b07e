// What VS Code's JSON server, which other editors use as well, makes of the settings in
// docs/editors.md, over its protocol: node server_test.js PACKAGES, where PACKAGES is the folder of
// get_packages. Exit status 0, or 1 with what is wrong.
"use strict";
const assert = require("assert");
const childProcess = require("child_process");
const os = require("os");
const path = require("path");
const { pathToFileURL } = require("url");

const packages = path.join(path.resolve(process.argv[2]), "node_modules");
const rpc = require(require.resolve("vscode-jsonrpc/node", { paths: [packages] }));
const { project, documentedSettings, run } = require("./harness.js");
const LIMIT = 30 * 1000; // milliseconds for an answer

/** The settings, with the schemas of the sources in the place of the installed ones. */
function testedSettings() {
  const settings = documentedSettings();
  const installed = "file:///usr/share/bootforge/schemas/";
  assert(settings.includes(installed));
  const here = pathToFileURL(path.join(project, "share/schemas"));
  return JSON.parse(settings.replaceAll(installed, `${here}/`));
}

/** What an editor sends: the schemas of the user, or those of a folder, for its files only. */
function settingsOf(folder) {
  const schemas = testedSettings()["json.schemas"];
  const folderUri = folder && pathToFileURL(folder).toString();
  return { json: { validate: { enable: true }, format: { enable: true }, resultLimit: 5000,
    schemas: schemas.map(({ fileMatch, url }) => ({ url, fileMatch, folderUri })) } };
}

class Server {
  constructor(settings) {
    const main = path.join(packages, ".bin/vscode-json-language-server");
    this.process = childProcess.spawn(process.execPath, [main, "--stdio"],
      { stdio: ["pipe", "pipe", "inherit"] });
    this.ended = new Promise((resolve) => { this.process.on("exit", resolve); });
    this.connection = rpc.createMessageConnection(
      new rpc.StreamMessageReader(this.process.stdout),
      new rpc.StreamMessageWriter(this.process.stdin));
    this.settings = settings;
    this.waiting = new Map();
    this.connection.onRequest("workspace/configuration", ({ items }) =>
      items.map(({ section }) => (section ? this.settings[section] : this.settings)));
    this.connection.onRequest("client/registerCapability", () => null);
    this.connection.onNotification("textDocument/publishDiagnostics", ({ uri, diagnostics }) => {
      const done = this.waiting.get(uri);
      if (done) done(diagnostics);
    });
    this.connection.listen();
  }

  async start() {
    await this.connection.sendRequest("initialize", {
      processId: process.pid, rootUri: null,
      capabilities: { workspace: { configuration: true, didChangeConfiguration: {} },
        textDocument: { publishDiagnostics: {} } },
      initializationOptions: { handledSchemaProtocols: ["file"], provideFormatter: true },
    });
    this.connection.sendNotification("initialized", {});
    this.connection.sendNotification("workspace/didChangeConfiguration",
      { settings: this.settings });
  }

  /** What the server publishes about a file once it is open. */
  diagnose(file, text, languageId = "jsonc") {
    const uri = pathToFileURL(file).toString();
    return new Promise((resolve, reject) => {
      const limit = setTimeout(() => reject(new Error(`nothing is said of ${uri}`)), LIMIT);
      this.waiting.set(uri, (diagnostics) => {
        clearTimeout(limit);
        this.waiting.delete(uri);
        resolve(diagnostics.map(({ message }) => message));
      });
      this.connection.sendNotification("textDocument/didOpen",
        { textDocument: { uri, languageId, version: 1, text } });
    });
  }

  async stop() {
    await this.connection.sendRequest("shutdown");
    this.connection.sendNotification("exit");
    await this.ended;
    this.connection.dispose();
  }
}

const PLUGIN = "usr/libexec/bootforge/plugins/net.json";
const COMMANDS = "usr/lib/nimbus/hypcli/int/ext/net.json";
const DESCRIPTION =
  '{"metadata": {"version": 1, "requires": [], "provides": []}, "operations": {"start": []}}';

async function judgesTheFilesOfBothKinds(server, image) {
  assert.deepStrictEqual(await server.diagnose(`${image}/${PLUGIN}`, `// why\n${DESCRIPTION}`), []);
  assert.deepStrictEqual(
    await server.diagnose(`${image}/${PLUGIN}.d/other/bootforge/plugins/disk.json`,
      DESCRIPTION.replace('"provides": []', '"provids": []')),
    ["This key is not known: the boot ignores it.", 'Missing property "provides".'].sort());
  assert.deepStrictEqual(await server.diagnose(`${image}/${COMMANDS}`, '{"namespace": "net"}'),
    ['Missing property "commands".']);
}

const tests = {
  async SettingsOfTheUserJudgeTheFilesOfAnyFolder() {
    const server = new Server(settingsOf(null));
    await server.start();
    await judgesTheFilesOfBothKinds(server, os.tmpdir());
    assert.deepStrictEqual(await server.diagnose("/etc/net.json", '{"a": 1}'), []);
    await server.stop();
  },
  async SettingsOfAFolderJudgeItsFilesOnly() {
    const server = new Server(settingsOf("/repository"));
    await server.start();
    await judgesTheFilesOfBothKinds(server, "/repository/image");
    const elsewhere = await server.diagnose(`/elsewhere/${COMMANDS}`, '{"namespace": "net"}');
    assert.deepStrictEqual(elsewhere, []);
    await server.stop();
  },
  async WithoutTheLanguageJsoncACommentIsAnError() {
    const server = new Server(settingsOf(null));
    await server.start();
    const found = await server.diagnose(`/image/${PLUGIN}`, `// why\n${DESCRIPTION}`, "json");
    assert.deepStrictEqual(found, ["Comments are not permitted in JSON."]);
    await server.stop();
  },
};

run(tests);
