// The process that serves one domain, as its parent sees it.
#pragma once

#include <sys/types.h>

#include <functional>

#include "host/base/descriptor.h"

namespace host {

class DomainServer {
public:
    // `work` runs in the child and returns its exit status. It calls its argument when all input
    // has been read, and does nothing more when that gives false.
    using Ready = std::function<bool()>;
    using Work = std::function<int(const Ready &ready)>;

    // Throws std::system_error. No other thread may run.
    explicit DomainServer(const Work &work);

    // Waits for the child, and returns false when it has ended instead of becoming ready.
    bool is_ready() const;

    // Lets the child do its work.
    void start() const;

    // Waits until the child has ended, which one that has not been started does at once, and
    // returns how, as waitpid() tells it.
    int wait();

    // Returns true when the work was done, whatever its status; known after wait().
    bool has_finished() const { return has_finished_; }

private:
    Descriptor to_child_;
    pid_t child_ = -1;
    bool has_finished_ = false;
};

}  // namespace host
