// A title line begins a function, a blank line ends it, and lines that begin with a hexadecimal
// offset and ": " carry its bytes. All other lines are what lspci -v prints in between.
//
// lspci writes whole lines of 16 bytes and leaves none out. A dump that differs has been cut or
// edited and is refused, because a function with bytes in the wrong place would be programmed in
// the wrong place.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/base/address.h"
#include "host/base/input.h"
#include "host/space/dump.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

constexpr std::size_t LINE_BYTES = 16;
constexpr std::size_t LONGEST_LINE = 4096;
constexpr std::uint64_t LARGEST_DUMP = std::uint64_t{4} << 30U;  // four full domains

bool is_hex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

std::size_t count_hex(std::string_view text) {
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), is_hex) -
                                    text.begin());
}

// Reads up to 8 hexadecimal digits.
unsigned hex_value(std::string_view digits) {
    unsigned value = 0;
    for (const char c : digits)
        value = value << 4 | static_cast<unsigned>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
    return value;
}

struct Title {
    unsigned domain = 0;
    unsigned bus = 0;
    unsigned device = 0;
    unsigned function = 0;

    RoutingId id() const { return pci::routing_id_of(pci::plain_bdf(bus, device, function)); }
};

// Reads "[dddd:]bb:dd.f" and then a blank or nothing. The numbers may be too large for an address.
std::optional<Title> parse_title(std::string_view line) {
    Title title;
    const std::size_t digits = count_hex(line);
    if (digits >= 4 && digits <= 8 && line.substr(digits, 1) == ":") {
        title.domain = hex_value(line.substr(0, digits));
        line.remove_prefix(digits + 1);
    }
    if (count_hex(line) != 2 || line.substr(2, 1) != ":" || count_hex(line.substr(3)) != 2 ||
        line.substr(5, 1) != "." || count_hex(line.substr(6)) != 1)
        return std::nullopt;
    if (line.size() > 7 && line[7] != ' ')
        return std::nullopt;
    title.bus = hex_value(line.substr(0, 2));
    title.device = hex_value(line.substr(3, 2));
    title.function = hex_value(line.substr(6, 1));
    return title;
}

bool is_byte_line(std::string_view line) {
    const std::size_t digits = count_hex(line);
    return digits >= 1 && digits <= 8 && line.substr(digits, 1) == ":" &&
           (line.size() == digits + 1 || line[digits + 1] == ' ');
}

std::string quoted(std::string_view text) {
    constexpr std::size_t LONGEST = 60;
    return '"' + excerpt(text, LONGEST) + '"';
}

std::string hex_text(unsigned value) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04x", value);
    return text.data();
}

class DumpReader {
public:
    DumpReader(const std::string &file, const DomainChoice &choice) : file_(file) {
        takes_all_ = !choice;
        if (choice)
            for (const unsigned domain : *choice)
                dump_.domains.try_emplace(domain);
    }

    Dump read(std::istream &stream) {
        std::string line;
        while (next_line(stream, line)) {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            take(line);
        }
        if (stream.bad())
            fail("cannot be read: " + std::generic_category().message(errno));
        end_function();
        if (line_number_ == 0)
            fail("the file is empty");
        if (seen_.empty())
            fail("no lspci dump: there is no function in it (take one with: lspci -xxxx)");
        for (const auto &[domain, dumped] : dump_.domains)
            if (dumped.image->functions().empty())
                fail("no function of domain " + hex_text(domain) + " among the " +
                     std::to_string(seen_.size()) + " in it");
        return std::move(dump_);
    }

private:
    // Both limits bound the memory and the time that an input without line ends (/dev/zero) or
    // without an end would take.
    bool next_line(std::istream &stream, std::string &line) {
        line.resize(LONGEST_LINE + 1);
        stream.getline(line.data(), static_cast<std::streamsize>(line.size()));
        const auto taken = static_cast<std::size_t>(stream.gcount());  // with the line's end
        if (taken == 0 || stream.bad())
            return false;
        ++line_number_;
        line.resize(stream.good() ? taken - 1 : taken);
        if (stream.fail())
            fail_here("a line of more than " + std::to_string(LONGEST_LINE) + " bytes", line);
        size_ += taken;
        if (size_ > LARGEST_DUMP)
            fail("is larger than " + std::to_string(LARGEST_DUMP >> 30U) + " GiB");
        return true;
    }

    void take(const std::string &line) {
        if (line.empty())
            end_function();
        else if (const auto title = parse_title(line))
            begin_function(*title, line);
        else if (is_byte_line(line))
            take_bytes(line);
    }

    void begin_function(const Title &title, const std::string &line) {
        end_function();
        if (title.device > 0x1F || title.function > 7)
            fail_here("no such address", line);
        if (!seen_.emplace(title.domain, title.id()).second)
            fail_here("a second function with this address", line);
        current_ = title;
        title_text_ = line;
        title_line_ = line_number_;
    }

    void take_bytes(std::string_view line) {
        if (!current_)
            fail_here("bytes that belong to no function", line);
        const std::size_t digits = count_hex(line);
        const unsigned offset = hex_value(line.substr(0, digits));
        if (offset != bytes_.size())
            fail_here("the next line of this function should be that of offset " +
                          hex_text(static_cast<unsigned>(bytes_.size())),
                      line);
        if (offset >= pci::EXT_CONFIG_SIZE)
            fail_here("more than 4096 bytes of one function", line);
        append_bytes(line, line.substr(digits + 1));
        if (bytes_.size() % LINE_BYTES != 0)
            fail_here("the line is cut off after " + std::to_string(bytes_.size() - offset) +
                          " of 16 bytes",
                      line);
    }

    void append_bytes(std::string_view line, std::string_view text) {
        const std::size_t limit = bytes_.size() + LINE_BYTES;
        while (true) {
            text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
            if (text.empty())
                return;
            const std::string_view word = text.substr(0, text.find(' '));
            if (word.size() != 2 || count_hex(word) != 2)
                fail_here(quoted(word) + " is not a byte", line);
            if (bytes_.size() == limit)
                fail_here("more than 16 bytes in one line", line);
            bytes_.push_back(static_cast<std::uint8_t>(hex_value(word)));
            text.remove_prefix(2);
        }
    }

    void end_function() {
        if (!current_)
            return;
        const Title title = *std::exchange(current_, std::nullopt);
        std::vector<std::uint8_t> bytes = std::exchange(bytes_, {});
        if (bytes.size() < pci::HEADER_SIZE)
            fail_at(title_line_,
                    "the function has " + std::to_string(bytes.size()) +
                        " bytes, and at least 64 are needed (take the dump with: "
                        "lspci -xxxx)",
                    title_text_);
        DumpedDomain *const domain = wanted(title.domain);
        if (!domain) {
            ++dump_.left_out[title.domain];
            return;
        }
        if (bytes.size() == pci::HEADER_SIZE &&
            (bytes[pci::STATUS] & pci::STATUS_CAPABILITIES_LIST))
            ++domain->header_only;
        domain->image->add(title.id(), std::move(title_text_), std::move(bytes));
    }

    DumpedDomain *wanted(unsigned domain) {
        if (takes_all_)
            return &dump_.domains[domain];
        const auto found = dump_.domains.find(domain);
        return found == dump_.domains.end() ? nullptr : &found->second;
    }

    [[noreturn]] void fail(const std::string &reason) const {
        throw DumpError(file_ + ": " + reason);
    }

    [[noreturn]] void fail_here(const std::string &reason, std::string_view text) const {
        fail_at(line_number_, reason, text);
    }

    [[noreturn]] void fail_at(std::size_t line, const std::string &reason,
                              std::string_view text) const {
        throw DumpError(file_ + ":" + std::to_string(line) + ": " + reason + ": " + quoted(text));
    }

    std::string file_;
    bool takes_all_ = false;
    Dump dump_;
    std::size_t line_number_ = 0;
    std::uint64_t size_ = 0;
    std::set<std::pair<unsigned, RoutingId>> seen_;
    std::optional<Title> current_;  // the function that lines belong to
    std::string title_text_;
    std::size_t title_line_ = 0;
    std::vector<std::uint8_t> bytes_;
};

}  // namespace

Dump read_dump(const std::filesystem::path &file, const DomainChoice &choice) {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored))
        throw DumpError(file.string() + ": is a directory");
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw DumpError(file.string() + ": " + std::generic_category().message(errno));
    return read_dump(stream, file.string(), choice);
}

Dump read_dump(std::istream &stream, const std::string &name, const DomainChoice &choice) {
    return DumpReader(name, choice).read(stream);
}

}  // namespace host
