// The hierarchies of the model: payload sizes and ECRC settings as the lines of feature files, and
// what happens afterwards, give them to a machine.
#pragma once

#include <map>
#include <set>
#include <vector>

#include "fuzz/model_machine.h"

namespace host::fuzz::model {

class Hierarchies : public Machine {
public:
    Hierarchies(const Spaces &before, const std::vector<bool> &managed, bool complete)
        : Machine(before, managed), complete_(complete) {
        list_devices();
    }

    static bool is_size(std::uint32_t size) {
        return size >= 128 && size <= LARGEST && size % 128 == 0;
    }

    // An endpoint device's line, or one for all.
    void request(bdf_t bdf, std::uint32_t size);
    // A function's line: 1 is on, -1 off, 0 no change.
    void record(bdf_t bdf, int generation, int checking);

    void start();
    bool play(const Event &event);
    bool swap(RoutingId id, const std::vector<std::uint8_t> &bytes);

private:
    struct Device {
        unsigned bus, device;  // ARI devices: device 0
        bool ari;
        std::uint32_t request = 0;
    };
    struct Wish {
        bdf_t bdf;  // as the line names it
        int generation = 0, checking = 0;
        unsigned aer = 0;      // where the function has the capability at first
        unsigned capable = 0;  // of what, at first
    };

    void list_devices();
    Device *device_of(bdf_t bdf);

    bool write(Node &node, unsigned size);
    bool write_device(const Device &device, unsigned size);
    bool write_ari_functions(Node *node, unsigned size);
    bool program(const Device &device, unsigned size);
    void program_payloads();
    void settle();
    void lower_what_is_above_its_port();
    void apply(const Wish &wish);

    void complete_all();
    bool has_one_size(Node &root);
    void complete(Node &root);
    bool can_complete(Node &top, const std::set<Node *> &group, unsigned size);
    bool is_claimed_twice(const Node &top);

    void reset_below(const Node &bridge);
    void after_function_reset(Node &node);
    void after_bus_reset(Node &node);
    void after_insertion(const Node &bridge, unsigned value);
    void set_ecrc_on(const std::function<bool(Node &)> &is_there);
    void after_root_bus_insertion(unsigned bus);
    bool is_above_given_size(const Node &node);
    bool has_bridges(const Node &bridge);
    Node *bridge_for(Node &node);

    const bool complete_;
    std::vector<Device> devices_;
    std::map<Node *, unsigned> sizes_;  // what has been programmed, by root port
    std::vector<Wish> wishes_;
    std::map<Node *, unsigned> given_;  // by the module; the last size, as long as it is there
    std::set<Node *> recent_;           // given one since the last completion
};

}  // namespace host::fuzz::model
