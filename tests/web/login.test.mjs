// The access server's login and HTTPS through real clients: curl's Digest (right and wrong password,
// an expired nonce, a replayed nonce count, careless parameters), HTTPS and Basic-over-TLS with curl
// against a self-signed pair made here, and the docs page in headless Chromium behind the login.
// Screenshots go to $VKS_SCREENSHOTS.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { createHash } from "node:crypto";
import { once } from "node:events";
import { mkdirSync, readFileSync, rmSync, statSync, writeFileSync } from "node:fs";
import { connect } from "node:net";
import { after, before, test } from "node:test";
import { setTimeout as sleep } from "node:timers/promises";
import { launchBrowser, screenshot, startKit, startServer, stop, tryEnableList } from "./kit.mjs";

const LIFETIME_S = 3;  // --auth-nonce-lifetime: short, so that a nonce expires within the test
const RESOURCE = "MultiTaskAppDisplayRecogPopUps";  // its GET names the user in the operation log
const shots = process.env.VKS_SCREENSHOTS;
const scratch = `${process.env.VKS_SCRATCH}/login-files`;
const users = `${scratch}/users.htdigest`;
const oplog = `${scratch}/oplog.txt`;
const pair = `${scratch}/tls`;  // a self-signed certificate and key
const md5 = (text) => createHash("md5").update(text).digest("hex");
// What the operation log gained since mark() (the server keeps the file open: it is never removed).
const logSize = () => { try { return statSync(oplog).size; } catch { return 0; } };
const logSince = (mark) => { try { return readFileSync(oplog).subarray(mark).toString(); } catch { return ""; } };
let kit;

before(async () => {
    rmSync(scratch, { recursive: true, force: true });
    mkdirSync(scratch, { recursive: true });
    // As `htdigest` writes it: user:realm:MD5(user:realm:password).
    writeFileSync(users, ["alice", "bob"].map((u) => `${u}:vks:${md5(`${u}:vks:secret-${u}`)}\n`).join(""));
    const made = spawnSync(new URL("../../scripts/tls-pair.sh", import.meta.url).pathname, [pair],
        { encoding: "utf8", timeout: 20000 });
    assert.equal(made.status, 0, made.stderr);
    kit = await startKit("login", ["--auth-file", users, `--auth-nonce-lifetime=${LIFETIME_S}`, "--oplog", oplog]);
});
after(async () => { await kit?.stop(); });

// One curl run; the last answer's status, headers and body (-i prints every answer of a Digest
// exchange), and what -v printed.
function curl(...args) {
    const r = spawnSync("curl", ["-s", "-S", "-m", "10", "-i", "-v", ...args], { encoding: "utf8", timeout: 15000 });
    const answers = r.stdout.split(/^(?=HTTP\/1\.1 \d{3} )/m);
    const [head, body = ""] = answers[answers.length - 1].split("\r\n\r\n");
    return { exit: r.status, status: Number(head.split(" ")[1]) || 0, head, body, trace: r.stderr };
}

const challengeOf = (head) => head.match(/^WWW-Authenticate: (Digest .*)\r$/m)?.[1];

async function freshNonce(base) {
    const response = await fetch(`${base}/api/${RESOURCE}`, { signal: AbortSignal.timeout(10000) });
    return response.headers.get("www-authenticate").match(/nonce="([0-9a-f]+)"/)[1];
}

// An Authorization value computed as RFC 7616 has it, with the fields a test wants to spoil.
function digest({ user = "alice", password = "secret-alice", nonce, nc, uri = `/api/${RESOURCE}`, realm = "vks" }) {
    const cnonce = "c0ffee";
    const response = md5(`${md5(`${user}:${realm}:${password}`)}:${nonce}:${nc}:${cnonce}:auth:${md5(`GET:${uri}`)}`);
    return `Digest username="${user}", realm="${realm}", nonce="${nonce}", uri="${uri}", qop=auth, nc=${nc}, ` +
        `cnonce="${cnonce}", response="${response}", algorithm=MD5`;
}

async function get(base, authorization, target = `/api/${RESOURCE}`) {
    const response = await fetch(base + target, { headers: { authorization }, signal: AbortSignal.timeout(10000) });
    return { status: response.status, challenge: response.headers.get("www-authenticate") ?? "", body: await response.text() };
}

test("curl --digest: the right password is served and names the log's user, others get a challenge", { timeout: 30000 }, () => {
    const url = kit.api + RESOURCE;
    const cases = [
        // credentials, status, the line the operation log then holds (null: none)
        [["--digest", "-u", "alice:secret-alice"], 200, /\talice\[127\.0\.0\.1:\d+\] Get RVN Face Recog Popup Params Successfully/],
        [["--digest", "-u", "bob:secret-bob"], 200, /\tbob\[127\.0\.0\.1:\d+\] Get RVN Face Recog Popup Params Successfully/],
        [["--digest", "-u", "alice:secret-bob"], 401, null],
        [["--digest", "-u", "mallory:secret-alice"], 401, null],
        [["--basic", "-u", "alice:secret-alice"], 401, null],  // Basic only with --auth-basic, over TLS
        [[], 401, null],
    ];
    for (const [credentials, status, logged] of cases) {
        const mark = logSize();
        const r = curl(...credentials, url);
        assert.equal(r.status, status, `${credentials}: ${r.head}`);
        if (status === 401) {
            assert.match(challengeOf(r.head), /^Digest realm="vks", qop="auth", nonce="[0-9a-f]{32}", algorithm=MD5$/);
            assert.equal(JSON.parse(r.body).ResponseStatus.StatusCode, 401);
        }
        const log = logSince(mark);
        if (logged) assert.match(log, logged);
        else assert.equal(log, "", `${credentials} reached the module`);
    }
});

test("an expired nonce gets stale=true when the digest is right, and curl's next login goes through", { timeout: 30000 }, async () => {
    const nonce = await freshNonce(kit.api.replace(/\/api\/$/, ""));
    await sleep(LIFETIME_S * 1000 + 500);
    const base = kit.api.replace(/\/api\/$/, "");
    const right = await get(base, digest({ nonce, nc: "00000001" }));
    assert.equal(right.status, 401);
    assert.match(right.challenge, /, stale=true$/);
    const wrong = await get(base, digest({ nonce, nc: "00000001", password: "guess" }));
    assert.equal(wrong.status, 401);
    assert.doesNotMatch(wrong.challenge, /stale/);
    assert.equal(curl("--digest", "-u", "alice:secret-alice", kit.api + RESOURCE).status, 200);
});

test("a nonce count is taken once; counts may come out of order", { timeout: 30000 }, async () => {
    const base = kit.api.replace(/\/api\/$/, "");
    // curl's own request, sent again as it was.
    const sent = curl("--digest", "-u", "alice:secret-alice", kit.api + RESOURCE);
    assert.equal(sent.status, 200);
    const replay = await get(base, sent.trace.match(/^> Authorization: (Digest .*)\r$/m)[1]);
    assert.equal(replay.status, 401);
    assert.doesNotMatch(replay.challenge, /stale/);
    const nonce = await freshNonce(base);
    for (const [nc, status] of [["00000001", 200], ["00000001", 401], ["00000003", 200], ["00000002", 200],
        ["00000002", 401], ["00000003", 401], ["00000004", 200]]) {
        assert.equal((await get(base, digest({ nonce, nc }))).status, status, `nc=${nc}`);
    }
});

test("a flood of challenges keeps a bounded table: the oldest nonce turns stale, the newest still serves", { timeout: 60000 }, async () => {
    const server = await startServer(kit.dir, ["--auth-file", users]);  // nonces live 300 s here
    try {
        const base = server.match[1];
        const oldest = await freshNonce(base);
        let newest;
        for (let sent = 0; sent < 4200; sent += 100) {
            newest = (await Promise.all(Array.from({ length: 100 }, () => freshNonce(base)))).pop();
        }
        const stale = await get(base, digest({ nonce: oldest, nc: "00000001" }));
        assert.equal(stale.status, 401);
        assert.match(stale.challenge, /, stale=true$/);
        assert.equal((await get(base, digest({ nonce: newest, nc: "00000001" }))).status, 200);
    } finally {
        assert.equal(await stop(server.child), 0, server.output());
    }
});

test("malformed Digest parameters get 400, a foreign realm a challenge", { timeout: 30000 }, async () => {
    const base = kit.api.replace(/\/api\/$/, "");
    const nonce = await freshNonce(base);
    const valid = digest({ nonce, nc: "00000001" });
    const cases = [
        [digest({ nonce, nc: "00000001", uri: "/api/MultiTaskAppHistory" }), 400],  // signed for another target
        [valid.replace(/, cnonce="[^"]*"/, ""), 400],
        [valid.replace("nc=00000001", "nc=1"), 400],
        [digest({ nonce, nc: "00000000" }), 400],
        [valid.replace(/response="[0-9a-f]+"/, 'response="00'), 400],  // unterminated
        [valid.replace("username=", "username=\"x\", username="), 400],
        [digest({ nonce, nc: "00000002", realm: "other" }), 401],
        [valid.replace("qop=auth", "qop=auth-int"), 401],
    ];
    for (const [authorization, status] of cases) {
        const r = await get(base, authorization);
        assert.equal(r.status, status, authorization);
        assert.equal(JSON.parse(r.body).ResponseStatus.StatusCode, status);
    }
});

test("HTTPS with the self-signed pair: Digest and Basic with --cacert, nothing in clear text", { timeout: 60000 }, async () => {
    const server = await startServer(kit.dir, ["--auth-file", users, "--auth-basic", "--tls-cert", `${pair}/cert.pem`,
        "--tls-key", `${pair}/key.pem`]);
    try {
        const base = server.match[1];
        assert.match(base, /^https:/);
        const port = base.split(":")[2];
        const ca = ["--cacert", `${pair}/cert.pem`];
        const cases = [
            // curl arguments, URL, curl's exit status, HTTP status
            [[...ca, "--digest", "-u", "alice:secret-alice"], `${base}/api/${RESOURCE}`, 0, 200],
            [[...ca, "--digest", "-u", "bob:secret-bob"], `https://localhost:${port}/api/${RESOURCE}`, 0, 200],
            [[...ca, "--basic", "-u", "alice:secret-alice"], `${base}/api/${RESOURCE}`, 0, 200],
            [[...ca, "--basic", "-u", "alice:secret-bob"], `${base}/api/${RESOURCE}`, 0, 401],
            [[...ca], `${base}/docs`, 0, 401],
            [["--digest", "-u", "alice:secret-alice"], `${base}/api/${RESOURCE}`, 60, 0],  // not trusted without --cacert
            [["--digest", "-u", "alice:secret-alice"], `http://127.0.0.1:${port}/api/${RESOURCE}`, 52, 0],
        ];
        for (const [args, url, exit, status] of cases) {
            const r = curl(...args, url);
            assert.deepEqual([r.exit, r.status], [exit, status], `${args} ${url}: ${r.trace.slice(-400)}`);
        }
        const basic = curl(...ca, `${base}/api/${RESOURCE}`).head;
        assert.match(basic, /^WWW-Authenticate: Digest [^\r]*\r\nWWW-Authenticate: Basic realm="vks", charset="UTF-8"\r$/m);
    } finally {
        assert.equal(await stop(server.child), 0, server.output());
    }
});

test("a TLS handshake trickled a byte at a time is cut off by --header-timeout", { timeout: 30000 }, async () => {
    const server = await startServer(kit.dir, ["--tls-cert", `${pair}/cert.pem`, "--tls-key", `${pair}/key.pem`,
        "--header-timeout", "1000", "--idle-timeout", "60000"]);
    try {
        const socket = connect(Number(server.match[1].split(":")[2]), "127.0.0.1");
        const hello = Buffer.from([0x16, 0x03, 0x01, 0x02, 0x00, 0x01, 0x00, 0x01, 0xfc, 0x03, 0x03]);
        let sent = 0;
        const trickle = setInterval(() => { if (sent < hello.length) socket.write(hello.subarray(sent, ++sent)); }, 200);
        const started = Date.now();
        await Promise.race([once(socket, "close"), sleep(10000).then(() => { throw new Error("still open after 10 s"); })]);
        clearInterval(trickle);
        assert.ok(Date.now() - started < 5000);
    } finally {
        assert.equal(await stop(server.child), 0, server.output());
    }
});

test("docs page behind the login: refused without credentials, try it out works after the login", { timeout: 90000 }, async () => {
    mkdirSync(shots, { recursive: true });
    const browser = await launchBrowser();
    try {
        // Without credentials, or with a wrong password, the browser gets no further than the challenge.
        // Chromium shows the 401 answer, or (once the driver cancels its prompt) an error page.
        for (const [name, httpCredentials] of [["none", undefined], ["wrong", { username: "alice", password: "secret-bob" }]]) {
            const stranger = await browser.newContext({ httpCredentials, viewport: { width: 1280, height: 900 } });
            const page = await stranger.newPage();
            const outcome = await page.goto(kit.docs, { timeout: 15000 }).then((r) => r.status(),
                (e) => e.message.match(/ERR_INVALID_AUTH_CREDENTIALS/)?.[0] ?? e.message);
            assert.ok([401, "ERR_INVALID_AUTH_CREDENTIALS"].includes(outcome), `${name}: ${outcome}`);
            await page.waitForLoadState("load");  // the error page, when the navigation failed
            await screenshot(page, { path: `${shots}/docs-login-refused-${name}.png` });
            await stranger.close();
        }

        // The credentials the browser's own prompt would collect, given through the driver.
        const context = await browser.newContext({ viewport: { width: 1280, height: 900 },
            httpCredentials: { username: "alice", password: "secret-alice" } });
        const page = await context.newPage();
        page.setDefaultTimeout(15000);
        const mark = logSize();
        assert.equal((await page.goto(kit.docs)).status(), 200);
        const { op, body } = await tryEnableList(page);
        JSON.parse(await body.innerText());
        assert.match(await op.locator(".live-responses-table tbody .response-col_status").first().innerText(), /^200/);
        assert.match(logSince(mark), /\talice\[127\.0\.0\.1:\d+\] Get TaskModes EnableList Successfully\./);
        await body.scrollIntoViewIfNeeded();
        await screenshot(page, { path: `${shots}/docs-login.png` });
    } finally {
        await browser.close();
    }
});
