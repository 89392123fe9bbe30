#include "graphics/graphicimage.h"

#include "graphics/graphicimagecodec.h"
#include "graphics/graphicimagecontroller.h"
#include "proto/whiteboard.pb.h"
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

// --- wire message -----------------------------------------------------------

void GraphicImage::buildMessage(im::whiteboard::Image* message, bool withPicture)
{
    message->set_allocated_baseinfo(makeBaseInfo());
    writeFrame(message);
    message->set_allocated_transform(makeTransforms());
    message->set_opacity(float(opacity()));
    if (!withPicture)
        return;
    // Keys are never sent, as each client fingerprints the pixels itself.
    if (m_picture.isEmpty()) {
        const QImage* image = scene() && !m_imageKey.isEmpty() ? scene()->imageByKey(m_imageKey) : nullptr;
        m_picture = GraphicImageCodec::encode(image ? *image : QImage());
    }
    message->set_data(m_picture.constData(), size_t(m_picture.size()));
}

QByteArray GraphicImage::serialize()
{
    // The wire form of an item's state, which the scene reads back after
    // each change: the pixels are their own wire form already, so they stay
    // out of it, and the item keeps them.
    im::whiteboard::Image message;
    buildMessage(&message, false);
    return encode(message);
}

void GraphicImage::serializeToAction(im::whiteboard::GraphicAction* action)
{
    // The pixels travel once, with the add (also the add that brings the
    // item back); moves and resizes carry only the frame, and a receiver
    // keeps the picture it has.
    buildMessage(action->mutable_imagedata()->add_data(),
                 action->graphicactiontype() == im::whiteboard::GraphicActionAdd);
}

void GraphicImage::deserialize(const QByteArray& data)
{
    deserializeAs<im::whiteboard::Image>(data);
}

void GraphicImage::readEntry(const google::protobuf::MessageLite& entry)
{
    const auto& message = static_cast<const im::whiteboard::Image&>(entry);
    // An image has no styles on the wire.
    applyBaseInfo(message.baseinfo());
    if (message.has_opacity())
        setOpacity(message.opacity());
    if (message.has_data() && scene()) {
        const QByteArray bytes = QByteArray::fromStdString(message.data());
        // The same pixels again (an add that brings the item back) keep the
        // picture shown; others replace it once they are decoded, and until
        // then the picture held stays.
        if (bytes != m_picture) {
            m_picture = bytes;
            m_awaitingPixels = m_imageKey.isEmpty();
            scene()->imageCodec()->decode(this, m_picture);
        }
    }
    if (const auto frame = receivedFrame(message)) {
        setReceivedOutline(rectPath(*frame), *frame);
    }
}

} // namespace whiteboard
