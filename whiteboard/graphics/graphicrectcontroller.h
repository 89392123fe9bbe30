#pragma once

#include "graphics/graphiccontroller.h"

#include <QRectF>

namespace whiteboard {

// Handles on a rectangle's four corners; a corner drag keeps the opposite corner.
class GraphicRectController : public GraphicController
{
    Q_OBJECT

public:
    GraphicRectController(GraphicScene* scene, GraphicItem* item);

    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

private:
    // The frame at the press: every move recomputes from it, so no error accumulates.
    QRectF m_pressRect;
};

} // namespace whiteboard
