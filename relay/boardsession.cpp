#include "relay/boardsession.h"

#include "relay/participant.h"
#include "relay/relaylog.h"
#include "relay/relaymetrics.h"

#include "relay/wireaction.h"

#include "proto/whiteboard.pb.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QScopeGuard>

#include <algorithm>
#include <memory>

namespace pb = im::whiteboard;

namespace relay {

namespace {

using Version = BoardStore::Version;

// An absent device reads as 0: a peer without devices ties as it always did.
template<typename Message>
std::optional<Version> versionOf(const Message& message)
{
    if (!message.has_version())
        return std::nullopt;
    return Version { message.version(), message.versionuser(), message.versiondevice() };
}

// Writes every field of `version`; the device only where there is one, so
// what a peer without devices sent stays as it was.
void setVersion(pb::GraphicAction* action, const Version& version)
{
    action->set_version(version.version);
    action->set_versionuser(version.user);
    if (version.device)
        action->set_versiondevice(version.device);
    else
        action->clear_versiondevice();
}

const char* actionName(int type)
{
    switch (type) {
    case pb::GraphicActionAdd:
        return "add";
    case pb::GraphicActionUpdate:
    case pb::GraphicActionModify:
        return "update";
    case pb::GraphicActionRemove:
        return "remove";
    default:
        return "action";
    }
}

// The envelope with its item action turned into `type`, and with `version`
// when one is given.
QByteArray rewritten(pb::SingleWhiteboardData envelope, pb::GraphicActionType type, const std::optional<Version>& version = std::nullopt)
{
    pb::WhiteboardData body;
    body.ParseFromString(envelope.data());
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_graphicactiontype(type);
    if (version)
        setVersion(action, *version);
    envelope.set_graphicactiontype(type);
    envelope.set_data(body.SerializeAsString());
    return QByteArray::fromStdString(envelope.SerializeAsString());
}

QByteArray rewritten(const QByteArray& stored, pb::GraphicActionType type, const std::optional<Version>& version = std::nullopt)
{
    pb::SingleWhiteboardData envelope;
    envelope.ParseFromArray(stored.constData(), int(stored.size()));
    return rewritten(envelope, type, version);
}

// Boards send a picture's pixels with its add only: an update of an image
// that carries none keeps those the relay stored, or a late joiner would get
// an empty picture.
QByteArray keepingPicture(const QByteArray& update, const std::optional<BoardStore::Item>& stored)
{
    pb::SingleWhiteboardData envelope;
    envelope.ParseFromArray(update.constData(), int(update.size()));
    pb::WhiteboardData body;
    if (!stored || !body.ParseFromString(envelope.data()) || !body.graphicactiondata().has_imagedata())
        return update;
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    if (action->imagedata().data_size() == 0 || action->imagedata().data(0).has_data())
        return update;
    pb::SingleWhiteboardData storedEnvelope;
    pb::WhiteboardData storedBody;
    if (!storedEnvelope.ParseFromArray(stored->envelope.constData(), int(stored->envelope.size()))
        || !storedBody.ParseFromString(storedEnvelope.data()) || !storedBody.graphicactiondata().has_imagedata()
        || storedBody.graphicactiondata().imagedata().data_size() == 0)
        return update;
    action->mutable_imagedata()->mutable_data(0)->set_data(storedBody.graphicactiondata().imagedata().data(0).data());
    envelope.set_data(body.SerializeAsString());
    return QByteArray::fromStdString(envelope.SerializeAsString());
}

QByteArray envelopeOf(const pb::WhiteboardData& body, const std::string& gid = std::string(), int type = 0)
{
    pb::SingleWhiteboardData envelope;
    envelope.set_gid(gid);
    envelope.set_graphicactiontype(pb::GraphicActionType(type));
    envelope.set_timestamp(QDateTime::currentMSecsSinceEpoch());
    envelope.set_data(body.SerializeAsString());
    return QByteArray::fromStdString(envelope.SerializeAsString());
}

// The removal of an item that the relay does not hold.
QByteArray removalOf(const QString& gid, const std::optional<Version>& version)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_gid(gid.toStdString());
    action->set_graphicactiontype(pb::GraphicActionRemove);
    action->set_timestamp(QDateTime::currentMSecsSinceEpoch());
    if (version)
        setVersion(action, *version);
    return envelopeOf(body, action->gid(), pb::GraphicActionRemove);
}

QByteArray leaveOf(qint64 user)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserAction);
    pb::UserAction* action = body.mutable_useractiondata();
    action->set_actiontype(pb::UserAction::UserActionLeave);
    action->set_userid(user);
    action->set_timestamp(QDateTime::currentMSecsSinceEpoch());
    return envelopeOf(body);
}

bool clearedBy(const std::optional<Version>& itemVersion, const std::optional<Version>& before)
{
    return !before || !itemVersion || *itemVersion < *before;
}

} // namespace

BoardSession::BoardSession(const QString& boardId, BoardStore* store, const RelayOptions& options, QObject* parent)
    : QObject(parent)
    , m_boardId(boardId)
    , m_store(store)
    , m_options(options)
{
}

BoardSession::~BoardSession() = default;

bool BoardSession::load()
{
    // Held, so that the items are those of the sequence number read.
    const qint64 sequence = m_store->lock(m_boardId, 0);
    const BoardStore::Board board = m_store->board(m_boardId);
    m_exists = board.exists;
    m_owner = board.owner;
    m_delivered = sequence >= 0 ? sequence : board.sequence;
    // Without a row to hold the board is new, unless the store is away.
    m_loaded = loadItems() && (sequence >= 0 || m_store->probe());
    m_reload = !m_loaded;
    if (sequence >= 0)
        m_store->rollback();
    return m_loaded;
}

bool BoardSession::loadItems()
{
    QList<BoardStore::Item> items;
    if (!m_store->items(m_boardId, &items))
        return false;
    m_items.clear();
    for (const BoardStore::Item& item : std::as_const(items))
        m_items.insert(item.gid, ItemState { item.author, item.version });
    return true;
}

void BoardSession::create(qint64 owner)
{
    if (m_exists || !m_store->createBoard(m_boardId, owner))
        return;
    // Another node may have created it first: the store knows the owner.
    const BoardStore::Board board = m_store->board(m_boardId);
    m_exists = board.exists;
    m_owner = board.owner;
    if (m_owner == owner && board.sequence == 0)
        qCInfo(lcRelay).noquote() << "board" << m_boardId << "created, owner" << m_owner;
}

void BoardSession::add(Participant* participant)
{
    create(participant->accountId());
    participant->setParent(this);
    m_participants.append(participant);
    connect(participant, &Participant::messageArrived, this, &BoardSession::onMessage);
    connect(participant, &Participant::disconnected, this, &BoardSession::onDisconnected);
    qCInfo(lcRelay).noquote() << "connected" << participant->description();
}

void BoardSession::closeAll()
{
    // A copy: a close can report the disconnect at once, which takes the
    // participant out of m_participants while we walk it.
    const QList<Participant*> participants = m_participants;
    for (Participant* participant : participants)
        participant->closeWith(QWebSocketProtocol::CloseCodeGoingAway, QStringLiteral("relay shutting down"));
}

void BoardSession::closeDeleted()
{
    m_waiting.clear();
    const QList<Participant*> participants = m_participants;
    for (Participant* participant : participants)
        participant->closeWith(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("board deleted"));
}

void BoardSession::onDisconnected(Participant* participant)
{
    // Its waiting messages are checked against it: they are stored before it
    // goes, and go out before its leave.
    auto from = [participant](const Waiting& waiting) { return waiting.from == participant; };
    if (m_flushing && std::any_of(m_waiting.cbegin(), m_waiting.cend(), from)) {
        // A close during a batch's delivery: the batch ends first.
        QMetaObject::invokeMethod(this, [this, participant] { onDisconnected(participant); }, Qt::QueuedConnection);
        return;
    }
    while (std::any_of(m_waiting.cbegin(), m_waiting.cend(), from) && !m_store->lost())
        flush();
    const auto dropped = std::remove_if(m_waiting.begin(), m_waiting.end(), from);
    if (dropped != m_waiting.end()) {
        qCWarning(lcRelay).noquote() << "dropped" << std::distance(dropped, m_waiting.end()) << "unstored messages of" << participant->description()
                                     << ": the database is away; its replay will not hold them";
        m_waiting.erase(dropped, m_waiting.end());
    }
    m_participants.removeAll(participant);
    participant->deleteLater();
    if (participant->isJoined()) {
        const qint64 user = participant->accountId();
        const bool stillHere = std::any_of(m_participants.cbegin(), m_participants.cend(),
                                           [user](const Participant* other) { return other->isJoined() && other->accountId() == user; });
        // The user's pointer mark goes only when its last connection does.
        if (!stillHere) {
            const QList<QByteArray> frames = batches({ leaveOf(user) });
            for (const QByteArray& frame : frames)
                sendPresence(frame, nullptr);
        }
    }
    if (m_participants.isEmpty())
        emit idle(this);
}

void BoardSession::answerJoin(Participant* participant)
{
    // The items and the sequence number they stand at, read while the board
    // is held.
    const qint64 sequence = m_store->lock(m_boardId, 0);
    QList<BoardStore::Item> items;
    const bool read = sequence >= 0 && m_store->items(m_boardId, &items);
    if (sequence >= 0)
        m_store->rollback();
    if (!read) {
        // It comes back with its connection's backoff, and gets the replay.
        participant->closeWith(QWebSocketProtocol::CloseCode(1011), QStringLiteral("storage error"));
        if (!m_store->probe())
            emit storageLost();
        return;
    }
    QList<QByteArray> envelopes;
    envelopes.reserve(items.size());
    for (const BoardStore::Item& item : items)
        envelopes.append(item.envelope);
    const QList<QByteArray> frames = batches(envelopes);
    for (const QByteArray& frame : frames)
        participant->send(frame, true);

    pb::TransferData done;
    done.set_whiteboardid(m_boardId.toStdString());
    done.mutable_userjoin()->set_oldesttimestamp(1);
    // Hosts label their user by it.
    if (m_owner)
        done.mutable_userjoin()->set_ownerid(m_owner);
    participant->send(QByteArray::fromStdString(done.SerializeAsString()));
    // From here on it receives the board's entries after `sequence`: nothing
    // committed before is missing from the replay, nothing after it is in it.
    participant->setJoined(sequence);
    qCInfo(lcRelay).noquote() << "joined" << participant->description() << "with" << items.size() << "items in"
                              << frames.size() << "batches";
    catchUp(sequence);
}

void BoardSession::catchUp(qint64 sequence)
{
    if (sequence <= m_delivered || m_store->lost())
        return;
    QList<BoardStore::Entry> entries;
    if (m_store->entries(m_boardId, m_delivered, &entries))
        deliver(entries);
    else if (!m_store->probe())
        emit storageLost();
}

void BoardSession::announce(qint64 sequence)
{
    m_announced = std::max(m_announced, sequence);
    if (m_catchUpScheduled || m_announced <= m_delivered)
        return;
    // Notifications come one per commit of another node: what arrives
    // meanwhile is read with one query.
    m_catchUpScheduled = true;
    QMetaObject::invokeMethod(this, [this] {
        m_catchUpScheduled = false;
        catchUp(m_announced);
    }, Qt::QueuedConnection);
}

void BoardSession::resume()
{
    // Loaded while the store was away: nobody here could join since, so the
    // board starts from what it holds now.
    if (!m_loaded) {
        load();
    } else {
        m_reload = true;
        catchUp(m_store->board(m_boardId).sequence);
    }
    schedule();
}

void BoardSession::deliver(const QList<BoardStore::Entry>& entries)
{
    for (const BoardStore::Entry& entry : entries) {
        if (entry.sequence <= m_delivered)
            continue;
        if (entry.sequence != m_delivered + 1) {
            // The entries in between are gone from the store: a replay is
            // the only way to bring these participants up to date.
            qCWarning(lcRelay).noquote() << "board" << m_boardId << "fell behind from" << m_delivered << "to" << entry.sequence
                                         << ": its participants here rejoin";
            // A copy: a close may take the participant out at once.
            const QList<Participant*> participants = m_participants;
            for (Participant* participant : participants)
                participant->closeWith(QWebSocketProtocol::CloseCode(1013), QStringLiteral("fell behind"));
            m_delivered = entries.constLast().sequence;
            m_reload = !loadItems();
            return;
        }
        m_delivered = entry.sequence;
        if (entry.frame.isEmpty())
            continue;
        pb::TransferData frame;
        frame.ParseFromArray(entry.frame.constData(), int(entry.frame.size()));
        follow(frame);
        const auto origin = std::find_if(m_participants.cbegin(), m_participants.cend(),
                                         [&entry](const Participant* participant) { return participant->key() == entry.origin; });
        sendToJoined(entry.frame, origin == m_participants.cend() ? nullptr : *origin, entry.sequence);
    }
}

void BoardSession::follow(const pb::TransferData& frame)
{
    for (const pb::SingleWhiteboardData& envelope : frame.multi().whiteboarddatalist()) {
        pb::WhiteboardData body;
        if (!body.ParseFromString(envelope.data()))
            continue;
        if (body.datatype() == pb::WhiteboardData::WhiteboardDataGraphicAction) {
            const pb::GraphicAction& action = body.graphicactiondata();
            const QString gid = QString::fromStdString(action.gid().empty() ? envelope.gid() : action.gid());
            const auto known = m_items.find(gid);
            if (action.graphicactiontype() == pb::GraphicActionRemove)
                m_items.remove(gid);
            else if (known != m_items.end())
                known->version = versionOf(action);
            else if (action.graphicactiontype() == pb::GraphicActionAdd)
                m_items.insert(gid, ItemState { WireAction::author(action), versionOf(action) });
        } else if (body.datatype() == pb::WhiteboardData::WhiteboardDataUserOperation) {
            const pb::UserOperation& operation = body.useroperationdata();
            const std::optional<Version> before = versionOf(operation);
            if (operation.operationtype() == pb::UserOperation::UserOperationClearAll)
                clearItems(std::nullopt, before);
            else if (operation.operationtype() == pb::UserOperation::UserOperationClearByUid)
                clearItems(operation.userid(), before);
        }
    }
}

void BoardSession::clearItems(std::optional<qint64> author, const std::optional<Version>& before)
{
    m_items.removeIf([&](const QHash<QString, ItemState>::iterator& item) {
        return (!author || item->author == *author) && clearedBy(item->version, before);
    });
}

void BoardSession::deliverPresence(const QByteArray& frame)
{
    sendToJoined(frame, nullptr);
}

void BoardSession::sendPresence(const QByteArray& frame, const Participant* except)
{
    sendToJoined(frame, except);
    if (m_store->isShared())
        m_store->publish(m_boardId, frame);
}

QList<QByteArray> BoardSession::batches(const QList<QByteArray>& envelopes) const
{
    QList<QByteArray> frames;
    pb::TransferData batch;
    qint64 bytes = 0;
    auto flush = [&] {
        if (batch.multi().whiteboarddatalist_size() == 0)
            return;
        frames.append(QByteArray::fromStdString(batch.SerializeAsString()));
        batch.Clear();
        bytes = 0;
    };
    for (const QByteArray& envelope : envelopes) {
        if (batch.multi().whiteboarddatalist_size() >= m_options.replayBatchItems
            || (bytes > 0 && bytes + envelope.size() > RelayOptions::kReplayBatchBytes))
            flush();
        batch.set_whiteboardid(m_boardId.toStdString());
        batch.mutable_multi()->add_whiteboarddatalist()->ParseFromArray(envelope.constData(), int(envelope.size()));
        bytes += envelope.size();
    }
    flush();
    return frames;
}

void BoardSession::sendToJoined(const QByteArray& frame, const Participant* except, qint64 sequence)
{
    // A copy: a reader closed for being too far behind may leave
    // m_participants before the loop ends (participants are deleted later).
    const QList<Participant*> participants = m_participants;
    for (Participant* participant : participants) {
        if (participant != except && participant->isJoined() && participant->joinedAt() < sequence)
            participant->send(frame);
    }
}

void BoardSession::onMessage(Participant* from, pb::TransferData* message)
{
    Waiting waiting { from, std::unique_ptr<pb::TransferData>(message), {} };
    if (message->has_userjoin()) {
        RelayMetrics::instance().countMessage("join");
        answerJoin(from);
        return;
    }
    if (!message->has_multi())
        return;

    const auto& list = message->multi().whiteboarddatalist();
    waiting.bodies.resize(size_t(list.size()));
    bool changes = false;
    for (int i = 0; i < list.size(); ++i) {
        if (!waiting.bodies[size_t(i)].ParseFromString(list[i].data())) {
            from->closeWith(QWebSocketProtocol::CloseCodeWrongDatatype, QStringLiteral("envelope is not a WhiteboardData"));
            return;
        }
        changes = changes || waiting.bodies[size_t(i)].datatype() != pb::WhiteboardData::WhiteboardDataUserAction;
    }
    if (!changes) {
        // Pointers only: never stored, relayed at once.
        RelayMetrics::instance().countMessage("pointer");
        Outcome outcome;
        const Checked checked = check(waiting, outcome);
        if (!checked.onward.isEmpty())
            sendPresence(checked.onward, from);
        return;
    }
    RelayMetrics::instance().countMessage("change");
    if (!from->admitAction()) {
        RelayMetrics::instance().refused("rate");
        from->closeWith(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("too many item actions"));
        return;
    }
    if (qint64(m_waiting.size()) >= RelayOptions::kMaxWaitingMessages) {
        // The store does not keep up (or is away): the sender is told so
        // rather than the relay's memory growing without bound.
        qCWarning(lcRelay).noquote() << "board" << m_boardId << "has" << m_waiting.size() << "messages waiting for the database";
        from->closeWith(QWebSocketProtocol::CloseCode(1013), QStringLiteral("relay overloaded"));
        return;
    }
    m_waiting.push_back(std::move(waiting));
    schedule();
}

void BoardSession::schedule()
{
    if (m_flushScheduled || m_waiting.empty())
        return;
    // Queued behind the socket events already there: what they bring joins
    // the batch.
    m_flushScheduled = true;
    QMetaObject::invokeMethod(this, [this] {
        m_flushScheduled = false;
        flush();
    }, Qt::QueuedConnection);
}

void BoardSession::storeWaiting()
{
    while (!m_waiting.empty() && !m_store->lost())
        flush();
    if (!m_waiting.empty())
        qCWarning(lcRelay).noquote() << "board" << m_boardId << ":" << m_waiting.size() << "messages not stored, the database is away";
}

void BoardSession::flush()
{
    if (m_waiting.empty() || m_store->lost() || m_flushing)
        return;
    // A close while the batch is delivered must not start another batch.
    m_flushing = true;
    QElapsedTimer took;
    took.start();
    const auto done = qScopeGuard([this, &took] {
        m_flushing = false;
        RelayMetrics::instance().observeBatch(double(took.nsecsElapsed()) / 1e9);
    });
    const qsizetype count = std::min<qsizetype>(qsizetype(m_waiting.size()), RelayOptions::kMaxBatchMessages);
    if (count >= RelayOptions::kMaxBatchMessages && !m_warnedBacklog) {
        m_warnedBacklog = true;
        qCWarning(lcRelay).noquote() << "board" << m_boardId << "is behind:" << m_waiting.size() << "messages wait for the database";
    } else if (count < RelayOptions::kMaxBatchMessages && m_warnedBacklog) {
        m_warnedBacklog = false;
        qCInfo(lcRelay).noquote() << "board" << m_boardId << "caught up with the database";
    }

    // Created while the store was away, the board may have no row to hold.
    if (!m_exists && !m_participants.isEmpty())
        create(m_participants.constFirst()->accountId());
    // The board is held from the check of the batch to its commit, and what
    // other nodes committed before is known and delivered first.
    const qint64 current = m_store->lock(m_boardId, int(count));
    if (current < 0) {
        batchFailed(count);
        return;
    }
    if (current > m_delivered) {
        QList<BoardStore::Entry> entries;
        if (!m_store->entries(m_boardId, m_delivered, &entries)) {
            m_store->rollback();
            batchFailed(count);
            return;
        }
        deliver(entries);
    }
    if (m_reload) {
        const BoardStore::Board board = m_store->board(m_boardId);
        if (!board.exists || !loadItems()) {
            m_store->rollback();
            batchFailed(count);
            return;
        }
        m_owner = board.owner;
        m_exists = true;
        m_reload = false;
    }

    QList<Checked> batch;
    for (qsizetype i = 0; i < count; ++i) {
        Outcome outcome;
        Checked checked = check(m_waiting[size_t(i)], outcome);
        checked.sequence = current + 1 + i;
        // Every reserved number gets its entry; one that changed nothing
        // holds its place empty, and its pointers go as presence.
        checked.stored = !outcome.changes.isEmpty();
        m_unwritten.append({ BoardStore::Entry { checked.sequence, m_waiting[size_t(i)].from->key(), checked.stored ? checked.onward : QByteArray() },
                             outcome.changes });
        batch.append(checked);
    }
    if (!m_store->write(m_boardId, std::exchange(m_unwritten, {})) || std::exchange(m_writeFailed, false) || !m_store->commit()) {
        m_store->rollback();
        batchFailed(count);
        return;
    }
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + count);
    m_delivered = current + count;
    // Stored first: nobody receives what a restarted relay would not know.
    for (const Checked& checked : std::as_const(batch)) {
        if (!checked.onward.isEmpty()) {
            if (checked.stored)
                sendToJoined(checked.onward, checked.from, checked.sequence);
            else
                sendPresence(checked.onward, checked.from);
        }
        for (const QByteArray& frame : batches(checked.toSender))
            checked.from->send(frame, true);
    }
    schedule();
}

void BoardSession::batchFailed(qsizetype count)
{
    m_unwritten.clear();
    m_writeFailed = false;
    // What was checked went into m_items: read it again with the next batch.
    m_reload = true;
    if (!m_store->probe()) {
        emit storageLost();
        return;
    }
    for (qsizetype i = 0; i < count; ++i)
        qCCritical(lcRelay).noquote() << "dropped a message of" << m_waiting[size_t(i)].from->description() << "that could not be stored";
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + count);
    schedule();
}

void BoardSession::writeUnwritten()
{
    // Inside the batch's transaction: what it wrote is what is read.
    if (!m_unwritten.isEmpty() && !m_store->write(m_boardId, std::exchange(m_unwritten, {})))
        m_writeFailed = true;
}

std::optional<BoardStore::Item> BoardSession::storedItem(const QString& gid)
{
    writeUnwritten();
    return m_store->item(m_boardId, gid);
}

BoardSession::Checked BoardSession::check(const Waiting& waiting, Outcome& outcome)
{
    Participant* from = waiting.from;
    const auto& list = waiting.message->multi().whiteboarddatalist();
    for (int i = 0; i < list.size(); ++i) {
        const pb::WhiteboardData& body = waiting.bodies[size_t(i)];
        switch (body.datatype()) {
        case pb::WhiteboardData::WhiteboardDataGraphicAction:
            handleAction(from, list[i], body, outcome);
            break;
        case pb::WhiteboardData::WhiteboardDataUserOperation:
            handleOperation(from, list[i], body.useroperationdata(), outcome);
            break;
        case pb::WhiteboardData::WhiteboardDataUserAction:
            if (admitPresence(from, body.useractiondata()))
                outcome.forward.append(&list[i]);
            break;
        default:
            break;
        }
    }

    // What goes to the others, as one entry of the board.
    Checked checked;
    checked.from = from;
    checked.toSender = outcome.toSender;
    if (!outcome.forward.isEmpty() || !outcome.toOthers.isEmpty()) {
        pb::TransferData data;
        data.set_whiteboardid(m_boardId.toStdString());
        for (const pb::SingleWhiteboardData* envelope : std::as_const(outcome.forward))
            *data.mutable_multi()->add_whiteboarddatalist() = *envelope;
        for (const QByteArray& envelope : std::as_const(outcome.toOthers))
            data.mutable_multi()->add_whiteboarddatalist()->ParseFromArray(envelope.constData(), int(envelope.size()));
        checked.onward = QByteArray::fromStdString(data.SerializeAsString());
    }
    return checked;
}

void BoardSession::handleAction(Participant* from, const pb::SingleWhiteboardData& envelope, const pb::WhiteboardData& body,
                                Outcome& outcome)
{
    const pb::GraphicAction& action = body.graphicactiondata();
    const QString gid = QString::fromStdString(action.gid().empty() ? envelope.gid() : action.gid());
    if (gid.isEmpty())
        return;
    const int type = action.graphicactiontype();
    const qint64 author = WireAction::author(action);
    const std::optional<Version> version = versionOf(action);
    const auto known = m_items.constFind(gid);
    const qint64 user = from->accountId();

    if (type == pb::GraphicActionAdd && known == m_items.cend()) {
        if (author != user) {
            refuse(from, gid, type, version, QStringLiteral("added as user %1").arg(author), outcome);
            return;
        }
        m_items.insert(gid, ItemState { author, version });
        outcome.changes.append({ BoardStore::Change::Put, { gid, author, version, rewritten(envelope, pb::GraphicActionAdd) }, 0, std::nullopt });
        outcome.forward.append(&envelope);
        return;
    }
    if (type > pb::GraphicActionRemove)
        return;
    if (known == m_items.cend()) {
        // Gone already: a removal has nothing to do, an update is answered
        // with the removal.
        if (type != pb::GraphicActionRemove)
            refuse(from, gid, type, version, QStringLiteral("no such item"), outcome);
        return;
    }
    if (user != known->author && user != m_owner) {
        refuse(from, gid, type, version, QStringLiteral("item of user %1").arg(known->author), outcome);
        return;
    }
    if (type != pb::GraphicActionRemove && author != known->author) {
        refuse(from, gid, type, version, QStringLiteral("author changed to %1").arg(author), outcome);
        return;
    }
    if (version && known->version && !(*known->version < *version)) {
        // Older than what the board holds: every board has the newer state or
        // gets it, and drops this one by its version.
        qCDebug(lcRelay).noquote() << "stale" << actionName(type) << "of" << gid << "from" << from->description();
        return;
    }
    if (type == pb::GraphicActionRemove) {
        m_items.remove(gid);
        outcome.changes.append({ BoardStore::Change::Remove, { gid, 0, std::nullopt, {} }, 0, std::nullopt });
        outcome.forward.append(&envelope);
        return;
    }
    m_items[gid].version = version;
    QByteArray state = rewritten(envelope, pb::GraphicActionAdd);
    if (body.graphicactiondata().has_imagedata())
        state = keepingPicture(state, storedItem(gid));
    outcome.changes.append({ BoardStore::Change::Put, { gid, known->author, version, state }, 0, std::nullopt });
    if (type == pb::GraphicActionAdd) {
        // A second add of a live gid would give the others a second item.
        outcome.toOthers.append(rewritten(envelope, pb::GraphicActionUpdate));
        return;
    }
    outcome.forward.append(&envelope);
}

void BoardSession::refuse(Participant* from, const QString& gid, int type, const std::optional<Version>& refused,
                          const QString& reason, Outcome& outcome)
{
    RelayMetrics::instance().refused("authority");
    qCWarning(lcRelay).noquote() << "refused" << actionName(type) << "of gid" << gid << "on board" << m_boardId << "by user"
                                 << from->accountId() << ":" << reason;
    const auto known = m_items.find(gid);
    const std::optional<BoardStore::Item> stored = known == m_items.end() ? std::nullopt : storedItem(gid);
    if (!stored) {
        std::optional<Version> removal;
        if (refused)
            removal = Version { refused->version + 1, refused->user, refused->device };
        outcome.toSender.append(removalOf(gid, removal));
        return;
    }
    // The sender removed the item on its board: it needs it back as an add.
    const pb::GraphicActionType back = type == pb::GraphicActionRemove ? pb::GraphicActionAdd : pb::GraphicActionUpdate;
    if (!refused) {
        outcome.toSender.append(rewritten(stored->envelope, back));
        return;
    }
    restore(*stored, *refused, back, outcome);
}

void BoardSession::restore(const BoardStore::Item& stored, const Version& refused, int back, Outcome& outcome)
{
    // The stored item's user and device stay: the restored state is theirs.
    const qint64 base = std::max(refused.version, stored.version ? stored.version->version : 0);
    const Version newer { base + 1, stored.version ? stored.version->user : stored.author, stored.version ? stored.version->device : 0 };
    ItemState& state = m_items[stored.gid];
    state.author = stored.author;
    state.version = newer;
    outcome.changes.append({ BoardStore::Change::Put, { stored.gid, stored.author, newer, rewritten(stored.envelope, pb::GraphicActionAdd, newer) }, 0, std::nullopt });
    outcome.toSender.append(rewritten(stored.envelope, pb::GraphicActionType(back), newer));
    outcome.toOthers.append(rewritten(stored.envelope, pb::GraphicActionUpdate, newer));
}

void BoardSession::handleOperation(Participant* from, const pb::SingleWhiteboardData& envelope, const pb::UserOperation& operation,
                                   Outcome& outcome)
{
    const qint64 user = from->accountId();
    if (operation.userid() != user) {
        RelayMetrics::instance().refused("clear");
        qCWarning(lcRelay).noquote() << "refused clear on board" << m_boardId << "by user" << user << ": sent as user" << operation.userid();
        return;
    }
    const std::optional<Version> before = versionOf(operation);

    if (operation.operationtype() == pb::UserOperation::UserOperationClearAll) {
        if (user != m_owner) {
            RelayMetrics::instance().refused("clear");
            qCWarning(lcRelay).noquote() << "refused clear all on board" << m_boardId << "by user" << user << ": not the owner";
            // The sender's board cleared itself: give it the board back. With
            // versions its clear mark keeps out whatever is older than the
            // clear, so each item comes back newer, as a refused change does.
            writeUnwritten();
            QList<BoardStore::Item> items;
            m_store->items(m_boardId, &items);
            for (const BoardStore::Item& item : std::as_const(items)) {
                if (before)
                    restore(item, *before, pb::GraphicActionAdd, outcome);
                else
                    outcome.toSender.append(item.envelope);
            }
            return;
        }
        clearItems(std::nullopt, before);
        outcome.changes.append({ BoardStore::Change::ClearAll, {}, 0, before });
    } else if (operation.operationtype() == pb::UserOperation::UserOperationClearByUid) {
        clearItems(user, before);
        outcome.changes.append({ BoardStore::Change::ClearByAuthor, {}, user, before });
    } else {
        return;
    }
    outcome.forward.append(&envelope);
}

bool BoardSession::admitPresence(Participant* from, const pb::UserAction& action)
{
    // Leaves come from the relay alone.
    if (action.actiontype() != pb::UserAction::UserActionMouseInfo)
        return false;
    if (action.userid() != from->accountId()) {
        RelayMetrics::instance().refused("pointer");
        qCWarning(lcRelay).noquote() << "refused pointer on board" << m_boardId << "by user" << from->accountId() << ": sent as user"
                                     << action.userid();
        return false;
    }
    return from->admitPointer();
}

} // namespace relay
