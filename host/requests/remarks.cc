#include "host/requests/remarks.h"

#include <algorithm>
#include <ostream>
#include <string_view>

#include "host/base/input.h"
#include "host/base/safe_text.h"

namespace host {

void Remarks::error(std::size_t line, std::string text) {
    remarks_.push_back({line, Severity::ERROR, std::move(text)});
}

void Remarks::warning(std::size_t line, std::string text) {
    remarks_.push_back({line, Severity::WARNING, std::move(text)});
}

void Remarks::note(std::size_t line, std::string text) {
    remarks_.push_back({line, Severity::NOTE, std::move(text)});
}

bool Remarks::any() const {
    return std::ranges::any_of(
        remarks_, [](const Remark &remark) { return remark.severity != Severity::NOTE; });
}

void Remarks::write(const std::string &file, std::ostream &out) const {
    std::vector<Remark> sorted = remarks_;
    std::ranges::stable_sort(sorted, {}, &Remark::line);
    for (const Remark &remark : sorted)
        out << safe_text(file) << ':' << remark.line << ": " << severity_text(remark.severity)
            << ": " << safe_text(remark.text) << '\n';
}

std::string quoted(std::string_view text) {
    return '"' + excerpt(text) + '"';
}

}  // namespace host
