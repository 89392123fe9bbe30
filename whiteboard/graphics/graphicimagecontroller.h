#pragma once

#include "graphics/graphicframecontroller.h"

namespace whiteboard {

// Handles on a picture frame's four corners, drawn over a dashed frame; no aspect ratio is kept.
class GraphicImageController : public GraphicFrameController
{
    Q_OBJECT

public:
    GraphicImageController(GraphicScene* scene, GraphicItem* item);

    void paint(QPainter* painter) override;
};

} // namespace whiteboard
