// The steps of judge(), one for each keyword.
#pragma once

#include <string>
#include <vector>

#include "host/report/request_report.h"
#include "host/requests/view.h"

namespace host {

// A request, and the report to complete, whose status is REACHED.
template <typename Request>
struct Judged {
    Request request;
    RequestReport &report;
    std::string impossible;  // why no function can take it; empty when some may
};

// Complete the reports. Later requests replace earlier ones for the same function.
void judge_requests(const std::vector<Judged<MpsRequest>> &requests, const MachineView &view);
void judge_requests(const std::vector<Judged<EcrcRequest>> &requests, const MachineView &view);

// Sets the status, and as its reason what the functions that the report lists hold, and why.
void set_outcome(RequestReport &report, RequestStatus status, const std::string &why,
                 const MachineView &view);

// Returns why a named function cannot be asked for anything: it has been removed, or is not
// managed. Empty for others.
std::string out_of_reach(const MachineView &view, bdf_t bdf);

// Returns the index of a row of the report.
std::size_t index_of(const MachineView &view, const FunctionReport &row);

// Returns why a function's hierarchy is left alone; empty when it is not.
std::string left_alone(const MachineView &view, std::size_t function);

}  // namespace host
