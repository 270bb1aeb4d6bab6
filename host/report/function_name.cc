#include "host/report/function_name.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "host/base/columns.h"
#include "host/base/safe_text.h"

namespace host {
namespace {

// Cuts off "(...)" that begins with `begin`, the last of the text, and the blank in front. It may
// hold brackets itself: "(prog-if 20 [IO(X)-APIC])".
void cut_annotation(std::string &text, std::string_view begin) {
    const std::size_t at = text.rfind(begin);
    if (at != std::string::npos && text.ends_with(')') &&
        text.find(" (", at + 1) == std::string::npos)
        text.erase(at);
}

// lspci cuts long texts off, often within an annotation.
void cut_unfinished_annotation(std::string &text) {
    const std::size_t at = text.rfind(" (");
    if (at != std::string::npos && text.find(')', at) == std::string::npos)
        text.erase(at);
}

// Returns true for "[0604]" and "[1022:1483]", which lspci -nn writes, and for a start of these.
bool is_number(std::string_view text) {
    const auto is_part = [](char c) {
        return std::isxdigit(static_cast<unsigned char>(c)) || c == ':' || c == ']';
    };
    return text.starts_with('[') && text.size() <= 11 &&
           std::ranges::all_of(text.substr(1), is_part);
}

void cut_number(std::string &text) {
    const std::size_t at = text.rfind(' ');
    if (at != std::string::npos && is_number(std::string_view(text).substr(at + 1)))
        text.erase(at);
}

// The name of a device that lspci does not know is "Device" and its number.
std::string without_number(const std::string &device) {
    std::string text = device;
    cut_number(text);
    return text.ends_with(" Device") ? device : text;
}

struct Name {
    std::string class_name;  // with ": ", or empty
    std::string device;
};

Name split_name(const FunctionReport &row) {
    std::string text = safe_text(row.name);
    cut_unfinished_annotation(text);
    cut_annotation(text, " (prog-if ");
    cut_annotation(text, " (rev ");
    const std::size_t class_end = text.find(": ");
    if (class_end == std::string::npos)
        return {.class_name = "", .device = std::move(text)};
    std::string class_name = text.substr(0, class_end);
    cut_number(class_name);
    return {.class_name = class_name + ": ", .device = text.substr(class_end + 2)};
}

}  // namespace

std::string name_text(const FunctionReport &row) {
    const Name name = split_name(row);
    return name.class_name + name.device;
}

std::string fitted_name(const FunctionReport &row, std::size_t columns) {
    const Name name = split_name(row);
    for (const std::string &text : {name.class_name + name.device, name.device})
        if (display_width(text) <= columns)
            return text;
    return last_words(without_number(name.device), columns);
}

std::string device_name(const FunctionReport &row) {
    return split_name(row).device;
}

}  // namespace host
