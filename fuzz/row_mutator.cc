// Mutates the rows of hostile machines (machines.h) by what they mean: places new functions below
// the bridges that there are, and writes what registers of the standard may hold, in sense and
// nonsense: pointers of both capability lists that loop, overlap or end, bus numbers, header types,
// port types, payload sizes, ECRC bits, ARI and SR-IOV.
#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "fuzz/rows.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t *data, std::size_t size, std::size_t most);

namespace host::fuzz {
namespace {

class Mutator {
public:
    Mutator(Rows &parts, unsigned seed) : rows_(parts.rows), text_(parts.text), random_(seed) {}

    void mutate() {
        constexpr std::array STEPS = {
            &Mutator::add_function,    &Mutator::add_function, &Mutator::change_function,
            &Mutator::change_function, &Mutator::add_register, &Mutator::add_register,
            &Mutator::add_register,    &Mutator::add_order,    &Mutator::add_event,
            &Mutator::add_event,       &Mutator::remove_row,   &Mutator::copy_row,
            &Mutator::change_bytes,    &Mutator::change_text};
        for (unsigned n = 1 + below(4); n > 0; --n)
            (this->*pick(STEPS))();
    }

private:
    unsigned below(std::size_t limit) { return static_cast<unsigned>(random_() % limit); }

    template <typename List>
    typename List::value_type pick(const List &list) {
        return list[below(list.size())];
    }
    std::uint32_t one_of(std::initializer_list<std::uint32_t> values) {
        return values.begin()[below(values.size())];
    }

    void insert(const Row &row) { rows_.insert(rows_.begin() + below(rows_.size() + 1), row); }

    std::vector<Row *> rows_of(char kind) {
        std::vector<Row *> found;
        for (Row &row : rows_)
            if (row[0] == kind)
                found.push_back(&row);
        return found;
    }

    static std::uint8_t byte(unsigned value) { return static_cast<std::uint8_t>(value); }

    std::uint8_t port_type() { return byte(one_of({0, 0, 1, 4, 4, 5, 6, 6, 7, 8, 9, 10, 0xFF})); }

    // Adds an endpoint or a bridge on bus 0 or below a bridge, with bus numbers that fit there.
    void add_function() {
        std::vector<Row *> bridges = rows_of('F');
        std::erase_if(bridges, [](const Row *row) { return (*row)[4] == 0; });
        const bool on_root = bridges.empty() || below(3) == 0;
        const Row above = on_root ? Row{'F', 0, 0, 4, 0, 60} : *pick(bridges);
        Row row = {'F', above[4],       byte(one_of({0, 0, 1, 2, 8, 9, 16, 0xF8})), port_type(), 0,
                   0,   byte(below(6)), byte(one_of({0, 1, 1, 3, 9, 0x20, 0x21}))};
        if (below(2) == 0) {
            const unsigned first = above[4] + 1u + below(4);
            row[3] = on_root ? 4 : byte(above[3] == 5 ? 6 : one_of({5, 5, 7, 4}));
            row[4] = byte(first);
            row[5] = byte(std::max<unsigned>(first, above[5] - below(2)));
        }
        // A bridge before what is below it makes no difference, but is easier to read.
        rows_.push_back(row);
    }

    void change_function() {
        const std::vector<Row *> functions = rows_of('F');
        if (functions.empty())
            return add_function();
        Row &row = *pick(functions);
        const Row &other = *pick(functions);
        switch (below(8)) {
        case 0:
            row[1] = other[4 - 3 * below(2)];
            break;
        case 1:
            row[2] = byte(row[2] ^ 1u << below(8));
            break;
        case 2:
            row[3] = port_type();
            break;
        case 3:
            row[4] = byte(other[4] + below(3) - 1);
            break;
        case 4:
            row[5] = byte(other[5] + below(3) - 1);
            break;
        case 5:
            row[6] = byte(below(8));
            break;
        case 6:
            row[7] = byte(row[7] ^ 1u << below(8));
            break;
        default:
            std::swap(row[2], rows_of('F').front()->at(2));
        }
    }

    std::uint32_t capability() { return one_of({0x40, 0x40, 0x48, 0x50, 0x80, 0xA0, 0xF4, 0xFC}); }
    std::uint32_t extended() {
        return one_of({0x100, 0x100, 0x104, 0x148, 0x150, 0x200, 0x274, 0xFF8, 0xFFC});
    }

    std::uint32_t capability_header() {
        const std::uint32_t id =
            one_of({CAPID_PCIE, CAPID_PCIE, CAPID_MSI, CAPID_MSIX, 0, 1, 0xFF});
        return id | one_of({0, capability(), 0x40, 0x3C}) << 8 | one_of({1, 2, 2, 2}) << 16 |
               std::uint32_t{port_type()} << 20;
    }

    std::uint32_t extended_header() {
        const std::uint32_t id =
            one_of({EXT_CAPID_AER, EXT_CAPID_ARI, EXT_CAPID_SRIOV, EXT_CAPID_RCEC, 0, 0xFFFF});
        return id | 1u << 16 | one_of({0, extended(), 0x100, 0xFC}) << 20;
    }

    std::uint32_t bus_numbers() {
        return below(8) | below(12) << 8 | one_of({0, 1, 5, 9, 255}) << 16;
    }

    // Writes a register of the function that the rows before are about.
    void add_register() {
        const std::uint32_t at = extended();
        const std::uint32_t pcie = capability();
        struct Register {
            std::uint32_t offset, value;
        };
        const std::array<Register, 15> registers = {{
            {0x00, one_of({0xFFFF'FFFF, 0x0000'8086, 0x0001'FFFF})},
            {0x04, one_of({0, 0x0010'0000, 0x00A0'0007})},
            {0x08, one_of({0x06'0400, 0x06'0000, 0x02'0000, 0x06'0401, 0x06'0700}) << 8},
            {0x0C, one_of({0, 1, 2, 0x80, 0x81, 0x82, 0x7F}) << 16},
            {0x18, bus_numbers()},
            {one_of({0x34, 0x14}), capability()},
            {pcie, capability_header()},
            {pcie + pci::DEVCAP, below(8)},
            {pcie + pci::DEVCTL, below(8) << 5 | 0x2810},
            {pcie + pci::DEVCTL2, one_of({0, pci::DEVCTL2_ARI_FORWARDING})},
            {at, extended_header()},
            {at + pci::AER_CONTROL, below(16) << 5},
            {at + pci::ARI_CAPABILITY / 4 * 4, below(32) << 8},
            {at + pci::SRIOV_CONTROL / 4 * 4, 1},
            {at + pci::SRIOV_NUM_VFS / 4 * 4 + 4 * below(2), below(4) | below(3) << 16},
        }};
        const Register chosen = pick(registers);
        Row row = {'D', 0, byte(chosen.offset / 4), byte(chosen.offset / 4 >> 8)};
        for (unsigned i = 0; i < 4; ++i)
            row[4 + i] = byte(chosen.value >> 8 * i);
        insert(row);
    }

    void add_order() {
        const std::uint8_t n = byte(below(one_of({4, 16, 64})));
        switch (below(10)) {
        case 0:
            return insert({'X', n, 0, byte(one_of({0, 5, 19}))});
        case 1:
            return insert({'A', n});
        case 2:
            return insert({'S', n});
        case 4:
            return insert({'C'});
        case 3:
            return rows_.insert(rows_.begin(), 1, Row{'E', n}), void();
        case 5:
        case 6:
            return insert({'V', n});
        default:
            return insert({'G', n});
        }
    }

    // Events come in the order of their rows: behind the others, or anywhere among them.
    void add_event() {
        const std::uint8_t flags = byte(one_of({0, 0, 0, 1, 2, 4, 5}));
        const Row row = {
            'P',           byte(below(one_of({4, 16}))), byte(below(5)), byte(below(8)), flags,
            byte(below(2))};
        below(2) == 0 ? insert(row) : rows_.push_back(row);
    }

    void remove_row() {
        if (!rows_.empty())
            rows_.erase(rows_.begin() + below(rows_.size()));
    }

    void copy_row() {
        if (!rows_.empty())
            insert(pick(rows_));
    }

    void change_bytes() {
        if (!rows_.empty())
            LLVMFuzzerMutate(rows_[below(rows_.size())].data(), ROW, ROW);
    }

    // Names a function that is there, or one beside it.
    std::string address() {
        const std::vector<Row *> functions = rows_of('F');
        const Row row = functions.empty() ? Row{} : *pick(functions);
        const unsigned bus = row[1] + below(8) / 7, number = row[2] ^ below(8) / 7;
        const bool is_ari = below(3) == 0;
        return std::to_string(bus) + "." +
               (is_ari ? std::to_string(number)
                       : std::to_string(number >> 3) + "." + std::to_string(number & 7));
    }

    void add_line() {
        constexpr std::array<std::string_view, 10> SIZES = {"max",  "max",  "128",  "256", "512",
                                                            "1024", "2048", "4096", "384", "0x100"};
        constexpr std::array<std::string_view, 8> SETTINGS = {
            ":+:+", ":-:-", ":=:+", ":+:=", ":=:-", ":-:=", ":+:-", ":=:="};
        std::string line = "ECRC=all";
        if (below(2) == 0)
            line = "MPS=" + (below(3) == 0 ? "all" : address()) + ":" + std::string(pick(SIZES));
        else if (below(4) == 0)
            line += pick(SETTINGS);
        else {
            line = "ECRC=" + address();
            if (below(2) == 0)  // fewer numbers, or any last one
                line.resize(line.rfind('.') + below(2));
            line += line.back() == '.' ? "*" : "";
            line += pick(SETTINGS);
        }
        line += '\n';
        text_.insert(text_.begin() + (below(2) == 0 ? 0 : static_cast<int>(text_.size())),
                     line.begin(), line.end());
    }

    void change_text() {
        constexpr std::size_t ROOM = 64;
        if (below(2) == 0)
            return add_line();
        const std::size_t size = text_.size();
        text_.resize(size + ROOM);
        text_.resize(LLVMFuzzerMutate(text_.data(), size, size + ROOM));
    }

    std::vector<Row> &rows_;
    std::vector<std::uint8_t> &text_;
    std::minstd_rand random_;
};

}  // namespace
}  // namespace host::fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t *data, std::size_t size,
                                               std::size_t most, unsigned seed) {
    host::fuzz::Rows parts = host::fuzz::split_rows({data, size});
    host::fuzz::Mutator(parts, seed).mutate();
    return host::fuzz::join(parts, {data, most});
}

// Takes the first rows of one input and the last ones of the other.
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t *data1, std::size_t size1,
                                                 const std::uint8_t *data2, std::size_t size2,
                                                 std::uint8_t *out, std::size_t most,
                                                 unsigned seed) {
    std::minstd_rand random(seed);
    host::fuzz::Rows parts = host::fuzz::split_rows({data1, size1});
    host::fuzz::Rows other = host::fuzz::split_rows({data2, size2});
    parts.rows.resize(random() % (parts.rows.size() + 1));
    const auto first = static_cast<std::ptrdiff_t>(random() % (other.rows.size() + 1));
    parts.rows.insert(parts.rows.end(), other.rows.begin() + first, other.rows.end());
    if (random() % 2 == 0)
        parts.text = other.text;
    return host::fuzz::join(parts, {out, most});
}
