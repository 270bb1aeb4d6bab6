// The model makes objects of the tables that the page holds, and links them to each other. Machines
// in the same state share one object of it.

function rowsOf(name) {
  const { columns, rows } = report[name];
  return rows.map((row) => Object.fromEntries(columns.map((column, place) => [column, row[place]])));
}

function byId(rows) {
  return new Map(rows.map((row) => [row.id, row]));
}

const totals = rowsOf("totals")[0];
const devices = byId(rowsOf("devices"));
const models = byId(rowsOf("models").map((model) => ({ ...model, states: [], devices: [] })));
const states = byId(rowsOf("states").map((state) =>
  ({ ...state, machines: [], limits: [], findings: [], differences: [] })));
const machines = rowsOf("machines").map((machine, place) =>
  ({ ...machine, place, state: states.get(machine.state), requests: [] }));

// What machines are found by: each has the machines, or the states, that have it.
const limits = rowsOf("limits").map((limit) => ({ ...limit, device: devices.get(limit.device), states: [] }));
const requests = byId(rowsOf("requests").map((request) => ({ ...request, machines: [] })));
const findings = new Map();
const differences = new Map();

// Returns the object that the map has for the key; adds `made` where it has none.
function found(map, key, made) {
  if (!map.has(key)) map.set(key, made);
  return map.get(key);
}

function link() {
  for (const state of states.values()) {
    state.model = models.get(state.model);
    state.model.states.push(state);
  }
  for (const machine of machines) machine.state.machines.push(machine);
  for (const { model, device, functions } of rowsOf("model_devices"))
    models.get(model).devices.push({ device: devices.get(device), functions });
  for (const { machine, request } of rowsOf("machine_requests")) {
    machines[machine].requests.push(requests.get(request));
    requests.get(request).machines.push(machines[machine]);
  }
  linkStates();
}

function linkStates() {
  const limitOf = new Map(limits.map((limit) => [`${limit.device.id} ${limit.supported}`, limit]));
  for (const { state, device, supported } of rowsOf("state_limits")) {
    const limit = limitOf.get(`${device} ${supported}`);
    limit.states.push(states.get(state));
    states.get(state).limits.push(limit);
  }
  for (const { state, code, severity, findings: count } of rowsOf("state_findings")) {
    const finding = found(findings, `${code} ${severity}`, { code, severity, count: 0, states: [] });
    finding.states.push(states.get(state));
    finding.count += count * states.get(state).machines.length;
    states.get(state).findings.push({ finding, count });
  }
  for (const { state, device, ...values } of rowsOf("state_differences")) {
    const { model } = states.get(state);
    const difference = found(differences, JSON.stringify([model.id, values]),
      { ...values, model, device: devices.get(device), states: [] });
    difference.states.push(states.get(state));
    states.get(state).differences.push(difference);
  }
}

link();

const ofModel = grouped([...differences.values()], (difference) => difference.model);

function machinesOf(item) {
  item.machines ??= item.states.flatMap((state) => state.machines);
  return item.machines;
}

// A model has no name of its own: it is known by its first machine.
function modelText(model) {
  model.title ??= `${model.id}, like ${model.states.find((state) => state.is_usual).machines[0].name}`;
  return model.title;
}

function number(count) {
  return count.toLocaleString("en-US");
}

// Returns "1 hierarchy", "1,000 hierarchies".
function some(count, what) {
  return `${number(count)} ${count === 1 ? what : `${what.replace(/y$/, "ie")}s`}`;
}

function deviceText({ code, name }) {
  return name ? `${code} ${name}` : code;
}

function differenceText({ what, here, usual, functions, address, device }) {
  return `${what} ${here ?? "none"}, usually ${usual ?? "none"}: ${address} (${device.code})` +
    (functions > 1 ? ` and ${functions - 1} more` : "");
}

function requestText({ keyword, value }) {
  return [keyword, value].filter(Boolean).join("=");
}

// Returns the number of a state's findings of the severity; without one, of all others than errors
// and warnings.
function foundOf(state, severity) {
  const isCounted = severity === undefined
    ? ({ finding }) => !["error", "warning"].includes(finding.severity)
    : ({ finding }) => finding.severity === severity;
  return state.findings.filter(isCounted).reduce((sum, { count }) => sum + count, 0);
}

// A report may name any severity and status; only those that are known choose a style.
function knownBadge(kind, text = kind) {
  const known = [...Object.keys(SIGNS), "not_reached", "refused", "dropped", "partly_read"];
  return badge(known.includes(kind) ? kind : "note", text);
}
