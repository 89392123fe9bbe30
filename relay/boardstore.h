#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <QtGlobal>

#include "whiteboard/scene/itemversion.h"

#include <optional>
#include <tuple>

namespace relay {

// Where the relay keeps each board's current state: the owner, the last
// sequence number and, per live gid, the latest whole-item action; and the
// board's recent entries, what each committed message delivered, by sequence
// number. Several relay nodes may share one store: the entries are how a node
// learns, in the board's order, what the others accepted. The relay calls it
// from one thread only; an implementation may block.
class BoardStore
{
public:
    // Told what other nodes did to the boards being watched.
    class Observer
    {
    public:
        virtual ~Observer() = default;
        // The board has entries up to `sequence` (perhaps more).
        virtual void committedElsewhere(const QString& boardId, qint64 sequence) = 0;
        // A frame that is not stored (pointers, leaves) from another node.
        virtual void presenceElsewhere(const QString& boardId, const QByteArray& frame) = 0;
    };

    // The wire's (version, versionuser, versiondevice), held as the board
    // holds it (the wire's version is the clock); a peer without devices sends 0.
    using Version = whiteboard::ItemVersion;

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

    // One change of a board.
    struct Change
    {
        enum Kind { Put, Remove, ClearAll, ClearByAuthor };
        Kind kind = Put;
        Item item; // Put: the whole item; Remove: its gid
        qint64 author = 0; // ClearByAuthor
        // Clears: only items older than this go; none: every item goes.
        std::optional<Version> before;
    };

    // What one committed message delivered to the board's participants
    // besides its sender, who is named by `origin`. An empty frame holds the
    // place of a message that changed nothing.
    struct Entry
    {
        qint64 sequence = 0;
        QString origin;
        QByteArray frame; // a serialised TransferData
    };

    // One message as it is stored: its entry and its changes, the items put
    // by it replayed after those of earlier sequence numbers.
    struct Message
    {
        Entry entry;
        QList<Change> changes;
    };

    // Entries older than this many sequence numbers may be dropped: a node
    // that is further behind sends its participants back through a replay.
    static constexpr qint64 kEntriesKept = 10000;
    // And only as many of the newest as hold this many bytes: pictures would
    // otherwise keep a board's history large long after they are gone.
    static constexpr qint64 kEntriesBytesKept = 32 * 1024 * 1024;

    virtual ~BoardStore() = default;

    virtual bool open(QString* error) = 0;
    // Makes the data durable and releases the store.
    virtual void close() = 0;

    virtual Board board(const QString& boardId) = 0;
    // Creates the board unless it exists; the owner is whoever came first.
    virtual bool createBoard(const QString& boardId, qint64 owner) = 0;
    // The board's items in the order they were last stored; false when they
    // could not be read.
    virtual bool items(const QString& boardId, QList<Item>* items) = 0;
    virtual std::optional<Item> item(const QString& boardId, const QString& gid) = 0;
    // Begins the transaction of a batch of messages and holds the board until
    // commit() or rollback(), so that what is read in between is what the
    // messages are checked against on every node. Reserves the next `count`
    // sequence numbers for them and returns the board's sequence number
    // before those; -1 on failure (no transaction is open then). A rollback
    // gives the numbers back.
    virtual qint64 lock(const QString& boardId, int count) = 0;
    virtual void rollback() = 0;
    // Stores messages under the numbers lock() reserved, inside its
    // transaction: what is read afterwards sees them. False on failure; the
    // caller rolls back.
    virtual bool write(const QString& boardId, const QList<Message>& messages) = 0;
    // Ends the transaction begun by lock(); nobody may see what it wrote
    // before this returns. False when nothing was committed.
    virtual bool commit() = 0;
    // The board's entries after `after`, in their order; false when they
    // could not be read.
    virtual bool entries(const QString& boardId, qint64 after, QList<Entry>* entries) = 0;

    // Whether the connection to the database still answers, asked after a
    // failure. Once it does not, lost() holds until reopen() succeeds.
    virtual bool probe() { return true; }
    virtual bool lost() const { return false; }
    // Connects again after a loss, with what was watched.
    virtual bool reopen(QString* error)
    {
        close();
        return open(error);
    }

    // Several nodes: the store tells `observer` about the boards watched.
    // Alone (the default) nothing happens elsewhere.
    virtual bool isShared() const { return false; }
    virtual void setObserver(Observer* observer) { Q_UNUSED(observer); }
    virtual void watch(const QString& boardId) { Q_UNUSED(boardId); }
    virtual void unwatch(const QString& boardId) { Q_UNUSED(boardId); }
    // Hands a frame that is not stored to the other nodes of the board.
    virtual void publish(const QString& boardId, const QByteArray& frame) { Q_UNUSED(boardId); Q_UNUSED(frame); }
};

} // namespace relay
