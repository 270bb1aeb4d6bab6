// Puts what a page shows into the page, which page/ has the parts of.
#pragma once

#include <functional>
#include <iosfwd>
#include <string_view>

namespace host {

// Writes the page with what `write_json` writes in the place of its data. That is JSON, of which no
// name can end the element that holds it.
void write_page(std::ostream &out, std::string_view page,
                const std::function<void(std::ostream &json)> &write_json);

}  // namespace host
