// Puts the parts together: sums, tabs, search, and the address bar, which names the part that is seen
// and the rows that are chosen.

const search = document.getElementById("search");
const tables = new Map(TABLES.map((spec) => [spec.name, newTable({ ...spec, onNarrow })]));
let shownTable = tables.get("devices");

// A table that is not seen only tells in its tab how many rows match.
function onNarrow(table) {
  const hits = table.matching.length;
  document.querySelector(`#tab-${table.name} .count`).textContent = number(hits);
  if (table !== shownTable) return;
  show(table);
  document.getElementById("shown").textContent = isNarrowed(table)
    ? `${number(hits)} of ${some(table.rows.length, table.noun)} shown` : "";
}

function showPart(name) {
  showTab(name);
  shownTable = tables.get(name);
  document.getElementById("filters").replaceChildren(...shownTable.tools);
  onNarrow(shownTable);
}

function readSearch() {
  for (const table of tables.values()) {
    table.words = searchedWords(search);
    narrow(table);
  }
}

function onSearchKey(event) {
  if (event.key === "Escape") {
    search.value = "";
    readSearch();
  } else if (event.key === "ArrowDown") {
    event.preventDefault();
    shownTable.body.querySelector("button, a")?.focus();
  }
}

// Returns the rows that an address chooses, and what they are called; null for all.
function choiceOf(name, kind, key) {
  if (name === "models") {
    const model = models.get(Number(kind));
    return model ? { text: `Model ${modelText(model)}`, rows: [model] } : null;
  }
  const choice = name === "machines" && Object.hasOwn(CHOICES, kind) ? CHOICES[kind] : null;
  const item = choice?.items.find((each) => choice.keyOf(each) === key);
  return item ? { text: `Machines ${choice.text(item)}`, rows: kind === "machine" ? [item] : machinesOf(item) } : null;
}

// Shows what an address chooses; all rows if that is nothing.
function chooseRows(table, kind, key) {
  const filter = kind === "only" ? table.filters.find((each) => each.key === key) ?? null : null;
  const choice = choiceOf(table.name, kind, key);
  table.only.hidden = choice === null;
  table.only.replaceChildren(...(choice === null ? [] : [element("b", {}, choice.text), " ",
    element("a", { href: `#${table.name}` }, `Show all ${table.noun}s`)]));
  if (choice?.rows.length === 1) table.unfolded.add(choice.rows[0]);
  choose(table, choice && new Set(choice.rows), filter);
}

// An address that somebody has written by hand may be any text.
function decoded(text) {
  try {
    return decodeURIComponent(text);
  } catch {
    return "";
  }
}

function followAddress() {
  const [name, kind = "", key = ""] = location.hash.slice(1).split("/").map(decoded);
  if (kind !== "") {
    search.value = "";
    readSearch();
  }
  const table = tables.get(name) ?? tables.get("devices");
  table.address = table.name === name ? location.hash : `#${table.name}`;
  chooseRows(table, kind, key);
  showPart(table.name);
}

// The link that was followed is no more to be seen: what it leads to begins at the top.
function followLink() {
  followAddress();
  window.scrollTo(0, 0);
  document.getElementById(`tab-${shownTable.name}`).focus({ preventScroll: true });
}

function openPart(name) {
  showPart(name);
  history.replaceState(null, "", shownTable.address);
}

function linkTo(filter, text) {
  return element("a", { href: `#machines/only/${filter}` }, text);
}

function share(part, whole, gravity = "") {
  const bar = element("div", { class: "bar", "aria-hidden": "true" }, element("span", { class: gravity }));
  bar.firstChild.style.setProperty("inline-size", `${whole === 0 ? 0 : (100 * part) / whole}%`);
  return bar;
}

// Tells a share of something in numbers and in a bar, and on which machines it is.
function sum(title, part, whole, what, filter, having, gravity) {
  return element("div", { class: "sum" }, element("h3", {}, title),
    element("p", {}, element("b", {}, number(part)), ` of ${some(whole, what)}`), share(part, whole, gravity),
    element("p", {}, having === 0 ? "on no machine" : ["on ", linkTo(filter, some(having, "machine"))]));
}

function ecrcSum() {
  return element("div", { class: "sum" }, element("h3", {}, "ECRC on, where capable"),
    [["generation", "Generation"], ["checking", "Checking"]].map(([name, text]) => {
      const [on, capable] = [totals[`${name}_on`], totals[`${name}_capable`]];
      return [element("p", {}, `${text}: `, element("strong", {}, number(on)), ` of ${number(capable)}`), share(on, capable)];
    }));
}

function sizesTable() {
  const rows = rowsOf("sizes");
  return element("div", { class: "sum" }, element("table", { class: "sizes" },
    element("caption", {}, "Hierarchies by payload size"),
    element("thead", {}, element("tr", {}, element("th", { scope: "col" }, "Bytes"),
      rows.map((row) => element("th", { scope: "col" }, size(row.size))))),
    element("tbody", {}, [["Set to it", "is_set"], ["All of it supports", "supported"]].map(([text, name]) =>
      element("tr", {}, element("th", { scope: "row" }, text),
        rows.map((row) => element("td", {}, row[name] === 0 ? "–" : number(row[name]))))))));
}

function showSums() {
  const t = totals;
  const faulty = machines.filter(({ state }) => SEVERITIES.some((each) => foundOf(state, each) > 0)).length;
  document.getElementById("summary").textContent = [
    some(t.machines, "machine"), some(t.models, "model"), some(t.hierarchies, "hierarchy"),
  ].join(", ");
  document.getElementById("sums").append(
    sum("Problems", faulty, t.machines, "machine", "problems", faulty, "error"),
    sum("Could carry more", t.limited_hierarchies, t.hierarchies, "hierarchy", "limited", t.limited_machines, "limits"),
    sum("Set below limit", t.below_hierarchies, t.hierarchies, "hierarchy", "below", t.below_machines, "limits"),
    sum("Differ from model", t.different_machines, t.machines, "machine", "different", t.different_machines, "limits"),
    ecrcSum(), sizesTable());
  const faults = [[t.unreadable, "could not be read"], [t.partial, "shows only a part of its machine"]]
    .filter(([count]) => count > 0).map(([count, text]) => badge("warning", `${some(count, "report")}: ${text}`));
  document.getElementById("summary").append(...faults.flatMap((each) => [" ", each]));
}

function start() {
  for (const table of tables.values()) label(table.name, 0);
  showSums();
  readSearch();
  followAddress();
  search.addEventListener("input", readSearch);
  search.addEventListener("keydown", onSearchKey);
  addSearchKey(search, () => {});
  addTabKeys(openPart);
  window.addEventListener("hashchange", followLink);
  window.addEventListener("beforeprint", () => tables.forEach(show));
}

start();
