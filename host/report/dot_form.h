// Texts with places for values, whose number the compiler checks.
#pragma once

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace host {

// A text in which each "%" is the place of a value. A text with another number of places than the
// type says does not compile, nor does a call with another number of values.
template <std::size_t PLACES>
class DotForm {
public:
    explicit consteval DotForm(std::string_view text) : text_(text) {
        if (std::count(text.begin(), text.end(), '%') != PLACES)
            number_of_places_is_another();
    }

    template <typename... Values>
    std::string filled(const Values &...values) const {
        static_assert(sizeof...(Values) == PLACES, "a value for each place");
        return fill({std::string_view(values)...});
    }

private:
    static void number_of_places_is_another();  // not constexpr, so that a call does not compile

    std::string fill(std::initializer_list<std::string_view> values) const {
        std::string text;
        const std::string_view *value = values.begin();
        for (const char c : text_)
            if (c == '%')
                text += *value++;
            else
                text += c;
        return text;
    }

    std::string_view text_;
};

}  // namespace host
