#pragma once

#include "graphics/graphicframeitem.h"

#include <QString>

namespace im::whiteboard {
class Image;
}

namespace whiteboard {

// A picture stretched into a rectangular frame. The pixels live once in the
// scene's image cache; the item only holds their key.
class GraphicImage : public GraphicFrameItem
{
    Q_OBJECT

public:
    explicit GraphicImage(const QString& imageKey, GraphicScene* scene = nullptr,
                          GraphicItem* parent = nullptr);
    GraphicImage(const GraphicImage& other);

    QString imageKey() const { return m_imageKey; }
    void setImageKey(const QString& imageKey) { m_imageKey = imageKey; }

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
    void buildMessage(im::whiteboard::Image* message, bool withPicture) const;

    QString m_imageKey;
};

} // namespace whiteboard
