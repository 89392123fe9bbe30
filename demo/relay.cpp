#include "relay.h"

#include "proto/whiteboard.pb.h"

#include <QDateTime>
#include <QDebug>
#include <QMetaObject>
#include <QStringList>

#include <algorithm>

namespace pb = im::whiteboard;

namespace {

const char* const kSendSignal = "sendData(im::whiteboard::TransferData*)";
const char* const kReceiveSlot = "receiveData(im::whiteboard::TransferData*)";

template<typename List>
qint64 firstAuthor(const List& list)
{
    return list.data_size() > 0 ? qint64(list.data(0).baseinfo().userid()) : 0;
}

// The author of the item an action carries: the user id of its first item.
qint64 authorOf(const pb::GraphicAction& action)
{
    switch (action.actiondata_case()) {
    case pb::GraphicAction::kLinedata:
        return firstAuthor(action.linedata());
    case pb::GraphicAction::kPolylinedata:
        return firstAuthor(action.polylinedata());
    case pb::GraphicAction::kRectdata:
        return firstAuthor(action.rectdata());
    case pb::GraphicAction::kTextdata:
        return firstAuthor(action.textdata());
    case pb::GraphicAction::kEllipsedata:
        return firstAuthor(action.ellipsedata());
    case pb::GraphicAction::kPathdata:
        return firstAuthor(action.pathdata());
    case pb::GraphicAction::kImagedata:
        return firstAuthor(action.imagedata());
    case pb::GraphicAction::kArrowdata:
        return firstAuthor(action.arrowdata());
    default:
        return 0;
    }
}

QString actionName(int type)
{
    switch (type) {
    case pb::GraphicActionAdd:
        return QStringLiteral("add");
    case pb::GraphicActionUpdate:
    case pb::GraphicActionModify:
        return QStringLiteral("update");
    case pb::GraphicActionRemove:
        return QStringLiteral("remove");
    default:
        return QStringLiteral("action %1").arg(type);
    }
}

bool isUpdate(int type)
{
    return type == pb::GraphicActionUpdate || type == pb::GraphicActionModify;
}

} // namespace

Relay::Relay(QObject* parent)
    : QObject(parent)
{
}

Relay::~Relay() = default;

int Relay::boardCount() const
{
    return int(std::count_if(m_boards.cbegin(), m_boards.cend(), [](const QPointer<QObject>& board) { return !board.isNull(); }));
}

bool Relay::addBoard(QObject* board)
{
    if (!board)
        return false;
    const QMetaObject* meta = board->metaObject();
    if (meta->indexOfSignal(kSendSignal) < 0 || meta->indexOfMethod(kReceiveSlot) < 0) {
        qWarning() << "relay: not a board:" << board;
        return false;
    }
    if (m_boards.contains(board))
        return true;
    m_boards.removeIf([](const QPointer<QObject>& known) { return known.isNull(); });
    m_boards.append(board);
    connect(board, SIGNAL(sendData(im::whiteboard::TransferData*)), this, SLOT(onSendData(im::whiteboard::TransferData*)));
    connect(board, &QObject::destroyed, this, &Relay::boardsChanged);
    emit boardsChanged();
    return true;
}

void Relay::removeBoard(QObject* board)
{
    if (!board || !m_boards.contains(board))
        return;
    disconnect(board, nullptr, this, nullptr);
    m_boards.removeAll(board);
    emit boardsChanged();
}

qlonglong Relay::serverTime() const
{
    return QDateTime::currentMSecsSinceEpoch();
}

void Relay::onSendData(im::whiteboard::TransferData* data)
{
    if (!data)
        return;
    Pending pending;
    pending.from = sender();
    pending.data.reset(data);
    m_queue.push_back(std::move(pending));
    dispatch();
}

void Relay::dispatch()
{
    // A board may send while it receives: its message waits in the queue, so
    // every board sees every message in the same order.
    if (m_dispatching)
        return;
    m_dispatching = true;
    while (!m_queue.empty()) {
        Pending pending = std::move(m_queue.front());
        m_queue.pop_front();
        process(pending);
    }
    m_dispatching = false;
}

void Relay::process(Pending& pending)
{
    const pb::TransferData& message = *pending.data;
    if (message.has_userjoin()) {
        if (pending.from)
            answerJoin(pending.from, message.whiteboardid());
        describe(pending.from, message, false);
        return;
    }

    const bool itemAction = store(message);
    const QList<QPointer<QObject>> boards = m_boards;
    for (const QPointer<QObject>& board : boards) {
        if (board && board != pending.from)
            deliver(board, new pb::TransferData(message));
    }
    describe(pending.from, message, itemAction);
    // The original goes with `pending`.
}

void Relay::answerJoin(QObject* board, const std::string& whiteboardId)
{
    for (size_t first = 0; first < m_history.size(); first += kReplayBatchSize) {
        auto* batch = new pb::TransferData;
        batch->set_whiteboardid(whiteboardId);
        pb::MultiWhiteboardData* multi = batch->mutable_multi();
        const size_t end = std::min(m_history.size(), first + kReplayBatchSize);
        for (size_t i = first; i < end; ++i)
            multi->add_whiteboarddatalist()->ParseFromString(m_history[i].envelope);
        if (!deliver(board, batch))
            return;
    }
    auto* done = new pb::TransferData;
    done->set_whiteboardid(whiteboardId);
    done->mutable_userjoin();
    deliver(board, done);
}

bool Relay::deliver(QObject* board, im::whiteboard::TransferData* copy)
{
    // The board owns the copy from here on and deletes it.
    const bool delivered = QMetaObject::invokeMethod(board, "receiveData", Qt::DirectConnection,
                                                     Q_ARG(im::whiteboard::TransferData*, copy));
    if (!delivered) {
        qWarning() << "relay: delivery failed:" << board;
        delete copy;
        return false;
    }
    ++m_relayedCount;
    return true;
}

bool Relay::store(const im::whiteboard::TransferData& message)
{
    if (!message.has_multi())
        return false;
    bool itemAction = false;
    for (const pb::SingleWhiteboardData& envelope : message.multi().whiteboarddatalist()) {
        pb::WhiteboardData data;
        if (!data.ParseFromString(envelope.data()))
            continue;
        if (data.datatype() == pb::WhiteboardData::WhiteboardDataUserOperation) {
            const pb::UserOperation& operation = data.useroperationdata();
            if (operation.operationtype() == pb::UserOperation::UserOperationClearAll) {
                m_history.clear();
            } else if (operation.operationtype() == pb::UserOperation::UserOperationClearByUid) {
                const qint64 user = operation.userid();
                m_history.erase(std::remove_if(m_history.begin(), m_history.end(),
                                               [user](const StoredAction& stored) { return stored.author == user; }),
                                m_history.end());
            }
            continue;
        }
        if (data.datatype() != pb::WhiteboardData::WhiteboardDataGraphicAction)
            continue;
        itemAction = true;

        const pb::GraphicAction& action = data.graphicactiondata();
        StoredAction stored;
        stored.gid = action.gid().empty() ? envelope.gid() : action.gid();
        if (stored.gid.empty())
            continue;
        stored.actionType = action.graphicactiontype();
        stored.author = authorOf(action);

        // Keep the history short: the item's newest state is all a late board
        // needs, after the add that makes the item known to it.
        const int type = stored.actionType;
        const std::string& gid = stored.gid;
        m_history.erase(std::remove_if(m_history.begin(), m_history.end(),
                                       [&](const StoredAction& old) {
                                           if (old.gid != gid)
                                               return false;
                                           return !isUpdate(type) || isUpdate(old.actionType);
                                       }),
                        m_history.end());
        if (type == pb::GraphicActionRemove)
            continue;
        if (isUpdate(type) && stored.author == 0) {
            // An update's item may carry no base info; keep the author of the add.
            for (const StoredAction& old : m_history) {
                if (old.gid == gid)
                    stored.author = old.author;
            }
        }
        stored.envelope = envelope.SerializeAsString();
        m_history.push_back(std::move(stored));
    }
    return itemAction;
}

void Relay::describe(QObject* sender, const im::whiteboard::TransferData& message, bool itemAction)
{
    QString who = sender ? sender->property("userName").toString() : QString();
    if (who.isEmpty())
        who = QStringLiteral("a board");

    QString text;
    if (message.has_userjoin()) {
        text = QStringLiteral("%1 joined, %2 stored actions replayed").arg(who).arg(m_history.size());
    } else if (message.has_multi()) {
        QStringList parts;
        for (const pb::SingleWhiteboardData& envelope : message.multi().whiteboarddatalist()) {
            pb::WhiteboardData data;
            if (!data.ParseFromString(envelope.data()))
                continue;
            if (data.datatype() == pb::WhiteboardData::WhiteboardDataGraphicAction)
                parts << actionName(data.graphicactiondata().graphicactiontype());
            else if (data.datatype() == pb::WhiteboardData::WhiteboardDataUserOperation)
                parts << QStringLiteral("clear");
        }
        // Pointer moves are relayed like the rest but would drown the log.
        if (parts.isEmpty() && !itemAction) {
            emit relayedCountChanged();
            return;
        }
        text = QStringLiteral("%1: %2").arg(who, parts.join(QStringLiteral(", ")));
    } else {
        text = QStringLiteral("%1: empty message").arg(who);
    }
    m_lastMessage = text;
    emit relayedCountChanged();
}
