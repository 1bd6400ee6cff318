#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace tarnbridge {

// An error whose message is a finished sentence meant for the user, shown as it stands.
class TarnbridgeError : public std::runtime_error {
public:
    explicit TarnbridgeError(const std::string& message) : std::runtime_error(message) {}
};

// "Stopped on request". Not a failure: callers test for it by type and never show it.
class CancellationError : public std::exception {
public:
    const char* what() const noexcept override { return "cancelled"; }
};

// A failed system call, carrying errno; what() is the system's own text (strerror).
std::system_error systemError(int code);
// The same with what it was doing: "Could not save /a/b: No such file or directory."
std::system_error systemError(int code, const std::string& doing);

// The text a person sees for an exception: our sentence, or the system's description.
std::string describeError(const std::exception& error);

} // namespace tarnbridge
