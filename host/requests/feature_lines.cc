#include "host/requests/feature_lines.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <numeric>

#include "host/base/input.h"
#include "host/base/words.h"
#include "platform/config_text.h"

namespace host {
namespace {

namespace module = enable_features;

constexpr std::array KEYWORDS = {"MPS", "ECRC", "ASPM", "FB2B"};

std::string upper(std::string_view text) {
    std::string result(text);
    for (char &c : result)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return result;
}

// Returns how many characters are to be put in, left out or replaced to make `b` of `a`.
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t replaced = diagonal + (a[i] != b[j]);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

// Returns how to mend an unknown keyword. Only one wrong letter, or letters in another order, count
// as a typing error, because MRRS, for example, does not mean MPS.
std::string known_keyword(const std::string &keyword) {
    const auto typing_errors = [text = upper(keyword)](std::string_view each) {
        return std::ranges::is_permutation(text, each) ? 1 : distance(text, each);
    };
    const char *const nearest = *std::ranges::min_element(KEYWORDS, {}, typing_errors);
    return typing_errors(nearest) <= 1 ? std::string("did you mean ") + nearest + "?"
                                       : "write MPS or ECRC";
}

// Returns how to mend a line without "=" behind the keyword. A comment behind it is left out.
std::string with_equals(std::string line) {
    line.resize(std::min(line.find('#'), line.size()));
    if (const std::string_view text = trim(line); text.starts_with(';') || text.starts_with('/'))
        return "begin a comment with \"#\"";
    std::ranges::replace(line, ':', ' ');
    const std::vector<std::string_view> pieces = words(line);
    if (pieces.size() < 2 ||
        module::row_of(std::string(pieces.front()).c_str()) == module::num_features)
        return "write KEYWORD=VALUE";
    const std::vector<std::string> fields(pieces.begin() + 1, pieces.end());
    return "write " + std::string(pieces.front()) + "=" + join(fields, ":");
}

// The parts of one line.
struct Line {
    std::size_t number;
    const char *begin;
    const char *equals;  // null when there is none
    const char *end;
};

// Returns what stands in [begin, end) and is no comment; empty when there is nothing.
std::string_view rest_of(const char *begin, const char *end) {
    const std::string_view rest = trim({begin, end});
    return rest.starts_with('#') ? std::string_view() : rest;
}

// Remarks on what stands between the keyword, which ends at `begin`, and the "=".
void check_behind_keyword(const char *begin, const Line &line, Remarks &remarks) {
    const std::string_view rest = rest_of(begin, line.equals);
    if (rest.empty())
        return;
    remarks.unread(line.number, in_quotes(rest) + " behind the keyword is not read: " +
                                    (rest.find(':') == std::string_view::npos
                                         ? "leave it out"
                                         : with_equals({line.begin, line.end})));
}

// Remarks on what stands behind the value, which ends at `begin`.
void check_behind_value(const char *begin, const Line &line, Remarks &remarks) {
    const std::string_view rest = rest_of(begin, line.end);
    if (rest.empty())
        return;
    const bool is_apart = rest.data() != begin;
    remarks.unread(line.number, in_quotes(rest) + " behind the value is not read: " +
                                    (rest.starts_with('*') ? "a line names one endpoint, or all"
                                     : is_apart            ? "leave it out, a value holds no blanks"
                                                           : "leave it out"));
}

// Returns how to write a value for a keyword.
std::string with_value(module::feature_row row) {
    switch (row) {
    case module::ROW_MPS:
        return "write ENDPOINT:SIZE, as all:max or 3.0.0:256";
    case module::ROW_ECRC:
        return "write FUNCTIONS:GENERATION:CHECKING, as all:+:+";
    default:
        return "leave it out";
    }
}

std::string missing_value(const Line &line, module::feature_row row) {
    const std::string_view rest = rest_of(line.equals + 1, line.end);
    return (rest.empty() ? "no value stands behind \"=\"" : in_quotes(rest) + " is no value") +
           std::string(", the line is dropped: ") + with_value(row);
}

// Finds the keyword and the value.
void take_line(const Line &line, FeatureLine &found, Remarks &remarks) {
    const module::token_t keyword_token = module::keyword_before(line.begin, line.equals);
    if (line.equals == nullptr)
        return remarks.error(line.number, "the line is passed over silently, it has no \"=\": " +
                                              with_equals({line.begin, line.end}));
    if (keyword_token.text == nullptr)
        return remarks.error(line.number, "the line is passed over silently, no keyword stands at "
                                          "its start: write KEYWORD=VALUE");
    found.keyword.assign(keyword_token.text, keyword_token.length);
    found.row = module::row_of(found.keyword.c_str());
    if (found.row == module::num_features)
        return remarks.error(line.number, in_quotes(found.keyword) +
                                              " is no keyword, the line is dropped: " +
                                              known_keyword(found.keyword));
    check_behind_keyword(keyword_token.text + keyword_token.length, line, remarks);
    const module::token_t value =
        module::value_behind(line.equals, line.end, module::value_chars(found.row));
    if (value.text == nullptr)
        return remarks.error(line.number, missing_value(line, found.row));
    check_behind_value(value.text + value.length, line, remarks);
    found.value.assign(value.text, value.length);
}

}  // namespace

std::string lacking_field(const FeatureLine &line) {
    return in_quotes(line.value) + " lacks a field, the line is dropped: " + with_value(line.row);
}

std::string read_feature_file(const std::filesystem::path &file) {
    std::error_code ignored;
    const auto status = std::filesystem::status(file, ignored);
    if (std::filesystem::exists(status) && !std::filesystem::is_directory(status) &&
        !std::filesystem::is_regular_file(status))
        throw InputError(file.string() + ": is no regular file, the module reads nothing of it");
    return read_file(file);
}

std::vector<FeatureLine> read_lines(const std::string &bytes, Remarks &remarks) {
    const std::string text = without_byte_order_mark(bytes);
    std::vector<FeatureLine> lines;
    if (text.empty())
        return lines;
    const char *const last = &text.back();
    const char *begin = skip_comment(text.data());
    const char *counted = text.data();
    std::size_t number = 1;
    for (const char *end = nullptr; (end = find_eol(begin, last)) != nullptr;
         begin = module::line_after(end, last)) {
        number += static_cast<std::size_t>(std::count(counted, begin, '\n'));
        counted = begin;
        lines.push_back({.number = number, .text = std::string(trim({begin, end}))});
        take_line({number, begin, find_token('=', begin, end), end}, lines.back(), remarks);
    }
    return lines;
}

}  // namespace host
