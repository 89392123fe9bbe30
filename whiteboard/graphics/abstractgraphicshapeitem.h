#pragma once

#include "graphics/graphicitem.h"
#include "graphics/graphicstrokecache.h"

#include <QBrush>
#include <QColor>
#include <QPainterPath>
#include <QPen>

namespace whiteboard {

// Common base of the concrete items: the two styles, the geometry in
// `outlinePath`, its width-6 hit band in `hitPath`, default painting, hit
// tests and the pointer steps of drawing. The style values are
// GraphicStyles', the paths GraphicPaths', the hit tests GraphicHitTest's; the
// wire form is ItemCodec's.
//
// Invariant: after any interaction that changes `outlinePath` ends, `hitPath`
// is the width-6 stroke of it and `boundary` its bounding rectangle. The band
// is made on first use: most items are never hit-tested, and received or
// dragged ones would otherwise pay for it on every change.
class AbstractGraphicShapeItem : public GraphicItem
{
    Q_OBJECT
    Q_PROPERTY(QBrush brush READ brush WRITE setBrush NOTIFY brushChanged)
    Q_PROPERTY(QPen pen READ pen WRITE setPen NOTIFY penChanged)
    Q_PROPERTY(QBrush brushHovered READ brushHovered WRITE setBrushHovered NOTIFY brushHoveredChanged)
    Q_PROPERTY(QPen penHovered READ penHovered WRITE setPenHovered NOTIFY penHoveredChanged)
    Q_PROPERTY(QColor color READ color WRITE setColor NOTIFY colorChanged)
    Q_PROPERTY(double strokeWidth READ strokeWidth WRITE setStrokeWidth NOTIFY strokeWidthChanged)

public:
    explicit AbstractGraphicShapeItem(GraphicScene* scene = nullptr, GraphicItem* parent = nullptr);
    AbstractGraphicShapeItem(const AbstractGraphicShapeItem& other);

    QBrush brush() const { return m_brush; }
    void setBrush(const QBrush& brush);
    QPen pen() const { return m_pen; }
    void setPen(const QPen& pen);
    QBrush brushHovered() const { return m_brushHovered; }
    void setBrushHovered(const QBrush& brush);
    QPen penHovered() const { return m_penHovered; }
    void setPenHovered(const QPen& pen);
    QColor color() const;
    void setColor(const QColor& color);
    double strokeWidth() const;
    void setStrokeWidth(double width);

    QPainterPath outlinePath() const { return m_outlinePath; }
    void setOutlinePath(const QPainterPath& path) { m_outlinePath = path; }
    // The band, made now if a rebuild is pending. GUI thread.
    QPainterPath hitPath() const;
    void setHitPath(const QPainterPath& path);
    QPointF cacheOffset() const { return m_cacheOffset; }
    void setCacheOffset(const QPointF& offset) { m_cacheOffset = offset; }

    // A copy of `path` with data of its own (the elements still shared), to
    // draw in its place. A painter keeps the converted form of a path it
    // draws (over 3 KiB, however short the path) in the path's shared data,
    // where it would stay as long as an item's outline, and two painters
    // drawing one path at once would race on it. Frames draw every recorded
    // path through such a copy. Any thread.
    static QPainterPath paintedPath(const QPainterPath& path);
    // Marks `hitPath` to be made again from `outlinePath` at its next use.
    void rebuildHitPath();
    // Whether the item has a band, made or pending.
    bool hasHitPath() const { return m_hitPathPending || !m_hitPath.isEmpty(); }

    // Hit tolerance of lines and outlines: half of the pen width plus six.
    double hitTolerance() const;

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    bool collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const override;
    bool collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;
    const QPainterPath& shape() const override;

signals:
    void brushChanged();
    void penChanged();
    void brushHoveredChanged();
    void penHoveredChanged();
    void colorChanged();
    void strokeWidthChanged();

protected:
    // Whether the item has a fill.
    bool filled() const { return m_brush != QBrush(Qt::NoBrush); }
    // How the band is made from `outlinePath`.
    virtual QPainterPath makeHitPath() const;
    // The placeholder styles of the drawing items; the scene replaces the pen
    // from the palette when a user draws one.
    void setDrawingStyleDefaults();
    // The selection veil over filled shapes.
    void paintSelectionVeil(QPainter* painter) const;
    // Render thread, under itemsMutex: `outlinePath` with the painter's pen
    // and brush; a long finished one from its picture.
    void drawOutline(QPainter* painter);
    // The colour to paint `color` with: darker when selected, at the item's opacity.
    QColor paintColor(QColor color) const;
    // The pointer steps shared by the items drawn by a drag. A press on the
    // item (`onItem`) takes the focus, and in edit mode every press starts
    // the drawing; returns whether the press is the item's.
    bool takePress(QMouseEvent* event, bool onItem);
    // Hover of an item that is not pressed.
    void hoverAt(const QPointF& point, QMouseEvent* event);
    // Ends a press and the drawing; with `rebuildHit` the hit path is made
    // again from the finished outline.
    void endPress(QMouseEvent* event, bool pressed, bool rebuildHit = true);

    QPainterPath m_outlinePath;

private:
    // Whether painting shows the item as selected.
    bool showsSelection() const;

    // Made on the GUI thread, where the hit tests run.
    mutable QPainterPath m_hitPath;
    mutable bool m_hitPathPending = false;

    QBrush m_brush;
    QPen m_pen;
    QBrush m_brushHovered;
    QPen m_penHovered;
    QPointF m_cacheOffset;
    // Render thread only.
    GraphicStrokeCache m_strokeCache;
};

} // namespace whiteboard
