// What is drawn, from left to right: root port, links, devices. The functions of one device share a
// node, as they share a link: devices of many functions stay small.
//
// Text of others stands only in labels that `dot` reads as XML: what XML does not allow is escaped.
// Besides, `dot` replaces "\N" and the like even there.
#include "host/report/report_dot.h"

#include <algorithm>
#include <initializer_list>
#include <map>
#include <ostream>
#include <string_view>

#include "host/base/columns.h"
#include "host/base/safe_text.h"
#include "host/base/words.h"
#include "host/report/report_text.h"

namespace host {
namespace {

constexpr std::size_t LONGEST_NAME = 46;  // characters that fit into a box

// One strong colour, for what has changed; the rest is calm.
constexpr const char *CHANGED_COLOR = "#b45309";
constexpr const char *CHANGED_FILL = "#fdeccf";
constexpr const char *LINE_COLOR = "#9aa7b5";
constexpr const char *NO_FILL = "transparent";

// The pieces of the text. Each % stands for a value.
constexpr const char *GRAPH_BEGIN = R"(digraph hoplar {
  rankdir=LR; ranksep=0.2; nodesep=0.12; ordering=out; pad=0.2; bgcolor=white;
  fontname="sans-serif"; fontsize=11; fontcolor="#1f2933";
  node [shape=plain, fontname="sans-serif", fontsize=10, fontcolor="#1f2933"];
  edge [fontname="sans-serif", fontsize=9, fontcolor="#52606d", color="#9aa7b5", arrowhead=none];
  labelloc=t; labeljust=l; label=<<FONT POINT-SIZE='10' COLOR='#52606d'>
    <TABLE BORDER='0' CELLSPACING='1' CELLPADDING='0'>
    <TR><TD ALIGN='LEFT'><FONT POINT-SIZE='14' COLOR='#1f2933'><B>%</B></FONT></TD></TR>
    <TR><TD ALIGN='LEFT'
      ><B>128→256</B> of 512: payload size before and after, and the largest supported</TD></TR>
    <TR><TD ALIGN='LEFT'><B>◂512</B>: limits the hierarchy</TD></TR>
    <TR><TD ALIGN='LEFT'
      >gen, chk: ECRC generation and checking; gen -: there is no such control</TD></TR>
    <TR><TD ALIGN='LEFT'
      >thick: changed; dotted: inside a switch; 128 | 256: the ends of a link differ</TD></TR>
    </TABLE></FONT>>;
)";
constexpr const char *GRAPH_END = "}\n";

// Around all hierarchies, because a label takes no place between them.
constexpr const char *MACHINE_BEGIN = R"(  subgraph "cluster machine" {
  peripheries=0; labelloc=b; labeljust=l; label=<%>;
  machine [style=invis, shape=point, width=0];
)";
// Unlike clusters, what edges lead to is drawn in their order.
constexpr const char *PLACE_IN_ORDER = "  machine -> \"%\" [style=invis, weight=0];\n";
constexpr const char *HIERARCHY_BEGIN = R"(  subgraph "cluster %" {
    label=<<B>Root port %</B>: %>; labelloc=t;
    peripheries=1; style="rounded,filled"; color="#d3dae1"; fillcolor="#f8fafb";
)";
constexpr const char *CLUSTER_END = "  }\n";

constexpr const char *NODE_BEGIN = R"(    "%" [label=<
      <TABLE BORDER='0' CELLBORDER='1' CELLSPACING='0' CELLPADDING='0' BGCOLOR='#ffffff'>
)";
constexpr const char *NODE_END = "      </TABLE>>];\n";

constexpr const char *FUNCTION_BOX =
    R"(      <TR><TD PORT='f%' BORDER='%' COLOR='%'>
        <TABLE BORDER='0' CELLSPACING='2' CELLPADDING='1'>
        <TR><TD COLSPAN='3' ALIGN='LEFT' BGCOLOR='%'><B>%</B> %</TD></TR>
        %<TR>%%%</TR>
        </TABLE></TD></TR>
)";
constexpr const char *NAME_LINE =
    "<TR><TD COLSPAN='3' ALIGN='LEFT'><FONT POINT-SIZE='9' COLOR='#52606d'>% </FONT></TD></TR>";
constexpr const char *PAYLOAD_CELL = "<TD WIDTH='108' ALIGN='LEFT' BGCOLOR='%'>% of %</TD>";
constexpr const char *NO_PAYLOAD_CELL = "<TD WIDTH='108' ALIGN='LEFT'>%</TD>";
constexpr const char *BADGE =
    "<TD WIDTH='66' BORDER='%' COLOR='%' BGCOLOR='%'><FONT COLOR='%'>% %</FONT></TD>";

constexpr const char *OTHERS_BEGIN = R"(<FONT POINT-SIZE='10'>
    <TABLE BORDER='1' COLOR='#d3dae1' BGCOLOR='#f8fafb' STYLE='ROUNDED'
      CELLBORDER='0' CELLSPACING='2'>
    <TR><TD COLSPAN='5' ALIGN='LEFT'
      ><FONT POINT-SIZE='11'><B>In no root port's hierarchy</B></FONT></TD></TR>
)";
constexpr const char *OTHERS_ROW = R"(    <TR>
      <TD ALIGN='LEFT' BGCOLOR='#eef1f4'>%</TD><TD ALIGN='LEFT' BALIGN='LEFT'>%</TD>
      %%%
    </TR>
)";
constexpr const char *OTHERS_END = "    </TABLE></FONT>";

constexpr const char *LINK = "    \"%\":f%:e -> \"%\":f%:w [%];\n";
// The empty line below the text keeps the link from crossing it.
constexpr const char *LINK_LABEL = "label=< % <BR/><FONT POINT-SIZE='6'> </FONT>>";
constexpr const char *CHANGED_LINK = ", fontcolor=\"%\", color=\"%\", penwidth=2.5";
constexpr const char *INSIDE_SWITCH = "style=dotted, color=\"#52606d\"";

std::string filled(std::string_view form, std::initializer_list<std::string> values) {
    std::string text;
    const std::string *value = values.begin();
    for (const char c : form)
        if (c == '%')
            text += *value++;
        else
            text += c;
    return text;
}

std::string escaped(std::string_view text) {
    // An invisible space keeps "\N" from being replaced.
    static const std::map<char, const char *> ESCAPES = {
        {'&', "&amp;"},  {'<', "&lt;"},   {'>', "&gt;"},
        {'"', "&quot;"}, {'\'', "&#39;"}, {'\\', "&#92;&#8203;"},
    };
    std::string safe;
    for (const char c : text)
        if (const auto escape = ESCAPES.find(c); escape != ESCAPES.end())
            safe += escape->second;
        else
            safe += c;
    return safe;
}

std::string bold_if(bool bold, const std::string &text) {
    return bold ? filled("<B>%</B>", {text}) : text;
}

std::string shown_name(const FunctionReport &row) {
    std::string name = safe_text(row.name);
    // lspci's text begins with the class, which would leave too little room for the device.
    if (const std::size_t class_end = name.find(": "); class_end != std::string::npos)
        name.erase(0, class_end + 2);
    if (display_width(name) > LONGEST_NAME)
        name = first_columns(name, LONGEST_NAME - 1) + "…";
    return escaped(name);
}

std::string type_and_state(const FunctionReport &row) {
    std::string text = type_text(row.function);
    if (!row.physical.empty())
        text += " of " + row.physical;
    if (!row.managed)
        text += ", not managed";
    if (row.gone())
        text += ", " + gone_text(row);
    return text;
}

const char *type_fill(const Function &function) {
    if (function.port_type == PORT_TYPE_ROOT_PORT)
        return "#d5e1ee";
    if (function.port_type == PORT_TYPE_SWITCH_UPSTREAM ||
        function.port_type == PORT_TYPE_SWITCH_DOWNSTREAM)
        return "#dbe8e6";
    return function.is_bridge() ? "#ebe6dc" : "#eef1f4";
}

bool payload_changed(const FunctionReport &row) {
    return row.before.mps && row.after.mps && row.before.mps->current != row.after.mps->current;
}

std::string payload_cell(const FunctionReport &row, bool limits) {
    if (!row.after.mps)
        return filled(NO_PAYLOAD_CELL, {row.gone() ? NOTHING_TEXT : "no payload size"});
    const bool changed = payload_changed(row);
    const std::string supported = size_text(row.after.mps->supported);
    return filled(PAYLOAD_CELL,
                  {changed ? CHANGED_FILL : NO_FILL, bold_if(changed, payload_text(row)),
                   limits ? bold_if(true, std::string("◂").append(supported)) : supported});
}

struct BadgeStyle {
    std::string_view text;  // what ecrc_text() gives
    const char *width;
    const char *border;
    const char *fill;
    const char *ink;
    bool bold;
};

// The last one is for whatever has no such control.
constexpr BadgeStyle BADGE_STYLES[] = {
    {"on", "1", "#7fb494", "#dcefe2", "#1f2933", false},
    {"off", "1", "#c9d1d9", NO_FILL, "#52606d", false},
    {"off→on", "2", CHANGED_COLOR, "#bfe3cb", "#1f2933", true},
    {"on→off", "2", CHANGED_COLOR, NO_FILL, "#1f2933", true},
    {NOTHING_TEXT, "0", NO_FILL, NO_FILL, "#7b8794", false},
};

std::string badge(const FunctionReport &row, const char *name, EcrcControl EcrcState::*control) {
    const std::string text = ecrc_text(row, control);
    const BadgeStyle &style =
        *std::find_if(std::begin(BADGE_STYLES), std::end(BADGE_STYLES) - 1,
                      [&](const BadgeStyle &candidate) { return candidate.text == text; });
    return filled(
        BADGE, {style.width, style.border, style.fill, style.ink, name, bold_if(style.bold, text)});
}

// `previous_name` is what the function before it in its device shows; the same is not shown again.
std::string function_box(const FunctionReport &row, std::size_t index, bool limits,
                         const std::string &previous_name) {
    const std::string name = shown_name(row);
    return filled(FUNCTION_BOX,
                  {std::to_string(index), row.changed() ? "2" : "1",
                   row.changed() ? CHANGED_COLOR : LINE_COLOR, type_fill(row.function), row.address,
                   type_and_state(row), name == previous_name ? "" : filled(NAME_LINE, {name}),
                   payload_cell(row, limits), badge(row, "gen", &EcrcState::gen),
                   badge(row, "chk", &EcrcState::chk)});
}

// Functions of one device follow each other, and have the same bridge above.
bool same_device(const FunctionReport &left, const FunctionReport &right) {
    if (left.bridge != right.bridge)
        return false;
    if (pci::is_ari(left.function.bdf) && pci::is_ari(right.function.bdf))
        return pci::bus_of(left.function.bdf) == pci::bus_of(right.function.bdf);
    return pci::function_0_of(left.function.id()) == pci::function_0_of(right.function.id());
}

// What std::views::reverse() does, which clang 14 cannot compile.
template <typename Item>
std::vector<Item> reversed(std::vector<Item> items) {
    std::ranges::reverse(items);
    return items;
}

using Indices = std::vector<std::size_t>;

class Graph {
public:
    explicit Graph(const Report &report)
        : report_(report), node_(report.functions.size()), devices_(report.functions.size()),
          limits_(report.functions.size()) {
        for (const HierarchyReport &hierarchy : report.hierarchies)
            mark_limits(hierarchy);
        for (std::size_t i = 0; i < report.functions.size(); ++i)
            sort_in(i);
    }

    // In descending order: what comes first is drawn lowest.
    void write(std::ostream &out) const {
        out << filled(GRAPH_BEGIN, {summary_text(report_)}) << filled(MACHINE_BEGIN, {others()});
        for (const HierarchyReport &hierarchy : reversed(report_.hierarchies))
            write_hierarchy(out, hierarchy);
        for (const HierarchyReport &hierarchy : reversed(report_.hierarchies))
            out << filled(PLACE_IN_ORDER, {row(hierarchy.root_port).address});
        out << CLUSTER_END << GRAPH_END;
    }

private:
    const FunctionReport &row(std::size_t index) const { return report_.functions[index]; }

    // A root port that supports no more itself rules alone.
    void mark_limits(const HierarchyReport &hierarchy) {
        for (const std::size_t limiter : hierarchy.limiters) {
            limits_[limiter] = true;
            if (limiter == hierarchy.root_port)
                return;
        }
    }

    // Into a device of its hierarchy, or to the others.
    void sort_in(std::size_t index) {
        std::size_t top = index;
        while (row(top).bridge)
            top = *row(top).bridge;
        if (!std::ranges::binary_search(report_.hierarchies, top, {},
                                        &HierarchyReport::root_port)) {
            others_.push_back(index);
            return;
        }
        std::vector<Indices> &devices = devices_[top];
        if (devices.empty() || !same_device(row(devices.back().front()), row(index)))
            devices.emplace_back();
        devices.back().push_back(index);
        node_[index] = devices.back().front();
    }

    void write_hierarchy(std::ostream &out, const HierarchyReport &hierarchy) const {
        const std::string &address = row(hierarchy.root_port).address;
        out << filled(HIERARCHY_BEGIN, {address, address, limit_text(report_, hierarchy)});
        for (const Indices &device : reversed(devices_[hierarchy.root_port])) {
            write_device(out, device);
            if (const auto &bridge = row(device.front()).bridge)
                write_link(out, *bridge, device);
        }
        out << CLUSTER_END;
    }

    void write_device(std::ostream &out, const Indices &device) const {
        out << filled(NODE_BEGIN, {row(device.front()).address});
        std::string previous_name;
        for (const std::size_t index : device) {
            out << function_box(row(index), index, limits_[index], previous_name);
            previous_name = shown_name(row(index));
        }
        out << NODE_END;
    }

    void write_link(std::ostream &out, std::size_t bridge, const Indices &device) const {
        const std::size_t first = device.front();
        out << filled(LINK, {row(node_[bridge]).address, std::to_string(bridge), row(first).address,
                             std::to_string(first), link_attributes(bridge, device)});
    }

    std::string link_attributes(std::size_t bridge, const Indices &device) const {
        const FunctionReport &above = row(bridge);
        const FunctionReport &below = row(device.front());
        if (above.function.port_type == PORT_TYPE_SWITCH_UPSTREAM &&
            below.function.port_type == PORT_TYPE_SWITCH_DOWNSTREAM)
            return INSIDE_SWITCH;
        if (!above.before.mps || !below.before.mps)
            return "style=dashed, " + filled(LINK_LABEL, {"PCI"});
        std::string attributes = filled(LINK_LABEL, {link_text(bridge, device)});
        if (changes(bridge, device))
            attributes += filled(CHANGED_LINK, {CHANGED_COLOR, CHANGED_COLOR});
        return attributes;
    }

    bool changes(std::size_t bridge, const Indices &device) const {
        const auto has_changed = [&](std::size_t index) { return payload_changed(row(index)); };
        return has_changed(bridge) || std::ranges::any_of(device, has_changed);
    }

    // What the ends of a link are set to: once where they agree.
    std::string link_text(std::size_t bridge, const Indices &device) const {
        std::vector<std::string> texts;
        for (const std::size_t index : device)
            if (const std::string text = payload_text(row(index)); !std::ranges::count(texts, text))
                texts.push_back(text);
        const std::string above = payload_text(row(bridge));
        const std::string below = join(texts, ", ");
        return above == below ? above : filled("% | %", {above, below});
    }

    // A row for those that are alike.
    std::string others() const {
        if (others_.empty())
            return "";
        std::map<std::vector<std::string>, Indices> alike;
        for (const std::size_t index : others_)
            alike[{type_and_state(row(index)), payload_cell(row(index), false),
                   badge(row(index), "gen", &EcrcState::gen),
                   badge(row(index), "chk", &EcrcState::chk)}]
                .push_back(index);
        std::string text = OTHERS_BEGIN;
        for (const auto &[cells, functions] : alike)
            text += filled(OTHERS_ROW, {cells[0], which(functions), cells[1], cells[2], cells[3]});
        return text + OTHERS_END;
    }

    // Addresses, or address and name of a single function.
    std::string which(const Indices &functions) const {
        constexpr std::size_t ADDRESSES_A_LINE = 6;
        if (functions.size() == 1)
            return row(functions[0]).address + " " + shown_name(row(functions[0])) + " ";
        std::string text;
        for (std::size_t i = 0; i < functions.size(); ++i) {
            if (i != 0)
                text += i % ADDRESSES_A_LINE == 0 ? ",<BR/>" : ", ";
            text += row(functions[i]).address;
        }
        return text;
    }

    const Report &report_;
    Indices node_;                               // of each function in a hierarchy
    std::vector<std::vector<Indices>> devices_;  // by root port
    Indices others_;                             // in no hierarchy
    std::vector<bool> limits_;  // of each function, whether it limits its hierarchy
};

}  // namespace

void write_dot(std::ostream &out, const Report &report) {
    Graph(report).write(out);
}

}  // namespace host
