#include "graphics/graphicimage.h"

#include "graphics/graphicimagecontroller.h"
#include "scene/graphicscene.h"

#include <QPainter>

namespace whiteboard {

GraphicImage::GraphicImage(const QString& imageKey, GraphicScene* scene, GraphicItem* parent)
    : GraphicFrameItem(scene, parent)
    , m_imageKey(imageKey)
{
    setType(Image);
    setCursorShape(Qt::PointingHandCursor);
    setController(new GraphicImageController(scene, this));
}

// A copy shares the picture through its key.
GraphicImage::GraphicImage(const GraphicImage& other)
    : GraphicFrameItem(other)
    , m_imageKey(other.m_imageKey)
{
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

} // namespace whiteboard
