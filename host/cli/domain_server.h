// The process that serves one domain, as its parent sees it.
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "host/base/descriptor.h"

namespace host {

class DomainServer {
public:
    // `work` runs in the child and returns its exit status. It calls `ready` when all input has
    // been read, and does nothing more when that gives false. A child that stays takes lines from
    // the connection `parent` then.
    using Ready = std::function<bool()>;
    using Work = std::function<int(const Ready &ready, int parent)>;

    // Throws std::system_error. No other thread may run.
    explicit DomainServer(const Work &work);

    // Waits for the child, and returns false when it has ended instead of becoming ready.
    bool is_ready() const;

    // Lets the child do its work.
    void start() const;

    // Becomes readable when the child has ended, once it is ready.
    int descriptor() const { return to_child_.number(); }

    // Sends a line, and waits for the line that the child's Service answers. Returns nullopt when
    // the child has ended.
    std::optional<std::string> ask(const std::string &line);

    // Tells a child that stays to end.
    void end() const;

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
