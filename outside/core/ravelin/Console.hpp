// A message for the user that does not travel in a result text.  Each Console
// object takes one message and writes it when it ends.  By default the text
// goes to stderr followed by a line feed; setSink() redirects every later message.
#pragma once

#include "ravelin/Export.hpp"

#include <functional>
#include <string>

namespace Ravelin {

class RAVELIN_API Console {
public:
    using Sink = std::function<void(const std::string&)>;

    Console() = default;
    explicit Console(const std::string& text) : message_(text) {}
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    Console& operator<<(const std::string& text) {
        message_ += text;
        return *this;
    }

    // Installs a sink; an empty one restores stderr.  Returns the previous sink.
    static Sink setSink(Sink sink);

private:
    std::string message_;
};

}  // namespace Ravelin
