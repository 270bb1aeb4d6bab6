// The picture shows, from left to right, root port, links and devices. The functions of one device
// share a node, as they share a link, so that devices of many functions stay small.
#include "host/report/report_dot.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <vector>

#include "host/base/address.h"
#include "host/base/words.h"
#include "host/report/dot_boxes.h"
#include "host/report/dot_form.h"
#include "host/report/report_text.h"

namespace host {
namespace {

// The forms of the graph, in the order in which they are written.
constexpr DotForm<1> GRAPH_BEGIN(R"(digraph hoplar {
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
)");
constexpr const char *GRAPH_END = "}\n";

// A cluster around all hierarchies, because a label takes no place between them.
constexpr DotForm<3> MACHINE_BEGIN(R"(  subgraph "cluster %" {
  peripheries=0; labelloc=b; labeljust=l; label=<%>;
  "%" [style=invis, shape=point, width=0];
)");
// Clusters are drawn in any order, but nodes are drawn in the order of the edges that lead to them.
constexpr DotForm<2> PLACE_IN_ORDER("  \"%\" -> \"%\" [style=invis, weight=0];\n");
constexpr DotForm<3> HIERARCHY_BEGIN(R"(  subgraph "cluster %" {
    label=<<B>Root port %</B>: %>; labelloc=t;
    peripheries=1; style="rounded,filled"; color="#d3dae1"; fillcolor="#f8fafb";
)");
constexpr const char *CLUSTER_END = "  }\n";

constexpr DotForm<1> NODE_BEGIN(R"(    "%" [label=<
      <TABLE BORDER='0' CELLBORDER='1' CELLSPACING='0' CELLPADDING='0' BGCOLOR='#ffffff'>
)");
constexpr const char *NODE_END = "      </TABLE>>];\n";

constexpr const char *OTHERS_BEGIN = R"(<FONT POINT-SIZE='10'>
    <TABLE BORDER='1' COLOR='#d3dae1' BGCOLOR='#f8fafb' STYLE='ROUNDED'
      CELLBORDER='0' CELLSPACING='2'>
    <TR><TD COLSPAN='5' ALIGN='LEFT'
      ><FONT POINT-SIZE='11'><B>In no root port's hierarchy</B></FONT></TD></TR>
)";
constexpr DotForm<5> OTHERS_ROW(R"(    <TR>
      <TD ALIGN='LEFT' BGCOLOR='#eef1f4'>%</TD><TD ALIGN='LEFT' BALIGN='LEFT'>%</TD>
      %%%
    </TR>
)");
constexpr const char *OTHERS_END = "    </TABLE></FONT>";

constexpr DotForm<5> LINK("    \"%\":f%:e -> \"%\":f%:w [%];\n");
// The empty line below the text keeps the link from crossing it.
constexpr DotForm<1> LINK_LABEL("label=< % <BR/><FONT POINT-SIZE='6'> </FONT>>");
constexpr DotForm<2> CHANGED_LINK(", fontcolor=\"%\", color=\"%\", penwidth=2.5");
constexpr DotForm<2> TWO_ENDS("% | %");
constexpr const char *INSIDE_SWITCH = "style=dotted, color=\"#52606d\"";

// Functions of one device follow each other and have the same upstream bridge.
bool same_device(const FunctionReport &left, const FunctionReport &right) {
    if (left.bridge != right.bridge)
        return false;
    if (pci::is_ari(left.function.bdf) && pci::is_ari(right.function.bdf))
        return pci::bus_of(left.function.bdf) == pci::bus_of(right.function.bdf);
    return pci::function_0_of(left.function.id()) == pci::function_0_of(right.function.id());
}

// Does the work of std::views::reverse(), which clang 14 cannot compile.
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
            if (row(i).shown)
                sort_in(i);
    }

    // Writes in descending order, because `dot` draws the first node lowest.
    void write(std::ostream &out) const {
        const std::string machine = "machine " + domain_text(report_.domain);
        out << MACHINE_BEGIN.filled(machine, others(), machine);
        for (const HierarchyReport &hierarchy : reversed(report_.hierarchies))
            if (row(hierarchy.root_port).shown)
                write_hierarchy(out, hierarchy);
        for (const HierarchyReport &hierarchy : reversed(report_.hierarchies))
            if (row(hierarchy.root_port).shown)
                out << PLACE_IN_ORDER.filled(machine, row(hierarchy.root_port).address);
        out << CLUSTER_END;
    }

private:
    const FunctionReport &row(std::size_t index) const { return report_.functions[index]; }

    // Where nothing in the hierarchy supports more, the root port alone is marked.
    void mark_limits(const HierarchyReport &hierarchy) {
        if (!hierarchy.possible && hierarchy.path_max)
            limits_[hierarchy.root_port] = true;
        else
            for (const std::size_t limiter : hierarchy.limiters)
                limits_[limiter] = true;
    }

    // Adds a function to a device of its hierarchy, or to the others.
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
        out << HIERARCHY_BEGIN.filled(address, address, limit_text(report_, hierarchy));
        for (const Indices &device : reversed(devices_[hierarchy.root_port])) {
            write_device(out, device);
            if (const auto &bridge = row(device.front()).bridge)
                write_link(out, *bridge, device);
        }
        out << CLUSTER_END;
    }

    void write_device(std::ostream &out, const Indices &device) const {
        out << NODE_BEGIN.filled(row(device.front()).address);
        const FunctionReport *previous = nullptr;
        for (const std::size_t index : device) {
            out << function_box(row(index), index, limits_[index], previous);
            previous = &row(index);
        }
        out << NODE_END;
    }

    void write_link(std::ostream &out, std::size_t bridge, const Indices &device) const {
        const std::size_t first = device.front();
        out << LINK.filled(row(node_[bridge]).address, std::to_string(bridge), row(first).address,
                           std::to_string(first), link_attributes(bridge, device));
    }

    std::string link_attributes(std::size_t bridge, const Indices &device) const {
        const FunctionReport &above = row(bridge);
        const FunctionReport &below = row(device.front());
        if (above.function.port_type == PORT_TYPE_SWITCH_UPSTREAM &&
            below.function.port_type == PORT_TYPE_SWITCH_DOWNSTREAM)
            return INSIDE_SWITCH;
        if (!above.before.mps || !below.before.mps)
            return "style=dashed, " + LINK_LABEL.filled("PCI");
        std::string attributes = LINK_LABEL.filled(link_text(bridge, device));
        if (changes(bridge, device))
            attributes += CHANGED_LINK.filled(CHANGED_COLOR, CHANGED_COLOR);
        return attributes;
    }

    bool changes(std::size_t bridge, const Indices &device) const {
        const auto has_changed = [&](std::size_t index) { return payload_changed(row(index)); };
        return has_changed(bridge) || std::ranges::any_of(device, has_changed);
    }

    // Returns the payload sizes of the ends of a link, once where they agree.
    std::string link_text(std::size_t bridge, const Indices &device) const {
        std::vector<std::string> texts;
        for (const std::size_t index : device)
            if (const std::string text = payload_text(row(index)); !std::ranges::count(texts, text))
                texts.push_back(text);
        const std::string above = payload_text(row(bridge));
        const std::string below = join(texts, ", ");
        return above == below ? above : TWO_ENDS.filled(above, below);
    }

    // Returns the table of functions in no hierarchy, a row for those that are alike.
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
            text += OTHERS_ROW.filled(cells[0], which(functions), cells[1], cells[2], cells[3]);
        return text + OTHERS_END;
    }

    // Returns the addresses, or address and name of a single function.
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
    std::vector<bool> limits_;                   // by function: true where it limits its hierarchy
};

}  // namespace

void write_dot(std::ostream &out, const Report &report) {
    out << GRAPH_BEGIN.filled(summary_text(report));
    Graph(report).write(out);
    out << GRAPH_END;
}

void write_dot_part(std::ostream &out, const Report &report) {
    out << summary_text(report) << '\n';
    Graph(report).write(out);
}

void write_dot_graph(std::ostream &out, const std::string &title, const std::string &clusters) {
    out << GRAPH_BEGIN.filled(title) << clusters << GRAPH_END;
}

}  // namespace host
