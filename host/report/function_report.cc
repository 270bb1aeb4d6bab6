#include "host/report/function_report.h"

namespace host {

std::optional<std::size_t> root_port_of(const std::vector<FunctionReport> &functions,
                                        std::size_t function) {
    std::size_t index = function;
    while (functions[index].bridge)
        index = *functions[index].bridge;
    const Function &top = functions[index].function;
    if (!top.is_bridge() || top.port_type != PORT_TYPE_ROOT_PORT)
        return std::nullopt;
    return index;
}

std::optional<std::size_t> port_above(const std::vector<FunctionReport> &functions,
                                      std::size_t function) {
    auto above = functions[function].bridge;
    while (above && !functions[*above].function.port_type)
        above = functions[*above].bridge;
    return above;
}

}  // namespace host
