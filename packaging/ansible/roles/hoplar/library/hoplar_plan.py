"""Asks hoplar what its configuration, or a candidate for it, would change on the machine."""

DOCUMENTATION = """
module: hoplar_plan
short_description: Tells what hoplar would change
description:
  - Runs C(hoplar --live), which writes nothing to the machine, in check mode too.
  - The difference between what is set and what would be set is shown with C(--diff).
options:
  candidate:
    description:
      - A folder with the files that are to replace those in C(/etc/hoplar), and in which this module
        may write. Where there is none, the plan is that of C(/etc/hoplar).
    type: path
  domain:
    description: The PCI domains, as C(hoplar --domain) takes them.
    type: str
    default: "0"
author: The hoplar developers
"""

EXAMPLES = """
- name: Ask what the configuration would change
  hoplar_plan:
  register: plan
"""

RETURN = """
changed:
  description: Whether the candidate differs from what is installed, and would change settings.
  type: bool
applied:
  description: Whether hoplar.service runs, and was started after its files have been written.
  type: bool
report:
  description: The JSON report, of which C(report.schema.json) says what is in it.
  type: dict
left:
  description: How many functions would be changed.
  type: int
complaints:
  description: The lines of feature files that are not reached, and the findings that are errors.
  type: list
  elements: str
"""

import filecmp
import json
import os

from ansible.module_utils.basic import AnsibleModule

INSTALLED = "/etc/hoplar"
READ_BY_SERVICE = (INSTALLED + "/features.cfg", INSTALLED + "/hoplar.cfg",
                   "/etc/systemd/system/hoplar.service.d/domain.conf")
# Lines for functions of other machines are absent in this one.
NO_COMPLAINT = ("reached", "replaced", "absent")


def write_plan_config(candidate):
    """The candidate reads the installed feature file: what the plan reads has the candidate's."""
    with open(os.path.join(candidate, "hoplar.cfg")) as config:
        text = config.read()
    plan = os.path.join(candidate, "plan.cfg")
    with open(plan, "w") as config:
        config.write(text.replace(INSTALLED + "/features.cfg", candidate + "/features.cfg"))
    return plan


def differs_from_installed(candidate):
    for name in ("features.cfg", "hoplar.cfg"):
        installed = os.path.join(INSTALLED, name)
        if not os.path.exists(installed) or not filecmp.cmp(
                os.path.join(candidate, name), installed, shallow=False):
            return True
    return False


def is_applied(module):
    _, output, _ = module.run_command(
        ["systemctl", "show", "--timestamp=unix", "--property=ActiveState,ActiveEnterTimestamp",
         "hoplar.service"], check_rc=True)
    unit = dict(line.split("=", 1) for line in output.splitlines())
    if unit["ActiveState"] != "active":
        return False
    started = int(unit["ActiveEnterTimestamp"].lstrip("@"))
    return all(int(os.path.getmtime(name)) <= started
               for name in READ_BY_SERVICE if os.path.exists(name))


def run_hoplar(module, config):
    command = ["/usr/bin/hoplar", "-q", "--live", "--complete", "--report", "json",
               "--domain", module.params["domain"], "-c", config]
    status, output, errors = module.run_command(command)
    if status != 0:
        module.fail_json(msg="hoplar cannot work with this configuration: " + errors.strip(),
                         rc=status, stderr=errors)
    return json.loads(output)


def settings(function, state):
    """Functions without a capability have null in its place."""
    yield "%s %s: %s" % (function["bdf"], function["type"], function["name"])
    if function["mps"]:
        yield "    payload %s" % (function["mps"][state] or "unknown")
    if function["ecrc"]:
        for control, name in (("gen", "generation"), ("chk", "checking")):
            yield "    ECRC %s %s" % (name, "on" if function["ecrc"][control][state] else "off")


def text_of(functions, state):
    return "".join(line + "\n" for function in functions for line in settings(function, state))


def difference(changed):
    return {
        "before_header": "settings of this machine",
        "after_header": "settings with this configuration",
        "before": text_of(changed, "before"),
        "after": text_of(changed, "after"),
    }


def complaints_of(report, folder):
    requests = ["%s:%s: %s=%s: %s" % (request["file"].replace(folder, INSTALLED), request["line"],
                                      request["keyword"], request["value"],
                                      request["reason"] or request["status"])
                for request in report["requests"] if request["status"] not in NO_COMPLAINT]
    return requests + ["error: " + finding["text"] for finding in report["findings"]["after"]
                       if finding["severity"] == "error"]


def main():
    module = AnsibleModule(
        argument_spec={"candidate": {"type": "path"}, "domain": {"type": "str", "default": "0"}},
        supports_check_mode=True)
    candidate = module.params["candidate"]
    config = write_plan_config(candidate) if candidate else os.path.join(INSTALLED, "hoplar.cfg")
    report = run_hoplar(module, config)
    changed = [function for function in report["functions"] if function["changed"]]
    module.exit_json(
        changed=bool(changed) and (candidate is None or differs_from_installed(candidate)),
        applied=is_applied(module), complaints=complaints_of(report, candidate or INSTALLED),
        diff=difference(changed), left=len(changed), report=report)


if __name__ == "__main__":
    main()
