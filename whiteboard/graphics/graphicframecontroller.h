#pragma once

#include "graphics/graphiccontroller.h"

#include <QRectF>

namespace whiteboard {

// Handles that reshape an item's rectangular frame. A press keeps the frame;
// every drag recomputes from it, so no error accumulates. The default drag
// moves one of the four corners and keeps the opposite one.
class GraphicFrameController : public GraphicController
{
    Q_OBJECT

public:
    // Only an item of `itemClass` (or a subclass) is reshaped.
    GraphicFrameController(GraphicScene* scene, GraphicItem* item, const QMetaObject& itemClass,
                           const QList<GraphicControlPoint>& points = cornerPoints());

    void onControlPointPress(int type, QMouseEvent* event) override;
    void onControlPointMove(int type, QMouseEvent* event) override;

protected:
    // The item if it is of the class this controller serves, else null.
    AbstractGraphicShapeItem* frameItem() const;
    // Called after a corner drag has rebuilt the frame, before the repaint.
    virtual void frameResized(AbstractGraphicShapeItem* item);

    // The frame at the press.
    QRectF m_pressRect;

private:
    const QMetaObject* m_itemClass = nullptr;
};

} // namespace whiteboard
