"use strict";
// The page of quorin-scanner panel.  What comes from the network becomes text and nothing else:
// elements are made here, and their texts are set with textContent.

// ---- Small things --------------------------------------------------------------------------------

// A word of the network such as "constructor" must find nothing in a table that does not hold it.
for (const table of Object.values(WORDS)) if (typeof table === "object") Object.setPrototypeOf(table, null);

const TOKEN = new URLSearchParams(location.search).get("token") || "";
const SVG = "http://www.w3.org/2000/svg";
const $ = (id) => document.getElementById(id);

function say(text, values) {
  return text.replace(/\{(\w+)\}/g, (whole, name) => (values && name in values ? String(values[name]) : whole));
}

// The page's own word for a name that the tools or the network give; empty when it has none.
const ownWord = (table, name) => (Object.hasOwn(table, name) ? table[name] : "");
const toolText = (text) => ownWord(WORDS.tools, text) || text;

function element(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes || {})) {
    if (key.startsWith("on")) made.addEventListener(key.slice(2), value);
    else if (value === true) made.setAttribute(key, "");
    else if (value !== false && value != null) made.setAttribute(key, value);
  }
  made.append(...children.filter((child) => child != null));
  return made;
}

function drawn(name, attributes, text) {
  const made = document.createElementNS(SVG, name);
  for (const [key, value] of Object.entries(attributes || {})) made.setAttribute(key, value);
  if (text !== undefined) made.textContent = text;
  return made;
}

const pathOf = (path, more) => `/api/${path}?token=${encodeURIComponent(TOKEN)}${more || ""}`;

function complain(text) {
  $("trouble").textContent = text;
  $("trouble").hidden = text === "";
}

async function tell(path, body) {
  try {
    const answer = await fetch(pathOf(path), {
      method: "POST", headers: {"Content-Type": "application/json"}, body: JSON.stringify(body || {}),
    });
    const said = await answer.json().catch(() => ({problem: String(answer.status)}));
    complain(answer.ok ? "" : toolText(said.problem));
    return answer.ok;
  } catch (error) {
    complain(WORDS.lost);
    return false;
  }
}

// What is said to those who do not see the diagram: the last of what comes at once.
let saying = 0;
function announce(text) {
  clearTimeout(saying);
  saying = setTimeout(() => { $("said").textContent = text; }, 300);
}

function duration(us) {
  return us < 1000 ? say(WORDS.us, {count: Math.round(us)})
    : say(WORDS.ms, {count: (us / 1000).toFixed(us < 10000 ? 2 : 0)});
}

function clock(timeUs) {
  const time = new Date(timeUs / 1000);
  return time.toLocaleTimeString([], {hour12: false}) + "." + String(time.getMilliseconds()).padStart(3, "0");
}

function fillWords() {
  document.documentElement.lang = WORDS.language;
  for (const place of document.querySelectorAll("[data-word]")) place.textContent = WORDS[place.dataset.word];
  for (const place of document.querySelectorAll("[data-placeholder]")) place.placeholder = WORDS[place.dataset.placeholder];
  document.title = WORDS.title;
}

// ---- What the panel has told ---------------------------------------------------------------------

const MESSAGES_LIMIT = 10000;
let fixed = null;
let search = {pcs: [], more: 0, trouble: "", product: ""};
let load = null;
const scanners = new Map();
let messages = [];            // by time, those of one time by number
const byNumber = new Map();
const rules = new Map();
const statuses = new Map();
let chosenPc = "";            // "address:port"
let chosenScanner = 1;
let source = null;

const ruleText = (name) => ownWord(WORDS.rules, name) || (rules.get(name) || {text: ""}).text;
const statusText = (code) => ownWord(WORDS.statuses, code) || statuses.get(code) || "";

function isBefore(one, other) {
  return one.timeUs !== other.timeUs ? one.timeUs < other.timeUs : one.number < other.number;
}

function takeMessage(message) {
  const known = byNumber.get(message.number);
  if (known) {
    Object.assign(known, message);
    known.version = (known.version || 0) + 1;
    // An answer is drawn by what is known of its request.
    const partner = byNumber.get(known.partner);
    if (partner) partner.version = (partner.version || 0) + 1;
    return;
  }
  byNumber.set(message.number, message);
  let at = messages.length;
  while (at > 0 && isBefore(message, messages[at - 1])) --at;
  messages.splice(at, 0, message);
  if (messages.length > MESSAGES_LIMIT) {
    // Many at a time, so that it costs nothing.
    const dropped = messages.splice(0, messages.length - MESSAGES_LIMIT + 200);
    for (const old of dropped) byNumber.delete(old.number);
  }
}

async function start() {
  try {
    const answer = await fetch(pathOf("state"));
    if (!answer.ok) throw new Error(String(answer.status));
    const state = await answer.json();
    takeFixed(state.fixed);
    search = state.search;
    load = state.load;
    scanners.clear();
    for (const scanner of state.scanners) scanners.set(scanner.number, scanner);
    messages = [];
    byNumber.clear();
    for (const message of state.messages) takeMessage(message);
    showPcs();
    showScanners();
    showLoad();
    messagesChanged();
    follow(state.last);
  } catch (error) {
    $("status").textContent = WORDS.lost;
    setTimeout(start, 2000);
  }
}

function follow(last) {
  if (source) source.close();
  source = new EventSource(pathOf("events", `&after=${last}`));
  const on = (kind, take) => source.addEventListener(kind, (event) => take(JSON.parse(event.data)));
  source.onopen = () => {
    $("status").textContent = say(WORDS.live, {version: fixed.version});
  };
  source.onerror = () => {
    $("status").textContent = WORDS.lost;
    // The browser tries again by itself, unless it was refused.
    if (source.readyState === EventSource.CLOSED) setTimeout(start, 2000);
  };
  on("message", (message) => {
    takeMessage(message);
    if (isBad(message)) announce(rowText(message));
    else if (message.kind === "answer" || message.kind === "data") announce(rowText(message));
    messagesChanged();
  });
  on("pcs", (told) => { search = told; showPcs(); });
  on("scanner", (scanner) => { scanners.set(scanner.number, scanner); showScanners(); });
  on("scanner-gone", (scanner) => { scanners.delete(scanner.number); showScanners(); });
  on("load", (told) => { load = told; showLoad(); });
  on("cleared", () => { messages = []; byNumber.clear(); $("message").replaceChildren(); messagesChanged(); });
  on("anew", () => { source.close(); start(); });
}

function takeFixed(told) {
  if (fixed) return;
  fixed = told;
  for (const rule of fixed.rules) rules.set(rule.name, rule);
  for (const list of [fixed.statuses, fixed.statusOuts]) {
    for (const status of list) statuses.set(status.text, status.meaning);
  }
  const faults = [element("option", {value: ""}, WORDS.nothingWrong)];
  for (const fault of fixed.faults) {
    faults.push(element("option", {value: fault.name},
      say(WORDS.ruleOf, {fault: ownWord(WORDS.faults, fault.name) || fault.name, rule: fault.rule})));
  }
  $("fault").replaceChildren(...faults);
  showElements();
}

// ---- PCs -----------------------------------------------------------------------------------------

function ageText(pc) {
  const seconds = Math.max(0, Math.round((Date.now() - pc.lastReplyMs) / 1000));
  const age = seconds < 120 ? say(WORDS.seconds, {count: seconds}) : say(WORDS.minutes, {count: Math.floor(seconds / 60)});
  return say(WORDS.age, {age, ms: pc.replyMs.toFixed(1)});
}

const placeOf = (pc) => `${pc.address}:${pc.eventPort}`;

// The rows stay where they are and only their texts change, so that nothing loses its focus.
const pcRows = new Map();

function makePcRow(from) {
  const row = {};
  row.input = element("input", {type: "radio", name: "pc", onchange: () => { chosenPc = row.place; }});
  row.name = element("span", {class: "name"});
  row.facts = element("span", {class: "facts"});
  row.age = element("span", {class: "facts"});
  row.more = element("div");
  row.examine = element("button", {type: "button", class: "small", onclick: () => tell("examine", {from})});
  row.whole = element("div", {class: "pc"},
    element("label", null, row.input, row.name, row.facts, row.age), row.more, row.examine);
  return row;
}

function fillPcRow(row, pc) {
  row.place = placeOf(pc);
  row.pc = pc;
  row.name.textContent = pc.name;
  row.whole.classList.toggle("gone", pc.gone);
  const state = pc.gone ? say(WORDS.gone, {count: pc.missed})
    : pc.missed > 0 ? say(WORDS.missed, {count: pc.missed}) : WORDS.found;
  row.facts.textContent = [say(WORDS.attributes, {name: pc.name, address: pc.address, port: pc.eventPort}), state,
    pc.own ? WORDS.own : "", pc.formerName ? say(WORDS.formerName, {name: pc.formerName}) : ""].filter(Boolean).join("; ");
  row.age.textContent = ageText(pc);
  row.examine.textContent = pc.examining ? WORDS.examining : WORDS.examine;
  row.examine.setAttribute("aria-label", `${row.examine.textContent} ${pc.name}`);
  row.examine.disabled = pc.examining;
  const told = JSON.stringify([pc.notes, pc.findings]);
  if (row.told === told) return;
  row.told = told;
  const notes = pc.notes.map((note) => element("p", {class: "note"}, toolText(note)));
  if (pc.examined) {
    const open = row.more.querySelector("details");
    const details = element("details", {open: !open || open.open},
      element("summary", {class: "finding"}, WORDS.findings));
    for (const finding of pc.findings) {
      details.append(element("p", {class: `finding ${finding.verdict}`}, element("b", null, `${toolText(finding.verdict)}: ${toolText(finding.topic)}`),
        toolText(finding.text) + (finding.advice ? ` \u2192 ${toolText(finding.advice)}` : "")));
    }
    notes.push(details);
  }
  row.more.replaceChildren(...notes);
}

function showPcs() {
  const rows = [];
  const left = new Set(pcRows.keys());
  for (const pc of search.pcs) {
    if (!pcRows.has(pc.from)) pcRows.set(pc.from, makePcRow(pc.from));
    const row = pcRows.get(pc.from);
    left.delete(pc.from);
    const was = row.place;
    fillPcRow(row, pc);
    if (row.input.checked && was !== row.place) chosenPc = row.place;
    rows.push(row);
  }
  for (const from of left) {
    pcRows.get(from).whole.remove();
    pcRows.delete(from);
  }
  rows.forEach((row, index) => {
    const there = $("pcs").children[index];
    if (there !== row.whole) $("pcs").insertBefore(row.whole, there || null);
  });
  if (rows.length > 0 && !rows.some((row) => row.input.checked)) {
    rows[0].input.checked = true;
    chosenPc = rows[0].place;
  } else if (rows.length === 0) {
    chosenPc = "";
  }
  const notes = [];
  if (rows.length === 0) notes.push(WORDS.noPcs);
  if (search.more > 0) notes.push(say(WORDS.morePcs, {count: search.more}));
  if (search.trouble) notes.push(say(WORDS.searchTrouble, {reason: toolText(search.trouble)}));
  $("pcs-note").textContent = notes.join(" ");
}

setInterval(() => { for (const row of pcRows.values()) row.age.textContent = ageText(row.pc); }, 1000);

// ---- The request ---------------------------------------------------------------------------------

// Usual sizes in tenths of a millimetre; the protocol itself knows no unit.
const PAPERS = {
  A3: [2970, 4200], A4: [2100, 2970], A4_Landscape: [2970, 2100], B4: [2570, 3640], B5: [1820, 2570],
  B5_Landscape: [2570, 1820], Letter: [2159, 2794], Letter_Landscape: [2794, 2159], Legal: [2159, 3556],
};

const formValue = (name) => $("request").elements[name].value;
const fieldOf = (name) => $(`element-${name}`);

function showElements() {
  const kept = {};
  for (const place of document.querySelectorAll("#elements [id]")) kept[place.id] = place.value;
  const list = formValue("protocol") === "2" ? fixed.byId : fixed.settings;
  const fields = list.map((part) => {
    const id = `element-${part.name}`;
    let input;
    if (part.kind === "word") {
      input = element("select", {id}, ...part.words.map((word) => {
        const meaning = ownWord(WORDS.values, word.text) || word.meaning;
        return element("option", {value: word.text}, meaning ? `${word.text}: ${meaning}` : word.text);
      }));
    } else if (part.kind === "text") {
      input = element("input", {id, maxlength: 31, required: true, autocomplete: "off"});
    } else {
      input = element("input", {id, type: "number", required: true,
        min: part.kind === "id" ? 1 : 0, max: part.kind === "id" ? 3 : 999999999});
    }
    input.value = kept[id] || part.default;
    return element("label", null, element("span", null, ownWord(WORDS.elements, part.name) || part.name), input);
  });
  $("elements").replaceChildren(...fields);
  showPaper();
}

function choosePaper() {
  const size = PAPERS[fieldOf("PaperTypeIn").value];
  if (!size) return;
  fieldOf("PaperWidthIn").value = size[0];
  fieldOf("PaperHeightIn").value = size[1];
}

function showPaper() {
  if (!fieldOf("PaperWidthIn")) {
    $("paper").replaceChildren();
    return;
  }
  const [width, height, x, y] = ["PaperWidthIn", "PaperHeightIn", "ScanXIn", "ScanYIn"]
    .map((name) => Math.max(0, Number(fieldOf(name).value) || 0));
  const scale = 100 / Math.max(width, height, 1);
  const [w, h] = [Math.max(width * scale, 1), Math.max(height * scale, 1)];
  const text = say(WORDS.paper, {width, height, x, y});
  const svg = drawn("svg", {viewBox: `-2 -2 ${w + 4} ${h + 4}`, role: "img", "aria-label": text});
  svg.append(drawn("rect", {class: "page", width: w, height: h, "stroke-width": 1}));
  const isOutside = x > width || y > height;
  if (!isOutside) {
    svg.append(drawn("rect", {class: "area", x: x * scale, y: y * scale, width: w - x * scale, height: h - y * scale}));
  }
  $("paper").replaceChildren(svg, element("figcaption", null, text + (isOutside ? ` ${WORDS.outside}` : "")));
}

const scannerRows = new Map();

function showScanners() {
  for (const [number, row] of scannerRows) {
    if (!scanners.has(number)) {
      row.whole.remove();
      scannerRows.delete(number);
    }
  }
  for (const number of [...scanners.keys()].sort((one, other) => one - other)) {
    const scanner = scanners.get(number);
    let row = scannerRows.get(number);
    if (!row) {
      row = {input: element("input", {type: "radio", name: "scanner", value: number,
        onchange: () => { chosenScanner = number; showScanners(); }}), facts: element("span", {class: "facts"})};
      row.whole = element("div", {class: "scanner"}, element("label", null, row.input,
        element("span", {class: "name"}, say(WORDS.scanner, {number})), row.facts));
      scannerRows.set(number, row);
      const next = [...scannerRows.keys()].filter((other) => other > number).sort((one, other) => one - other)[0];
      $("scanners").insertBefore(row.whole, next ? scannerRows.get(next).whole : null);
    }
    const facts = [scanner.pc ? say(WORDS.connectedTo, {pc: scanner.pc}) : WORDS.idle];
    if (scanner.openStart) facts.push(say(WORDS.startOpen, {uid: scanner.openStart}));
    if (scanner.left + scanner.waiting > 0) facts.push(say(WORDS.busySending, {count: scanner.left + scanner.waiting}));
    row.facts.textContent = facts.join("; ");
  }
  if (!scanners.has(chosenScanner)) chosenScanner = [...scanners.keys()].sort((one, other) => one - other)[0] || 0;
  for (const [number, row] of scannerRows) row.input.checked = number === chosenScanner;
  const scanner = scanners.get(chosenScanner);
  $("end").disabled = !scanner || !scanner.openStart;
  $("disconnect").disabled = !scanner || !scanner.pc;
  $("scan").disabled = !scanner;
  $("remove-scanner").textContent = say(WORDS.removeScanner, {number: chosenScanner});
  $("remove-scanner").disabled = scanners.size < 2;
  $("scan").textContent = formValue("exchange") === "start" ? WORDS.sendStart : WORDS.scan;
  lanesChanged();
}

function requestBody() {
  const colon = chosenPc.lastIndexOf(":");
  const body = {
    to: chosenPc.slice(0, colon), port: Number(chosenPc.slice(colon + 1)),
    protocol: Number(formValue("protocol")),
  };
  for (const part of body.protocol === 2 ? fixed.byId : fixed.settings) body[part.name] = fieldOf(part.name).value;
  return body;
}

function push(exchange) {
  if (!chosenPc) {
    complain(WORDS.noPcs);
    return;
  }
  tell("push", Object.assign(requestBody(), {
    scanner: chosenScanner, exchange, fault: exchange === "end" ? "" : $("fault").value,
    stay: $("stay").checked, times: exchange === "single" ? Number($("times").value) : 1,
    timeoutMs: Number($("timeout").value),
  }));
}

$("request").addEventListener("submit", (event) => {
  event.preventDefault();
  push(formValue("exchange"));
});
$("end").addEventListener("click", () => push("end"));
$("disconnect").addEventListener("click", () => tell("disconnect", {scanner: chosenScanner}));
$("add-scanner").addEventListener("click", () => tell("add"));
$("remove-scanner").addEventListener("click", () => tell("remove", {scanner: chosenScanner}));
$("request").addEventListener("change", (event) => {
  if (event.target.name === "protocol") showElements();
  if (event.target.name === "exchange") showScanners();
  if (event.target.id === "element-PaperTypeIn") choosePaper();
  showPaper();
});
$("elements").addEventListener("input", showPaper);
$("search").addEventListener("submit", (event) => {
  event.preventDefault();
  const {product, address} = event.target.elements;
  tell("search", {product: product.value, address: address.value});
});

// ---- The diagram ---------------------------------------------------------------------------------

const ROW = 48;
const GUTTER = 76;
const LANE_WIDTH = 70;
let current = 0;        // number of the message that the keyboard is at
let chosen = 0;         // number of the message whose bytes are shown
const rowsDrawn = new Map();
let svg = null;
let drawing = false;
let lanes = {names: [], places: [], width: 0, of: new Map()};

function isBad(message) {
  if (message.kind === "answer") {
    const request = byNumber.get(message.partner);
    return request !== undefined && request.kind === "request" && isBad(request);
  }
  return (message.outcome && message.outcome !== "accepted" && message.rule !== "response") ||
    message.kind === "trouble" || message.kind === "late" || message.kind === "connection";
}

function codesText(codes) {
  return codes.filter(Boolean).map((code) => (statusText(code) ? `${code} (${statusText(code)})` : code)).join(", ");
}

function whatOf(message) {
  const what = WORDS.what;
  switch (message.kind) {
    case "request":
      if (message.rule === "response") return what.response;
      return /^START /.test(message.title) ? what.start : /^END /.test(message.title) ? what.end : what.single;
    case "closed":
      return `${what.closed} ${message.title === "pc" ? what.closedByPc : what.closedByScanner}`;
    case "late":
      return say(what.late, {ms: message.title});
    case "answer":
      return `${what.answer}: ${codesText([message.status, message.statusOut])}`;
    default:
      return what[message.kind] || message.kind;
  }
}

function moreOf(message) {
  const parts = [];
  if (isBad(message) && message.rule) parts.push(`${toolText(message.outcome)}: ${ruleText(message.rule)}`);
  else if (message.kind === "request" && message.rule === "accepted" && !message.partner) parts.push(WORDS.waits);
  if (message.kind === "answer" && message.partner) parts.push(say(WORDS.after, {ms: message.milliseconds.toFixed(1)}));
  if (!["closed", "connected", "late"].includes(message.kind)) parts.push(message.title);
  if (message.detail) parts.push(message.detail);
  return parts.join("; ");
}

function rowText(message) {
  const from = message.scanner ? `${say(WORDS.laneScanner, {number: message.scanner})}: ` : "";
  return `${from}${whatOf(message)}. ${moreOf(message)}`;
}

// Where a message runs from and to, and what the PC does about it inside: what the rules say, since
// nobody sees it on the wire.
function wayOf(message) {
  const scanner = lanes.of.get(message.scanner) ?? 0;
  const pc = lanes.names.length - 2;
  const host = pc + 1;
  const reachesHost = ["accepted", "host-refused", "host-busy", "no-answer"].includes(message.rule);
  switch (message.kind) {
    case "request":
      return {from: scanner, to: pc, inside: message.rule !== "response" && reachesHost ? {from: pc, to: host, text: WORDS.host.asked} : null};
    case "answer": {
      const request = byNumber.get(message.partner);
      const was = request && request.kind === "request" &&
        ["accepted", "host-refused", "host-busy"].includes(request.rule);
      return {from: pc, to: scanner, back: true, inside: was ? {from: host, to: pc, text: WORDS.host.verdict} : null};
    }
    case "data":
      return {from: pc, to: scanner, inside: {from: host, to: pc, text: WORDS.host.sent}};
    case "reply":
      return {from: pc, to: scanner, back: true};
    case "search":
      return {from: scanner, to: pc, inside: null};
    case "closed":
      return message.title === "pc" ? {from: pc, to: scanner, back: true} : {from: scanner, to: pc, back: true};
    default:
      return {from: scanner, to: pc, back: true};
  }
}

function makeLanes(width) {
  const numbers = new Set(scanners.keys());
  for (const message of messages) if (message.scanner) numbers.add(message.scanner);
  const sorted = [...numbers].sort((one, other) => one - other);
  const names = sorted.map((number) => say(WORDS.laneScanner, {number}));
  names.push(WORDS.lanePc, WORDS.laneHost);
  const whole = Math.max(width, GUTTER + names.length * LANE_WIDTH);
  const step = (whole - GUTTER) / names.length;
  const made = {names, width: whole, step, places: names.map((name, index) => GUTTER + step * (index + 0.5)), of: new Map()};
  sorted.forEach((number, index) => made.of.set(number, index));
  return made;
}

function tip(x, y, direction, kind) {
  return drawn("path", {class: kind, d: `M${x} ${y}l${-7 * direction} -4v8z`});
}

function cutText(text, width) {
  const most = Math.max(8, Math.floor(width / 6.3));
  return text.length > most ? `${text.slice(0, most - 1)}\u2026` : text;
}

// One message as it is drawn, its top at 0.
function drawRow(message, layout) {
  const way = wayOf(message);
  const row = drawn("g", {class: `row ${message.kind}${isBad(message) ? " bad" : ""}`});
  row.append(drawn("rect", {class: "ground", x: 1, y: 1, width: layout.width - 2, height: ROW - 2}));
  const [from, to] = [layout.places[way.from], layout.places[way.to]];
  const direction = to > from ? 1 : -1;
  row.append(drawn("text", {class: "time", x: 4, y: 15}, clock(message.timeUs)));
  row.append(drawn("line", {class: `arrow${way.back ? " back" : ""}`, x1: from, y1: 22, x2: to - 6 * direction, y2: 22}));
  row.append(tip(to, 22, direction, "tip"));
  if (way.inside) {
    const [x1, x2] = [layout.places[way.inside.from], layout.places[way.inside.to]];
    const side = x2 > x1 ? 1 : -1;
    row.append(drawn("line", {class: "arrow inside", x1, y1: 22, x2: x2 - 6 * side, y2: 22}));
    row.append(tip(x2, 22, side, "inside-tip"));
  }
  const left = GUTTER + 4;
  const room = layout.width - left - 8;
  row.append(drawn("text", {class: "what", x: left, y: 15}, cutText(whatOf(message), room)));
  row.append(drawn("text", {class: "more", x: left, y: 39}, cutText(moreOf(message), room)));
  return row;
}

function drawLanes(layout, height) {
  const group = drawn("g");
  for (const x of layout.places) group.append(drawn("line", {class: "lane", x1: x, x2: x, y1: 0, y2: height}));
  return group;
}

function drawHeads(layout, y) {
  const group = drawn("g");
  layout.names.forEach((name, index) => {
    group.append(drawn("text", {class: "head", x: layout.places[index], y}, cutText(name, layout.step)));
  });
  return group;
}

let lanesKey = "";
function lanesChanged() {
  const made = makeLanes($("scroll").clientWidth);
  const key = `${made.width} ${made.names.join()}`;
  if (key === lanesKey) return;
  lanesKey = key;
  lanes = made;
  const heads = drawn("svg", {width: lanes.width, height: 27, "aria-hidden": "true"});
  heads.append(drawHeads(lanes, 18));
  $("lanes").style.width = `${lanes.width}px`;
  $("sizer").style.width = `${lanes.width}px`;
  $("lanes").replaceChildren(heads);
  for (const drawnRow of rowsDrawn.values()) drawnRow.group.remove();
  rowsDrawn.clear();
  draw();
}

function messagesChanged() {
  if (drawing) return;
  drawing = true;
  requestAnimationFrame(() => {
    drawing = false;
    const last = messages[messages.length - 1];
    if (last && last.scanner && !lanes.of.has(last.scanner)) lanesChanged();
    $("count").textContent = messages.length === 0 ? WORDS.nothingYet : say(WORDS.messages, {count: messages.length});
    $("sizer").style.height = `${messages.length * ROW}px`;
    if ($("follow").checked) $("scroll").scrollTop = messages.length * ROW;
    draw();
  });
}

// Draws the rows that can be seen, and keeps the one that has the focus.
function draw() {
  const box = $("scroll");
  if (!svg) {
    svg = drawn("svg", {role: "group", "aria-label": WORDS.diagram});
    svg.lines = drawn("g");
    svg.append(svg.lines);
    $("sizer").append(svg);
  }
  const first = Math.max(0, Math.floor(box.scrollTop / ROW) - 2);
  const end = Math.min(messages.length, Math.ceil((box.scrollTop + box.clientHeight) / ROW) + 2);
  const height = Math.max(0, end - first) * ROW;
  svg.setAttribute("width", lanes.width);
  svg.setAttribute("height", height);
  svg.style.top = `${first * ROW}px`;
  svg.lines.replaceChildren(drawLanes(lanes, height));
  if (!byNumber.has(current) && messages.length > 0) current = messages[messages.length - 1].number;
  const wanted = new Map();
  for (let index = first; index < end; ++index) wanted.set(messages[index].number, index);
  for (const [number, drawnRow] of rowsDrawn) {
    if (!wanted.has(number) && drawnRow.group !== document.activeElement) {
      drawnRow.group.remove();
      rowsDrawn.delete(number);
    }
  }
  for (const [number, index] of wanted) {
    const message = messages[index];
    let drawnRow = rowsDrawn.get(number);
    if (!drawnRow || drawnRow.version !== message.version) {
      const hadFocus = drawnRow && drawnRow.group === document.activeElement;
      const group = drawRow(message, lanes);
      group.setAttribute("role", "button");
      group.dataset.number = number;
      if (drawnRow) drawnRow.group.replaceWith(group);
      else svg.append(group);
      drawnRow = {group, version: message.version};
      rowsDrawn.set(number, drawnRow);
      if (hadFocus) group.focus({preventScroll: true});
    }
    drawnRow.group.setAttribute("transform", `translate(0 ${(index - first) * ROW})`);
    drawnRow.group.setAttribute("tabindex", number === current ? 0 : -1);
    drawnRow.group.setAttribute("aria-label",
      say(WORDS.row, {number: index + 1, count: messages.length, text: rowText(message)}));
    drawnRow.group.classList.toggle("chosen", number === chosen);
  }
  // The keyboard must get in wherever the box has been scrolled to.
  if (!wanted.has(current) && wanted.size > 0) {
    rowsDrawn.get(messages[first].number).group.setAttribute("tabindex", 0);
  }
}

function indexOf(number) {
  const message = byNumber.get(number);
  return message ? messages.indexOf(message) : -1;
}

function goTo(index) {
  if (index < 0 || index >= messages.length) return;
  current = messages[index].number;
  const box = $("scroll");
  const head = $("lanes").offsetHeight;
  const top = index * ROW;
  if (top < box.scrollTop) box.scrollTop = top;
  else if (top + ROW > box.scrollTop + box.clientHeight - head) box.scrollTop = top + ROW - box.clientHeight + head;
  $("follow").checked = index === messages.length - 1 && $("follow").checked;
  draw();
  rowsDrawn.get(current).group.focus({preventScroll: true});
}

$("scroll").addEventListener("scroll", () => {
  const box = $("scroll");
  if (box.scrollTop + box.clientHeight < box.scrollHeight - 3 * ROW) $("follow").checked = false;
  requestAnimationFrame(draw);
});
$("scroll").addEventListener("click", (event) => {
  const group = event.target.closest("[data-number]");
  if (group) showMessage(Number(group.dataset.number));
});
$("scroll").addEventListener("keydown", (event) => {
  const group = event.target.closest("[data-number]");
  if (!group) return;
  const index = indexOf(Number(group.dataset.number));
  const page = Math.floor($("scroll").clientHeight / ROW) - 1;
  const steps = {ArrowDown: index + 1, ArrowUp: index - 1, Home: 0, End: messages.length - 1,
    PageDown: Math.min(index + page, messages.length - 1), PageUp: Math.max(index - page, 0)};
  if (event.key in steps) goTo(steps[event.key]);
  else if (event.key === "Enter" || event.key === " ") showMessage(Number(group.dataset.number), true);
  else return;
  event.preventDefault();
});
$("follow").addEventListener("change", messagesChanged);
new ResizeObserver(() => { lanesChanged(); messagesChanged(); }).observe($("scroll"));

// ---- Downloads -----------------------------------------------------------------------------------

function save(name, blob) {
  const link = element("a", {href: URL.createObjectURL(blob), download: name});
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

const SVG_STYLE = "text{font:12px sans-serif;fill:#1c2024}.what,.head{font-weight:600}.head{text-anchor:middle}" +
  ".more,.time{fill:#5a636c}.time{font-size:11px}.lane{stroke:#c9d0d6}.ground{fill:none}" +
  ".arrow{stroke:#1c2024;stroke-width:1.5}.tip{fill:#1c2024}.back{stroke-dasharray:6 3}" +
  ".inside{stroke:#5a636c;stroke-dasharray:2 3}.inside-tip{fill:#5a636c}" +
  ".bad .arrow{stroke:#b3261e}.bad .tip,.bad .what,.bad .more{fill:#b3261e}" +
  ".data .arrow{stroke:#7a3e9d}.data .tip{fill:#7a3e9d}";

// The whole diagram as a drawing that stands by itself.
function wholeDiagram() {
  const layout = makeLanes(900);
  const kept = lanes;
  lanes = layout;
  const height = messages.length * ROW + 40;
  const whole = drawn("svg", {xmlns: SVG, width: layout.width, height, viewBox: `0 0 ${layout.width} ${height}`});
  whole.append(drawn("title", null, WORDS.title), drawn("style", null, SVG_STYLE),
    drawn("rect", {width: layout.width, height, fill: "#ffffff"}), drawLanes(layout, height), drawHeads(layout, 18));
  messages.forEach((message, index) => {
    const row = drawRow(message, layout);
    row.setAttribute("transform", `translate(0 ${index * ROW + 30})`);
    row.append(drawn("title", null, rowText(message)));
    whole.append(row);
  });
  lanes = kept;
  return new XMLSerializer().serializeToString(whole);
}

$("save-svg").addEventListener("click", () => save("exchange.svg", new Blob([wholeDiagram()], {type: "image/svg+xml"})));
$("save-json").addEventListener("click", () => fetchAndSave("exchange", "", "exchange.json"));
$("save-capture").addEventListener("click", () => fetchAndSave("capture", "", "exchange.pcap"));
$("clear").addEventListener("click", () => tell("clear"));

async function fetchAndSave(path, more, name) {
  const answer = await fetch(pathOf(path, more));
  if (answer.ok) save(name, await answer.blob());
  else complain(toolText((await answer.json()).problem));
}

// ---- The bytes of a message ----------------------------------------------------------------------

const SHOWN_LINES = 400;

function bytesOf(hex) {
  const bytes = new Uint8Array(hex.length / 2);
  for (let i = 0; i < bytes.length; ++i) bytes[i] = parseInt(hex.slice(2 * i, 2 * i + 2), 16);
  return bytes;
}

const offsetText = (offset) => offset.toString(16).toUpperCase().padStart(4, "0");
const letterOf = (byte) => (byte >= 32 && byte < 127 ? String.fromCharCode(byte) : ".");

// Which field a byte is of, -1 for none.
function ownersOf(size, fields) {
  const owners = new Int32Array(size).fill(-1);
  fields.forEach((field, index) => owners.fill(index, field.offset, Math.min(field.offset + field.size, size)));
  return owners;
}

// Adds texts with their fields, those of one field in one element.
function addMarked(place, pieces) {
  let mark = null;
  let owner = -2;
  for (const [text, field] of pieces) {
    if (field !== owner) {
      owner = field;
      mark = element("span", field >= 0 ? {class: "marked", "data-field": field} : null);
      place.append(mark);
    }
    mark.textContent += text;
  }
}

// As docs/protocol.md writes messages: the offset of its first byte before each line.
function asLines(bytes, owners) {
  const place = element("pre", {class: "bytes", tabindex: 0, "aria-label": WORDS.asText});
  let lines = 0;
  for (let start = 0; start < bytes.length && lines < SHOWN_LINES; ++lines) {
    let end = bytes.indexOf(10, start);
    end = end < 0 ? bytes.length : end + 1;
    place.append(element("span", {class: "at"}, `${offsetText(start)}  `));
    const pieces = [];
    for (let at = start; at < end; ++at) {
      if (bytes[at] !== 13 && bytes[at] !== 10) pieces.push([letterOf(bytes[at]), owners[at]]);
    }
    addMarked(place, pieces);
    place.append("\n");
    start = end;
  }
  return place;
}

function asHex(bytes, owners) {
  const place = element("pre", {class: "bytes", tabindex: 0, "aria-label": WORDS.asHex});
  for (let start = 0, lines = 0; start < bytes.length && lines < SHOWN_LINES; start += 16, ++lines) {
    const end = Math.min(start + 16, bytes.length);
    place.append(element("span", {class: "at"}, `${offsetText(start)}  `));
    const digits = [];
    const letters = [];
    for (let at = start; at < end; ++at) {
      digits.push([offsetText(bytes[at]).slice(2), owners[at]], [" ", at + 1 < end && owners[at + 1] === owners[at] ? owners[at] : -1]);
      letters.push([letterOf(bytes[at]), owners[at]]);
    }
    addMarked(place, digits);
    place.append("   ".repeat(16 - (end - start)) + " ");
    addMarked(place, letters);
    place.append("\n");
  }
  return place;
}

function fieldMeaning(field) {
  const code = field.name.toLowerCase() === "x-status" || field.name === "StatusOut" ? statusText(field.value) : "";
  const value = ownWord(WORDS.values, field.value);
  const name = Object.keys(WORDS.fields).find((known) => known.toLowerCase() === field.name.toLowerCase());
  return [name ? WORDS.fields[name] : "", code, value].filter(Boolean).join(": ");
}

function fieldTable(fields, place) {
  const table = element("table", null, element("thead", null, element("tr", null,
    ...[WORDS.offset, WORDS.field, WORDS.value, WORDS.meaning].map((text) => element("th", {scope: "col"}, text)))));
  const body = element("tbody");
  fields.forEach((field, index) => {
    const mark = () => {
      for (const old of place.querySelectorAll(".now")) old.classList.remove("now");
      for (const part of place.querySelectorAll(`[data-field="${index}"]`)) part.classList.add("now");
    };
    body.append(element("tr", {class: "field", onmouseenter: mark, onclick: mark},
      element("td", null, offsetText(field.offset)), element("th", {scope: "row"}, field.name),
      element("td", null, field.value.length > 200 ? `${field.value.slice(0, 200)}\u2026` : field.value),
      element("td", null, fieldMeaning(field))));
  });
  table.append(body);
  return table;
}

// True when the bytes are text: UTF-8 without control characters but the usual ones.
function textOf(bytes) {
  try {
    const text = new TextDecoder("utf-8", {fatal: true}).decode(bytes);
    return /[\u0000-\u0008\u000b\u000c\u000e-\u001f\u007f]/.test(text) ? null : text;
  } catch (error) {
    return null;
  }
}

// Only what a browser draws without running anything.
function pictureType(bytes) {
  const begins = (...first) => first.every((byte, index) => bytes[index] === byte);
  if (begins(0x89, 0x50, 0x4e, 0x47)) return "image/png";
  if (begins(0xff, 0xd8, 0xff)) return "image/jpeg";
  if (begins(0x47, 0x49, 0x46, 0x38)) return "image/gif";
  if (begins(0x42, 0x4d) && bytes.length > 26) return "image/bmp";
  return begins(0x52, 0x49, 0x46, 0x46) && bytes[8] === 0x57 ? "image/webp" : "";
}

let pictureAddress = "";
async function showData(number, place) {
  const answer = await fetch(pathOf("data", `&number=${number}`));
  if (!answer.ok) return;
  const bytes = new Uint8Array(await answer.arrayBuffer());
  const type = pictureType(bytes);
  const text = type ? null : textOf(bytes);
  URL.revokeObjectURL(pictureAddress);
  if (type) {
    pictureAddress = URL.createObjectURL(new Blob([bytes], {type}));
    place.append(element("img", {src: pictureAddress, alt: WORDS.dataPicture}));
  } else if (text !== null) {
    place.append(element("pre", {class: "bytes", tabindex: 0}, text.slice(0, 65536)));
  } else {
    place.append(element("p", null, say(WORDS.dataOther, {size: bytes.length})));
  }
  const ending = type ? type.slice(type.indexOf("/") + 1) : text === null ? "bin" : "txt";
  place.append(element("button", {type: "button", class: "small", id: "save-data",
    onclick: () => save(`data-${number}.${ending}`, new Blob([bytes]))}, WORDS.save));
}

async function showMessage(number, withFocus) {
  const message = byNumber.get(number);
  if (!message) return;
  chosen = number;
  current = number;
  draw();
  const place = $("message");
  const parts = [element("p", null, element("b", {class: isBad(message) ? "forced" : ""}, whatOf(message)), ` ${message.title}`)];
  const way = wayOf(message);
  if (message.rule) {
    parts.push(element("p", {class: isBad(message) ? "forced" : "help"},
      say(WORDS.rule, {rule: message.rule, text: ruleText(message.rule)}) + (message.detail ? ` (${message.detail})` : "")));
  }
  const answer = await fetch(pathOf("message", `&number=${number}`));
  if (chosen !== number) return;
  const told = answer.ok ? await answer.json() : {size: 0, forgotten: true, hex: "", fields: []};
  parts.push(element("p", {class: "help"}, say(WORDS.from, {
    from: lanes.names[way.from], to: lanes.names[way.to], size: told.size, time: clock(message.timeUs)})));
  if (message.partner && byNumber.has(message.partner)) {
    parts.push(element("p", {class: "help"},
      `${say(WORDS.partner, {number: message.partner, ms: message.milliseconds.toFixed(1)})}. `,
      element("button", {type: "button", class: "small", onclick: () => showMessage(message.partner, true)},
        say(WORDS.goTo, {number: message.partner}))));
  }
  if (told.size === 0) {
    parts.push(element("p", {class: "help"}, told.forgotten ? WORDS.forgotten : WORDS.noBytes));
    place.replaceChildren(...parts);
  } else {
    const bytes = bytesOf(told.hex);
    const owners = ownersOf(bytes.length, told.fields);
    const isText = message.kind !== "search" && message.kind !== "reply";
    if (told.bodyOffset > 0) {
      const data = element("div", {id: "data"}, element("h3", null, WORDS.data));
      parts.push(data);
      showData(number, data);
    }
    parts.push(fieldTable(told.fields, place));
    if (isText) parts.push(element("h3", null, WORDS.asText), asLines(bytes, owners));
    parts.push(element("h3", null, WORDS.asHex), asHex(bytes, owners));
    const cut = told.size - Math.min(bytes.length, SHOWN_LINES * 16);
    if (cut > 0) parts.push(element("p", {class: "help"}, say(WORDS.cut, {count: cut})));
    place.replaceChildren(...parts);
  }
  if (withFocus) $("bytes-title").focus();
}

// ---- Load ----------------------------------------------------------------------------------------

// An answer's codes with their meaning, or what was wrong with it.
function answeredText(status) {
  const codes = status.split(" ");
  return statusText(codes[0]) ? codesText(codes) : toolText(status);
}

function timesText(times) {
  return say(WORDS.loadTimes, {median: duration(times.medianUs), p99: duration(times.p99Us), worst: duration(times.worstUs)});
}

function chartOf(told) {
  const series = [[told.times.classes, "pc-bar"], [told.plain.classes, "plain-bar"]];
  const all = series.flatMap(([classes]) => classes.map((one) => one.class));
  const [least, most] = [Math.min(...all), Math.max(...all)];
  const width = 600 / (most - least + 1);
  const chart = drawn("svg", {class: "chart", viewBox: "0 0 600 160", preserveAspectRatio: "none", role: "img", "aria-label": WORDS.loadChart});
  series.forEach(([classes, kind], index) => {
    const top = Math.max(1, ...classes.map((one) => one.count));
    for (const one of classes) {
      const height = Math.max(1, 130 * one.count / top);
      chart.append(drawn("rect", {class: kind, x: (one.class - least) * width + index * width * 0.45 + 1,
        y: 135 - height, width: width * 0.45, height}));
    }
  });
  const scale = element("p", {class: "help"}, `${duration(2 ** (least / 4))} ... ${duration(2 ** ((most + 1) / 4))}`);
  return [chart, scale];
}

function showLoad() {
  $("start-load").disabled = load.runs;
  $("stop-load").disabled = !load.runs;
  const parts = [];
  if (load.trouble) parts.push(element("p", {class: "forced"}, load.trouble));
  if (load.times.count > 0) {
    const seconds = load.elapsedMs / 1000;
    parts.push(element("p", null, say(WORDS.loadFigures, {count: load.times.count, seconds: seconds.toFixed(1),
      rate: Math.round(load.times.count / Math.max(seconds, 0.001)), lost: load.lost})));
    parts.push(element("p", {class: "help"}, load.answers.map((one) => `${answeredText(one.status)}: ${one.count}`).join("; ")));
    parts.push(element("p", null, element("span", {class: "key pc-key"}), `${WORDS.loadAnswers}: ${timesText(load.times)}`));
    if (load.plain.count > 0) {
      parts.push(element("p", null, element("span", {class: "key plain-key"}), `${WORDS.loadPlain}: ${timesText(load.plain)}`));
    }
    parts.push(...chartOf(load));
  }
  $("figures").replaceChildren(...parts);
}

$("load").addEventListener("submit", (event) => {
  event.preventDefault();
  if (!chosenPc) complain(WORDS.noPcs);
  else tell("load", Object.assign(requestBody(), {perSecond: Number($("per-second").value), seconds: Number($("for-seconds").value)}));
});
$("stop-load").addEventListener("click", () => tell("stop-load"));

fillWords();
$("status").textContent = WORDS.connecting;
start();
