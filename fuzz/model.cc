#include "fuzz/model.h"

#include "fuzz/model_hierarchies.h"
#include "fuzz/model_lines.h"

namespace host::fuzz {

Model::Model(const Spaces &before, const std::vector<bool> &managed, std::string_view features,
             bool complete)
    : machine_(std::make_unique<model::Hierarchies>(before, managed, complete)) {
    model::take_lines(*machine_, features);
    machine_->start();
}

Model::~Model() = default;

bool Model::play(const model::Event &event) {
    return machine_->play(event);
}

bool Model::swap(RoutingId id, const std::vector<std::uint8_t> &bytes) {
    return machine_->swap(id, bytes);
}

Spaces Model::spaces() const {
    return machine_->spaces();
}

bool Model::knows_resets() const {
    return machine_->knows_resets();
}

}  // namespace host::fuzz
