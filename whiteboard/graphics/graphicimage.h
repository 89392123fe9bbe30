#pragma once

#include "graphics/graphicframeitem.h"

#include <QString>

namespace im::whiteboard {
class Image;
}

namespace whiteboard {

// A picture stretched into a rectangular frame. The pixels live once in the
// scene's image cache; the item holds their key and their wire form, made
// once (or kept as received) so that no send encodes them again. A received
// picture is decoded off the GUI thread: until it is ready the item shows
// an empty frame.
class GraphicImage : public GraphicFrameItem
{
    Q_OBJECT

public:
    explicit GraphicImage(const QString& imageKey, GraphicScene* scene = nullptr,
                          GraphicItem* parent = nullptr);
    GraphicImage(const GraphicImage& other);

    QString imageKey() const { return m_imageKey; }
    // Other pixels: their wire form is made again when next sent.
    void setImageKey(const QString& imageKey);
    // GUI thread. The wire form of the picture; empty until the first send
    // of a picture placed here.
    QByteArray pictureBytes() const { return m_picture; }

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    GraphicController* makeController() override;
    QByteArray serialize() override;
    void deserialize(const QByteArray& data) override;
    void readEntry(const google::protobuf::MessageLite& entry) override;
    void serializeToAction(im::whiteboard::GraphicAction* action) override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

private:
    // The shared body of serialize() and serializeToAction(); the picture's
    // bytes only `withPicture`.
    void buildMessage(im::whiteboard::Image* message, bool withPicture);

    friend class GraphicImageCodec; // hands over the key of decoded pixels

    QString m_imageKey;
    QByteArray m_picture;
    // A received item whose first pixels are being decoded. Under itemsMutex.
    bool m_awaitingPixels = false;
};

} // namespace whiteboard
