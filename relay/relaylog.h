#pragma once

#include <QLoggingCategory>

namespace relay {

// "whiteboard.relay": one line per connection, refusal and error.
Q_DECLARE_LOGGING_CATEGORY(lcRelay)

// From here on every log line goes to standard error as one JSON object
// (time, level, category, message), for log shippers.
void installJsonLog();

} // namespace relay
