// The panel beside the tree: all that is known of the chosen function.

const PORT_TYPES_REGISTER = "PCI Express Capabilities";
const AER_CONTROL_REGISTER = "Advanced Error Capabilities and Control";

function showPanel(node) {
  const panel = document.getElementById("panel");
  panel.replaceChildren(closingButton(), element("h3", {}, node.title));
  if (node.fn === null)
    panel.append(element("p", {}, otherText(node)));
  else
    panel.append(...describe(node).filter((part) => part !== null));
  panel.scrollTop = 0;
  document.body.classList.add("has-chosen");
}

// Where there is no room beside the tree, the panel covers a part of it.
function closingButton() {
  return element("button", {
    type: "button", class: "close", "aria-label": "Close",
    click: () => { document.body.classList.remove("has-chosen"); view.chosen?.row.focus(); },
  }, "✕");
}

function describe(node) {
  const { fn } = node;
  return [
    element("p", { class: "name" }, fn.name ?? "no name known"),
    element("p", { class: "facts" }, factsOf(fn).map((fact, index) => [index > 0 ? " · " : "", fact])),
    findingsPart(fn), limitPart(node), registersPart(fn), requestsPart(fn),
  ];
}

function factsOf(fn) {
  return [
    fn.type,
    fn.driver && `driver ${fn.driver}`,
    fn.ari && "ARI",
    fn.physical_function && ["virtual function of ", linked(fn.physical_function)],
    !fn.managed && "not managed",
    fn.gone && `${fn.gone} at the end`,
    !fn.changed && "not changed",
    fn.domain !== "0000" && `domain ${fn.domain}`,
  ].filter(Boolean);
}

function part(heading, ...children) {
  return element("section", {}, element("h4", {}, heading), ...children);
}

function findingsPart(fn) {
  const now = findingsOf.get(fn.bdf) ?? [];
  const mended = mendedFindings.filter((finding) => finding.function === fn.bdf);
  if (now.length + mended.length === 0) return null;
  return part("Findings", element("ul", { class: "plain" },
    now.map((each) => element("li", {}, badge(each.severity), " ", linked(each.text))),
    mended.map((each) => element("li", {}, badge("mended", "no more"), " ", linked(each.text)))));
}

// The payload sizes of all ports above the function, and what the hierarchy as a whole supports.
function limitPart(node) {
  const path = pathTo(node).filter((each) => nodes.has(each.title));
  const hierarchy = hierarchyOf.get(node.fn.root_port);
  if (!hierarchy || node.fn.root_port === null) return null;
  return part("Payload size on its path",
    element("p", {}, "Hierarchy of ", linked(hierarchy.root_port), ": ", linked(hierarchy.text), "."),
    element("table", {},
      element("thead", {}, tableRow("th", ["Function", "Supported", "Before", "After"])),
      element("tbody", {}, path.map((each) => element("tr", {},
        element("th", { scope: "row" }, linked(each.title), limits(each)),
        each.fn?.mps
          ? [each.fn.mps.supported, each.fn.mps.before, each.fn.mps.after]
            .map((bytes) => element("td", {}, size(bytes)))
          : element("td", { colspan: 3 }, "–"))))),
    otherLimiters(hierarchy, path));
}

function limits(node) {
  return limiters.has(node.title) ? element("span", { class: "limits" }, " ◂ limits") : null;
}

function otherLimiters(hierarchy, path) {
  const MOST = 8;
  const others = hierarchy.possible === null
    ? [] : hierarchy.limiters.filter((each) => path.every((node) => node.title !== each));
  if (others.length === 0) return null;
  const more = others.length > MOST ? ` and ${others.length - MOST} more` : "";
  return element("p", {}, "Elsewhere in the hierarchy, limiting: ",
    others.slice(0, MOST).map((each, index) => [index > 0 ? ", " : "", linked(each)]), more, ".");
}

// A register's rows are its fields, each with its value before and after; once where no module
// changes it.
function registersPart(fn) {
  const registers = [...payloadRegisters(fn), ...ecrcRegisters(fn), ...headerRegisters(fn)];
  return part("Registers", element("table", { class: "registers" },
    element("thead", {}, tableRow("th", ["Field", "Before", "After"])),
    registers.map(([register, fields]) => element("tbody", {},
      element("tr", {}, element("th", { colspan: 3, scope: "rowgroup" }, register)),
      fields.filter(([, value]) => value !== null).map(fieldRow)))));
}

function fieldRow([field, before, after]) {
  const name = element("th", { scope: "row" }, field);
  if (after === undefined) return element("tr", {}, name, element("td", { colspan: 2 }, before));
  const isSame = String(before?.textContent ?? before) === String(after?.textContent ?? after);
  return element("tr", { class: isSame ? null : "changed" }, name,
    element("td", {}, before), element("td", {}, after));
}

function payloadRegisters({ port_type, type, mps }) {
  return [
    port_type === null ? null
      : [PORT_TYPES_REGISTER, [["Device/Port Type", `${port_type} (${type})`]]],
    mps && ["Device Capabilities", [["Max_Payload_Size Supported", [size(mps.supported), " bytes"]]]],
    mps && ["Device Control", [["Max_Payload_Size", size(mps.before),
      mps.completed ? element("span", {}, size(mps.after), " by --complete") : size(mps.after)]]],
  ].filter(Boolean);
}

function ecrcRegisters({ ecrc, ecrc_unknown }) {
  if (ecrc_unknown) return [[AER_CONTROL_REGISTER, [["ECRC", "not known: it cannot be read here"]]]];
  if (ecrc === null) return [];
  const fields = (control, name, enable) => [
    [`ECRC ${name} Capable`, control.capable ? "yes" : "no"],
    control.capable
      ? [`ECRC ${enable} Enable`, onOff(control.before), onOff(control.after)] : ["", null],
  ];
  return [[AER_CONTROL_REGISTER,
    [...fields(ecrc.gen, "Generation", "Generation"), ...fields(ecrc.chk, "Check", "Check")]]];
}

function headerRegisters(fn) {
  return [["Header", [
    ["Vendor ID", fn.vendor], ["Device ID", fn.device], ["Class Code", fn.class],
    ["Secondary Bus Number", fn.secondary], ["Subordinate Bus Number", fn.subordinate],
  ]]];
}

function requestsPart(fn) {
  const asked = report.requests.flatMap((request) =>
    request.functions.filter((each) => each.bdf === fn.bdf).map((each) => [request, each]));
  if (asked.length === 0) return null;
  return part("Requests that name it", element("ul", { class: "plain" },
    asked.map(([request, each]) => element("li", {},
      badge(request.status, statusText(request)), " ",
      element("code", {}, `${request.keyword}=${request.value}`), ` line ${request.line}: `,
      requestedText(each)))));
}
