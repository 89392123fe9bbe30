#include "graphics/graphicpenitem.h"

#include "graphics/graphichittest.h"
#include "graphics/graphicpaths.h"
#include "graphics/graphicpencontroller.h"
#include "inputlimits.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QMutexLocker>
#include <QPainter>
#include <QRegion>

#include <algorithm>

namespace whiteboard {

GraphicPenItem::GraphicPenItem(GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
{
    setType(Pen);
    setDrawingStyleDefaults();
}

GraphicPenItem::GraphicPenItem(const GraphicPenItem& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_lastPoint(other.m_lastPoint)
    , m_strokeStarted(other.m_strokeStarted)
    , m_pressed(other.m_pressed)
    , m_cacheImage(other.cacheImage())
{
}

GraphicController* GraphicPenItem::makeController()
{
    return new GraphicPenController(scene(), this);
}

GraphicItem* GraphicPenItem::copy()
{
    return new GraphicPenItem(*this);
}

QImage GraphicPenItem::cacheImage() const
{
    QMutexLocker locker(&m_cacheLock);
    return m_cacheImage;
}

QString GraphicPenItem::pathString() const
{
    const int count = m_outlinePath.elementCount();
    if (count == 0)
        return QString();
    const QLatin1Char fill(' ');
    const QPainterPath::Element first = m_outlinePath.elementAt(0);
    QString text = QStringLiteral("M %1 %2").arg(first.x, 0, 'g', -1, fill).arg(first.y, 0, 'g', -1, fill);
    for (int i = 1; i < count; ++i) {
        const QPainterPath::Element e = m_outlinePath.elementAt(i);
        text += QStringLiteral(" L %1 %2").arg(e.x, 0, 'g', -1, fill).arg(e.y, 0, 'g', -1, fill);
    }
    text += QStringLiteral(" z");
    return text;
}

QPainterPath GraphicPenItem::parsePathString(const QString& source)
{
    QPainterPath path;
    QString text = source;
    text.remove(QStringLiteral(" z"));
    QStringList parts = text.split(QStringLiteral(" L "));
    QString first = parts.takeFirst();
    first.remove(QStringLiteral("M "));
    QStringList tokens = first.split(QLatin1Char(' '));
    path.moveTo(tokens.first().toFloat(), tokens.last().toFloat());
    for (const QString& part : std::as_const(parts)) {
        tokens = part.split(QLatin1Char(' '));
        path.lineTo(tokens.first().toFloat(), tokens.last().toFloat());
    }
    return path;
}

bool GraphicPenItem::collidesWithPath(const QPainterPath& path, Qt::ItemSelectionMode mode) const
{
    return isEditMode() || AbstractGraphicShapeItem::collidesWithPath(path, mode);
}

bool GraphicPenItem::collidesWithRect(const QRectF& rect, Qt::ItemSelectionMode mode) const
{
    return isEditMode() || AbstractGraphicShapeItem::collidesWithRect(rect, mode);
}

bool GraphicPenItem::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const
{
    if (isEditMode())
        return true;
    // A finished stroke is hit along its centre line; one not yet released
    // has no band.
    if ((mode == Qt::ContainsItemShape || mode == Qt::IntersectsItemShape) && hasHitPath())
        return GraphicHitTest::nearPolyline(m_outlinePath, GraphicPaths::kHitBandHalfWidth, point);
    return AbstractGraphicShapeItem::collidesWithPoint(point, mode);
}

QPainterPath GraphicPenItem::makeHitPath() const
{
    return GraphicPaths::plainStrokeOf(m_outlinePath);
}

void GraphicPenItem::mousePressEvent(QMouseEvent* event)
{
    const QPointF p = eventScenePos(event);
    if (takePress(event, !m_outlinePath.isEmpty() && collidesWithPoint(p, Qt::IntersectsItemShape)))
        m_pressed = true;
    m_startPoint = p;
    m_lastPoint = p;
    m_strokeStarted = false;
}

void GraphicPenItem::mouseMoveEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (m_pressed) {
        event->setAccepted(true);
        if (isEditMode()) {
            if (!m_strokeStarted) {
                m_strokeStarted = true;
                m_outlinePath.moveTo(m_startPoint);
            }
            // A stroke stops growing at the points a receiver accepts.
            if (m_outlinePath.elementCount() >= InputLimits::kMaxPoints) {
                m_lastPoint = p;
                return;
            }
            m_outlinePath.lineTo(p);
            if (m_outlinePath.elementCount() == InputLimits::kMaxPoints)
                qCWarning(lcWhiteboardInput, "clamped pen stroke %s: points", qPrintable(gid()));
            setBoundary(m_outlinePath.boundingRect());
            if (cache())
                updateCacheImage(m_lastPoint, p);
            // Only the newest piece needs repainting.
            const int w = pen().width() + 1;
            const QRectF piece(QPointF(std::min(m_lastPoint.x(), p.x()), std::min(m_lastPoint.y(), p.y())),
                               QPointF(std::max(m_lastPoint.x(), p.x()), std::max(m_lastPoint.y(), p.y())));
            scene()->invalidate(piece.adjusted(-w, -w, w, w), GraphicScene::ActiveLayer);
        }
        m_lastPoint = p;
    } else {
        hoverAt(p, event);
    }
}

void GraphicPenItem::mouseReleaseEvent(QMouseEvent* event)
{
    // The outline of a long stroke is expensive: built once, here.
    endPress(event, m_pressed);
    m_pressed = false;
}

QSize GraphicPenItem::cacheImageSize() const
{
    const double s = scene()->scale();
    const double dpr = scene()->devicePixelRatio();
    const int w = pen().width();
    const QSize size = m_outlinePath.boundingRect().size().toSize();
    const int width = GraphicScene::roundPixel(GraphicScene::roundPixel((size.width() + w) * s) * dpr);
    const int height = GraphicScene::roundPixel(GraphicScene::roundPixel((size.height() + w) * s) * dpr);
    return QSize(width, height);
}

void GraphicPenItem::updateCacheImage(const QPointF& from, const QPointF& to)
{
    const QSize size = cacheImageSize();
    QMutexLocker locker(&m_cacheLock);
    bool isNew = false;
    if (m_cacheImage.size() != size) {
        m_cacheImage = QImage(size, QImage::Format_ARGB32);
        m_cacheImage.setDevicePixelRatio(scene()->devicePixelRatio());
        m_cacheImage.fill(Qt::transparent);
        isNew = true;
    }
    if (m_cacheImage.isNull())
        return;
    QPainter painter(&m_cacheImage);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::LosslessImageRendering);
    const double s = scene()->scale();
    painter.scale(s, s);
    const double w = pen().width();
    const QPointF b = m_outlinePath.boundingRect().topLeft();
    painter.translate(w * 0.5 - b.x(), w * 0.5 - b.y());
    painter.setPen(pen());
    painter.setBrush(brush());
    if (isNew)
        painter.drawPath(m_outlinePath);
    else if (from != to)
        painter.drawLine(from, to);
}

void GraphicPenItem::paint(QPainter* painter, const QRectF* rect)
{
    if (!cache()) {
        AbstractGraphicShapeItem::paint(painter, rect);
        return;
    }
    QMutexLocker locker(&m_cacheLock);
    if (m_cacheImage.size() != cacheImageSize())
        updateCacheImage(QPointF(), QPointF());
    const int h = pen().width() / 2;
    QRectF r = m_outlinePath.boundingRect().adjusted(-h, -h, h, h);
    r.moveTopLeft(r.topLeft() + cacheOffset());
    painter->drawImage(r, m_cacheImage);
}

} // namespace whiteboard
