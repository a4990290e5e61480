// The kit for the web tests: the camera emulator with its control port and the access server, as
// child processes on free loopback ports, with scratch files under the build tree. The test command
// runs these tests inside a private mount namespace, so the emulator's /mnt/srvfs is the test's own.
import { spawn } from "node:child_process";
import { mkdirSync, rmSync } from "node:fs";
import { setTimeout as sleep } from "node:timers/promises";
import { chromium } from "playwright-core";
import { OpenApiDocument } from "./openapi_schema.mjs";

const bin = process.env.VKS_BIN_DIR;
const root = new URL("../..", import.meta.url).pathname;
export const controlDoc = new OpenApiDocument(`${root}docs/openapi/emulator-control.json`);

// Starts a daemon and resolves with the first stdout line that matches, or rejects after timeoutMs.
function startDaemon(argv, pattern, timeoutMs) {
    const child = spawn(argv[0], argv.slice(1), { stdio: ["ignore", "pipe", "pipe"] });
    let output = "";
    return new Promise((resolve, reject) => {
        const timer = setTimeout(() => reject(new Error(`${argv[0]}: no "${pattern}" in time:\n${output}`)), timeoutMs);
        const onData = (data) => {
            output += data;
            const match = output.match(pattern);
            if (match) {
                clearTimeout(timer);
                resolve({ child, match, output: () => output });
            }
        };
        child.stdout.on("data", onData);
        child.stderr.on("data", (d) => (output += d));
        child.on("exit", (code) => reject(new Error(`${argv[0]} exited with ${code}:\n${output}`)));
    });
}

export function stop(child, timeoutMs = 15000) {
    if (child.exitCode !== null) return Promise.resolve(child.exitCode);
    return new Promise((resolve) => {
        const timer = setTimeout(() => child.kill("SIGKILL"), timeoutMs);
        child.on("exit", (code) => { clearTimeout(timer); resolve(code); });
        child.kill("SIGTERM");
    });
}

// An access server for the emulator of the kit in dir; its base URL is match[1].
export function startServer(dir, serverArgs = []) {
    return startDaemon([`${bin}/vks_access_server`, "--listen", "127.0.0.1:0", "--cmd-socket", `${dir}/cmd.sock`,
        ...serverArgs], /listening on (https?:\/\/127\.0\.0\.1:\d+)/, 20000);
}

// Both daemons with fresh state; serverArgs go to the access server, emulatorArgs to the emulator.
export async function startKit(name, serverArgs = [], emulatorArgs = []) {
    const dir = `${process.env.VKS_SCRATCH}/${name}`;
    rmSync(dir, { recursive: true, force: true });
    mkdirSync(`${dir}/results`, { recursive: true, mode: 0o700 });  // the daemons refuse open folders
    const emulator = await startDaemon([`${bin}/vks_emulator`, "--mount", "/mnt/srvfs", "--db", `${dir}/vks.db`,
        "--cmd-socket", `${dir}/cmd.sock`, "--result-dir", `${dir}/results`, "--control-port", "0", ...emulatorArgs],
        /control on (http:\/\/127\.0\.0\.1:\d+)\/\n(.|\n)*vks_emulator: ready/, 20000);
    const server = await startServer(dir, serverArgs).catch(async (e) => { await stop(emulator.child); throw e; });
    const kit = {
        dir,
        api: server.match[1] + "/api/",
        docs: server.match[1] + "/docs",
        control: emulator.match[1],
        pids: { emulator: emulator.child.pid, server: server.child.pid },
        // A control-API call whose answer must match the control document.
        async ctl(method, path, body) {
            const response = await fetch(kit.control + path, {
                method, body: body === undefined ? undefined : JSON.stringify(body),
                headers: body === undefined ? {} : { "Content-Type": "application/json" },
                signal: AbortSignal.timeout(10000),
            });
            const value = await response.json();
            const found = controlDoc.match(path.split("?")[0], method);
            const schema = found && controlDoc.schemaRef(found[0], found[1], response.status);
            const errors = schema ? controlDoc.check(schema, value) : [`${method} ${path} ${response.status} not described`];
            if (errors.length) throw new Error(`${method} ${path}: ${errors.join("; ")}`);
            return { status: response.status, value };
        },
        // A module request through the access server.
        async call(method, resource, body) {
            const response = await fetch(kit.api + resource, { method, body, signal: AbortSignal.timeout(20000) });
            return { status: response.status, text: await response.text() };
        },
        async stop() {
            const codes = [await stop(server.child), await stop(emulator.child)];
            if (codes.some((c) => c !== 0)) throw new Error(`daemons ended with ${codes}:\n${server.output()}\n${emulator.output()}`);
        },
    };
    return kit;
}

// On the docs page: opens the enable list's GET, fills ChannelId 101, runs "Try it out" and gives
// the operation's block and the shown body (rendered).
export async function tryEnableList(page) {
    await page.locator(".info .title", { hasText: "Multi-task application REST module" }).waitFor();
    const path = page.locator(".opblock-summary-path", { hasText: /^\/MultiTaskAppTaskModesEnableList$/ });
    const op = page.locator(".opblock-get", { has: path });
    await op.locator(".opblock-summary").click();
    await op.locator("input[placeholder=ChannelId]").fill("101");
    await op.locator("button.execute").click();
    const body = op.locator(".live-responses-table .response-col_description pre").first();
    await body.waitFor();
    return { op, body };
}

// Headless Chromium as every page test runs it. Without the background-networking switches it keeps
// calling out of this closed network.
export function launchBrowser(extraArgs = []) {
    return chromium.launch({
        executablePath: "/usr/bin/chromium",
        args: ["--no-sandbox", "--disable-gpu", "--disable-background-networking", "--disable-component-update",
               "--disable-sync", "--no-first-run", "--disable-quic", ...extraArgs],
        timeout: 30000,
    });
}

// page.screenshot, asked again when Chromium refuses a capture with "Unable to capture screenshot":
// it does so now and then for a page whose first frame is not composited yet (seen on a loaded CI
// machine right after an error page), and takes the same picture a moment later. Any other error,
// or the refusal five times over, still fails the test.
export async function screenshot(page, options) {
    for (let attempt = 1; ; attempt++) {
        try {
            return await page.screenshot(options);
        } catch (e) {
            if (attempt === 5 || !/Unable to capture screenshot/.test(e.message)) throw e;
            await sleep(200 * attempt);
        }
    }
}
