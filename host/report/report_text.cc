#include "host/report/report_text.h"

#include <algorithm>

#include "host/base/words.h"

namespace host {
namespace {

struct TypeTexts {
    const char *whole;
    const char *narrow;
};

TypeTexts pcie_type(std::uint8_t port_type) {
    switch (port_type) {
    case PORT_TYPE_ENDPOINT:
        return {"endpoint", "EP"};
    case PORT_TYPE_LEGACY_ENDPOINT:
        return {"legacy endpoint", "legacy"};
    case PORT_TYPE_ROOT_PORT:
        return {"root port", "RP"};
    case PORT_TYPE_SWITCH_UPSTREAM:
        return {"switch upstream", "USP"};
    case PORT_TYPE_SWITCH_DOWNSTREAM:
        return {"switch downstream", "DSP"};
    case PORT_TYPE_PCIE_TO_PCI:
        return {"PCIe-PCI bridge", "to PCI"};
    case PORT_TYPE_PCI_TO_PCIE:
        return {"PCI-PCIe bridge", "to PCIe"};
    case PORT_TYPE_RCIEP:
        return {"RCiEP", "RCiEP"};
    case PORT_TYPE_EVENT_COLLECTOR:
        return {"event collector", "RCEC"};
    default:
        return {"PCIe, unknown", "PCIe ?"};
    }
}

TypeTexts type_texts(const Function &function) {
    constexpr std::uint32_t ANY_INTERFACE_MASK = 0xFFFF00;
    if (function.physical)
        return {"virtual function", "VF"};
    if (!function.answers)
        return {"no answer", "none"};
    if (function.port_type)
        return pcie_type(*function.port_type);
    if (function.header_type == 2)
        return {"CardBus bridge", "CardBus"};
    if (function.is_bridge())
        return {"PCI bridge", "bridge"};
    if ((function.class_code & ANY_INTERFACE_MASK) == HOST_BRIDGE_CLASS)
        return {"host bridge", "host"};
    return {"PCI device", "PCI"};
}

// Returns "07:00.0", "07:00.0 (and 08:00.0)" or "07:00.0 (and 5 more)".
std::string limiters_text(const Report &report, const HierarchyReport &hierarchy) {
    const std::vector<std::size_t> &devices = hierarchy.limiting_devices;
    const auto name = [&](std::size_t i) {
        return devices[i] == hierarchy.root_port ? "itself" : report.functions[devices[i]].address;
    };
    if (devices.size() == 1)
        return name(0);
    return name(0) + " (and " +
           (devices.size() == 2 ? name(1) : std::to_string(devices.size() - 1) + " more") + ")";
}

std::string supported_text(const Report &report, const HierarchyReport &hierarchy) {
    if (!hierarchy.path_max)
        return "no payload size known";
    const std::string size = std::to_string(*hierarchy.path_max);
    if (!hierarchy.possible)
        return "payload up to " + size;
    return "limited to " + size + " by " + limiters_text(report, hierarchy) + "; " +
           without_text(hierarchy);
}

}  // namespace

const char *type_text(const Function &function) {
    return type_texts(function).whole;
}

const char *narrow_type_text(const Function &function) {
    return type_texts(function).narrow;
}

std::string gone_text(const FunctionReport &row) {
    if (!row.gone())
        return "";
    return row.removed ? "removed" : "no answer";
}

std::string size_text(std::optional<unsigned> size) {
    return size ? std::to_string(*size) : NOTHING_TEXT;
}

std::string payload_text(const FunctionReport &row) {
    if (!row.before.mps || !row.after.mps)
        return NOTHING_TEXT;
    const std::string before = size_text(row.before.mps->current);
    const std::string after = size_text(row.after.mps->current);
    return before == after ? after : before + (row.completed ? "⇒" : "→") + after;
}

std::string ecrc_text(const FunctionReport &row, EcrcControl EcrcState::*control) {
    if (row.after.ecrc_unknown)
        return "?";
    if (!row.before.ecrc || !row.after.ecrc || !((*row.after.ecrc).*control).capable)
        return NOTHING_TEXT;
    const bool before = ((*row.before.ecrc).*control).enabled;
    const bool after = ((*row.after.ecrc).*control).enabled;
    if (before != after)
        return before ? "on→off" : "off→on";
    return after ? "on" : "off";
}

std::string limit_text(const Report &report, const HierarchyReport &hierarchy) {
    const std::string reason = left_alone_text(report, hierarchy);
    return supported_text(report, hierarchy) + (reason.empty() ? "" : "; left alone: " + reason);
}

std::string left_alone_text(const Report &report, const HierarchyReport &hierarchy) {
    const auto found = report.left_alone.find(report.functions[hierarchy.root_port].function.id());
    return found == report.left_alone.end() ? "" : found->second;
}

std::string changes_text(ChangeCounts counts) {
    return "ECRC on " + functions_text(counts.ecrc) + ", the payload size on " +
           functions_text(counts.mps);
}

std::string messages_text(const Report &report) {
    return counted_text(report.messages.counts.error, "error") +
           counted_text(report.messages.counts.warning, "warning");
}

std::string counted_text(std::uint64_t count, const char *what) {
    return count == 0 ? "" : ", " + std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string summary_text(const Report &report) {
    const auto count = [&](auto &&is_counted) {
        return std::ranges::count_if(report.functions, is_counted);
    };
    std::string text = functions_text(report.functions.size());
    if (report.narrowed)
        text = std::to_string(count(&FunctionReport::shown)) + " of " + text +
               " shown; whole machine: " + text;
    text += ", " + std::to_string(count(&FunctionReport::changed)) + " changed";
    const auto add = [&](auto number, const char *what) {
        if (number != 0)
            text += ", " + std::to_string(number) + what;
    };
    add(count(&FunctionReport::completed), " by --complete (⇒)");
    add(count(&FunctionReport::removed), " removed");
    add(count([](const FunctionReport &row) { return !row.managed; }), " not managed");
    add(count([](const FunctionReport &row) { return row.function.physical.has_value(); }),
        " virtual");
    add(count(&FunctionReport::is_silent), " without answer");
    return text;
}

}  // namespace host
