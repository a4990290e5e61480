// Runs the end-to-end tests with their answers recorded, then holds every answer to the OpenAPI
// document: its schema for the status (a wrong type, a missing, unknown or misplaced key fails), the
// JSON content type, and at least one successful answer of every operation. The document's own
// examples are checked the same way.
// Usage: node check_answers.mjs <openapi.json> <integration_tests binary> <scratch dir>
import { spawnSync } from "node:child_process";
import { mkdirSync, readFileSync, rmSync } from "node:fs";
import { OpenApiDocument } from "./openapi_schema.mjs";

const [docPath, testBinary, scratch] = process.argv.slice(2);
const doc = new OpenApiDocument(docPath);
const failures = doc.exampleErrors().map(([where, errors]) => `${where}: ${errors.join("; ")}`);
// The checker itself: a body with two keys swapped, and one with a string for a number, must fail.
const capacity = doc.schemaRef("/MultiTaskAppTaskModesCapacity", "get", 200);
for (const bad of ['{"vhdDetect": 4, "faceDetect": 8, "vhdFaceDetect": 2}', '{"faceDetect": "8", "vhdDetect": 4, "vhdFaceDetect": 2}']) {
    if (doc.check(capacity, JSON.parse(bad)).length === 0) failures.push(`the checker passed ${bad}`);
}

mkdirSync(scratch, { recursive: true });
const log = `${scratch}/answers.jsonl`;
rmSync(log, { force: true });
const run = spawnSync(testBinary, ["--gtest_filter=EndToEnd.*"], {
    env: { ...process.env, VKS_ANSWER_LOG: log },
    encoding: "utf8",
    timeout: 240000,
});
if (run.status !== 0) failures.push(`end-to-end tests failed (status ${run.status}):\n${run.stdout}${run.stderr}`);

const answers = readFileSync(log, "utf8").trim().split("\n").filter(Boolean).map((l) => JSON.parse(l));
const succeeded = new Set();
let passed = 0;
for (const a of answers) {
    const path = a.target.split("?")[0];
    const found = doc.match(path, a.method);
    const where = `${a.method} ${a.target} -> ${a.status}`;
    if (!found) {
        failures.push(`${where}: no such operation in the document`);
        continue;
    }
    const schema = doc.schemaRef(found[0], found[1], a.status);
    if (!schema) {
        failures.push(`${where}: status not described`);
        continue;
    }
    if (a.type !== "application/json; charset=utf-8") failures.push(`${where}: content type ${a.type}`);
    let body;
    try {
        body = JSON.parse(a.body);
    } catch (e) {
        failures.push(`${where}: body is not JSON: ${a.body}`);
        continue;
    }
    const errors = doc.check(schema, body);
    if (errors.length) failures.push(`${where}: ${errors.join("; ")}\n  body: ${a.body}`);
    else passed += 1;
    if (a.status === 200) succeeded.add(`${found[1]} ${found[0]}`);
}
for (const [template, method] of doc.operations()) {
    if (!succeeded.has(`${method} ${template}`)) failures.push(`no successful answer of ${method.toUpperCase()} ${template}`);
}
for (const f of failures) console.error(f);
console.log(`${answers.length} answers checked against ${docPath}`);
console.log(`${passed} passed, ${failures.length} failed`);
process.exit(failures.length ? 1 : 0);
