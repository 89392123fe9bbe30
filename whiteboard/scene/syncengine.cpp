// What the scene says to the other participants and how it applies what they
// say: whole items by gid, pointer marks, clears and joins.
#include "scene/syncengine.h"

#include "scene/boardstate.h"

#include "graphics/graphicitem.h"
#include "graphics/graphicmarkitem.h"
#include "inputlimits.h"
#include "scene/inboundguard.h"
#include "scene/itemcodec.h"
#include "scene/itemkind.h"
#include "scene/versionbound.h"
#include "scene/wiremessages.h"

#include "proto/whiteboard.pb.h"

#include <QDateTime>
#include <QFont>
#include <QMutexLocker>
#include <QQuickItem>
#include <QRandomGenerator>

#include <algorithm>
#include <memory>
#include <type_traits>

namespace pb = im::whiteboard;

namespace whiteboard {

namespace {

// Absent fields read as 0: a peer without devices ties as it always did.
SyncEngine::Version versionOf(const pb::GraphicAction& action)
{
    return { action.version(), action.versionuser(), action.versiondevice() };
}

SyncEngine::Version versionOf(const pb::UserOperation& operation)
{
    return { operation.version(), operation.versionuser(), operation.versiondevice() };
}

} // namespace

// One admitted entry of a received list, as parsed, with its kind of item.
struct SyncEngine::ReceivedEntry
{
    std::shared_ptr<const google::protobuf::MessageLite> message;
    QString gid;
    qint64 author = 0;
    int type = 0;
};

// The entries the guard admits, clamped, each a copy: the guard writes into
// what it admits.
bool SyncEngine::entriesOf(const pb::GraphicAction& action, QList<ReceivedEntry>& entries)
{
    const ItemKind* kind = ItemKind::ofList(action.actiondata_case());
    // A canvas list is known and holds nothing to apply.
    if (!kind && action.actiondata_case() == pb::GraphicAction::kCanvasdata)
        return true;
    if (!kind) {
        qWarning("unknown graphic action data");
        return false;
    }
    ItemLists::visit(action, [&entries, kind](const auto& list) {
        for (const auto& received : list.data()) {
            auto entry = std::make_shared<std::decay_t<decltype(received)>>(received);
            if (InboundGuard::admit(*entry))
                entries.append({ entry, QString::fromStdString(entry->baseinfo().gid()), entry->baseinfo().userid(),
                                 kind->type });
        }
    });
    return true;
}

SyncEngine::SyncEngine(GraphicScene& scene)
    : m_scene(scene)
{
}

SyncEngine::~SyncEngine() = default;

// --- outbound ---------------------------------------------------------------

QString SyncEngine::boardId() const
{
    const QQuickItem* view = m_scene.view();
    return view ? view->property("id").toString() : QString();
}

void SyncEngine::post(pb::TransferData* data)
{
    m_scene.post(data);
}

qulonglong SyncEngine::serverTime() const
{
    return qulonglong(QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset);
}

qint64 SyncEngine::newDeviceId()
{
    // The global generator is seeded by the system, once per process, and
    // may be used from any thread.
    qint64 id = 0;
    while (id == 0)
        id = qint64(QRandomGenerator::global()->generate64());
    return id;
}

bool SyncEngine::admitsVersion(qint64 version)
{
    if (VersionBound::belowEnd(version))
        return true;
    qCWarning(lcWhiteboardInput, "refused a change at version %lld: past the clock's end", version);
    return false;
}

void SyncEngine::sendItems(pb::GraphicActionType type, const GraphicItemList& items)
{
    // One time for the whole batch, so that its envelopes agree; a version
    // per item, as each item is held by its own.
    const qint64 time = qint64(serverTime());
    QList<Version> versions;
    {
        SceneLocker locker(&m_scene.itemsMutex());
        BoardState& board = m_scene.board();
        // The board holds each gid at the version it sends.
        for (const QSharedPointer<GraphicItem>& item : items) {
            versions.append(board.nextVersion(m_scene.currentUserId(), m_deviceId));
            board.record(item->gid()).version = versions.constLast();
        }
    }
    post(makeItemBatchMessage(boardId(), type, items, versions, time));
}

SyncEngine::Version SyncEngine::sendOperation(pb::UserOperation_Type type)
{
    Version version;
    {
        SceneLocker locker(&m_scene.itemsMutex());
        version = m_scene.board().nextVersion(m_scene.currentUserId(), m_deviceId);
    }
    // Our own id also for a clear by user: the others clear the sender's items.
    post(makeOperationMessage(boardId(), type, m_scene.currentUserId(), version, qint64(serverTime())));
    return version;
}

void SyncEngine::sendPointer(const QPointF& position)
{
    post(makePointerMessage(boardId(), m_scene.currentUserId(), m_scene.userName(), position, qint64(serverTime())));
}

void SyncEngine::join(qint64 serverTime)
{
    // Fixed once, here; no round trip is allowed for.
    m_serverTimeOffset = QDateTime::currentMSecsSinceEpoch() - serverTime;
    const GraphicItemList all = m_scene.items(GraphicScene::ItemLayer, 1);
    // The oldest time travels through 32 bits: that is the protocol's format.
    // Nothing reads it back today (the relay answers with its whole board),
    // so the truncation of a millisecond time is harmless.
    post(makeJoinMessage(boardId(), all.isEmpty() ? qint64(1) : qint64(qint32(all.first()->timestamp()))));
}

void SyncEngine::takeWireForm(GraphicItem* item)
{
    // Read back as a receiving board builds it, on a fresh item: what the
    // message leaves out takes a fresh item's value here too.
    const QByteArray bytes = ItemCodec::encode(*item);
    const ItemKind* kind = ItemKind::ofType(item->type());
    if (bytes.isEmpty() || !kind)
        return;
    const std::unique_ptr<GraphicItem> fresh(kind->make(&m_scene));
    ItemCodec::decode(*fresh, bytes);
    SceneLocker locker(&m_scene.itemsMutex());
    ItemCodec::decode(*item, ItemCodec::encode(*fresh));
}

// --- inbound ----------------------------------------------------------------

void SyncEngine::receive(pb::TransferData* data)
{
    if (!data)
        return;
    // Ours from here on, whichever way we leave.
    const std::unique_ptr<pb::TransferData> owned(data);

    if (!data->has_multi()) {
        if (data->has_userjoin())
            qCDebug(lcWhiteboardScene, "server data loaded.");
        return;
    }

    // The frame requests of its envelopes coalesce into one.
    for (const pb::SingleWhiteboardData& envelope : data->multi().whiteboarddatalist())
        applyEnvelope(envelope.data());
}

void SyncEngine::applyEnvelope(const std::string& bytes)
{
    if (!InboundGuard::admitEnvelope(bytes))
        return;
    pb::WhiteboardData body;
    // Not tested: what fails to parse reads as defaults. The default type is
    // a graphic action without a list, which entriesOf() refuses, so a
    // broken body changes nothing.
    body.ParseFromString(bytes);
    switch (body.datatype()) {
    case pb::WhiteboardData::WhiteboardDataGraphicAction:
        applyGraphicAction(body.graphicactiondata());
        break;
    case pb::WhiteboardData::WhiteboardDataUserAction:
        applyUserAction(body.useractiondata());
        break;
    case pb::WhiteboardData::WhiteboardDataUserOperation:
        applyUserOperation(body.useroperationdata());
        break;
    default:
        break;
    }
}

void SyncEngine::applyGraphicAction(const pb::GraphicAction& action)
{
    const pb::GraphicActionType type = action.graphicactiontype();
    if (type != pb::GraphicActionAdd && type != pb::GraphicActionUpdate && type != pb::GraphicActionModify
        && type != pb::GraphicActionRemove)
        return;
    if (action.has_version()) {
        if (admitsVersion(action.version()))
            applyVersionedAction(action, versionOf(action));
        return;
    }
    // A peer without versions: applied in the order of arrival, the last
    // message of a gid wins.
    if (type != pb::GraphicActionRemove) {
        applyUnversionedAction(action);
        return;
    }
    // The item message that rides along is not read: the gid alone names
    // what goes, so a removal takes whatever state this board holds of it.
    if (const QSharedPointer<GraphicItem> item = m_scene.itemByGid(QString::fromStdString(action.gid())))
        dropItems({ item });
}

void SyncEngine::applyUnversionedAction(const pb::GraphicAction& action)
{
    QList<ReceivedEntry> entries;
    if (!entriesOf(action, entries))
        return;
    const bool add = action.graphicactiontype() == pb::GraphicActionAdd;
    const QSharedPointer<GraphicItem> updated = add ? QSharedPointer<GraphicItem>() : m_scene.itemByGid(QString::fromStdString(action.gid()));
    // An update of an unknown gid is dropped without a word. Only peers
    // without versions get here; with versions an early update brings the
    // item, since their order is repaired by the clock.
    if (!add && !updated)
        return;
    QRect dirty;
    for (const ReceivedEntry& entry : std::as_const(entries)) {
        // An item reads any entry as its own message, where the fields the
        // guard checked mean other things: an update applies only to an item
        // of its own kind.
        if (updated && updated->type() != entry.type) {
            qCWarning(lcWhiteboardInput, "refused update %s: entries of another kind of item", qPrintable(updated->gid()));
            continue;
        }
        dirty = dirty.united(applyUnversionedEntry(entry, updated));
    }
    m_scene.invalidate(QRectF(dirty), GraphicScene::ItemLayer);
}

QRect SyncEngine::applyUnversionedEntry(const ReceivedEntry& entry, const QSharedPointer<GraphicItem>& updated)
{
    // An add of a known gid takes the place of the item that holds it.
    QSharedPointer<GraphicItem> item = updated ? updated : m_scene.itemByGid(entry.gid);
    const bool known = item && (updated || item->type() == entry.type);
    if (!known)
        item = GraphicScene::makeShared(ItemKind::ofType(entry.type)->make(&m_scene));
    QRect dirty;
    {
        // The render thread may be painting the item.
        SceneLocker locker(&m_scene.itemsMutex());
        dirty = item->boundary().toRect();
        ItemCodec::read(*item, *entry.message);
    }
    if (known)
        m_scene.updateItemIndex(GraphicScene::ItemLayer, item);
    else
        m_scene.addItem(GraphicScene::ItemLayer, item);
    // A line that arrives alone dirties nothing new: it shows with the next
    // repaint of its region, as the protocol's clients have always done.
    // Only the place a replaced line held is repainted; a peer that wants
    // its line shown at once sends it with a version.
    if (updated || entry.type != GraphicItem::Line)
        dirty = dirty.united(item->boundary().toRect());
    return dirty;
}

void SyncEngine::applyVersionedAction(const pb::GraphicAction& action, const Version& version)
{
    const QString gid = QString::fromStdString(action.gid());
    SceneLocker locker(&m_scene.itemsMutex());
    BoardState& board = m_scene.board();
    board.advanceClock(version.clock);
    BoardState::GidRecord& record = board.record(gid);
    // Only what is newer than the state held: an older message, or one that
    // arrives twice, changes nothing.
    if (!(record.version < version))
        return;
    const QSharedPointer<GraphicItem> held = record.item.toStrongRef();
    const bool live = record.live && held;
    if (action.graphicactiontype() == pb::GraphicActionRemove) {
        // The version stays as a tombstone: older adds and updates stay out.
        record.version = version;
        if (live)
            dropItems({ held });
        return;
    }
    QList<ReceivedEntry> entries;
    if (!entriesOf(action, entries) || entries.isEmpty())
        return;
    // Every message of ours holds one item; the gid of the action is the key.
    const ReceivedEntry& entry = entries.first();
    // A clear newer than this change has taken the item on every board.
    if (version < board.clearMarkFor(entry.author))
        return;
    record.version = version;
    placeVersionedEntry(entry, gid, live ? held : QSharedPointer<GraphicItem>(), held);
}

void SyncEngine::placeVersionedEntry(const ReceivedEntry& entry, const QString& gid,
                                       const QSharedPointer<GraphicItem>& live, const QSharedPointer<GraphicItem>& held)
{
    // An update that comes before its add brings the item, as an add would:
    // either carries the whole item. A held object of the gid comes back, so
    // that the undo commands that hold it act on what is shown.
    const bool reuse = held && held->type() == entry.type;
    const QSharedPointer<GraphicItem> item = reuse ? held : GraphicScene::makeShared(ItemKind::ofType(entry.type)->make(&m_scene));
    const QRect before = live ? live->boundary().toRect() : QRect();
    ItemCodec::read(*item, *entry.message);
    if (item->gid() != gid)
        item->setGid(gid);
    if (live && reuse)
        m_scene.updateItemIndex(GraphicScene::ItemLayer, item);
    else
        m_scene.addItem(GraphicScene::ItemLayer, item);
    m_scene.invalidate(QRectF(before.united(item->boundary().toRect())), GraphicScene::ItemLayer);
}

void SyncEngine::dropItems(const GraphicItemList& items)
{
    SceneLocker locker(&m_scene.itemsMutex());
    QRect dirty;
    for (const QSharedPointer<GraphicItem>& item : items) {
        // Nothing stays focused or painted as selected that the board no longer holds.
        if (m_scene.focusItem() == item)
            m_scene.setFocusItem(QSharedPointer<GraphicItem>());
        if (item->selected()) {
            m_scene.deselectItem(item);
            item->setSelected(false);
        }
        dirty = dirty.united(item->boundary().toRect());
    }
    m_scene.removeItems(GraphicScene::ItemLayer, items);
    m_scene.invalidate(QRectF(dirty), GraphicScene::ItemLayer);
}

void SyncEngine::raiseClearMark(const Version& version, const qlonglong* userId)
{
    SceneLocker locker(&m_scene.itemsMutex());
    dropItems(m_scene.board().raiseClearMark(version, userId));
}

void SyncEngine::applyUserAction(const pb::UserAction& received)
{
    const qlonglong userId = received.userid();
    // A client keeps no mark for itself.
    if (userId == m_scene.currentUserId())
        return;
    pb::UserAction action = received;
    if (!InboundGuard::admit(action))
        return;
    if (action.actiontype() == pb::UserAction::UserActionLeave)
        dropMark(userId);
    else if (action.actiontype() == pb::UserAction::UserActionMouseInfo)
        moveMark(userId, action.mouseinfo());
}

void SyncEngine::dropMark(qlonglong userId)
{
    for (qsizetype i = m_marks.size() - 1; i >= 0; --i) {
        const QSharedPointer<GraphicItem> mark = m_marks.at(i);
        if (mark->userId() != userId)
            continue;
        const QRectF area = static_cast<GraphicMarkItem*>(mark.data())->paintedArea(m_scene.scale());
        qCDebug(lcWhiteboardScene) << "user" << userId << "left; their pointer leaves" << area;
        m_scene.removeItem(GraphicScene::MarkLayer, mark);
        m_scene.invalidate(QRectF(area.toAlignedRect()), GraphicScene::MarkLayer);
        m_marks.removeAt(i);
    }
}

void SyncEngine::dropMarks()
{
    while (!m_marks.isEmpty())
        dropMark(m_marks.constLast()->userId());
}

void SyncEngine::moveMark(qlonglong userId, const pb::UserMouseInfoData& info)
{
    const QString text = QString::fromStdString(info.text());
    const QPointF position(info.mouseposition().x(), info.mouseposition().y());
    for (const QSharedPointer<GraphicItem>& entry : std::as_const(m_marks)) {
        if (entry->userId() != userId)
            continue;
        auto* mark = static_cast<GraphicMarkItem*>(entry.data());
        // Where it was goes as well as where it comes: a label longer or a
        // zoom smaller than at its last move reaches further.
        QRectF dirty = mark->paintedArea(m_scene.scale());
        {
            // The render thread paints the mark.
            SceneLocker locker(&m_scene.itemsMutex());
            mark->setText(text);
            mark->place(position, m_scene.scale());
        }
        dirty = dirty.united(mark->paintedArea(m_scene.scale()));
        m_scene.invalidate(QRectF(dirty.toAlignedRect()), GraphicScene::MarkLayer);
        return;
    }
    auto* mark = new GraphicMarkItem(text, QFont(), &m_scene, nullptr);
    m_scene.stamp(mark);
    mark->setUserId(userId);
    mark->place(position, m_scene.scale());
    qCDebug(lcWhiteboardScene) << "pointer of user" << userId << text << "at" << mark->boundary();
    const QSharedPointer<GraphicItem> shared = m_scene.addItem(GraphicScene::MarkLayer, mark);
    m_scene.invalidate(QRectF(mark->paintedArea(m_scene.scale()).toAlignedRect()), GraphicScene::MarkLayer);
    m_marks.append(shared);
}

void SyncEngine::applyUserOperation(const pb::UserOperation& operation)
{
    // A clear of somebody else's never enters the local history: a user
    // undoes their own work. A clear without a version takes what is here now.
    const qlonglong userId = operation.userid();
    const qlonglong* author = nullptr;
    switch (operation.operationtype()) {
    case pb::UserOperation::UserOperationClearAll:
        break;
    case pb::UserOperation::UserOperationClearByUid:
        author = &userId;
        break;
    default:
        return;
    }
    if (operation.has_version()) {
        if (!admitsVersion(operation.version()))
            return;
        {
            SceneLocker locker(&m_scene.itemsMutex());
            m_scene.board().advanceClock(operation.version());
        }
        raiseClearMark(versionOf(operation), author);
        return;
    }
    GraphicItemList list = m_scene.items(GraphicScene::ItemLayer, 1);
    if (author)
        list.removeIf([userId](const QSharedPointer<GraphicItem>& item) { return item->userId() != userId; });
    dropItems(list);
}

} // namespace whiteboard
