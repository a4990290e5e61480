// The browser and network boundary of both servers. In headless Chromium a page of another origin,
// and pages whose name was made to resolve to 127.0.0.1 (DNS rebinding), try every write of the
// control port and of the access server: none lands. Both servers' pages refuse to be framed. Raw
// requests probe the Host allow-list, the control port's write rules and its bounds. Screenshots of
// the attacks go to $VKS_SCREENSHOTS.
import assert from "node:assert/strict";
import { createServer } from "node:http";
import { connect } from "node:net";
import { mkdirSync, readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import { launchBrowser, screenshot, startKit } from "./kit.mjs";

const shots = process.env.VKS_SCREENSHOTS;
const REBOUND = "rebound.test";  // resolves to 127.0.0.1 inside the browser only
const ADDED = "kit.test";        // given to both daemons with --allow-host
let kit;
let browser;
let attacker;  // the other origin's server: an empty page at /
let ports;

before(async () => {
    mkdirSync(shots, { recursive: true });
    kit = await startKit("boundary", [`--allow-host=${ADDED}`], [`--allow-host=${ADDED}`]);
    ports = { control: Number(new URL(kit.control).port), api: Number(new URL(kit.api).port) };
    attacker = createServer((req, res) => res.end("<!doctype html><title>elsewhere</title><body></body>"));
    await new Promise((resolve) => attacker.listen(0, "127.0.0.1", resolve));
    browser = await launchBrowser([`--host-resolver-rules=MAP ${REBOUND} 127.0.0.1`,
        // Chromium itself stops a page it took for public from reaching loopback; other
        // browsers do not, and the servers must hold without it.
        "--disable-features=BlockInsecurePrivateNetworkRequests,PrivateNetworkAccessSendPreflights," +
        "PrivateNetworkAccessRespectPreflightResults,LocalNetworkAccessChecks"]);
});
after(async () => {
    await browser?.close();
    attacker?.close();
    await kit?.stop();
});

// One request on its own connection; resolves with the status, the headers (lower-case names) and
// the body, or rejects after 10 s.
function raw(port, head, body = "") {
    return new Promise((resolve, reject) => {
        const socket = connect(port, "127.0.0.1");
        const chunks = [];
        socket.setTimeout(10000, () => { socket.destroy(); reject(new Error(`no answer to ${head.slice(0, 60)}`)); });
        socket.on("error", () => {});  // a refused upload resets the socket once the answer is in
        socket.on("data", (d) => chunks.push(d));
        socket.on("close", () => {
            const text = Buffer.concat(chunks).toString("latin1");
            const split = text.indexOf("\r\n\r\n");
            const lines = text.slice(0, split).split("\r\n");
            const headers = Object.fromEntries(lines.slice(1).map((l) => [l.slice(0, l.indexOf(":")).toLowerCase(), l.slice(l.indexOf(":") + 1).trim()]));
            resolve({ status: Number(lines[0].split(" ")[1]), headers, body: text.slice(split + 4), length: text.length });
        });
        socket.write(head);
        if (body) socket.write(body);
    });
}

const get = (port, path, host, extra = "") => raw(port, `GET ${path} HTTP/1.1\r\nHost: ${host}\r\n${extra}Connection: close\r\n\r\n`);
const send = (port, method, path, headers, body = "") =>
    raw(port, `${method} ${path} HTTP/1.1\r\nHost: 127.0.0.1:${port}\r\n${headers}Content-Length: ${body.length}\r\nConnection: close\r\n\r\n`, body);

// What a write from a page would change: the faults, the whole state, the journal's count, the
// history records the module lists.
async function snapshot() {
    const journal = (await get(ports.control, "/control/journal", "127.0.0.1")).body;
    return {
        faults: JSON.parse((await get(ports.control, "/control/faults", "127.0.0.1")).body),
        state: JSON.parse((await get(ports.control, "/control/state", "127.0.0.1")).body),
        journalKept: JSON.parse(journal).entries.length > 0,
        records: (await kit.call("GET", "MultiTaskAppHistoryRecords?StartIndex=0&FindNum=50&EndTime=2024-05-01T23:59:59&DatabaseType=0")).text,
    };
}

// Runs in the page: every write of both servers, each as a page may send it. control and api are
// origins ("" for the page's own); the result of each is its status, "opaque" or "blocked".
async function attack({ control, api }) {
    const json = { "Content-Type": "application/json" };
    const fault = JSON.stringify({ noReply: true });
    const range = "MultiTaskAppHistoryRecords?StartTime=2024-05-01T00:00:00&EndTime=2024-05-01T23:59:59";
    const tries = [
        ["PUT fault (JSON)", control, "/control/faults/analysis/1201", { method: "PUT", headers: json, body: fault }],
        ["PUT fault (text/plain)", control, "/control/faults/command-channel/22025", { method: "PUT", body: fault }],
        ["DELETE faults", control, "/control/faults", { method: "DELETE" }],
        ["DELETE one fault", control, "/control/faults/analysis/1203", { method: "DELETE" }],
        ["PUT state (JSON)", control, "/control/state/tasks", { method: "PUT", headers: json, body: "[]" }],
        ["POST reset (JSON)", control, "/control/state/reset", { method: "POST", headers: json, body: "{}" }],
        ["POST reset (no-cors, text/plain)", control, "/control/state/reset", { method: "POST", mode: "no-cors", body: "{}" }],
        ["POST reset (no-cors, no body)", control, "/control/state/reset", { method: "POST", mode: "no-cors" }],
        ["DELETE journal", control, "/control/journal", { method: "DELETE" }],
        ["DELETE records", api, `/api/${range}`, { method: "DELETE" }],
        ["PUT pop-ups (JSON)", api, "/api/MultiTaskAppDisplayRecogPopUps", { method: "PUT", headers: json, body: '{"blackPopUp": false, "whitePopUp": false}' }],
        ["PUT pop-ups (text/plain)", api, "/api/MultiTaskAppDisplayRecogPopUps", { method: "PUT", body: '{"blackPopUp": false, "whitePopUp": false}' }],
        ["PUT display infos", api, "/api/MultiTaskAppDisplayRecogInfos", { method: "PUT", body: '{"name": 1}' }],
        ["PUT history", api, "/api/MultiTaskAppHistory?ChannelId=101", { method: "PUT", body: '{"enableRecord": 0}' }],
        ["POST records (no-cors)", api, `/api/${range}`, { method: "POST", mode: "no-cors", body: "" }],
    ];
    const results = [];
    for (const [name, origin, path, init] of tries) {
        let outcome;
        try {
            const response = await fetch(origin + path, init);
            outcome = response.type === "opaque" ? "opaque" : String(response.status);
        } catch {
            outcome = "blocked";
        }
        results.push([name, outcome]);
    }
    document.body.innerHTML = `<h3>${location.origin}</h3><table border=1>` +
        results.map(([n, o]) => `<tr><td>${n}</td><td>${o}</td></tr>`).join("") + "</table>";
    return results;
}

async function newPage() {
    const page = await browser.newPage({ viewport: { width: 900, height: 600 } });
    page.setDefaultTimeout(15000);
    return page;
}

// A page at http://REBOUND:port/ whose document the attacker served: Chromium is given the page by
// the route, and every later request of the page goes to 127.0.0.1:port, as after a rebinding.
async function reboundPage(port) {
    const page = await newPage();
    const url = `http://${REBOUND}:${port}/`;
    await page.route(url, (route) => route.fulfill({ contentType: "text/html", body: "<!doctype html><body></body>" }));
    await page.goto(url);
    await page.unroute(url);
    return page;
}

test("no write of another origin or of a rebound name lands", { timeout: 90000 }, async () => {
    // A state a reset would undo, and a fault and journal entries a deletion would remove.
    assert.equal((await send(ports.api, "PUT", "/api/MultiTaskAppDisplayRecogPopUps", "Content-Type: application/json\r\n",
        '{"blackPopUp": true, "whitePopUp": true}')).status, 200);
    assert.equal((await send(ports.control, "PUT", "/control/faults/analysis/1203", "Content-Type: application/json\r\n",
        '{"delayMs": 1}')).status, 200);
    const before = await snapshot();
    assert.equal(before.faults.length, 1);

    const page = await newPage();
    await page.goto(`http://127.0.0.1:${attacker.address().port}/`);
    const crossOrigin = await page.evaluate(attack, { control: kit.control, api: kit.api.replace(/\/api\/$/, "") });
    await screenshot(page, { path: `${shots}/attack-cross-origin.png`, fullPage: true });
    for (const [name, outcome] of crossOrigin) assert.match(outcome, /^(blocked|opaque)$/, name);

    const reboundControl = await reboundPage(ports.control);
    const onControl = await reboundControl.evaluate(attack, { control: "", api: "" });
    await screenshot(reboundControl, { path: `${shots}/attack-rebound-control.png`, fullPage: true });
    const reboundApi = await reboundPage(ports.api);
    const onApi = await reboundApi.evaluate(attack, { control: "", api: "" });
    await screenshot(reboundApi, { path: `${shots}/attack-rebound-access-server.png`, fullPage: true });
    // The page's own origin: every request reaches the server, which does not answer to the name.
    for (const [name, outcome] of [...onControl.slice(0, 9), ...onApi.slice(9)]) {
        assert.match(outcome, /^(421|opaque)$/, name);
    }
    assert.deepEqual(await snapshot(), before);
    await Promise.all([page.close(), reboundControl.close(), reboundApi.close()]);
});

test("the console and the docs page refuse to be framed", { timeout: 60000 }, async () => {
    const page = await newPage();
    const refusals = [];
    page.on("console", (m) => { if (/frame-ancestors|X-Frame-Options/.test(m.text())) refusals.push(m.text()); });
    await page.goto(`http://127.0.0.1:${attacker.address().port}/`);
    const targets = [kit.control + "/", kit.docs];
    await page.evaluate((urls) => Promise.all(urls.map((src) => new Promise((resolve) => {
        const frame = document.createElement("iframe");
        Object.assign(frame, { src, width: 420, height: 300, onload: resolve });
        document.body.append(frame);
    }))), targets);
    for (const target of targets) {
        const frame = page.frames().find((f) => f !== page.mainFrame() && f.url() === target);
        // A refused frame holds Chromium's error document, never the page.
        const framed = frame ? await frame.evaluate(() => document.querySelector("#tasks, #viewer") !== null) : false;
        assert.equal(framed, false, target);
    }
    assert.equal(refusals.length, 2, refusals.join("\n"));
    await screenshot(page, { path: `${shots}/framing-refused.png` });
    await page.close();
});

test("raw probes: Host, Origin, content type, preflight, headers and bounds", { timeout: 60000 }, async (t) => {
    const { control, api } = ports;
    const long = "/" + "p".repeat(200 * 1024);
    const cases = [
        // name, request, status, check of the answer
        ["foreign Host, control port", () => get(control, "/control/faults", `evil.test:${control}`), 421, (a) => assert.match(JSON.parse(a.body).error, /Host/)],
        ["foreign Host, access server", () => get(api, "/api/MultiTaskAppTaskModesCapacity", `evil.test:${api}`), 421,
            (a) => assert.equal(JSON.parse(a.body).ResponseStatus.StatusCode, 421)],
        ["loopback name on another port", () => get(control, "/control/faults", "localhost:1"), 421],
        ...["localhost.evil.test", `127.0.0.1.evil.test:${control}`, `localhost:${control}@evil.test`, `localhost:${control}:${control}`, "[::1]x", ""]
            .map((host) => [`look-alike Host "${host}"`, () => get(control, "/control/faults", host), 421]),
        ["localhost", () => get(control, "/control/faults", "localhost"), 200],
        ["[::1] with the port", () => get(api, "/api/MultiTaskAppTaskModesCapacity", `[::1]:${api}`), 200],
        ["--allow-host name, control port", () => get(control, "/control/faults", `${ADDED}:${control}`), 200],
        ["--allow-host name, access server", () => get(api, "/api/MultiTaskAppTaskModesCapacity", ADDED.toUpperCase()), 200],
        ["HTTP/1.1 without Host, control port", () => raw(control, "GET /control/faults HTTP/1.1\r\nConnection: close\r\n\r\n"), 400],
        ["HTTP/1.0 without Host", () => raw(control, "GET /control/faults HTTP/1.0\r\n\r\n"), 200],
        ["text/plain fault write", () => send(control, "PUT", "/control/faults/analysis/1201", "Content-Type: text/plain\r\n", '{"noReply": true}'), 415],
        ["form fault write", () => send(control, "PUT", "/control/faults/analysis/1201", "Content-Type: application/x-www-form-urlencoded\r\n", '{"noReply": true}'), 415],
        ["untyped body", () => send(control, "PUT", "/control/faults/analysis/1201", "", '{"noReply": true}'), 415],
        ["cross-origin reset", () => send(control, "POST", "/control/state/reset", "Origin: http://127.0.0.1:1\r\n"), 403],
        ["Origin null", () => send(control, "DELETE", "/control/journal", "Origin: null\r\n"), 403],
        ...[`http://localhost:${control}.evil.test`, `http://evil.test/http://localhost:${control}`, `ftp://localhost:${control}`, "http://localhost"]
            .map((origin) => [`look-alike Origin "${origin}"`, () => send(control, "DELETE", "/control/journal", `Origin: ${origin}\r\n`), 403]),
        ["own origin, JSON", () => send(control, "PUT", "/control/faults/analysis/1201", `Origin: http://localhost:${control}\r\nContent-Type: application/json; charset=utf-8\r\n`, '{"delayMs": 1}'), 200],
        ["foreign preflight", () => send(control, "OPTIONS", "/control/state/reset", "Origin: http://127.0.0.1:1\r\nAccess-Control-Request-Method: POST\r\n"), 403,
            (a) => assert.equal(a.headers["access-control-allow-origin"], undefined)],
        ["own preflight", () => send(control, "OPTIONS", "/control/faults", `Origin: http://127.0.0.1:${control}\r\n`), 200,
            (a) => { assert.equal(a.headers["access-control-allow-origin"], undefined); assert.match(JSON.parse(a.body).allow, /PUT/); }],
        ["cross-origin DELETE, access server", () => send(api, "DELETE", "/api/MultiTaskAppHistoryRecords?StartTime=2024-05-01T00:00:00&EndTime=2024-05-01T23:59:59", "Origin: http://evil.test\r\n"), 403],
        ["console framing headers", () => get(control, "/", "127.0.0.1"), 200, framingRefused],
        ["docs framing headers", () => get(api, "/docs", "127.0.0.1"), 200, framingRefused],
        // Refused on its head: the body is never read (a client that sent it all the same would
        // likely see its connection reset before it reads the answer).
        ["2 MiB body", () => raw(control, `PUT /control/state/tasks HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\nContent-Length: ${2 << 20}\r\n\r\n`), 413],
        ["200 kB path", () => get(control, long, "127.0.0.1"), 414, (a) => assert.ok(a.length < 1024)],
        // Within evhttp's own bound for the head: the request reaches the port, which refuses it.
        ["9 kB path", () => get(control, "/" + "p".repeat(9000), "127.0.0.1"), 414, (a) => assert.equal(a.headers.connection, "close")],
        ["20 kB header", () => get(control, "/control/faults", "127.0.0.1", `X-Big: ${"h".repeat(20000)}\r\n`), 431],
        ["echoed path", () => get(control, "/" + "e".repeat(1000), "127.0.0.1"), 404,
            (a) => assert.equal(JSON.parse(a.body).error, "no such path: /" + "e".repeat(254))],
        ["missing console file", () => get(control, "/console/" + "f".repeat(1000), "127.0.0.1"), 404,
            (a) => assert.equal(JSON.parse(a.body).error, "no such file: /console/" + "f".repeat(246))],
        // The answer stays UTF-8, as its type says: a byte that is no character is repeated as the
        // client wrote it, and the cut falls between characters.
        ["echoed path, bytes that are not UTF-8", () => get(control, "/control/%FF%FE%ED%A0%80", "127.0.0.1"), 404,
            (a) => assert.equal(utf8Json(a).error, "no such path: /control/%FF%FE%ED%A0%80")],
        ["echoed path, cut inside a character", () => get(control, "/x" + "%C3%A9".repeat(200), "127.0.0.1"), 404,
            (a) => assert.equal(utf8Json(a).error, "no such path: /x" + "\u00e9".repeat(126))],
    ];
    for (const [name, request, status, check] of cases) {
        await t.test(name, async () => {
            const answer = await request();
            assert.equal(answer.status, status, answer.body.slice(0, 300));
            assert.equal(answer.headers["x-content-type-options"], "nosniff");
            if (status !== 200 || !answer.headers["content-type"].startsWith("text/html")) JSON.parse(answer.body);
            check?.(answer);
        });
    }
    assert.equal(JSON.parse((await get(control, "/control/faults", "127.0.0.1")).body).filter((f) => f.noReply).length, 0);
});

// The body of a raw answer decoded as UTF-8 strictly (a byte that is not one throws), then parsed.
const utf8Json = (answer) => JSON.parse(new TextDecoder("utf-8", { fatal: true }).decode(Buffer.from(answer.body, "latin1")));

function framingRefused(answer) {
    assert.equal(answer.headers["x-frame-options"], "DENY");
    assert.match(answer.headers["content-security-policy"], /frame-ancestors 'none'/);
    assert.doesNotMatch(answer.body, /<script>/);  // the policy allows no inline script
}

// Peak resident memory of a process, from /proc.
const peakKiB = (pid) => Number(readFileSync(`/proc/${pid}/status`, "utf8").match(/VmHWM:\s+(\d+)/)[1]);

test("a 64 MiB request line is refused without being buffered", { timeout: 60000 }, async () => {
    const start = peakKiB(kit.pids.emulator);
    const answer = await new Promise((resolve, reject) => {
        const socket = connect(ports.control, "127.0.0.1");
        const chunks = [];
        socket.setTimeout(20000, () => { socket.destroy(); reject(new Error("no answer")); });
        socket.on("error", () => {});
        socket.on("data", (d) => chunks.push(d));
        socket.on("close", () => resolve(Buffer.concat(chunks).toString()));
        const piece = Buffer.alloc(1 << 20, "q");
        socket.write("GET /");
        let sent = 0;
        const more = () => { while (sent < 64 && !socket.destroyed && socket.write(piece)) sent++; };
        socket.on("drain", () => { sent++; more(); });
        more();
    });
    // The server answers and closes while this client is still sending: the client's socket may
    // then be reset before it reads the answer (the 200 kB case above reads it whole).
    if (answer !== "") assert.match(answer, /^HTTP\/1\.1 414 /);
    assert.ok(answer.length < 1024, `${answer.length} bytes answered`);
    const grown = peakKiB(kit.pids.emulator) - start;
    assert.ok(grown < 16 * 1024, `peak memory grew by ${grown} KiB`);
});
