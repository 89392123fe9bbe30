#pragma once

// Messages as peers send them, built and read with the generated classes.
#include "proto/whiteboard.pb.h"

#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <string>

namespace pb = im::whiteboard;

// One envelope per body, in order; `gid` names the envelopes' item.
inline pb::TransferData transferOf(const QList<pb::WhiteboardData>& bodies, const std::string& gid = std::string(),
                                   const std::string& board = std::string())
{
    pb::TransferData data;
    if (!board.empty())
        data.set_whiteboardid(board);
    for (const pb::WhiteboardData& body : bodies) {
        pb::SingleWhiteboardData* envelope = data.mutable_multi()->add_whiteboarddatalist();
        envelope->set_gid(gid);
        envelope->set_data(body.SerializeAsString());
    }
    return data;
}

// The body of every envelope, in order.
inline QList<pb::WhiteboardData> bodiesOf(const pb::TransferData& data)
{
    QList<pb::WhiteboardData> bodies;
    for (const pb::SingleWhiteboardData& envelope : data.multi().whiteboarddatalist())
        {
        bodies.append(pb::WhiteboardData());
        bodies.last().ParseFromString(envelope.data());
    }
    return bodies;
}

// An item action without item data. A negative version leaves the version
// fields out, as an old peer does.
inline pb::WhiteboardData itemBody(pb::GraphicActionType type, const std::string& gid, qint64 version = -1, qint64 versionUser = 0)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataGraphicAction);
    pb::GraphicAction* action = body.mutable_graphicactiondata();
    action->set_graphicactiontype(type);
    action->set_gid(gid);
    if (version >= 0) {
        action->set_version(version);
        action->set_versionuser(versionUser);
    }
    return body;
}

// A blue-filled rectangle of `frame` drawn by `author`.
inline pb::WhiteboardData rectBody(pb::GraphicActionType type, const std::string& gid, const QRectF& frame, qint64 author = 0,
                                   qint64 version = -1, qint64 versionUser = 0)
{
    pb::WhiteboardData body = itemBody(type, gid, version, versionUser);
    pb::Rect* rect = body.mutable_graphicactiondata()->mutable_rectdata()->add_data();
    rect->mutable_baseinfo()->set_gid(gid);
    if (author)
        rect->mutable_baseinfo()->set_userid(author);
    rect->mutable_leftpos()->set_x(float(frame.x()));
    rect->mutable_leftpos()->set_y(float(frame.y()));
    rect->set_width(float(frame.width()));
    rect->set_heigth(float(frame.height()));
    rect->mutable_fillstyle()->set_color("#0000ff");
    return body;
}

// A pointer position, a presence or a leave of `userId`.
inline pb::WhiteboardData userBody(pb::UserAction::Type type, qint64 userId, const QString& name = QString(),
                                   QPointF position = QPointF())
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserAction);
    pb::UserAction* action = body.mutable_useractiondata();
    action->set_actiontype(type);
    action->set_userid(userId);
    action->mutable_mouseinfo()->set_text(name.toStdString());
    action->mutable_mouseinfo()->mutable_mouseposition()->set_x(float(position.x()));
    action->mutable_mouseinfo()->mutable_mouseposition()->set_y(float(position.y()));
    return body;
}

inline pb::WhiteboardData clearAllBody(qint64 userId)
{
    pb::WhiteboardData body;
    body.set_datatype(pb::WhiteboardData::WhiteboardDataUserOperation);
    body.mutable_useroperationdata()->set_operationtype(pb::UserOperation::UserOperationClearAll);
    body.mutable_useroperationdata()->set_userid(userId);
    return body;
}
