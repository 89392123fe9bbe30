// What the scene says to the other participants and how it applies what they
// say: whole items by gid, pointer marks, clears and joins.
#include "scene/graphicscene.h"

#include "graphics/graphicarrowline.h"
#include "graphics/graphicellipseitem.h"
#include "graphics/graphicimage.h"
#include "graphics/graphicitem.h"
#include "graphics/graphiclineitem.h"
#include "graphics/graphiclinesegmentitem.h"
#include "graphics/graphicmarkitem.h"
#include "graphics/graphicpenitem.h"
#include "graphics/graphicrectitem.h"
#include "graphics/graphictextitem.h"
#include "inputlimits.h"
#include "scene/inboundguard.h"

#include "proto/whiteboard.pb.h"

#include <QDateTime>
#include <QFont>
#include <QMutexLocker>
#include <QQuickItem>

#include <algorithm>
#include <memory>
#include <string>

namespace pb = im::whiteboard;

namespace whiteboard {

namespace {

void fillItemEnvelope(pb::SingleWhiteboardData* envelope, pb::GraphicActionType type, GraphicItem* item,
                      qint64 timestamp, const GraphicScene::Version& version)
{
    const std::string gid = item->gid().toStdString();
    envelope->set_gid(gid);
    envelope->set_timestamp(timestamp);
    envelope->set_graphicactiontype(type);

    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_timestamp(timestamp);
    action->set_graphicactiontype(type);
    action->set_gid(gid);
    action->set_version(version.clock);
    action->set_versionuser(version.user);
    // Removals carry the whole item too.
    item->serializeToAction(action);
    // The payload of an envelope is a second, separately encoded message.
    envelope->set_data(body.SerializeAsString());
}

// Items take their state through the one interface, deserialize(bytes), so a
// received entry is encoded again on its way in.
template <class Message>
QByteArray bytesOf(const Message& entry)
{
    return QByteArray::fromStdString(entry.SerializeAsString());
}

// One entry of a received list, with the kind of item it describes.
struct ReceivedEntry
{
    QByteArray bytes;
    QString gid;
    qint64 author = 0;
    int type = 0;
};

template <class List>
void collect(const List& list, int type, QList<ReceivedEntry>& entries)
{
    for (auto entry : list.data()) {
        if (InboundGuard::admit(entry))
            entries.append({ bytesOf(entry), QString::fromStdString(entry.baseinfo().gid()), entry.baseinfo().userid(), type });
    }
}

// The entries of an action's list; false for a list this board does not know.
// A canvas list is known and holds nothing to apply.
bool entriesOf(const pb::GraphicAction& action, QList<ReceivedEntry>& entries)
{
    switch (action.actiondata_case()) {
    case pb::GraphicAction::kArrowdata:
        collect(action.arrowdata(), GraphicItem::ArrowLine, entries);
        return true;
    case pb::GraphicAction::kCanvasdata:
        return true;
    case pb::GraphicAction::kEllipsedata:
        collect(action.ellipsedata(), GraphicItem::Ellipse, entries);
        return true;
    case pb::GraphicAction::kImagedata:
        collect(action.imagedata(), GraphicItem::Image, entries);
        return true;
    case pb::GraphicAction::kLinedata:
        collect(action.linedata(), GraphicItem::Line, entries);
        return true;
    case pb::GraphicAction::kPathdata:
        collect(action.pathdata(), GraphicItem::Pen, entries);
        return true;
    case pb::GraphicAction::kPolylinedata:
        collect(action.polylinedata(), GraphicItem::Segment, entries);
        return true;
    case pb::GraphicAction::kRectdata:
        collect(action.rectdata(), GraphicItem::Rectangle, entries);
        return true;
    case pb::GraphicAction::kTextdata:
        collect(action.textdata(), GraphicItem::Text, entries);
        return true;
    default:
        qWarning("unknown graphic action data");
        return false;
    }
}

GraphicItem* makeReceivedItem(GraphicScene* scene, int type)
{
    switch (type) {
    case GraphicItem::ArrowLine:
        return new GraphicArrowLineItem(scene, nullptr);
    case GraphicItem::Ellipse:
        return new GraphicEllipseItem(scene, nullptr);
    case GraphicItem::Image:
        return new GraphicImage(QString(), scene, nullptr);
    case GraphicItem::Line:
        return new GraphicLineItem(scene, nullptr);
    case GraphicItem::Pen:
        return new GraphicPenItem(scene, nullptr);
    case GraphicItem::Segment:
        return new GraphicLineSegmentItem(scene, nullptr);
    case GraphicItem::Rectangle:
        return new GraphicRectItem(scene, nullptr);
    default:
        return new GraphicTextItem(QString(), QFont(), scene, nullptr);
    }
}

} // namespace

// --- outbound ---------------------------------------------------------------

pb::TransferData* GraphicScene::makeTransferData()
{
    auto* data = new pb::TransferData;
    const QByteArray id = (m_view ? m_view->property("id").toString() : QString()).toUtf8();
    // Up to the first zero byte, as a C string reads.
    data->set_allocated_whiteboardid(new std::string(id.constData()));
    return data;
}

GraphicScene::Version GraphicScene::stampChange(const QString& gid)
{
    QMutexLocker locker(&m_itemsMutex);
    const Version version { ++m_clock, m_currentUserId };
    m_gids[gid].version = version;
    return version;
}

void GraphicScene::advanceClock(qint64 seen)
{
    m_clock = std::max(m_clock, seen);
}

pb::TransferData* GraphicScene::makeItemAction(pb::GraphicActionType type, const QSharedPointer<GraphicItem>& item)
{
    return makeBatchAction(type, { item });
}

pb::TransferData* GraphicScene::makeBatchAction(pb::GraphicActionType type, const GraphicItemList& items)
{
    pb::TransferData* data = makeTransferData();
    // One time for the whole batch, so that its envelopes agree; a version
    // per item, as each item is held by its own.
    const qint64 timestamp = QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset;
    for (const QSharedPointer<GraphicItem>& item : items)
        fillItemEnvelope(data->mutable_multi()->add_whiteboarddatalist(), type, item.data(), timestamp,
                         stampChange(item->gid()));
    return data;
}

GraphicScene::Version GraphicScene::sendOperation(pb::UserOperation_Type type)
{
    const Version version { ++m_clock, m_currentUserId };
    pb::TransferData* data = makeTransferData();
    pb::SingleWhiteboardData* envelope = data->mutable_multi()->add_whiteboarddatalist();
    const qint64 timestamp = QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset;
    envelope->set_timestamp(timestamp);

    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserOperation);
    pb::UserOperation* operation = body.mutable_useroperationdata();
    operation->set_operationtype(type);
    operation->set_timestamp(timestamp);
    // Our own id also for a clear by user: the others clear the sender's items.
    operation->set_userid(m_currentUserId);
    operation->set_version(version.clock);
    operation->set_versionuser(version.user);
    envelope->set_data(body.SerializeAsString());
    post(data);
    return version;
}

void GraphicScene::sendMouseInfo(const QPointF& position)
{
    pb::TransferData* data = makeTransferData();
    pb::SingleWhiteboardData* envelope = data->mutable_multi()->add_whiteboarddatalist();
    const qint64 timestamp = QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset;
    envelope->set_timestamp(timestamp);

    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserAction);
    pb::UserAction* action = body.mutable_useractiondata();
    action->set_actiontype(pb::UserAction::UserActionMouseInfo);
    action->set_timestamp(timestamp);
    action->set_userid(m_currentUserId);
    pb::UserMouseInfoData* info = action->mutable_mouseinfo();
    info->set_text(m_userName.toStdString());
    info->mutable_mouseposition()->set_x(float(position.x()));
    info->mutable_mouseposition()->set_y(float(position.y()));
    envelope->set_data(body.SerializeAsString());
    post(data);
}

void GraphicScene::joinWhiteboard(qint64 serverTime)
{
    // Fixed once, here; no round trip is allowed for.
    m_serverTimeOffset = QDateTime::currentMSecsSinceEpoch() - serverTime;

    pb::TransferData* data = makeTransferData();
    pb::UserJoinData* join = data->mutable_userjoin();
    const GraphicItemList all = items(ItemLayer, 1);
    // The oldest time travels through 32 bits: that is the protocol's format.
    join->set_oldesttimestamp(all.isEmpty() ? qint64(1) : qint64(qint32(all.first()->timestamp())));
    post(data);
}

void GraphicScene::takeWireForm(GraphicItem* item)
{
    // Read back as a receiving board builds it, on a fresh item: what the
    // message leaves out takes a fresh item's value here too.
    const QByteArray bytes = item->serialize();
    if (bytes.isEmpty())
        return;
    const std::unique_ptr<GraphicItem> fresh(makeReceivedItem(this, item->type()));
    fresh->deserialize(bytes);
    QMutexLocker locker(&m_itemsMutex);
    item->deserialize(fresh->serialize());
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
            qDebug("server data loaded.");
        return;
    }

    // One frame request for the whole message, however many envelopes it holds.
    ++m_framesDeferred;
    const pb::MultiWhiteboardData& multi = data->multi();
    for (int i = 0; i < multi.whiteboarddatalist_size(); ++i) {
        const pb::SingleWhiteboardData& envelope = multi.whiteboarddatalist(i);
        if (!InboundGuard::admitEnvelope(envelope.data()))
            continue;
        pb::WhiteboardData body;
        // Not tested: what fails to parse reads as defaults.
        body.ParseFromString(envelope.data());

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
    if (--m_framesDeferred == 0 && m_frameRequested) {
        m_frameRequested = false;
        requestFrame();
    }
}

void GraphicScene::applyGraphicAction(const pb::GraphicAction& action)
{
    const pb::GraphicActionType type = action.graphicactiontype();
    if (type != pb::GraphicActionAdd && type != pb::GraphicActionUpdate && type != pb::GraphicActionModify
        && type != pb::GraphicActionRemove)
        return;
    if (action.has_version()) {
        applyVersionedAction(action, Version { action.version(), action.versionuser() });
        return;
    }

    // A peer without versions: applied in the order of arrival, the last
    // message of a gid wins.
    if (type == pb::GraphicActionRemove) {
        // The item message that rides along is not read.
        if (const QSharedPointer<GraphicItem> item = findItem(QString::fromStdString(action.gid())))
            dropItems({ item });
        return;
    }
    QList<ReceivedEntry> entries;
    if (!entriesOf(action, entries))
        return;
    const QSharedPointer<GraphicItem> updated =
        type == pb::GraphicActionAdd ? QSharedPointer<GraphicItem>() : findItem(QString::fromStdString(action.gid()));
    // An update of an unknown gid is dropped without a word.
    if (type != pb::GraphicActionAdd && !updated)
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
        // An add of a known gid takes the place of the item that holds it.
        QSharedPointer<GraphicItem> item = updated ? updated : findItem(entry.gid);
        const bool known = item && (updated || item->type() == entry.type);
        if (!known)
            item = makeShared(makeReceivedItem(this, entry.type));
        {
            // The render thread may be painting the item.
            QMutexLocker locker(&m_itemsMutex);
            dirty = dirty.united(item->boundary().toRect());
            item->deserialize(entry.bytes);
        }
        if (known)
            updateItemIndex(ItemLayer, item);
        else
            addItem(ItemLayer, item);
        // A line that arrives alone dirties nothing: it shows with the next
        // repaint of its region, as the protocol's clients have always done.
        if (updated || entry.type != GraphicItem::Line)
            dirty = dirty.united(item->boundary().toRect());
    }
    updateLayer(ItemLayer, QRegion(dirty));
}

void GraphicScene::applyVersionedAction(const pb::GraphicAction& action, const Version& version)
{
    const QString gid = QString::fromStdString(action.gid());
    advanceClock(version.clock);
    QMutexLocker locker(&m_itemsMutex);
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
    // An update that comes before its add brings the item, as an add would:
    // either carries the whole item.
    const bool reuse = held && held->type() == entry.type;
    const QSharedPointer<GraphicItem> item = reuse ? held : makeShared(makeReceivedItem(this, entry.type));
    const QRect before = live ? held->boundary().toRect() : QRect();
    item->deserialize(entry.bytes);
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
    QMutexLocker locker(&m_itemsMutex);
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
    QMutexLocker locker(&m_itemsMutex);
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
    const pb::UserMouseInfoData info = action.mouseinfo();

    switch (action.actiontype()) {
    case pb::UserAction::UserActionLeave:
        for (int i = 0; i < m_markItems.size(); ++i) {
            const QSharedPointer<GraphicItem> mark = m_markItems.at(i);
            if (mark->userId() != userId)
                continue;
            const QRect rect = mark->boundary().toRect();
            qDebug() << "User leave mark boundry:" << rect;
            removeItem(MarkLayer, mark);
            updateLayer(MarkLayer, QRegion(rect));
            // The entry that moves into this place is passed over.
            m_markItems.removeAt(i);
        }
        break;
    case pb::UserAction::UserActionMouseInfo: {
        const QString text = QString::fromStdString(info.text());
        for (const QSharedPointer<GraphicItem>& entry : std::as_const(m_markItems)) {
            if (entry->userId() != userId)
                continue;
            auto* mark = static_cast<GraphicMarkItem*>(entry.data());
            {
                // The render thread paints the mark and writes its boundary.
                QMutexLocker locker(&m_itemsMutex);
                QRectF boundary = mark->boundary();
                mark->setText(text);
                boundary.moveTo(info.mouseposition().x(), info.mouseposition().y());
                mark->setBoundary(boundary);
            }
            updateLayer(MarkLayer, QRegion(mark->boundary().toRect()));
            return;
        }
        auto* mark = new GraphicMarkItem(text, QFont(), this, nullptr);
        stamp(mark);
        mark->setUserId(userId);
        // The position of the first message is not used: a new mark starts at
        // the origin and follows with the user's next message.
        mark->setBoundary(QRectF(0.0, 0.0, 10.0, 10.0));
        qDebug() << "MouseInfo mark boundry:" << mark->boundary() << text;
        const QSharedPointer<GraphicItem> shared = addItem(MarkLayer, mark);
        updateLayer(MarkLayer, QRegion(mark->boundary().toRect()));
        m_markItems.append(shared);
        break;
    }
    default:
        break;
    }
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
        advanceClock(operation.version());
        raiseClearMark(Version { operation.version(), operation.versionuser() }, author);
        return;
    }
    GraphicItemList list = items(ItemLayer, 1);
    if (author)
        list.removeIf([userId](const QSharedPointer<GraphicItem>& item) { return item->userId() != userId; });
    dropItems(list);
}

} // namespace whiteboard
