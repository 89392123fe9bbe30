#pragma once

#include "relay/boardstore.h"
#include "relay/relayoptions.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <deque>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace im::whiteboard {
class GraphicAction;
class SingleWhiteboardData;
class TransferData;
class UserAction;
class UserOperation;
class WhiteboardData;
} // namespace im::whiteboard

namespace relay {

class Participant;

// One board while anybody is connected to it here: its participants, its
// owner, the author and version of each live item, and the one order in which
// its messages are stored and then delivered. Everything runs on the relay's
// one thread. Messages with changes wait in a queue that is stored in
// batches, one transaction each, so that a store far away costs a few round
// trips per batch rather than per message, and the sockets are served between
// batches. The store gives each message the board's next sequence number
// while it holds the board (other nodes may share it), and the session
// delivers the board's entries to its participants in that order, each once:
// its own as it commits them, the other nodes' as it reads them.
class BoardSession : public QObject
{
    Q_OBJECT

public:
    BoardSession(const QString& boardId, BoardStore* store, const RelayOptions& options, QObject* parent = nullptr);
    ~BoardSession() override;

    QString boardId() const { return m_boardId; }
    qint64 owner() const { return m_owner; }
    int participantCount() const { return int(m_participants.size()); }
    bool exists() const { return m_exists; }
    qint64 waitingCount() const { return qint64(m_waiting.size()); }

    // Reads the board's owner and item authors from the store.
    bool load();
    // Takes the participant in; the first one of a new board becomes its
    // owner. It receives the board's traffic once its join is answered.
    void add(Participant* participant);
    // Closes every connection with "going away".
    void closeAll();
    // The board was deleted from the store: every connection is closed with
    // 1008 "board-deleted", so that clients do not come back to it.
    void closeDeleted();
    // Stores every waiting message now, unless the store is away.
    void storeWaiting();
    // Delivers the entries other nodes committed, up to `sequence` at least.
    void catchUp(qint64 sequence);
    // Another node committed up to `sequence`: read soon, once for many.
    void announce(qint64 sequence);
    // The store is back after a loss: what it holds is read again and the
    // waiting messages are stored.
    void resume();
    // A pointer or leave from another node, for the participants here.
    void deliverPresence(const QByteArray& frame);

signals:
    // The last participant has gone; the session may be dropped.
    void idle(relay::BoardSession* session);
    // The store did not answer: the messages wait until resume().
    void storageLost();

private:
    // What one message leads to: the changes to commit, the envelopes that go
    // on to the others, and what goes back to correct boards.
    struct Outcome
    {
        QList<BoardStore::Change> changes;
        QList<const im::whiteboard::SingleWhiteboardData*> forward;
        QList<QByteArray> toSender; // envelopes
        QList<QByteArray> toOthers; // envelopes
        // A correction's version for the others: an entry of the board even
        // though nothing is stored, so that every node delivers it in order.
        bool ordered = false;
    };
    struct ItemState
    {
        qint64 author = 0;
        std::optional<BoardStore::Version> version;
        qint64 bytes = 0; // of its stored envelope
    };
    // A message waiting to be stored, with its envelopes' bodies parsed.
    struct Waiting
    {
        // Drained before its participant goes (see onDisconnected).
        Participant* from = nullptr;
        std::unique_ptr<im::whiteboard::TransferData> message;
        std::vector<im::whiteboard::WhiteboardData> bodies;
    };
    // A checked message of a batch: what it sends once the batch commits.
    struct Checked
    {
        Participant* from = nullptr;
        qint64 sequence = 0;
        QByteArray onward;
        bool stored = false; // onward goes as an entry, else as presence
        QList<QByteArray> toSender; // envelopes
    };

    void onMessage(Participant* from, im::whiteboard::TransferData* message);
    void onDisconnected(Participant* participant);
    void answerJoin(Participant* participant);

    // A received item action, as the checks read it.
    struct ItemAction
    {
        Participant* from = nullptr;
        const im::whiteboard::SingleWhiteboardData& envelope;
        const im::whiteboard::GraphicAction& action;
        QString gid;
        int type = 0;
        qint64 author = 0;
        std::optional<BoardStore::Version> version;
    };

    void handleAction(Participant* from, const im::whiteboard::SingleWhiteboardData& envelope,
                      const im::whiteboard::WhiteboardData& body, Outcome& outcome);
    // An add of a gid the board does not hold.
    void addItem(const ItemAction& item, Outcome& outcome);
    // An update, removal or second add of `known`, or of a gid gone (null).
    void changeItem(const ItemAction& item, const ItemState* known, Outcome& outcome);
    void handleOperation(Participant* from, const im::whiteboard::SingleWhiteboardData& envelope,
                         const im::whiteboard::UserOperation& operation, Outcome& outcome);
    bool admitPresence(Participant* from, const im::whiteboard::UserAction& action);
    // Every refusal comes through here: logs one line with `reason`, a short
    // stable token ("not-owner", "version-ahead", ...), and counts it against
    // the sender's refusals; false when the sender was closed for too many.
    bool refused(Participant* from, const char* reason, const QString& what, const QString& detail = QString());
    // Refuses an item action: nothing is stored or relayed of it, and the
    // sender is sent the item's stored state (with versions the others get
    // the correction's version, without pixels).
    void refuse(Participant* from, const QString& gid, int type, const std::optional<BoardStore::Version>& refusedVersion,
                const char* reason, const QString& detail, Outcome& outcome);
    // `version` kept within what the board's clock admits.
    std::optional<BoardStore::Version> withinReach(std::optional<BoardStore::Version> version) const;
    // Sends `stored` to the sender as `back` under a version newer than
    // `refused`, so that the correction wins on the sender's board; unless
    // the refused version was `ahead`, the others get that version without
    // pixels, so that every clock passes it. Nothing is stored again.
    void restore(const BoardStore::Item& stored, const BoardStore::Version& refused, bool ahead, int back, Outcome& outcome);
    // The item authors, versions and sizes, with the board's clock and bytes.
    void putItem(const QString& gid, qint64 author, const std::optional<BoardStore::Version>& version, qint64 bytes);
    void dropItem(const QString& gid);
    void seeVersion(const std::optional<BoardStore::Version>& version);
    // Whether a received version is within reach of the board's clock
    // (VersionBound); none always is.
    bool admitsVersion(const std::optional<BoardStore::Version>& version);
    bool loadItems();
    // Creates the board in the store unless it exists; `owner` if new.
    void create(qint64 owner);
    void schedule();
    // Stores a batch of the waiting messages and delivers it.
    void flush();
    Checked check(const Waiting& waiting, Outcome& outcome);
    // The stored state of an item as the batch being checked left it.
    std::optional<BoardStore::Item> storedItem(const QString& gid);
    // Writes what the batch has not written yet, before a read.
    void writeUnwritten();
    // Stops the batch: the store failed. Lost connection: the messages wait;
    // otherwise they are dropped and logged.
    void batchFailed(qsizetype count);
    // Delivers entries read from the store that this node has not delivered.
    void deliver(const QList<BoardStore::Entry>& entries);
    // Follows another node's entry in the item authors and versions.
    void follow(const im::whiteboard::TransferData& frame);
    void clearItems(std::optional<qint64> author, const std::optional<BoardStore::Version>& before);
    // Sends a frame that is not stored here and to the other nodes.
    void sendPresence(const QByteArray& frame, const Participant* except);

    // Frames of `envelopes` in `multi` batches of bounded size.
    QList<QByteArray> batches(const QList<QByteArray>& envelopes) const;
    // To each joined participant but `except` whose replay did not hold the
    // entry of `sequence` already.
    void sendToJoined(const QByteArray& frame, const Participant* except, qint64 sequence = std::numeric_limits<qint64>::max());

    QString m_boardId;
    BoardStore* m_store;
    RelayOptions m_options;
    qint64 m_owner = 0;
    bool m_exists = false;
    // The last sequence number whose entry went to the participants here.
    qint64 m_delivered = 0;
    QList<Participant*> m_participants;
    QHash<QString, ItemState> m_items;
    // The highest version admitted here, and the bytes of the stored items.
    qint64 m_clock = 0;
    qint64 m_bytes = 0;
    // The kept entries were read for versions the items do not hold.
    bool m_clockFromHistory = false;
    std::deque<Waiting> m_waiting;
    bool m_flushScheduled = false;
    bool m_flushing = false;
    bool m_catchUpScheduled = false;
    // The items and owner are read again before the next batch is checked.
    bool m_reload = false;
    // load() read the board: m_delivered is its sequence number.
    bool m_loaded = false;
    bool m_warnedBacklog = false;
    qint64 m_announced = 0;
    // Of the batch being checked: the messages not yet written, written
    // before anything is read from the store, so that the read sees them.
    QList<BoardStore::Message> m_unwritten;
    bool m_writeFailed = false;
};

} // namespace relay
