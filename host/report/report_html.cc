#include "host/report/report_html.h"

#include <ostream>

#include "host/report/page_data.h"
#include "host/report/report_json.h"

// The build puts the page between its two symbols.
extern "C" {
extern const char hoplar_report_page_begin[];
extern const char hoplar_report_page_end[];
}

namespace host {

void write_html(std::ostream &out, const Report &report) {
    write_html_page(out, json_line(report));
}

void write_html_page(std::ostream &out, std::string_view json) {
    write_page(out, {hoplar_report_page_begin, hoplar_report_page_end},
               [&](std::ostream &place) { place << json; });
}

}  // namespace host
