// Names come from devices and files, and `dot` reads labels as XML, so characters with a meaning
// there are escaped. `dot` also replaces "\N" and the like in labels.
#include "host/report/dot_boxes.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <vector>

#include "host/base/columns.h"
#include "host/base/safe_text.h"
#include "host/base/words.h"
#include "host/report/dot_form.h"
#include "host/report/function_name.h"
#include "host/report/report_text.h"

namespace host {
namespace {

constexpr std::size_t BOX_WIDTH = 46;  // characters of a name that fit into a line of a box

constexpr const char *CHANGED_FILL = "#fdeccf";
constexpr const char *LINE_COLOR = "#9aa7b5";
constexpr const char *NO_FILL = "transparent";

constexpr DotForm<10> FUNCTION_BOX(R"(      <TR><TD PORT='f%' BORDER='%' COLOR='%'>
        <TABLE BORDER='0' CELLSPACING='2' CELLPADDING='1'>
        <TR><TD COLSPAN='3' ALIGN='LEFT' BGCOLOR='%'><B>%</B> %</TD></TR>
        %<TR>%%%</TR>
        </TABLE></TD></TR>
)");
constexpr DotForm<1>
    NAME_LINE("<TR><TD COLSPAN='3' ALIGN='LEFT' BALIGN='LEFT'\n"
              "          ><FONT POINT-SIZE='9' COLOR='#52606d'>% </FONT></TD></TR>");
constexpr const char *LINE_END = "<BR/>";
constexpr DotForm<3> PAYLOAD_CELL("<TD WIDTH='108' ALIGN='LEFT' BGCOLOR='%'>% of %</TD>");
constexpr DotForm<1> NO_PAYLOAD_CELL("<TD WIDTH='108' ALIGN='LEFT'>%</TD>");
constexpr DotForm<6>
    BADGE("<TD WIDTH='66' BORDER='%' COLOR='%' BGCOLOR='%'><FONT COLOR='%'>% %</FONT></TD>");
constexpr DotForm<1> BOLD("<B>%</B>");

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
    return bold ? BOLD.filled(text) : text;
}

const char *type_fill(const Function &function) {
    if (function.port_type == PORT_TYPE_ROOT_PORT)
        return "#d5e1ee";
    if (function.port_type == PORT_TYPE_SWITCH_UPSTREAM ||
        function.port_type == PORT_TYPE_SWITCH_DOWNSTREAM)
        return "#dbe8e6";
    return function.is_bridge() ? "#ebe6dc" : "#eef1f4";
}

struct BadgeStyle {
    std::string_view text;  // the result of ecrc_text() that it is for
    const char *width;
    const char *border;
    const char *fill;
    const char *ink;
    bool bold;
};

// The last style is for functions without the control.
constexpr BadgeStyle BADGE_STYLES[] = {
    {"on", "1", "#7fb494", "#dcefe2", "#1f2933", false},
    {"off", "1", "#c9d1d9", NO_FILL, "#52606d", false},
    {"off→on", "2", CHANGED_COLOR, "#bfe3cb", "#1f2933", true},
    {"on→off", "2", CHANGED_COLOR, NO_FILL, "#1f2933", true},
    {NOTHING_TEXT, "0", NO_FILL, NO_FILL, "#7b8794", false},
};

// Breaks a text between its words, and words that are too long anywhere.
std::string in_box_lines(std::string_view text) {
    std::vector<std::string> lines;
    const std::string all = wrapped(text, BOX_WIDTH);
    for (std::string_view rest : split(all, '\n'))
        while (!rest.empty()) {
            const std::string line = first_columns(rest, BOX_WIDTH);
            rest.remove_prefix(line.size());
            lines.push_back(escaped(line));
        }
    return join(lines, LINE_END);
}

// Returns the row with the name, of a function that has another one than that before it in its
// device; where they only differ in what lspci adds to names, with all of that.
std::string name_line(const FunctionReport &row, const FunctionReport *previous) {
    std::string name = shown_name(row);
    if (previous != nullptr && shown_name(*previous) == name)
        name = previous->name == row.name ? "" : in_box_lines(safe_text(row.name));
    return name.empty() ? "" : NAME_LINE.filled(name);
}

}  // namespace

std::string shown_name(const FunctionReport &row) {
    return in_box_lines(device_name(row));
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

bool payload_changed(const FunctionReport &row) {
    return row.before.mps && row.after.mps && row.before.mps->current != row.after.mps->current;
}

std::string payload_cell(const FunctionReport &row, bool limits) {
    if (!row.after.mps)
        return NO_PAYLOAD_CELL.filled(row.gone() ? NOTHING_TEXT : "no payload size");
    const bool changed = payload_changed(row);
    const std::string supported = size_text(row.after.mps->supported);
    return PAYLOAD_CELL.filled(
        changed ? CHANGED_FILL : NO_FILL, bold_if(changed, payload_text(row)),
        limits ? bold_if(true, std::string("◂").append(supported)) : supported);
}

std::string badge(const FunctionReport &row, const char *name, EcrcControl EcrcState::*control) {
    const std::string text = ecrc_text(row, control);
    const BadgeStyle &style =
        *std::find_if(std::begin(BADGE_STYLES), std::end(BADGE_STYLES) - 1,
                      [&](const BadgeStyle &candidate) { return candidate.text == text; });
    return BADGE.filled(style.width, style.border, style.fill, style.ink, name,
                        bold_if(style.bold, text));
}

std::string function_box(const FunctionReport &row, std::size_t index, bool limits,
                         const FunctionReport *previous) {
    return FUNCTION_BOX.filled(std::to_string(index), row.changed() ? "2" : "1",
                               row.changed() ? CHANGED_COLOR : LINE_COLOR, type_fill(row.function),
                               row.address, type_and_state(row), name_line(row, previous),
                               payload_cell(row, limits), badge(row, "gen", &EcrcState::gen),
                               badge(row, "chk", &EcrcState::chk));
}

}  // namespace host
