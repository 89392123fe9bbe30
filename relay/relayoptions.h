#pragma once

#include <QByteArray>
#include <QString>

#include <QtGlobal>

namespace relay {

// What the relay lets in and how it answers, with the defaults the program
// starts with. Every limit on what enters the relay stands here.
struct RelayOptions
{
    // Largest frame a participant may send; a larger one closes the
    // connection with 1009.
    static constexpr qint64 kDefaultMaxMessageBytes = 8 * 1024 * 1024;
    // Pointer positions per second and connection; the rest are dropped.
    static constexpr int kDefaultPointerRate = 60;
    // Messages with item actions or clears: a sustained rate per second and a
    // burst on top of it; beyond the burst the connection closes with 1008.
    static constexpr int kDefaultActionRate = 200;
    static constexpr int kDefaultActionBurst = 2000;
    // A join answer holds at most this many items, or about this many bytes,
    // per `multi` batch.
    static constexpr int kDefaultReplayBatchItems = 64;
    static constexpr qint64 kReplayBatchBytes = 1024 * 1024;
    // Bytes waiting to go to one participant; a participant that falls this
    // far behind is closed with 1013 and comes back through a replay.
    static constexpr qint64 kMaxBacklogBytes = 64 * 1024 * 1024;
    // Messages with changes of one board stored in one transaction at most.
    static constexpr int kMaxBatchMessages = 256;
    // Messages of one board waiting for the database; beyond them a sender
    // is closed with 1013 (the database does not keep up, or is away).
    static constexpr qint64 kMaxWaitingMessages = 20000;
    // Longest board id, and the range of account ids, in a connection's URL.
    static constexpr int kMaxBoardIdLength = 200;
    static constexpr int kMaxUserNameLength = 200;
    // A board without participants stays loaded this long (seconds), so
    // that a quick rejoin costs no reload; 0 unloads it at once.
    static constexpr int kDefaultBoardIdleSeconds = 60;
    // The admin endpoint: the largest request head, the time a client has
    // to send it, and the connections served at once (more wait unaccepted).
    static constexpr int kMaxAdminRequestBytes = 8 * 1024;
    static constexpr int kAdminHeaderDeadlineMs = 5000;
    static constexpr int kMaxAdminConnections = 16;

    qint64 maxMessageBytes = kDefaultMaxMessageBytes;
    int pointerRate = kDefaultPointerRate;
    int actionRate = kDefaultActionRate;
    int actionBurst = kDefaultActionBurst;
    int replayBatchItems = kDefaultReplayBatchItems;
    int boardIdleSeconds = kDefaultBoardIdleSeconds;
    // Empty: connections need no token.
    QByteArray secret;
};

} // namespace relay
