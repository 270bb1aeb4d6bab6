// The other parts of the report: findings, requests with the modules, messages. Each is made when it
// is first seen.

const LISTS = { findings: findingsList, requests: requestsList, messages: messagesList };

function makeList(name) {
  const section = document.getElementById(name);
  if (LISTS[name] && section.childElementCount === 1) section.append(...LISTS[name]());
}

function findingsList() {
  const item = (finding, ...shown) => element("li", {},
    badge(...shown), element("p", {}, linked(finding.text)), element("code", {}, finding.code));
  const parts = [];
  if (report.findings.after.length === 0)
    parts.push(element("p", { class: "none" }, "Nothing is wrong, or worth knowing, at the end."));
  parts.push(element("ul", { class: "findings" },
    report.findings.after.map((finding) => item(finding, finding.severity))));
  if (mendedFindings.length > 0)
    parts.push(element("h3", {}, "Found before the modules were loaded, and not any more"),
      element("ul", { class: "findings" }, mendedFindings.map((each) => item(each, "mended", "no more"))));
  return parts;
}

function statusText(request) {
  return request.status.replaceAll("_", " ");
}

// Returns "512 bytes requested, 256 reached; ...".
function requestedText({ mps, gen, chk }) {
  const parts = [];
  if (mps) parts.push(`${mps.requested} bytes requested, ${mps.reached ?? "nothing"} reached`);
  for (const [name, control] of [["generation", gen], ["checking", chk]])
    if (control)
      parts.push(`ECRC ${name} ${onOff(control.requested)} requested, ${onOff(control.reached)} reached`);
  return parts.join("; ");
}

function requestsList() {
  return [
    requestsTable(),
    element("h3", {}, "Modules"),
    report.modules.length === 0 ? element("p", { class: "none" }, "No module was to be loaded.")
      : element("table", { class: "list" },
        element("thead", {}, tableRow("th", [...domainColumn(), "File", "Version", "Start"])),
        element("tbody", {}, report.modules.map((module) => tableRow("td", [
          ...domainColumn(module), element("code", {}, module.file), module.version ?? "–",
          module.result === 0 ? badge("reached", "runs")
            : badge("error", module.result === null ? "not started" : `returned ${module.result}`),
        ])))),
  ];
}

// Rows of several domains tell which one they are of.
function domainColumn(row = { domain: "Domain" }) {
  const several = topNodes.some((node) => node.title.startsWith("Domain"));
  return several ? [row.domain ?? "–"] : [];
}

function requestsTable() {
  if (report.requests.length === 0)
    return element("p", { class: "none" }, "No line of a feature file asks for anything.");
  return element("table", { class: "list" },
    element("thead", {},
      tableRow("th", [...domainColumn(), "File and line", "Request", "Status", "Functions", "Reason"])),
    element("tbody", {}, report.requests.map((request) => tableRow("td", [
      ...domainColumn(request),
      element("code", {}, request.line === null ? request.file : `${request.file}:${request.line}`),
      element("code", {}, [request.keyword, request.value].filter(Boolean).join("=")),
      badge(request.status, statusText(request)),
      request.selected === 0 ? "–" : `${request.reached} of ${request.selected}`,
      [request.reason === null ? "" : linked(request.reason), namedFunctions(request)],
    ]))));
}

function namedFunctions({ functions }) {
  if (functions.length === 0) return null;
  const details = element("details", {}, element("summary", {}, counted(functions.length, "function")));
  const fill = () => details.childElementCount === 1 && details.append(element("ul", { class: "plain" },
    functions.map((each) => element("li", {}, linked(each.bdf), `: ${requestedText(each)}`))));
  details.addEventListener("toggle", fill);
  return details;
}

function messagesList() {
  const { list, left_out } = report.messages;
  if (list.length === 0) return [element("p", { class: "none" }, "There was no message.")];
  const severities = ["error", "warning", "info", "debug"].filter((each) => report.messages[each] > 0);
  const shown = new Set(severities.filter((each) => each === "error" || each === "warning"));
  if (shown.size === 0) severities.forEach((each) => shown.add(each));
  const lines = element("ol", { class: "messages" });
  const fill = () => lines.replaceChildren(...list.filter((each) => shown.has(each.severity)).map(
    (each) => element("li", {}, badge(each.severity), " ", element("span", {}, linked(each.text)))));
  fill();
  const buttons = severities.map((severity) => toggleButton(
    `${severity} ${report.messages[severity]}`, shown.has(severity),
    (isOn) => { if (isOn) shown.add(severity); else shown.delete(severity); fill(); }));
  return [
    element("div", { class: "tools" }, element("div",
      { class: "buttons", role: "group", "aria-label": "Severities that are shown" }, buttons)),
    left_out > 0 ? element("p", {}, `${counted(left_out, "older message")} left out.`) : "", lines,
  ];
}
