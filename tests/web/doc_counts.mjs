// Counts what a client of each OpenAPI document can rely on, and fails on any gap: every parameter,
// request body and answer with a body has an example; every property has a description; every time
// parameter has a pattern; every PUT body is required; every 64-bit key is flagged for JavaScript;
// and every example conforms to its schema.
// Usage: node doc_counts.mjs <openapi.json> ...
import { readFileSync } from "node:fs";
import { OpenApiDocument } from "./openapi_schema.mjs";

const JS_SAFE = 9007199254740991;

function countDocument(path) {
    // Integers are kept as text where a JavaScript number would round them.
    const doc = JSON.parse(readFileSync(path, "utf8").replace(/(:\s*)(-?\d{16,})/g, '$1"$2"'));
    const resolve = (node) => {
        while (node?.$ref) node = node.$ref.slice(2).split("/").reduce((n, p) => n[p], doc);
        return node;
    };
    const tally = {};
    const gaps = [];
    const count = (what, ok, where) => {
        tally[what] ??= [0, 0];
        tally[what][1] += 1;
        if (ok) tally[what][0] += 1;
        else gaps.push(`${what}: ${where}`);
    };
    const hasExample = (media) => media && (media.example !== undefined || Object.keys(media.examples ?? {}).length > 0);
    for (const [template, item] of Object.entries(doc.paths)) {
        for (const [method, op] of Object.entries(item)) {
            const where = `${method.toUpperCase()} ${template}`;
            for (const p of (op.parameters ?? []).map(resolve)) {
                count("parameters with an example", p.example !== undefined || p.schema?.example !== undefined, `${where} ${p.name}`);
                count("parameters with a description", Boolean(p.description), `${where} ${p.name}`);
                if (/Time$/.test(p.name)) count("time parameters with a pattern", Boolean(p.schema?.pattern), `${where} ${p.name}`);
            }
            if (op.requestBody) {
                const body = resolve(op.requestBody);
                count("request bodies with an example", hasExample(body.content?.["application/json"]), where);
                count("request bodies required", body.required === true, where);
            }
            for (const [status, r] of Object.entries(op.responses ?? {})) {
                const answer = resolve(r);
                for (const [type, media] of Object.entries(answer.content ?? {})) {
                    const kind = /^2/.test(status) ? "success answers with an example" : "error answers with an example";
                    count(kind, hasExample(media), `${where} ${status} ${type}`);
                }
            }
        }
    }
    const walk = (node, where) => {
        if (Array.isArray(node)) return node.forEach((n, i) => walk(n, `${where}/${i}`));
        if (!node || typeof node !== "object") return;
        if (node.type === "integer" && (typeof node.maximum === "string" || node.maximum > JS_SAFE)) {
            count("64-bit integers flagged for JavaScript", node["x-js-unsafe-integer"] === true, where);
        }
        if (node.properties && typeof node.properties === "object" && !node.properties.type) {
            for (const [key, prop] of Object.entries(node.properties)) {
                count("properties with a description", Boolean(prop.description), `${where}/${key}`);
            }
        }
        for (const [k, v] of Object.entries(node)) walk(v, `${where}/${k}`);
    };
    walk(doc.components?.schemas, "#/components/schemas");
    walk(doc.paths, "#/paths");
    for (const [where, errors] of new OpenApiDocument(path).exampleErrors()) gaps.push(`example not of its schema: ${where}: ${errors.join("; ")}`);
    return { tally, gaps };
}

let failed = 0;
let passed = 0;
for (const path of process.argv.slice(2)) {
    const { tally, gaps } = countDocument(path);
    console.log(path);
    for (const [what, [ok, all]] of Object.entries(tally)) {
        console.log(`  ${ok} of ${all} ${what}`);
        if (ok === all) passed += 1;
    }
    for (const g of gaps) console.error(`  missing: ${g}`);
    failed += gaps.length;
}
console.log(`${passed} passed, ${failed} failed`);
process.exit(failed ? 1 : 0);
