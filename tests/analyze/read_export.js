// Reads an export as other programs do: node read_export.js DIR KIND FILE..., where DIR is that of
// get_packages. Prints what was read as JSON; throws for what cannot be read.
//   trace FILE         trace events, by a public model of traces
//   otlp FILE          OTLP/JSON, by the messages that collectors take
//   duckdb FOLDER SQL  the rows of a query, run in that folder
"use strict";
const fs = require("fs");
const path = require("path");

const modules = path.join(path.resolve(process.argv[2]), "node_modules");
const load = (name) => require(path.join(modules, name));

function readTrace(file) {
  const { buildModel } = load("@tracerbench/trace-model");
  const model = buildModel(JSON.parse(fs.readFileSync(file, "utf8")));
  return {
    start: model.start,
    end: model.end,
    processes: model.processes.map((process) => ({
      name: process.name,
      threads: process.threads.map((thread) => ({
        name: thread.name,
        events: thread.events.filter((event) => event.isComplete()).map((event) => ({
          name: event.name,
          start: event.start,
          end: event.end,
          nested: event.parent !== undefined,
        })),
      })),
    })),
  };
}

// In JSON the identities are hexadecimal, where other bytes would be in base64.
function withBytes(value, key) {
  if (["traceId", "spanId", "parentSpanId"].includes(key)) {
    if (!/^([0-9a-f]{2})*$/.test(value)) throw new Error(`${key} is no hexadecimal number: ${value}`);
    return Buffer.from(value, "hex");
  }
  if (Array.isArray(value)) return value.map((each) => withBytes(each));
  if (value === null || typeof value !== "object") return value;
  return Object.fromEntries(Object.entries(value).map(([name, each]) => [name, withBytes(each, name)]));
}

// The receivers of collectors leave no key out that they know, and know no other.
function compare(given, read, place) {
  for (const [key, value] of Object.entries(given)) {
    const where = `${place}.${key}`;
    if (!(key in read)) throw new Error(`nobody knows ${where}`);
    if (value !== null && typeof value === "object") compare(value, read[key], where);
    else if (!/(Id|Nano|intValue)$/.test(key) && read[key] !== value)
      throw new Error(`${where}: ${read[key]}, not ${value}`);
  }
}

function readOtlp(file) {
  const root = load("@opentelemetry/otlp-proto-exporter-base/build/src/generated/root.js");
  const Request = root.opentelemetry.proto.collector.trace.v1.ExportTraceServiceRequest;
  const given = JSON.parse(fs.readFileSync(file, "utf8"));
  const message = Request.fromObject(withBytes(given));
  const fault = Request.verify(message);
  if (fault) throw new Error(fault);
  const read = Request.decode(Request.encode(message).finish());
  const plain = Request.toObject(read, { longs: String, bytes: String, defaults: true, enums: Number });
  compare(given, plain, "request");
  const [{ scopeSpans: [{ spans }] }] = read.resourceSpans;
  return spans.map((span) => ({
    name: span.name,
    trace: Buffer.from(span.traceId).toString("hex"),
    span: Buffer.from(span.spanId).toString("hex"),
    parent: Buffer.from(span.parentSpanId).toString("hex"),
    start: span.startTimeUnixNano.toString(),
    end: span.endTimeUnixNano.toString(),
    status: span.status.code,
    message: span.status.message,
  }));
}

async function query(folder, sql) {
  const { DuckDBInstance } = load("@duckdb/node-api");
  const instance = await DuckDBInstance.create(":memory:");
  const connection = await instance.connect();
  process.chdir(folder);
  const reader = await connection.runAndReadAll(sql);
  return reader.getRowObjectsJson();
}

async function main([kind, first, second]) {
  if (kind === "trace") return readTrace(first);
  if (kind === "otlp") return readOtlp(first);
  return query(first, second);
}

main(process.argv.slice(3)).then((told) => console.log(JSON.stringify(told)));
