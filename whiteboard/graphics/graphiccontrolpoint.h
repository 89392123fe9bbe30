#pragma once

#include "graphicdefine.h"

#include <QBrush>
#include <QPen>
#include <QPointF>

namespace whiteboard {

// One handle of a controller. Its position is the centre in scene
// coordinates; its size is in view pixels, so it keeps its size on screen.
struct GraphicControlPoint
{
    GraphicControlPoint() = default;
    explicit GraphicControlPoint(int pointType)
        : type(pointType)
        , cursorShape(defaultCursor(pointType))
    {
    }

    static int defaultCursor(int pointType)
    {
        switch (pointType) {
        case GraphicDefine::GCP_SizeTopLeft:
        case GraphicDefine::GCP_SizeBottomRight:
            return Qt::SizeFDiagCursor;
        case GraphicDefine::GCP_SizeTopRight:
        case GraphicDefine::GCP_SizeBottomLeft:
            return Qt::SizeBDiagCursor;
        case GraphicDefine::GCP_SizeTopCenter:
        case GraphicDefine::GCP_SizeBottomCenter:
            return Qt::SizeVerCursor;
        case GraphicDefine::GCP_SizeLeftCenter:
        case GraphicDefine::GCP_SizeRightCenter:
            return Qt::SizeHorCursor;
        case GraphicDefine::GCP_Move:
            return Qt::SizeAllCursor;
        default:
            return Qt::ArrowCursor;
        }
    }

    int type = 0;
    int size = 6;
    int style = GraphicDefine::GCP_Rectangle;
    int cursorShape = Qt::ArrowCursor;
    QPointF position;
    QPen pen;
    QBrush brush;
};

} // namespace whiteboard
