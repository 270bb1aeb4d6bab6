// Tables whose rows are searched, filtered, sorted and unfolded. Only the first rows are made, so
// that a page of many machines opens at once: a button adds others.

const AT_ONCE = 300;
const AT_A_PRESS = 1000;

const collator = new Intl.Collator("en", { numeric: true });

// Sorts what is not known, null, behind everything else.
function compared(one, other, descends) {
  if (one === null || other === null) return (one === null) - (other === null);
  const order = typeof one === "number" ? one - other : collator.compare(one, other);
  return descends ? -order : order;
}

// `spec` has `name`, of its part of the page; `noun` of a row; `rows`; `texts` of a row, one of which
// has each word that is searched for; `columns`, each with `name`, `key` to sort by and `cell`, which
// is the key where there is none; `filters`, any of which lets a row through; `detail`, what unfolds
// below a row; and the column that is sorted by at first.
function newTable(spec) {
  const table = {
    filters: [], address: `#${spec.name}`, ...spec,
    words: [], filtered: new Set(), chosen: null, unfolded: new Set(), matching: [], most: AT_ONCE,
    headings: spec.columns.map(({ name, isNumber }, place) => element("th",
      { scope: "col", class: isNumber ? "number" : null },
      element("button", { type: "button", click: () => sort(table, place) }, name))),
    body: element("tbody", { keydown: onRowKey }),
    more: element("p", { class: "more" }),
    only: element("p", { class: "only", hidden: "" }),
  };
  const title = document.querySelector(`#${spec.name} h2`).textContent;
  table.tools = toolsOf(table);
  document.getElementById(spec.name).append(table.only, element("div", { class: "sheet" },
    element("table", { "aria-label": title },
      element("thead", {}, element("tr", {}, table.headings)), table.body), table.more));
  sortBy(table, spec.sorted, spec.columns[spec.sorted].isNumber === true);
  return table;
}

function toolsOf(table) {
  table.buttons = table.filters.map((filter) => toggleButton(
    `${filter.text} ${number(table.rows.filter(filter.holds).length)}`, false,
    (isOn) => { if (isOn) table.filtered.add(filter); else table.filtered.delete(filter); narrow(table); }));
  const folds = [["Unfold all", true], ["Fold all", false]].map(([text, unfolds]) =>
    element("button", { type: "button", click: () => foldAll(table, !unfolds) }, text));
  const filters = element("div", { class: "buttons", role: "group", "aria-label": "Show only" }, table.buttons);
  return [...(table.buttons.length === 0 ? [] : [filters]), element("div", { class: "buttons" }, folds)];
}

function sortBy(table, place, descends) {
  const { key } = table.columns[place];
  const keys = new Map(table.rows.map((row) => [row, key(row)]));
  table.rows.sort((one, other) => compared(keys.get(one), keys.get(other), descends));
  table.sortedBy = place;
  table.descends = descends;
  table.headings.forEach((heading, each) => {
    if (each === place) heading.setAttribute("aria-sort", descends ? "descending" : "ascending");
    else heading.removeAttribute("aria-sort");
  });
}

// Numbers are sorted from the largest first.
function sort(table, place) {
  sortBy(table, place, table.sortedBy === place ? !table.descends : table.columns[place].isNumber === true);
  narrow(table);
}

function isMatch(table, row) {
  if (table.chosen !== null && !table.chosen.has(row)) return false;
  if (table.filtered.size > 0 && ![...table.filtered].some((filter) => filter.holds(row))) return false;
  if (table.words.length === 0) return true;
  const texts = table.texts(row);
  return table.words.every((word) => texts.some((text) => text.includes(word)));
}

function isNarrowed(table) {
  return table.chosen !== null || table.filtered.size > 0 || table.words.length > 0;
}

// Finds the rows that match, of which show() makes the first ones if the table is seen.
function narrow(table) {
  table.matching = table.rows.filter((row) => isMatch(table, row));
  table.most = AT_ONCE;
  table.isStale = true;
  table.onNarrow(table);
}

function show(table) {
  if (table.isStale) table.body.replaceChildren(...rowsFrom(table, 0));
  table.isStale = false;
  const left = table.matching.length - Math.min(table.most, table.matching.length);
  table.more.replaceChildren(table.matching.length === 0 ? `No ${table.noun} is shown.`
    : left === 0 ? "" : element("span", {}, `${number(left)} more. `, element("button",
      { type: "button", click: () => showMore(table) }, `Show ${number(Math.min(left, AT_A_PRESS))}`)));
}

function showMore(table) {
  const added = rowsFrom(table, table.most, table.most + AT_A_PRESS);
  table.most += AT_A_PRESS;
  table.body.append(...added);
  show(table);
  added[0].querySelector("button").focus();
}

function rowsFrom(table, first, end = table.most) {
  return table.matching.slice(first, end).flatMap((row) =>
    [newRow(table, row), ...(table.unfolded.has(row) ? [detailRow(table, row)] : [])]);
}

function newRow(table, row) {
  return element("tr", {}, table.columns.map(({ key, cell = key, isNumber }, place) => element(
    place === 0 ? "th" : "td", { scope: place === 0 ? "row" : null, class: isNumber ? "number" : null },
    place === 0 ? foldButton(table, row) : null, shownValue(cell(row)))));
}

function shownValue(value) {
  if (typeof value === "number") return element("span", { class: value === 0 ? "zero" : null }, number(value));
  return value ?? "–";
}

function foldButton(table, row) {
  return element("button", {
    type: "button", class: "fold", "aria-expanded": table.unfolded.has(row),
    "aria-label": `More about ${table.columns[0].key(row)}`,
    click: ({ currentTarget }) => fold(table, row, currentTarget),
  });
}

function detailRow(table, row) {
  return element("tr", { class: "detail" },
    element("td", { colspan: table.columns.length }, table.detail(row)));
}

function fold(table, row, button) {
  const unfolds = !table.unfolded.delete(row);
  button.setAttribute("aria-expanded", unfolds);
  const shown = button.closest("tr");
  if (!unfolds) return shown.nextElementSibling.remove();
  table.unfolded.add(row);
  shown.after(detailRow(table, row));
}

// Unfolds what is seen: the others stay as they are.
function foldAll(table, folds) {
  table.unfolded = new Set(folds ? [] : table.matching.slice(0, table.most));
  table.isStale = true;
  show(table);
}

// The arrow keys go from row to row, and fold and unfold them.
function onRowKey(event) {
  if (!event.target.matches(".fold") || event.ctrlKey || event.altKey || event.metaKey) return;
  const isUnfolded = event.target.getAttribute("aria-expanded") === "true";
  const buttons = [...event.currentTarget.querySelectorAll(".fold")];
  const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
  if (step !== undefined) buttons[buttons.indexOf(event.target) + step]?.focus();
  else if (event.key === (isUnfolded ? "ArrowLeft" : "ArrowRight")) event.target.click();
  else return;
  event.preventDefault();
}

// Shows only the machines, or other rows, of a set; null shows all, as without any filter.
function choose(table, chosen, filter = null) {
  table.chosen = chosen;
  table.filtered = new Set(filter === null ? [] : [filter]);
  table.buttons.forEach((button, place) =>
    button.setAttribute("aria-pressed", table.filters[place] === filter));
  narrow(table);
}
