#include "graphics/graphicimage.h"

#include "graphics/graphicimagecontroller.h"
#include "proto/whiteboard.pb.h"
#include "scene/graphicscene.h"

#include <QDataStream>
#include <QIODevice>
#include <QPainter>

namespace whiteboard {

GraphicImage::GraphicImage(const QString& imageKey, GraphicScene* scene, GraphicItem* parent)
    : GraphicFrameItem(scene, parent)
    , m_imageKey(imageKey)
{
    setType(Image);
    setCursorShape(Qt::PointingHandCursor);
}

// A copy shares the picture through its key.
GraphicImage::GraphicImage(const GraphicImage& other)
    : GraphicFrameItem(other)
    , m_imageKey(other.m_imageKey)
{
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

// --- wire message -----------------------------------------------------------

void GraphicImage::buildMessage(im::whiteboard::Image* message, bool withPicture) const
{
    message->set_allocated_baseinfo(makeBaseInfo());
    writeFrame(message);
    message->set_allocated_transform(makeTransforms());
    message->set_opacity(float(opacity()));
    if (!withPicture)
        return;
    // Keys are never sent, as each client fingerprints the pixels itself.
    // The stream keeps the toolkit's default version, which all clients
    // must share.
    const QImage* image = scene() ? scene()->imageByKey(m_imageKey) : nullptr;
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream << (image ? *image : QImage());
    message->set_data(bytes.constData(), size_t(bytes.size()));
}

QByteArray GraphicImage::serialize()
{
    im::whiteboard::Image message;
    buildMessage(&message, true);
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
        QByteArray bytes(message.data().data(), qsizetype(message.data().size()));
        QDataStream stream(&bytes, QIODevice::ReadOnly);
        QImage image;
        // Bytes that do not decode leave a null image, stored like any other.
        stream >> image;
        m_imageKey = scene()->addImage(image);
    }
    if (const auto frame = receivedFrame(message)) {
        QPainterPath outline;
        outline.addRect(*frame);
        setReceivedOutline(outline, *frame);
    }
}

} // namespace whiteboard
