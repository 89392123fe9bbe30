#pragma once

#include "graphics/graphiccontroller.h"

#include <QRectF>

namespace whiteboard {

// Handles on a picture frame's four corners, drawn over a dashed frame; no aspect ratio is kept.
class GraphicImageController : public GraphicController
{
    Q_OBJECT

public:
    GraphicImageController(GraphicScene* scene, GraphicItem* item);

    void paint(QPainter* painter) override;
    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

private:
    // The frame at the press: every move recomputes from it, so no error accumulates.
    QRectF m_pressRect;
};

} // namespace whiteboard
