// The HTML report's script, second part: the timeline on its canvas, then
// the page is drawn.
// ---- the timeline's model: lanes of items ----
const LANE = { axis: 22, level: 20, mark: 16, error: 14 };
const lanes = [];  // {label, height, kind, items: [{s, e, kind, ...}] sorted by s}

function timerLanes() {
  const ends = [];
  const out = [];
  const maxLanes = 400;
  const order = R.timers.map((_, i) => i).filter((i) => R.timers[i].outcome !== "start_failed");
  order.sort((a, b) => D.timers[2 * a] - D.timers[2 * b]);
  for (const i of order) {
    const s = D.timers[2 * i], e = Math.max(D.timers[2 * i + 1], s);
    let lane = ends.findIndex((end) => end < s);
    if (lane < 0 && ends.length < maxLanes) lane = ends.length;
    // Past the lane limit, items share the lane that frees first.
    if (lane < 0) lane = ends.indexOf(Math.min(...ends));
    ends[lane] = Math.max(ends[lane] ?? -Infinity, e);
    (out[lane] = out[lane] || []).push({ s, e, kind: "timer", index: i, outcome: R.timers[i].outcome });
  }
  return out;
}

function buildLanes() {
  const level = [];
  R.restart_level.changes.forEach((c, i) => level.push({ s: D.level_changes[i], e: D.level_changes[i], kind: "level", row: c }));
  R.restart_level.waits.forEach((w, i) => level.push({ s: D.waits[2 * i], e: D.waits[2 * i + 1], kind: "wait", row: w }));
  level.sort((a, b) => a.s - b.s);
  if (level.length) lanes.push({ label: "restart level, waits", height: LANE.level, items: level });
  const failed = [];
  R.timers.forEach((t, i) => {
    if (t.outcome === "start_failed") failed.push({ s: D.timers[2 * i], e: D.timers[2 * i], kind: "timer", index: i, outcome: t.outcome });
  });
  if (failed.length) lanes.push({ label: "failed starts", height: LANE.mark, items: failed });
  const byFunction = new Map();
  for (let i = 0; i < D.error_lines.length; i += 2) {
    const fn = D.functions[D.error_lines[i]], p = D.error_lines[i + 1];
    if (!byFunction.has(fn)) byFunction.set(fn, []);
    byFunction.get(fn).push({ s: p, e: p, kind: "error", fn, format: D.error_lines[i] });
  }
  for (const [fn, items] of byFunction) {
    items.sort((a, b) => a.s - b.s);
    lanes.push({ label: "errors " + fn, height: LANE.error, items });
  }
  const timers = timerLanes();
  const h = Math.max(2, Math.min(14, Math.floor(520 / Math.max(1, timers.length))));
  timers.forEach((items, n) => lanes.push({ label: n === 0 ? "timers" : "", height: h, items, timers: true }));
}

// ---- drawing ----
const canvas = document.getElementById("canvas");
const ctx = canvas.getContext("2d");
const GUTTER = 300;
const view = { x0: 0, x1: 1 };
let selected = null;

function fullView() {
  const pad = Math.max(1, D.axis.end * 0.01);
  view.x0 = -pad;
  view.x1 = D.axis.end + pad;
}
function plotWidth() { return canvas.clientWidth - GUTTER; }
function toPx(p) { return GUTTER + (p - view.x0) / (view.x1 - view.x0) * plotWidth(); }
function toPos(px) { return view.x0 + (px - GUTTER) / plotWidth() * (view.x1 - view.x0); }

function niceStep(range, ticks) {
  const raw = range / ticks, mag = Math.pow(10, Math.floor(Math.log10(raw)));
  for (const m of [1, 2, 5, 10]) if (raw <= m * mag) return Math.max(m * mag, TIMED ? 1 : 1);
  return 10 * mag;
}

function drawAxis(width, height) {
  ctx.fillStyle = "#555";
  ctx.font = "11px sans-serif";
  const step = niceStep(view.x1 - view.x0, Math.max(2, plotWidth() / 110));
  const origin = TIMED ? D.axis.first_at : 0;
  for (let p = Math.ceil((view.x0 - origin) / step) * step + origin; p <= view.x1; p += step) {
    const x = toPx(p);
    ctx.fillRect(x, LANE.axis - 5, 1, height - LANE.axis + 5);
    ctx.fillStyle = "#555";
    ctx.fillText(at(Math.round(p)), x + 2, 12);
    ctx.fillStyle = "#eee";
  }
  ctx.fillStyle = "#555";
}

// One lane: items narrower than a pixel that fall on a column already
// painted in their colour are counted, not painted again.
function drawLane(lane, y, drawn) {
  const h = lane.height - (lane.timers ? (lane.height > 4 ? 1 : 0) : 4);
  let lastColumn = -1, lastColour = "";
  lane.geometry = [];
  for (const it of lane.items) {
    const x0 = toPx(it.s), x1 = toPx(it.e);
    if (x1 < GUTTER - 2 || x0 > canvas.clientWidth + 2) continue;
    const colour = it.kind === "timer" ? COLOUR[it.outcome] : COLOUR[it.kind];
    if (it.kind === "timer") drawn[it.outcome]++;
    const w = Math.max(1, x1 - x0), column = Math.floor(x0);
    if (w <= 1 && column === lastColumn && colour === lastColour) continue;
    lastColumn = column; lastColour = colour;
    ctx.fillStyle = colour;
    if (it.kind === "level" || it.kind === "error" || it.outcome === "start_failed") {
      ctx.fillRect(Math.round(x0) - 1, y + 1, it.kind === "error" ? 1.5 : 3, h);
      if (it.kind === "level" && lane.items.length < 200) ctx.fillText(it.row.level, x0 + 4, y + h - 3);
    } else {
      ctx.fillRect(x0, y + 1, w, h);
      const late = it.outcome === "fired" ? R.timers[it.index].late_ms : null;
      if (TIMED && late > 0 && w > 2) {
        ctx.fillStyle = COLOUR.late;
        const lw = Math.max(1, Math.min(w, late / (view.x1 - view.x0) * plotWidth()));
        ctx.fillRect(x0 + w - lw, y + 1, lw, h);
      }
    }
  }
}

function draw() {
  const ratio = window.devicePixelRatio || 1;
  const height = LANE.axis + lanes.reduce((sum, l) => sum + l.height, 0) + 6;
  canvas.style.height = height + "px";
  canvas.width = Math.max(300, canvas.clientWidth) * ratio;
  canvas.height = height * ratio;
  ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
  ctx.clearRect(0, 0, canvas.clientWidth, height);
  ctx.fillStyle = "#eee";
  drawAxis(canvas.clientWidth, height);
  const drawn = { fired: 0, stopped: 0, cleared: 0, pending: 0, start_failed: 0 };
  let y = LANE.axis;
  ctx.save();
  ctx.beginPath();
  ctx.rect(GUTTER, 0, plotWidth(), height);
  ctx.clip();
  for (const lane of lanes) {
    lane.y = y;
    drawLane(lane, y, drawn);
    y += lane.height;
  }
  if (selected) {
    const x0 = toPx(selected.s), x1 = toPx(selected.e);
    ctx.strokeStyle = "#000";
    ctx.lineWidth = 2;
    ctx.strokeRect(x0 - 2, selected.lane.y, Math.max(4, x1 - x0 + 4), selected.lane.height);
  }
  ctx.restore();
  ctx.fillStyle = "#333";
  ctx.font = "10px sans-serif";
  for (const lane of lanes) if (lane.label) ctx.fillText(lane.label, 4, lane.y + 11, GUTTER - 8);
  const box = document.getElementById("timeline");
  for (const o of OUTCOMES) box.setAttribute("data-drawn-" + o, drawn[o]);
}

// ---- finding what is under the pointer ----
function itemAt(px, py) {
  const lane = lanes.find((l) => py >= l.y && py < l.y + Math.max(l.height, 4));
  if (!lane || px < GUTTER) return null;
  const p = toPos(px), tol = 4 / plotWidth() * (view.x1 - view.x0);
  const items = lane.items;
  let lo = 0, hi = items.length;
  while (lo < hi) { const mid = (lo + hi) >> 1; if (items[mid].s <= p + tol) lo = mid + 1; else hi = mid; }
  let best = null;
  for (let i = lo - 1; i >= 0 && i >= lo - 64; i--) {
    const it = items[i];
    if (it.e + tol >= p) { best = it; break; }
  }
  return best ? Object.assign(best, { lane }) : null;
}

function describe(it) {
  if (it.kind === "level") {
    const c = it.row;
    return "restart level " + c.level + "\n  time      " + (c.time || at(it.s)) + "\n  how       " + c.how +
      "\n  type      " + (c.type ?? "-") + "\n  function  " + c.function;
  }
  if (it.kind === "wait") {
    const w = it.row;
    return "wait of " + w.seconds + " s" + (w.waited ? "" : " (skipped)") + "\n  from      " + (w.time || at(it.s)) +
      "\n  ended at  " + (w.ended_at || "-");
  }
  if (it.kind === "error") return "error in " + it.fn + "\n  " + (R.errors.find((e) => e.function === it.fn) || {}).format + "\n  at " + at(it.s);
  const t = R.timers[it.index];
  const rows = [
    ["id", t.id === null ? "- (the start failed)" : t.hex + " (" + t.id + ")"],
    ["instance", t.id === null ? "-" : t.instance_id1 + "/" + t.instance_id2],
    ["sequence", t.sequence], ["start", t.start], ["timeout", t.timeout_s === null ? "-" : t.timeout_s + " s"],
    ["started", (t.started_at || "-") + "  (" + at(D.timers[2 * it.index]) + ")"],
    ["ended", (t.ended_at || "-") + (t.outcome === "pending" ? "  (pending at the log's end)" : "")],
    ["outcome", t.outcome + (t.stopped ? ", " + t.stopped.replace(/_/g, " ") : "") + (t.start_error ? ": " + t.start_error : "")],
    ["late", t.late_ms === null ? "-" : t.late_ms + " ms"],
    ["need_free", t.need_free ?? "-"],
    ["flags", t.flags.length ? t.flags.map((f) => FLAG_TEXT[f] || f).join("; ") : "-"],
  ];
  return "timer #" + (it.index + 1) + "\n" + rows.map(([k, v]) => "  " + k.padEnd(10) + String(v ?? "-")).join("\n");
}

function showDetails(it) {
  document.getElementById("details").textContent = it ? describe(it) : "Hover over or click an item of the timeline.";
}

function setUpTimeline() {
  const zoom = (factor, px) => {
    const p = toPos(px ?? GUTTER + plotWidth() / 2);
    const range = Math.max((view.x1 - view.x0) * factor, TIMED ? 1 : 2);
    view.x0 = p - (p - view.x0) / (view.x1 - view.x0) * range;
    view.x1 = view.x0 + range;
    draw();
  };
  let drag = null;
  canvas.addEventListener("wheel", (ev) => { ev.preventDefault(); zoom(ev.deltaY > 0 ? 1.25 : 0.8, ev.offsetX); }, { passive: false });
  canvas.addEventListener("mousedown", (ev) => { drag = { x: ev.offsetX, x0: view.x0, x1: view.x1, moved: false }; });
  window.addEventListener("mouseup", () => { setTimeout(() => { drag = null; }, 0); });
  canvas.addEventListener("mousemove", (ev) => {
    if (drag && ev.buttons) {
      const shift = (ev.offsetX - drag.x) / plotWidth() * (drag.x1 - drag.x0);
      drag.moved = drag.moved || Math.abs(ev.offsetX - drag.x) > 3;
      view.x0 = drag.x0 - shift; view.x1 = drag.x1 - shift;
      draw();
      return;
    }
    if (!selected) showDetails(itemAt(ev.offsetX, ev.offsetY));
  });
  canvas.addEventListener("click", (ev) => {
    if (drag && drag.moved) return;
    selected = itemAt(ev.offsetX, ev.offsetY);
    showDetails(selected);
    if (selected && selected.kind === "timer") showTimerRow(selected.index);
    draw();
  });
  canvas.addEventListener("dblclick", () => { fullView(); draw(); });
  document.getElementById("zoom-in").onclick = () => zoom(0.5);
  document.getElementById("zoom-out").onclick = () => zoom(2);
  document.getElementById("zoom-reset").onclick = () => { fullView(); draw(); };
  window.addEventListener("resize", draw);
  const legend = document.getElementById("legend");
  for (const [name, colour] of [["fired", COLOUR.fired], ["late part of a fired timer", COLOUR.late],
    ["stopped", COLOUR.stopped], ["cleared", COLOUR.cleared], ["pending at the log's end", COLOUR.pending],
    ["failed start", COLOUR.start_failed], ["restart level change", COLOUR.level], ["wait", COLOUR.wait],
    ["error line", COLOUR.error]]) {
    legend.append(el("span", {}, el("span", { class: "swatch", style: "background:" + colour }), name));
  }
  let note = TIMED ? "Axis: seconds since the log's first time, " + (R.summary.first_time || "") + "."
    : "This log carries no times that can be compared (brief or console lines, or inputs with different clocks): the axis is the library line's number in the log, not time.";
  if (D.error_lines_not_listed) note += " The last " + D.error_lines_not_listed + " error lines are not drawn.";
  document.getElementById("axis-note").textContent = note;
}

summary();
buildLanes();
setUpTimeline();
fullView();
draw();
setUpTimers();
otherSections();
