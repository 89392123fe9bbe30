#pragma once

#include "graphics/abstractgraphicshapeitem.h"

namespace whiteboard {

// Declared for the eraser tool, whose logic lives in the scene and the
// history; nothing creates one. It has no type, pen or controller.
class GraphicEraser : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicEraser(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
};

} // namespace whiteboard
