#include "host/report/json_writer.h"

#include <ostream>

#include "host/base/words.h"

namespace host {

JsonWriter::JsonWriter(std::ostream &out, Form form) : out_(out), form_(form) {}

// Escaped text holds no line ends, so each one begins a line that is indented further.
void JsonWriter::value(const char *name, const Json &json) {
    begin_part(name);
    const int indent = form_ == Form::LINES ? 2 : -1;
    const std::string text = json.dump(indent, ' ', true, Json::error_handler_t::replace);
    for (const std::string_view line : split(text, '\n')) {
        if (line.data() != text.data())
            begin_line();
        out_ << line;
    }
}

void JsonWriter::open(const char *name, char bracket) {
    if (depth_ > 0)
        begin_part(name);
    out_ << bracket;
    ++depth_;
    is_first_ = true;
}

void JsonWriter::close(char bracket) {
    --depth_;
    if (!is_first_)
        begin_line();
    out_ << bracket;
    is_first_ = false;
}

void JsonWriter::begin_part(const char *name) {
    if (!is_first_)
        out_ << ',';
    is_first_ = false;
    begin_line();
    if (name != nullptr)
        out_ << '"' << name << (form_ == Form::LINES ? "\": " : "\":");
}

void JsonWriter::begin_line() {
    if (form_ == Form::LINES)
        out_ << '\n' << std::string(std::size_t{2} * depth_, ' ');
}

}  // namespace host
