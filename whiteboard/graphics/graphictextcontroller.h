#pragma once

#include "graphics/graphicframecontroller.h"

namespace whiteboard {

// Handles on a text frame's four corners over a dashed frame; the frame height sets the type size.
class GraphicTextController : public GraphicFrameController
{
    Q_OBJECT

public:
    GraphicTextController(GraphicScene* scene, GraphicItem* item);

    void paint(QPainter* painter) override;

protected:
    void frameResized(AbstractGraphicShapeItem* item) override;
};

} // namespace whiteboard
