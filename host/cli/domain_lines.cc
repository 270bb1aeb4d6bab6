#include "host/cli/domain_lines.h"

#include <string_view>

#include "host/base/address.h"
#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/requests/judge.h"

namespace host {
namespace {

struct NamedLine {
    std::string_view line;
    std::string_view fault;           // why it sets nothing where there is no such function
    std::vector<std::string> owners;  // domains that have such functions
};

// By place, "features.cfg:3".
using NamedLines = std::map<std::string_view, NamedLine>;

void add(NamedLines &lines, std::string_view text, unsigned domain) {
    const auto parts = split(text, '\0');
    for (std::size_t i = 0; i + 3 < parts.size(); i += 3) {
        NamedLine &line = lines[parts[i]];
        line.line = parts[i + 1];
        if (parts[i + 2].empty())
            line.owners.push_back(domain_text(domain));
        else
            line.fault = parts[i + 2];
    }
}

}  // namespace

// Three texts a line, each with a zero byte behind it: the place, the line, and why it sets
// nothing, which is empty where there are such functions.
std::string named_lines_text(const std::vector<RequestReport> &requests) {
    std::string text;
    for (const RequestReport &request : requests)
        if (request.is_named)
            text += request.file + ":" + std::to_string(request.line) + '\0' +
                    excerpt(request.text) + '\0' + (request.is_absent ? fault_text(request) : "") +
                    '\0';
    return text;
}

bool report_named_lines(const std::map<unsigned, std::string> &texts, bool strict) {
    NamedLines lines;
    for (const auto &[domain, text] : texts)
        add(lines, text, domain);
    bool all_select = true;
    for (const auto &[place, line] : lines) {
        if (line.owners.size() > 1)
            log_warning(std::string(place) + ": " + std::string(line.line) +
                        " is taken for domains " + join(line.owners, ", ") +
                        ", all of which have the function: a section [domain N] in the host "
                        "configuration tells them apart");
        if (!line.owners.empty() || !strict)
            continue;
        log_error(std::string(line.fault));
        all_select = false;
    }
    return all_select;
}

}  // namespace host
