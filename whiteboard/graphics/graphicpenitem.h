#pragma once

#include "graphics/abstractgraphicshapeitem.h"
#include "scene/annotatedmutex.h"

#include <QImage>
#include <QSize>
#include <QString>

namespace whiteboard {

// The freehand stroke: one straight piece per delivered pointer move, with no
// smoothing. With `cache` on it paints through a raster kept in the item.
class GraphicPenItem : public AbstractGraphicShapeItem
{
    Q_OBJECT

public:
    explicit GraphicPenItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    GraphicPenItem(const GraphicPenItem& other);

    QPointF startPoint() const { return m_startPoint; }
    QPointF lastPoint() const { return m_lastPoint; }
    bool strokeStarted() const { return m_strokeStarted; }
    QImage cacheImage() const;

    // The stroke as "M x y L x y ... z" text; empty when there is no stroke.
    QString pathString() const;
    // The inverse of pathString(), at single precision.
    static QPainterPath parsePathString(const QString& text);

    QSize cacheImageSize() const;
    void updateCacheImage(const QPointF& from, const QPointF& to);

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const override;
    bool collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

protected:
    QPainterPath makeHitPath() const override;

private:
    // Recursive: paint() holds it while it remakes the image. One of the
    // scene's lock type, so that TSan sees it like the others.
    mutable SceneRecursiveMutex m_cacheLock;
    QPointF m_startPoint;
    QPointF m_lastPoint;
    bool m_strokeStarted = false;
    bool m_pressed = false;
    QImage m_cacheImage;
};

} // namespace whiteboard
