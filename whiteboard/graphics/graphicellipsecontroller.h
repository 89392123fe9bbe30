#pragma once

#include "graphics/graphiccontroller.h"

#include <QRectF>

namespace whiteboard {

// Handles on the four edge centres of an ellipse's frame; each moves one axis only.
class GraphicEllipseController : public GraphicController
{
    Q_OBJECT

public:
    GraphicEllipseController(GraphicScene* scene, GraphicItem* item);

    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

private:
    // The frame at the press: every move recomputes from it, so no error accumulates.
    QRectF m_pressRect;
};

} // namespace whiteboard
