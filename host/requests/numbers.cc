#include "host/requests/numbers.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string_view>

#include "feature_file/value_text.h"
#include "host/base/address.h"
#include "host/base/words.h"
#include "platform/bdf.h"

namespace host {
namespace {

namespace module = enable_features;

bool is_in_address(const Number &number) {
    return number.highest <= pci::HIGHEST_ARI_FUNCTION;
}

// Returns how to write an address's text of hexadecimal digits that has no 0x; empty for others.
std::string as_hexadecimal(std::string_view text, const Number &kind) {
    const auto number = parse_hex(text);
    return number && is_in_address(kind) && *number <= kind.highest
               ? "write 0x" + std::string(text) + " or " + std::to_string(*number)
               : "";
}

std::string range_text(const Number &number) {
    return "0 to " + std::to_string(number.highest);
}

bool is_octal(std::string_view text) {
    return text.size() > 1 && text[0] == '0' && module::is_digit(text[1]);
}

// Returns what is wrong with a text that begins with 0 and means another number without it; empty
// for any other.
std::string octal_text(std::string_view text, unsigned long value) {
    if (!is_octal(text))
        return "";
    const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
    const std::string_view decimal =
        digits.substr(std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (decimal == std::to_string(value))
        return "";
    return " begins with 0, so it is octal and reads as " + std::to_string(value) + ": write " +
           std::string(decimal) + ", or 0x" + std::string(decimal) + " for hexadecimal";
}

// Returns what to write where `text` is not read to its end, with `rest` behind the number.
std::string without_rest(std::string_view text, std::string_view rest, const Number &number) {
    if (rest.front() == '-' && is_in_address(number))
        return std::string("there are no ranges, write a line for each ") + number.name;
    const std::string hexadecimal = as_hexadecimal(text, number);
    return hexadecimal.empty() ? "leave it out" : hexadecimal;
}

// Remarks on the text of a number that is accepted.
void check_text(std::string_view text, const Number &number, const module::number_text_t &read,
                std::size_t line, Remarks &remarks) {
    const std::string name = std::string(number.name) + " " + in_quotes(text);
    const std::string value = std::to_string(read.number);
    const std::string_view rest = text.substr(static_cast<std::size_t>(read.end - text.data()));
    const auto remark = rest.empty() ? &Remarks::warning : &Remarks::unread;
    if (text.front() == '+' || text.front() == '-')
        (remarks.*remark)(line, name + " has a sign and reads as " + value + ": write it without");
    else if (const std::string octal = octal_text(text, read.number); !octal.empty())
        (remarks.*remark)(line, name + octal);
    else if (!rest.empty())
        remarks.unread(line, name + " reads as " + value + ", " + in_quotes(rest) +
                                 " behind it is ignored: " + without_rest(text, rest, number));
}

}  // namespace

void check_number(const char *text, const Number &number, std::size_t line, Remarks &remarks) {
    const module::number_text_t read = module::scan_number(text);
    const std::string name = std::string(number.name) + " " + in_quotes(text);
    if (read.end == text) {
        const std::string hexadecimal = as_hexadecimal(text, number);
        return remarks.error(
            line, name + " is no number, the line is dropped: " +
                      (hexadecimal.empty() ? "write " + range_text(number) : hexadecimal));
    }
    if (read.number > number.highest)
        return remarks.error(line, name + " is out of range, the line is dropped: write " +
                                       range_text(number));
    check_text(text, number, read, line, remarks);
}

void check_address(const char *const (&parts)[3], const char *further, std::size_t line,
                   Remarks &remarks) {
    const std::array<Number, 3> plain = {{{"bus", pci::HIGHEST_BUS},
                                          {"device", pci::HIGHEST_DEVICE},
                                          {"function", pci::HIGHEST_FUNCTION}}};
    const std::array<Number, 2> ari = {
        {{"bus", pci::HIGHEST_BUS}, {"ARI function", pci::HIGHEST_ARI_FUNCTION}}};
    for (std::size_t i = 0; i < 3 && parts[i] != nullptr; ++i) {
        const std::string_view part = parts[i];
        if (i == 0 || part.front() != '*')
            check_number(parts[i], parts[2] != nullptr ? plain[i] : ari[i], line, remarks);
        else if (part.size() > 1)
            remarks.unread(line, in_quotes(part) + " reads as \"*\": leave out the rest");
    }
    if (further != nullptr)
        remarks.unread(line, in_quotes(further) +
                                 " behind the function is ignored: an address has three numbers");
}

std::string written(bdf_t bdf) {
    const std::string bus = std::to_string(pci::bus_of(bdf)) + ".";
    const std::string rest =
        bdf == pci::routing_id_of(bdf)
            ? std::to_string(pci::device_of(bdf)) + "." + std::to_string(pci::function_of(bdf))
            : std::to_string(pci::function_of(bdf));
    return bus + rest + " or 0x" + bus_text(pci::bus_of(bdf)) + "." + rest;
}

bool is_lspci_form(const std::string &value, const Machine *machine, std::size_t line,
                   Remarks &remarks) {
    for (std::size_t end = value.find(':'); end != std::string::npos;) {
        end = value.find(':', end + 1);
        const std::string text = value.substr(0, end);
        const auto address = parse_address(text);
        if (!address)
            continue;
        const Function *const function = machine != nullptr ? machine->known(address->id) : nullptr;
        remarks.error(line, in_quotes(text) +
                                " is lspci's form of an address, the line is dropped: write " +
                                written(function != nullptr ? function->bdf : bdf_t{address->id}) +
                                " for it");
        return true;
    }
    return false;
}

}  // namespace host
