#include "relay/relaylog.h"

namespace relay {

Q_LOGGING_CATEGORY(lcRelay, "whiteboard.relay")

} // namespace relay
