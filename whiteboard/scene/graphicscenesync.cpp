// What the scene says to the other participants and how it applies what they
// say: whole items by gid, pointer marks, clears and joins.
#include "scene/graphicscene.h"

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
GraphicScene::Version versionOf(const pb::GraphicAction& action)
{
    return { action.version(), action.versionuser(), action.versiondevice() };
}

GraphicScene::Version versionOf(const pb::UserOperation& operation)
{
    return { operation.version(), operation.versionuser(), operation.versiondevice() };
}

} // namespace

// One admitted entry of a received list, as parsed, with its kind of item.
struct GraphicScene::ReceivedEntry
{
    std::shared_ptr<const google::protobuf::MessageLite> message;
    QString gid;
    qint64 author = 0;
    int type = 0;
};

// The entries the guard admits, clamped, each a copy: the guard writes into
// what it admits.
bool GraphicScene::entriesOf(const pb::GraphicAction& action, QList<ReceivedEntry>& entries)
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

// --- outbound ---------------------------------------------------------------

QString GraphicScene::boardId() const
{
    return m_view ? m_view->property("id").toString() : QString();
}

qint64 GraphicScene::newDeviceId()
{
    // The global generator is seeded by the system, once per process, and
    // may be used from any thread.
    qint64 id = 0;
    while (id == 0)
        id = qint64(QRandomGenerator::global()->generate64());
    return id;
}

GraphicScene::Version GraphicScene::stampChange(const QString& gid)
{
    SceneLocker locker(&m_itemsMutex);
    const Version version { ++m_clock, m_currentUserId, m_deviceId };
    m_gids[gid].version = version;
    return version;
}

void GraphicScene::advanceClock(qint64 seen)
{
    m_clock = std::max(m_clock, seen);
}

bool GraphicScene::admitsVersion(qint64 version) const
{
    if (VersionBound::belowEnd(version))
        return true;
    qCWarning(lcWhiteboardInput, "refused a change at version %lld: past the clock's end", version);
    return false;
}

void GraphicScene::sendItemAction(pb::GraphicActionType type, const QSharedPointer<GraphicItem>& item)
{
    sendItemBatch(type, { item });
}

void GraphicScene::sendItemBatch(pb::GraphicActionType type, const GraphicItemList& items)
{
    // One time for the whole batch, so that its envelopes agree; a version
    // per item, as each item is held by its own.
    const qint64 time = qint64(serverTimestamp());
    QList<Version> versions;
    for (const QSharedPointer<GraphicItem>& item : items)
        versions.append(stampChange(item->gid()));
    post(makeItemBatchMessage(boardId(), type, items, versions, time));
}

GraphicScene::Version GraphicScene::sendOperation(pb::UserOperation_Type type)
{
    const Version version { ++m_clock, m_currentUserId, m_deviceId };
    // Our own id also for a clear by user: the others clear the sender's items.
    post(makeOperationMessage(boardId(), type, m_currentUserId, version, qint64(serverTimestamp())));
    return version;
}

void GraphicScene::sendMouseInfo(const QPointF& position)
{
    post(makePointerMessage(boardId(), m_currentUserId, m_userName, position, qint64(serverTimestamp())));
}

void GraphicScene::joinWhiteboard(qint64 serverTime)
{
    // Fixed once, here; no round trip is allowed for.
    m_serverTimeOffset = QDateTime::currentMSecsSinceEpoch() - serverTime;
    const GraphicItemList all = items(ItemLayer, 1);
    // The oldest time travels through 32 bits: that is the protocol's format.
    // Nothing reads it back today (the relay answers with its whole board),
    // so the truncation of a millisecond time is harmless.
    post(makeJoinMessage(boardId(), all.isEmpty() ? qint64(1) : qint64(qint32(all.first()->timestamp()))));
}

void GraphicScene::takeWireForm(GraphicItem* item)
{
    // Read back as a receiving board builds it, on a fresh item: what the
    // message leaves out takes a fresh item's value here too.
    const QByteArray bytes = ItemCodec::encode(*item);
    const ItemKind* kind = ItemKind::ofType(item->type());
    if (bytes.isEmpty() || !kind)
        return;
    const std::unique_ptr<GraphicItem> fresh(kind->make(this));
    ItemCodec::decode(*fresh, bytes);
    SceneLocker locker(&m_itemsMutex);
    ItemCodec::decode(*item, ItemCodec::encode(*fresh));
}

// --- inbound ----------------------------------------------------------------

void GraphicScene::receiveData(pb::TransferData* data)
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

    // One frame request for the whole message, however many envelopes it holds.
    ++m_framesDeferred;
    for (const pb::SingleWhiteboardData& envelope : data->multi().whiteboarddatalist())
        applyEnvelope(envelope.data());
    if (--m_framesDeferred == 0 && m_frameRequested) {
        m_frameRequested = false;
        requestFrame();
    }
}

void GraphicScene::applyEnvelope(const std::string& bytes)
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

void GraphicScene::applyGraphicAction(const pb::GraphicAction& action)
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
    if (const QSharedPointer<GraphicItem> item = itemByGid(QString::fromStdString(action.gid())))
        dropItems({ item });
}

void GraphicScene::applyUnversionedAction(const pb::GraphicAction& action)
{
    QList<ReceivedEntry> entries;
    if (!entriesOf(action, entries))
        return;
    const bool add = action.graphicactiontype() == pb::GraphicActionAdd;
    const QSharedPointer<GraphicItem> updated = add ? QSharedPointer<GraphicItem>() : itemByGid(QString::fromStdString(action.gid()));
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
    updateLayer(ItemLayer, QRegion(dirty));
}

QRect GraphicScene::applyUnversionedEntry(const ReceivedEntry& entry, const QSharedPointer<GraphicItem>& updated)
{
    // An add of a known gid takes the place of the item that holds it.
    QSharedPointer<GraphicItem> item = updated ? updated : itemByGid(entry.gid);
    const bool known = item && (updated || item->type() == entry.type);
    if (!known)
        item = makeShared(ItemKind::ofType(entry.type)->make(this));
    QRect dirty;
    {
        // The render thread may be painting the item.
        SceneLocker locker(&m_itemsMutex);
        dirty = item->boundary().toRect();
        ItemCodec::read(*item, *entry.message);
    }
    if (known)
        updateItemIndex(ItemLayer, item);
    else
        addItem(ItemLayer, item);
    // A line that arrives alone dirties nothing new: it shows with the next
    // repaint of its region, as the protocol's clients have always done.
    // Only the place a replaced line held is repainted; a peer that wants
    // its line shown at once sends it with a version.
    if (updated || entry.type != GraphicItem::Line)
        dirty = dirty.united(item->boundary().toRect());
    return dirty;
}

void GraphicScene::applyVersionedAction(const pb::GraphicAction& action, const Version& version)
{
    const QString gid = QString::fromStdString(action.gid());
    advanceClock(version.clock);
    SceneLocker locker(&m_itemsMutex);
    GidRecord& record = m_gids[gid];
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
    if (version < clearMarkFor(entry.author))
        return;
    record.version = version;
    placeVersionedEntry(entry, gid, live ? held : QSharedPointer<GraphicItem>(), held);
}

void GraphicScene::placeVersionedEntry(const ReceivedEntry& entry, const QString& gid,
                                       const QSharedPointer<GraphicItem>& live, const QSharedPointer<GraphicItem>& held)
{
    // An update that comes before its add brings the item, as an add would:
    // either carries the whole item. A held object of the gid comes back, so
    // that the undo commands that hold it act on what is shown.
    const bool reuse = held && held->type() == entry.type;
    const QSharedPointer<GraphicItem> item = reuse ? held : makeShared(ItemKind::ofType(entry.type)->make(this));
    const QRect before = live ? live->boundary().toRect() : QRect();
    ItemCodec::read(*item, *entry.message);
    if (item->gid() != gid)
        item->setGid(gid);
    if (live && reuse)
        updateItemIndex(ItemLayer, item);
    else
        addItem(ItemLayer, item);
    updateLayer(ItemLayer, QRegion(before.united(item->boundary().toRect())));
}

void GraphicScene::dropItems(const GraphicItemList& items)
{
    SceneLocker locker(&m_itemsMutex);
    QRect dirty;
    for (const QSharedPointer<GraphicItem>& item : items) {
        // Nothing stays focused or painted as selected that the board no longer holds.
        if (m_focusItem == item)
            setFocusItem(QSharedPointer<GraphicItem>());
        if (item->selected()) {
            deselectItem(item);
            item->setSelected(false);
        }
        dirty = dirty.united(item->boundary().toRect());
    }
    removeItems(ItemLayer, items);
    updateLayer(ItemLayer, QRegion(dirty));
}

GraphicScene::Version GraphicScene::clearMarkFor(qlonglong author) const
{
    return std::max(m_clearMark, m_clearMarks.value(author));
}

void GraphicScene::raiseClearMark(const Version& version, const qlonglong* userId)
{
    SceneLocker locker(&m_itemsMutex);
    Version& mark = userId ? m_clearMarks[*userId] : m_clearMark;
    mark = std::max(mark, version);
    GraphicItemList older;
    for (const GidRecord& record : std::as_const(m_gids)) {
        const QSharedPointer<GraphicItem> item = record.live ? record.item.toStrongRef() : QSharedPointer<GraphicItem>();
        if (item && record.version < version && (!userId || item->userId() == *userId))
            older.append(item);
    }
    dropItems(older);
}

void GraphicScene::applyUserAction(const pb::UserAction& received)
{
    const qlonglong userId = received.userid();
    // A client keeps no mark for itself.
    if (userId == m_currentUserId)
        return;
    pb::UserAction action = received;
    if (!InboundGuard::admit(action))
        return;
    if (action.actiontype() == pb::UserAction::UserActionLeave)
        dropMark(userId);
    else if (action.actiontype() == pb::UserAction::UserActionMouseInfo)
        moveMark(userId, action.mouseinfo());
}

void GraphicScene::dropMark(qlonglong userId)
{
    for (qsizetype i = m_markItems.size() - 1; i >= 0; --i) {
        const QSharedPointer<GraphicItem> mark = m_markItems.at(i);
        if (mark->userId() != userId)
            continue;
        const QRectF area = static_cast<GraphicMarkItem*>(mark.data())->paintedArea(m_scale);
        qCDebug(lcWhiteboardScene) << "user" << userId << "left; their pointer leaves" << area;
        removeItem(MarkLayer, mark);
        updateLayer(MarkLayer, QRegion(area.toAlignedRect()));
        m_markItems.removeAt(i);
    }
}

void GraphicScene::dropMarks()
{
    while (!m_markItems.isEmpty())
        dropMark(m_markItems.constLast()->userId());
}

void GraphicScene::moveMark(qlonglong userId, const pb::UserMouseInfoData& info)
{
    const QString text = QString::fromStdString(info.text());
    const QPointF position(info.mouseposition().x(), info.mouseposition().y());
    for (const QSharedPointer<GraphicItem>& entry : std::as_const(m_markItems)) {
        if (entry->userId() != userId)
            continue;
        auto* mark = static_cast<GraphicMarkItem*>(entry.data());
        // Where it was goes as well as where it comes: a label longer or a
        // zoom smaller than at its last move reaches further.
        QRectF dirty = mark->paintedArea(m_scale);
        {
            // The render thread paints the mark.
            SceneLocker locker(&m_itemsMutex);
            mark->setText(text);
            mark->place(position, m_scale);
        }
        dirty = dirty.united(mark->paintedArea(m_scale));
        updateLayer(MarkLayer, QRegion(dirty.toAlignedRect()));
        return;
    }
    auto* mark = new GraphicMarkItem(text, QFont(), this, nullptr);
    stamp(mark);
    mark->setUserId(userId);
    mark->place(position, m_scale);
    qCDebug(lcWhiteboardScene) << "pointer of user" << userId << text << "at" << mark->boundary();
    const QSharedPointer<GraphicItem> shared = addItem(MarkLayer, mark);
    updateLayer(MarkLayer, QRegion(mark->paintedArea(m_scale).toAlignedRect()));
    m_markItems.append(shared);
}

void GraphicScene::applyUserOperation(const pb::UserOperation& operation)
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
        advanceClock(operation.version());
        raiseClearMark(versionOf(operation), author);
        return;
    }
    GraphicItemList list = items(ItemLayer, 1);
    if (author)
        list.removeIf([userId](const QSharedPointer<GraphicItem>& item) { return item->userId() != userId; });
    dropItems(list);
}

} // namespace whiteboard
