// The content of the reports about the lines of feature files: what was requested and reached.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace host {

enum class RequestStatus {
    REACHED,      // the registers of all that can be set hold what the line asks for
    REPLACED,     // later lines ask for something else, wherever this one asks for something
    PARTLY_READ,  // reached, but a part of the line is not read
    NOT_REACHED,  // the registers hold something else
    REFUSED,      // likewise, because the function or its path cannot take it
    DROPPED       // the module takes nothing from the line, or finds no function for it
};

inline constexpr std::array REQUEST_STATUSES = {
    RequestStatus::REACHED,     RequestStatus::REPLACED, RequestStatus::PARTLY_READ,
    RequestStatus::NOT_REACHED, RequestStatus::REFUSED,  RequestStatus::DROPPED};

// Returns true when users are told with --strict.
constexpr bool is_fault(RequestStatus status) {
    return status > RequestStatus::REPLACED;
}

// Returns "not_reached", which stays the same for programs.
const char *status_word(RequestStatus status);

// The settings that a line asks of a function. Its own report tells which are reached.
struct RequestedFunction {
    std::size_t function = 0;  // index
    std::optional<unsigned> payload_size{};
    std::optional<bool> generation{};
    std::optional<bool> checking{};
};

struct RequestReport {
    std::string file{};
    std::size_t line = 0;    // 0: the whole file, of which nothing can be read
    std::string text{};      // the line
    std::string keyword{};   // empty when there is none
    std::string value{};     // likewise
    std::string asked{};     // in words; empty where that cannot be told
    bool is_named = false;   // it names functions, not all
    bool is_absent = false;  // there is none of these
    RequestStatus status = RequestStatus::REACHED;
    std::string reason{};      // empty when the line is reached as a whole
    std::size_t selected = 0;  // the functions that the line still decides on
    std::size_t reached = 0;   // those of them that hold what it asks for
    // Those that do not, ports above them among them; of a line for one function all of them.
    std::vector<RequestedFunction> functions{};
};

}  // namespace host
