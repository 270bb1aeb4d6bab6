// Works out from the rules alone what a feature file, and what happens afterwards, should make of a
// machine: the whole machine is looked through again for each question, and nothing of the program
// is used but the names of registers.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "host/base/address.h"

namespace host::fuzz {

using Spaces = std::map<RoutingId, std::vector<std::uint8_t>>;

namespace model {

class Hierarchies;

// An event as the line of a file tells it.
struct Event {
    std::string_view word;
    RoutingId id;                   // the function that is named
    std::optional<unsigned> value;  // of an insertion, when there is one
    unsigned status;
};

}  // namespace model

class Model {
public:
    // The machine after start-up. `managed` has 256 buses; `complete` is --complete.
    Model(const Spaces &before, const std::vector<bool> &managed, std::string_view features,
          bool complete);
    ~Model();

    // Returns false, and changes nothing, when the line has to be refused.
    bool play(const model::Event &event);

    // Another function comes to an address. Returns false, and changes nothing, where the model
    // does not know the rules.
    bool swap(RoutingId id, const std::vector<std::uint8_t> &bytes);

    // Returns every function's bytes as they should be now.
    Spaces spaces() const;

    // Returns false where no rule says what a reset leaves, because registers overlap.
    bool knows_resets() const;

private:
    std::unique_ptr<model::Hierarchies> machine_;
};

}  // namespace host::fuzz
