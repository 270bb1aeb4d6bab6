// Puts the parts together: tabs, search, filters, keys, and the address bar, which names the chosen
// function or the part that is seen.

const search = document.getElementById("search");

// The lists are made when they are first seen.
function showPart(name) {
  showTab(name);
  makeList(name);
}

function openPart(name) {
  showPart(name);
  history.replaceState(null, "", name === "functions" && view.chosen ? `#${view.chosen.title}` : `#${name}`);
}

function labelTabs() {
  const { error, warning } = report.messages;
  const errors = report.findings.after.filter((finding) => finding.severity === "error").length;
  const faults = report.requests.filter((each) => !["reached", "replaced"].includes(each.status)).length;
  label("functions", report.functions.length);
  label("findings", report.findings.after.length, errors > 0 ? counted(errors, "error") : "", "error");
  label("requests", report.requests.length, faults > 0 ? `${faults} not reached` : "", "warning");
  label("messages", report.messages.list.length,
    error > 0 ? counted(error, "error") : warning > 0 ? counted(warning, "warning") : "",
    error > 0 ? "error" : "warning");
}

function summaryText() {
  const count = (holds) => report.functions.filter(holds).length;
  const { functions, of } = report.shown;
  const extras = [
    ["by --complete (⇒)", (fn) => fn.mps?.completed],
    ["removed", (fn) => fn.gone === "removed"],
    ["not managed", (fn) => !fn.managed],
    ["virtual", (fn) => fn.physical_function !== null],
    ["without answer", (fn) => fn.type === "no answer" || fn.gone === "no answer"],
  ].map(([text, holds]) => [count(holds), text]).filter(([number]) => number > 0);
  const whole = functions === of ? counted(of, "function") : `${functions} of ${counted(of, "function")}`;
  return [whole, `${count((fn) => fn.changed)} changed`, ...extras.map((extra) => extra.join(" "))]
    .join(", ");
}

// Applies what is searched for and the filters.
function narrow() {
  view.foldedMeanwhile.clear();
  const matches = markKept(topNodes);
  showTree();
  document.getElementById("shown").textContent =
    isNarrowed() ? `${matches} of ${counted(report.functions.length, "function")} shown` : "";
}

function readSearch() {
  view.words = searchedWords(search);
  narrow();
}

function showEverything() {
  search.value = "";
  view.filters.clear();
  for (const button of document.querySelectorAll("#filters button"))
    button.setAttribute("aria-pressed", "false");
  readSearch();
}

// Escape goes back to the tree and the function that was chosen, the arrow on to the first match.
function onSearchKey(event) {
  if (event.key === "Escape") {
    search.value = "";
    readSearch();
    if (view.chosen?.kept) reveal(view.chosen);
    else tree.querySelector('[tabindex="0"]')?.focus();
  } else if (event.key === "Enter" || event.key === "ArrowDown") {
    const first = view.rows.find((node) => node.matched);
    if (first) choose(first);
    event.preventDefault();
  }
}

function addFilters() {
  for (const { name, text, holds } of FILTERS) {
    const count = report.functions.filter(holds).length;
    document.getElementById("filters").append(toggleButton(`${text} ${count}`, false, (isOn) => {
      if (isOn) view.filters.add(name);
      else view.filters.delete(name);
      narrow();
    }));
  }
}

function addLegend() {
  const seen = new Set(report.functions.flatMap(({ mps }) =>
    mps === null ? [] : [mps.before, mps.after]).filter((bytes) => bytes !== null));
  const sizes = [...seen].sort((one, other) => one - other);
  document.getElementById("legend").append(
    element("span", {}, "Max_Payload_Size in bytes: ", sizes.map((bytes) => [size(bytes), " "])),
    ...["of 512: supported", "* changed", "→ before and after", "⇒ set by --complete",
      "◂ limits its hierarchy", "– no such control", "? not known"].map((text) => element("span", {}, text)));
}

function followAddress() {
  const place = location.hash.slice(1);
  if (nodes.has(place)) {
    showPart("functions");
    reveal(nodes.get(place));
  } else
    showPart(LISTS[place] ? place : "functions");
}

function start() {
  document.getElementById("summary").textContent = summaryText();
  labelTabs();
  addFilters();
  addLegend();
  if (nodes.size > FOLDED_AT_FIRST) foldAll(true);
  narrow();
  document.getElementById("panel").append(
    element("p", { class: "none" }, "Choose a function to see its registers, and what limits it."));
  followAddress();
  tree.addEventListener("keydown", onTreeKey);
  search.addEventListener("input", readSearch);
  search.addEventListener("keydown", onSearchKey);
  addSearchKey(search, () => openPart("functions"));
  document.getElementById("unfold").addEventListener("click", () => foldAll(false));
  document.getElementById("fold").addEventListener("click", () => foldAll(true));
  addTabKeys(openPart);
  window.addEventListener("hashchange", followAddress);
  window.addEventListener("beforeprint", () => Object.keys(LISTS).forEach(makeList));
}

start();
