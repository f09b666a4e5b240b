// The HTML report's script, first part: the data, helpers, the summary and
// the tables. Embedded in report_page.html by the tool.
"use strict";
const D = JSON.parse(document.getElementById("report-data").textContent);
const R = D.report;
const TIMED = D.axis.unit === "ms";
const OUTCOMES = ["fired", "stopped", "cleared", "pending", "start_failed"];
const COLOUR = {
  fired: "#2e7d32", stopped: "#1565c0", cleared: "#8e24aa", pending: "#ef9a00",
  start_failed: "#c62828", late: "#ff5722", level: "#37474f", wait: "#b0bec5", error: "#d32f2f",
};
const FLAG_TEXT = {
  stop_after_fire: "stopped after its callback ran",
  started_while_pending: "started while a timer with this id was pending",
  thread_never_reported: "its thread never reported",
};

function el(tag, attrs, ...children) {
  const node = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs || {})) node.setAttribute(k, v);
  for (const c of children) node.append(c instanceof Node ? c : String(c ?? "-"));
  return node;
}
function table(head, rows, numeric) {
  const t = el("table");
  t.append(el("thead", {}, el("tr", {}, ...head.map((h) => el("th", {}, h)))));
  const body = el("tbody");
  for (const row of rows) {
    body.append(el("tr", {}, ...row.map((c, i) => el("td", numeric && numeric[i] ? { class: "num" } : {}, c))));
  }
  t.append(body);
  return t;
}
function plural(n, word) { return n + " " + word + (n === 1 ? "" : "s"); }

// A position on the axis as a reader wants it: seconds since the log's
// first time, or the library line's number.
function at(p) {
  if (!TIMED) return "line " + p;
  const s = (p - D.axis.first_at) / 1000;
  return (s < 0 ? "-" : "+") + Math.abs(s).toFixed(3) + " s";
}

// ---- the summary ----
function summary() {
  const s = R.summary;
  const rows = [];
  for (const src of R.sources) {
    rows.push(["source", src.name + (src.entry ? " (" + src.entry + ")" : "") + ": " +
      (src.format || "no library line") + ", " + plural(src.library_lines, "library line")]);
  }
  const span = s.first_time ? s.first_time + " to " + s.last_time : "no times in the log";
  rows.push(["time span", span + (TIMED ? " (" + (D.axis.end / 1000).toFixed(3) + " s)" : "")]);
  rows.push(["library lines", s.lines + ": " + Object.entries(s.by_level).map(([k, v]) => k + " " + v).join(", ")]);
  rows.push(["unparsed lines", s.unparsed]);
  rows.push(["decoded", s.decoded === "console" ? "console lines" : "system log lines"]);
  const counts = {};
  for (const t of R.timers) counts[t.outcome] = (counts[t.outcome] || 0) + 1;
  rows.push(["timers", OUTCOMES.map((o) => o.replace("_", " ") + " " + (counts[o] || 0)).join(", ")]);
  const tbody = document.getElementById("summary");
  for (const [k, v] of rows) tbody.append(el("tr", {}, el("td", {}, k), el("td", {}, v)));
}

// ---- the timers table ----
const PAGE = 200;
const COLUMNS = [
  ["#", (t, i) => i + 1], ["id", (t) => t.hex], ["instance", (t) => t.id === null ? null : t.instance_id1 + "/" + t.instance_id2],
  ["sequence", (t) => t.sequence], ["start", (t) => t.start], ["timeout s", (t) => t.timeout_s],
  ["started", (t) => t.started_at], ["ended", (t) => t.ended_at],
  ["outcome", (t) => t.outcome + (t.stopped ? " (" + t.stopped.replace(/_/g, " ") + ")" : "") + (t.start_error ? ": " + t.start_error : "")],
  ["late ms", (t) => t.late_ms], ["flags", (t) => t.flags.join(" ")],
];
const NUMERIC = [true, false, false, true, false, true, false, false, false, true, false];
const tableState = { sort: 0, descending: false, page: 0, rows: [], selected: -1 };

function filteredRows() {
  const outcome = document.getElementById("filter-outcome").value;
  const instance = document.getElementById("filter-instance").value;
  const rows = [];
  R.timers.forEach((t, i) => {
    if (outcome && t.outcome !== outcome) return;
    if (instance && COLUMNS[2][1](t) !== (instance === "-" ? null : instance)) return;
    rows.push(i);
  });
  const key = COLUMNS[tableState.sort][1];
  const cmp = (a, b) => {
    const x = key(R.timers[a], a), y = key(R.timers[b], b);
    if (x === y) return a - b;
    if (x === null || x === undefined) return 1;
    if (y === null || y === undefined) return -1;
    return x < y ? -1 : 1;
  };
  rows.sort(tableState.descending ? (a, b) => cmp(b, a) : cmp);
  return rows;
}

function renderTimers() {
  const rows = tableState.rows;
  const pages = Math.max(1, Math.ceil(rows.length / PAGE));
  tableState.page = Math.min(tableState.page, pages - 1);
  const first = tableState.page * PAGE;
  const body = el("tbody");
  for (const i of rows.slice(first, first + PAGE)) {
    const t = R.timers[i];
    const tr = el("tr", i === tableState.selected ? { class: "selected" } : {},
      ...COLUMNS.map(([, f], c) => el("td", NUMERIC[c] ? { class: "num" } : {}, f(t, i) ?? "-")));
    tr.onclick = () => selectTimer(i);
    body.append(tr);
  }
  document.querySelector("#timers tbody").replaceWith(body);
  document.getElementById("timer-count").textContent = plural(rows.length, "timer") + " shown of " + R.timers.length;
  const pager = document.getElementById("pager");
  pager.replaceChildren();
  if (pages > 1) {
    const prev = el("button", {}, "previous"), next = el("button", {}, "next");
    prev.onclick = () => { tableState.page--; renderTimers(); };
    next.onclick = () => { tableState.page++; renderTimers(); };
    prev.disabled = tableState.page === 0; next.disabled = tableState.page === pages - 1;
    pager.append(prev, next, " rows " + (first + 1) + " to " + Math.min(rows.length, first + PAGE) + " of " + rows.length);
  }
}

function refilter() { tableState.rows = filteredRows(); tableState.page = 0; renderTimers(); }

function showTimerRow(i) {
  tableState.selected = i;
  const at = tableState.rows.indexOf(i);
  if (at >= 0) tableState.page = Math.floor(at / PAGE);
  renderTimers();
}

// A row clicked in the table: the timeline centres on it.
function selectTimer(i) {
  const s = D.timers[2 * i], e = D.timers[2 * i + 1];
  const range = Math.max(view.x1 - view.x0 > 4 * (e - s) ? view.x1 - view.x0 : 4 * (e - s), TIMED ? 10 : 4);
  view.x0 = (s + e) / 2 - range / 2; view.x1 = view.x0 + range;
  selected = null;
  for (const lane of lanes) {
    const it = lane.items.find((x) => x.kind === "timer" && x.index === i);
    if (it) selected = Object.assign(it, { lane });
  }
  showDetails(selected);
  showTimerRow(i);
  draw();
}

function setUpTimers() {
  const head = el("tr");
  COLUMNS.forEach(([name], c) => {
    const th = el("th", { class: "sortable", title: "Sort" }, name);
    th.onclick = () => {
      tableState.descending = tableState.sort === c ? !tableState.descending : false;
      tableState.sort = c;
      refilter();
    };
    head.append(th);
  });
  document.querySelector("#timers thead").append(head);
  const fill = (id, values) => {
    const select = document.getElementById(id);
    select.append(el("option", { value: "" }, "all"));
    for (const v of values) select.append(el("option", { value: v }, v));
    select.onchange = refilter;
  };
  fill("filter-outcome", OUTCOMES.filter((o) => R.timers.some((t) => t.outcome === o)));
  fill("filter-instance", [...new Set(R.timers.map((t) => COLUMNS[2][1](t) ?? "-"))].sort());
  refilter();
}

// ---- the other sections, as in the text report ----
function notListed(n, what) { return n ? el("p", { class: "note" }, n + " more " + what + " not listed.") : ""; }

function otherSections() {
  const rl = R.restart_level;
  document.getElementById("restart-level").append(
    el("p", {}, "saved default: " + (rl.saved_default ?? "not seen")),
    rl.changes.length ? table(["time", "how", "level", "type", "function"],
      rl.changes.map((c, i) => [c.time || at(D.level_changes[i]), c.how, c.level, c.type, c.function])) : el("p", {}, "No change of the restart level."),
    notListed(rl.changes_not_listed, "changes"),
    rl.waits.length ? table(["time", "seconds", "waited", "ended at"],
      rl.waits.map((w) => [w.time, w.seconds, w.waited ? "yes" : "skipped", w.ended_at]), [false, true]) : el("p", {}, "No wait."),
    notListed(rl.waits_not_listed, "waits"));
  const p = R.properties;
  const values = Object.entries(p.last_values);
  document.getElementById("properties").append(
    values.length ? table(["property", "last value", "time"], values.map(([k, v]) => [k, v.value, v.time])) : el("p", {}, "No property read or written."),
    notListed(p.values_not_listed, "properties"),
    p.failed_sets.length ? table(["time", "function", "property", "message"],
      p.failed_sets.map((f) => [f.time, f.function, f.property, f.message])) : el("p", {}, "No failed set."),
    notListed(p.failed_sets_not_listed, "failed sets"));
  document.getElementById("errors").append(R.errors.length
    ? table(["function", "message", "count", "first", "last"], R.errors.map((e) => [e.function, e.format, e.count, e.first, e.last]), [false, false, true])
    : el("p", {}, "No error line."));
  const s = R.summary;
  document.getElementById("unparsed").append(el("p", {}, plural(s.unparsed, "unparsed line")),
    s.unparsed_lines.length ? table(["source", "line", "reason", "text"], s.unparsed_lines.map((u) => [u.source, u.line, u.reason, u.text]), [false, true]) : "");
}

