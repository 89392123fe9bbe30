#pragma once

#include "graphics/graphicframecontroller.h"

namespace whiteboard {

// Handles on a rectangle's four corners; a corner drag keeps the opposite corner.
class GraphicRectController : public GraphicFrameController
{
    Q_OBJECT

public:
    GraphicRectController(GraphicScene* scene, GraphicItem* item);
};

} // namespace whiteboard
