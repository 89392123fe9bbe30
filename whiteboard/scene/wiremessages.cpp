#include "scene/wiremessages.h"

#include "graphics/graphicitem.h"
#include "scene/itemcodec.h"

#include "proto/whiteboard.pb.h"

#include <string>

namespace pb = im::whiteboard;

namespace whiteboard {

namespace {

pb::TransferData* makeTransfer(const QString& boardId)
{
    auto* data = new pb::TransferData;
    const QByteArray id = boardId.toUtf8();
    // Up to the first zero byte, as a C string reads.
    data->set_allocated_whiteboardid(new std::string(id.constData()));
    return data;
}

// A message of one envelope holding `body`.
pb::TransferData* makeSingle(const QString& boardId, const pb::WhiteboardData& body, qint64 time)
{
    pb::TransferData* data = makeTransfer(boardId);
    addEnvelope(data, body, time);
    return data;
}

// Every field of the version, the device too: a board always has one.
template<typename Message>
void setVersion(Message* message, const GraphicScene::Version& version)
{
    message->set_version(version.clock);
    message->set_versionuser(version.user);
    message->set_versiondevice(version.device);
}

void addItemEnvelope(pb::TransferData* data, pb::GraphicActionType type, GraphicItem* item, qint64 time,
                     const GraphicScene::Version& version)
{
    const std::string gid = item->gid().toStdString();
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_timestamp(time);
    action->set_graphicactiontype(type);
    action->set_gid(gid);
    setVersion(action, version);
    // Removals carry the whole item too.
    ItemCodec::write(*item, action);
    pb::SingleWhiteboardData* envelope = addEnvelope(data, body, time);
    envelope->set_gid(gid);
    envelope->set_graphicactiontype(type);
}

} // namespace

pb::SingleWhiteboardData* addEnvelope(pb::TransferData* data, const pb::WhiteboardData& body, qint64 time)
{
    pb::SingleWhiteboardData* envelope = data->mutable_multi()->add_whiteboarddatalist();
    envelope->set_timestamp(time);
    // The payload of an envelope is a second, separately encoded message.
    envelope->set_data(body.SerializeAsString());
    return envelope;
}

pb::TransferData* makeItemBatchMessage(const QString& boardId, pb::GraphicActionType type, const GraphicItemList& items,
                                       const QList<GraphicScene::Version>& versions, qint64 time)
{
    pb::TransferData* data = makeTransfer(boardId);
    for (qsizetype i = 0; i < items.size(); ++i)
        addItemEnvelope(data, type, items.at(i).data(), time, versions.value(i));
    return data;
}

pb::TransferData* makeOperationMessage(const QString& boardId, pb::UserOperation_Type type, qint64 userId,
                                       const GraphicScene::Version& version, qint64 time)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserOperation);
    pb::UserOperation* operation = body.mutable_useroperationdata();
    operation->set_operationtype(type);
    operation->set_timestamp(time);
    operation->set_userid(userId);
    setVersion(operation, version);
    return makeSingle(boardId, body, time);
}

pb::TransferData* makePointerMessage(const QString& boardId, qint64 userId, const QString& userName,
                                     const QPointF& position, qint64 time)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserAction);
    pb::UserAction* action = body.mutable_useractiondata();
    action->set_actiontype(pb::UserAction::UserActionMouseInfo);
    action->set_timestamp(time);
    action->set_userid(userId);
    pb::UserMouseInfoData* info = action->mutable_mouseinfo();
    info->set_text(userName.toStdString());
    info->mutable_mouseposition()->set_x(float(position.x()));
    info->mutable_mouseposition()->set_y(float(position.y()));
    return makeSingle(boardId, body, time);
}

pb::TransferData* makeJoinMessage(const QString& boardId, qint64 oldestTimestamp)
{
    pb::TransferData* data = makeTransfer(boardId);
    data->mutable_userjoin()->set_oldesttimestamp(oldestTimestamp);
    return data;
}

} // namespace whiteboard
