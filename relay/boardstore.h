#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <QtGlobal>

#include <optional>

namespace relay {

// Where the relay keeps each board's current state: the owner, the last
// sequence number and, per live gid, the latest whole-item action. The relay
// calls it from one thread only; an implementation may block.
class BoardStore
{
public:
    // A clock value of the convergence fields: (version, versionuser).
    struct Version
    {
        qint64 version = 0;
        qint64 user = 0;
        bool operator<(const Version& other) const
        {
            return version < other.version || (version == other.version && user < other.user);
        }
    };

    struct Item
    {
        QString gid;
        qint64 author = 0;
        std::optional<Version> version;
        // A serialised SingleWhiteboardData holding the item as an add.
        QByteArray envelope;
    };

    struct Board
    {
        bool exists = false;
        qint64 owner = 0;
        qint64 sequence = 0;
    };

    // One change of a board; a commit applies a list of them in one
    // transaction.
    struct Change
    {
        enum Kind { Put, Remove, ClearAll, ClearByAuthor };
        Kind kind = Put;
        Item item; // Put: the whole item; Remove: its gid
        qint64 author = 0; // ClearByAuthor
        // Clears: only items older than this go; none: every item goes.
        std::optional<Version> before;
    };

    virtual ~BoardStore() = default;

    virtual bool open(QString* error) = 0;
    // Makes the data durable and releases the store.
    virtual void close() = 0;

    virtual Board board(const QString& boardId) = 0;
    virtual bool createBoard(const QString& boardId, qint64 owner) = 0;
    // The board's items in the order they were last stored.
    virtual QList<Item> items(const QString& boardId) = 0;
    virtual std::optional<Item> item(const QString& boardId, const QString& gid) = 0;
    // Applies the changes in one transaction under the board's next sequence
    // number, which it returns; -1 when nothing was committed. Nobody may see
    // the changes before this returns.
    virtual qint64 commit(const QString& boardId, const QList<Change>& changes) = 0;
};

} // namespace relay
