#pragma once

#include "relay/boardstore.h"
#include "relay/relayoptions.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QString>

#include <optional>

namespace im::whiteboard {
class SingleWhiteboardData;
class TransferData;
class UserAction;
class UserOperation;
class WhiteboardData;
} // namespace im::whiteboard

namespace relay {

class Participant;

// One board while anybody is connected to it: its participants, its owner,
// the author and version of each live item, and the one order in which its
// messages are stored and then delivered. Everything runs on the relay's one
// thread, so the order in which messages are handled here is the board's
// order; the store gives each committed message the board's next sequence
// number.
class BoardSession : public QObject
{
    Q_OBJECT

public:
    BoardSession(const QString& boardId, BoardStore* store, const RelayOptions& options, QObject* parent = nullptr);

    QString boardId() const { return m_boardId; }
    qint64 owner() const { return m_owner; }
    int participantCount() const { return int(m_participants.size()); }

    // Reads the board's owner and item authors from the store.
    bool load();
    // Takes the participant in; the first one of a new board becomes its
    // owner. It receives the board's traffic once its join is answered.
    void add(Participant* participant);
    // Closes every connection with "going away".
    void closeAll();

signals:
    // The last participant has gone; the session may be dropped.
    void idle(relay::BoardSession* session);

private:
    // What one message leads to: the changes to commit, the envelopes that go
    // on to the others, and what goes back to correct boards.
    struct Outcome
    {
        QList<BoardStore::Change> changes;
        QList<const im::whiteboard::SingleWhiteboardData*> forward;
        QList<QByteArray> toSender; // envelopes
        QList<QByteArray> toOthers; // envelopes
    };
    struct ItemState
    {
        qint64 author = 0;
        std::optional<BoardStore::Version> version;
    };

    void onMessage(Participant* from, im::whiteboard::TransferData* message);
    void onDisconnected(Participant* participant);
    void answerJoin(Participant* participant);

    void handleAction(Participant* from, const im::whiteboard::SingleWhiteboardData& envelope,
                      const im::whiteboard::WhiteboardData& body, Outcome& outcome);
    void handleOperation(Participant* from, const im::whiteboard::SingleWhiteboardData& envelope,
                         const im::whiteboard::UserOperation& operation, Outcome& outcome);
    bool admitPresence(Participant* from, const im::whiteboard::UserAction& action);
    // Refuses an item action: nothing is stored or relayed of it, and the
    // sender (with versions: everybody) is sent the item's stored state.
    void refuse(Participant* from, const QString& gid, int type, const std::optional<BoardStore::Version>& refused,
                const QString& reason, Outcome& outcome);
    void loadItems();

    // Frames of `envelopes` in `multi` batches of bounded size.
    QList<QByteArray> batches(const QList<QByteArray>& envelopes) const;
    void sendToJoined(const QByteArray& frame, const Participant* except);

    QString m_boardId;
    BoardStore* m_store;
    RelayOptions m_options;
    qint64 m_owner = 0;
    bool m_exists = false;
    QList<Participant*> m_participants;
    QHash<QString, ItemState> m_items;
};

} // namespace relay
