#include "host/cli/report_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "host/cli/text.h"

namespace host {
namespace {

constexpr const char *NONE = "-";
constexpr const char *BOLD = "\033[1m";
constexpr const char *PLAIN = "\033[0m";

enum Column : std::size_t { PLACE, TYPE, PAYLOAD, GEN, CHK, NAME, COLUMNS };

struct Line {
    bool changed = false;
    std::array<std::string, COLUMNS> cells{};
    std::string heading{};  // in place of cells
};

const char *pcie_type(std::uint8_t port_type) {
    switch (port_type) {
    case PORT_TYPE_ENDPOINT:
        return "endpoint";
    case PORT_TYPE_LEGACY_ENDPOINT:
        return "legacy endpoint";
    case PORT_TYPE_ROOT_PORT:
        return "root port";
    case PORT_TYPE_SWITCH_UPSTREAM:
        return "switch upstream";
    case PORT_TYPE_SWITCH_DOWNSTREAM:
        return "switch downstream";
    case PORT_TYPE_PCIE_TO_PCI:
        return "PCIe-PCI bridge";
    case PORT_TYPE_PCI_TO_PCIE:
        return "PCI-PCIe bridge";
    case PORT_TYPE_RCIEP:
        return "RCiEP";
    case PORT_TYPE_EVENT_COLLECTOR:
        return "event collector";
    default:
        return "PCIe, unknown";
    }
}

const char *type_cell(const Function &function) {
    constexpr std::uint32_t ANY_INTERFACE_MASK = 0xFFFF00;
    if (!function.answers)
        return "no answer";
    if (function.port_type)
        return pcie_type(*function.port_type);
    if (function.header_type == 2)
        return "CardBus bridge";
    if (function.is_bridge())
        return "PCI bridge";
    return (function.class_code & ANY_INTERFACE_MASK) == HOST_BRIDGE_CLASS ? "host bridge"
                                                                           : "PCI device";
}

std::string payload_cell(const FunctionReport &row) {
    if (row.removed())
        return "removed";
    if (!row.before.mps || !row.after.mps)
        return NONE;
    const auto bytes = [](std::optional<unsigned> size) {
        return size ? std::to_string(*size) : NONE;
    };
    std::string text = bytes(row.before.mps->current);
    if (row.after.mps->current != row.before.mps->current)
        text += "→" + bytes(row.after.mps->current);
    return text + " (" + bytes(row.after.mps->supported) + ")";
}

std::string ecrc_cell(const FunctionReport &row, EcrcControl EcrcState::*control) {
    if (!row.before.ecrc || !row.after.ecrc || !((*row.after.ecrc).*control).capable)
        return NONE;
    const bool before = ((*row.before.ecrc).*control).enabled;
    const bool after = ((*row.after.ecrc).*control).enabled;
    if (before != after)
        return before ? "on→off" : "off→on";
    return after ? "on" : "off";
}

std::string place_cell(const FunctionReport &row, const std::string &branch) {
    std::string text = branch + row.address;
    if (!row.function.is_bridge())
        return text;
    char buses[16];
    const unsigned secondary = row.function.secondary;
    const unsigned subordinate = row.function.subordinate;
    if (secondary == subordinate)
        std::snprintf(buses, sizeof buses, " [%02x]", secondary);
    else
        std::snprintf(buses, sizeof buses, " [%02x-%02x]", secondary, subordinate);
    return text + buses;
}

std::string name_cell(const FunctionReport &row) {
    constexpr std::size_t ANY_LENGTH = 4096;
    return (row.managed ? "" : "(not managed) ") + printable(row.name, ANY_LENGTH);
}

// What rules the payload size of the root port below the heading, and of all that is below it.
std::string heading_of(const Report &report, const HierarchyReport &hierarchy) {
    std::string text = "-- root port " + report.functions[hierarchy.root_port].address + ": ";
    if (!hierarchy.path_max)
        return text + "no payload size known";
    if (hierarchy.limited_by == hierarchy.root_port)
        return text + "payload up to " + std::to_string(*hierarchy.path_max);
    return text + "limited to " + std::to_string(*hierarchy.path_max) + " by " +
           report.functions[*hierarchy.limited_by].address;
}

// The functions depth first, with the branches that lead to each, under their hierarchies'
// headings.
class Tree {
public:
    explicit Tree(const Report &report)
        : report_(report), below_(report.functions.size() + 1), headings_(report.functions.size()) {
        for (const HierarchyReport &hierarchy : report.hierarchies)
            headings_[hierarchy.root_port] = heading_of(report, hierarchy);
        for (std::size_t i = 0; i < report.functions.size(); ++i)
            below_[report.functions[i].bridge.value_or(roots())].push_back(i);
    }

    std::vector<Line> lines() {
        for (const std::size_t root : below_[roots()])
            add(root, "", "");
        return std::move(lines_);
    }

private:
    std::size_t roots() const { return report_.functions.size(); }

    // `branch` leads to the function itself, `trunk` stands in front of all that is below it.
    void add(std::size_t index, const std::string &branch, const std::string &trunk) {
        const FunctionReport &row = report_.functions[index];
        if (!headings_[index].empty())
            lines_.push_back({.heading = headings_[index]});
        lines_.push_back({.changed = row.changed(),
                          .cells = {place_cell(row, branch), type_cell(row.function),
                                    payload_cell(row), ecrc_cell(row, &EcrcState::gen),
                                    ecrc_cell(row, &EcrcState::chk), name_cell(row)}});
        const std::vector<std::size_t> &below = below_[index];
        for (const std::size_t child : below) {
            const bool last = child == below.back();
            add(child, trunk + (last ? "└─" : "├─"), trunk + (last ? "  " : "│ "));
        }
    }

    const Report &report_;
    std::vector<std::vector<std::size_t>> below_;  // by bridge; the last are those on root buses
    std::vector<std::string> headings_;            // by root port
    std::vector<Line> lines_;
};

using Widths = std::array<std::size_t, COLUMNS>;

Widths column_widths(const std::vector<Line> &lines) {
    Widths widths{};
    for (const Line &line : lines)
        for (std::size_t column = 0; column < COLUMNS; ++column)
            widths[column] = std::max(widths[column], display_width(line.cells[column]));
    return widths;
}

std::string line_text(const Line &line, const Widths &widths) {
    if (!line.heading.empty())
        return line.heading;
    std::string text = line.changed ? "* " : "  ";
    for (std::size_t column = 0; column < COLUMNS; ++column) {
        text += line.cells[column];
        if (column != NAME)
            text.append(widths[column] - display_width(line.cells[column]) + 2, ' ');
    }
    return text.erase(text.find_last_not_of(' ') + 1);
}

void write_line(std::ostream &out, const std::string &text, bool changed, TableStyle style) {
    const std::string shown = style.width == 0 ? text : first_columns(text, style.width);
    if (changed && style.emphasis)
        out << BOLD << shown << PLAIN << '\n';
    else
        out << shown << '\n';
}

std::string summary(const Report &report) {
    const auto count = [&](auto &&is_counted) {
        return std::ranges::count_if(report.functions, is_counted);
    };
    std::string text = std::to_string(report.functions.size()) +
                       (report.functions.size() == 1 ? " function, " : " functions, ") +
                       std::to_string(count(&FunctionReport::changed)) + " changed";
    const auto add = [&](auto number, const char *what) {
        if (number != 0)
            text += ", " + std::to_string(number) + what;
    };
    add(count(&FunctionReport::removed), " removed");
    add(count([](const FunctionReport &row) { return !row.managed; }), " not managed");
    add(count([](const FunctionReport &row) { return !row.function.answers; }), " without answer");
    return text;
}

bool environment_wants_no_color() {
    const char *const no_color = std::getenv("NO_COLOR");
    return no_color != nullptr && *no_color != '\0';
}

}  // namespace

TableStyle standard_output_style() {
    if (isatty(STDOUT_FILENO) == 0)
        return {};
    winsize size{};
    static_cast<void>(ioctl(STDOUT_FILENO, TIOCGWINSZ, &size));
    return {.emphasis = !environment_wants_no_color(), .width = size.ws_col};
}

void write_table(std::ostream &out, const Report &report, TableStyle style) {
    std::vector<Line> lines = Tree(report).lines();
    lines.insert(lines.begin(),
                 {.changed = false,
                  .cells = {"FUNCTION", "TYPE", "PAYLOAD", "ECRC GEN", "ECRC CHK", "NAME"}});
    const Widths widths = column_widths(lines);
    for (const Line &line : lines)
        write_line(out, line_text(line, widths), line.changed, style);
    out << '\n' << summary(report) << '\n';
}

}  // namespace host
