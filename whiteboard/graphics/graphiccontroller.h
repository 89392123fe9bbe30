#pragma once

#include "graphics/graphiccontrolpoint.h"

#include <QMap>
#include <QObject>
#include <QRectF>

class QHoverEvent;
class QMouseEvent;
class QPainter;

namespace whiteboard {

class AbstractGraphicShapeItem;
class GraphicItem;
class GraphicScene;

// The handles of one item and the dragging of it. The item owns its
// controller; creation gestures live in the items, the controller only
// reshapes and moves items that exist.
class GraphicController : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QRectF boundary READ boundingRect NOTIFY boundaryChanged)

public:
    GraphicController(GraphicScene* scene, GraphicItem* item);
    ~GraphicController() override;

    GraphicScene* scene() const { return m_scene; }
    GraphicItem* item() const { return m_item; }

    // An unknown type makes a default record, as QMap::operator[] does.
    GraphicControlPoint& controlPoint(int type) { return m_controlPoints[type]; }
    QList<GraphicControlPoint> controlPoints() const { return m_controlPoints.values(); }
    QPointF pressPosition() const { return m_pressPos; }
    int activePoint() const { return m_activePoint; }

    // Moves the whole item so that the drag position becomes `pos`.
    void moveTo(const QPointF& pos);

    virtual void paint(QPainter* painter);
    virtual int controlPointAt(const QPointF& itemPos);
    virtual bool contains(const QPointF& itemPos);
    virtual QRectF boundingRect();
    virtual void mousePressEvent(QMouseEvent* event);
    virtual void mouseMoveEvent(QMouseEvent* event);
    virtual void mouseReleaseEvent(QMouseEvent* event);
    virtual void hoverEnterEvent(QHoverEvent* event);
    virtual void hoverLeaveEvent(QHoverEvent* event);
    virtual void hoverMoveEvent(QHoverEvent* event);
    virtual QPointF controlPointPosition(int type);
    virtual void onControlPointPress(int type, QMouseEvent* event);
    virtual void onControlPointMove(int type, QMouseEvent* event);
    virtual void onControlPointRelease(int type, QMouseEvent* event);

public slots:
    void update();

signals:
    void controlPointPress(int type, QMouseEvent* event);
    void controlPointMove(int type, QMouseEvent* event);
    void controlPointRelease(int type, QMouseEvent* event);
    void boundaryChanged();

protected:
    // Pointer position in scene coordinates.
    QPointF eventPos(const QMouseEvent* event) const;
    // Installs the records all at once, keyed by their type.
    void setControlPoints(const QList<GraphicControlPoint>& points);
    // The four corner handles with their defaults.
    static QList<GraphicControlPoint> cornerPoints();
    // Moves the corner of `rect` that the handle `type` stands for to `pos`;
    // false, and `rect` unchanged, if `type` is not a corner.
    static bool moveCorner(QRectF& rect, int type, const QPointF& pos);
    // The shared dashed frame of controllers that outline their item.
    void paintFrame(QPainter* painter, const QRectF& rect) const;
    double sceneScale() const;
    // Moves the item by `target - from` (or, with `cache`, only its raster
    // offset) and repaints it; the geometry branch moves `pressPos` along.
    void translateItem(const QPointF& target, const QPointF& from);
    // Repaints the item layer over `before` and over the shape's new
    // boundary grown by its pen width.
    void repaintReshaped(const AbstractGraphicShapeItem* shape, const QRectF& before);

    GraphicScene* m_scene = nullptr;
    GraphicItem* m_item = nullptr;
    QMap<int, GraphicControlPoint> m_controlPoints;
    double m_maxPointSize = 0.0;
    int m_activePoint = -1;
    QPointF m_pressPos;
    QPointF m_dragStartPos;
    bool m_moving = false;
    bool m_moved = false;
};

} // namespace whiteboard
