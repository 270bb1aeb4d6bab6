// The tables of the page: their columns, filters, and what is searched.

function lowered(...texts) {
  return texts.filter(Boolean).join(" ").toLowerCase();
}

// The texts are made when something is first searched for.
function searchedText(item, make) {
  item.text ??= make(item);
  return item.text;
}

function modelSearch(model) {
  return searchedText(model, () => lowered(`model ${modelText(model)}`,
    ...model.devices.map(({ device }) => deviceText(device))));
}

function stateSearch(state) {
  return searchedText(state, () => lowered(
    ...state.findings.map(({ finding }) => finding.code), ...state.differences.map(({ what }) => what)));
}

const column = (name, key, cell = key) => ({ name, key, cell });
const numbers = (name, key, cell = key) => ({ name, key, cell, isNumber: true });
const machinesColumn = (kind) => numbers("Machines", (item) => machinesOf(item).length,
  (item) => machinesLink(kind, item));

const SEVERITIES = ["error", "warning"];

const TABLES = [
  {
    name: "devices", noun: "device", rows: limits, sorted: 5,
    texts: ({ device }) => [lowered(deviceText(device))],
    filters: [{ text: "Limits something alone", holds: ({ freed }) => freed > 0 }],
    detail: (limit) => havingDetail("limit", limit),
    columns: [
      column("Device", ({ device }) => device.code, ({ device }) => element("code", {}, device.code)),
      column("Name", ({ device }) => device.name),
      numbers("Limits to", ({ supported }) => supported, ({ supported }) => size(supported)),
      numbers("Devices", ({ devices: count }) => count), machinesColumn("limit"),
      numbers("Frees", ({ freed }) => freed),
      numbers("Up to", ({ possible }) => possible, ({ possible }) => possible === null ? null : size(possible)),
      numbers("Gain", ({ gain }) => gain, ({ gain }) => gain === null ? null : `+${gain.toFixed(1)} %`),
    ],
  },
  {
    name: "models", noun: "model", rows: [...models.values()], sorted: 2,
    texts: (model) => [modelSearch(model)],
    filters: [{ text: "With differences", holds: (model) => differingOf(model) > 0 }],
    detail: modelDetail,
    columns: [
      column("Model", modelText), machinesColumn("model"), numbers("Machines that differ", differingOf),
      numbers("Differences", (model) => ofModel.get(model)?.length ?? 0),
      numbers("Functions", ({ functions }) => functions),
      numbers("Hierarchies", (model) => model.states[0].hierarchies),
      numbers("Machines that could carry more", (model) => machinesOf(model).filter(({ state }) => state.limited > 0).length),
    ],
  },
  {
    name: "findings", noun: "finding", sorted: 1,
    rows: [...findings.values()].sort((one, other) => machinesOf(other).length - machinesOf(one).length),
    texts: ({ code, severity }) => [lowered(code, severity)],
    filters: [{ text: "Problems", holds: ({ severity }) => SEVERITIES.includes(severity) }],
    detail: (finding) => havingDetail("finding", finding),
    columns: [
      column("Finding", ({ code }) => code, ({ code }) => element("code", {}, code)),
      column("Severity", ({ severity }) => `${(SEVERITIES.indexOf(severity) + 3) % 3} ${severity}`,
        ({ severity }) => knownBadge(severity)),
      machinesColumn("finding"),
      numbers("Findings", ({ count }) => count),
    ],
  },
  {
    name: "requests", noun: "request", rows: [...requests.values()], sorted: 2,
    texts: (request) => [lowered(requestText(request), statusText(request), request.reason)],
    detail: (request) => havingDetail("request", request),
    columns: [
      column("Request", requestText, (request) => element("code", {}, requestText(request))),
      column("Status", statusText, (request) => knownBadge(request.status, statusText(request))),
      machinesColumn("request"), numbers("Lines", ({ requests: count }) => count),
      column("Reason on the first machine", ({ reason }) => reason),
    ],
  },
  {
    name: "machines", noun: "machine", rows: [...machines], sorted: 0,
    texts: (machine) => [searchedText(machine, ({ name, file }) => lowered(name, file)),
      modelSearch(machine.state.model), stateSearch(machine.state)],
    filters: [
      { key: "problems", text: "Problems", holds: ({ state }) => SEVERITIES.some((each) => foundOf(state, each) > 0) },
      { key: "limited", text: "Could carry more", holds: ({ state }) => state.limited > 0 },
      { key: "below", text: "Set below limit", holds: ({ state }) => state.below > 0 },
      { key: "different", text: "Differ", holds: ({ state }) => state.differences.length > 0 },
      { key: "requests", text: "Requests not reached", holds: ({ requests: missed }) => missed.length > 0 },
    ],
    detail: machineDetail,
    columns: [
      column("Machine", ({ name }) => name),
      column("Model", ({ state }) => modelText(state.model), ({ state }) => modelLink(state.model)),
      numbers("Hierarchies", ({ state }) => state.hierarchies),
      numbers("Set below limit", ({ state }) => state.below),
      numbers("Could carry more", ({ state }) => state.limited),
      ecrcColumn("ECRC gen", "generation"), ecrcColumn("ECRC chk", "checking"),
      numbers("Differences", ({ state }) => state.differences.length),
      numbers("Findings", ({ state }) => foundOf(state, "error") * 1e6 + foundOf(state, "warning") * 1e3 + foundOf(state),
        ({ state }) => findingBadges(state)),
      numbers("Not reached", ({ requests: missed }) => missed.length),
    ],
  },
];

function ecrcColumn(name, control) {
  const share = ({ state }) => state[`${control}_capable`] === 0
    ? null : state[`${control}_on`] / state[`${control}_capable`];
  return numbers(name, share, (machine) => share(machine) === null
    ? null : `${machine.state[`${control}_on`]} of ${machine.state[`${control}_capable`]}`);
}

function findingBadges(state) {
  const others = foundOf(state);
  const badges = [...SEVERITIES.map((each) => [each, foundOf(state, each)]), ["note", others]]
    .filter(([, count]) => count > 0).map(([severity, count]) => [" ", knownBadge(severity, counted(count, severity))]);
  return badges.length === 0 ? 0 : badges;
}
