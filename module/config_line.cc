#include "module/config_line.h"

#include <strings.h>

#include "module/base/value_text.h"
#include "platform/config_text.h"

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

feature_t *row_of(const char *keyword) {
    struct keyword_row_t {
        const char *keyword;
        feature_row row;
    };
    static constexpr keyword_row_t keyword_rows[] = {
        {"FB2B", ROW_FB2B}, {"ASPM", ROW_ASPM}, {"MPS", ROW_MPS}, {"ECRC", ROW_ECRC}};
    for (const keyword_row_t &candidate : keyword_rows) {
        if (strcasecmp(keyword, candidate.keyword) == 0)
            return &feature_list[candidate.row];
    }
    return nullptr;
}

token_t value_behind(const char *equals, const char *eol, const feature_t &row) {
    return name_in(equals + 1, eol,
                   row.valid_param_char != nullptr ? row.valid_param_char : valid_param_val_char);
}

const char *line_after(const char *eol, const char *last) {
    return eol >= last ? last + 1 : skip_comment(eol + 1);
}

}  // namespace enable_features
