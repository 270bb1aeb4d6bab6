// The tree of functions. Rows are made when they are first seen: what is folded costs nothing.

const FOLDED_AT_FIRST = 1000;  // nodes: larger machines begin with what is below root ports folded

const DEEPEST_INDENT = 14;     // levels; those below stand under each other

const FILTERS = [
  { name: "changed", text: "Changed", holds: (fn) => fn.changed },
  { name: "problems", text: "Problems", holds: hasProblem },
  { name: "pcie", text: "PCI Express",
    holds: (fn) => fn.port_type !== null || fn.physical_function !== null },
];

const tree = document.getElementById("tree");
const view = {
  words: [],            // all of them are searched for
  filters: new Set(),   // any of them lets a function through
  folded: new Set(),
  foldedMeanwhile: new Set(),  // while not all functions are shown, which unfolds what is left
  rows: [],             // the nodes that are seen, from the top
  chosen: null,
};

function isNarrowed() {
  return view.words.length > 0 || view.filters.size > 0;
}

function foldedNodes() {
  return isNarrowed() ? view.foldedMeanwhile : view.folded;
}

function isMatch(node) {
  return node.fn !== null && view.words.every((word) => node.text.includes(word)) &&
    (view.filters.size === 0 ||
     FILTERS.some((each) => view.filters.has(each.name) && each.holds(node.fn)));
}

// Returns the number of functions that match.
function markKept(siblings) {
  let matches = 0;
  for (const node of siblings) {
    const below = markKept(node.children);
    node.matched = !isNarrowed() || isMatch(node);
    node.kept = node.matched || below > 0;
    matches += below + (node.matched && node.fn !== null ? 1 : 0);
  }
  return matches;
}

function collectRows(siblings) {
  const kept = siblings.filter((node) => node.kept);
  kept.forEach((node, index) => {
    node.place = index + 1;
    node.places = kept.length;
    view.rows.push(node);
    if (!foldedNodes().has(node)) collectRows(node.children);
  });
}

function showTree() {
  view.rows = [];
  collectRows(topNodes);
  setWidths();
  const focused = document.activeElement;
  tree.replaceChildren(...view.rows.map(updatedRow));
  if (tree.contains(focused)) focused.focus({ preventScroll: true });
  if (!tree.querySelector('[tabindex="0"]') && view.rows.length > 0) view.rows[0].row.tabIndex = 0;
  document.getElementById("nothing").hidden = view.rows.length > 0;
}

// The columns begin at the same place in all rows.
function setWidths() {
  const { style } = tree.parentElement;
  const most = (value) => view.rows.reduce((largest, node) => Math.max(largest, value(node)), 1);
  style.setProperty("--deepest", Math.min(most((node) => node.level), DEEPEST_INDENT));
  style.setProperty("--longest", most((node) => node.title.length));
}

function updatedRow(node) {
  node.row ??= newRow(node);
  const row = node.row;
  if (node.children.length > 0) row.setAttribute("aria-expanded", !foldedNodes().has(node));
  row.setAttribute("aria-posinset", node.place);
  row.setAttribute("aria-setsize", node.places);
  row.classList.toggle("above", !node.matched);
  row.tabIndex = node === view.chosen ? 0 : -1;
  return row;
}

function newRow(node) {
  const row = element("div", {
    role: "treeitem", class: `item ${node.fn?.changed ? "changed" : nodes.has(node.title) ? "" : "domain"}`,
    "aria-level": node.level, "aria-selected": node === view.chosen, "aria-label": spokenText(node),
    click: () => choose(node), dblclick: () => fold(node, !foldedNodes().has(node)),
  });
  if (node.hierarchy !== null) row.append(headingOf(node));
  row.append(element("div", { class: "row" }, addressCell(node), node.fn === null
    ? element("span", { class: "wide" }, otherText(node))
    : functionCells(node.fn)));
  row.style.setProperty("--level", Math.min(node.level, DEEPEST_INDENT) - 1);
  return row;
}

function headingOf(node) {
  return element("div", { class: "heading" },
    element("b", {}, `Root port ${node.title}`), `: ${node.hierarchy.text}`);
}

// Returns what is known of a node that is no function of the report.
function otherText(node) {
  if (nodes.has(node.title)) return "not in this report";
  const functions = report.functions.filter((fn) => fn.domain === node.domain);
  const changed = functions.filter((fn) => fn.changed).length;
  return `${counted(functions.length, "function")}, ${changed} changed`;
}

function addressCell(node) {
  const mark = element("span", {
    class: "fold",
    click: (event) => { event.stopPropagation(); fold(node, !foldedNodes().has(node)); },
    dblclick: (event) => event.stopPropagation(),
  });
  return element("span", { class: "address" }, node.children.length > 0 ? mark : null,
    element("span", { class: "mark" }, markOf(node)),
    element("code", {}, node.title), busesOf(node.fn));
}

function markOf(node) {
  const severity = severityOf(node.title);
  if (["error", "warning"].includes(severity))
    return element("span", { class: severity, title: severity }, SIGNS[severity]);
  return node.fn?.changed ? element("span", { title: "changed" }, "*") : "";
}

function busesOf(fn) {
  if (!fn?.secondary) return null;
  const text = fn.secondary === fn.subordinate ? fn.secondary : `${fn.secondary}-${fn.subordinate}`;
  return element("span", { class: "buses", title: "buses behind it" }, ` [${text}]`);
}

function functionCells(fn) {
  return [
    element("span", { class: "type" }, fn.type),
    element("span", { class: "payload" }, payloadCell(fn)),
    ...["gen", "chk"].map((name) => element("span", { class: `ecrc ${name}` }, ecrcText(fn, name))),
    element("span", { class: "name", title: fn.name },
      element("bdi", { dir: "ltr" }, notesOf(fn), fn.name ?? "")),
  ];
}

function payloadCell(fn) {
  if (fn.gone !== null) return element("em", {}, fn.gone);
  if (fn.mps === null) return "–";
  const { before, after, supported } = fn.mps;
  return [
    before === after ? null : [size(before), ` ${payloadArrow(fn.mps)} `],
    size(after), element("span", { class: "of" }, ` of ${supported ?? "?"}`),
    limiters.has(fn.bdf)
      ? element("span", { class: "limits", title: "limits its hierarchy" }, " ◂") : null,
  ];
}

function ecrcText(fn, name) {
  if (fn.ecrc_unknown) return "?";
  const control = fn.ecrc?.[name];
  if (!control?.capable || control.after === null) return "–";
  return control.before === control.after
    ? onOff(control.after) : `${onOff(control.before)} → ${onOff(control.after)}`;
}

function notesOf(fn) {
  return [
    fn.physical_function === null ? null : `(of ${fn.physical_function}) `,
    fn.managed ? null : "(not managed) ",
    fn.driver === null ? null : element("span", { class: "driver", title: "driver" }, fn.driver),
    fn.driver === null ? null : " ",
  ];
}

// Returns what a screen reader says of a row.
function spokenText(node) {
  if (node.fn === null) return `${node.title}, ${otherText(node)}`;
  const { fn } = node;
  const ecrc = { gen: "generation", chk: "checking" };
  return [
    fn.bdf, fn.type, fn.changed ? "changed" : "", severityOf(fn.bdf) ?? "",
    fn.mps && fn.gone === null ? `payload ${spokenPayload(fn.mps)}` : fn.gone ?? "",
    ...Object.keys(ecrc).map((name) => ["–", "?"].includes(ecrcText(fn, name))
      ? "" : `ECRC ${ecrc[name]} ${ecrcText(fn, name).replace("→", "now")}`),
    fn.name ?? "", node.hierarchy ? `hierarchy ${node.hierarchy.text}` : "",
  ].filter(Boolean).join(", ");
}

function spokenPayload({ before, after, supported }) {
  return `${before === after ? "" : `${before}, now `}${after} of ${supported} bytes`;
}

function fold(node, folds) {
  if (node.children.length === 0) return;
  if (folds) foldedNodes().add(node);
  else foldedNodes().delete(node);
  showTree();
  if (folds && pathTo(view.chosen ?? node).includes(node)) choose(node);
}

function foldAll(folds) {
  const folded = foldedNodes();
  folded.clear();
  if (folds) for (const node of [...topNodes, ...nodes.values()]) if (node.children.length > 0) folded.add(node);
  showTree();
}

// Makes the function the one that the panel describes, and the one that the keyboard starts from.
function choose(node, { focuses = true } = {}) {
  const old = view.chosen;
  view.chosen = node;
  if (old?.row) {
    old.row.setAttribute("aria-selected", "false");
    old.row.tabIndex = -1;
  }
  tree.querySelector('[tabindex="0"]')?.setAttribute("tabindex", "-1");
  node.row.setAttribute("aria-selected", "true");
  node.row.tabIndex = 0;
  if (focuses) node.row.focus({ preventScroll: true });
  node.row.scrollIntoView({ block: "nearest" });
  showPanel(node);
  history.replaceState(null, "", `#${node.title}`);
}

// Chooses a function that may be folded away, or not be among those that are shown.
function reveal(node) {
  if (!node.kept) showEverything();
  for (const above of pathTo(node).slice(0, -1)) foldedNodes().delete(above);
  showTree();
  choose(node);
  node.row.scrollIntoView({ block: "center" });
}

function moveTo(index) {
  const node = view.rows[Math.max(0, Math.min(index, view.rows.length - 1))];
  if (node) choose(node);
}

const TREE_KEYS = {
  ArrowDown: (at) => moveTo(at + 1),
  ArrowUp: (at) => moveTo(at - 1),
  PageDown: (at) => moveTo(at + 10),
  PageUp: (at) => moveTo(at - 10),
  Home: () => moveTo(0),
  End: () => moveTo(view.rows.length - 1),
  ArrowRight: (at, node) =>
    foldedNodes().has(node) ? fold(node, false) : node.children.length > 0 && moveTo(at + 1),
  ArrowLeft: (at, node) => node.children.length > 0 && !foldedNodes().has(node)
    ? fold(node, true) : node.parent && choose(node.parent),
  Enter: (at, node) => choose(node),
  " ": (at, node) => choose(node),
  "*": () => foldAll(false),
};

function onTreeKey(event) {
  const at = view.rows.findIndex((node) => node.row === document.activeElement);
  const action = TREE_KEYS[event.key];
  if (at < 0 || !action || event.ctrlKey || event.altKey || event.metaKey) return;
  event.preventDefault();
  action(at, view.rows[at]);
}
