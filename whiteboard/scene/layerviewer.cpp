#include "scene/layerviewer.h"

#include <QLabel>
#include <QMutexLocker>
#include <QPainter>

namespace whiteboard {

LayerViewer::LayerViewer(QWidget* parent)
    : QWidget(parent)
    , m_label(new QLabel(this))
{
    m_label->resize(300, 30);
    m_label->move(0, 0);
    m_label->setStyleSheet(QStringLiteral("color:#ffffff;border-color:black;background:#60000000;padding-left:10px;"));
}

void LayerViewer::setImage(const QImage& image)
{
    QMutexLocker locker(&m_imageMutex);
    m_image = image;
    QWidget::update();
}

void LayerViewer::paintEvent(QPaintEvent*)
{
    QMutexLocker locker(&m_imageMutex);
    QPainter painter(this);
    painter.fillRect(rect(), QColor("#cccccc"));
    painter.drawImage(rect(), m_image);
}

} // namespace whiteboard
