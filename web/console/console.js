// The emulator console: shows state, faults and the journal of the control API live (polled once a
// second) and changes them through the same API. Plain DOM, no build step.
"use strict";

// Each road's commands, from the emulator's own command table (GET /control/commands).
const commands = {};
const $ = (id) => document.getElementById(id);
let lastSeq = 0;

async function call(method, path, body) {
  const response = await fetch(path, {
    method,
    headers: body === undefined ? {} : { "Content-Type": "application/json" },
    body: body === undefined ? undefined : JSON.stringify(body),
  });
  const value = await response.json();
  if (!response.ok) throw new Error(value.error || response.statusText);
  return value;
}

function cell(row, text, className) {
  const td = row.insertCell();
  td.textContent = text;
  if (className) td.className = className;
  return td;
}

function table(rows) {
  const t = document.createElement("table");
  const keys = rows.length ? Object.keys(rows[0]) : [];
  const head = t.createTHead().insertRow();
  keys.forEach((k) => { const th = document.createElement("th"); th.textContent = k; head.appendChild(th); });
  const body = t.createTBody();
  rows.forEach((r) => { const tr = body.insertRow(); keys.forEach((k) => cell(tr, String(r[k]))); });
  return t;
}

// One block per kind: its rows as a table, and an editor that replaces them.
function showState(state) {
  const root = $("state");
  for (const [kind, rows] of Object.entries(state)) {
    let block = $("kind-" + kind);
    if (!block) {
      block = document.createElement("div");
      block.id = "kind-" + kind;
      block.className = "kind";
      block.innerHTML = `<h3>${kind} (<span class="count"></span>)</h3><div class="rows"></div>
        <details><summary>edit</summary><textarea></textarea><button>Replace ${kind}</button>
        <span class="error"></span></details>`;
      block.querySelector("button").onclick = () => replace(kind, block);
      root.appendChild(block);
    }
    block.querySelector(".count").textContent = rows.length;
    const rowsDiv = block.querySelector(".rows");
    rowsDiv.replaceChildren(table(rows));
    rowsDiv.firstChild.id = kind;
    const editor = block.querySelector("textarea");
    if (document.activeElement !== editor && !block.querySelector("details").open) {
      editor.value = JSON.stringify(rows, null, 1);
    }
  }
}

async function replace(kind, block) {
  const error = block.querySelector(".error");
  try {
    await call("PUT", "/control/state/" + kind, JSON.parse(block.querySelector("textarea").value));
    error.textContent = "";
  } catch (e) {
    error.textContent = e.message;
  }
  refresh();
}

function showFaults(faults) {
  const body = $("faults").tBodies[0];
  body.replaceChildren();
  for (const f of faults) {
    const tr = body.insertRow();
    const fields = ["road", "command", "delayMs", "jitterMs", "result", "status", "wrongUri", "contentLength", "noReply", "probability"];
    fields.forEach((k) => cell(tr, f[k] === null ? "–" : String(f[k])));
    const remove = document.createElement("button");
    remove.textContent = "remove";
    remove.onclick = async () => { await call("DELETE", `/control/faults/${f.road}/${f.command}`); refresh(); };
    tr.insertCell().appendChild(remove);
  }
}

function summary(value) {
  return value ? JSON.stringify(value) : "no answer";
}

function showJournal(journal) {
  const body = $("journal").tBodies[0];
  for (const e of journal.entries) {
    const tr = body.insertRow(0);
    tr.dataset.seq = e.seq;
    if (e.faulted) tr.className = "faulted";
    [e.seq, e.time.slice(11), e.road, e.command, e.method].forEach((v) => cell(tr, String(v)));
    cell(tr, summary(e.request), "json");
    cell(tr, summary(e.answer), "json");
    cell(tr, e.faulted ? `yes${e.delayMs ? ", " + e.delayMs + " ms" : ""}` : "");
    lastSeq = Math.max(lastSeq, e.seq);
  }
  while (body.rows.length > 200) body.deleteRow(-1);
}

async function refresh() {
  try {
    const road = $("journal-road").value;
    const [state, faults, journal] = await Promise.all([
      call("GET", "/control/state"),
      call("GET", "/control/faults"),
      call("GET", `/control/journal?since=${lastSeq}&limit=200` + (road ? `&road=${road}` : "")),
    ]);
    showState(state);
    showFaults(faults);
    showJournal(journal);
    $("status").textContent = "live, updated " + new Date().toLocaleTimeString();
  } catch (e) {
    $("status").textContent = "not reachable: " + e.message;
  }
}

function fillCommands() {
  const list = ["all", ...(commands[$("fault-road").value] || [])];
  $("fault-command").replaceChildren(...list.map((c) => new Option(String(c), String(c))));
}

async function loadCommands() {
  try {
    for (const c of await call("GET", "/control/commands")) (commands[c.road] ||= []).push(c.command);
  } catch (e) {
    $("fault-error").textContent = "command list: " + e.message;
  }
  fillCommands();
}

// A scenario (state and faults) saved as a file, and one read from a file put in their place.
async function exportScenario() {
  const scenario = await call("GET", "/control/scenario");
  const link = $("scenario-download");
  URL.revokeObjectURL(link.href);
  link.href = URL.createObjectURL(new Blob([JSON.stringify(scenario, null, 1)], { type: "application/json" }));
  link.download = "scenario.json";
  link.click();
}

async function importScenario() {
  const file = $("scenario-file").files[0];
  if (!file) return;
  try {
    await call("PUT", "/control/scenario", JSON.parse(await file.text()));
    $("scenario-error").textContent = "";
  } catch (e) {
    $("scenario-error").textContent = e.message;
  }
  $("scenario-file").value = "";
  refresh();
}

function number(id) {
  const text = $(id).value.trim();
  return text === "" ? null : Number(text);
}

$("fault-road").onchange = fillCommands;
$("fault-form").onsubmit = async (event) => {
  event.preventDefault();
  const fault = {
    delayMs: number("fault-delayMs") ?? 0,
    jitterMs: number("fault-jitterMs") ?? 0,
    result: number("fault-result"),
    status: number("fault-status"),
    contentLength: number("fault-contentLength"),
    wrongUri: $("fault-wrongUri").checked,
    noReply: $("fault-noReply").checked,
    probability: number("fault-probability") ?? 1,
  };
  try {
    await call("PUT", `/control/faults/${$("fault-road").value}/${$("fault-command").value}`, fault);
    $("fault-error").textContent = "";
  } catch (e) {
    $("fault-error").textContent = e.message;
  }
  refresh();
};
$("faults-reset").onclick = async () => { await call("DELETE", "/control/faults"); refresh(); };
$("state-reset").onclick = async () => { await call("POST", "/control/state/reset"); refresh(); };
$("journal-clear").onclick = async () => {
  await call("DELETE", "/control/journal");
  $("journal").tBodies[0].replaceChildren();
  refresh();
};
$("journal-road").onchange = () => { $("journal").tBodies[0].replaceChildren(); lastSeq = 0; refresh(); };

$("scenario-export").onclick = exportScenario;
$("scenario-file").onchange = importScenario;

loadCommands();
refresh();
setInterval(refresh, 1000);
