#include <algorithm>
#include <string>

#include "host/base/address.h"
#include "host/space/dump.h"
#include "host/space/output_file.h"

namespace host {

namespace {

void append_hex(std::string &text, unsigned value, unsigned digits) {
    while (digits-- > 0)
        text += "0123456789abcdef"[value >> 4 * digits & 0xF];
}

char lower_case(char c) {
    return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Writes the title as it was read; a title that does not begin with the function's address gets it.
void append_title(std::string &text, const std::string &title, RoutingId id) {
    const std::string address = bdf_text(id);
    std::string first_word = title.substr(0, title.find(' '));
    std::ranges::transform(first_word, first_word.begin(), lower_case);
    if (!first_word.ends_with(address)) {
        text += address;
        text += ' ';
    }
    text += title;
}

void append_function(std::string &text, const ConfigImage &image, RoutingId id) {
    append_title(text, image.title(id), id);
    const std::vector<std::uint8_t> bytes = image.bytes(id);
    for (unsigned offset = 0; offset < bytes.size(); ++offset) {
        if (offset % 16 == 0) {
            text += '\n';
            append_hex(text, offset, offset < 0x100 ? 2 : 3);
            text += ':';
        }
        text += ' ';
        append_hex(text, bytes[offset], 2);
    }
    text += "\n\n";
}

void write_functions(const Sink &sink, const ConfigImage &image) {
    constexpr std::size_t ENOUGH = 1 << 20;  // bytes for one write
    std::string text;
    for (const RoutingId id : image.functions()) {
        append_function(text, image, id);
        if (text.size() < ENOUGH)
            continue;
        sink(text);
        text.clear();
    }
    sink(text);
}

}  // namespace

void write_dump(OutputFile &file, const ConfigImage &image) {
    file.write([&](const Sink &sink) { write_functions(sink, image); });
}

}  // namespace host
