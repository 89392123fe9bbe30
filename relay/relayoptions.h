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
    // Item actions and clears, counted one by one however many frames they
    // come in: a sustained rate per second and a burst on top of it; beyond
    // the burst the connection closes with 1008.
    static constexpr int kDefaultActionRate = 200;
    static constexpr int kDefaultActionBurst = 2000;
    // Bytes per second a connection may send, sustained, with a burst of the
    // larger of one second's worth and one largest message; beyond it the
    // connection closes with 1008.
    static constexpr qint64 kDefaultByteRate = 4 * 1024 * 1024;
    // Joins per connection and minute: each costs a read and a replay of the
    // whole board. Beyond them the connection closes with 1008.
    static constexpr int kDefaultJoinsPerMinute = 10;
    // Refused actions per connection: each sends the sender a correction, so
    // a sender that keeps being refused closes with 1008 after this burst
    // (refilled at kRefusalRate per second).
    static constexpr int kDefaultRefusalBurst = 50;
    static constexpr int kRefusalRate = 5;
    // Connections at once, per account and per peer address (pending
    // handshakes included for the address); more are refused with 1008.
    static constexpr int kDefaultConnectionsPerAccount = 16;
    static constexpr int kDefaultConnectionsPerAddress = 256;
    // A connection must finish its WebSocket handshake within this time, with
    // a token or not, or it is dropped.
    static constexpr int kDefaultHandshakeMs = 10000;
    // A board holds at most this many items, and this many bytes of them;
    // an add beyond either is refused ("board-full"). The bytes stay below
    // the backlog limit so that a whole replay fits in it.
    static constexpr int kDefaultMaxBoardItems = 100000;
    static constexpr qint64 kDefaultMaxBoardBytes = 48 * 1024 * 1024;
    // A join answer holds at most this many items, or about this many bytes,
    // per `multi` batch.
    static constexpr int kDefaultReplayBatchItems = 64;
    static constexpr qint64 kReplayBatchBytes = 1024 * 1024;
    // Bytes waiting to go to one participant, its replays and corrections
    // included; a participant that falls this far behind is closed with 1013
    // and comes back through a replay.
    static constexpr qint64 kDefaultMaxBacklogBytes = 64 * 1024 * 1024;
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
    qint64 byteRate = kDefaultByteRate;
    int joinsPerMinute = kDefaultJoinsPerMinute;
    int refusalBurst = kDefaultRefusalBurst;
    int connectionsPerAccount = kDefaultConnectionsPerAccount;
    int connectionsPerAddress = kDefaultConnectionsPerAddress;
    int handshakeMs = kDefaultHandshakeMs;
    int maxBoardItems = kDefaultMaxBoardItems;
    qint64 maxBoardBytes = kDefaultMaxBoardBytes;
    qint64 maxBacklogBytes = kDefaultMaxBacklogBytes;
    // Empty: connections need no token.
    QByteArray secret;
};

} // namespace relay
