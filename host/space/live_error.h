// The error that live hardware cannot be used.
#pragma once

#include <stdexcept>

namespace host {

// what() is for the user.
class LiveError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace host
