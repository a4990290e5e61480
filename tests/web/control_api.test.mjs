// The emulator's control API through real HTTP, with the module in the access server in front: each
// fault kind on the road it was set for, each state kind read back through the module, the
// journal's decoding of what arrived, the refusal of every row and filter its document forbids, and
// scenario files. Every control answer is checked against its OpenAPI schema.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { spawnSync } from "node:child_process";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { startKit } from "./kit.mjs";

let kit;
// The daemon starts from a scenario file: the demo state with one history switch more, and two
// analysis faults, one of which the command line's fault option replaces.
const startScenario = JSON.parse(readFileSync(new URL("../../emulator/state/demo-scenario.json", import.meta.url)));
startScenario.state.historySwitches = [{ channelId: 9, enableRecord: 0 }];
startScenario.faults = [{ road: "analysis", command: 229, status: 404 }, { road: "analysis", command: 1203, result: 3 }];
before(async () => {
    const file = `${process.env.VKS_SCRATCH}/control-scenario.json`;
    mkdirSync(process.env.VKS_SCRATCH, { recursive: true });
    writeFileSync(file, JSON.stringify(startScenario));
    kit = await startKit("control", ["--reply-timeout", "1500"], [`--scenario=${file}`, "--fault-delay=1203:1",
        "--cmd-fault-result=9", "--journal-size=20"]);
});
after(async () => { await kit?.stop(); });

const QUERY = "MultiTaskAppHistoryRecords?StartIndex=0&FindNum=5&EndTime=2024-05-01T23:59:59&DatabaseType=0";

test("the start-up scenario and the fault options over it are in the run-time tables", { timeout: 10000 }, async () => {
    const listed = (await kit.ctl("GET", "/control/faults")).value;
    assert.deepEqual(listed.map((f) => [f.road, f.command, f.delayMs, f.result, f.status]),
        [["analysis", 229, 0, null, 404], ["analysis", 1203, 1, null, null], ["command-channel", "all", 0, 9, null]]);
    assert.deepEqual((await kit.ctl("GET", "/control/state")).value, startScenario.state);
    assert.equal((await kit.call("GET", "MultiTaskAppHistory?ChannelId=101")).status, 502);
});

test("each fault kind changes the next answer as configured, and removing it restores it", { timeout: 60000 }, async (t) => {
    const cases = [
        // road, command, fault, request, expected HTTP status, StatusCode in the body or the body (if any)
        ["analysis", 1203, { result: 5 }, "MultiTaskAppTaskModesCapacity", 502],
        ["analysis", 229, { status: 404 }, "MultiTaskAppDisplayRecogPopUps", 500, -1],
        ["analysis", 1202, { wrongUri: true }, "MultiTaskAppTaskModesAvailableList", 500, -1],
        ["analysis", 1203, { contentLength: 10 }, "MultiTaskAppTaskModesCapacity", 500, -1],
        ["analysis", 1201, { noReply: true }, "MultiTaskAppTaskModesEnableList", 504, -1],
        ["analysis", "all", { result: 38, probability: 0 }, "MultiTaskAppTaskModesCapacity", 200],
        ["command-channel", 22025, { result: 7 }, "MultiTaskAppHistory?ChannelId=101", 502, 7],
        ["command-channel", 7037, { noReply: true }, "MultiTaskAppDisplayRecogInfos", 500, -1],
        ["command-channel", 7032, { status: 9 }, QUERY, 500, 1],
        ["command-channel", 22025, { contentLength: 0 }, "MultiTaskAppHistory?ChannelId=101", 500, -1],
        // A record shorter than the command's is refused by the host before the module reads it.
        ["command-channel", 22025, { contentLength: 1 }, "MultiTaskAppHistory?ChannelId=101", 500, 18],
    ];
    for (const [road, command, fault, resource, status, code] of cases) {
        await t.test(`${road} ${command} ${JSON.stringify(fault)}`, async () => {
            await kit.ctl("DELETE", "/control/faults");  // whatever an earlier case left
            const set = await kit.ctl("PUT", `/control/faults/${road}/${command}`, fault);
            assert.equal(set.status, 200);
            const listed = (await kit.ctl("GET", "/control/faults")).value;
            assert.deepEqual(listed.map((f) => [f.road, f.command]), [[road, command]]);
            const faulted = await kit.call("GET", resource);
            assert.equal(faulted.status, status, faulted.text);
            if (typeof code === "string") assert.equal(faulted.text, code);
            else if (code !== undefined) assert.equal(JSON.parse(faulted.text).ResponseStatus.StatusCode, code);
            assert.equal((await kit.ctl("DELETE", `/control/faults/${road}/${command}`)).status, 200);
            assert.equal((await kit.call("GET", resource)).status, 200);
        });
    }
    await t.test("delay with jitter, and the journal's record of it", async () => {
        await kit.ctl("DELETE", "/control/journal");
        await kit.ctl("PUT", "/control/faults/analysis/1202", { delayMs: 400, jitterMs: 100 });
        await kit.ctl("PUT", "/control/faults/command-channel/7037", { delayMs: 300 });
        for (const [resource, least] of [["MultiTaskAppTaskModesAvailableList", 300], ["MultiTaskAppDisplayRecogInfos", 300]]) {
            const start = Date.now();
            assert.equal((await kit.call("GET", resource)).status, 200);
            assert.ok(Date.now() - start >= least, `${resource} answered after ${Date.now() - start} ms`);
        }
        const delays = (await kit.ctl("GET", "/control/journal")).value.entries.map((e) => [e.command, e.delayMs, e.faulted]);
        assert.ok(delays[0][1] >= 300 && delays[0][1] <= 500 && delays[0][2], JSON.stringify(delays));
        assert.deepEqual(delays[1], [7037, 300, true]);
        assert.deepEqual((await kit.ctl("DELETE", "/control/faults")).value, []);
    });
    await t.test("bad faults are refused", async () => {
        assert.equal((await kit.ctl("PUT", "/control/faults/analysis/7032", {})).status, 404);
        assert.equal((await kit.ctl("PUT", "/control/faults/analysis/229", { probability: 2 })).status, 400);
        assert.equal((await kit.ctl("PUT", "/control/faults/analysis/229", { delay: 1 })).status, 400);
    });
});

test("each state kind is replaced, seen by the module, and reset to the demo data", { timeout: 60000 }, async (t) => {
    const tasks = Array.from({ length: 33 }, (_, i) => ({ channelId: 300 + i, channelGroup: 1, faceDetection: 1,
        faceAttribute: 0, humanAttribute: 0, faceRecognition: i % 2, vhdDetection: 0, nmvAttribute: 0, vehAttribute: 0 }));
    const cases = [
        ["counts", [{ slot: 0, available: 9, capacity: 10 }, { slot: 1, available: 0, capacity: 1 }, { slot: 2, available: 7, capacity: 7 }],
            "MultiTaskAppTaskModesAvailableList", (b) => assert.deepEqual(b, { faceDetection: 9, vhdDetection: 0, vhdFaceMode: 7 })],
        ["tasks", tasks, "MultiTaskAppTaskModesEnableList", (b) => {
            assert.equal(b.taskNum, 32);  // the service sends at most 32 of the 33
            assert.deepEqual(b.taskEnable.map((e) => e.channelId), tasks.slice(0, 32).map((e) => e.channelId));
        }],
        ["popUps", [{ channelId: 101, blackPopUp: 0, whitePopUp: 1 }], "MultiTaskAppDisplayRecogPopUps",
            (b) => assert.deepEqual(b, { blackPopUp: 0, whitePopUp: 1 })],
        ["displaySettings", [{ channelId: 101, matchRate: 0, snapTime: 0, deviceName: 0, faceLibName: 0, name: 1, cardId: 0,
            gender: 0, province: 0, city: 0, cardType: 0, birthday: 0, blackMatchPic: 0, whiteMatchPic: 1 }],
            "MultiTaskAppDisplayRecogInfos", (b) => assert.equal(Object.values(b).join(""), "0000100000001")],
        ["historySwitches", [{ channelId: 101, enableRecord: 0 }], "MultiTaskAppHistory?ChannelId=101",
            (b) => assert.deepEqual(b, { channelId: 101, enableRecord: 0 })],
        ["historyRecords", [{ RecordId: 7, SnapTime: "2024-05-01T10:00:00", ChannelId: 5, DatabaseType: 1, FirstAttri: 0,
            SecondAttri: 0, LibId: 3, Name: "Tester", MatchRate: 99 }], QUERY,
            (b) => assert.deepEqual([b.TotalNum, b.Records[0].Name, b.Records[0].RecordId], [1, "Tester", 7])],
    ];
    for (const [kind, rows, resource, expect] of cases) {
        await t.test(kind, async () => {
            await kit.call("GET", resource);  // the old state read first: no stale copy may answer later
            const put = await kit.ctl("PUT", `/control/state/${kind}`, rows);
            assert.equal(put.status, 200);
            assert.deepEqual(put.value, rows);
            assert.deepEqual((await kit.ctl("GET", `/control/state/${kind}`)).value, rows);
            const answer = await kit.call("GET", resource);
            assert.equal(answer.status, 200, answer.text);
            expect(JSON.parse(answer.text));
            const bad = await kit.ctl("PUT", `/control/state/${kind}`, [{ ...rows[0], surplus: 1 }]);
            assert.equal(bad.status, 400);
            assert.deepEqual((await kit.ctl("GET", `/control/state/${kind}`)).value, rows);  // unchanged
        });
    }
    const demo = (await kit.ctl("POST", "/control/state/reset")).value;
    assert.equal(demo.tasks.length, 4);
    assert.deepEqual(JSON.parse((await kit.call("GET", "MultiTaskAppTaskModesAvailableList")).text),
        { faceDetection: 4, vhdDetection: 2, vhdFaceMode: 1 });
    assert.equal((await kit.ctl("GET", "/control/state")).value.historyRecords.length, 24);
});

test("the journal decodes a DXMP request with its request block and a command body", { timeout: 30000 }, async () => {
    await kit.ctl("DELETE", "/control/journal");
    assert.equal((await kit.call("GET", "MultiTaskAppTaskModesEnableList?ChannelGroup=2")).status, 200);
    assert.equal((await kit.call("GET", QUERY + "&StartTime=2024-05-01T08:00:00&LibId=3")).status, 200);
    const journal = (await kit.ctl("GET", "/control/journal")).value;
    assert.equal(journal.entries.length, 2);
    const [dxmp, cmd] = journal.entries;
    const line = "GET /api/MultiTaskAppTaskModesEnableList?ChannelGroup=2";
    assert.deepEqual([dxmp.road, dxmp.command, dxmp.method], ["analysis", 1201, "get"]);
    assert.deepEqual(dxmp.request.items, [
        { type: "0xB002", channelId: 0 },
        { type: "0xB010", length: 288 + line.length + 1,
          block: { bufferLen: line.length + 1, reserved1: 0, reserved2: 0, msgCount: 1,
                   pBuffer: dxmp.request.items[1].block.pBuffer, text: line } },
        { type: "0xB011", channelGroup: 2 }]);
    assert.deepEqual(dxmp.answer, { status: 200, uri: 1201, result: 0, contentLength: 1304 });
    assert.deepEqual([cmd.road, cmd.command, cmd.method, cmd.request.length], ["command-channel", 7032, "msg", 21208]);
    assert.deepEqual(cmd.request.fields, { StartTime: "2024-05-01T08:00:00", EndTime: "2024-05-01T23:59:59",
        ChannelId: 0, DatabaseType: 0, FirstAttri: 0, SecondAttri: 0, LibId: 3, FindNum: 5, StartIndex: 0 });
    assert.equal(cmd.answer.fields.result, 0);
    assert.match(cmd.answer.fields.szPath, /history-[0-9a-f]{32}\.json$/);
    const filtered = (await kit.ctl("GET", `/control/journal?road=command-channel&since=${dxmp.seq - 1}`)).value;
    assert.deepEqual(filtered.entries.map((e) => e.seq), [cmd.seq]);
    assert.deepEqual((await kit.ctl("GET", "/control/journal?limit=1")).value.entries.map((e) => e.seq), [cmd.seq]);
    for (let i = 0; i < 20; ++i) await kit.call("GET", "MultiTaskAppTaskModesCapacity");
    const bounded = (await kit.ctl("GET", "/control/journal")).value;
    assert.deepEqual([bounded.capacity, bounded.entries.length, bounded.entries[0].seq], [20, 20, cmd.seq + 1]);
    assert.ok(bounded.dropped >= 2);
});

test("each out-of-range, missing-key and bad-filter case gets 400 in the port's own words", { timeout: 30000 }, async (t) => {
    const task = { channelId: 1, channelGroup: 1, faceDetection: 1, faceAttribute: 0, humanAttribute: 0,
        faceRecognition: 0, vhdDetection: 0, nmvAttribute: 0, vehAttribute: 0 };
    const record = { SnapTime: "2024-05-01T10:00:00", ChannelId: 5, DatabaseType: 1, FirstAttri: 0, SecondAttri: 0,
        LibId: 3, Name: "T", MatchRate: 50 };
    const without = (row, key) => Object.fromEntries(Object.entries(row).filter(([k]) => k !== key));
    const cases = [
        // kind, rows, the error's words
        ["counts", [{ slot: 0, available: 1, capacity: 1 }, { slot: 3, available: 1, capacity: 1 }], "counts row 1: slot: 3 is not an integer in 0..2"],
        ["counts", [{ slot: -1, available: 1, capacity: 1 }], "counts row 0: slot: -1 is not"],
        ["counts", [{ slot: 0, available: -1, capacity: 1 }], "counts row 0: available: -1 is not"],
        ["counts", [{ slot: 0, available: 1, capacity: -1 }], "counts row 0: capacity: -1 is not"],
        ["counts", [{ slot: 0, available: 1 }], "counts row 0: capacity: required, missing"],
        ["tasks", [{ ...task, channelId: -1 }], "tasks row 0: channelId: -1 is not"],
        ["tasks", [{ ...task, faceDetection: 2 ** 31 }], "tasks row 0: faceDetection: 2147483648 is not"],
        ["tasks", [{ ...task, vehAttribute: -(2 ** 31) - 1 }], "tasks row 0: vehAttribute: -2147483649 is not"],
        ["tasks", [task, without(task, "faceDetection")], "tasks row 1: faceDetection: required, missing"],
        ["tasks", [without(task, "channelId")], "tasks row 0: channelId: required, missing"],
        ["tasks", [{ ...task, channelGroup: "1" }], "tasks row 0: channelGroup: an integer in"],
        ["popUps", [{ blackPopUp: 1, whitePopUp: 0 }], "popUps row 0: channelId: required, missing"],
        ["popUps", [{ channelId: 101, blackPopUp: 2 ** 31, whitePopUp: 0 }], "popUps row 0: blackPopUp: 2147483648 is not"],
        ["popUps", [{ channelId: 101, blackPopUp: 0, whitePopUp: -(2 ** 31) - 1 }], "popUps row 0: whitePopUp: -2147483649 is not"],
        ["displaySettings", [{ channelId: 101, matchRate: 1 }], "displaySettings row 0: snapTime: required, missing"],
        ["historySwitches", [{ channelId: 101 }], "historySwitches row 0: enableRecord: required, missing"],
        ["historySwitches", [{ channelId: -1, enableRecord: 1 }], "historySwitches row 0: channelId: -1 is not"],
        ["historyRecords", [{ ...record, RecordId: 0 }], "historyRecords row 0: RecordId: 0 is not"],
        ["historyRecords", [{ ...record, ChannelId: -1 }], "historyRecords row 0: ChannelId: -1 is not"],
        ["historyRecords", [{ ...record, DatabaseType: 2 ** 32 }], "historyRecords row 0: DatabaseType: 4294967296 is not"],
        ["historyRecords", [{ ...record, FirstAttri: -1 }], "historyRecords row 0: FirstAttri: -1 is not"],
        ["historyRecords", [{ ...record, MatchRate: 101 }], "historyRecords row 0: MatchRate: 101 is not an integer in 0..100"],
        ["historyRecords", [{ ...record, SnapTime: "2024-05-01" }], "historyRecords row 0: SnapTime: a time"],
        ["historyRecords", [without(record, "Name")], "historyRecords row 0: Name: required, missing"],
        ["historyRecords", [{ ...record, Name: "T\u0000x" }], "historyRecords row 0: Name: a text without NUL"],
        ["counts", [{ slot: 1, available: 1, capacity: 1 }, { slot: 1, available: 2, capacity: 2 }], "counts row 1: slot: 1 is in an earlier row already"],
        ["popUps", [{ channelId: 5, blackPopUp: 0, whitePopUp: 0 }, { channelId: 5, blackPopUp: 1, whitePopUp: 1 }], "popUps row 1: channelId: 5 is in an earlier row already"],
        ["historySwitches", [{ channelId: 5, enableRecord: 0 }, { channelId: 5, enableRecord: 1 }], "historySwitches row 1: channelId: 5 is in an earlier row already"],
        ["historyRecords", [{ ...record, RecordId: 3 }, { ...record, RecordId: 3 }], "historyRecords row 1: RecordId: 3 is in an earlier row already"],
    ];
    const before = (await kit.ctl("GET", "/control/state")).value;
    for (const [kind, rows, words] of cases) {
        await t.test(`${kind} ${words}`, async () => {
            const put = await kit.ctl("PUT", `/control/state/${kind}`, rows);
            assert.equal(put.status, 400);
            assert.ok(put.value.error.startsWith(words), put.value.error);
            assert.doesNotMatch(put.value.error, /constraint|SQLITE|sqlite/);
        });
    }
    // Bodies JSON.stringify never makes: what json-c alone would take (trailing text, a trailing
    // comma) or silently clamp (an integer beyond 64 bits).
    const raw = [
        ["historySwitches", '[{"channelId": 18446744073709551616, "enableRecord": 1}]', "body has an integer that does not fit 64 bits"],
        ["historySwitches", '[{"channelId": 5, "enableRecord": -9223372036854775809}]', "body has an integer that does not fit 64 bits"],
        ["historySwitches", '[{"channelId": 5, "enableRecord": 1}] x', "body is not JSON"],
        ["historySwitches", '[{"channelId": 5, "enableRecord": 1},]', "body is not JSON"],
        // A name of bytes that are no UTF-8: the module's result files would carry them on.
        ["historyRecords", Buffer.from('[{"SnapTime": "2024-05-01T10:00:00", "ChannelId": 5, "DatabaseType": 1, "FirstAttri": 0, ' +
            '"SecondAttri": 0, "LibId": 3, "Name": "\xff\xfe", "MatchRate": 50}]', "latin1"), "body is not JSON: invalid utf-8"],
    ];
    for (const [kind, text, words] of raw) {
        await t.test(`${kind} ${text}`, async () => {
            const put = await fetch(`${kit.control}/control/state/${kind}`, {
                method: "PUT", body: text, headers: { "Content-Type": "application/json" },
                signal: AbortSignal.timeout(10000),
            });
            assert.equal(put.status, 400);
            assert.ok((await put.json()).error.startsWith(words));
        });
    }
    assert.deepEqual((await kit.ctl("GET", "/control/state")).value, before);
    const filters = [
        ["road=bogus", "road=bogus: not a road"],
        ["since=abc", "since=abc: an integer in 0.."],
        ["limit=-1", "limit=-1: an integer in 0..100000"],
        ["limit=100001", "limit=100001: an integer in 0..100000"],
        ["command=12", "command=12: not a command of either road"],
        ["road=analysis&command=7032", "command=7032: not a command of analysis"],
        ["seq=1", "seq: not a filter of the journal"],
    ];
    for (const [query, words] of filters) {
        await t.test(`journal ?${query}`, async () => {
            const got = await kit.ctl("GET", `/control/journal?${query}`);
            assert.equal(got.status, 400);
            assert.ok(got.value.error.startsWith(words), got.value.error);
        });
    }
});

test("a wrong method gets 405 with Allow", { timeout: 20000 }, async (t) => {
    const cases = [
        ["GET", "/control/state/reset", "POST"],
        ["POST", "/control/state", "GET, HEAD"],
        ["DELETE", "/control/state/tasks", "GET, HEAD, PUT"],
        ["PUT", "/control/faults", "GET, HEAD, DELETE"],
        ["GET", "/control/faults/analysis/229", "PUT, DELETE"],
        ["POST", "/control/journal", "GET, HEAD, DELETE"],
        ["DELETE", "/control/scenario", "GET, HEAD, PUT"],
        ["PUT", "/control/commands", "GET, HEAD"],
    ];
    for (const [method, path, allow] of cases) {
        await t.test(`${method} ${path}`, async () => {
            const response = await fetch(kit.control + path, { method, signal: AbortSignal.timeout(5000) });
            assert.equal(response.status, 405);
            assert.equal(response.headers.get("allow"), allow);
            assert.match((await response.json()).error, new RegExp(`^${method} is not a method of ${path}`));
        });
    }
});

test("a scenario exported and imported again is the same, and a bad one changes nothing", { timeout: 30000 }, async () => {
    await kit.ctl("POST", "/control/state/reset");
    await kit.ctl("PUT", "/control/state/historySwitches", [{ channelId: 7, enableRecord: 0 }]);
    await kit.ctl("PUT", "/control/faults/analysis/1202", { delayMs: 5, probability: 0.5 });
    const exported = (await kit.ctl("GET", "/control/scenario")).value;
    assert.deepEqual(exported.faults.map((f) => [f.road, f.command]), [["analysis", 1202]]);
    await kit.ctl("POST", "/control/state/reset");
    await kit.ctl("DELETE", "/control/faults");
    const put = await kit.ctl("PUT", "/control/scenario", exported);
    assert.equal(put.status, 200);
    assert.deepEqual(put.value, exported);
    assert.deepEqual((await kit.ctl("GET", "/control/scenario")).value, exported);
    assert.deepEqual(JSON.parse((await kit.call("GET", "MultiTaskAppHistory?ChannelId=7")).text),
        { channelId: 7, enableRecord: 0 });  // the command channel reads what was imported
    const bad = [
        [{ ...exported, faults: [] , state: { ...exported.state, tasks: [{ channelId: 1 }] } }, "tasks row 0: channelGroup: required, missing"],
        [{ ...exported, faults: [{ road: "analysis", command: 7032 }] }, "faults row 0: road and command"],
        [{ ...exported, faults: [{ road: "analysis", command: 229, probability: 2 }] }, "faults row 0: bad value for probability"],
        [{ state: exported.state }, "state and faults: required, missing"],
        [{ ...exported, extra: 1 }, "extra: not a key of a scenario"],
    ];
    for (const [scenario, words] of bad) {
        const refused = await kit.ctl("PUT", "/control/scenario", scenario);
        assert.equal(refused.status, 400);
        assert.ok(refused.value.error.startsWith(words), refused.value.error);
        assert.deepEqual((await kit.ctl("GET", "/control/scenario")).value, exported);
    }
    await kit.ctl("DELETE", "/control/faults");
    await kit.ctl("POST", "/control/state/reset");
});

test("a bad scenario file or an unknown fault target stops the emulator at start", { timeout: 30000 }, async (t) => {
    const dir = `${kit.dir}/refused`;
    mkdirSync(dir, { recursive: true });
    const bad = { ...startScenario, state: { ...startScenario.state, counts: [{ slot: 0, available: -2, capacity: 1 }] } };
    writeFileSync(`${dir}/bad.json`, JSON.stringify(bad));
    const cases = [
        [[`--scenario=${dir}/bad.json`], 1, `scenario ${dir}/bad.json: counts row 0: available: -2 is not`],
        [["--fault-delay=1204:5"], 2, "no command 1204 on the analysis road"],
        [["--cmd-fault-command=7033", "--cmd-fault-result=3"], 2, "no command 7033 on the command-channel road"],
    ];
    for (const [args, status, words] of cases) {
        await t.test(args.join(" "), () => {
            const run = spawnSync(`${process.env.VKS_BIN_DIR}/vks_emulator`, ["--mount", `${dir}/mnt`, "--db", `${dir}/vks.db`,
                "--cmd-socket", `${dir}/cmd.sock`, "--result-dir", dir, ...args], { encoding: "utf8", timeout: 10000 });
            assert.equal(run.status, status, run.stderr);
            assert.ok(run.stderr.startsWith(`vks_emulator: ${words}`), run.stderr);
        });
    }
});
