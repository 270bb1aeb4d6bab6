#include "host/requests/numbers.h"
#include "host/requests/values.h"

namespace host {

Request read_request(const FeatureLine &line, const Machine *machine, Remarks &remarks) {
    Request request;
    if (!line.counts())
        return request;
    if (line.row == enable_features::ROW_FB2B || line.row == enable_features::ROW_ASPM)
        remarks.note(line.number, "the keyword has no effect in this version");
    else if (is_lspci_form(line.value, machine, line.number, remarks))
        return request;
    else if (line.row == enable_features::ROW_MPS)
        request.mps = read_mps(line, remarks);
    else
        request.ecrc = read_ecrc(line, remarks);
    return request;
}

}  // namespace host
