#include "graphics/abstractgraphicshapeitem.h"

#include "graphics/graphicdistance.h"
#include "proto/whiteboard.pb.h"
#include "scene/graphicscene.h"
#include "scene/sceneexport.h"

#include <QDebug>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPathStroker>

namespace whiteboard {

im::whiteboard::Point* makePoint(const QPointF& point)
{
    auto* result = new im::whiteboard::Point;
    result->set_x(float(point.x()));
    result->set_y(float(point.y()));
    return result;
}

QPointF toPointF(const im::whiteboard::Point& point)
{
    return QPointF(point.x(), point.y());
}

namespace {

// Styles that paint a picture are not shared: the kept copy would keep the
// picture alive after its items are gone.
bool paintsPicture(const QBrush& brush)
{
    return brush.style() == Qt::TexturePattern;
}

// A path started from a point holds exactly the room reserved. `add` moves
// that point and adds the rest; what it refuses (a null rectangle,
// coordinates out of range) leaves the point alone, and then the empty path
// that `add` would have left.
template <class Add>
QPainterPath fittedPath(const QPointF& start, int room, int elements, Add add)
{
    QPainterPath path(start);
    path.reserve(room);
    add(path);
    return path.elementCount() == elements ? path : QPainterPath();
}

} // namespace

AbstractGraphicShapeItem::AbstractGraphicShapeItem(GraphicScene* scene, GraphicItem* parent)
    : GraphicItem(scene, parent)
{
}

AbstractGraphicShapeItem::AbstractGraphicShapeItem(const AbstractGraphicShapeItem& other)
    : GraphicItem(other)
    , m_outlinePath(other.m_outlinePath)
    , m_hitPath(other.m_hitPath)
    , m_hitPathPending(other.m_hitPathPending)
    , m_brush(other.m_brush)
    , m_pen(other.m_pen)
    , m_brushHovered(other.m_brushHovered)
    , m_penHovered(other.m_penHovered)
    , m_cacheOffset(other.m_cacheOffset)
{
}

void AbstractGraphicShapeItem::setDrawingStyleDefaults()
{
    setPen(QPen(QColor(Qt::red)));
    setBrushHovered(QBrush(QColor("#80ffff00"), Qt::SolidPattern));
    setPenHovered(QPen(QColor("#80ff0000")));
    setCursorShape(Qt::PointingHandCursor);
}

void AbstractGraphicShapeItem::setBrush(const QBrush& brush)
{
    if (m_brush == brush)
        return;
    m_brush = paintsPicture(brush) ? brush : sharedValue(brush);
    emit brushChanged();
}

void AbstractGraphicShapeItem::setPen(const QPen& pen)
{
    if (m_pen == pen)
        return;
    // The pen's width is part of the hit tolerance, so of where the item is hit.
    const bool reachChanged = pen.width() != m_pen.width();
    m_pen = paintsPicture(pen.brush()) ? pen : sharedValue(pen);
    if (GraphicScene* scene = this->scene())
        scene->notePaintMargin(pen.widthF());
    if (reachChanged)
        notifyGeometryChange();
    emit penChanged();
}

void AbstractGraphicShapeItem::setBrushHovered(const QBrush& brush)
{
    if (m_brushHovered == brush)
        return;
    m_brushHovered = paintsPicture(brush) ? brush : sharedValue(brush);
    emit brushHoveredChanged();
}

void AbstractGraphicShapeItem::setPenHovered(const QPen& pen)
{
    if (m_penHovered == pen)
        return;
    m_penHovered = paintsPicture(pen.brush()) ? pen : sharedValue(pen);
    emit penHoveredChanged();
}

QColor AbstractGraphicShapeItem::color() const
{
    return m_brush == QBrush(Qt::NoBrush) ? m_pen.color() : m_brush.color();
}

void AbstractGraphicShapeItem::setColor(const QColor& color)
{
    if (m_brush == QBrush(Qt::NoBrush)) {
        QPen pen = m_pen;
        if (pen.color() == color)
            return;
        pen.setColor(color);
        setPen(pen);
    } else {
        QBrush brush = m_brush;
        if (brush.color() == color)
            return;
        brush.setColor(color);
        setBrush(brush);
    }
    emit colorChanged();
}

double AbstractGraphicShapeItem::strokeWidth() const
{
    return m_pen == QPen(Qt::NoPen) ? 1.0 : m_pen.widthF();
}

void AbstractGraphicShapeItem::setStrokeWidth(double width)
{
    if (m_pen == QPen(Qt::NoPen) || qFuzzyCompare(m_pen.widthF(), width))
        return;
    QPen pen = m_pen;
    pen.setWidthF(width);
    setPen(pen);
    emit strokeWidthChanged();
}

QPainterPath AbstractGraphicShapeItem::strokeOf(const QPainterPath& path)
{
    QPainterPathStroker stroker;
    stroker.setWidth(6);
    return stroker.createStroke(path).simplified();
}

QPainterPath AbstractGraphicShapeItem::paintedPath(const QPainterPath& path)
{
    if (path.isEmpty())
        return path;
    // Setting a fill rule other than the path's detaches it; setting the
    // path's own back leaves the copy as it was.
    QPainterPath copy = path;
    const Qt::FillRule rule = copy.fillRule();
    copy.setFillRule(rule == Qt::OddEvenFill ? Qt::WindingFill : Qt::OddEvenFill);
    copy.setFillRule(rule);
    return copy;
}

QPainterPath AbstractGraphicShapeItem::segmentPath(const QPointF& from, const QPointF& to, int room)
{
    // Started at (0, 0) as an empty path starts, with the room reserved:
    // moveTo() and lineTo() then do what they do on an empty path.
    QPainterPath path { QPointF() };
    path.reserve(room);
    path.moveTo(from);
    path.lineTo(to);
    // Both ends refused (not finite): left as an empty path is, without elements.
    return path.elementCount() == 1 && QPointF(path.elementAt(0)) != from ? QPainterPath() : path;
}

QPainterPath AbstractGraphicShapeItem::rectPath(const QRectF& rect)
{
    return fittedPath(rect.topLeft(), 5, 5, [&rect](QPainterPath& path) { path.addRect(rect); });
}

QPainterPath AbstractGraphicShapeItem::ellipsePath(const QRectF& rect)
{
    // addEllipse() reserves room for its 13 elements beyond the start point,
    // which it then moves.
    return fittedPath(rect.topLeft(), 14, 13, [&rect](QPainterPath& path) { path.addEllipse(rect); });
}

QPainterPath AbstractGraphicShapeItem::plainStrokeOf(const QPainterPath& path)
{
    QPainterPathStroker stroker;
    stroker.setWidth(6);
    return stroker.createStroke(path);
}

void AbstractGraphicShapeItem::rebuildHitPath()
{
    m_hitPath = QPainterPath();
    m_hitPathPending = true;
}

QPainterPath AbstractGraphicShapeItem::makeHitPath() const
{
    return strokeOf(m_outlinePath);
}

QPainterPath AbstractGraphicShapeItem::hitPath() const
{
    if (m_hitPathPending) {
        m_hitPath = makeHitPath();
        m_hitPathPending = false;
    }
    return m_hitPath;
}

void AbstractGraphicShapeItem::setHitPath(const QPainterPath& path)
{
    m_hitPath = path;
    m_hitPathPending = false;
}

bool AbstractGraphicShapeItem::nearPolyline(const QPointF& point, double halfWidth) const
{
    const int count = m_outlinePath.elementCount();
    if (count == 0 || !m_outlinePath.boundingRect().adjusted(-halfWidth, -halfWidth, halfWidth, halfWidth).contains(point))
        return false;
    QPointF from = m_outlinePath.elementAt(0);
    for (int i = 1; i < count; ++i) {
        const QPainterPath::Element e = m_outlinePath.elementAt(i);
        const QPointF to(e.x, e.y);
        // A moveTo starts a new piece without joining the previous point.
        if (!e.isMoveTo() && sdSegment(point, from, to) <= halfWidth)
            return true;
        from = to;
    }
    return false;
}

QRectF AbstractGraphicShapeItem::grownUnlessEmpty(QRectF rect, int width)
{
    if (!(rect.width() == 0.0 && rect.height() == 0.0))
        rect.adjust(-width, -width, width, width);
    return rect;
}

double AbstractGraphicShapeItem::hitTolerance() const
{
    return double(float(m_pen.width() + 6) * 0.5f);
}

bool AbstractGraphicShapeItem::closedShapeHit(const QPointF& point, Qt::ItemSelectionMode mode,
                                              OutlineDistance distance) const
{
    const QRectF b = m_outlinePath.boundingRect();
    switch (mode) {
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return b.contains(point);
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape: {
        const double d = distance(point - b.center(), b);
        const double t = hitTolerance();
        if (d < -t)
            return m_brush != QBrush(Qt::NoBrush);
        return d <= t;
    }
    }
    return false;
}

bool AbstractGraphicShapeItem::segmentHit(const QPointF& point) const
{
    const double t = hitTolerance();
    // With both ends at one point d is NaN and neither test rejects it: a
    // line of one point is hit everywhere its bounds are searched.
    const double d = sdSegment(point, m_outlinePath.elementAt(0), m_outlinePath.elementAt(1));
    if (d > t)
        return false;
    if (-t > d)
        return false;
    return true;
}

bool AbstractGraphicShapeItem::takePress(QMouseEvent* event, bool onItem)
{
    event->setAccepted(false);
    if (onItem) {
        event->accept();
        if (focusable())
            setActiveFocus(true);
    }
    if (isEditMode())
        event->accept();
    return event->isAccepted();
}

void AbstractGraphicShapeItem::hoverAt(const QPointF& point, QMouseEvent* event)
{
    if (collidesWithPoint(point, Qt::IntersectsItemShape) && hoverEnabled()) {
        event->accept();
        setHovered(true);
    }
}

void AbstractGraphicShapeItem::endPress(QMouseEvent* event, bool pressed, bool rebuildHit)
{
    event->setAccepted(false);
    if (!pressed)
        return;
    event->accept();
    if (rebuildHit && !m_outlinePath.isEmpty())
        rebuildHitPath();
    if (isEditMode())
        setIsEditMode(false);
}

QColor AbstractGraphicShapeItem::paintColor(QColor color) const
{
    if (selected() && !SceneExport::exporting())
        color = color.darker(110);
    color.setAlphaF(float(opacity()));
    return color;
}

void AbstractGraphicShapeItem::paint(QPainter* painter, const QRectF*)
{
    if (!visible() || opacity() < 0.001)
        return;
    // Colours set only when they change: setting one copies the pen's or
    // brush's data, an allocation per item and frame on a big board. A pen
    // without style draws nothing.
    QPen pen = m_pen;
    const QColor penColor = paintColor(pen.color());
    if (pen.style() != Qt::NoPen && penColor != pen.color())
        pen.setColor(penColor);
    QBrush brush = m_brush;
    const QColor brushColor = paintColor(brush.color());
    if (brush.style() != Qt::NoBrush && brushColor != brush.color())
        brush.setColor(brushColor);
    if (pen.joinStyle() != Qt::MiterJoin)
        pen.setJoinStyle(Qt::MiterJoin);
    painter->setPen(pen);
    painter->setBrush(brush);
    drawOutline(painter);
    paintSelectionVeil(painter);
}

void AbstractGraphicShapeItem::drawOutline(QPainter* painter)
{
    // A stroke still being drawn changes with every point: painted whole.
    // So is an exported one: a file keeps the path, off the GUI thread.
    if (GraphicStrokeCache::wanted(m_outlinePath) && !isEditMode() && !SceneExport::exporting())
        m_strokeCache.paint(painter, scene(), m_outlinePath, painter->pen(), painter->brush());
    else
        painter->drawPath(m_outlinePath);
}

void AbstractGraphicShapeItem::paintSelectionVeil(QPainter* painter) const
{
    if (!selected() || m_brush == QBrush(Qt::NoBrush) || SceneExport::exporting())
        return;
    const QColor veil("#30000000");
    painter->setPen(QPen(QBrush(veil, Qt::SolidPattern), m_pen.width(), Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    painter->setBrush(QBrush(veil, Qt::SolidPattern));
    painter->drawPath(m_outlinePath);
}

bool AbstractGraphicShapeItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    switch (mode) {
    case Qt::ContainsItemShape:
    case Qt::IntersectsItemShape:
        return hitPath().contains(point);
    case Qt::ContainsItemBoundingRect:
    case Qt::IntersectsItemBoundingRect:
        return m_outlinePath.boundingRect().contains(point);
    }
    return false;
}

bool AbstractGraphicShapeItem::collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const
{
    const QPainterPath band = hitPath();
    const QPainterPath& shape = (band.isEmpty() || m_brush != QBrush(Qt::NoBrush)) ? m_outlinePath : band;
    switch (mode) {
    case Qt::ContainsItemShape:
        return path.contains(shape);
    case Qt::IntersectsItemShape:
        return path.intersects(shape);
    case Qt::ContainsItemBoundingRect:
        return path.contains(m_outlinePath.boundingRect());
    case Qt::IntersectsItemBoundingRect:
        return path.intersects(m_outlinePath.boundingRect());
    }
    return false;
}

bool AbstractGraphicShapeItem::collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const
{
    // A band still to be built is the outline's stroke, which covers the
    // outline: where the outline's bounds overlap the rectangle, so do the
    // band's, and a rubber band need not build it to know.
    if (mode == Qt::IntersectsItemShape && m_hitPathPending && rect.intersects(m_outlinePath.boundingRect()))
        return true;
    const QPainterPath band = hitPath();
    QRectF r = band.isEmpty() ? m_outlinePath.boundingRect() : band.boundingRect();
    // Straight lines have a zero extent in one axis; give them one unit.
    if (r.width() == 0.0)
        r.setWidth(1.0);
    if (r.height() == 0.0)
        r.setHeight(1.0);
    switch (mode) {
    case Qt::ContainsItemShape:
        return rect.contains(r);
    case Qt::IntersectsItemShape:
        return rect.intersects(r);
    case Qt::ContainsItemBoundingRect:
        return rect.contains(m_outlinePath.boundingRect());
    case Qt::IntersectsItemBoundingRect:
        return rect.intersects(m_outlinePath.boundingRect());
    }
    return false;
}

const QPainterPath& AbstractGraphicShapeItem::shape() const
{
    return m_outlinePath;
}

// --- wire messages ---------------------------------------------------------

void AbstractGraphicShapeItem::reportParseFailure()
{
    qCWarning(lcWhiteboardScene) << "parse from data failed.";
}

im::whiteboard::GraphicBaseInfo* AbstractGraphicShapeItem::makeBaseInfo() const
{
    auto* info = new im::whiteboard::GraphicBaseInfo;
    info->set_gid(gid().toStdString());
    info->set_timestamp(timestamp());
    info->set_userid(userId());
    info->set_type(type());
    return info;
}

im::whiteboard::FillStyle* AbstractGraphicShapeItem::makeFillStyle() const
{
    if (m_brush == QBrush(Qt::NoBrush))
        return nullptr;
    // Only the plain colour travels: no gradient, texture or alpha.
    auto* style = new im::whiteboard::FillStyle;
    style->set_color(m_brush.color().name().toStdString());
    return style;
}

im::whiteboard::StrokeStyle* AbstractGraphicShapeItem::makeStrokeStyle() const
{
    if (m_pen == QPen(Qt::NoPen))
        return nullptr;
    auto* style = new im::whiteboard::StrokeStyle;
    style->set_width(m_pen.width());
    style->set_color(m_pen.color().name().toStdString());
    // The wire enumerations carry the toolkit's own numbers.
    style->set_linecap(im::whiteboard::StrokeStyle_LineCapStyle(m_pen.capStyle()));
    style->set_linejoin(im::whiteboard::StrokeStyle_LineJoinStyle(m_pen.joinStyle()));
    QStringList dashes;
    const QList<qreal> pattern = m_pen.dashPattern();
    for (qreal value : pattern)
        dashes << QString::number(value, 'g', 6);
    style->set_dashpattern(dashes.join(QLatin1Char(',')).toStdString());
    return style;
}

void AbstractGraphicShapeItem::applyBaseInfo(const im::whiteboard::GraphicBaseInfo& info)
{
    setTimestamp(info.timestamp());
    // Read as a C string: a gid stops at its first zero byte.
    setGid(QString::fromUtf8(info.gid().c_str()));
    setUserId(info.userid());
}

void AbstractGraphicShapeItem::applyFillStyle(const im::whiteboard::FillStyle& style)
{
    setBrush(QBrush(QColor(QString::fromStdString(style.color())), Qt::SolidPattern));
}

void AbstractGraphicShapeItem::applyStrokeStyle(const im::whiteboard::StrokeStyle& style)
{
    // The dash pattern is not applied: a received stroke is always solid,
    // whatever pen the item had before (Qt::NoPen for a filled one).
    setPen(QPen(QBrush(QColor(QString::fromStdString(style.color())), Qt::SolidPattern), style.width(), Qt::SolidLine,
                Qt::PenCapStyle(style.linecap()), Qt::PenJoinStyle(style.linejoin())));
}

} // namespace whiteboard
