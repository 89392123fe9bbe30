#pragma once

#include <QtGlobal>

#include <tuple>

namespace whiteboard {

// The version a change carries, ordered as every board and the relay order
// it: the Lamport clock first, then the user and the device that made the
// change, so that two changes stamped alike on two devices still differ.
// Shared by the board and the relay, which must agree on it exactly.
struct ItemVersion
{
    qint64 clock = 0;
    qint64 user = 0;
    qint64 device = 0;
    bool operator<(const ItemVersion& other) const
    {
        return std::tie(clock, user, device) < std::tie(other.clock, other.user, other.device);
    }
};

} // namespace whiteboard
