// The debug viewer of layer images.
#include "scene/layerviewer.h"

#include <QLabel>
#include <QTest>

using whiteboard::LayerViewer;

class tst_LayerViewer : public QObject
{
    Q_OBJECT

private slots:
    void showsImageBehindCaption();
};

void tst_LayerViewer::showsImageBehindCaption()
{
    LayerViewer viewer;
    viewer.resize(400, 200);
    QCOMPARE(viewer.label()->geometry(), QRect(0, 0, 300, 30));

    // Without an image only the grey ground shows below the caption.
    QImage shot = viewer.grab().toImage();
    QCOMPARE(shot.pixelColor(200, 150), QColor("#cccccc"));

    // The image is stretched to the widget, and may come from any thread.
    QImage image(2, 2, QImage::Format_ARGB32);
    image.fill(Qt::blue);
    QThread* thread = QThread::create([&] { viewer.setImage(image); });
    thread->start();
    QVERIFY(thread->wait(5000));
    delete thread;
    viewer.resize(600, 300);
    shot = viewer.grab().toImage();
    QCOMPARE(shot.pixelColor(500, 250), QColor(Qt::blue));
    QCOMPARE(viewer.label()->size(), QSize(300, 30));
}

QTEST_MAIN(tst_LayerViewer)
#include "tst_layerviewer.moc"
