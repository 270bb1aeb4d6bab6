// What unfolds below a row, and the links to the machines that have something. A link's address is
// #machines/KIND/KEY or #models/NUMBER, so that it can be sent, and the browser's button goes back.

const MOST_NAMES = 12;

// For each kind: what a key stands for, and how the list of machines is then called.
const CHOICES = {
  limit: {
    keyOf: ({ device, supported }) => `${device.code}/${supported}`, items: limits,
    text: ({ device, supported }) => `limited to ${supported} bytes by ${deviceText(device)}`,
  },
  model: { keyOf: ({ id }) => String(id), items: [...models.values()], text: (model) => `of model ${modelText(model)}` },
  finding: {
    keyOf: ({ code, severity }) => `${code}/${severity}`, items: [...findings.values()],
    text: ({ code, severity }) => `with the ${severity} ${code}`,
  },
  difference: {
    keyOf: (difference) => `${difference.model.id}/${differenceText(difference)}`, items: [...differences.values()],
    text: (difference) => `that differ: ${differenceText(difference)}`,
  },
  request: {
    keyOf: (request) => `${requestText(request)}/${request.status}`, items: [...requests.values()],
    text: (request) => `with ${requestText(request)} ${statusText(request)}`,
  },
  machine: {
    keyOf: ({ name, file }) => `${name}/${file}`, items: machines, text: ({ name }) => `named ${name}`,
  },
};

function statusText({ status }) {
  return status.replaceAll("_", " ");
}

function addressOf(kind, item) {
  return `#machines/${kind}/${encodeURIComponent(CHOICES[kind].keyOf(item))}`;
}

function machineLink(machine) {
  return element("a", { href: addressOf("machine", machine) }, machine.name);
}

function modelLink(model, text = modelText(model)) {
  return element("a", { href: `#models/${model.id}` }, text);
}

// Returns a link to all machines that have it; of few, to each of them.
function machinesLink(kind, item, having = machinesOf(item)) {
  if (having.length === 1) return machineLink(having[0]);
  return element("a", { href: addressOf(kind, item) }, some(having.length, "machine"));
}

// Tells which machines of which models have it.
function havingDetail(kind, item) {
  const groups = [...grouped(machinesOf(item), (machine) => machine.state.model)]
    .sort(([, one], [, other]) => other.length - one.length);
  return [
    element("p", {}, element("a", { href: addressOf(kind, item) }, `Show ${some(machinesOf(item).length, "machine")}`),
      " in the list of machines."),
    element("ul", { class: "plain" }, groups.slice(0, AT_ONCE).map(([model, having]) => element("li", {},
      modelLink(model, `Model ${modelText(model)}`),
      `: ${number(having.length)} of ${some(machinesOf(model).length, "machine")}: `, namesOf(having)))),
    groups.length > AT_ONCE ? element("p", {}, `${some(groups.length - AT_ONCE, "model")} more.`) : null,
  ];
}

function namesOf(having) {
  const more = having.length - MOST_NAMES;
  return [having.slice(0, MOST_NAMES).map((machine, place) => [place > 0 ? ", " : "", machineLink(machine)]),
    more > 0 ? ` and ${number(more)} more` : ""];
}

function detailTable(title, headings, rows) {
  return rows.length === 0 ? null : element("table", {}, element("caption", {}, title),
    element("thead", {}, tableRow("th", headings)),
    element("tbody", {}, rows.map((row) => tableRow("td", row))));
}

function differenceRow({ what, here, usual, functions, address, device }) {
  const value = (text) => ["supported", "payload"].includes(what) && text !== null
    ? size(Number(text)) : text ?? "none";
  return [what, value(here), value(usual), some(functions, "function"), element("code", {}, address), deviceText(device)];
}

const DIFFERENCE_HEADINGS = ["What", "Here", "Usually", "Functions", "First one", "Device"];

function modelDetail(model) {
  const rows = [...(ofModel.get(model) ?? [])].sort((one, other) => machinesOf(other).length - machinesOf(one).length);
  const usual = machinesOf(model).length - differingOf(model);
  return [
    element("p", {}, element("a", { href: addressOf("model", model) }, some(machinesOf(model).length, "machine")),
      rows.length === 0 ? ", all in the same state." : `, ${number(usual)} of them without a difference.`),
    detailTable("Machines that differ, and how", ["Machines", ...DIFFERENCE_HEADINGS], rows.slice(0, AT_ONCE).map(
      (difference) => [machinesLink("difference", difference), ...differenceRow(difference)])),
    rows.length > AT_ONCE ? element("p", {}, `${some(rows.length - AT_ONCE, "difference")} more.`) : null,
    detailTable("Devices of each of these machines", ["Device", "Functions", "Name"], [...model.devices]
      .sort((one, other) => collator.compare(one.device.name ?? "", other.device.name ?? ""))
      .map(({ device, functions }) => [element("code", {}, device.code), number(functions), device.name ?? "–"])),
  ];
}

function differingOf(model) {
  return model.states.filter((state) => state.differences.length > 0)
    .reduce((sum, state) => sum + state.machines.length, 0);
}

function machineDetail({ file, state, partial, requests: missed }) {
  return [
    element("p", {}, "Report: ", element("code", {}, file), partial ? ", which shows only a part of the functions" : "",
      ". Model ", modelLink(state.model), "."),
    detailTable("Differs from others of its model", DIFFERENCE_HEADINGS, state.differences.map(differenceRow)),
    detailTable("Limited by", ["Size", "Device"],
      state.limits.map(({ device, supported }) => [size(supported), deviceText(device)])),
    detailTable("Findings", ["Severity", "Finding", "Count"], state.findings.map(({ finding, count }) =>
      [knownBadge(finding.severity), element("code", {}, finding.code), number(count)])),
    detailTable("Requests that were not reached", ["Status", "Request"], missed.map((request) =>
      [knownBadge(request.status, statusText(request)), element("code", {}, requestText(request))])),
  ];
}
