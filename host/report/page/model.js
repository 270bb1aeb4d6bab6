// The model makes, of the JSON report that the page holds, the tree of functions and the texts that
// several parts of the page have in common.

const ADDRESS = /((?:[0-9a-f]{4,8}:)?[0-9a-f]{2}:[01][0-9a-f]\.[0-7])/;

const findingsOf = grouped(report.findings.after, (finding) => finding.function);
const hierarchyOf = new Map(report.hierarchies.map((each) => [each.root_port, each]));

// Functions that limit a hierarchy which could have more without them.
const limiters = new Set(
  report.hierarchies.filter((each) => each.possible !== null).flatMap((each) => each.limiters));

// Findings that there were before the modules were loaded, and are not there any more.
const mendedFindings = (() => {
  const key = (finding) => `${finding.code} ${finding.function}`;
  const left = new Set(report.findings.after.map(key));
  return report.findings.before.filter((finding) => !left.has(key(finding)));
})();

// Returns the gravest severity of what is found about a function.
function severityOf(address) {
  return findingsOf.get(address)?.[0].severity ?? null;
}

// Likewise as `--only problems` has it.
function hasProblem(fn) {
  return fn.type === "no answer" || fn.gone === "no answer" ||
    ["error", "warning"].includes(severityOf(fn.bdf));
}

// A node of the tree is a function; a bridge that is not in the report, of which only the address
// is known (`fn` is null); or a domain, where there are several.
function newNode(title, fn, domain) {
  return {
    title, fn, domain,
    parent: null, children: [], level: 1, row: null,
    kept: true,     // matches what is searched for, or is above a function that does
    matched: true,
    hierarchy: hierarchyOf.get(title) ?? null,
    text: fn === null ? "" : searchedText(fn),
  };
}

function searchedText(fn) {
  return [fn.bdf, fn.name, fn.driver].filter(Boolean).join(" ").toLowerCase();
}

const nodes = new Map(report.functions.map((fn) => [fn.bdf, newNode(fn.bdf, fn, fn.domain)]));
const topNodes = makeTree();

function makeTree() {
  const domains = new Map();
  for (const fn of report.functions)
    if (!domains.has(fn.domain)) domains.set(fn.domain, newNode(`Domain ${fn.domain}`, null, fn.domain));
  for (const fn of report.functions) hang(nodes.get(fn.bdf), placeOf(fn, domains));
  for (const node of [...domains.values(), ...nodes.values()])
    node.children.sort((one, other) => (orderOf(one) < orderOf(other) ? -1 : 1));
  const tops = [...domains.values()];
  if (tops.length > 1) {
    tops.forEach((top) => setLevels(top, 1));
    return tops;
  }
  const only = tops.flatMap((top) => top.children);
  only.forEach((top) => { top.parent = null; setLevels(top, 1); });
  return only;
}

// With --only or -s the bridges above a function may not be in the report: what is known of them
// is the bridge above, and the root port.
function placeOf(fn, domains) {
  const domain = domains.get(fn.domain);
  if (fn.parent === null) return domain;
  const rootPort = fn.root_port === null || fn.root_port === fn.parent
    ? domain : bridgeNode(fn.root_port, domain);
  return bridgeNode(fn.parent, rootPort);
}

function bridgeNode(address, above) {
  if (!nodes.has(address)) {
    nodes.set(address, newNode(address, null, above.domain));
    hang(nodes.get(address), above);
  }
  return nodes.get(address);
}

function hang(node, above) {
  node.parent = above;
  above.children.push(node);
}

// Addresses outside of domain 0 have the domain in front.
function orderOf(node) {
  return node.title.slice(-"00:00.0".length);
}

function setLevels(node, level) {
  node.level = level;
  for (const child of node.children) setLevels(child, level + 1);
}

// Returns the node and all that are above it, the uppermost first.
function pathTo(node) {
  const path = [];
  for (let each = node; each !== null; each = each.parent) path.unshift(each);
  return path;
}

// Returns the text with a link wherever it names a function of the report.
function linked(text) {
  return text.split(ADDRESS).map((part) =>
    nodes.has(part) ? element("a", { href: `#${part}` }, part) : part);
}

// Returns the arrow of the table: "⇒" where hoplar itself has set the size.
function payloadArrow(mps) {
  return mps.completed ? "⇒" : "→";
}
