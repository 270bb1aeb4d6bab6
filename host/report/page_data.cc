#include "host/report/page_data.h"

#include <algorithm>
#include <ostream>
#include <streambuf>

namespace host {
namespace {

// Passes JSON on without "<", so that no name can end the element that holds it or begin a comment
// in it. JSON has these characters in strings alone.
class EmbeddedJson : public std::streambuf {
public:
    explicit EmbeddedJson(std::ostream &out) : out_(out) {}

private:
    int_type overflow(int_type c) override {
        const char one = traits_type::to_char_type(c);
        return xsputn(&one, 1) == 1 ? traits_type::not_eof(c) : traits_type::eof();
    }

    std::streamsize xsputn(const char *text, std::streamsize length) override {
        std::string_view rest(text, static_cast<std::size_t>(length));
        while (!rest.empty()) {
            const std::size_t plain = std::min(rest.find_first_of("<>&"), rest.size());
            out_ << rest.substr(0, plain);
            rest.remove_prefix(plain);
            if (!rest.empty())
                escape(rest.front());
            rest.remove_prefix(rest.empty() ? 0 : 1);
        }
        return out_ ? length : 0;
    }

    void escape(char c) { out_ << (c == '<' ? "\\u003c" : c == '>' ? "\\u003e" : "\\u0026"); }

    std::ostream &out_;
};

}  // namespace

void write_page(std::ostream &out, std::string_view page,
                const std::function<void(std::ostream &json)> &write_json) {
    constexpr std::string_view PLACE = "REPORT-IS-PUT-HERE";
    const std::size_t place = page.find(PLACE);
    out << page.substr(0, place);
    EmbeddedJson embedded(out);
    std::ostream json(&embedded);
    write_json(json);
    out << page.substr(place + PLACE.size());
}

}  // namespace host
