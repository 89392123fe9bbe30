#include "relay/boardsession.h"

#include "relay/participant.h"
#include "relay/relaylog.h"
#include "relay/relaymetrics.h"

#include "relay/wireaction.h"
#include "whiteboard/scene/versionbound.h"

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
using whiteboard::VersionBound;

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
    action->set_version(version.clock);
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
QByteArray rewritten(pb::SingleWhiteboardData envelope, pb::GraphicActionType type, const std::optional<Version>& version = std::nullopt,
                     bool withoutPixels = false)
{
    pb::WhiteboardData body;
    body.ParseFromString(envelope.data());
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_graphicactiontype(type);
    // Boards keep the pixels they hold when an update of a picture has none.
    if (withoutPixels && action->has_imagedata())
        for (pb::Image& image : *action->mutable_imagedata()->mutable_data())
            image.clear_data();
    if (version)
        setVersion(action, *version);
    envelope.set_graphicactiontype(type);
    envelope.set_data(body.SerializeAsString());
    return QByteArray::fromStdString(envelope.SerializeAsString());
}

QByteArray rewritten(const QByteArray& stored, pb::GraphicActionType type, const std::optional<Version>& version = std::nullopt,
                     bool withoutPixels = false)
{
    pb::SingleWhiteboardData envelope;
    envelope.ParseFromArray(stored.constData(), int(stored.size()));
    return rewritten(envelope, type, version, withoutPixels);
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

// An update of a picture that leaves its pixels as they are.
bool withoutPixels(const pb::GraphicAction& action)
{
    return action.has_imagedata() && action.imagedata().data_size() > 0 && !action.imagedata().data(0).has_data();
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
    m_bytes = 0;
    for (const BoardStore::Item& item : std::as_const(items))
        putItem(item.gid, item.author, item.version, item.envelope.size());
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
        participant->closeWith(QWebSocketProtocol::CloseCodeGoingAway, "shutdown", QStringLiteral("relay shutting down"));
}

void BoardSession::closeDeleted()
{
    m_waiting.clear();
    const QList<Participant*> participants = m_participants;
    for (Participant* participant : participants)
        participant->closeWith(QWebSocketProtocol::CloseCodePolicyViolated, "board-deleted", QStringLiteral("deleted from the store"));
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
        participant->closeWith(QWebSocketProtocol::CloseCode(1011), "storage", QStringLiteral("storage error"));
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
        participant->send(frame);

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
                participant->closeWith(QWebSocketProtocol::CloseCode(1013), "fell-behind", QStringLiteral("fell behind"));
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
            const auto known = m_items.constFind(gid);
            if (action.graphicactiontype() == pb::GraphicActionRemove)
                dropItem(gid);
            else if (known != m_items.cend())
                putItem(gid, known->author, versionOf(action), withoutPixels(action) ? known->bytes : qint64(envelope.ByteSizeLong()));
            else if (action.graphicactiontype() == pb::GraphicActionAdd)
                putItem(gid, WireAction::author(action), versionOf(action), envelope.ByteSizeLong());
        } else if (body.datatype() == pb::WhiteboardData::WhiteboardDataUserOperation) {
            const pb::UserOperation& operation = body.useroperationdata();
            const std::optional<Version> before = versionOf(operation);
            seeVersion(before);
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
        const bool cleared = (!author || item->author == *author) && clearedBy(item->version, before);
        if (cleared)
            m_bytes -= item->bytes;
        return cleared;
    });
}

void BoardSession::putItem(const QString& gid, qint64 author, const std::optional<Version>& version, qint64 bytes)
{
    ItemState& state = m_items[gid];
    m_bytes += bytes - state.bytes;
    state = ItemState { author, version, bytes };
    seeVersion(version);
}

void BoardSession::dropItem(const QString& gid)
{
    const auto known = m_items.constFind(gid);
    if (known == m_items.cend())
        return;
    m_bytes -= known->bytes;
    m_items.erase(known);
}

void BoardSession::seeVersion(const std::optional<Version>& version)
{
    // Only admitted versions get here: the clock stays below the bound.
    if (version)
        m_clock = std::max(m_clock, version->clock);
}

bool BoardSession::admitsVersion(const std::optional<Version>& version)
{
    if (!version || VersionBound::admits(m_clock, version->clock))
        return true;
    if (m_clockFromHistory)
        return false;
    // The items alone may not hold the clock: a removed item or a clear moved
    // it, and boards that saw them stamp past it. The kept entries hold those
    // versions, read once per session, when a version first seems ahead.
    m_clockFromHistory = true;
    writeUnwritten();
    QList<BoardStore::Entry> entries;
    if (!m_store->entries(m_boardId, 0, &entries))
        return false;
    for (const BoardStore::Entry& entry : std::as_const(entries)) {
        pb::TransferData frame;
        if (!frame.ParseFromArray(entry.frame.constData(), int(entry.frame.size())))
            continue;
        for (const pb::SingleWhiteboardData& envelope : frame.multi().whiteboarddatalist()) {
            pb::WhiteboardData body;
            if (!body.ParseFromString(envelope.data()))
                continue;
            std::optional<Version> seen;
            if (body.has_graphicactiondata())
                seen = versionOf(body.graphicactiondata());
            else if (body.has_useroperationdata() && body.useroperationdata().has_version())
                seen = Version { body.useroperationdata().version(), 0 };
            // What was stored was admitted; the bound holds all the same.
            if (seen && VersionBound::belowEnd(seen->clock))
                seeVersion(seen);
        }
    }
    return VersionBound::admits(m_clock, version->clock);
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
    // What a closed connection sent after its close costs nothing more.
    if (!from->isOpen())
        return;
    if (message->has_userjoin()) {
        RelayMetrics::instance().countMessage("join");
        // Each join reads and sends the whole board.
        if (!from->admitJoin()) {
            from->closeWith(QWebSocketProtocol::CloseCodePolicyViolated, "joins",
                            QStringLiteral("more than %1 joins a minute").arg(m_options.joinsPerMinute));
            return;
        }
        answerJoin(from);
        return;
    }
    if (!message->has_multi())
        return;

    const auto& list = message->multi().whiteboarddatalist();
    waiting.bodies.resize(size_t(list.size()));
    int changes = 0;
    for (int i = 0; i < list.size(); ++i) {
        if (!waiting.bodies[size_t(i)].ParseFromString(list[i].data())) {
            from->closeWith(QWebSocketProtocol::CloseCodeWrongDatatype, "malformed", QStringLiteral("envelope is not a WhiteboardData"));
            return;
        }
        if (waiting.bodies[size_t(i)].datatype() != pb::WhiteboardData::WhiteboardDataUserAction)
            ++changes;
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
    // Items, not frames: one frame may carry thousands.
    if (!from->admitAction(changes)) {
        from->closeWith(QWebSocketProtocol::CloseCodePolicyViolated, "rate", QStringLiteral("too many item actions"));
        return;
    }
    if (qint64(m_waiting.size()) >= RelayOptions::kMaxWaitingMessages) {
        // The store does not keep up (or is away): the sender is told so
        // rather than the relay's memory growing without bound.
        qCWarning(lcRelay).noquote() << "board" << m_boardId << "has" << m_waiting.size() << "messages waiting for the database";
        from->closeWith(QWebSocketProtocol::CloseCode(1013), "overloaded", QStringLiteral("relay overloaded"));
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
        checked.stored = !outcome.changes.isEmpty() || outcome.ordered;
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
            checked.from->send(frame);
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
    const std::string& rawGid = action.gid().empty() ? envelope.gid() : action.gid();
    const ItemAction item { from, envelope, action, QString::fromStdString(rawGid), action.graphicactiontype(),
                            WireAction::author(action), versionOf(action) };
    if (item.gid.isEmpty())
        return;
    if (!admitsVersion(item.version)) {
        refuse(from, item.gid, item.type, item.version, "version-ahead",
               QStringLiteral("version %1, clock %2").arg(item.version->clock).arg(m_clock), outcome);
        return;
    }
    // Every entry, not the first alone: boards apply each under its own
    // author and gid.
    if (!WireAction::onlyOf(action, rawGid, item.author)) {
        refuse(from, item.gid, item.type, item.version, "forged-entry", QStringLiteral("an entry of another author or gid"), outcome);
        return;
    }
    const auto known = m_items.constFind(item.gid);
    if (item.type == pb::GraphicActionAdd && known == m_items.cend())
        addItem(item, outcome);
    else if (item.type <= pb::GraphicActionRemove)
        changeItem(item, known == m_items.cend() ? nullptr : &*known, outcome);
}

void BoardSession::addItem(const ItemAction& item, Outcome& outcome)
{
    if (item.author != item.from->accountId()) {
        refuse(item.from, item.gid, item.type, item.version, "forged-author", QStringLiteral("added as user %1").arg(item.author), outcome);
        return;
    }
    const QByteArray state = rewritten(item.envelope, pb::GraphicActionAdd);
    if (m_items.size() >= m_options.maxBoardItems || m_bytes + state.size() > m_options.maxBoardBytes) {
        refuse(item.from, item.gid, item.type, item.version, "board-full", QStringLiteral("%1 items, %2 bytes").arg(m_items.size()).arg(m_bytes),
               outcome);
        return;
    }
    putItem(item.gid, item.author, item.version, state.size());
    outcome.changes.append({ BoardStore::Change::Put, { item.gid, item.author, item.version, state }, 0, std::nullopt });
    outcome.forward.append(&item.envelope);
}

void BoardSession::changeItem(const ItemAction& item, const ItemState* known, Outcome& outcome)
{
    const QString& gid = item.gid;
    const int type = item.type;
    if (!known) {
        // Gone already: a removal has nothing to do, an update is answered
        // with the removal.
        if (type != pb::GraphicActionRemove)
            refuse(item.from, gid, type, item.version, "no-item", QStringLiteral("no such item"), outcome);
        return;
    }
    const qint64 user = item.from->accountId();
    if (user != known->author && user != m_owner) {
        refuse(item.from, gid, type, item.version, "not-owner", QStringLiteral("item of user %1").arg(known->author), outcome);
        return;
    }
    if (type != pb::GraphicActionRemove && item.author != known->author) {
        refuse(item.from, gid, type, item.version, "forged-author", QStringLiteral("author changed to %1").arg(item.author), outcome);
        return;
    }
    if (item.version && known->version && !(*known->version < *item.version)) {
        // Older than what the board holds: every board has the newer state or
        // gets it, and drops this one by its version.
        qCDebug(lcRelay).noquote() << "stale" << actionName(type) << "of" << gid << "from" << item.from->description();
        return;
    }
    if (type == pb::GraphicActionRemove) {
        dropItem(gid);
        outcome.changes.append({ BoardStore::Change::Remove, { gid, 0, std::nullopt, {} }, 0, std::nullopt });
        outcome.forward.append(&item.envelope);
        return;
    }
    const qint64 itemAuthor = known->author;
    const qint64 knownBytes = known->bytes;
    QByteArray state = rewritten(item.envelope, pb::GraphicActionAdd);
    if (item.action.has_imagedata())
        state = keepingPicture(state, storedItem(gid));
    if (m_bytes - knownBytes + state.size() > m_options.maxBoardBytes) {
        refuse(item.from, gid, type, item.version, "board-full", QStringLiteral("%1 bytes").arg(m_bytes), outcome);
        return;
    }
    putItem(gid, itemAuthor, item.version, state.size());
    outcome.changes.append({ BoardStore::Change::Put, { gid, itemAuthor, item.version, state }, 0, std::nullopt });
    if (type == pb::GraphicActionAdd) {
        // A second add of a live gid would give the others a second item.
        outcome.toOthers.append(rewritten(item.envelope, pb::GraphicActionUpdate));
        return;
    }
    outcome.forward.append(&item.envelope);
}

bool BoardSession::refused(Participant* from, const char* reason, const QString& what, const QString& detail)
{
    RelayMetrics::instance().refused(reason);
    qCWarning(lcRelay).noquote() << "refused" << what << "on board" << m_boardId << "by user" << from->accountId() << ":"
                                 << QString::fromLatin1(reason) << detail;
    // Each refusal costs a correction: a sender refused again and again goes.
    if (from->admitRefusal())
        return true;
    from->closeWith(QWebSocketProtocol::CloseCodePolicyViolated, "refusals", QStringLiteral("too many refused actions"));
    return false;
}

void BoardSession::refuse(Participant* from, const QString& gid, int type, const std::optional<Version>& refusedVersion,
                          const char* reason, const QString& detail, Outcome& outcome)
{
    if (!refused(from, reason, QStringLiteral("%1 of gid %2").arg(QLatin1String(actionName(type)), gid), detail))
        return;
    const std::optional<Version> bounded = withinReach(refusedVersion);
    const auto known = m_items.find(gid);
    const std::optional<BoardStore::Item> stored = known == m_items.end() ? std::nullopt : storedItem(gid);
    if (!stored) {
        std::optional<Version> removal;
        if (bounded)
            removal = Version { VersionBound::after(bounded->clock), bounded->user, bounded->device };
        outcome.toSender.append(removalOf(gid, removal));
        return;
    }
    // The sender removed the item on its board: it needs it back as an add.
    const pb::GraphicActionType back = type == pb::GraphicActionRemove ? pb::GraphicActionAdd : pb::GraphicActionUpdate;
    if (!bounded) {
        outcome.toSender.append(back == pb::GraphicActionAdd ? stored->envelope : rewritten(stored->envelope, back));
        return;
    }
    restore(*stored, *bounded, !VersionBound::admits(m_clock, refusedVersion->clock), back, outcome);
}

std::optional<BoardStore::Version> BoardSession::withinReach(std::optional<Version> version) const
{
    // The correction never goes past what a clock admits, whatever the
    // refused version was.
    if (version)
        version->clock = std::min(version->clock, std::min(m_clock, VersionBound::kCeiling) + VersionBound::kLead - 1);
    return version;
}

void BoardSession::restore(const BoardStore::Item& stored, const Version& refused, bool ahead, int back, Outcome& outcome)
{
    // With versions the correction must win on the sender's board, so it goes
    // under a version newer than the refused one; the stored item's user and
    // device stay, the restored state is theirs. The others are told that
    // version too, so that their next change of the item passes it on the
    // sender's board, but without the pixels they hold already; nothing is
    // stored again: the stored state is the item's, only its clock moved. A
    // forged version is the sender's own matter: the others' clocks do not
    // move for it.
    const qint64 base = std::max(refused.clock, stored.version ? stored.version->clock : 0);
    const Version newer { VersionBound::after(base), stored.version ? stored.version->user : stored.author,
                          stored.version ? stored.version->device : 0 };
    outcome.toSender.append(rewritten(stored.envelope, pb::GraphicActionType(back), newer));
    if (ahead)
        return;
    const auto known = m_items.find(stored.gid);
    if (known != m_items.end())
        known->version = newer;
    seeVersion(newer);
    outcome.toOthers.append(rewritten(stored.envelope, pb::GraphicActionUpdate, newer, true));
    outcome.ordered = true;
}

void BoardSession::handleOperation(Participant* from, const pb::SingleWhiteboardData& envelope, const pb::UserOperation& operation,
                                   Outcome& outcome)
{
    const qint64 user = from->accountId();
    if (operation.userid() != user) {
        refused(from, "forged-author", QStringLiteral("clear"), QStringLiteral("sent as user %1").arg(operation.userid()));
        return;
    }
    const std::optional<Version> before = versionOf(operation);
    const bool clearAll = operation.operationtype() == pb::UserOperation::UserOperationClearAll;
    if (!clearAll && operation.operationtype() != pb::UserOperation::UserOperationClearByUid)
        return;
    const bool ahead = !admitsVersion(before);
    if (ahead || (clearAll && user != m_owner)) {
        if (!refused(from, ahead ? "version-ahead" : "not-owner", clearAll ? QStringLiteral("clear all") : QStringLiteral("clear of own items")))
            return;
        // The sender's board cleared itself: give it the board back (the
        // refusals' limit bounds how often). With versions its clear mark
        // keeps out whatever is older than the clear, so each item comes back
        // newer, as a refused change does.
        writeUnwritten();
        QList<BoardStore::Item> items;
        m_store->items(m_boardId, &items);
        const std::optional<Version> bounded = withinReach(before);
        for (const BoardStore::Item& item : std::as_const(items)) {
            if (!clearAll && item.author != user)
                continue;
            if (bounded)
                restore(item, *bounded, ahead, pb::GraphicActionAdd, outcome);
            else
                outcome.toSender.append(item.envelope);
        }
        return;
    }
    seeVersion(before);
    if (clearAll) {
        clearItems(std::nullopt, before);
        outcome.changes.append({ BoardStore::Change::ClearAll, {}, 0, before });
    } else {
        clearItems(user, before);
        outcome.changes.append({ BoardStore::Change::ClearByAuthor, {}, user, before });
    }
    outcome.forward.append(&envelope);
}

bool BoardSession::admitPresence(Participant* from, const pb::UserAction& action)
{
    // Leaves come from the relay alone.
    if (action.actiontype() != pb::UserAction::UserActionMouseInfo)
        return false;
    if (action.userid() != from->accountId()) {
        refused(from, "forged-author", QStringLiteral("pointer"), QStringLiteral("sent as user %1").arg(action.userid()));
        return false;
    }
    return from->admitPointer();
}

} // namespace relay
