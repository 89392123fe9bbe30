#pragma once

#include <QtGlobal>

#include <algorithm>

namespace whiteboard {

// How far a received version may run ahead of the clock of the board (or
// relay) that receives it. Honest clocks are Lamport clocks: each change is
// stamped one past the highest version its board has seen, so it runs ahead
// of any other clock by the changes made since the two last met, never by
// billions. A version beyond the bound is a forgery meant to put every later
// change behind it; it is dropped where it enters. The clock itself is held
// below kCeiling + kLead by the same rule, so `++clock` never overflows, and
// a board at the ceiling still has 2^32 changes of room.
class VersionBound
{
public:
    static constexpr qint64 kLead = qint64(1) << 32;
    static constexpr qint64 kCeiling = qint64(1) << 62;

    // Whether `version` may enter where the clock stands at `clock`.
    static constexpr bool admits(qint64 clock, qint64 version)
    {
        return version <= std::min(clock, kCeiling) + kLead;
    }
    // Whether `version` may enter a board whose clock is not known to be the
    // board's: a joining board learns the clock only from its replay, which
    // need not hold the change that moved it (removed, or cleared), so it
    // holds received versions to the ceiling alone; the relay holds them to
    // its clock.
    static constexpr bool belowEnd(qint64 version) { return admits(kCeiling, version); }
    // The version one past `version`, held at the largest one any clock
    // admits: never an overflow, whatever was received.
    static constexpr qint64 after(qint64 version) { return std::min(version, kCeiling + kLead - 1) + 1; }
};

} // namespace whiteboard
