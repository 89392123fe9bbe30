#pragma once

#include "graphics/graphicframeitem.h"

#include <QString>

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
    // GUI thread. The wire form of the picture, made now if it is not held
    // yet: encoded once, sent with every add.
    QByteArray wirePicture() const;
    // GUI thread, possibly under itemsMutex. Takes the wire form of a
    // received picture: the same bytes again (an add that brings the item
    // back) keep the picture shown; others replace it once they are decoded,
    // and until then the picture held stays.
    void takePicture(const QByteArray& bytes);

    void paint(QPainter* painter, const QRectF* rect = nullptr) override;
    GraphicItem* copy() override;
    GraphicController* makeController() override;
    bool collidesWithPoint(const QPointF& point, Qt::ItemSelectionMode mode) const override;

private:
    friend class GraphicImageCodec; // hands over the key of decoded pixels

    QString m_imageKey;
    // A cache of what the key names, made by the first send.
    mutable QByteArray m_picture;
    // A received item whose first pixels are being decoded. Under itemsMutex.
    bool m_awaitingPixels = false;
};

} // namespace whiteboard
