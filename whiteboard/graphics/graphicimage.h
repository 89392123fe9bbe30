#pragma once

#include "graphics/abstractgraphicshapeitem.h"

#include <QPainterPathStroker>
#include <QString>

namespace whiteboard {

// A picture stretched into a rectangular frame. The pixels live once in the
// scene's image cache; the item only holds their key.
class GraphicImage : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicImage(const QString& imageKey, GraphicScene* scene = nullptr,
                          GraphicItem* parent = nullptr);
    GraphicImage(const GraphicImage& other);

    QString imageKey() const { return m_imageKey; }
    void setImageKey(const QString& imageKey) { m_imageKey = imageKey; }

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

    QPointF startPoint() const { return m_startPoint; }
    bool pressed() const { return m_pressed; }

private:
    QPainterPathStroker m_stroker;
    QPointF m_startPoint;
    bool m_pressed = false;
    QString m_imageKey;
};

} // namespace whiteboard
