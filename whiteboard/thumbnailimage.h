#pragma once

#include <QImage>
#include <QQuickPaintedItem>

// Shows a thumbnail that the scene keeps. The image is not owned and is read
// without a lock: an overview is a preview, and a torn read shows for one
// frame at most.
class ThumbnailImage : public QQuickPaintedItem
{
    Q_OBJECT

public:
    explicit ThumbnailImage(QQuickItem* parent = nullptr);

    void paint(QPainter* painter) override;

public slots:
    void updateImage(QImage* img);

private:
    QImage* m_image = nullptr;
};
