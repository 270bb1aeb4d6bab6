#include "host/requests/remarks.h"

#include <algorithm>
#include <ostream>

#include "host/base/input.h"
#include "host/base/safe_text.h"

namespace host {

void Remarks::error(std::size_t line, std::string_view text) {
    add(line, Severity::ERROR, text);
}

void Remarks::warning(std::size_t line, std::string_view text) {
    add(line, Severity::WARNING, text);
}

void Remarks::note(std::size_t line, std::string_view text) {
    add(line, Severity::NOTE, text);
}

// What stands in a line has any length, and so has what to write in its place.
void Remarks::add(std::size_t line, Severity severity, std::string_view text) {
    constexpr std::size_t LONGEST = 600;
    remarks_[line].push_back({severity, excerpt(text, LONGEST)});
}

void Remarks::unread(std::size_t line, std::string_view text) {
    warning(line, text);
    remarks_[line].back().is_unread = true;
}

std::string Remarks::worst(std::size_t line) const {
    const auto found = remarks_.find(line);
    return found != remarks_.end()
               ? std::ranges::max_element(found->second, {}, &Remark::severity)->text
               : "";
}

std::string Remarks::unread_part(std::size_t line) const {
    const auto found = remarks_.find(line);
    if (found == remarks_.end())
        return "";
    const auto part = std::ranges::find_if(found->second, &Remark::is_unread);
    return part != found->second.end() ? part->text : "";
}

bool Remarks::any() const {
    const auto is_no_note = [](const Remark &remark) { return remark.severity != Severity::NOTE; };
    return std::ranges::any_of(
        remarks_, [&](const auto &line) { return std::ranges::any_of(line.second, is_no_note); });
}

void Remarks::write(const std::string &file, std::ostream &out) const {
    for (const auto &[line, remarks] : remarks_)
        for (const Remark &remark : remarks)
            out << safe_text(file) << ':' << line << ": " << severity_text(remark.severity) << ": "
                << remark.text << '\n';
}

std::string in_quotes(std::string_view text) {
    return '"' + excerpt(text) + '"';
}

}  // namespace host
