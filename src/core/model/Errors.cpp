#include "model/Errors.h"

#include <cstring>

namespace tarnbridge {

namespace {
// std::system_category's message() already is strerror(); this category only drops the
// "what: " prefix that std::system_error adds, so what() is exactly the system's text.
class PlainSystemCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "system"; }
    std::string message(int code) const override { return std::strerror(code); }
};
const PlainSystemCategory plainSystemCategory;
} // namespace

std::system_error systemError(int code)
{
    if (code <= 0)
        code = EIO;
    return std::system_error(code, plainSystemCategory);
}

std::system_error systemError(int code, const std::string& doing)
{
    if (code <= 0)
        code = EIO;
    return std::system_error(code, plainSystemCategory, doing);
}

std::string describeError(const std::exception& error)
{
    if (const auto* system = dynamic_cast<const std::system_error*>(&error)) {
        std::string text = system->what();
        const std::string plain = system->code().message();
        // With what it was doing in front, the text is a sentence of its own.
        if (text != plain && !text.empty() && text.back() != '.')
            text += '.';
        return text;
    }
    return error.what();
}

} // namespace tarnbridge
