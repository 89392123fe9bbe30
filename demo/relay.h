#pragma once

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>

#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace im::whiteboard {
class TransferData;
}

// A stand-in for the whiteboard server, living in the host process.
//
// Any object that has the signal sendData(im::whiteboard::TransferData*) and
// the slot receiveData(im::whiteboard::TransferData*) can be added as a board;
// WhiteboardView is such an object. The relay keeps the contract that the
// boards expect from a server:
//
// - One order for everybody: messages are queued and delivered one after the
//   other in the order they were sent, also when a board sends while it is
//   receiving.
// - Nothing is echoed: a message goes to every board except its sender.
// - Ownership: the relay owns what a board sends, gives every receiving board
//   its own heap copy (the board deletes it) and deletes the original.
// - Join: a `userjoin` from a board is not forwarded; it is answered to that
//   board alone with the item actions stored so far, in ordinary `multi`
//   batches, followed by a TransferData that holds `userjoin`.
//
// The stored history is kept short: a removal drops the item's earlier
// actions, a newer update replaces an older one, "clear all" empties the
// history and "clear by user" drops the items of that author.
class Relay : public QObject
{
    Q_OBJECT
    Q_PROPERTY(int boardCount READ boardCount NOTIFY boardsChanged)
    Q_PROPERTY(int relayedCount READ relayedCount NOTIFY relayedCountChanged)
    Q_PROPERTY(int storedActionCount READ storedActionCount NOTIFY relayedCountChanged)
    Q_PROPERTY(QString lastMessage READ lastMessage NOTIFY relayedCountChanged)

public:
    // Item actions per `multi` of a join answer.
    static constexpr int kReplayBatchSize = 32;

    explicit Relay(QObject* parent = nullptr);
    ~Relay() override;

    int boardCount() const;
    int relayedCount() const { return m_relayedCount; }
    int storedActionCount() const { return int(m_history.size()); }
    QString lastMessage() const { return m_lastMessage; }

    // Adds a board; returns false if it lacks the signal or the slot.
    Q_INVOKABLE bool addBoard(QObject* board);
    Q_INVOKABLE void removeBoard(QObject* board);
    // The server's clock, milliseconds since the epoch: the timestamp a board
    // passes to sendUserJoinData.
    Q_INVOKABLE qlonglong serverTime() const;

signals:
    void boardsChanged();
    void relayedCountChanged();

private slots:
    void onSendData(im::whiteboard::TransferData* data);

private:
    // A message waiting for its turn, owned by the relay.
    struct Pending
    {
        QPointer<QObject> from;
        std::unique_ptr<im::whiteboard::TransferData> data;
    };
    // One item action of the history, as the envelope that carried it.
    struct StoredAction
    {
        std::string gid;
        qint64 author = 0;
        int actionType = 0;
        std::string envelope; // a serialised SingleWhiteboardData
    };

    void dispatch();
    void process(Pending& pending);
    void answerJoin(QObject* board, const std::string& whiteboardId);
    bool deliver(QObject* board, im::whiteboard::TransferData* copy);
    // Returns true if any envelope of the message carries an item action.
    bool store(const im::whiteboard::TransferData& message);
    void describe(QObject* sender, const im::whiteboard::TransferData& message, bool itemAction);

    QList<QPointer<QObject>> m_boards;
    std::deque<Pending> m_queue;
    bool m_dispatching = false;
    std::vector<StoredAction> m_history;
    int m_relayedCount = 0;
    QString m_lastMessage;
};
