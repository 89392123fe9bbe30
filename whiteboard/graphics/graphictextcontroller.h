#pragma once

#include "graphics/graphiccontroller.h"

#include <QRectF>

namespace whiteboard {

// Handles on a text frame's four corners over a dashed frame; the frame height sets the type size.
class GraphicTextController : public GraphicController
{
    Q_OBJECT

public:
    GraphicTextController(GraphicScene* scene, GraphicItem* item);

    void paint(QPainter* painter) override;
    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

private:
    // The frame at the press: every move recomputes from it, so no error accumulates.
    QRectF m_pressRect;
};

} // namespace whiteboard
