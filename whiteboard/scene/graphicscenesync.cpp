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
#include "scene/batchremovegraphiccommand.h"

#include "proto/whiteboard.pb.h"

#include <QDateTime>
#include <QFont>
#include <QMutexLocker>
#include <QQuickItem>

#include <memory>
#include <string>

namespace pb = im::whiteboard;

namespace whiteboard {

namespace {

void fillItemEnvelope(pb::SingleWhiteboardData* envelope, pb::GraphicActionType type, GraphicItem* item,
                      qint64 timestamp)
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

// Builds one new item per entry of a received list.
template <class List, class Make>
void buildItems(const List& list, Make make, bool dirties, GraphicItemList& built, QRect& dirty)
{
    for (const auto& entry : list.data()) {
        GraphicItem* item = make();
        item->deserialize(bytesOf(entry));
        // A line alone dirties nothing; it shows with the next repaint of its region.
        if (dirties)
            dirty = dirty.united(item->boundary().toRect());
        built.append(GraphicScene::makeShared(item));
    }
}

// Applies each entry of a received list to an existing item, which files
// itself again if its bounds change.
template <class List>
void applyEntries(GraphicScene* scene, const List& list, const QSharedPointer<GraphicItem>& item)
{
    for (const auto& entry : list.data()) {
        const QByteArray bytes = bytesOf(entry);
        // The render thread may be painting the item.
        QMutexLocker locker(&scene->itemsMutex());
        item->deserialize(bytes);
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

pb::TransferData* GraphicScene::makeItemAction(pb::GraphicActionType type, const QSharedPointer<GraphicItem>& item)
{
    pb::TransferData* data = makeTransferData();
    pb::SingleWhiteboardData* envelope = data->mutable_multi()->add_whiteboarddatalist();
    fillItemEnvelope(envelope, type, item.data(), QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset);
    return data;
}

pb::TransferData* GraphicScene::makeBatchAction(pb::GraphicActionType type, const GraphicItemList& items)
{
    pb::TransferData* data = makeTransferData();
    // One time for the whole batch, so that its envelopes agree.
    const qint64 timestamp = QDateTime::currentMSecsSinceEpoch() - m_serverTimeOffset;
    for (const QSharedPointer<GraphicItem>& item : items)
        fillItemEnvelope(data->mutable_multi()->add_whiteboarddatalist(), type, item.data(), timestamp);
    return data;
}

void GraphicScene::sendOperation(pb::UserOperation_Type type)
{
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
    envelope->set_data(body.SerializeAsString());
    post(data);
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

    const pb::MultiWhiteboardData multi = data->multi();
    for (int i = 0; i < multi.whiteboarddatalist_size(); ++i) {
        const pb::SingleWhiteboardData envelope = multi.whiteboarddatalist(i);
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
}

void GraphicScene::applyGraphicAction(const pb::GraphicAction& action)
{
    switch (action.graphicactiontype()) {
    case pb::GraphicActionAdd:
        addReceivedItems(action);
        break;
    case pb::GraphicActionUpdate:
    case pb::GraphicActionModify:
        updateReceivedItem(action);
        break;
    case pb::GraphicActionRemove: {
        // The item message that rides along is not read.
        const QSharedPointer<GraphicItem> item = findItem(QString::fromUtf8(action.gid().c_str()));
        if (!item)
            return;
        removeItem(ItemLayer, item);
        updateLayer(ItemLayer, QRegion(item->boundary().toRect()));
        break;
    }
    default:
        break;
    }
}

void GraphicScene::addReceivedItems(const pb::GraphicAction& action)
{
    // No gid lookup: an add of a known gid gives a second item.
    GraphicItemList built;
    QRect dirty;
    switch (action.actiondata_case()) {
    case pb::GraphicAction::kArrowdata:
        buildItems(action.arrowdata(), [this] { return new GraphicArrowLineItem(this, nullptr); }, true, built, dirty);
        break;
    case pb::GraphicAction::kCanvasdata:
        break;
    case pb::GraphicAction::kEllipsedata:
        buildItems(action.ellipsedata(), [this] { return new GraphicEllipseItem(this, nullptr); }, true, built, dirty);
        break;
    case pb::GraphicAction::kImagedata:
        buildItems(action.imagedata(), [this] { return new GraphicImage(QString(), this, nullptr); }, true, built, dirty);
        break;
    case pb::GraphicAction::kLinedata:
        buildItems(action.linedata(), [this] { return new GraphicLineItem(this, nullptr); }, false, built, dirty);
        break;
    case pb::GraphicAction::kPathdata:
        buildItems(action.pathdata(), [this] { return new GraphicPenItem(this, nullptr); }, true, built, dirty);
        break;
    case pb::GraphicAction::kPolylinedata:
        buildItems(action.polylinedata(), [this] { return new GraphicLineSegmentItem(this, nullptr); }, true, built, dirty);
        break;
    case pb::GraphicAction::kRectdata:
        buildItems(action.rectdata(), [this] { return new GraphicRectItem(this, nullptr); }, true, built, dirty);
        break;
    default:
        if (action.has_textdata()) {
            buildItems(action.textdata(), [this] { return new GraphicTextItem(QString(), QFont(), this, nullptr); }, true,
                       built, dirty);
        } else {
            qWarning("unknown graphic action data");
        }
        break;
    }
    addItems(ItemLayer, built);
    updateLayer(ItemLayer, QRegion(dirty));
}

void GraphicScene::updateReceivedItem(const pb::GraphicAction& action)
{
    const QSharedPointer<GraphicItem> item = findItem(QString::fromUtf8(action.gid().c_str()));
    if (!item)
        return;
    // Selection, focus, controller and history stay as they are: the remote
    // state simply wins. The class of the item is not checked against the list.
    if (action.has_arrowdata()) {
        applyEntries(this, action.arrowdata(), item);
    } else if (action.has_canvasdata()) {
        // Reserved: recognised, and nothing to apply.
    } else if (action.has_ellipsedata()) {
        applyEntries(this, action.ellipsedata(), item);
    } else if (action.has_imagedata()) {
        applyEntries(this, action.imagedata(), item);
    } else if (action.has_linedata()) {
        applyEntries(this, action.linedata(), item);
    } else if (action.has_pathdata()) {
        applyEntries(this, action.pathdata(), item);
    } else if (action.has_polylinedata()) {
        applyEntries(this, action.polylinedata(), item);
    } else if (action.has_rectdata()) {
        applyEntries(this, action.rectdata(), item);
    } else if (action.has_textdata()) {
        applyEntries(this, action.textdata(), item);
    } else {
        qWarning("unknown graphic action data");
    }
    updateLayer(ItemLayer, QRegion(item->boundary().toRect()));
}

void GraphicScene::applyUserAction(const pb::UserAction& action)
{
    const qlonglong userId = action.userid();
    // A client keeps no mark for itself.
    if (userId == m_currentUserId)
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
        mark->setTimestamp(qlonglong(serverTimestamp()));
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
    // Through the local history: a remote clear is a step this user can undo,
    // silently and on this client alone.
    switch (operation.operationtype()) {
    case pb::UserOperation::UserOperationClearAll:
        pushCommand(new BatchRemoveGraphicCommand(items(ItemLayer, 1), this, false));
        break;
    case pb::UserOperation::UserOperationClearByUid:
        clearByUid(operation.userid(), false);
        break;
    default:
        break;
    }
}

} // namespace whiteboard
