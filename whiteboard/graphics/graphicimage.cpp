#include "graphics/graphicimage.h"

#include "graphics/graphicimagecodec.h"
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
}

// A copy shares the picture through its key, and its wire form.
GraphicImage::GraphicImage(const GraphicImage& other)
    : GraphicFrameItem(other)
    , m_imageKey(other.m_imageKey)
    , m_picture(other.m_picture)
    , m_awaitingPixels(other.m_awaitingPixels)
{
    // A copy made while the pixels decode waits for them too.
    if (m_awaitingPixels && scene())
        scene()->imageCodec()->decode(this, m_picture);
}

void GraphicImage::setImageKey(const QString& imageKey)
{
    if (m_imageKey == imageKey)
        return;
    m_imageKey = imageKey;
    m_picture.clear();
}

QByteArray GraphicImage::wirePicture() const
{
    if (m_picture.isEmpty()) {
        const QImage* image = scene() && !m_imageKey.isEmpty() ? scene()->imageByKey(m_imageKey) : nullptr;
        m_picture = GraphicImageCodec::encode(image ? *image : QImage());
    }
    return m_picture;
}

void GraphicImage::takePicture(const QByteArray& bytes)
{
    if (!scene() || bytes == m_picture)
        return;
    m_picture = bytes;
    m_awaitingPixels = m_imageKey.isEmpty();
    scene()->imageCodec()->decode(this, m_picture);
}

GraphicController* GraphicImage::makeController()
{
    return new GraphicImageController(scene(), this);
}

GraphicItem* GraphicImage::copy()
{
    return new GraphicImage(*this);
}

void GraphicImage::paint(QPainter* painter, const QRectF*)
{
    if (!scene())
        return;
    if (m_awaitingPixels) {
        // The first pixels are still being decoded: the frame shows where
        // the picture goes.
        painter->save();
        painter->setPen(QPen(QColor(160, 160, 160), 0, Qt::DashLine));
        painter->setBrush(Qt::NoBrush);
        painter->drawRect(boundary());
        painter->restore();
        return;
    }
    const QImage* image = m_imageKey.isEmpty() ? nullptr : scene()->imageByKey(m_imageKey);
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
