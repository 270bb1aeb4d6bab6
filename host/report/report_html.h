// Writes the report as a page for a browser: one file, which needs no other and no network.
#pragma once

#include <iosfwd>
#include <string_view>

#include "host/report/report.h"

namespace host {

// The page holds the JSON report, of which its script makes what is seen.
void write_html(std::ostream &out, const Report &report);

// Writes the page of a report as write_json() or json_line() makes it.
void write_html_page(std::ostream &out, std::string_view json);

}  // namespace host
