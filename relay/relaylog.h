#pragma once

#include <QLoggingCategory>

namespace relay {

// "whiteboard.relay": one line per connection, refusal and error.
Q_DECLARE_LOGGING_CATEGORY(lcRelay)

} // namespace relay
