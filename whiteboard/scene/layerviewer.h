#pragma once

#include <QImage>
#include <QMutex>
#include <QWidget>

class QLabel;

namespace whiteboard {

// Debug widget that shows one layer image or frame behind a caption. Nothing
// in a normal run creates or feeds it.
class LayerViewer : public QWidget
{
    Q_OBJECT

public:
    explicit LayerViewer(QWidget* parent = nullptr);

    QLabel* label() const { return m_label; }
    // Safe from the render thread.
    void setImage(const QImage& image);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QLabel* m_label = nullptr;
    QMutex m_imageMutex;
    QImage m_image;
};

} // namespace whiteboard
