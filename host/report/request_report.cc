#include "host/report/request_report.h"

#include <array>

namespace host {

const char *status_word(RequestStatus status) {
    constexpr std::array WORDS = {"reached",     "replaced", "partly_read",
                                  "not_reached", "refused",  "dropped"};
    return WORDS[static_cast<std::size_t>(status)];
}

}  // namespace host
