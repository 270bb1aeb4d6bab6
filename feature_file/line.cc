#include "feature_file/line.h"

#include <strings.h>

#include "feature_file/ecrc_value.h"
#include "feature_file/mps_value.h"
#include "feature_file/value_text.h"

namespace enable_features {

namespace {

// Returns the name in [begin, end).
token_t name_in(const char *begin, const char *end, name_char_t is_name_char) {
    token_t token = {nullptr, 0};
    if (begin < end)
        token.text = find_name(begin, end - 1, &token.length, is_name_char);
    return token;
}

}  // namespace

token_t keyword_before(const char *line, const char *equals) {
    return equals != nullptr ? name_in(line, equals, nullptr) : token_t{nullptr, 0};
}

feature_row row_of(const char *keyword) {
    struct keyword_row_t {
        const char *keyword;
        feature_row row;
    };
    static constexpr keyword_row_t keyword_rows[] = {
        {"FB2B", ROW_FB2B}, {"ASPM", ROW_ASPM}, {"MPS", ROW_MPS}, {"ECRC", ROW_ECRC}};
    for (const keyword_row_t &candidate : keyword_rows) {
        if (strcasecmp(keyword, candidate.keyword) == 0)
            return candidate.row;
    }
    return num_features;
}

name_char_t value_chars(feature_row row) {
    switch (row) {
    case ROW_MPS:
        return valid_mps_param_char;
    case ROW_ECRC:
        return valid_ecrc_param_char;
    default:
        return valid_param_val_char;
    }
}

token_t value_behind(const char *equals, const char *eol, name_char_t is_value_char) {
    return name_in(equals + 1, eol, is_value_char);
}

const char *line_after(const char *eol, const char *last) {
    return eol >= last ? last + 1 : skip_comment(eol + 1);
}

}  // namespace enable_features
