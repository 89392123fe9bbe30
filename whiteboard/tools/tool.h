#pragma once

#include "graphicdefine.h"

#include <QPointF>
#include <QRegion>
#include <QSharedPointer>

class QHoverEvent;
class QMouseEvent;

namespace whiteboard {

class GraphicController;
class GraphicItem;
class GraphicScene;
class ToolController;
struct Gesture;

// One way of handling the pointer, chosen by the scene's tool type. The
// controller calls begin, motion and end for the press, moves and release of
// a gesture, and hover for moves without a button. All on the GUI thread;
// begin and motion run under itemsMutex.
class Tool
{
public:
    Tool(GraphicScene* scene, ToolController& tools);
    virtual ~Tool() = default;

    virtual void begin(QMouseEvent* event) = 0;
    // Drawing: the item starts at the first move, not at the press.
    virtual void motion(QMouseEvent* event);
    // The handles of the focus item show their cursor; everywhere else the
    // arrow. The others learn where the pointer is.
    virtual void hover(QHoverEvent* event);
    // A gesture without a move ends with nothing done, except on the right
    // button, which ends a polyline.
    virtual void end(QMouseEvent* event);

protected:
    // Commits what the gesture drew, or the handle drag of the focus item,
    // then ends the gesture.
    void finish(QMouseEvent* event);
    // Over a handle of the focus item: its cursor, and true.
    bool hoverHandle(const QPointF& viewPos);
    // The cursor for hovering `item` (null: none), unless a held key owns it;
    // Qt::BlankCursor asks for the item's own.
    void setItemCursor(const QSharedPointer<GraphicItem>& item, Qt::CursorShape cursor);
    // The cursor over whatever item lies at `viewPos` (see setItemCursor),
    // and the others learn where the pointer is.
    void pointAt(const QPointF& viewPos, Qt::CursorShape cursor);
    // Starts `item`, styled for `tool`, on the active layer in edit mode and
    // hands it the press.
    QSharedPointer<GraphicItem> startItem(GraphicItem* item, GraphicDefine::ToolType tool, QMouseEvent* event);
    // The owner and the palette's opacity and styles of a new item of `tool`.
    void styleNewItem(GraphicItem* item, GraphicDefine::ToolType tool);
    static Qt::CursorShape controlPointCursor(GraphicController* controller, int type);
    // The handles and outlines of an active item reach `margin` past its boundary.
    static QRectF grown(const QRectF& rect, double margin);

    GraphicScene* m_scene = nullptr;
    ToolController& m_tools;
    Gesture& m_gesture;

private:
    // Returns true when the item stays open.
    bool commitActiveItem(const QSharedPointer<GraphicItem>& active, QMouseEvent* event);
    void releaseFocusItem(const QSharedPointer<GraphicItem>& focus, QMouseEvent* event);
};

} // namespace whiteboard
