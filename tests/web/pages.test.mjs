// The two pages in headless Chromium (Debian's): the access server's docs page renders the module's
// OpenAPI document and its "try it out" returns the live body; the emulator console shows the task
// list, a fault set in the console makes the next curl of that resource fail as configured, and the
// journal shows that request. Screenshots of both pages go to $VKS_SCREENSHOTS.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdirSync, readFileSync } from "node:fs";
import { after, before, test } from "node:test";
import { launchBrowser, screenshot, startKit, tryEnableList } from "./kit.mjs";

const shots = process.env.VKS_SCREENSHOTS;
let kit;
let browser;

before(async () => {
    mkdirSync(shots, { recursive: true });
    kit = await startKit("pages");
    browser = await launchBrowser();
});
after(async () => {
    await browser?.close();
    await kit?.stop();
});

// Each page's own policy must not have to refuse anything of the page (an inline script, a style).
async function newPage() {
    const page = await browser.newPage({ viewport: { width: 1280, height: 900 } });
    page.setDefaultTimeout(15000);
    page.violations = [];
    page.on("console", (m) => { if (/Content Security Policy/.test(m.text())) page.violations.push(m.text()); });
    return page;
}

test("docs page: the document renders and try it out returns the live body", { timeout: 60000 }, async () => {
    const page = await newPage();
    await page.goto(kit.docs);
    const { op, body } = await tryEnableList(page);
    // ChannelGroup comes filled in with the document's example.
    const live = await kit.call("GET", "MultiTaskAppTaskModesEnableList?ChannelId=101&ChannelGroup=1");
    assert.deepEqual(JSON.parse(await body.innerText()), JSON.parse(live.text));
    assert.match(await op.locator(".request-url pre").innerText(), /\/api\/MultiTaskAppTaskModesEnableList\?ChannelId=101&ChannelGroup=1$/);
    await body.scrollIntoViewIfNeeded();
    await screenshot(page, { path: `${shots}/docs.png` });
    assert.deepEqual(page.violations, []);
    await page.close();
});

test("console: task list, a fault set in the page reaches curl, the journal shows the request", { timeout: 60000 }, async () => {
    const page = await newPage();
    await page.goto(kit.control + "/");
    const channels = page.locator("#tasks tbody tr td:first-child");
    await page.waitForFunction(() => document.querySelectorAll("#tasks tbody tr").length === 4);
    assert.deepEqual(await channels.allInnerTexts(), ["101", "102", "201", "202"]);

    await page.selectOption("#fault-road", "command-channel");
    await page.selectOption("#fault-command", "22025");
    await page.fill("#fault-result", "5");
    await page.click("#fault-set");
    await page.locator("#faults tbody tr", { hasText: "22025" }).waitFor();

    const url = kit.api + "MultiTaskAppHistory?ChannelId=101";
    const curl = execFileSync("curl", ["-s", "-m", "10", "-w", "\n%{http_code}", url], { encoding: "utf8" }).split("\n");
    assert.equal(curl[1], "502");
    assert.equal(JSON.parse(curl[0]).ResponseStatus.StatusCode, 5);

    const row = page.locator("#journal tbody tr", { hasText: "22025" }).filter({ hasText: '"result":5' });
    await row.first().waitFor();
    assert.match(await row.first().innerText(), /command-channel\s+22025\s+get[\s\S]*"channelId":101[\s\S]*yes/);
    await screenshot(page, { path: `${shots}/console.png`, fullPage: true });
    assert.deepEqual(page.violations, []);
    await page.close();
});

test("console: a scenario exported to a file and imported from one", { timeout: 60000 }, async () => {
    const page = await newPage();
    await page.goto(kit.control + "/");
    await page.waitForFunction(() => document.querySelectorAll("#tasks tbody tr").length === 4);
    const [download] = await Promise.all([page.waitForEvent("download"), page.click("#scenario-export")]);
    const saved = JSON.parse(readFileSync(await download.path(), "utf8"));
    assert.deepEqual(saved, (await kit.ctl("GET", "/control/scenario")).value);

    const changed = { ...saved, state: { ...saved.state, tasks: saved.state.tasks.slice(0, 1) } };
    await page.setInputFiles("#scenario-file", { name: "s.json", mimeType: "application/json",
        buffer: Buffer.from(JSON.stringify(changed)) });
    await page.waitForFunction(() => document.querySelectorAll("#tasks tbody tr").length === 1);
    assert.deepEqual((await kit.ctl("GET", "/control/scenario")).value, changed);

    const bad = { ...saved, state: { ...saved.state, counts: [{ slot: 5, available: 0, capacity: 0 }] } };
    await page.setInputFiles("#scenario-file", { name: "bad.json", mimeType: "application/json",
        buffer: Buffer.from(JSON.stringify(bad)) });
    await page.locator("#scenario-error", { hasText: "counts row 0: slot: 5 is not" }).waitFor();
    assert.deepEqual((await kit.ctl("GET", "/control/scenario")).value, changed);
    await kit.ctl("PUT", "/control/scenario", saved);
    await page.close();
});
