#include "host/requests/remarks.h"

#include <algorithm>
#include <ostream>
#include <string_view>

#include "host/base/input.h"
#include "host/base/safe_text.h"

namespace host {

void Remarks::error(std::size_t line, std::string text) {
    add(line, Severity::ERROR, std::move(text));
}

void Remarks::warning(std::size_t line, std::string text) {
    add(line, Severity::WARNING, std::move(text));
}

void Remarks::note(std::size_t line, std::string text) {
    add(line, Severity::NOTE, std::move(text));
}

void Remarks::add(std::size_t line, Severity severity, std::string text) {
    remarks_.push_back({line, severity, std::move(text)});
}

void Remarks::unread(std::size_t line, std::string text) {
    remarks_.push_back({line, Severity::WARNING, std::move(text), true});
}

std::string Remarks::worst(std::size_t line) const {
    const Remark *worst = nullptr;
    for (const Remark &remark : remarks_)
        if (remark.line == line && (worst == nullptr || remark.severity > worst->severity))
            worst = &remark;
    return worst != nullptr ? worst->text : "";
}

std::string Remarks::unread_part(std::size_t line) const {
    const auto found = std::ranges::find_if(
        remarks_, [&](const Remark &remark) { return remark.line == line && remark.is_unread; });
    return found != remarks_.end() ? found->text : "";
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

std::string in_quotes(std::string_view text) {
    return '"' + excerpt(text) + '"';
}

}  // namespace host
