#include "module/base/managed.h"

#include "module/base/log.h"
#include "platform/server.h"

namespace enable_features {

bool skip_unmanaged(const char *caller, bdf_t bdf) {
    const std::uint32_t server_id = my_server_id() & 0xFF;
    if (server_id == (hoplar_get_id(bdf) & 0xFF))
        return false;
    LOG_DEBUG(4, "%s(), B%u:D%u:F%u is not managed by server ID %u, skipping", caller,
              BDF_ARGS(bdf), server_id);
    return true;
}

}  // namespace enable_features
