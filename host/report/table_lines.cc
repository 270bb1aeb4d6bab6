#include "host/report/table_lines.h"

#include <algorithm>

#include "host/base/address.h"
#include "host/base/columns.h"
#include "host/report/function_name.h"
#include "host/report/report_text.h"

namespace host {
namespace {

constexpr std::size_t LEAST_NAME = 30;  // columns for names that ask for no narrow form
constexpr std::size_t MARK = 2, GAP = 2;

struct Form {
    std::array<const char *, COLUMNS> headings;
    const char *(*type)(const Function &);
    bool buses;  // behind the addresses of bridges
};
constexpr Form WIDE{{"FUNCTION", "TYPE", "PAYLOAD", "ECRC GEN", "ECRC CHK"}, type_text, true};
constexpr Form NARROW{{"FUNCTION", "TYPE", "PAYLOAD", "GEN", "CHK"}, narrow_type_text, false};

std::string payload_cell(const FunctionReport &row) {
    if (row.gone())
        return gone_text(row);
    if (!row.before.mps || !row.after.mps)
        return NOTHING_TEXT;
    return payload_text(row) + " (" + size_text(row.after.mps->supported) + ")";
}

// Returns " [02]" or " [02-0f]" for bridges.
std::string buses_text(const Function &function) {
    if (!function.is_bridge())
        return "";
    const std::string secondary = bus_text(function.secondary);
    const std::string subordinate = bus_text(function.subordinate);
    return " [" + secondary + (secondary == subordinate ? "" : "-" + subordinate) + "]";
}

class Tree {
public:
    Tree(const Report &report, const Form &form)
        : report_(report), form_(form), below_(report.functions.size() + 1),
          headings_(report.functions.size()) {
        for (const HierarchyReport &hierarchy : report.hierarchies)
            headings_[hierarchy.root_port] = &hierarchy;
        for (std::size_t i = 0; i < report.functions.size(); ++i)
            if (report.functions[i].shown)
                below_[report.functions[i].bridge.value_or(roots())].push_back(i);
    }

    // Returns nothing when no function is shown.
    std::vector<TableLine> lines() {
        if (below_[roots()].empty())
            return {};
        TableLine &columns = lines_.emplace_back();
        std::ranges::copy(form_.headings, columns.cells.begin());
        columns.heading = "NAME";
        for (const std::size_t root : below_[roots()])
            add(root, "", "");
        return std::move(lines_);
    }

private:
    std::size_t roots() const { return report_.functions.size(); }

    // `branch` leads to the function itself; `trunk` precedes everything below it.
    void add(std::size_t index, const std::string &branch, const std::string &trunk) {
        const FunctionReport &row = report_.functions[index];
        if (const HierarchyReport *const hierarchy = headings_[index])
            lines_.emplace_back().heading =
                "-- root port " + row.address + ": " + limit_text(report_, *hierarchy);
        lines_.push_back(
            {.row = &row,
             .cells = {branch + row.address + (form_.buses ? buses_text(row.function) : ""),
                       form_.type(row.function), payload_cell(row), ecrc_text(row, &EcrcState::gen),
                       ecrc_text(row, &EcrcState::chk)}});
        const std::vector<std::size_t> &below = below_[index];
        for (const std::size_t child : below) {
            const bool last = child == below.back();
            add(child, trunk + (last ? "└─" : "├─"), trunk + (last ? "  " : "│ "));
        }
    }

    const Report &report_;
    const Form &form_;
    std::vector<std::vector<std::size_t>> below_;    // by bridge; the last are those on root buses
    std::vector<const HierarchyReport *> headings_;  // by root port
    std::vector<TableLine> lines_;
};

TableLines laid_out(const Report &report, const Form &form, std::size_t width) {
    TableLines table{.lines = Tree(report, form).lines()};
    std::size_t used = MARK;
    for (std::size_t column = 0; column < COLUMNS; ++column) {
        for (const TableLine &line : table.lines)
            table.widths[column] =
                std::max(table.widths[column], display_width(line.cells[column]));
        used += table.widths[column] + GAP;
    }
    if (width != 0)
        table.name_width = width > used ? width - used : 1;
    return table;
}

std::string name_cell(const TableLine &line, std::size_t width) {
    if (line.row == nullptr)
        return line.heading;
    const FunctionReport &row = *line.row;
    const std::string state = (row.physical.empty() ? "" : "(of " + row.physical + ") ") +
                              std::string(row.managed ? "" : "(not managed) ");
    if (width == 0)
        return state + name_text(row);
    return state + fitted_name(row, width - std::min(width - 1, display_width(state)));
}

}  // namespace

TableLines table_lines(const Report &report, std::size_t width) {
    TableLines table = laid_out(report, WIDE, width);
    if (width != 0 && table.name_width < LEAST_NAME)
        table = laid_out(report, NARROW, width);
    return table;
}

std::string line_text(const TableLines &table, const TableLine &line) {
    if (line.cells[PLACE].empty())
        return line.heading;
    std::string text = line.row != nullptr && line.row->changed() ? "* " : "  ";
    for (std::size_t column = 0; column < COLUMNS; ++column) {
        text += line.cells[column];
        text.append(table.widths[column] - display_width(line.cells[column]) + GAP, ' ');
    }
    text += name_cell(line, table.name_width);
    return text.erase(text.find_last_not_of(' ') + 1);
}

}  // namespace host
