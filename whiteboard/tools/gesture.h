#pragma once

#include <QList>
#include <QPainterPath>
#include <QPoint>
#include <QPointF>
#include <QSharedPointer>

namespace whiteboard {

class GraphicItem;

// The state of one pointer gesture and of the keys held, shared by the tools:
// a gesture may start with one tool and end with another (a handle pressed
// with a drawing tool drags like the selector). GUI thread only; the items it
// names are painted by the render thread, so they are touched under itemsMutex.
struct Gesture
{
    // The item being drawn on the active layer, the rubber band, or a new
    // text box waiting for its text.
    QSharedPointer<GraphicItem> activeItem;
    // Items the eraser passed over in this drag, halved in opacity.
    QList<QSharedPointer<GraphicItem>> erasedItems;
    // Where a handle drag of the focus item started: the release compares
    // them to tell a move from a reshape.
    QPointF moveStartPosition;
    QPainterPath resizeStartPath;
    // The last pan position; a polyline also closes there.
    QPoint pressPoint;
    int pressedKey = Qt::Key_unknown;
    bool mousePressed = false;
    bool mouseMoved = false;
    bool panning = false;
    // Set by the press of a drawing tool and kept until its next press: the
    // moves of any tool then drag the handle, as the selector does.
    bool controlPointPressed = false;
    // A polyline closed by a change of tool: the selector's release must not
    // take it for its rubber band.
    bool finishingSegment = false;
    // The press ended an open text: its moves and release do nothing.
    bool endingText = false;
};

} // namespace whiteboard
