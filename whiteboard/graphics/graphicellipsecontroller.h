#pragma once

#include "graphics/graphicframecontroller.h"

namespace whiteboard {

// Handles on the four edge centres of an ellipse's frame; each moves one axis only.
class GraphicEllipseController : public GraphicFrameController
{
    Q_OBJECT

public:
    GraphicEllipseController(GraphicScene* scene, GraphicItem* item);

    void onControlPointMove(int type, QMouseEvent* event) override;
};

} // namespace whiteboard
