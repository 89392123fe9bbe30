#include "graphics/graphicimage.h"

#include "graphics/graphicimagecontroller.h"
#include "scene/graphicscene.h"

#include <QMouseEvent>
#include <QPainter>
#include <QRegion>

namespace whiteboard {

GraphicImage::GraphicImage(const QString& imageKey, GraphicScene* scene, GraphicItem* parent)
    : AbstractGraphicShapeItem(scene, parent)
    , m_imageKey(imageKey)
{
    m_stroker.setWidth(6);
    setType(Image);
    setCursorShape(Qt::PointingHandCursor);
    setController(new GraphicImageController(scene, this));
}

// A copy shares the picture through its key.
GraphicImage::GraphicImage(const GraphicImage& other)
    : AbstractGraphicShapeItem(other)
    , m_startPoint(other.m_startPoint)
    , m_pressed(other.m_pressed)
    , m_imageKey(other.m_imageKey)
{
    m_stroker.setWidth(6);
    setController(new GraphicImageController(other.scene(), this));
}

GraphicItem* GraphicImage::copy()
{
    return new GraphicImage(*this);
}

void GraphicImage::paint(QPainter* painter, const QRectF*)
{
    if (m_imageKey.isEmpty() || !scene())
        return;
    const QImage* image = scene()->imageByKey(m_imageKey);
    if (!image || image->isNull())
        return;
    // Stretched into the frame; selection shows only in the controller's frame.
    painter->save();
    painter->setOpacity(opacity());
    painter->drawImage(boundary(), *image, QRectF(image->rect()), Qt::AutoColor);
    painter->restore();
}

bool GraphicImage::collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode) const
{
    return boundary().contains(point);
}

void GraphicImage::mousePressEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!m_outlinePath.isEmpty() && m_hitPath.contains(p)) {
        event->accept();
        m_pressed = true;
        if (focusable())
            setActiveFocus(true);
    }
    if (isEditMode()) {
        m_pressed = true;
        event->accept();
        m_startPoint = p;
    }
}

void GraphicImage::mouseMoveEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    const QPointF p = eventScenePos(event);
    if (!m_pressed) {
        if (collidesWithPoint(p, Qt::IntersectsItemShape) && hoverEnabled()) {
            event->accept();
            setHovered(true);
        }
        return;
    }
    event->accept();
    QPainterPath old = m_outlinePath;
    m_outlinePath = QPainterPath();
    const QRectF r(QPointF(qMin(m_startPoint.x(), p.x()), qMin(m_startPoint.y(), p.y())),
                   QPointF(qMax(m_startPoint.x(), p.x()), qMax(m_startPoint.y(), p.y())));
    m_outlinePath.addRect(r);
    setBoundary(m_outlinePath.boundingRect());
    // While dragging, the hit path also covers the previous frame: it is the
    // area to repaint.
    old.addPath(m_outlinePath);
    m_hitPath = m_stroker.createStroke(old).simplified();
    if (brush() == QBrush(Qt::NoBrush)) {
        scene()->updateLayer(GraphicScene::ActiveLayer, m_hitPath);
    } else {
        const int w = pen().width();
        scene()->updateLayer(GraphicScene::ActiveLayer, QRegion(old.boundingRect().adjusted(-w, -w, w, w).toRect()));
    }
}

void GraphicImage::mouseReleaseEvent(QMouseEvent* event)
{
    event->setAccepted(false);
    if (m_pressed) {
        event->accept();
        if (!m_outlinePath.isEmpty())
            m_hitPath = m_stroker.createStroke(m_outlinePath).simplified();
        if (isEditMode())
            setIsEditMode(false);
    }
    m_pressed = false;
}

} // namespace whiteboard
