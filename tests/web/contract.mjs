// Contract tests of both OpenAPI documents against a running kit, with requests generated from each
// document by Portman and run by Newman (pinned in package-lock.json): every operation with its
// examples, its answer held to its status, content type and schema; then variations the document
// forbids (a required parameter or key missing, a number below or above its range, a value of the
// wrong type, a time of the wrong shape), each expecting the answer the document gives for it: 400,
// or, for a module query parameter marked x-invalid-reads-as-absent, the operation's success.
// Usage (inside a private mount namespace): node contract.mjs <module.json> <emulator-control.json> <scratch>
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { resolve as resolvePath } from "node:path";
import { spawnSync } from "node:child_process";
import { startKit } from "./kit.mjs";

const require = createRequire(import.meta.url);
const newman = require("newman");
const [moduleDoc, controlDoc, scratch] = process.argv.slice(2).map((p) => resolvePath(p));
const portman = new URL("../../node_modules/.bin/portman", import.meta.url).pathname;
mkdirSync(scratch, { recursive: true });

function loadDoc(path) {
    const doc = JSON.parse(readFileSync(path, "utf8"));
    doc.resolve = (node) => {
        while (node?.$ref) node = node.$ref.slice(2).split("/").reduce((n, p) => n[p], doc);
        return node;
    };
    return doc;
}

function operations(doc) {
    const out = [];
    for (const [template, item] of Object.entries(doc.paths)) {
        for (const [method, op] of Object.entries(item)) out.push({ template, method, op });
    }
    return out;
}

const successOf = (op) => Object.keys(op.responses).find((s) => /^2/.test(s));

// Values outside a numeric schema, and one of the wrong type: [label, value] pairs. A 64-bit bound
// read as a JavaScript number rounds up, so bound + 1 stays outside the true range.
function badNumbers(schema, asText) {
    const shown = (n) => (asText ? String(n) : Number(n));
    const out = [];
    if (schema.minimum !== undefined) out.push(["below minimum", shown(BigInt(schema.minimum) - 1n)]);
    if (schema.maximum !== undefined) out.push(["above maximum", shown(BigInt(schema.maximum) + 1n)]);
    out.push(["wrong type", "abc"]);
    return out;
}

const typesOf = (schema) => [].concat(schema.type ?? []);

// The variations one operation's document forbids, each with the status the document gives for it.
function variations(doc, { method, op }) {
    const out = [];
    if (method === "head") return out;  // the GET's variations stand for it: HEAD runs the GET's phases
    const refused = op.responses["400"] ? "400" : null;
    const params = (op.parameters ?? []).map(doc.resolve);
    for (const p of params) {
        const expect = p["x-invalid-reads-as-absent"] ? successOf(op) : refused;
        const overwrite = (value) => (p.in === "path"
            ? { overwriteRequestPathVariables: [{ key: p.name, value, overwrite: true }] }
            : { overwriteRequestQueryParams: [{ key: p.name, value, overwrite: true }] });
        if (p.in === "path" && p.schema.enum) {
            out.push({ name: `${p.name} not one of its values`, overwrites: overwrite("bogus"), expect: op.responses["404"] ? "404" : refused });
            continue;
        }
        if (p.in !== "query") continue;
        if (p.required) out.push({ name: `${p.name} missing`, overwrites: { overwriteRequestQueryParams: [{ key: p.name, remove: true }] }, expect });
        if (typesOf(p.schema).includes("integer")) {
            for (const [label, value] of badNumbers(p.schema, true)) out.push({ name: `${p.name} ${label}`, overwrites: overwrite(value), expect });
        }
        if (p.schema.pattern) out.push({ name: `${p.name} of the wrong shape`, overwrites: overwrite("2024-05-01"), expect });
        if (p.schema.enum) out.push({ name: `${p.name} not one of its values`, overwrites: overwrite("bogus"), expect });
    }
    const media = op.requestBody && doc.resolve(op.requestBody).content?.["application/json"];
    if (media?.example !== undefined) {
        const schema = doc.resolve(media.schema);
        const rows = schema.type === "array";
        const rowSchema = doc.resolve(rows ? schema.items : schema);
        let sample = rows ? media.example[0] : media.example;
        if (rows && sample === undefined) sample = Object.fromEntries((rowSchema.required ?? []).map((k) => [k, 1]));
        const body = (row) => ({ overwriteRequestBody: [{ key: ".", value: rows ? [row] : row, overwrite: true }] });
        for (const key of rowSchema.required ?? []) {
            const { [key]: _, ...rest } = sample;
            out.push({ name: `body key ${key} missing`, overwrites: body(rest), expect: refused });
        }
        for (const [key, prop] of Object.entries(rowSchema.properties ?? {})) {
            if (!(key in sample)) continue;
            const types = typesOf(doc.resolve(prop));
            if (types.includes("integer") || types.includes("number")) {
                const bad = badNumbers(doc.resolve(prop), false).filter(([label]) => label !== "wrong type" || !types.includes("string"));
                for (const [label, value] of bad) {
                    if (label !== "wrong type" && prop[label === "below minimum" ? "minimum" : "maximum"] === undefined) continue;
                    out.push({ name: `body key ${key} ${label}`, overwrites: body({ ...sample, [key]: value }), expect: refused });
                }
            } else if (types.includes("string")) {
                out.push({ name: `body key ${key} wrong type`, overwrites: body({ ...sample, [key]: 5 }), expect: refused });
                if (prop.pattern) out.push({ name: `body key ${key} of the wrong shape`, overwrites: body({ ...sample, [key]: "2024-05-01" }), expect: refused });
            }
        }
    }
    return out;
}

function portmanConfig(doc) {
    const contract = { statusSuccess: { enabled: true }, contentType: { enabled: true }, jsonBody: { enabled: true }, schemaValidation: { enabled: true } };
    const variationTests = [];
    let planned = 0;
    const unexpected = [];
    for (const entry of operations(doc)) {
        for (const v of variations(doc, entry)) {
            if (!v.expect) {
                unexpected.push(`${entry.method.toUpperCase()} ${entry.template}: ${v.name}: the document gives no answer for it`);
                continue;
            }
            planned += 1;
            variationTests.push({
                openApiOperation: `${entry.method.toUpperCase()}::${entry.template}`,
                openApiResponse: v.expect,
                variations: [{ name: v.name, overwrites: [v.overwrites],
                    tests: { contractTests: [{ statusCode: { enabled: true, code: Number(v.expect) }, contentType: { enabled: true }, jsonBody: { enabled: true }, schemaValidation: { enabled: true } }] } }],
            });
        }
    }
    return { config: { version: 1.0, tests: { contractTests: [{ openApiOperation: "*::/*", ...contract }], variationTests } }, planned, unexpected };
}

function requestsOf(items, out = []) {
    for (const i of items) i.item ? requestsOf(i.item, out) : out.push(i);
    return out;
}

async function runDocument(label, path, baseUrl) {
    const doc = loadDoc(path);
    const { config, planned, unexpected } = portmanConfig(doc);
    const dir = `${scratch}/${label}`;
    mkdirSync(dir, { recursive: true });
    writeFileSync(`${dir}/portman-config.json`, JSON.stringify(config, null, 1));
    writeFileSync(`${dir}/postman-config.json`, JSON.stringify({ requestParametersResolution: "Example", exampleParametersResolution: "Example" }));
    const gen = spawnSync(portman, ["-l", path, "-b", baseUrl, "-c", `${dir}/portman-config.json`, "-s", `${dir}/postman-config.json`,
        "-o", `${dir}/collection.json`], { cwd: dir, encoding: "utf8", timeout: 60000 });
    if (gen.status !== 0) throw new Error(`portman failed:\n${gen.stdout}${gen.stderr}`);
    const collection = JSON.parse(readFileSync(`${dir}/collection.json`, "utf8"));
    const requests = requestsOf(collection.item);
    const failures = [...unexpected];
    // Every operation of the document must have its request in the collection.
    const ops = operations(doc);
    const sent = new Set(requests.map((r) => `${r.request.method} ${"/" + (r.request.url.path ?? []).join("/")}`));
    for (const { template, method } of ops) {
        const concrete = template.replace(/\{[^}]+\}/g, (m) => `:${m.slice(1, -1)}`);
        if (![...sent].some((s) => s === `${method.toUpperCase()} ${concrete}` || s === `${method.toUpperCase()} ${(new URL(baseUrl).pathname.replace(/\/$/, "")) + concrete}`)) {
            failures.push(`${method.toUpperCase()} ${template}: no request generated`);
        }
    }
    const variationsGenerated = requests.length - ops.length;
    if (variationsGenerated !== planned) failures.push(`${planned} variations planned, ${variationsGenerated} generated`);
    const summary = await new Promise((resolve, reject) => newman.run({ collection, reporters: [], timeoutRequest: 20000 },
        (e, s) => (e ? reject(e) : resolve(s))));
    for (const f of summary.run.failures) {
        failures.push(`${f.source?.name ?? "?"}: ${f.error?.test ?? ""} ${f.error?.message ?? ""}`);
    }
    const s = summary.run.stats;
    console.log(`${label}: ${ops.length} operations, ${ops.length} contract requests and ${variationsGenerated} variations,`
        + ` ${s.requests.total} requests sent (${s.requests.failed} failed), ${s.assertions.total} assertions (${s.assertions.failed} failed)`);
    return { failures, assertions: s.assertions.total };
}

const kit = await startKit("contract");
let failures = [];
let assertions = 0;
try {
    for (const [label, path, base] of [["module", moduleDoc, kit.api.replace(/\/$/, "")], ["control", controlDoc, kit.control]]) {
        const r = await runDocument(label, path, base);
        failures = failures.concat(r.failures.map((f) => `${label}: ${f}`));
        assertions += r.assertions;
    }
} finally {
    await kit.stop();
}
for (const f of failures) console.error(f);
console.log(`${assertions - failures.length} passed, ${failures.length} failed`);
process.exit(failures.length ? 1 : 0);
