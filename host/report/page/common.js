"use strict";
// What the pages have in common: elements, sizes and badges, buttons, tabs. Nothing of a page is
// markup that a report could write into.

const report = JSON.parse(document.getElementById("report").textContent);

const SIGNS = { error: "✕", warning: "▲", note: "●", mended: "✓" };

// Makes an element. Children that are strings become text, so that no name is taken for markup.
function element(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes ?? {}))
    if (typeof value === "function") made.addEventListener(key, value);
    else if (value !== null) made.setAttribute(key, value);
  made.append(...children.flat(Infinity).filter((child) => child !== null && child !== ""));
  return made;
}

function counted(count, what) {
  return `${count} ${what}${count === 1 ? "" : "s"}`;
}

// Groups rows by what `key` returns for them.
function grouped(rows, key) {
  const groups = new Map();
  for (const row of rows)
    if (groups.has(key(row))) groups.get(key(row)).push(row);
    else groups.set(key(row), [row]);
  return groups;
}

function badge(severity, text = severity) {
  return element("span", { class: `badge ${severity}` },
    element("span", { "aria-hidden": "true" }, SIGNS[severity] ?? ""), ` ${text}`);
}

// A size in bytes, coloured; the number is always there.
function size(bytes) {
  return element("span", { class: `size s${bytes ?? "none"}` }, bytes === null ? "–" : String(bytes));
}

function onOff(enabled) {
  return enabled === null ? "–" : enabled ? "on" : "off";
}

function tableRow(cell, texts) {
  return element("tr", {}, texts.map((text) =>
    element(cell, cell === "th" ? { scope: "col" } : {}, text)));
}

// A button that stays pressed until it is pressed again.
function toggleButton(text, isOn, onToggle) {
  const button = element("button", { type: "button", "aria-pressed": isOn }, text);
  button.addEventListener("click", () => {
    const now = button.getAttribute("aria-pressed") !== "true";
    button.setAttribute("aria-pressed", now);
    onToggle(now);
  });
  return button;
}

const tabs = [...document.querySelectorAll('[role="tab"]')];

function showTab(name) {
  for (const tab of tabs) {
    const isShown = tab.id === `tab-${name}`;
    tab.setAttribute("aria-selected", isShown);
    tab.tabIndex = isShown ? 0 : -1;
  }
  for (const panel of document.querySelectorAll('[role="tabpanel"]'))
    panel.classList.toggle("shown", panel.id === name);
}

// Calls `open` with the name of the part whose tab is clicked, or reached with an arrow key.
function addTabKeys(open) {
  const onKey = (event) => {
    const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
    if (step === undefined) return;
    event.preventDefault();
    const tab = tabs[(tabs.indexOf(event.target) + step + tabs.length) % tabs.length];
    open(tab.getAttribute("aria-controls"));
    tab.focus();
  };
  for (const tab of tabs) {
    tab.addEventListener("click", () => open(tab.getAttribute("aria-controls")));
    tab.addEventListener("keydown", onKey);
  }
}

// Lets "/" go to the search, from wherever nothing is typed; `open` shows what is searched first.
function addSearchKey(search, open) {
  document.addEventListener("keydown", (event) => {
    if (event.key !== "/" || event.target.matches("input") || event.ctrlKey || event.metaKey) return;
    event.preventDefault();
    open();
    search.focus();
    search.select();
  });
}

function searchedWords(search) {
  return search.value.toLowerCase().split(/\s+/).filter(Boolean);
}

function label(name, count, alarm = "", severity = "") {
  document.getElementById(`tab-${name}`).append(" ", element("span", { class: "count" }, String(count)));
  if (alarm !== "") document.getElementById(`tab-${name}`).append(" ", badge(severity, alarm));
}
