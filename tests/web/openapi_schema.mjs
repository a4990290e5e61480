// Checks JSON answers against an OpenAPI 3.1 document: the JSON Schema of the operation's response
// for the status (types, ranges, required and unknown keys), and the order of the keys, which must
// follow the order of each schema's properties.
import { readFileSync } from "node:fs";
import Ajv2020 from "ajv/dist/2020.js";

function pointer(doc, ref) {
    return ref.replace(/^#\//, "").split("/").reduce((node, part) => node[part.replace(/~1/g, "/").replace(/~0/g, "~")], doc);
}

export class OpenApiDocument {
    constructor(path) {
        this.doc = JSON.parse(readFileSync(path, "utf8"));
        this.ajv = new Ajv2020({ strict: false, allErrors: true });
        this.ajv.addSchema(this.doc, "doc");
    }

    resolve(node) {
        while (node && node.$ref) node = pointer(this.doc, node.$ref);
        return node;
    }

    // The operations as [template, method, operation], and the template a concrete path matches.
    operations() {
        const out = [];
        for (const [template, item] of Object.entries(this.doc.paths)) {
            for (const method of ["get", "put", "post", "delete"]) {
                if (item[method]) out.push([template, method, item[method]]);
            }
        }
        return out;
    }
    match(path, method) {
        const base = (this.doc.servers?.[0]?.url ?? "").replace(/\/$/, "");
        const local = path.startsWith(base) ? path.slice(base.length) : path;
        return this.operations().find(([template, m]) => {
            const re = new RegExp("^" + template.replace(/\{[^}]+\}/g, "[^/]+") + "$");
            return m === method.toLowerCase() && re.test(local);
        });
    }

    // The response schema's pointer for an operation and a status, or null when none is described.
    schemaRef(template, method, status) {
        const ops = Object.keys(this.doc.paths).indexOf(template) >= 0 ? this.doc.paths[template] : null;
        const op = ops?.[method];
        const response = this.resolve(op?.responses?.[String(status)] ?? op?.responses?.default);
        return response?.content?.["application/json"]?.schema ?? null;
    }

    // Error texts for a value against a schema node ({$ref: ...} or inline); [] when it conforms.
    check(schemaNode, value) {
        const errors = [];
        const ref = schemaNode.$ref ? "doc" + schemaNode.$ref : null;
        // An inline schema's references point into the document.
        const inline = () => JSON.parse(JSON.stringify(schemaNode).replace(/"\$ref":"#\//g, '"$ref":"doc#/'));
        const validate = ref ? this.ajv.getSchema(ref) : this.ajv.compile(inline());
        if (!validate(value)) {
            for (const e of validate.errors) errors.push(`${e.instancePath || "/"} ${e.message}`);
        }
        this.keyOrder(schemaNode, value, "", errors);
        return errors;
    }

    keyOrder(schemaNode, value, where, errors) {
        let schema = this.resolve(schemaNode);
        if (!schema || value === null || typeof value !== "object") return;
        // Of alternatives, the one whose keys cover the value's.
        const alternatives = (schema.anyOf ?? schema.oneOf ?? []).map((a) => this.resolve(a));
        schema = alternatives.find((a) => a.properties && Object.keys(value).every((k) => k in a.properties)) ?? schema;
        if (Array.isArray(value)) {
            value.forEach((item, i) => schema.items && this.keyOrder(schema.items, item, `${where}/${i}`, errors));
            return;
        }
        if (!schema.properties) return;
        const order = Object.keys(schema.properties);
        const got = Object.keys(value).filter((k) => order.includes(k));
        const expected = order.filter((k) => k in value);
        if (got.join(",") !== expected.join(",")) {
            errors.push(`${where || "/"} keys out of order: ${got.join(",")} (expected ${expected.join(",")})`);
        }
        for (const k of got) this.keyOrder(schema.properties[k], value[k], `${where}/${k}`, errors);
    }

    // Every example of a response or request body against its schema: [where, errors] pairs.
    exampleErrors() {
        const out = [];
        for (const [template, method, op] of this.operations()) {
            const bodies = Object.entries(op.responses ?? {}).map(([s, r]) => [s, this.resolve(r)]);
            if (op.requestBody) bodies.push(["request", op.requestBody]);
            for (const [status, body] of bodies) {
                const media = body?.content?.["application/json"];
                const examples = Object.entries(media?.examples ?? {}).map(([name, e]) => [name, e.value]);
                if (media?.example !== undefined) examples.push(["example", media.example]);
                for (const [name, value] of examples) {
                    const errors = this.check(media.schema, value);
                    if (errors.length) out.push([`${method.toUpperCase()} ${template} ${status} ${name}`, errors]);
                }
            }
            for (const p of (op.parameters ?? []).map((n) => this.resolve(n))) {
                if (p.example === undefined) continue;
                // A query value arrives as text: a number's example is checked as the number it reads as.
                const value = typeof p.example === "string" && p.schema.type === "integer" ? Number(p.example) : p.example;
                const errors = this.check(p.schema, value);
                if (errors.length) out.push([`${method.toUpperCase()} ${template} parameter ${p.name} example`, errors]);
            }
        }
        return out;
    }
}
