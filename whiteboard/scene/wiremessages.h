#pragma once

#include "scene/graphicscene.h"

#include <QList>
#include <QPointF>
#include <QString>

namespace im::whiteboard {
class SingleWhiteboardData;
class TransferData;
class WhiteboardData;
}

namespace whiteboard {

// The messages a board sends, built whole from what they carry: the board's
// id (the view's "id") and the server time of the change. Each result is new
// and belongs to whoever receives it.

// The one envelope: `body`, encoded on its own, as a new entry of the list
// of `data`, stamped `time`.
im::whiteboard::SingleWhiteboardData* addEnvelope(im::whiteboard::TransferData* data,
                                                  const im::whiteboard::WhiteboardData& body, qint64 time);

// An envelope per item, with the item's whole state, all of one time; the
// version of each item is at the same place in `versions`.
im::whiteboard::TransferData* makeItemBatchMessage(const QString& boardId, im::whiteboard::GraphicActionType type,
                                                   const GraphicItemList& items,
                                                   const QList<GraphicScene::Version>& versions, qint64 time);
// A clear, by `userId`.
im::whiteboard::TransferData* makeOperationMessage(const QString& boardId, im::whiteboard::UserOperation_Type type,
                                                   qint64 userId, const GraphicScene::Version& version, qint64 time);
// Where the pointer of `userId` is, in scene units, with the name shown beside it.
im::whiteboard::TransferData* makePointerMessage(const QString& boardId, qint64 userId, const QString& userName,
                                                 const QPointF& position, qint64 time);
im::whiteboard::TransferData* makeJoinMessage(const QString& boardId, qint64 oldestTimestamp);

} // namespace whiteboard
