#include "host/watch/bus_events.h"

#include <algorithm>
#include <array>
#include <limits>

#include "host/base/address.h"
#include "host/base/input.h"
#include "host/base/words.h"
#include "host/machine/open_machine.h"

namespace host {
namespace {

struct EventWord {
    std::string_view word;
    EventKind kind;
    std::size_t most_words;
    bool takes_value;
};

constexpr std::array<EventWord, 4> EVENT_WORDS{{
    {.word = "insert", .kind = EventKind::INSERT, .most_words = 4, .takes_value = true},
    {.word = "remove", .kind = EventKind::REMOVE, .most_words = 4, .takes_value = true},
    {.word = "flr", .kind = EventKind::FLR, .most_words = 3, .takes_value = false},
    {.word = "bus-reset", .kind = EventKind::BUS_RESET, .most_words = 3, .takes_value = false},
}};

class Checker {
public:
    Checker(Machine &machine, unsigned domain)
        : machine_(machine), domain_(domain), removed_(ROUTING_IDS) {}

    // Throws InputError with the reason why the line cannot be used.
    BusEvent check(const std::vector<std::string_view> &line) {
        const EventWord &event = event_word(line.front());
        if (line.size() < 2)
            throw InputError("no function is named");
        if (line.size() > event.most_words)
            throw InputError("too many words");
        const Function &function = find(line[1]);
        BusEvent checked{.kind = event.kind,
                         .bdf = function.bdf,
                         .bridge = bridge_of(event.kind, function),
                         .value = 0,
                         .status = 0,
                         .origin = {}};
        std::size_t next = 2;
        if (event.takes_value)
            checked.value =
                line.size() > next ? number(line[next++], "VALUE") : secondary_bus(*checked.bridge);
        if (line.size() > next)
            checked.status = status(line[next]);
        simulate(checked);
        return checked;
    }

private:
    static const EventWord &event_word(std::string_view word) {
        const auto *const found = std::ranges::find(EVENT_WORDS, word, &EventWord::word);
        if (found == EVENT_WORDS.end())
            throw InputError("unknown event (insert, remove, flr, bus-reset)");
        return *found;
    }

    static std::uint32_t number(std::string_view word, const char *name) {
        const auto value = parse_number(word);
        if (!value)
            throw InputError(std::string(name) + " is no number");
        return *value;
    }

    static int status(std::string_view word) {
        const std::uint32_t value = number(word, "STATUS");
        if (value > static_cast<std::uint32_t>(std::numeric_limits<int>::max()))
            throw InputError("STATUS is too large");
        return static_cast<int>(value);
    }

    std::uint32_t secondary_bus(const bridge_rec &bridge) const {
        // A bridge without a bus gets 0, which makes hooks use the host's record: it has none
        // either.
        return static_cast<std::uint32_t>(std::max(machine_.bridges().secondary_bus(bridge), 0));
    }

    const Function &find(std::string_view word) const {
        const Function &function = named_function(machine_, domain_, word);
        if (removed_[function.id()])
            throw InputError("the function has been removed by an earlier line");
        return function;
    }

    bridge_rec *bridge_of(EventKind kind, const Function &function) const {
        if (kind == EventKind::FLR) {
            if (function.is_bridge() || is_port(function))
                throw InputError("a bridge or port has no function-level reset");
            return nullptr;
        }
        const BridgeTree &tree = machine_.bridges();
        if (kind == EventKind::BUS_RESET) {
            bridge_rec *const above = tree.above(function.bdf);
            if (above != nullptr && above->bridge_kind != BRIDGE_KIND_HOST)
                return above;
        }
        bridge_rec *const bridge = tree.by_bdf(function.bdf);
        if (bridge == nullptr)
            throw InputError(kind == EventKind::BUS_RESET ? "neither a bridge nor below one"
                                                          : "not a bridge");
        return bridge;
    }

    // The standard defines function-level reset for endpoints alone.
    static bool is_port(const Function &function) {
        return function.port_type && *function.port_type >= PORT_TYPE_ROOT_PORT &&
               *function.port_type <= PORT_TYPE_PCI_TO_PCIE;
    }

    void simulate(const BusEvent &event) {
        if (event.kind != EventKind::INSERT && event.kind != EventKind::REMOVE)
            return;
        for (const Function *const function : machine_.below(*event.bridge))
            removed_[function->id()] = event.kind == EventKind::REMOVE;
    }

    Machine &machine_;
    unsigned domain_;
    std::vector<bool> removed_;  // by routing ID
};

}  // namespace

bool is_event_word(std::string_view word) {
    return std::ranges::find(EVENT_WORDS, word, &EventWord::word) != EVENT_WORDS.end();
}

std::vector<BusEvent> parse_bus_events(std::string_view text, const std::string &file,
                                       Machine &machine, unsigned domain, std::size_t first_line) {
    Checker checker(machine, domain);
    std::vector<BusEvent> events;
    std::vector<std::string> errors;
    std::size_t next = first_line;
    for (const std::string_view line : split(text, '\n')) {
        const std::size_t number = next++;
        const std::vector<std::string_view> parts = words(line.substr(0, line.find('#')));
        if (parts.empty())
            continue;
        try {
            events.push_back(checker.check(parts));
            events.back().origin = file + ":" + std::to_string(number) + ": " + excerpt(trim(line));
        } catch (const InputError &bad) {
            errors.push_back(line_complaint(file, number, bad.what(), line));
        }
    }
    if (!errors.empty())
        throw InputError(errors);
    return events;
}

std::vector<std::string> split_bus_events(std::string_view text, const std::string &file,
                                          const std::vector<unsigned> &domains) {
    std::vector<std::string> texts(domains.size());
    std::vector<std::string> errors;
    std::size_t number = 0;
    for (const std::string_view line : split(text, '\n')) {
        ++number;
        const std::vector<std::string_view> parts = words(line.substr(0, line.find('#')));
        const auto address = parts.size() > 1 ? parse_address(parts[1]) : std::nullopt;
        const unsigned domain = address ? address->domain.value_or(0) : domains.front();
        const auto owner = std::ranges::find(domains, domain);
        if (owner == domains.end())
            errors.push_back(line_complaint(file, number, "not in a domain that is served", line));
        else
            texts[static_cast<std::size_t>(owner - domains.begin())] += line;
        for (std::string &each : texts)
            each += '\n';
    }
    if (!errors.empty())
        throw InputError(errors);
    return texts;
}

}  // namespace host
