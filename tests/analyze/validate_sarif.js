// Validates a SARIF file: node validate_sarif.js DIR FILE, where DIR is that of get_packages.
// Exit status 0, or 1 with what is wrong.
"use strict";
const fs = require("fs");
const path = require("path");

const modules = path.join(path.resolve(process.argv[2]), "node_modules");
const Ajv = require(path.join(modules, "ajv"));
const schema = require(path.join(modules, "@microsoft/jest-sarif/lib/schemas/sarif-2.1.0-rtm.5.json"));

const ajv = new Ajv({ schemaId: "auto", allErrors: true });
ajv.addMetaSchema(require(path.join(modules, "ajv/lib/refs/json-schema-draft-04.json")));
const validate = ajv.compile(schema);
if (!validate(JSON.parse(fs.readFileSync(process.argv[3], "utf8")))) {
  console.log(ajv.errorsText(validate.errors, { separator: "\n", dataVar: "" }));
  process.exitCode = 1;
}
