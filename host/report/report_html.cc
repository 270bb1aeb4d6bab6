#include "host/report/report_html.h"

#include <ostream>

#include "host/report/report_json.h"

// page.S has the page between its two symbols; one word in it stands for the report.
extern "C" {
extern const char hoplar_page_begin[];
extern const char hoplar_page_end[];
}

namespace host {
namespace {

// No "<" is left, so that no name can end the element that holds the report or begin a comment in
// it. JSON has these characters in strings alone.
void write_embedded(std::ostream &out, std::string_view json) {
    for (const char c : json)
        switch (c) {
        case '<':
            out << "\\u003c";
            break;
        case '>':
            out << "\\u003e";
            break;
        case '&':
            out << "\\u0026";
            break;
        default:
            out << c;
        }
}

}  // namespace

void write_html(std::ostream &out, const Report &report) {
    write_html_page(out, json_line(report));
}

void write_html_page(std::ostream &out, std::string_view json) {
    constexpr std::string_view PLACE = "REPORT-IS-PUT-HERE";
    const std::string_view page(hoplar_page_begin, hoplar_page_end);
    const std::size_t place = page.find(PLACE);
    out << page.substr(0, place);
    write_embedded(out, json);
    out << page.substr(place + PLACE.size());
}

}  // namespace host
