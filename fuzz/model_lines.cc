#include "fuzz/model_lines.h"

#include <cctype>
#include <functional>
#include <optional>
#include <string>

#include "fuzz/model_text.h"

namespace host::fuzz::model {
namespace {

// Reads the values of lines.
class Lines {
public:
    explicit Lines(Hierarchies &machine) : machine_(machine) {}

    void take_line(const std::string &keyword, const std::string &value) {
        const std::string name = lower(keyword);
        if (name == "mps")
            take_mps(cut(value, ':'));
        if (name == "ecrc")
            take_ecrc(cut(value, ':'));
    }

private:
    // "all", or B.D.F, or B.F for an ARI function.
    void take_mps(const std::vector<std::string> &fields) {
        if (fields.size() < 2)
            return;
        const bool all = lower(fields[0]) == "all";
        const auto bdf = all ? std::optional(BDF_NONE) : endpoint_in(cut(fields[0], '.'));
        auto size = number_in(fields[1], ~0UL);
        if (lower(fields[1]) == "max")
            size = MAX;
        else if (size)
            size = Hierarchies::is_size(static_cast<std::uint32_t>(*size)) ? *size & MAX : 0;
        if (bdf && size.value_or(0))
            machine_.request(*bdf, static_cast<std::uint32_t>(*size));
    }

    std::optional<bdf_t> endpoint_in(const std::vector<std::string> &parts) {
        if (parts.size() < 2)
            return std::nullopt;
        const bool ari = parts.size() == 2;
        const auto bus = number_in(parts[0], 255), second = number_in(parts[1], ari ? 255 : 31);
        const auto third = ari ? std::optional(0UL) : number_in(parts[2], 7);
        if (!bus || !second || !third)
            return std::nullopt;
        const bdf_t bdf = static_cast<bdf_t>(ari ? BDF_ARI_FLAG | *bus << 8 | *second
                                                 : *bus << 8 | *second << 3 | *third);
        const Node *node = machine_.at(bdf);
        return node && Hierarchies::is_endpoint(*node, ari) ? std::optional(bdf) : std::nullopt;
    }

    static std::optional<int> setting(char c) {
        constexpr std::string_view SETTINGS = "-=+";
        const auto at = SETTINGS.find(c);
        return at == SETTINGS.npos ? std::nullopt : std::optional(static_cast<int>(at) - 1);
    }

    void take_ecrc(const std::vector<std::string> &fields) {
        if (fields.size() < 3)
            return;
        const auto generation = setting(fields[1][0]), checking = setting(fields[2][0]);
        if (!generation || !checking || (!*generation && !*checking))
            return;
        if (lower(fields[0]) == "all")
            return record_all([](Node &) { return true; }, *generation, *checking);
        std::vector<std::string> parts = cut(fields[0], '.');
        parts.resize(3);
        const auto bus = number_in(parts[0], 255);
        if (!bus)
            return;
        if (parts[1].empty())
            return record_all([&](Node &node) { return node.bus() == *bus; }, *generation,
                              *checking);
        const auto device_selects = [&](unsigned device) {
            record_all([&](Node &node) { return node.bus() == *bus && node.device() == device; },
                       *generation, *checking);
        };
        if (parts[1][0] == '*')
            return parts[2].empty() ? device_selects(0) : void();
        const bool ari = parts[2].empty();
        const auto second = std::isxdigit(static_cast<unsigned char>(parts[1][0]))
                                ? number_in(parts[1], ari ? 255 : 31)
                                : std::nullopt;
        if (!second)
            return;
        if (!ari && parts[2][0] == '*')
            return device_selects(static_cast<unsigned>(*second));
        const auto third = ari ? std::optional(0UL) : number_in(parts[2], 7);
        if (third && machine_.manages(static_cast<unsigned>(*bus)))
            machine_.record(static_cast<bdf_t>(ari ? BDF_ARI_FLAG | *bus << 8 | *second
                                                   : *bus << 8 | *second << 3 | *third),
                            *generation, *checking);
    }

    void record_all(const std::function<bool(Node &)> &selects, int generation, int checking) {
        machine_.each([&](Node &node) {
            if (machine_.manages(node.bus()) && selects(node))
                machine_.record(Hierarchies::bdf_of(node), generation, checking);
        });
    }

    Hierarchies &machine_;
};

// Reads KEYWORD=VALUE. A value ends at the first character that its keyword does not take.
void take_line(Lines &lines, std::string line) {
    const auto is_letter_or_digit = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    };
    const auto word = [&](std::string_view text, std::string_view others) {
        while (!text.empty() && (text[0] == ' ' || text[0] == '\t'))
            text.remove_prefix(1);
        std::size_t size = 0;
        while (size < text.size() &&
               (is_letter_or_digit(text[size]) || others.find(text[size]) != others.npos))
            ++size;
        return std::string(text.substr(0, size));
    };
    if (line.starts_with("\xEF\xBB\xBF"))
        line.erase(0, 3);
    const std::size_t equals = line.find('=');
    if (equals == line.npos || line.find_first_not_of(" \t") == line.find('#'))
        return;
    const std::string keyword = word(std::string_view(line).substr(0, equals), "_-.");
    const bool is_ecrc = lower(keyword) == "ecrc";
    const std::string value =
        word(std::string_view(line).substr(equals + 1), is_ecrc ? "*+-.:=" : "+-.:");
    lines.take_line(keyword, value);
}

}  // namespace

void take_lines(Hierarchies &machine, std::string_view features) {
    Lines lines(machine);
    for (const std::string &line : cut(std::string(features), '\n'))
        take_line(lines, line);
}

}  // namespace host::fuzz::model
