#include "thumbnailimage.h"

#include <QPainter>

ThumbnailImage::ThumbnailImage(QQuickItem* parent)
    : QQuickPaintedItem(parent)
{
    qRegisterMetaType<QImage*>("QImage *");
}

void ThumbnailImage::updateImage(QImage* img)
{
    m_image = img;
    update(QRect());
}

void ThumbnailImage::paint(QPainter* painter)
{
    if (m_image)
        painter->drawImage(boundingRect(), *m_image, QRectF(m_image->rect()), Qt::AutoColor);
}
